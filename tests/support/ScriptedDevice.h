// A picture device whose transactions are scripted, for what the base class makes of them.
//
//   PictureDeviceTestRoom room;
//   auto device = std::make_shared<ScriptedDevice>();
//   device->transactions.failing["Delete"] = 0x200D;
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/ScriptedPTPTransactions.h"

namespace tarvo::test {

/// A device whose transactions, stores and pictures are the test's.
class ScriptedDevice : public PlainDevice {
 public:
  ScriptedDevice() : PlainDevice("Lumo") {}

  PTPTransactions* ptpTransactions() override { return speaksPTP ? &transactions : nullptr; }
  const CodeList* opCodeList() override { return &transactions.operations; }
  const CodeList* propertyList() override { return &transactions.properties; }
  bool isWireless() override { return wireless; }
  bool isDocked() override { return docked; }
  std::optional<AddressBook> addressBookDictUncached() override {
    ++booksRead;
    return book;
  }
  std::optional<ByteBuffer> downloadObject(const ObjectReference& object) override {
    return downloadObjectDataPTP(object.get<std::uint32_t>());
  }
  std::optional<std::vector<std::uint32_t>> storageIDs() override { return stores; }
  std::shared_ptr<const PTPStorageInfo> storageInfo(std::uint32_t id) override {
    const auto found = infos.find(id);
    return found == infos.end() ? nullptr : std::make_shared<const PTPStorageInfo>(found->second);
  }
  using PlainDevice::numberOfObjectsOnStore;
  std::int32_t numberOfObjectsOnStore(std::uint32_t store, std::uint16_t type) override {
    return transactions.numberOfObjectsOnStore(store, type);
  }
  std::optional<ObjectReferences> pictureFiles() override { return pictures; }
  std::int64_t objectSize(const ObjectReference& object) override {
    return object.is_string() ? 5 : 6;
  }
  Status sendObjectInfo(XTExtendedObjectInfo& info, std::uint32_t storage, std::uint32_t parent,
                        std::uint32_t* handle) override {
    return transactions.sendObjectInfo(info, storage, parent, handle);
  }
  Status sendObjectData(std::span<const std::byte> data) override {
    return transactions.sendObjectData(data);
  }

  ScriptedPTPTransactions transactions;
  bool speaksPTP = true;
  bool wireless = false;
  bool docked = false;
  std::optional<std::vector<std::uint32_t>> stores;
  std::map<std::uint32_t, PTPStorageInfo> infos;
  ObjectReferences pictures;
  std::optional<AddressBook> book;
  int booksRead = 0;
};

}  // namespace tarvo::test

// The PTP side of a virtual camera: a table of operations, each answered from the description and
// the object store. New operations are one line of the table and one member function.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "simulator/DeviceDescription.h"
#include "simulator/ObjectStore.h"
#include "simulator/PacketQueue.h"

namespace tarvo::simulator {

enum class DataDirection { kNone, kFromDevice, kToDevice };

struct PTPRequest {
  std::uint16_t operation = 0;
  std::uint32_t transactionID = 0;
  std::array<std::uint32_t, 5> parameters{};
  unsigned parameterCount = 0;
  Bytes data;  ///< what the host sent in the data phase
};

struct PTPReply {
  std::uint16_t code = 0x2001;
  std::vector<std::uint32_t> parameters;
  std::shared_ptr<const Payload> data;  ///< data phase from the device; null: none
};

class PTPResponder {
 public:
  explicit PTPResponder(const DeviceDescription& description);

  /// Where the data phase of an operation goes; none for an operation that is not known.
  DataDirection direction(std::uint16_t operation) const;
  PTPReply execute(const PTPRequest& request);

  bool hasSession() const { return session_ != 0; }
  void forgetSession() { session_ = 0; }

 private:
  using Member = PTPReply (PTPResponder::*)(const PTPRequest&);
  struct Operation {
    DataDirection direction = DataDirection::kNone;
    bool needsSession = true;
    Member run = nullptr;
  };
  using Table = std::map<std::uint16_t, Operation>;
  static const Table& standardOperations();
  void addVendorOperations();

  PTPReply getDeviceInfo(const PTPRequest& request);
  PTPReply openSession(const PTPRequest& request);
  PTPReply closeSession(const PTPRequest& request);
  PTPReply getStorageIDs(const PTPRequest& request);
  PTPReply getStorageInfo(const PTPRequest& request);
  PTPReply getNumObjects(const PTPRequest& request);
  PTPReply getObjectHandles(const PTPRequest& request);
  PTPReply getObjectInfo(const PTPRequest& request);
  PTPReply getObject(const PTPRequest& request);
  PTPReply getPartialObject(const PTPRequest& request);
  PTPReply getThumb(const PTPRequest& request);
  PTPReply getDevicePropDesc(const PTPRequest& request);
  PTPReply getDevicePropValue(const PTPRequest& request);
  PTPReply setDevicePropValue(const PTPRequest& request);
  PTPReply getSupportedDatasets(const PTPRequest& request);
  PTPReply getDisplayRequestVersion(const PTPRequest& request);
  PTPReply getBragbookVersion(const PTPRequest& request);
  PTPReply getLCBInfo(const PTPRequest& request);

  std::vector<std::uint16_t> operations() const;
  /// The filter of GetNumObjects and GetObjectHandles, or the response code that refuses it.
  std::uint16_t filterFor(const PTPRequest& request, ObjectFilter& filter) const;
  const StoreDescription* store(std::uint32_t id) const;
  PropertyDescription* property(std::uint32_t code);

  DeviceDescription description_;
  ObjectStore objects_;
  Table table_;
  std::uint32_t session_ = 0;
};

}  // namespace tarvo::simulator

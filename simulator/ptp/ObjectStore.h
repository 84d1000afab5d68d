// The objects of a PTP device: explicit files and folders, and generated files that exist only as a
// range of handles, so that a store of 100,000 objects takes no memory.
//
//   ObjectStore store(description.stores);
//   const auto handles = store.handles({.format = 0x3801});  // every JPEG of every store
//   store.remove(handles.front());
//
// Handles count from 1 in the order of the description, a folder before what lies in it, so that a
// test knows them beforehand. New objects get the next ones; none is ever used again.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulator/bytes/Payload.h"
#include "simulator/description/DatasetDescription.h"
#include "simulator/description/DeviceDescription.h"

namespace tarvo::simulator {

/// What ObjectInfo says of an object (ISO 15740, 5.5.2), and its bytes.
struct StoredObject {
  std::uint32_t handle = 0;
  std::uint32_t storage = 0;  ///< id of its store
  std::uint32_t parent = 0;   ///< 0: the root of the storage
  std::uint64_t size = 0;     ///< bytes
  std::u16string name;
  ObjectTraits traits;
  std::shared_ptr<const Payload> content;  ///< null: a pattern made of handle and offset
  Bytes extension;  ///< of the maker's extended ObjectInfo, as a host sent it last

  bool isFolder() const { return traits.format == kAssociation; }
  /// Text of the name; U+FFFD in place of each unpaired surrogate.
  std::string nameText() const { return utf8(name); }

  static constexpr std::uint16_t kAssociation = 0x3001;
};

/// A picture of the standard (ISO 15740, "Object format codes").
constexpr bool isImageFormat(std::uint16_t format) {
  return format >= 0x3800 && format < 0x4000;
}

/// Which objects are meant. ISO 15740: association 0 is every object.
struct ObjectFilter {
  static constexpr std::uint32_t kEverywhere = 0xFFFFFFFF;  ///< in place of a store
  static constexpr std::uint32_t kRoot = 0xFFFFFFFF;        ///< in place of a folder
  std::uint32_t storage = kEverywhere;                      ///< id of a store
  /// In place of a format; it travels as 0xFFFFFFFF (ISO 15740, GetNumObjects).
  static constexpr std::uint16_t kEveryImage = 0xFFFF;
  std::uint16_t format = 0;  ///< 0: every format
  std::uint32_t association = 0;
};

/// A store without its objects.
struct StoreState {
  StoreDescription description;  ///< its content is empty
  std::uint64_t free = 0;        ///< bytes
};

/// What came of a removal: protected objects stay, and so do the folders above them.
struct Removal {
  std::uint32_t removed = 0;
  std::uint32_t kept = 0;
};

/// Not locked: its device calls it under its own lock.
class ObjectStore {
 public:
  explicit ObjectStore(const std::vector<StoreDescription>& stores);

  /// None for a handle that was not given out, 0 among them, and for a removed object.
  std::optional<StoredObject> object(std::uint32_t handle) const;
  std::vector<std::uint32_t> handles(const ObjectFilter& filter) const;  ///< in ascending order
  /// How many handles() would give, without making them.
  std::uint32_t count(const ObjectFilter& filter) const;
  static std::shared_ptr<const Payload> content(const StoredObject& object);

  const std::vector<StoreState>& stores() const { return stores_; }
  /// Null where there is none of that id; valid for the store's life.
  const StoreState* store(std::uint32_t id) const;

  /// The handle that the next object gets; the second keeps it for add() to use later.
  std::uint32_t nextHandle() const { return nextHandle_; }
  std::uint32_t reserveHandle() { return nextHandle_++; }
  /// Adds an object with its handle; 0 is replaced by the next one. Takes its room from the store,
  /// and does not ask whether there is any. Returns the handle.
  std::uint32_t add(StoredObject object);
  /// Adds what a description describes, with what lies in it; returns the first handle.
  std::uint32_t add(const ContentNode& node, std::uint32_t storage, std::uint32_t parent);
  /// Lets `edit` change an object's name, traits, content or extension; false where there is none.
  bool change(std::uint32_t handle, const std::function<void(StoredObject&)>& edit);
  /// Lets the objects be listed that appear with the file of this name.
  void reveal(const std::string& name);
  /// Removes an object with everything in it, except what is protected.
  Removal remove(std::uint32_t handle);
  /// Moves an object with everything in it; the caller has checked that it goes. The handles stay.
  void move(std::uint32_t handle, std::uint32_t storage, std::uint32_t parent);
  /// Copies an object with everything in it; returns the handle of the copy.
  std::uint32_t copy(std::uint32_t handle, std::uint32_t storage, std::uint32_t parent);
  /// Empties a store, of protected objects too.
  void format(std::uint32_t storage);
  /// Whether `handle` is `folder` or lies in it, at any depth.
  bool isWithin(std::uint32_t handle, std::uint32_t folder) const;
  /// Bytes of an object and everything in it.
  std::uint64_t totalSize(std::uint32_t handle) const;

 private:
  /// Generated files: handles first .. first+files.count-1.
  struct Range {
    std::uint32_t first = 0;
    StoredObject common;
    GeneratedFiles files;
    std::set<std::uint32_t> without;  ///< removed, or kept as an object of their own
    bool holds(std::uint32_t handle) const {
      return handle >= first && handle - first < files.count && !without.contains(handle);
    }
  };
  void addRange(const ContentNode& node, std::uint32_t storage, std::uint32_t parent);
  /// The object as a record of its own; null where there is none.
  StoredObject* record(std::uint32_t handle);
  void forget(std::uint32_t handle);
  StoreState* storeState(std::uint32_t id);
  void takeRoom(std::uint32_t storage, std::uint64_t size);
  void giveRoom(std::uint32_t storage, std::uint64_t size);

  std::vector<StoreState> stores_;
  std::map<std::uint32_t, StoredObject> objects_;  ///< by handle
  std::vector<Range> ranges_;                      ///< in order of their first handle
  std::uint32_t nextHandle_ = 1;
};

/// The PTP object format for a file name's extension; 0x3000 (undefined) for unknown ones.
std::uint16_t formatOfExtension(const std::string& name);

// The vendor data sets of a device, which are objects of its store: it keeps each as the bytes that
// a host reads. A contact tells of its groups, which follow from the groups' members.
//
//   Datasets datasets(objects, description.datasets);
//   const auto handle = datasets.add(ptp::XTD_GROUP, GroupRecord{u"Family", 0, {17}});

/// Not locked: its device calls it under its own lock.
class Datasets {
 public:
  /// `objects` must outlive it. Raises DescriptionError for a name that no object has, and for a
  /// store that is not there.
  Datasets(ObjectStore& objects, const DatasetsDescription& described);

  /// The store that keeps them; null on a device without stores.
  const StoreState* store() const { return objects_.store(storage_); }
  /// None where the object is no data set, and for one that was described as malformed.
  std::optional<DatasetRecord> record(std::uint32_t handle) const;
  std::uint32_t count(std::uint16_t format) const;

  /// Returns the handle. The caller has checked the record.
  std::uint32_t add(std::uint16_t format, const DatasetRecord& record);
  /// Puts `record` in place of a data set of the same format.
  void replace(std::uint32_t handle, const DatasetRecord& record);
  /// Brings the others up to date after an object was removed: groups lose a contact, contacts a
  /// group. Orders keep the handle of a picture that is gone. Nothing for other objects.
  void forget(const StoredObject& removed);

 private:
  std::uint32_t addBytes(std::uint16_t format, Bytes bytes);
  void setBytes(std::uint32_t handle, Bytes bytes);
  /// Lets the contacts of a group know that they belong to it, or no longer.
  void link(std::uint32_t group, const Handles& members, bool belong);

  ObjectStore& objects_;
  std::uint32_t storage_;
};

}  // namespace tarvo::simulator

// The objects of a PTP device: explicit files and folders, and generated files that exist only as a
// range of handles, so that a store of 100,000 objects takes no memory.
//
//   const ObjectStore store(description.stores);
//   const auto handles = store.handles({0xFFFFFFFF, 0x3801, 0});  // every JPEG of every store
//
// Handles count from 1 in the order of the description, a folder before what lies in it, so that a
// test knows them beforehand. They never change: nothing can be added or removed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/DeviceDescription.h"
#include "simulator/PacketQueue.h"

namespace tarvo::simulator {

/// What ObjectInfo says of an object (ISO 15740, 5.5.2).
struct StoredObject {
  std::uint32_t handle = 0;
  std::uint32_t storage = 0;  ///< id of its store
  std::uint32_t parent = 0;   ///< 0: the root of the storage
  std::uint16_t format = 0;
  std::uint32_t size = 0;  ///< bytes
  std::string name;
  std::optional<std::string> text;  ///< content; absent: a pattern made of handle and offset
  bool isFolder() const { return format == kAssociation; }

  static constexpr std::uint16_t kAssociation = 0x3001;
};

/// Which objects are meant. ISO 15740: association 0 is every object, 0xFFFFFFFF those in the root.
struct ObjectFilter {
  std::uint32_t storage = 0xFFFFFFFF;  ///< id of a store; 0xFFFFFFFF: every store
  std::uint16_t format = 0;            ///< 0: every format
  std::uint32_t association = 0;
};

/// Constant after construction, so any thread may use it.
class ObjectStore {
 public:
  explicit ObjectStore(const std::vector<StoreDescription>& stores);

  /// None for a handle that was not given out, 0 among them.
  std::optional<StoredObject> object(std::uint32_t handle) const;
  std::vector<std::uint32_t> handles(const ObjectFilter& filter) const;  ///< in ascending order
  /// How many handles() would give, without making them.
  std::uint32_t count(const ObjectFilter& filter) const;
  /// The bytes of an object: its text, or a pattern in which the byte at `offset` is the low byte
  /// of offset ^ (offset >> 8) ^ (handle * 37).
  static std::shared_ptr<const Payload> content(const StoredObject& object);

 private:
  /// Generated files: handles first .. first+files.count-1.
  struct Range {
    std::uint32_t first = 0;
    StoredObject common;
    GeneratedFiles files;
  };
  void add(const std::vector<ContentNode>& content, std::uint32_t storage, std::uint32_t parent);
  void addObject(const ContentNode& node, std::uint32_t storage, std::uint32_t parent);
  void addRange(const ContentNode& node, std::uint32_t storage, std::uint32_t parent);

  std::vector<StoredObject> objects_;  ///< in order of handle
  std::vector<Range> ranges_;          ///< in order of their first handle
  std::uint32_t nextHandle_ = 1;
};

/// The PTP object format for a file name's extension; 0x3000 (undefined) for unknown ones.
std::uint16_t formatOfExtension(const std::string& name);

}  // namespace tarvo::simulator

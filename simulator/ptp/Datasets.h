// The vendor data sets of a device, which are objects of its store: it keeps each as the bytes that
// a host reads. A contact tells of its groups, which follow from the groups' members.
//
//   Datasets datasets(objects, description.datasets);
//   const auto handle = datasets.add(ptp::XTD_GROUP, GroupRecord{u"Family", 0, {17}});
#pragma once

#include <cstdint>
#include <optional>

#include "simulator/description/DatasetDescription.h"
#include "simulator/ptp/ObjectStore.h"

namespace tarvo::simulator {

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

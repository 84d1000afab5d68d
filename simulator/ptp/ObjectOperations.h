// Operations that look at objects and change them (ISO 15740), and the maker's list of file sizes.
#pragma once

#include <cstdint>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

class ObjectOperations {
 public:
  /// `state` must outlive it.
  explicit ObjectOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply getNumObjects(const PTPRequest& request);
  PTPReply getObjectHandles(const PTPRequest& request);
  PTPReply getPictureFileSizes(const PTPRequest& request);
  PTPReply getObjectInfo(const PTPRequest& request);
  PTPReply getObject(const PTPRequest& request);
  PTPReply getPartialObject(const PTPRequest& request);
  PTPReply getThumb(const PTPRequest& request);
  /// The filter of an operation that counts or lists, or the response code that refuses it.
  std::uint16_t filterFor(const PTPRequest& request, ObjectFilter& filter) const;

  DeviceState& state_;
};

/// The size that ObjectInfo tells, which has 32 bits: 0xFFFFFFFF is "not known, or more".
std::uint32_t toldSize(const StoredObject& object);

// Thumbnails as cameras make them: a small JPEG (ITU-T T.81, baseline) for each object.

/// Pixels of every thumbnail, as Exif has them.
inline constexpr std::uint16_t kThumbnailWidth = 160;
inline constexpr std::uint16_t kThumbnailHeight = 120;

/// A valid grey JPEG of that size, some 280 bytes; its brightness and so its bytes depend on
/// `handle`, and are the same at every call.
Bytes thumbnailJPEG(std::uint32_t handle);

// Operations that delete, move, copy and protect objects (ISO 15740), and the maker's own delete.

class ObjectChanges {
 public:
  /// `state` must outlive it.
  explicit ObjectChanges(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply deleteObject(const PTPRequest& request);
  PTPReply deleteAll(const PTPRequest& request);
  /// Deletes one object where its store allows it.
  std::uint16_t deleteOne(std::uint32_t handle, std::uint16_t operation);
  PTPReply setObjectProtection(const PTPRequest& request);
  PTPReply moveObject(const PTPRequest& request);
  PTPReply copyObject(const PTPRequest& request);
  /// Whether an object may go to a place: OK, or the response code that refuses. A store or parent
  /// of 0xFFFFFFFF or 0 in `request` is resolved into the two that follow.
  std::uint16_t destination(const PTPRequest& request, std::uint32_t& storage,
                            std::uint32_t& parent) const;

  DeviceState& state_;
};

}  // namespace tarvo::simulator

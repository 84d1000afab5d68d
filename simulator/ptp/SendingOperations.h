// Operations that bring objects to the device: SendObjectInfo and SendObject (ISO 15740), the
// maker's variants of them, sending in parts, and the change of an object's information.
//
// An information operation makes the object's handle and waits for its bytes, which come with the
// data operation that goes with it, or in parts; until then the object is not there.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {

/// What a device takes from it; the rest is the device's own affair.
struct ReceivedObjectInfo {
  std::uint16_t format = 0;
  std::uint16_t protection = 0;
  std::uint32_t size = 0;  ///< bytes
  std::u16string name;
  std::u16string captured;
  std::u16string modified;
  std::u16string keywords;
  Bytes extension;  ///< as it came; empty: the data set ends after the standard's fields

  /// None when the bytes are no such data set. One zero byte may follow it: a host keeps its data
  /// containers off multiples of 64 bytes with it.
  static std::optional<ReceivedObjectInfo> parse(std::span<const std::byte> bytes);
};

class SendingOperations {
 public:
  /// `state` must outlive it.
  explicit SendingOperations(DeviceState& state) : state_(state) {}
  void addTo(OperationTable& table);

 private:
  PTPReply sendInfo(const PTPRequest& request);
  PTPReply sendData(const PTPRequest& request);
  PTPReply sendPart(const PTPRequest& request);
  PTPReply updateInfo(const PTPRequest& request);

  /// Where the object goes: fills storage and parent of `object`, or the code that refuses.
  std::uint16_t place(const PTPRequest& request, const ReceivedObjectInfo& info,
                      StoredObject& object) const;
  /// The object is whole: into its store with it.
  void finish(std::shared_ptr<const Payload> content);

  DeviceState& state_;
};

}  // namespace tarvo::simulator

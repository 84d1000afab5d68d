// A still-image device (USB still-image class, PIMA 15740 annex D): containers on the bulk
// endpoints, class requests, events; the operations behind them are PTPResponder's.
//
//   PTPCamera camera(DeviceDescription::fromFile("simulator/devices/tarvo-camera.json"));
//   camera.out(PTPCamera::kBulkOut, command, true);
//   camera.in(PTPCamera::kBulkIn, room);
//
// It checks the host strictly; what the host did against the protocol is kept in violations(), and
// the camera goes on as well as it can, so that a test sees the outcome too. Time passes only where
// a fault delays answers: everything else is answered within the call that asked.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/description/DeviceDescription.h"
#include "simulator/description/Faults.h"
#include "simulator/ptp/HostContainers.h"
#include "simulator/ptp/PTPMessages.h"
#include "simulator/ptp/PTPResponder.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// Not locked: its device calls it under its own lock.
class DeviceAnswers {
 public:
  /// `faults` belongs to the device and outlives it; `packetSize` is the endpoint's.
  DeviceAnswers(const Faults& faults, std::uint16_t packetSize)
      : faults_(faults), queue_(packetSize) {}

  /// Queues data and response of a transaction.
  void send(const PTPRequest& request, const PTPReply& reply);
  /// Queues pseudo-random bytes in their place.
  void sendGarbage(const PTPRequest& request);
  /// Queues bytes that never end.
  void sendEndlessly();

  PacketQueue& queue() { return queue_; }
  const PacketQueue& queue() const { return queue_; }

 private:
  using Time = std::chrono::steady_clock::time_point;
  void sendData(const PTPRequest& request, const PTPReply& reply, Time when);
  /// The transaction id to answer with, which a fault falsifies.
  std::uint32_t answerID(const PTPRequest& request) const;
  OutgoingTransfer transfer(std::shared_ptr<const Payload> payload, Time when) const;

  const Faults& faults_;
  PacketQueue queue_;
};

/// A command, response or event container, which hold nothing but parameters.
Bytes parameterContainer(std::uint16_t type, std::uint16_t code, std::uint32_t transactionID,
                         const std::vector<std::uint32_t>& parameters);

/// What went over the bulk endpoints, container headers included.
struct WireCounts {
  std::uint64_t transactions = 0;
  std::uint64_t bytesFromHost = 0;
  std::uint64_t bytesToHost = 0;
};

class PTPCamera : public VirtualUSBDevice {
 public:
  static constexpr std::uint8_t kInterruptIn = 0x83;

  explicit PTPCamera(const DeviceDescription& description);

  // All of these may be called from any thread.

  /// Queues an event container on the interrupt endpoint.
  void sendEvent(std::uint16_t code, const std::vector<std::uint32_t>& parameters);
  /// Operation codes in the order in which they came.
  std::vector<std::uint16_t> operations() const;
  WireCounts counts() const;  ///< since the device was made

  // What the camera holds.

  /// None for a handle that names no object.
  std::optional<StoredObject> object(std::uint32_t handle) const;
  /// The bytes of an object, however large it is; nothing where there is none.
  Bytes bytes(std::uint32_t handle) const;
  /// The same without making them; null where there is none.
  std::shared_ptr<const Payload> content(std::uint32_t handle) const;
  std::vector<std::uint32_t> handles(const ObjectFilter& filter = {}) const;
  /// Bytes; 0 where there is no such store.
  std::uint64_t freeSpace(std::uint32_t storage) const;
  /// What the host wants the camera to show (XTO_DISPLAY_REQUEST), as it came.
  Bytes displayRequest() const;
  /// Null where there is none of that code.
  nlohmann::json propertyValue(std::uint16_t code) const;

  // What the camera does by itself, with the events that tell of it (ISO 15740).

  /// A new object, as from another connection; returns its handle. Storage 0 is the first store.
  /// 0, and nothing happens, where there is no such store or folder. ObjectAdded.
  std::uint32_t addObject(StoredObject object);
  /// False where there is none, or it is protected. ObjectRemoved.
  bool removeObject(std::uint32_t handle);
  /// The shutter: returns the handle of the picture, 0 where the store takes none. ObjectAdded, and
  /// StoreFull where no more pictures fit.
  std::uint32_t capture(std::uint32_t storage = 0);
  /// False where there is no such property. DevicePropChanged.
  bool changeProperty(std::uint16_t code, const nlohmann::json& value);

 protected:
  std::optional<Bytes> classRequest(const SetupPacket& setup,
                                    std::span<const std::byte> data) override;
  void receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) override;
  InResult send(std::uint8_t endpoint, std::span<std::byte> room) override;
  void forgetEverything() override;
  std::optional<std::chrono::steady_clock::time_point> nextDue(
      std::uint8_t endpoint) const override;

 private:
  std::optional<Bytes> cancel(std::span<const std::byte> data);
  /// The answer to Get Device Status: a code and the halted endpoints.
  Bytes deviceStatus();
  void receiveCommand(std::span<const std::byte> data, bool ends);
  void receiveData(std::span<const std::byte> data, bool ends);
  /// Ids count from 1 within a session; outside one they are 0 (ISO 15740). A slip is a violation,
  /// or the host is told where that is the device's habit.
  void checkTransactionID();
  /// Executes the request that has come in whole, or does what a fault wants instead.
  void run();
  void answer(const PTPReply& reply);
  void queueEvent(const PTPEvent& event);

  const Habits habits_;
  PTPResponder responder_;
  HostContainers containers_;
  DeviceAnswers answers_;
  PacketQueue events_;

  PTPRequest request_;
  std::uint32_t nextTransactionID_ = 0;
  bool isOutOfTurn_ = false;    ///< the request's id, on a device that refuses such
  unsigned busyAnswers_ = 0;    ///< how often Get Device Status still says busy
  bool goesWhenTaken_ = false;  ///< powers down once the response was taken

  WireCounts counts_;
  std::vector<std::uint16_t> operations_;
};

}  // namespace tarvo::simulator

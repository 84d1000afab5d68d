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

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/DeviceDescription.h"
#include "simulator/PTPResponder.h"
#include "simulator/PacketQueue.h"
#include "simulator/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// What went over the bulk endpoints, container headers included.
struct WireCounts {
  std::uint64_t transactions = 0;
  std::uint64_t bytesFromHost = 0;
  std::uint64_t bytesToHost = 0;
};

class PTPCamera : public VirtualUSBDevice {
 public:
  // Endpoint addresses; the high bit is the direction to the host (USB 2.0, 9.6.6).
  static constexpr std::uint8_t kBulkIn = 0x81;
  static constexpr std::uint8_t kBulkOut = 0x02;
  static constexpr std::uint8_t kInterruptIn = 0x83;

  explicit PTPCamera(const DeviceDescription& description);

  /// As Faults::set; any thread. What is on its way to the host already goes out as it was.
  std::string setFault(std::string_view name, std::string_view value);
  /// Queues an event container on the interrupt endpoint; any thread.
  void sendEvent(std::uint16_t code, const std::vector<std::uint32_t>& parameters);
  /// Operation codes in the order in which they came; any thread.
  std::vector<std::uint16_t> operations() const;
  WireCounts counts() const;  ///< since the device was made; any thread
  /// What the host did wrong, in words; any thread.
  std::vector<std::string> violations() const;

 protected:
  std::optional<Bytes> classRequest(const SetupPacket& setup,
                                    std::span<const std::byte> data) override;
  void receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) override;
  InResult send(std::uint8_t endpoint, std::span<std::byte> room) override;
  void forgetEverything() override;

 private:
  // From the host: a command container, then the data container of an operation that takes one.
  void receiveCommand(std::span<const std::byte> data, bool ends);
  void receiveData(std::span<const std::byte> data, bool ends);
  void finishData();
  /// Ids count from 1 within a session; outside one they are 0 (ISO 15740).
  void checkTransactionID();
  /// Executes the request that has come in whole, or does what a fault wants instead.
  void run();
  void answer(const PTPReply& reply);
  void sendData(const PTPReply& reply, std::chrono::steady_clock::time_point when);
  void sendResponse(const PTPReply& reply, std::chrono::steady_clock::time_point when);
  void sendGarbage();
  /// The transaction id to answer with, which a fault falsifies.
  std::uint32_t answerID() const;
  bool strikes(Fault fault) const { return faults_.strikes(fault, request_.operation); }
  void push(std::shared_ptr<const Payload> payload, std::chrono::steady_clock::time_point when);
  /// Keeps a complaint about the host.
  void violation(std::string text);
  /// The answer to Get Device Status: a code and the halted endpoints.
  Bytes deviceStatus() const;

  Faults faults_;
  PTPResponder responder_;
  std::uint16_t packetSize_;
  PacketQueue bulk_;
  PacketQueue events_;

  PTPRequest request_;
  Bytes incoming_;                ///< data container as far as it has come
  bool expectsData_ = false;      ///< the command's data phase is still to come from the host
  bool mayEndWithEmpty_ = false;  ///< a zero-length packet may follow what was received
  std::uint32_t nextTransactionID_ = 0;

  WireCounts counts_;
  std::vector<std::uint16_t> operations_;
  std::vector<std::string> violations_;
};

}  // namespace tarvo::simulator

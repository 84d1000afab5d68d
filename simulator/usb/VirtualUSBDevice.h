// A device at the level of USB requests, which knows nothing of how a host reaches it: the testbed
// shows it as a node of usbfs, and a library test calls it straight.
//
// Standard requests (USB 2.0, 9.4), halted endpoints and the unplugged state are kept here; a class
// derived from it says what its endpoints and its class requests do.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/bytes/ByteWriter.h"
#include "simulator/bytes/Payload.h"
#include "simulator/description/DeviceDescription.h"
#include "simulator/description/Faults.h"
#include "simulator/usb/HostViolations.h"

namespace tarvo::simulator {

struct EndpointDescription {
  std::uint8_t address = 0;        ///< number, and 0x80 for the direction to the host
  std::uint8_t attributes = 2;     ///< 2 bulk, 3 interrupt
  std::uint16_t packetSize = 512;  ///< wMaxPacketSize, in bytes
  std::uint8_t interval = 0;       ///< bInterval; of an interrupt endpoint
};

/// What an interface is for (USB.org, "Defined class codes").
struct InterfaceClass {
  std::uint8_t code = 0;
  std::uint8_t subclass = 0;
  std::uint8_t protocol = 0;
};

/// The one interface of a device.
struct InterfaceDescription {
  InterfaceClass kind;
  std::vector<EndpointDescription> endpoints;
};

/// A device with one configuration and one interface. Constant after construction.
class UsbDescriptors {
 public:
  UsbDescriptors(UsbIdentity identity, InterfaceDescription interface);

  const UsbIdentity& identity() const { return identity_; }
  const InterfaceDescription& interface() const { return interface_; }
  /// Null when there is none of that address.
  const EndpointDescription* endpoint(std::uint8_t address) const;

  Bytes device() const;         ///< 18 bytes (9.6.1)
  Bytes configuration() const;  ///< with interface and endpoints behind it
  /// String descriptor (9.6.7). Index 0 gives the languages; an index without a text gives nothing,
  /// and the device stalls the request.
  Bytes text(std::uint8_t index) const;
  /// What usbfs gives to a reader of the node: device, then configuration.
  Bytes node() const;

 private:
  /// A device without a text has index 0 in its place.
  std::uint8_t textIndex(const std::string& text, std::uint8_t index) const {
    return text.empty() ? 0 : index;
  }

  UsbIdentity identity_;
  InterfaceDescription interface_;
};

/// A control request's setup packet (USB 2.0, 9.3), in the host's byte order.
struct SetupPacket {
  std::uint8_t requestType = 0;
  std::uint8_t request = 0;
  std::uint16_t value = 0;
  std::uint16_t index = 0;
  std::uint16_t length = 0;

  bool fromDevice() const { return (requestType & 0x80) != 0; }
};

/// What the device did with one request for bytes from an endpoint.
struct [[nodiscard]] InResult {
  enum class State {
    kWaiting,   ///< nothing (more) to send now; `length` bytes were sent and the transfer goes on
    kShort,     ///< a short packet ended the transfer
    kFull,      ///< the room is full
    kStalled,   ///< the endpoint is halted
    kOverflow,  ///< the next packet is larger than the room that is left
    kGone,      ///< the device has been unplugged
  };
  State state = State::kWaiting;
  std::size_t length = 0;
};

/// What the device did with bytes for an endpoint: all are taken, or none.
enum class [[nodiscard]] OutResult{kAccepted, kStalled, kGone};

/// Every public function may be called from any thread; a lock of the device's own serialises them.
class VirtualUSBDevice {
 public:
  // Endpoint addresses; the high bit is the direction to the host (USB 2.0, 9.6.6).
  static constexpr std::uint8_t kBulkIn = 0x81;
  static constexpr std::uint8_t kBulkOut = 0x02;

  /// A bulk endpoint in each direction, and `others`.
  VirtualUSBDevice(const DeviceDescription& description, InterfaceClass kind,
                   const std::vector<EndpointDescription>& others = {});
  VirtualUSBDevice(const VirtualUSBDevice&) = delete;
  VirtualUSBDevice& operator=(const VirtualUSBDevice&) = delete;
  virtual ~VirtualUSBDevice() = default;

  const UsbDescriptors& descriptors() const { return descriptors_; }

  /// A control request. `data` is what the host sends, or empty. The answer is what the device
  /// sends, cut to `setup.length`; none means that the device stalls the request.
  std::optional<Bytes> control(const SetupPacket& setup, std::span<const std::byte> data);
  /// Takes bytes for an OUT endpoint. `ends`: a short packet, or one of no length, ended them.
  OutResult out(std::uint8_t endpoint, std::span<const std::byte> data, bool ends);
  /// Gives bytes of an IN endpoint into `room`. A host that has room left goes on asking until the
  /// state is no longer kWaiting.
  InResult in(std::uint8_t endpoint, std::span<std::byte> room);
  /// Whether control requests are neither answered nor refused now.
  bool isDeaf() const;
  /// CLEAR_FEATURE(ENDPOINT_HALT); nothing where the endpoint is not halted.
  void clearHalt(std::uint8_t endpoint);
  /// A bus reset: halts and everything in flight are forgotten.
  void reset();

  /// As Faults::set. What is on its way to the host already goes out as it was.
  std::string setFault(std::string_view name, std::string_view value);
  /// What the host did wrong, in words.
  std::vector<std::string> violations() const;
  void forgetViolations();

  /// True once the device has unplugged itself.
  bool isGone() const;
  /// When an IN endpoint that has nothing to send now will have something by itself; none when it
  /// waits for the host.
  std::optional<std::chrono::steady_clock::time_point> due(std::uint8_t endpoint) const;
  /// `callback` is called, without the lock and on any thread, when the device has something to
  /// send that no request of the host has asked for. Set before the device is used.
  void onActivity(std::function<void()> callback) { activity_ = std::move(callback); }

 protected:
  // Called with the lock held; receive and send never for a halted endpoint, nor once the device
  // has gone.
  virtual std::optional<Bytes> classRequest(const SetupPacket& setup,
                                            std::span<const std::byte> data) = 0;
  virtual void receive(std::uint8_t endpoint, std::span<const std::byte> data, bool ends) = 0;
  virtual InResult send(std::uint8_t endpoint, std::span<std::byte> room) = 0;
  virtual void forgetEverything() = 0;
  virtual std::optional<std::chrono::steady_clock::time_point> nextDue(std::uint8_t) const {
    return std::nullopt;
  }

  // For the class above, with the lock held. From halt() on the endpoint stalls until the host
  // clears it; from vanish() on every in() and out() is answered kGone.
  void halt(std::uint8_t endpoint) { halted_.insert(endpoint); }
  const std::set<std::uint8_t>& halted() const { return halted_; }
  void clearHalts() { halted_.clear(); }
  void vanish() { gone_ = true; }
  /// To be called without the lock.
  void tellActivity() const {
    if (activity_) activity_();
  }
  std::mutex& lock() const { return mutex_; }
  bool strikes(Fault fault) const { return faults_.strikes(fault); }

  Faults faults_;
  HostViolations violations_;

 private:
  std::optional<Bytes> standardRequest(const SetupPacket& setup);
  Bytes descriptor(const SetupPacket& setup) const;

  const UsbDescriptors descriptors_;
  mutable std::mutex mutex_;       ///< guards everything below, and the state of the class above
  std::set<std::uint8_t> halted_;  ///< endpoint addresses
  bool gone_ = false;
  std::function<void()> activity_;
};

// What a device has to send on one IN endpoint, as transfers that are cut into packets.
//
// A host asks for a number of bytes; the bus gives it whole packets until one is shorter than the
// endpoint's packet size, which ends the transfer (USB 2.0, 5.8.3). A transfer of an exact multiple
// of that size is ended by a packet of no length. A host that asks for less than a whole packet
// when one of full size comes gets an overflow. All three are where real hosts go wrong.

/// One container on its way to the host.
struct OutgoingTransfer {
  std::shared_ptr<const Payload> payload;
  bool zeroLengthPacket = true;       ///< after an exact multiple of the packet size
  bool thenGone = false;              ///< the device vanishes where this one ends
  bool overflows = false;             ///< its first packet is larger than any room
  std::chrono::microseconds pause{};  ///< after each packet
  std::chrono::steady_clock::time_point notBefore{};  ///< nothing of it is sent earlier
  std::uint64_t offset = 0;                           ///< bytes sent so far
};

/// Not locked: its device calls it under its own lock.
class PacketQueue {
 public:
  /// `packetSize`: of the endpoint, in bytes.
  explicit PacketQueue(std::uint16_t packetSize) : packetSize_(packetSize) {}

  void push(OutgoingTransfer transfer) { transfers_.push_back(std::move(transfer)); }
  void clear() { transfers_.clear(); }
  bool isEmpty() const { return transfers_.empty(); }
  /// When the transfer in front may be sent; none when there is none.
  std::optional<std::chrono::steady_clock::time_point> due() const {
    if (transfers_.empty()) return std::nullopt;
    return transfers_.front().notBefore;
  }

  /// Fills `room` packet by packet until a short packet, the room's end or the queue's.
  InResult fill(std::span<std::byte> room);

 private:
  /// Sends from the transfer in front; kWaiting means that the next one may follow at once.
  InResult fillFromFront(std::span<std::byte> room);
  /// The last `length` bytes of the transfer in front have gone into `room`: how it ends.
  InResult finishFront(std::span<std::byte> room, std::size_t length);

  std::uint16_t packetSize_;
  std::deque<OutgoingTransfer> transfers_;
};

}  // namespace tarvo::simulator

// A device that is imported over USB/IP: it reads the importer's requests from a socket and answers
// them from a virtual device.
//
//   UsbipConnection connection(std::move(socket), camera, [] { ... });
//
// A thread of its own does all of it, so the importer (the kernel) is served while the main loop is
// busy. What comes over the socket is bounded and checked; a peer that breaks the protocol is let
// go, as is one whose device has gone.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "simulator/host/DeviceHost.h"
#include "simulator/usb/UsbTransfer.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator::usbip {

inline constexpr std::uint16_t kVersion = 0x0111;

// What comes before a device is imported: an 8-byte header, for an import a bus id behind it.

inline constexpr std::uint16_t kDeviceListRequest = 0x8005;
inline constexpr std::uint16_t kImportRequest = 0x8003;
inline constexpr std::size_t kOperationSize = 8;
inline constexpr std::size_t kBusIdSize = 32;

/// Status of an answer (linux/usbip.h has others, for the device itself).
enum class OperationStatus : std::uint32_t { kOK = 0, kRefused = 1, kBusy = 2, kNoDevice = 4 };

struct Operation {
  std::uint16_t version = 0;
  std::uint16_t code = 0;
  /// `bytes`: kOperationSize of them.
  static Operation read(std::span<const std::byte> bytes);
};
/// The answer's header to a request of that code.
Bytes answerTo(std::uint16_t code, OperationStatus status);
/// The answer to kDeviceListRequest.
Bytes deviceList(std::span<const HostedDevice* const> devices);
/// What stands behind the header of a granted import.
Bytes importedDevice(const HostedDevice& device);

// What comes afterwards: headers of 48 bytes, what is sent or answered behind them.

inline constexpr std::size_t kHeaderSize = 48;
inline constexpr std::uint32_t kSubmit = 1;
inline constexpr std::uint32_t kUnlink = 2;
inline constexpr std::uint32_t kURBZeroPacket = 0x40;  ///< of the kernel's urb->transfer_flags

/// USBIP_CMD_SUBMIT or USBIP_CMD_UNLINK.
struct Request {
  std::uint32_t command = 0;
  std::uint32_t sequence = 0;
  bool isIn = false;
  std::uint32_t endpoint = 0;  ///< number, without the direction
  std::uint32_t flags = 0;     ///< the rest is of a submit only
  std::uint32_t length = 0;    ///< bytes to send or of room; not checked
  std::uint32_t packets = 0;   ///< isochronous; 0 or 0xFFFFFFFF otherwise
  SetupPacket setup;           ///< of endpoint 0
  std::uint32_t unlinked = 0;  ///< of an unlink only: the sequence number that it wants back

  /// `bytes`: kHeaderSize of them.
  static Request read(std::span<const std::byte> bytes);
  std::uint8_t address() const {
    return static_cast<std::uint8_t>((endpoint & 0x0F) | (isIn ? 0x80 : 0));
  }
};

/// USBIP_RET_SUBMIT; what the device sent comes behind it.
std::array<std::byte, kHeaderSize> submitted(std::uint32_t sequence, int status,
                                             std::uint32_t length);
/// USBIP_RET_UNLINK: -ECONNRESET where the request was taken back, 0 where it had been answered.
std::array<std::byte, kHeaderSize> unlinked(std::uint32_t sequence, int status);

/// The kernel's number of a speed (linux/usb/ch9.h).
unsigned speedNumber(UsbSpeed speed);
/// Bus and device number in one, as both sides name the device; never 0.
std::uint32_t deviceNumber(const HostedDevice& device);

}  // namespace tarvo::simulator::usbip

namespace tarvo::simulator {

/// Main thread only.
class UsbipConnection {
 public:
  /// `vanished` is called, on the connection's thread, when the device has unplugged itself. Raises
  /// std::system_error when the system is out of descriptors or threads.
  UsbipConnection(FileDescriptor socket, std::shared_ptr<VirtualUSBDevice> device,
                  std::function<void()> vanished);
  UsbipConnection(const UsbipConnection&) = delete;
  UsbipConnection& operator=(const UsbipConnection&) = delete;
  /// Closes the connection, which unplugs the device at the importer's.
  ~UsbipConnection();

  /// True once the importer has let the device go.
  bool hasEnded() const { return ended_; }

 private:
  /// An IN request that the device has not filled yet.
  struct Waiting {
    std::uint32_t sequence = 0;
    std::uint8_t endpoint = 0;
    std::vector<std::byte> room;
    UsbTransfer transfer;
  };
  /// The descriptor by which other threads wake this one; shared with the device's callback, which
  /// may outlive the connection.
  struct Wake {
    FileDescriptor event;
    void tell() const;
  };

  // The thread's. What returns a bool says whether to go on.
  void serve();
  bool wait();
  bool readRequest();
  bool submit(const usbip::Request& request);
  bool submitControl(const usbip::Request& request, std::span<std::byte> data);
  bool unlink(const usbip::Request& request);
  /// Lets the device fill what waits and answers what is done.
  bool pump();
  /// `data` is what the device sent; of OUT transfers only the length is answered.
  bool answer(std::uint32_t sequence, const UsbTransfer& transfer, std::span<const std::byte> data);
  bool receive(std::span<std::byte> bytes);
  bool send(std::span<const std::byte> bytes);
  /// Milliseconds until the device will have something by itself; -1 for never.
  int patience() const;

  FileDescriptor socket_;
  std::shared_ptr<VirtualUSBDevice> device_;
  std::function<void()> vanished_;
  std::shared_ptr<Wake> wake_;
  std::list<Waiting> waiting_;  ///< in order of submission
  std::atomic<bool> ended_ = false;
  std::jthread thread_;
};

}  // namespace tarvo::simulator

// A device that is imported over USB/IP: it reads the importer's requests from a socket and answers
// them from a virtual device.
//
//   UsbipConnection connection(std::move(socket), camera, [] { ... });
//
// A thread of its own does all of it, so the importer (the kernel) is served while the main loop is
// busy. What comes over the socket is bounded and checked; a peer that breaks the protocol is let
// go, as is one whose device has gone.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "simulator/usb/UsbTransfer.h"
#include "simulator/usb/VirtualUSBDevice.h"
#include "simulator/usbip/UsbipMessages.h"

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

// A device node of usbfs over a virtual device: claims, control requests and URBs of every client
// that has the node open, as the kernel answers them (linux/usbdevice_fs.h, devio.c's error
// numbers).
//
// The file behind it is a NodeGate, which is ready for writing while a request can be reaped, so
// that a host waits in poll() without processor time. Where the system has none, it is a regular
// file with the descriptors in it: such a host is told at once that it may reap, and asks again.
#pragma once

#include <umockdev.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "simulator/testbed/GObjectPointer.h"
#include "simulator/testbed/NodeGate.h"
#include "simulator/testbed/UsbfsUrb.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

struct UsbfsAddress {
  unsigned bus = 0;          ///< from 1
  unsigned device = 0;       ///< 2 to 127; 1 is the root hub
  std::string node() const;  ///< "/dev/bus/usb/001/004"
};

/// Constructed and unplugged on the main thread; ioctls come on the testbed's worker thread, and
/// what the device does by itself on any.
class UsbfsNode : public std::enable_shared_from_this<UsbfsNode> {
 public:
  /// `vanished` is called once, on the worker thread, when the device unplugs itself. `gate` is
  /// null where the node is a regular file.
  static std::shared_ptr<UsbfsNode> create(UsbfsAddress address,
                                           std::shared_ptr<VirtualUSBDevice> device,
                                           std::unique_ptr<NodeGate> gate,
                                           std::function<void()> vanished);

  /// A handler to attach to the node; it keeps the node alive for as long as a client may call.
  GObjectPointer<UMockdevIoctlBase> makeHandler();

  /// From now on the device is gone: what is in flight ends with ESHUTDOWN, then everything fails
  /// with ENODEV. Waits until the clients have taken back what was in flight, or for `patience`.
  void unplug(std::chrono::milliseconds patience);

 private:
  /// One opening of the node.
  struct Client {
    std::list<std::unique_ptr<UsbfsUrb>> urbs;  ///< in order of submission
    std::size_t descriptorsRead = 0;            ///< bytes of the node that it has read
  };

  UsbfsNode(UsbfsAddress address, std::shared_ptr<VirtualUSBDevice> device,
            std::unique_ptr<NodeGate> gate, std::function<void()> vanished);
  // Signals of umockdev's handler, on its worker thread.
  static gboolean onIoctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
  static gboolean onRead(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
  static gboolean onWrite(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
  static void onConnected(UMockdevIoctlBase* handler, UMockdevIoctlClient* client, gpointer self);
  /// A client has died: its URBs and its claim go with it.
  void forget(const UMockdevIoctlClient* client);

  /// The result of an ioctl; a negative one is an error number. Lock held, as in all that follow.
  long handle(UMockdevIoctlClient* client, unsigned long request, UMockdevIoctlData* argument);
  /// The same once the device has gone: URBs may still be reaped, all else is ENODEV.
  long handleGone(UMockdevIoctlClient* client, unsigned long request, UMockdevIoctlData* argument);
  long connectInfo(UMockdevIoctlData* argument);
  long capabilities(UMockdevIoctlData* argument);
  long controlRequest(UMockdevIoctlData* argument);
  long claim(UMockdevIoctlClient* client, unsigned interface);
  long release(UMockdevIoctlClient* client, unsigned interface);
  long clearHalt(UMockdevIoctlData* argument);
  long submit(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  long reap(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  long discard(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  long readDescriptors(UMockdevIoctlClient* client, UMockdevIoctlData* argument);
  /// Lets the device fill what waits, and says by the gate whether anything can be reaped. Has
  /// itself called again when the device will have more.
  void pump();
  void wakeAt(std::chrono::steady_clock::time_point time);
  /// Lets the device fill the client's waiting IN URBs.
  void progress(Client& client);
  /// Tells the owner once when the device has unplugged itself. Takes the lock.
  void checkVanished();

  UsbfsAddress address_;
  std::shared_ptr<VirtualUSBDevice> device_;
  std::function<void()> vanished_;  ///< empty once it was called

  std::mutex mutex_;                ///< guards what follows, and `vanished_`
  std::condition_variable reaped_;  ///< a URB was taken back, or a client has gone
  std::map<const UMockdevIoctlClient*, Client> clients_;
  std::map<unsigned, const UMockdevIoctlClient*> claims_;  ///< by interface number
  std::unique_ptr<NodeGate> gate_;                         ///< null: a regular file
  bool gone_ = false;
  std::optional<std::chrono::steady_clock::time_point> wakeTime_;
  std::condition_variable_any wake_;  ///< the time has changed
  std::jthread waker_;                ///< runs once a device is late; ends first
};

}  // namespace tarvo::simulator

// A device node of usbfs over a virtual device: claims, control requests and URBs of every client
// that has the node open, as the kernel answers them (linux/usbdevice_fs.h, devio.c's error
// numbers).
//
// The file behind it is a NodeGate, which is ready for writing while a request can be reaped, so
// that a host waits in poll() without processor time. Where the system has none, it is a regular
// file with the descriptors in it: such a host is told at once that it may reap, and asks again.
#pragma once

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "simulator/host/DeviceHost.h"
#include "simulator/testbed/IoctlMemory.h"
#include "simulator/usb/UsbTransfer.h"
#include "simulator/usb/VirtualUSBDevice.h"

namespace tarvo::simulator {

/// The program's record is kept to write status and length back when it is reaped; the bytes of an
/// IN request are gathered here and reach the program then. Not locked: its node guards it.
class UsbfsUrb {
 public:
  /// Takes what a program submits: 0, and the record and what is sent are read, or the negative
  /// error number that refuses it.
  long take(UMockdevIoctlData* argument, const VirtualUSBDevice& device);
  /// Lets the device have a control request or bytes; it is done then. Nothing for an IN request.
  void start(VirtualUSBDevice& device);
  /// Lets the device fill an IN request that is not done.
  void progress(VirtualUSBDevice& device);
  /// Ends it; `status` is 0 or a negative error number.
  void finish(int status) { transfer_.finish(status); }
  /// Writes the outcome into the program's memory, and the record's address through `argument`.
  void giveBack(UMockdevIoctlData* argument);

  bool isDone() const { return transfer_.isDone(); }
  bool isControl() const { return fields_.type == USBDEVFS_URB_TYPE_CONTROL; }
  bool isIn() const { return (fields_.endpoint & USB_DIR_IN) != 0 && !isControl(); }
  std::uint8_t endpoint() const { return fields_.endpoint; }
  /// Where the record lies in the program's memory.
  gulong address() const { return record_->client_addr; }

 private:
  /// The fixed part of the kernel's usbdevfs_urb, which ends in a flexible array.
  struct Fields {
    unsigned char type;
    unsigned char endpoint;
    int status;
    unsigned int flags;
    void* buffer;
    int buffer_length;
    int actual_length;
    int start_frame;
    int number_of_packets;
    int error_count;
    unsigned int signr;
    void* usercontext;
  };
  static_assert(sizeof(Fields) == sizeof(usbdevfs_urb));
  static_assert(offsetof(Fields, buffer) == offsetof(usbdevfs_urb, buffer));
  static_assert(offsetof(Fields, usercontext) == offsetof(usbdevfs_urb, usercontext));

  std::size_t size() const { return static_cast<std::size_t>(fields_.buffer_length); }
  void startControl(VirtualUSBDevice& device);
  void startOut(VirtualUSBDevice& device);

  IoctlMemory record_;
  Fields fields_{};
  IoctlMemory out_;  ///< the program's buffer where it is sent, or of a control request
  std::unique_ptr<std::byte[]> in_;  ///< where the device's bytes are gathered; null: none yet
  UsbTransfer transfer_;
};

// The file behind an emulated device node: says "ready" to poll() only when the testbed wants so.
//
// A real node of usbfs is ready for writing (POLLOUT) exactly while a request can be reaped. A
// regular file is always ready, so a host that waits for one would ask again and again. The one
// kind of file that can be opened by path, allows seeking and is governed from outside is a POSIX
// message queue (mq_overview(7)): it is ready for writing while it is not full, and this one has
// room for a single message.
//
//   auto gate = NodeGate::create(folder, "node");  // folder: a mounted mqueue file system
//   std::filesystem::create_symlink(gate->path(), node);
//   gate->setReady(false);

/// Not locked: its node guards it. The queue goes with it; who has it open keeps it. It is not held
/// open here, so that a program that asks who holds a device's node finds its clients only.
class NodeGate {
 public:
  /// Mounts the file system of this IPC namespace's queues; false where the system refuses.
  static bool mountQueues(const std::filesystem::path& folder);
  /// A gate that is ready, as `name` in a folder that mountQueues() has mounted; null where the
  /// system gives no queue.
  static std::unique_ptr<NodeGate> create(const std::filesystem::path& folder,
                                          const std::string& name);
  NodeGate(const NodeGate&) = delete;
  NodeGate& operator=(const NodeGate&) = delete;
  ~NodeGate();

  const std::filesystem::path& path() const { return path_; }
  void setReady(bool ready);

 private:
  NodeGate(std::filesystem::path path, std::string name)
      : path_(std::move(path)), name_(std::move(name)) {}

  std::filesystem::path path_;
  std::string name_;  ///< with the slash that queues have
  bool ready_ = true;
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

// One USB request block in flight between a program and a virtual device (linux/usbdevice_fs.h).
#pragma once

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>

#include <cstddef>
#include <cstdint>
#include <memory>

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

}  // namespace tarvo::simulator

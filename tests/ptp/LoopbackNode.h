// A device node in a testbed, behind which stands a still-image device that sends back what it is
// sent. The program that uses it runs with libumockdev-preload.
#pragma once

#include <gio/gio.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace tarvo::test {

/// How the device behaves; changed by the test's thread.
struct LoopbackBehaviour {
  bool claimed = false;    ///< by somebody else
  bool stalls = false;     ///< every bulk transfer
  bool unplugged = false;  ///< everything ends with ENODEV
  bool keepsUrbs = false;  ///< cancelled transfers never come back
  int haltsCleared = 0;
  std::vector<std::uint8_t> lastSetup{};
};

class LoopbackNode {
 public:
  static constexpr const char* kNode = "/dev/bus/usb/001/004";

  LoopbackNode() : bed_(umockdev_testbed_new()), handler_(umockdev_ioctl_base_new()) {
    gchar* root = umockdev_testbed_get_root_dir(bed_);
    const std::string folder = std::string(root) + "/dev/bus/usb/001";
    g_free(root);
    g_mkdir_with_parents(folder.c_str(), 0755);
    const auto bytes = descriptors();
    std::ofstream(folder + "/004", std::ios::binary).write(bytes.data(), std::ssize(bytes));
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(handleIoctl), this);
    umockdev_testbed_attach_ioctl(bed_, kNode, handler_, nullptr);
  }
  LoopbackNode(const LoopbackNode&) = delete;
  LoopbackNode& operator=(const LoopbackNode&) = delete;
  ~LoopbackNode() {
    umockdev_testbed_detach_ioctl(bed_, kNode, nullptr);
    for (auto* urbs : {&waiting_, &finished_, &kept_})
      for (auto& urb : *urbs)
        release(urb);
    g_object_unref(handler_);
    g_object_unref(bed_);
  }

  /// Runs `change` on the behaviour while no request is being handled.
  template <typename Change>
  void behave(Change change) {
    const std::lock_guard lock(mutex_);
    change(behaviour_);
  }

 private:
  struct Urb {
    UMockdevIoctlData* data = nullptr;
    UMockdevIoctlData* buffer = nullptr;
    usbdevfs_urb& fields() const { return *reinterpret_cast<usbdevfs_urb*>(data->data); }
  };

  static std::vector<char> descriptors() {
    const unsigned char bytes[] = {
        18, 1, 0x00, 0x02, 0,    0,    0, 64,   0x55, 0xF0, 0x01, 0x05, 0, 1, 0, 0, 0, 1,  // device
        9,  2, 39,   0,    1,    1,    0, 0x80, 50,  // configuration
        9,  4, 0,    0,    3,    6,    1, 1,    0,   // interface
        7,  5, 0x81, 2,    0x00, 0x02, 0,            // bulk in
        7,  5, 0x02, 2,    0x00, 0x02, 0,            // bulk out
        7,  5, 0x83, 3,    0x40, 0x00, 6};           // interrupt in
    return {std::begin(bytes), std::end(bytes)};
  }

  static void release(Urb& urb) {
    g_clear_object(&urb.buffer);
    g_clear_object(&urb.data);
  }

  static gboolean handleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
    auto& node = *static_cast<LoopbackNode*>(self);
    const std::lock_guard lock(node.mutex_);
    const int error = node.handle(client);
    umockdev_ioctl_client_complete(client, error < 0 ? -1 : error, error < 0 ? -error : 0);
    return TRUE;
  }

  /// The ioctl's result, or a negative errno.
  int handle(UMockdevIoctlClient* client) {
    UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
    switch (umockdev_ioctl_client_get_request(client)) {
      case USBDEVFS_GET_CAPABILITIES:
        return answer(arg, USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT);
      case USBDEVFS_CONNECTINFO:
        return answer(arg, usbdevfs_connectinfo{4, 0});
      case USBDEVFS_CONTROL:
        return getConfiguration(arg);
      case USBDEVFS_GETDRIVER:
        return -ENODATA;
      case USBDEVFS_CLAIMINTERFACE:
        return behaviour_.claimed ? -EBUSY : 0;
      case USBDEVFS_RELEASEINTERFACE:
        return 0;
      case USBDEVFS_CLEAR_HALT:
        ++behaviour_.haltsCleared;
        return 0;
      case USBDEVFS_SUBMITURB:
        return submit(arg);
      case USBDEVFS_DISCARDURB:
        return discard(arg);
      case USBDEVFS_REAPURB:
      case USBDEVFS_REAPURBNDELAY:
        return reap(arg);
      default:
        return -ENOTTY;
    }
  }

  template <typename Value>
  static int answer(UMockdevIoctlData* arg, Value value) {
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(arg, 0, sizeof value, nullptr);
    std::memcpy(data->data, &value, sizeof value);
    g_object_unref(data);
    return 0;
  }

  static int getConfiguration(UMockdevIoctlData* arg) {
    UMockdevIoctlData* request =
        umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_ctrltransfer), nullptr);
    UMockdevIoctlData* data =
        umockdev_ioctl_data_resolve(request, offsetof(usbdevfs_ctrltransfer, data), 1, nullptr);
    data->data[0] = 1;
    g_object_unref(data);
    g_object_unref(request);
    return 1;
  }

  int submit(UMockdevIoctlData* arg) {
    if (behaviour_.unplugged) return -ENODEV;
    Urb urb;
    urb.data = umockdev_ioctl_data_resolve(arg, 0, sizeof(usbdevfs_urb), nullptr);
    const bool in = (urb.fields().endpoint & 0x80) != 0;
    const bool control = urb.fields().type == USBDEVFS_URB_TYPE_CONTROL;
    if ((!in || control) && urb.fields().buffer_length > 0)
      urb.buffer =
          umockdev_ioctl_data_resolve(urb.data, offsetof(usbdevfs_urb, buffer),
                                      static_cast<gsize>(urb.fields().buffer_length), nullptr);
    if (control) {
      answerControl(urb);
    } else if (behaviour_.stalls) {
      finish(urb, -EPIPE, 0);
    } else if (in) {
      waiting_.push_back(urb);
    } else {
      const int length = urb.fields().buffer_length;
      sent_.emplace_back(urb.buffer ? urb.buffer->data : nullptr,
                         urb.buffer ? urb.buffer->data + length : nullptr);
      finish(urb, 0, length);
    }
    serve();
    return 0;
  }

  /// An IN request is answered with the bytes 1, 2, ...; request 0xEE is refused, 0xDD never ends.
  void answerControl(Urb& urb) {
    behaviour_.lastSetup.assign(urb.buffer->data, urb.buffer->data + urb.buffer->data_len);
    const std::uint8_t request = urb.buffer->data[1];
    if (request == 0xEE) return finish(urb, -EPIPE, 0);
    if (request == 0xDD) return waiting_.push_back(urb);
    for (int i = 8; (urb.buffer->data[0] & 0x80) != 0 && i < urb.buffer->data_len; ++i)
      urb.buffer->data[i] = static_cast<guint8>(i - 7);
    finish(urb, 0, urb.buffer->data_len - 8);
  }

  /// Gives what was sent to the bulk reads that wait for it, one transfer for one.
  void serve() {
    for (auto urb = waiting_.begin(); urb != waiting_.end() && !sent_.empty();) {
      if (urb->fields().endpoint != 0x81) {
        ++urb;
        continue;
      }
      auto& bytes = sent_.front();
      const auto length = std::min<std::size_t>(
          bytes.size(), static_cast<std::size_t>(urb->fields().buffer_length));
      if (length > 0) {
        urb->buffer =
            umockdev_ioctl_data_resolve(urb->data, offsetof(usbdevfs_urb, buffer), length, nullptr);
        std::memcpy(urb->buffer->data, bytes.data(), length);
      }
      bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      if (bytes.empty()) sent_.pop_front();
      finish(*urb, 0, static_cast<int>(length));
      urb = waiting_.erase(urb);
    }
  }

  void finish(Urb& urb, int error, int length) {
    urb.fields().status = error;
    urb.fields().actual_length = length;
    finished_.push_back(urb);
  }

  int discard(UMockdevIoctlData* arg) {
    const auto address = *reinterpret_cast<gulong*>(arg->data);
    for (auto urb = waiting_.begin(); urb != waiting_.end(); ++urb) {
      if (urb->data->client_addr != address) continue;
      if (behaviour_.keepsUrbs) {
        kept_.push_back(*urb);
      } else {
        finish(*urb, -ENOENT, 0);
      }
      waiting_.erase(urb);
      return 0;
    }
    return -EINVAL;
  }

  int reap(UMockdevIoctlData* arg) {
    if (behaviour_.unplugged)
      while (!waiting_.empty()) {
        finish(waiting_.front(), -ESHUTDOWN, 0);
        waiting_.pop_front();
      }
    if (finished_.empty()) return behaviour_.unplugged ? -ENODEV : -EAGAIN;
    Urb urb = finished_.front();
    finished_.pop_front();
    UMockdevIoctlData* pointer = umockdev_ioctl_data_resolve(arg, 0, sizeof(void*), nullptr);
    umockdev_ioctl_data_set_ptr(pointer, 0, urb.data);
    g_object_unref(pointer);
    release(urb);
    return 0;
  }

  UMockdevTestbed* bed_;
  UMockdevIoctlBase* handler_;
  std::mutex mutex_;
  LoopbackBehaviour behaviour_;
  std::deque<Urb> waiting_;   ///< submitted, not ended
  std::deque<Urb> finished_;  ///< ended, not reaped
  std::deque<Urb> kept_;      ///< discarded and never given back
  std::deque<std::vector<std::uint8_t>> sent_;
};

}  // namespace tarvo::test

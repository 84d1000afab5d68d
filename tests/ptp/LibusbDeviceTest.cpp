// A device that the system does not let go of. All else about libusb is seen where the agent runs
// against an emulated node; no such node can be made to keep its transfers.
#include "platform/imagecapture/ptp/LibusbDevice.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "platform/imagecapture/ptp/LibusbConnector.h"

namespace tarvo::ptp {
namespace {

using std::chrono::milliseconds;

/// A node that takes every transfer and gives none back, cancelled or not.
class KeepingNode {
 public:
  static constexpr const char* kNode = "/dev/bus/usb/001/004";

  KeepingNode() : bed_(umockdev_testbed_new()), handler_(umockdev_ioctl_base_new()) {
    gchar* root = umockdev_testbed_get_root_dir(bed_);
    const std::string folder = std::string(root) + "/dev/bus/usb/001";
    g_free(root);
    g_mkdir_with_parents(folder.c_str(), 0755);
    const unsigned char bytes[] = {
        18, 1, 0x00, 0x02, 0,    0,    0, 64,   0x55, 0xF0, 0x01, 0x05, 0, 1, 0, 0, 0, 1,  // device
        9,  2, 32,   0,    1,    1,    0, 0x80, 50,  // configuration
        9,  4, 0,    0,    2,    6,    1, 1,    0,   // interface
        7,  5, 0x81, 2,    0x00, 0x02, 0,            // bulk in
        7,  5, 0x02, 2,    0x00, 0x02, 0};           // bulk out
    std::ofstream(folder + "/004", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), sizeof bytes);
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(handleIoctl), nullptr);
    umockdev_testbed_attach_ioctl(bed_, kNode, handler_, nullptr);
  }
  KeepingNode(const KeepingNode&) = delete;
  KeepingNode& operator=(const KeepingNode&) = delete;
  ~KeepingNode() {
    umockdev_testbed_detach_ioctl(bed_, kNode, nullptr);
    g_object_unref(handler_);
    g_object_unref(bed_);
  }

 private:
  static gboolean handleIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer) {
    const int result =
        handle(umockdev_ioctl_client_get_request(client), umockdev_ioctl_client_get_arg(client));
    umockdev_ioctl_client_complete(client, result < 0 ? -1 : result, result < 0 ? -result : 0);
    return TRUE;
  }

  /// The ioctl's result, or a negative errno.
  static int handle(gulong request, UMockdevIoctlData* arg) {
    switch (request) {
      case USBDEVFS_GET_CAPABILITIES:
        return answer(arg, USBDEVFS_CAP_NO_PACKET_SIZE_LIM);
      case USBDEVFS_CONNECTINFO:
        return answer(arg, usbdevfs_connectinfo{4, 0});
      case USBDEVFS_CONTROL:
        return giveConfiguration(arg);
      case USBDEVFS_CLAIMINTERFACE:
      case USBDEVFS_RELEASEINTERFACE:
      case USBDEVFS_SUBMITURB:
      case USBDEVFS_DISCARDURB:
        return 0;
      case USBDEVFS_REAPURB:
      case USBDEVFS_REAPURBNDELAY:
        return -EAGAIN;
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
  static int giveConfiguration(UMockdevIoctlData* arg) {
    using Transfer = usbdevfs_ctrltransfer;
    UMockdevIoctlData* request = umockdev_ioctl_data_resolve(arg, 0, sizeof(Transfer), nullptr);
    UMockdevIoctlData* data =
        umockdev_ioctl_data_resolve(request, offsetof(Transfer, data), 1, nullptr);
    data->data[0] = 1;
    g_object_unref(data);
    g_object_unref(request);
    return 1;
  }

  UMockdevTestbed* bed_;
  UMockdevIoctlBase* handler_;
};

TEST(LibusbDevice, ThatIsNoneIsRefusedInWords) {
  const struct {
    const char* node;
    Status failure;
    const char* why;
  } rows[] = {
      {"/dev/bus/usb/009/099", status::kICADeviceGone, "/dev/bus/usb/009/099 is gone"},
      {"/", status::kIOError, "cannot open /: "},
      {"/dev/null", status::kIOError, "/dev/null"},
  };
  LibusbConnector connector(std::make_unique<LibusbDeviceOpener>(), Timeouts(), LogSink());
  for (const auto& row : rows) {
    Status failure = 0;
    std::string why;
    EXPECT_EQ(connector.connect({row.node, 0}, &failure, &why), nullptr) << row.node;
    EXPECT_EQ(failure, row.failure) << row.node;
    EXPECT_THAT(why, testing::HasSubstr(row.why));
  }
}

TEST(LibusbDevice, IsGivenUpWhenTheSystemDoesNotGiveABufferBack) {
  const KeepingNode node;
  Status failure = 0;
  std::string why;
  const auto device = LibusbDeviceOpener().open({KeepingNode::kNode, 0}, &failure, &why);
  ASSERT_NE(device, nullptr) << why;
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  EXPECT_FALSE(device->wait(milliseconds(1)));
  device->cancelAll();
  // Nothing is started or reaped any more, so that nothing is written to the buffer.
  device->submit(0x81, buffer, 2);
  EXPECT_EQ(device->wait(milliseconds(5000))->result, TransferResult::kError);
  EXPECT_EQ(device->control({0xA1, 0x67, 0, 0}, buffer, milliseconds(5000)).result,
            TransferResult::kError);
  EXPECT_EQ(device->clearHalt(0x81), TransferResult::kError);
}

}  // namespace
}  // namespace tarvo::ptp

// Events through libusb and a system that keeps transfers, with a simulated camera behind an
// emulated node. What else it moves is seen where the tool runs against such a node.
#include <gmock/gmock.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <fstream>

#include "platform/imagecapture/ptp/LibusbDevice.h"
#include "simulator/testbed/UsbfsNode.h"
#include "tests/ptp/Connecting.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using simulator::UsbfsNode;
using testing::ElementsAre;
using testing::IsEmpty;

class LibusbTest : public testing::Test {
 protected:
  static constexpr const char* kNode = "/dev/bus/usb/001/004";

  LibusbTest() {
    gchar* root = umockdev_testbed_get_root_dir(bed_.get());
    const std::string folder = std::string(root) + "/dev/bus/usb/001";
    g_free(root);
    g_mkdir_with_parents(folder.c_str(), 0755);
    const auto bytes = camera_->descriptors().node();
    std::ofstream(folder + "/004", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    umockdev_testbed_attach_ioctl(bed_.get(), kNode, handler_.get(), nullptr);
    connect();
  }
  ~LibusbTest() override {
    connection_.reset();
    umockdev_testbed_detach_ioctl(bed_.get(), kNode, nullptr);
  }

  void connect() {
    std::string why;
    auto device = LibusbDeviceOpener().open({kNode, 0}, nullptr, &why);
    ASSERT_NE(device, nullptr) << why;
    connection_ = std::make_unique<BulkConnection>(std::move(device), Timeouts(), LogSink(), kNode);
    ASSERT_EQ(connection_->openSession(), 0);
  }

  std::shared_ptr<simulator::PTPCamera> camera_ = test::simulatedCamera(R"({
      "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"}, "deviceInfo": {},
      "stores": [{"content": [{"file": "A.JPG", "size": 1000}]}]})");
  simulator::GObjectPointer<UMockdevTestbed> bed_ =
      simulator::GObjectPointer<UMockdevTestbed>::adopt(umockdev_testbed_new());
  std::shared_ptr<UsbfsNode> node_ = UsbfsNode::create({1, 4}, camera_, nullptr, [] {});
  simulator::GObjectPointer<UMockdevIoctlBase> handler_ = node_->makeHandler();
  std::unique_ptr<BulkConnection> connection_;
};

TEST_F(LibusbTest, KeepsEventsUntilTheMainLoopRuns) {
  std::vector<unsigned> heard;
  connection_->watchEvents([&](const Event& event) { heard.push_back(event.code); });
  for (const std::uint16_t code : {0x4002, 0x4004, 0x4005})
    camera_->sendEvent(code, {1});
  Transaction count{.operation = 0x1006, .parameters = {0xFFFFFFFF}, .parameterCount = 1};
  EXPECT_EQ(connection_->transact(count, nullptr), 0);
  EXPECT_THAT(heard, IsEmpty()) << "not from within another call";
  EXPECT_TRUE(test::waitUntil([&] { return heard.size() == 3; }));
  EXPECT_THAT(heard, ElementsAre(0x4002, 0x4004, 0x4005));

  connection_->watchEvents([&](const Event&) { connection_.reset(); });
  camera_->sendEvent(0x4002, {});
  EXPECT_TRUE(test::waitUntil([&] { return connection_ == nullptr; }));
}

TEST_F(LibusbTest, EndsTheEventsWhenTheDeviceGoes) {
  connection_.reset();
  const auto device = LibusbDeviceOpener().open({kNode, 0}, nullptr, nullptr);
  ASSERT_NE(device, nullptr);
  std::vector<TransferResult> results;
  device->watchInterrupts(
      [&](TransferResult result, std::span<const std::byte>) { results.push_back(result); });
  node_->unplug(std::chrono::milliseconds(0));
  EXPECT_TRUE(test::waitUntil([&] { return !results.empty(); }));
  EXPECT_THAT(results, ElementsAre(TransferResult::kNoDevice));
}

TEST_F(LibusbTest, RefusesWhatIsNoDeviceInWords) {
  const std::pair<const char*, const char*> rows[] = {
      {"/dev/bus/usb/009/099", "/dev/bus/usb/009/099 is gone"},
      {"/", "cannot open /: "},
      {"/dev/null", "/dev/null"},
  };
  for (const auto& [node, words] : rows) {
    Status failure = 0;
    std::string why;
    EXPECT_EQ(LibusbDeviceOpener().open({node, 0}, &failure, &why), nullptr) << node;
    EXPECT_EQ(failure, why.ends_with(" is gone") ? status::kICADeviceGone : status::kIOError);
    EXPECT_THAT(why, testing::HasSubstr(words));
  }
}

TEST_F(LibusbTest, WaitsForTheEndOfAHaltAsLongAsForAnyRequest) {
  ASSERT_EQ(camera_->setFault("deaf", "0x1003"), "");
  connection_.reset();
  const auto device = LibusbDeviceOpener().open({kNode, 0}, nullptr, nullptr);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->clearHalt(0x81), TransferResult::kTimedOut);
}

/// Takes every transfer and gives none back, cancelled or not; all else goes to the other handler.
gboolean keepTransfers(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer other) {
  const gulong request = umockdev_ioctl_client_get_request(client);
  if (request == USBDEVFS_SUBMITURB || request == USBDEVFS_DISCARDURB) {
    umockdev_ioctl_client_complete(client, 0, 0);
    return TRUE;
  }
  gboolean handled = FALSE;
  g_signal_emit_by_name(other, "handle-ioctl", client, &handled);
  return handled;
}

TEST_F(LibusbTest, GivesADeviceUpWhenTheSystemDoesNotGiveABufferBack) {
  connection_.reset();
  umockdev_testbed_detach_ioctl(bed_.get(), kNode, nullptr);
  const auto keeping =
      simulator::GObjectPointer<UMockdevIoctlBase>::adopt(umockdev_ioctl_base_new());
  g_signal_connect(keeping.get(), "handle-ioctl", G_CALLBACK(keepTransfers), handler_.get());
  umockdev_testbed_attach_ioctl(bed_.get(), kNode, keeping.get(), nullptr);
  const auto device = LibusbDeviceOpener().open({kNode, 0}, nullptr, nullptr);
  ASSERT_NE(device, nullptr);
  std::vector<std::byte> buffer(512);
  device->submit(0x81, buffer, 1);
  EXPECT_FALSE(device->wait(std::chrono::milliseconds(1)));
  device->cancelAll();
  // Nothing is started or reaped any more, so that nothing is written to the buffer.
  device->submit(0x81, buffer, 2);
  EXPECT_EQ(device->wait(std::chrono::seconds(5))->result, TransferResult::kError);
  EXPECT_EQ(device->control({0xA1, 0x67, 0, 0}, buffer, std::chrono::seconds(5)).result,
            TransferResult::kError);
  EXPECT_EQ(device->clearHalt(0x81), TransferResult::kError);
}

}  // namespace
}  // namespace tarvo::ptp

// Transfers and events through libusb, with a simulated camera behind an emulated node.
#include <gmock/gmock.h>

#include <fstream>
#include <stdexcept>

#include "platform/imagecapture/ptp/LibusbConnector.h"
#include "simulator/testbed/UsbfsNode.h"
#include "tests/ptp/Connecting.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using simulator::UsbfsNode;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kPiece = 1U << 21;
constexpr std::size_t kObjectSize = 10 * kPiece;

/// Passes everything on, and looks at what is in flight.
class Meter : public USBDevice {
 public:
  struct Reading {
    std::size_t inFlight = 0;
    std::size_t mostInFlight = 0;  ///< of those of a whole piece
  };
  Meter(std::unique_ptr<USBDevice> device, Reading& reading)
      : device_(std::move(device)), reading_(reading) {}

  const StillImageEndpoints& endpoints() const override { return device_->endpoints(); }
  TransferCompletion control(const ControlSetup& setup, std::span<std::byte> data,
                             std::chrono::milliseconds timeout) override {
    return device_->control(setup, data, timeout);
  }
  void submit(std::uint8_t endpoint, std::span<std::byte> buffer, std::uint64_t tag) override {
    sizes_[tag] = buffer.size();
    if (buffer.size() == kPiece) ++reading_.inFlight;
    reading_.mostInFlight = std::max(reading_.mostInFlight, reading_.inFlight);
    device_->submit(endpoint, buffer, tag);
  }
  std::optional<TransferCompletion> wait(std::chrono::milliseconds timeout) override {
    const auto ended = device_->wait(timeout);
    if (ended && sizes_.extract(ended->tag).mapped() == kPiece) --reading_.inFlight;
    return ended;
  }
  void cancelAll() override { device_->cancelAll(); }
  TransferResult clearHalt(std::uint8_t endpoint) override { return device_->clearHalt(endpoint); }
  void watchInterrupts(InterruptHandler handler) override {
    device_->watchInterrupts(std::move(handler));
  }

 private:
  std::unique_ptr<USBDevice> device_;
  Reading& reading_;
  std::map<std::uint64_t, std::size_t> sizes_;
};

class LibusbTransfers : public testing::Test {
 protected:
  static constexpr const char* kNode = "/dev/bus/usb/001/004";

  LibusbTransfers() {
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
  ~LibusbTransfers() override {
    connection_.reset();
    umockdev_testbed_detach_ioctl(bed_.get(), kNode, nullptr);
  }

  void connect() {
    std::string why;
    auto device = LibusbDeviceOpener().open({kNode, 0}, nullptr, &why);
    ASSERT_NE(device, nullptr) << why;
    connection_ = std::make_unique<BulkConnection>(
        std::make_unique<Meter>(std::move(device), reading_), Timeouts(), LogSink(), kNode);
    ASSERT_EQ(connection_->openSession(), 0);
  }
  Status receive(DataSink& sink) {
    Transaction object{
        .operation = 0x1009, .parameters = {1}, .parameterCount = 1, .receive = &sink};
    return connection_->transact(object, nullptr);
  }
  void expectUsable() {
    Transaction count{.operation = 0x1006, .parameters = {0xFFFFFFFF}, .parameterCount = 1};
    EXPECT_EQ(connection_->transact(count, nullptr), 0);
    EXPECT_EQ(count.responseParameters[0], 1U);
  }

  std::shared_ptr<simulator::PTPCamera> camera_ = test::simulatedCamera(R"({
      "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"}, "deviceInfo": {},
      "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
      "stores": [{"content": [{"file": "A.MOV", "size": 20971520}]}]})");
  simulator::GObjectPointer<UMockdevTestbed> bed_ =
      simulator::GObjectPointer<UMockdevTestbed>::adopt(umockdev_testbed_new());
  std::shared_ptr<UsbfsNode> node_ = UsbfsNode::create({1, 4}, camera_, nullptr, [] {});
  simulator::GObjectPointer<UMockdevIoctlBase> handler_ = node_->makeHandler();
  Meter::Reading reading_;
  std::unique_ptr<BulkConnection> connection_;
};

TEST_F(LibusbTransfers, KeepSeveralLargePiecesInFlightInBothDirections) {
  PiecewiseSink sink(kObjectSize, SIZE_MAX);
  EXPECT_EQ(receive(sink), 0);
  EXPECT_EQ(sink.filled(), kObjectSize);
  EXPECT_TRUE(sink.inOrder());
  EXPECT_EQ(sink.memory()[kObjectSize / 2],
            static_cast<std::byte>((kObjectSize / 2) ^ ((kObjectSize / 2) >> 8) ^ 37));
  EXPECT_EQ(reading_.mostInFlight, kTransfersInFlight);
  reading_.mostInFlight = 0;

  test::Bytes array;
  test::wire::append(array, kObjectSize - 4, 4);
  array.resize(kObjectSize);
  PiecewiseSource source(array, SIZE_MAX);
  Transaction set{
      .operation = 0x1016, .parameters = {0xD100}, .parameterCount = 1, .send = &source};
  EXPECT_EQ(connection_->transact(set, nullptr), 0);
  EXPECT_EQ(set.responseCode, 0x2001);
  EXPECT_EQ(reading_.mostInFlight, kTransfersInFlight);
  EXPECT_THAT(camera_->violations(), IsEmpty());
}

TEST_F(LibusbTransfers, LeaveTheConnectionUsableWhenTheyAreCancelled) {
  for (int i = 0; i < 2; ++i) {
    PiecewiseSink sink(kObjectSize, SIZE_MAX);
    sink.cancelAt = 2 * kPiece;
    EXPECT_EQ(receive(sink), status::kCancelled);
    expectUsable();
  }
}

TEST_F(LibusbTransfers, ArePickedUpAfterAHostThatWentInTheMiddle) {
  class Leaving : public MemorySink {
   public:
    using MemorySink::MemorySink;
    bool received(std::uint64_t, std::size_t) override { throw std::runtime_error("killed"); }
  };
  test::Bytes memory(kObjectSize);
  Leaving sink(memory);
  EXPECT_ANY_THROW(receive(sink));
  // As a killed process: nothing is closed, and the next one comes.
  static_cast<void>(connection_.release());
  umockdev_testbed_detach_ioctl(bed_.get(), kNode, nullptr);
  node_ = UsbfsNode::create({1, 4}, camera_, nullptr, [] {});
  handler_ = node_->makeHandler();
  umockdev_testbed_attach_ioctl(bed_.get(), kNode, handler_.get(), nullptr);
  connect();
  camera_->forgetViolations();  // what the first one has left undone
  expectUsable();
}

TEST_F(LibusbTransfers, KeepEventsUntilTheMainLoopRuns) {
  std::vector<unsigned> heard;
  connection_->watchEvents([&](const Event& event) { heard.push_back(event.code); });
  for (const std::uint16_t code : {0x4002, 0x4004, 0x4005})
    camera_->sendEvent(code, {1});
  expectUsable();
  EXPECT_THAT(heard, IsEmpty()) << "not from within another call";
  EXPECT_TRUE(test::waitUntil([&] { return heard.size() == 3; }));
  EXPECT_THAT(heard, ElementsAre(0x4002, 0x4004, 0x4005));

  connection_->watchEvents([&](const Event&) { connection_.reset(); });
  camera_->sendEvent(0x4002, {});
  EXPECT_TRUE(test::waitUntil([&] { return connection_ == nullptr; }));
}

TEST_F(LibusbTransfers, EndTheWatchingWhenTheDeviceGoes) {
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

}  // namespace
}  // namespace tarvo::ptp

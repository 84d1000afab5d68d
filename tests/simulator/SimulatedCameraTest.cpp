// The product's transport against the simulator's camera, in one process: each is the other's
// check.
#include <gmock/gmock.h>

#include "Utilities/PTPCodes.h"
#include "platform/imagecapture/ptp/BulkConnection.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::test {
namespace {

using ::testing::ElementsAre;

class SimulatedCamera : public ::testing::Test {
 protected:
  SimulatedCamera()
      : camera_(simulatedCamera(R"({
      "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"},
      "deviceInfo": {},
      "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
      "stores": [{"content": [{"file": "A.JPG", "size": 1000},
                              {"file": "B.JPG", "size": 500},
                              {"file": "C.MOV", "size": 3000000}]}]})")),
        connection_(std::make_unique<SimulatedUSBDevice>(camera_), {}, {}, "camera") {}

  Status transact(std::uint16_t operation, std::vector<std::uint32_t> parameters,
                  std::span<std::byte> room = {}, ptp::DataSource* send = nullptr) {
    sink_ = ptp::MemorySink(room);
    last_ = {};
    last_.operation = operation;
    last_.parameterCount = static_cast<unsigned>(parameters.size());
    std::copy(parameters.begin(), parameters.end(), last_.parameters.begin());
    if (!room.empty()) last_.receive = &sink_;
    last_.send = send;
    return connection_.transact(last_, nullptr);
  }

  std::shared_ptr<simulator::PTPCamera> camera_;
  ptp::BulkConnection connection_;
  ptp::MemorySink sink_{{}};
  ptp::Transaction last_;
};

TEST_F(SimulatedCamera, ServesASessionWithoutAComplaintAboutTheHost) {
  std::vector<std::byte> room(4096);
  EXPECT_EQ(transact(ptp::kGetDeviceInfo, {}, room), status::kOK);
  EXPECT_EQ(connection_.openSession(), status::kOK);
  EXPECT_EQ(transact(ptp::kGetNumObjects, {ptp::kAllStores}), status::kOK);
  EXPECT_EQ(last_.responseParameters[0], 3U);
  EXPECT_EQ(connection_.closeSession(), status::kOK);
  EXPECT_THAT(camera_->operations(), ElementsAre(0x1001, 0x1002, 0x1006, 0x1003));
}

TEST_F(SimulatedCamera, SendsObjectsOfEverySizeWithOrWithoutTheZeroLengthPacket) {
  // 500 bytes of payload make a container of exactly one packet.
  for (const char* zeroLengthPacket : {"off", ""}) {
    ASSERT_EQ(camera_->setFault("no-zlp", zeroLengthPacket), "");
    ASSERT_EQ(connection_.openSession(), status::kOK);
    const std::uint32_t sizes[] = {1000, 500, 3000000};
    for (std::uint32_t handle = 1; handle <= 3; ++handle) {
      std::vector<std::byte> room(sizes[handle - 1]);
      EXPECT_EQ(transact(ptp::kGetObject, {handle}, room), status::kOK);
      EXPECT_EQ(last_.bytesReceived, room.size());
      EXPECT_EQ(room.back(), static_cast<std::byte>((room.size() - 1) ^ ((room.size() - 1) >> 8) ^
                                                    (std::size_t{handle} * 37)));
    }
    ASSERT_EQ(connection_.closeSession(), status::kOK);
  }
}

TEST_F(SimulatedCamera, KeepsAPropertyThatTheHostSets) {
  ASSERT_EQ(connection_.openSession(), status::kOK);
  simulator::ByteWriter value;
  value.u32(3);
  for (const std::uint8_t each : {7, 8, 9})
    value.u8(each);
  const auto bytes = value.take();
  ptp::MemorySource source(bytes);
  ASSERT_EQ(transact(ptp::kSetDevicePropValue, {0xD100}, {}, &source), status::kOK);
  EXPECT_EQ(last_.responseCode, 0x2001);
  std::vector<std::byte> room(bytes.size());
  ASSERT_EQ(transact(ptp::kGetDevicePropValue, {0xD100}, room), status::kOK);
  EXPECT_EQ(room, bytes);
}

TEST_F(SimulatedCamera, ComplainsAboutADataContainerOfAMultipleOf64Bytes) {
  ASSERT_EQ(connection_.openSession(), status::kOK);
  const std::vector<std::byte> bytes(52);
  ptp::MemorySource source(bytes);
  transact(ptp::kSetDevicePropValue, {0xD100}, {}, &source);
  EXPECT_THAT(camera_->violations(),
              ElementsAre("data container of operation 0x1016: its length 64 is a multiple of 64"));
  camera_->forgetViolations();
}

}  // namespace
}  // namespace tarvo::test

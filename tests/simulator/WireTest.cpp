// The camera at the level of USB requests: how it checks the host.
#include <gmock/gmock.h>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

class Wire : public ::testing::Test {
 protected:
  Wire() { command(ptp::kOpenSession, 0, {1}), take(); }

  OutResult send(const Bytes& bytes) {
    return camera_.out(PTPCamera::kBulkOut, bytes, bytes.size() % 512 != 0);
  }
  OutResult command(std::uint16_t code, std::uint32_t id, const std::vector<std::uint32_t>& with) {
    return send(parameterContainer(ptp::kCommandBlock, code, id, with));
  }
  OutResult data(std::uint16_t code, std::uint32_t id, const Bytes& payload) {
    return send(dataContainer(code, id, payload));
  }
  static Bytes dataContainer(std::uint16_t code, std::uint32_t id, const Bytes& payload) {
    ByteWriter writer;
    writer.raw(parameterContainer(ptp::kDataBlock, code, id, {}));
    writer.raw(payload);
    auto bytes = writer.take();
    bytes[0] = static_cast<std::byte>(bytes.size());
    bytes[1] = static_cast<std::byte>(bytes.size() >> 8);
    return bytes;
  }

  /// One transfer from the camera.
  Bytes take() {
    Bytes room(8192);
    room.resize(camera_.in(PTPCamera::kBulkIn, room).length);
    return room;
  }

  PTPCamera camera_{DeviceDescription::fromJson(nlohmann::json::parse(R"({
      "usb": {"vendor": 1, "product": 2}, "deviceInfo": {},
      "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
      "stores": [{"content": [{"file": "A.JPG", "size": 6000}]}]})"))};
};

constexpr std::uint16_t kSet = ptp::kSetDevicePropValue;
const Bytes kValue = {std::byte{1}, std::byte{}, std::byte{}, std::byte{}, std::byte{9}};

TEST_F(Wire, EveryBreachOfTheProtocolIsNoted) {
  struct Row {
    const char* expected;
    std::function<void()> breach;
  };
  auto lying = dataContainer(kSet, 3, kValue);
  lying[0] = std::byte{99};
  const Row rows[] = {
      {"transaction id 1 was expected, got 5", [&] { command(ptp::kGetStorageIDs, 5, {}); }},
      {"operation 0x1008: 1 to 1 parameters were expected, got 2",
       [&] {
         command(ptp::kGetObjectInfo, 6, {1, 2});
       }},
      {"a command came before the last answer was taken",
       [&] { command(ptp::kGetObject, 7, {1}), command(ptp::kGetNumObjects, 8, {0xFFFFFFFF}); }},
      {"a command was expected, got 17 bytes, type 2", [&] { data(kSet, 9, kValue); }},
      {"data of operation 0x1016 were expected, a command came",
       [&] { command(kSet, 9, {0xD100}), command(ptp::kGetNumObjects, 10, {0xFFFFFFFF}); }},
      {"0x1016: 99 bytes claimed, 17 came", [&] { command(kSet, 11, {0xD100}), send(lying); }},
      {"its length 64 is a multiple of 64",
       [&] { command(kSet, 12, {0xD100}), data(kSet, 12, Bytes(52)); }},
      {"wrong type, code or transaction id",
       [&] { command(kSet, 13, {0xD100}), data(kSet, 1, kValue); }},
      {"operation 0x1004 without a session",
       [&] {
         command(ptp::kCloseSession, 14, {}), take();
         command(ptp::kGetStorageIDs, 0, {});
       }},
      {"a session id of 0", [&] { command(ptp::kOpenSession, 0, {0}); }},
  };
  for (const auto& row : rows) {
    camera_.forgetViolations();
    row.breach();
    EXPECT_THAT(camera_.violations(), Contains(HasSubstr(row.expected)));
    while (!take().empty()) {
    }
  }
}

TEST_F(Wire, AReadThatCutsAPacketOverflows) {
  command(ptp::kGetObject, 1, {1});
  Bytes room(570);
  EXPECT_EQ(camera_.in(PTPCamera::kBulkIn, room).state, InResult::State::kOverflow);
}

}  // namespace
}  // namespace tarvo::simulator

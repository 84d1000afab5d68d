// The camera at the level of USB requests: how it checks the host. Every other test that asks for
// violations stands on this.
#include <gmock/gmock.h>

#include <filesystem>
#include <functional>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/DeviceState.h"
#include "simulator/ptp/PTPCamera.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint16_t kSet = ptp::kSetDevicePropValue;
const Bytes kValue = {std::byte{1}, std::byte{}, std::byte{}, std::byte{}, std::byte{9}};

class Wire : public ::testing::Test {
 protected:
  Wire() { command(ptp::kOpenSession, 0, {1}), take(); }

  void send(const Bytes& bytes) {
    (void)camera_.out(PTPCamera::kBulkOut, bytes, bytes.size() % 512 != 0);
  }
  void command(std::uint16_t code, std::uint32_t id, const std::vector<std::uint32_t>& with) {
    send(parameterContainer(ptp::kCommandBlock, code, id, with));
  }
  /// Data of the operation that sets the property, with `claimed` as their length.
  void data(std::uint32_t id, const Bytes& payload, std::size_t claimed) {
    auto bytes = parameterContainer(ptp::kDataBlock, kSet, id, {});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bytes[0] = static_cast<std::byte>(claimed);
    send(bytes);
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

TEST_F(Wire, EveryBreachOfTheProtocolIsNoted) {
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"transaction id 1 was expected, got 5", [&] { command(ptp::kGetStorageIDs, 5, {}); }},
      {"1 to 1 parameters were expected, got 2",
       [&] {
         command(ptp::kGetObjectInfo, 6, {1, 2});
       }},
      {"a command came before the last answer was taken",
       [&] { command(ptp::kGetObject, 7, {1}), command(ptp::kGetNumObjects, 8, {0xFFFFFFFF}); }},
      {"a command was expected, got 17 bytes, type 2", [&] { data(9, kValue, 17); }},
      {"data of operation 0x1016 were expected, a command came",
       [&] { command(kSet, 9, {0xD100}), command(ptp::kGetNumObjects, 10, {0xFFFFFFFF}); }},
      {"0x1016: 99 bytes claimed, 17 came",
       [&] { command(kSet, 11, {0xD100}), data(11, kValue, 99); }},
      {"its length 64 is a multiple of 64",
       [&] { command(kSet, 12, {0xD100}), data(12, Bytes(52), 64); }},
      {"wrong type, code or transaction id",
       [&] { command(kSet, 13, {0xD100}), data(1, kValue, 17); }},
      {"operation 0x1004 without a session",
       [&] {
         command(ptp::kCloseSession, 14, {}), take();
         command(ptp::kGetStorageIDs, 0, {});
       }},
      {"a session id of 0", [&] { command(ptp::kOpenSession, 0, {0}); }},
  };
  for (const auto& [expected, breach] : rows) {
    camera_.forgetViolations();
    breach();
    EXPECT_THAT(camera_.violations(), ::testing::Contains(::testing::HasSubstr(expected)));
    while (!take().empty()) {
    }
  }
}

TEST(DeviceDescription, ReadsEveryShippedDescription) {
  for (const auto& entry : std::filesystem::directory_iterator(DEVICES_FOLDER))
    EXPECT_NO_THROW(DeviceState(DeviceDescription::fromFile(entry.path()))) << entry.path();
}

}  // namespace
}  // namespace tarvo::simulator

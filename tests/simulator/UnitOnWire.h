// A mass-storage unit with a bare host in the test: wrappers go out and come in as they are
// written.
//
//   UnitOnWire unit(R"({"scsi": {"type": 5}})");
//   EXPECT_EQ(unit.read("00 00 00 00 00 00"), "failed 02/3a/01");
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "Utilities/Format.h"
#include "simulator/massstorage/MassStorageUnit.h"
#include "tests/support/HexBytes.h"

namespace tarvo::simulator {

class UnitOnWire {
 public:
  /// Keys of a description beside `usb` and `kind`.
  explicit UnitOnWire(const std::string& json = "{}") : unit_(describe(json)) {}

  MassStorageUnit& unit() { return unit_; }
  MassStorageUnit* operator->() { return &unit_; }

  static Bytes wrapper(const std::string& block, std::uint32_t length, bool toHost,
                       std::uint32_t tag = 0x11223344) {
    const auto bytes = test::hexBytes(block);
    ByteWriter writer;
    writer.u32(0x43425355);
    writer.u32(tag);
    writer.u32(length);
    writer.u8(toHost ? 0x80 : 0);
    writer.u8(0);
    writer.u8(static_cast<std::uint8_t>(bytes.size()));
    writer.raw(bytes);
    writer.raw(Bytes(16 - bytes.size()));
    return writer.take();
  }

  /// What the bulk-out endpoint makes of the bytes: "accepted", "stalled" or "gone".
  std::string out(const Bytes& bytes) {
    const auto result = unit_.out(MassStorageUnit::kBulkOut, bytes, bytes.size() % 512 != 0);
    return result == OutResult::kAccepted ? "accepted"
           : result == OutResult::kGone   ? "gone"
                                          : "stalled";
  }
  /// What the bulk-in endpoint sends into so much room, and "stalled", "waiting" or "gone" behind
  /// it where the transfer ends so.
  std::string in(std::size_t size) {
    Bytes room(size);
    auto result = unit_.in(MassStorageUnit::kBulkIn, room);
    // An exact multiple of the packet size does not end a transfer.
    if (result.state == InResult::State::kWaiting && result.length > 0) {
      const auto more = unit_.in(MassStorageUnit::kBulkIn, std::span(room).subspan(result.length));
      result = {more.state, result.length + more.length};
    }
    room.resize(result.length);
    auto text = test::hexText(room);
    if (result.state == InResult::State::kStalled) text += "stalled";
    if (result.state == InResult::State::kWaiting) text += "waiting";
    if (result.state == InResult::State::kOverflow) text += "overflow";
    if (result.state == InResult::State::kGone) text += "gone";
    return text;
  }
  void clear(std::uint8_t endpoint) { unit_.clearHalt(endpoint); }
  /// A class request without data; whether it was taken.
  bool reset() { return unit_.control({0x21, 0xFF, 0, 0, 0}, {}).has_value(); }

  /// A whole command that expects `room` bytes: the data in hexadecimal; or "failed K/ASC/ASCQ".
  std::string read(const std::string& block, std::uint32_t room = 0) {
    EXPECT_EQ(out(wrapper(block, room, true)), "accepted");
    auto data = room > 0 ? in(room) : "";
    return finish(std::move(data));
  }
  /// The same with data for the unit; "" where it went well.
  std::string write(const std::string& block, const std::string& data) {
    const auto bytes = test::hexBytes(data);
    EXPECT_EQ(out(wrapper(block, static_cast<std::uint32_t>(bytes.size()), false)), "accepted");
    if (out(bytes) == "stalled") clear(MassStorageUnit::kBulkOut);
    return finish({});
  }

 private:
  static DeviceDescription describe(const std::string& json) {
    auto description = nlohmann::json::parse(json);
    description["kind"] = "massStorage";
    description["usb"] = {{"vendor", "0xF055"}, {"product", "0x0502"}, {"serial", "S1"}};
    return DeviceDescription::fromJson(description);
  }

  std::string finish(std::string data) {
    if (const auto at = data.find("stalled"); at != std::string::npos) {
      clear(MassStorageUnit::kBulkIn);
      data.resize(at);
    }
    const auto status = test::hexBytes(in(13));
    EXPECT_EQ(status.size(), 13U);
    if (status.size() != 13 || status[12] == std::byte{0}) return data;
    if (status[12] == std::byte{2}) return "phase error";
    EXPECT_EQ(out(wrapper("03 00 00 00 12 00", 18, true)), "accepted");
    const auto sense = in(18);
    EXPECT_EQ(in(13).substr(24), "00");
    return "failed " + sense.substr(4, 2) + "/" + sense.substr(24, 2) + "/" + sense.substr(26, 2);
  }

  MassStorageUnit unit_;
};

}  // namespace tarvo::simulator

// A responder in a session, asked operation by operation, without containers.
//
//   class Deleting : public ResponderFixture {};
//   TEST_F(Deleting, ...) {
//     describe(R"("stores": [{"content": [{"file": "A.JPG", "size": 10}]}])");
//     EXPECT_EQ(code(ptp::kDeleteObject, {1}), kOK);
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/PTPCodes.h"
#include "simulator/ptp/PTPResponder.h"

namespace tarvo::simulator {

class ResponderFixture : public ::testing::Test {
 protected:
  /// Makes the device from the keys that its description has beside "usb" and "deviceInfo".
  void describe(const std::string& keys) {
    responder_ = std::make_unique<PTPResponder>(DeviceDescription::fromJson(nlohmann::json::parse(
        R"({"usb": {"vendor": 1, "product": 2}, "deviceInfo": {}, )" + keys + "}")));
    code(ptp::kOpenSession, {1});
  }

  /// A camera with a card of 1,000 free bytes: folder DCIM (1) with A.JPG (2) and a protected
  /// B.JPG (3), and C.TXT (4) beside it; a store that is read only (5: R.JPG); and another card.
  void describeStores(const std::string& keys = {}) {
    describe(keys + R"(
      "stores": [
        {"id": "0x00010001", "capacity": 2000, "free": 1000, "content": [
          {"folder": "DCIM", "content": [
            {"file": "A.JPG", "size": 300, "thumbnail": true},
            {"file": "B.JPG", "size": 100, "protected": true}]},
          {"file": "C.TXT", "text": "hello"}]},
        {"id": "0x00020001", "access": "readOnly", "content": [{"file": "R.JPG", "size": 7}]},
        {"id": "0x00030001", "capacity": 200, "free": 200, "vendorDelete": true}])");
  }

  PTPReply ask(std::uint16_t operation, const std::vector<std::uint32_t>& parameters = {},
               const Bytes& data = {}) {
    PTPRequest request;
    request.operation = operation;
    request.transactionID = ++transaction_;
    request.parameterCount = static_cast<unsigned>(parameters.size());
    std::copy(parameters.begin(), parameters.end(), request.parameters.begin());
    request.data = std::make_shared<BytesPayload>(data);
    auto reply = responder_->execute(request);
    complaints_.insert(complaints_.end(), reply.complaints.begin(), reply.complaints.end());
    return reply;
  }
  std::uint16_t code(std::uint16_t operation, const std::vector<std::uint32_t>& parameters = {},
                     const Bytes& data = {}) {
    return ask(operation, parameters, data).code;
  }

  /// An ObjectInfo data set as a host writes it.
  static Bytes objectInfo(const char* name, std::uint16_t format, std::uint32_t size) {
    ByteWriter writer;
    writer.u32(0);
    writer.u16(format);
    writer.u16(0);
    writer.u32(size);
    writer.u16(0);
    for (int i = 0; i < 7; ++i)
      writer.u32(0);
    writer.u16(0);
    writer.u32(0);
    writer.u32(0);
    writer.text(name);
    writer.text("20240101T000000");
    writer.text("20240101T000000");
    writer.text("");
    return writer.take();
  }
  /// The maker's extension with nothing in it.
  static Bytes extended(Bytes info) {
    ByteWriter writer;
    writer.raw(info);
    writer.u8(0);
    writer.u32(0);
    writer.u32(0);
    writer.u32(0);
    writer.u8(0);
    for (int list = 0; list < 5; ++list)
      writer.u32(0);
    writer.u32(0);
    writer.u32(0);
    writer.u32(0);
    return writer.take();
  }

  ObjectStore& objects() { return responder_->state().objects; }
  std::uint64_t freeBytes(std::uint32_t storage) { return objects().store(storage)->free; }

  std::unique_ptr<PTPResponder> responder_;
  std::vector<std::string> complaints_;  ///< about the host, of all that was asked
  std::uint32_t transaction_ = 0;
};

}  // namespace tarvo::simulator

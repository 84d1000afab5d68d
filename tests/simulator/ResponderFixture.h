// A responder in a session, asked operation by operation, without containers.
//
//   class Sending : public ResponderFixture {};
//   TEST_F(Sending, ...) {
//     describe(R"("stores": [{"free": 2000}])");
//     EXPECT_EQ(code(ptp::kSendObject, {}, bytes), kNoValidObjectInfo);
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

  ObjectStore& objects() { return responder_->state().objects; }

  std::unique_ptr<PTPResponder> responder_;
  std::vector<std::string> complaints_;  ///< about the host, of all that was asked
  std::uint32_t transaction_ = 0;
};

}  // namespace tarvo::simulator

// PTP devices that answer from the test, one transaction at a time, without a bus.
//
//   FakePTPConnector connector;
//   connector.answer = [](ptp::Transaction& transaction) {
//     transaction.responseCode = 0x2001;
//     return status::kOK;
//   };
//   ... EXPECT_THAT(connector.log, ElementsAre("connect /dev/bus/usb/001/004#0", "1001",
//   "release"));
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "Utilities/Format.h"
#include "platform/imagecapture/ptp/PTPConnection.h"

namespace tarvo::test {

/// Hands `payload` to the sink of a receiving transaction as the transport does: what does not fit
/// is dropped, but counted.
inline void sendPayload(ptp::Transaction& transaction, std::span<const std::byte> payload) {
  transaction.bytesReceived = payload.size();
  if (!transaction.receive) return;
  const auto room = transaction.receive->room(0, payload.size());
  std::copy_n(payload.begin(), room.size(), room.begin());
  if (!room.empty()) transaction.receive->received(0, room.size());
}

/// The whole payload of a sending transaction.
inline std::vector<std::byte> payloadOf(ptp::Transaction& transaction) {
  std::vector<std::byte> payload;
  while (transaction.send && payload.size() < transaction.send->size()) {
    const auto piece = transaction.send->bytes(payload.size(), 64);
    if (piece.empty()) break;
    payload.insert(payload.end(), piece.begin(), piece.end());
  }
  return payload;
}

class FakePTPConnector : public ptp::PTPConnector {
 public:
  /// What happened, in order: "connect NODE#INTERFACE", "open session", an operation code in
  /// hexadecimal, "watch events", "end watching", "release".
  std::vector<std::string> log;
  /// Runs a transaction; without it every operation is answered with OK.
  std::function<Status(ptp::Transaction&)> answer;
  /// Of the connection whose events are watched: what the device reports goes in here.
  std::function<void(const ptp::Event&)> events;
  Status connectStatus = status::kOK;
  Status sessionStatus = status::kOK;
  std::string why = "it was told to fail";

  std::unique_ptr<ptp::PTPConnection> connect(const ptp::USBInterfaceAddress& address,
                                              Status* failure, std::string* words) override {
    log.push_back(
        formatted("connect %s#%u", address.deviceNode.c_str(), unsigned{address.interfaceNumber}));
    if (connectStatus == status::kOK) return std::make_unique<Connection>(*this);
    if (failure) *failure = connectStatus;
    if (words) *words = why;
    return nullptr;
  }

 private:
  class Connection : public ptp::PTPConnection {
   public:
    explicit Connection(FakePTPConnector& owner) : owner_(owner) {}
    ~Connection() override {
      owner_.log.emplace_back("release");
      owner_.events = nullptr;
    }

    Status openSession() override {
      if (hasSession_) return status::kOK;
      owner_.log.emplace_back("open session");
      hasSession_ = owner_.sessionStatus == status::kOK;
      return owner_.sessionStatus;
    }
    Status closeSession() override { return status::kOK; }

    Status transact(ptp::Transaction& transaction, std::string* words) override {
      owner_.log.push_back(formatted("%04x", unsigned{transaction.operation}));
      if (!owner_.answer) {
        transaction.responseCode = static_cast<std::uint16_t>(status::kPTPOK);
        return status::kOK;
      }
      const Status result = owner_.answer(transaction);
      hasSession_ = hasSession_ && transaction.responseCode != status::kPTPSessionNotOpen;
      if (result != status::kOK && words) *words = owner_.why;
      return result;
    }
    void watchEvents(std::function<void(const ptp::Event&)> handler) override {
      owner_.log.emplace_back(handler ? "watch events" : "end watching");
      owner_.events = std::move(handler);
    }
    const ptp::WireStatistics& statistics() const override { return statistics_; }

   private:
    FakePTPConnector& owner_;
    bool hasSession_ = false;
    ptp::WireStatistics statistics_;
  };
};

}  // namespace tarvo::test

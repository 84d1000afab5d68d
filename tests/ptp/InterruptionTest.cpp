// Somebody wants an end of the running transaction, and the connection is used again afterwards.
#include <gmock/gmock.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
namespace wire = test::wire;

constexpr std::uint16_t kOp = 0x1009;

/// Interrupts, as a signal handler would, in the wait of the given number.
class InterruptedDevice : public test::ScriptedUSBDevice {
 public:
  InterruptedDevice(USBScript& script, std::atomic<bool>& flag, int& waits)
      : ScriptedUSBDevice(script), flag_(flag), waits_(waits) {}
  std::optional<TransferCompletion> wait(std::chrono::milliseconds timeout) override {
    if (waits_ > 0 && --waits_ == 0) flag_ = true;
    return ScriptedUSBDevice::wait(timeout);
  }

 private:
  std::atomic<bool>& flag_;
  int& waits_;
};

class Interruption : public testing::Test {
 protected:
  void SetUp() override {
    Timeouts timeouts;  // Long ones: a test that waits for them would be noticed.
    timeouts.interrupted = &flag;
    connection = std::make_unique<BulkConnection>(
        std::make_unique<InterruptedDevice>(script, flag, waits), timeouts, LogSink(), "it");
    script.out(wire::command(0x1002, 0, {1})).in(wire::response(0x2001, 0));
    ASSERT_EQ(connection->openSession(), 0);
  }
  /// The session is closed, interrupted or not, and nothing else has been said.
  void TearDown() override {
    script.out(wire::command(0x1003, closingID)).in(wire::response(0x2001, closingID));
    connection.reset();
    EXPECT_EQ(script.report(), "");
  }
  Status run(Transaction& transaction, int interruptedWait) {
    waits = interruptedWait;
    return connection->transact(transaction, nullptr);
  }
  void expectInStep(std::uint32_t id) {
    flag = false;
    script.out(wire::command(0x1004, id)).in(wire::response(0x2001, id));
    Transaction next{.operation = 0x1004};
    EXPECT_EQ(run(next, 0), 0);
    EXPECT_EQ(next.responseCode, 0x2001);
  }

  std::atomic<bool> flag{false};
  int waits = 0;
  std::uint32_t closingID = 3;
  USBScript script;
  std::unique_ptr<BulkConnection> connection;
};

TEST_F(Interruption, EndsASilentTransactionByACancelRequest) {
  script.out(wire::command(kOp, 1)).recovery(1);
  Transaction transaction{.operation = kOp};
  EXPECT_EQ(run(transaction, 2), status::kCancelled);
  expectInStep(2);
}

TEST_F(Interruption, EndsADataPhaseOfEitherDirection) {
  closingID = 4;
  Bytes memory(8000000);
  MemorySink sink(memory);
  script.out(wire::command(kOp, 1)).in(wire::data(kOp, 1, wire::payload(4000000), 8000000));
  script.recovery(1);
  Transaction receiving{.operation = kOp, .receive = &sink};
  EXPECT_EQ(run(receiving, 4), status::kCancelled);
  EXPECT_LT(sink.filled(), 4000000U);

  flag = false;
  PiecewiseSource source(wire::payload(8000000), SIZE_MAX);
  script.out(wire::command(0x100D, 2)).recovery(2);
  Transaction sending{.operation = 0x100D, .send = &source};
  EXPECT_EQ(run(sending, 1), status::kCancelled);
  expectInStep(3);
}

TEST_F(Interruption, KeepsWhatComesNextFromTheDeviceUntilItIsTakenBack) {
  flag = true;
  Transaction transaction{.operation = kOp};
  EXPECT_EQ(run(transaction, 0), status::kCancelled);
  EXPECT_EQ(connection->closeSession(), status::kCancelled);
  // No transaction, so no id was used either; the session is closed in spite of the flag.
  closingID = 1;
}

}  // namespace
}  // namespace tarvo::ptp

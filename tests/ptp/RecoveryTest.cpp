// Transactions with a device that does not keep to the protocol, and what is left of it afterwards.
#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
using testing::HasSubstr;
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

class RecoveryTest : public testing::Test {
 protected:
  void SetUp() override {
    script.opens();
    connection = std::make_unique<BulkConnection>(
        std::make_unique<InterruptedDevice>(script, interrupted, waits), timeouts, LogSink(), "it");
    ASSERT_EQ(connection->openSession(), 0);
  }
  void TearDown() override {
    connection.reset();
    EXPECT_EQ(script.report(), "");
  }

  Status receive(std::size_t room) {
    PiecewiseSink sink(room, SIZE_MAX);
    sink.cancelAt = cancelAt;
    transaction = Transaction{.operation = kOp, .receive = &sink};
    const Status failure = connection->transact(transaction, &why);
    EXPECT_TRUE(sink.inOrder());
    return failure;
  }
  Status send(std::size_t size, std::uint64_t failAt = UINT64_MAX) {
    PiecewiseSource source(wire::payload(size), SIZE_MAX);
    source.failAt = failAt;
    transaction = Transaction{.operation = kOp, .send = &source};
    return connection->transact(transaction, &why);
  }
  /// The next transaction works, and the session is closed in the end.
  void expectInStep(std::uint32_t id) {
    script.answers(0x1004, id).answers(0x1003, id + 1);
    Transaction next{.operation = 0x1004};
    EXPECT_EQ(connection->transact(next, &why), 0) << why;
  }

  std::atomic<bool> interrupted{false};
  int waits = 0;
  Timeouts timeouts = shortTimeouts();
  USBScript script;
  std::unique_ptr<BulkConnection> connection;
  Transaction transaction;
  std::string why;
  std::uint64_t cancelAt = UINT64_MAX;
};

TEST_F(RecoveryTest, SaysWhatIsWrongWithAnAnswerAndGetsBackInStep) {
  const struct {
    const char* words;
    std::vector<Bytes> answers;
  } rows[] = {
      {"transaction 77 instead of", {wire::response(0x2001, 77)}},
      {"container of type 4", {wire::container(12, 4, 0x4002, 0)}},
      {"instead of 0x1009", {wire::data(0x1008, 0, wire::payload(10))}},
      {"no container but 5 bytes", {wire::payload(5)}},
      {"no container", {wire::container(3, 3, 0x2001, 0)}},
      {"more than the 100 bytes", {wire::data(kOp, 0, wire::payload(300), 100)}},
      {"more than the 20000 bytes", {wire::data(kOp, 0, wire::payload(20100), 20000)}},
      {"announced 100 bytes of data and sent 50", {wire::data(kOp, 0, {}, 100), wire::payload(50)}},
      {"announced 5000000 bytes", {wire::data(kOp, 0, wire::payload(2000000), 5000000)}},
      {"announced 4294967282 bytes", {wire::data(kOp, 0, wire::payload(400), 0xFFFFFFFE - 12)}},
      {"a response was due",
       {wire::data(kOp, 0, wire::payload(10)), wire::data(kOp, 0, wire::payload(10))}},
      {"says 16 bytes and has 12", {wire::container(16, 3, 0x2001, 0)}},
      {"says 36 bytes and has 36", {wire::response(0x2001, 0, {1, 2, 3, 4, 5, 6})}},
  };
  std::uint32_t id = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.words);
    script.out(wire::command(kOp, ++id));
    for (Bytes answer : row.answers) {
      // Rows are written for transaction 0.
      if (answer.size() >= 12 && answer[8] == std::byte{0}) answer[8] = static_cast<std::byte>(id);
      script.in(answer);
    }
    script.recovery(id);
    EXPECT_EQ(receive(1000), status::kICAProtocolError);
    EXPECT_THAT(why, HasSubstr(row.words));
    EXPECT_EQ(transaction.responseCode, 0);
  }
  expectInStep(id + 1);
}

TEST_F(RecoveryTest, EndsADeviceThatGoesOnSendingBeyondTheRoomOrTheTime) {
  class Endless : public test::ScriptedUSBDevice {
   public:
    using ScriptedUSBDevice::ScriptedUSBDevice;
    void submit(std::uint8_t, std::span<std::byte> buffer, std::uint64_t tag) override {
      const Bytes header = wire::container(0xFFFFFFFF, 2, kOp, 0);
      if (tag == 1) std::copy(header.begin(), header.end(), buffer.begin());
      last_ = {tag, TransferResult::kCompleted, buffer.size()};
    }
    std::optional<TransferCompletion> wait(std::chrono::milliseconds) override { return last_; }
    void cancelAll() override { last_.reset(); }

   private:
    std::optional<TransferCompletion> last_;
  };
  /// Has room for whatever comes.
  class Bottomless : public DataSink {
   public:
    std::span<std::byte> room(std::uint64_t, std::size_t length) override {
      return std::span(memory_).first(std::min(length, memory_.size()));
    }
    bool received(std::uint64_t, std::size_t) override { return true; }

   private:
    Bytes memory_{std::size_t{1} << 16};
  };
  MemorySink full({});
  Bottomless bottomless;
  for (DataSink* sink : {static_cast<DataSink*>(&full), static_cast<DataSink*>(&bottomless)}) {
    const bool isFull = sink == &full;
    Timeouts limits = shortTimeouts();
    if (!isFull) limits.whole = limits.bulk;
    limits.leaving = limits.recovery;
    USBScript way;
    way.recovery(0).deviceReset().deviceStatus(0x2001);
    BulkConnection endless(std::make_unique<Endless>(way), limits, LogSink(), "it");
    Transaction wanted{.operation = kOp, .receive = sink};
    EXPECT_EQ(endless.transact(wanted, &why),
              isFull ? status::kICAProtocolError : status::kICAOutOfTime);
    EXPECT_THAT(why, HasSubstr(isFull ? "goes on sending" : "used up all of its time"));
    if (!isFull) {
      EXPECT_EQ(endless.transact(wanted, nullptr), status::kICAOutOfTime);
    }
    EXPECT_EQ(way.report(), "");
  }
  script.answers(0x1003, 1);
}

TEST_F(RecoveryTest, TakesTheResponseBehindAStalledDataPhase) {
  // Only our own endpoints are cleared, whatever the device says.
  script.out(wire::command(kOp, 1)).inEnds(TransferResult::kStalled);
  script.deviceStatus(0x201F, {0x05, 0x00}).clearHalt(0x81).in(wire::response(0x200F, 1));
  EXPECT_EQ(receive(10), 0);
  EXPECT_EQ(transaction.responseCode, 0x200F);

  script.out(wire::command(kOp, 2));
  script.out(wire::data(kOp, 2, wire::payload(100)), TransferResult::kStalled);
  script.deviceStatus(0x201F, {0x02, 0x81}).clearHalt(0x02).clearHalt(0x81);
  script.in(wire::response(0x200C, 2));
  EXPECT_EQ(send(100), 0);
  EXPECT_EQ(transaction.responseCode, 0x200C);
  expectInStep(3);
}

TEST_F(RecoveryTest, WaitsForADeviceThatIsBusyCancelling) {
  script.out(wire::command(kOp, 1)).inEnds(TransferResult::kError);
  script.cancelRequest(1).deviceStatus(0x2019).deviceStatus(0x201F, {0x81}).clearHalt(0x81);
  script.deviceStatus(0x2001);
  EXPECT_EQ(receive(10), status::kIOError);
  expectInStep(2);
}

TEST(Recovery, ResetsADeviceThatStaysBusyAndOpensAnotherSession) {
  Timeouts impatient = shortTimeouts();
  impatient.recovery = std::chrono::milliseconds(0);
  USBScript script;
  for (int session = 0; session < 2; ++session) {
    script.opens();
    script.out(wire::command(kOp, 1)).inEnds(TransferResult::kError);
    script.cancelRequest(1).deviceStatus(0x2019).deviceReset().deviceStatus(0x2001);
  }
  auto connection = connectTo(script, TransactionIDs(), impatient);
  Transaction transaction{.operation = kOp};
  for (int session = 0; session < 2; ++session) {
    EXPECT_EQ(connection->openSession(), 0);
    EXPECT_EQ(connection->transact(transaction, nullptr), status::kIOError);
  }
  EXPECT_EQ(script.report(), "");
}

TEST_F(RecoveryTest, ReadsADeviceWithoutClassRequestsToItsEndOrResetsItByPort) {
  const auto refuse = [&](std::uint32_t id, TransferResult result) {
    script.out(wire::command(kOp, id)).inEnds(TransferResult::kOverflow);
    script.cancelRequest(id, result).control(0xA1, 0x67, {}, result);
  };
  refuse(1, TransferResult::kStalled);
  script.in(wire::payload(70000)).inEnds(TransferResult::kStalled).clearHalt(0x81);
  script.in(wire::response(0x2007, 1));
  EXPECT_EQ(receive(10), status::kICAProtocolError);

  // Without an answer on endpoint 0, halts are left alone: the system would ask for seconds.
  std::uint32_t id = 2;
  for (const auto result : {TransferResult::kStalled, TransferResult::kError}) {
    refuse(id, result);
    if (result == TransferResult::kError)
      script.inEnds(TransferResult::kStalled).control(0xA1, 0x67, {}, result);
    script.control(0x21, 0x66, {}, result).portReset();
    EXPECT_EQ(receive(10), status::kICAProtocolError);
    script.opens();
    EXPECT_EQ(connection->openSession(), 0);
    id = 1;
  }
  expectInStep(1);
}

TEST_F(RecoveryTest, CancelsForTheSinkAndForTheSource) {
  cancelAt = 1U << 18;
  script.out(wire::command(kOp, 1)).in(wire::data(kOp, 1, wire::payload(1500000), 8000000));
  script.recovery(1);
  EXPECT_EQ(receive(8000000), status::kCancelled);

  script.out(wire::command(kOp, 2)).recovery(2);
  EXPECT_EQ(send(1000, 0), status::kCancelled);
  expectInStep(3);
}

TEST(Recovery, WaitsOnWithAWordForWhatTakesLongByItsNature) {
  for (const std::uint16_t operation : {0x100F, 0x1005}) {
    const bool isSlow = operation == 0x100F;
    USBScript script;
    script.opens();
    script.out(wire::command(operation, 1));
    Timeouts timeouts = shortTimeouts();
    timeouts.waiting = [&] { script.in(wire::response(0x2001, 1)); };
    if (!isSlow) script.recovery(1).silence();
    auto connection = connectTo(script, TransactionIDs(), timeouts);
    EXPECT_EQ(connection->openSession(), 0);
    Transaction transaction{.operation = operation};
    EXPECT_EQ(connection->transact(transaction, nullptr),
              isSlow ? status::kOK : status::kICATimeout);
    EXPECT_EQ(script.report(), "");
    script.silence();
  }
}

TEST_F(RecoveryTest, TreatsSilenceOnTheControlEndpointAsATimeout) {
  script.out(wire::command(kOp, 1)).in(wire::response(0x2001, 55));
  script.cancelRequest(1, TransferResult::kTimedOut).portReset();
  EXPECT_EQ(receive(10), status::kICAProtocolError);
  EXPECT_EQ(receive(10), status::kICATimeout);
}

/// Somebody wants an end of the running transaction.
class Interruption : public RecoveryTest {
 protected:
  Interruption() {
    timeouts = Timeouts();  // Long ones: a test that waits for them would be noticed.
    timeouts.interrupted = &interrupted;
  }
};

TEST_F(Interruption, EndsATransactionByACancelRequest) {
  script.out(wire::command(kOp, 1)).recovery(1);
  waits = 2;
  EXPECT_EQ(receive(10), status::kCancelled);

  interrupted = false;
  script.out(wire::command(kOp, 2)).in(wire::data(kOp, 2, wire::payload(4000000), 8000000));
  script.recovery(2);
  waits = 4;
  EXPECT_EQ(receive(8000000), status::kCancelled);

  interrupted = false;
  script.out(wire::command(kOp, 3)).recovery(3);
  waits = 1;
  EXPECT_EQ(send(8000000), status::kCancelled);
  interrupted = false;
  expectInStep(4);
}

TEST_F(Interruption, KeepsWhatComesNextFromTheDeviceUntilItIsTakenBack) {
  interrupted = true;
  EXPECT_EQ(receive(10), status::kCancelled);
  EXPECT_EQ(connection->closeSession(), status::kCancelled);
  // No transaction, so no id was used either; the session is closed in spite of the flag.
  script.answers(0x1003, 1);
}

TEST_F(RecoveryTest, GetsBackInStepWhenASinkRaises) {
  class Raising : public MemorySink {
   public:
    using MemorySink::MemorySink;
    bool received(std::uint64_t, std::size_t) override { throw std::runtime_error("no space"); }
  };
  Bytes memory(8000000);
  Raising sink(memory);
  script.out(wire::command(kOp, 1)).in(wire::data(kOp, 1, wire::payload(1500000), 8000000));
  script.recovery(1);
  Transaction wanted{.operation = kOp, .receive = &sink};
  EXPECT_THROW(static_cast<void>(connection->transact(wanted, nullptr)), std::runtime_error);
  expectInStep(2);
}

// Every kind of fault in every kind of transaction: a named status, a connection that can be used
// again unless there is nobody left to talk to, and a sink that gets what it has room for.

constexpr std::size_t kRoom = 3000;
constexpr std::uint32_t kID = 1;

/// What the device does in place of an answer, and what the host makes of it.
struct Fault {
  const char* name;
  std::function<void(USBScript&)> happen;
  Status expected;
  bool isUsableAfterwards = true;
};

void stall(USBScript& script) {
  script.inEnds(TransferResult::kStalled).deviceStatus(0x2001).clearHalt(0x81).recovery(kID);
}

/// The session is closed, as far as the device lets it be, and nothing more is said.
void silence(USBScript& script) {
  script.recovery(kID).answers(0x1003, kID + 1);
}

/// In place of the response, which every transaction has.
const Fault kFaultsOfAResponse[] = {
    {"stall", stall, status::kIOError},
    {"silence", silence, status::kICATimeout, false},
    {"short packet", [](USBScript& script) { script.in(Bytes(8, std::byte{12})).recovery(kID); },
     status::kICAProtocolError},
    {"babble", [](USBScript& script) { script.inEnds(TransferResult::kOverflow).recovery(kID); },
     status::kICAProtocolError},
    {"bus error", [](USBScript& script) { script.inEnds(TransferResult::kError).recovery(kID); },
     status::kIOError},
    {"unplug", [](USBScript& script) { script.vanish(); }, status::kICADeviceGone, false},
};

/// In the middle of a data phase of 100,000 bytes from the device.
const Fault kFaultsOfDataIn[] = {
    {"stall", stall, status::kIOError},
    {"silence", silence, status::kICATimeout, false},
    {"short packet", [](USBScript& script) { script.in(wire::payload(100)).recovery(kID); },
     status::kICAProtocolError},
    {"babble",
     [](USBScript& script) {
       script.inEnds(TransferResult::kOverflow, wire::payload(1024)).recovery(kID);
     },
     status::kICAProtocolError},
    {"unplug", [](USBScript& script) { script.vanish(); }, status::kICADeviceGone, false},
};

class Faults : public testing::Test {
 protected:
  /// Runs `transaction` in a session with a device that does its part of `begin` and then fails.
  static void expectFault(const Fault& fault, const char* kind, const Bytes& begin,
                          const Bytes& dataOut, Transaction transaction) {
    SCOPED_TRACE(testing::Message() << fault.name << " in a transaction that " << kind);
    USBScript script;
    script.opens();
    script.out(wire::command(kOp, kID));
    if (!dataOut.empty()) script.out(dataOut);
    if (!begin.empty()) script.inUnterminated(begin);
    fault.happen(script);
    auto connection = connectTo(script);
    ASSERT_EQ(connection->openSession(), 0);
    std::string why;
    EXPECT_EQ(connection->transact(transaction, &why), fault.expected);
    EXPECT_FALSE(why.empty());
    EXPECT_EQ(transaction.responseCode, 0);
    EXPECT_EQ(script.report(), "");

    Transaction next{.operation = 0x1004};
    if (fault.isUsableAfterwards) {
      for (std::uint16_t operation : {0x1004, 0x1003}) {
        const std::uint32_t id = operation == 0x1004 ? kID + 1 : kID + 2;
        script.answers(operation, id);
      }
    }
    EXPECT_EQ(connection->transact(next, nullptr), fault.isUsableAfterwards ? 0 : fault.expected);
    connection.reset();
    EXPECT_EQ(script.report(), "");
  }
};

TEST_F(Faults, OfTheResponseAreNamedAndGotOver) {
  for (const Fault& fault : kFaultsOfAResponse) {
    expectFault(fault, "has no data", {}, {}, {.operation = kOp});

    PiecewiseSink sink(kRoom, SIZE_MAX);
    expectFault(fault, "receives", wire::data(kOp, kID, wire::payload(4000 - 12)), {},
                {.operation = kOp, .receive = &sink});
    EXPECT_TRUE(sink.inOrder());
    EXPECT_EQ(sink.filled(), kRoom);

    PiecewiseSource source(wire::payload(700), SIZE_MAX);
    expectFault(fault, "sends", {}, wire::data(kOp, kID, wire::payload(700)),
                {.operation = kOp, .send = &source});
  }
}

TEST_F(Faults, OfDataFromTheDeviceAreNamedAndGotOver) {
  for (const Fault& fault : kFaultsOfDataIn) {
    for (const std::size_t room : {std::size_t{0}, kRoom, std::size_t{400000}}) {
      PiecewiseSink sink(room, SIZE_MAX);
      expectFault(fault, "is receiving", wire::data(kOp, kID, wire::payload(131072 - 12), 400000),
                  {}, {.operation = kOp, .receive = &sink});
      EXPECT_TRUE(sink.inOrder()) << fault.name;
    }
  }
}

TEST_F(Faults, OfDataToTheDeviceAreNamedAndGotOver) {
  const Bytes data = wire::data(kOp, kID, wire::payload(700));
  const Fault faults[] = {
      {"stall",
       [&](USBScript& script) {
         script.out(data, TransferResult::kStalled).deviceStatus(0x2001).clearHalt(0x02);
         script.recovery(kID);
       },
       status::kIOError},
      {"bus error",
       [&](USBScript& script) { script.out(data, TransferResult::kError).recovery(kID); },
       status::kIOError},
      {"unplug", [](USBScript& script) { script.vanish(); }, status::kICADeviceGone, false},
  };
  for (const Fault& fault : faults) {
    PiecewiseSource source(wire::payload(700), SIZE_MAX);
    expectFault(fault, "is sending", {}, {}, {.operation = kOp, .send = &source});
  }
}

}  // namespace
}  // namespace tarvo::ptp

// Every kind of fault in every kind of transaction: a named status, a connection that can be used
// again unless there is nobody left to talk to, and a sink that gets what it has room for. What can
// be wrong with a container stands in RecoveryTest.cpp.
#include <gmock/gmock.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
namespace wire = test::wire;

constexpr std::uint16_t kOp = 0x1009;
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

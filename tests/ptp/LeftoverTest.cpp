// What a process that was killed has left behind in the device, when the next one begins, and
// sessions: their ids, and one that was left open.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::SimulatedUSBDevice;
using test::USBScript;
namespace wire = test::wire;

TEST(Leftover, IsPassedOverBeforeTheFirstAnswer) {
  const struct {
    const char* name;
    std::vector<Bytes> stale;
  } rows[] = {
      {"data and response",
       {wire::data(0x1009, 41, wire::payload(90)), wire::response(0x2001, 41)}},
      {"rest of a large object", {wire::payload(100000), wire::response(0x2001, 41)}},
      {"data of another operation", {wire::data(0x1001, 0, wire::payload(90))}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    USBScript script;
    for (const Bytes& bytes : row.stale)
      script.in(bytes);
    script.opens();
    // In step now: the same is an error.
    script.out(wire::command(0x1004, 1)).in(row.stale.front()).recovery(1);
    script.answers(0x1003, 2);
    auto connection = connectTo(script);
    EXPECT_EQ(connection->openSession(), 0);
    EXPECT_EQ(run(*connection, 0x1004), status::kICAProtocolError);
    connection.reset();
    EXPECT_EQ(script.report(), "");
  }
}

TEST(Leftover, IsGotRidOfKindlyThenByAResetUntilTheDeviceAnswers) {
  const auto garbage = [](USBScript& script) {
    script.out(wire::command(0x1002, 0, {1})).in(wire::payload(300));
  };
  const auto reset = [](USBScript& script) {
    script.cancelRequest(0).deviceReset().deviceStatus(0x2001);
  };
  USBScript kind;
  garbage(kind);
  kind.recovery(0).opens();
  USBScript hard;
  garbage(hard);
  garbage(hard.recovery(0));
  reset(hard);
  hard.opens();
  USBScript silent;  // It has swallowed the command as the data of somebody else.
  silent.out(wire::command(0x1002, 0, {1}));
  reset(silent);
  silent.opens();
  USBScript stalled;
  stalled.out(wire::command(0x1002, 0, {1})).inEnds(TransferResult::kStalled);
  stalled.deviceStatus(0x2001).clearHalt(0x81).recovery(0).opens();
  USBScript busy;  // It takes no command before it has sent all that somebody else has asked for.
  busy.out(wire::command(0x1002, 0, {1}), TransferResult::kTimedOut);
  busy.in(wire::payload(100000)).cancelRequest(0).opens();
  USBScript done;  // The same; a cancel request after the end would be too much for some.
  done.out(wire::command(0x1002, 0, {1}), TransferResult::kTimedOut);
  done.in(wire::payload(1000)).in(wire::response(0x2001, 41)).opens();
  for (USBScript* script : {&kind, &hard, &silent, &stalled, &busy, &done}) {
    script->answers(0x1003, 1);
    auto connection = connectTo(*script);
    EXPECT_EQ(connection->openSession(), 0);
    connection.reset();
    EXPECT_EQ(script->report(), "");
  }

  USBScript liar;
  garbage(liar);
  garbage(liar.recovery(0));
  reset(liar);
  garbage(liar);
  liar.recovery(0);
  EXPECT_EQ(connectTo(liar)->openSession(), status::kICAProtocolError);
  EXPECT_EQ(liar.report(), "");
}

/// A host that is killed.
class KilledHost {
 public:
  explicit KilledHost(const std::shared_ptr<simulator::PTPCamera>& camera) : device_(camera) {}
  void write(Bytes bytes) {
    device_.submit(0x02, bytes, 0);
    EXPECT_TRUE(device_.wait({}));
  }
  void read(std::size_t size) {
    Bytes room(size);
    device_.submit(0x81, room, 0);
    EXPECT_TRUE(device_.wait({}));
  }

 private:
  SimulatedUSBDevice device_;
};

// Outside a session all ids are 0: nothing tells the answer to one process from that to another.
TEST(Leftover, OfAHostThatWasKilledAnywhereIsGotOver) {
  const struct {
    bool hadSession;
    std::vector<Bytes> written;
    std::size_t read;  ///< room for what it still took, 0: none
  } deaths[] = {
      {false, {wire::command(0x1001, 0)}, 0},
      {false, {wire::command(0x1001, 0)}, 4096},
      {true, {wire::command(0x1009, 1, {1})}, 1U << 20},
      {true, {wire::command(0x1009, 1, {1})}, 0},
      {true,
       {wire::command(0x1016, 1, {0xD100}), wire::data(0x1016, 1, wire::payload(4090), 10000000)},
       0},
      {true, {wire::command(0x1016, 1, {0xD100})}, 0},
  };
  const std::string strict = R"({"checksTransactionIDs": true, "noClassRequests": true})";
  for (unsigned i = 0; i < 2 * std::size(deaths); ++i) {
    SCOPED_TRACE(i);
    const auto camera = test::simulatedCamera(R"({
        "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"}, "deviceInfo": {},
        "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
        "stores": [{"content": [{"file": "A.MOV", "size": 10485760}]}],
        "habits": )" + (i % 2 == 0 ? "{}" : strict) +
                                              "}");
    const auto& death = deaths[i / 2];
    {
      KilledHost host(camera);
      if (death.hadSession) host.write(wire::command(0x1002, 0, {1}));
      if (death.hadSession) host.read(512);
      for (const Bytes& bytes : death.written)
        host.write(bytes);
      if (death.read > 0) host.read(death.read);
    }
    BulkConnection connection(std::make_unique<SimulatedUSBDevice>(camera), Timeouts(), LogSink(),
                              "the camera");
    PiecewiseSink sink(4096, 4096);
    Transaction info{.operation = 0x1001, .receive = &sink};
    if (!death.hadSession) {
      EXPECT_EQ(connection.transact(info, nullptr), 0);
      EXPECT_GT(info.bytesReceived, 0U);
    }
    EXPECT_EQ(connection.openSession(), 0);
    camera->forgetViolations();  // what the killed one has left undone
    Transaction count{.operation = 0x1006, .parameters = {0xFFFFFFFF}, .parameterCount = 1};
    EXPECT_EQ(connection.transact(count, nullptr), 0);
    EXPECT_EQ(count.responseParameters[0], 1U);
  }
}

TEST(Session, CountsTransactionsAnewWithoutTheReservedIDsAndFromZeroOutside) {
  USBScript script;
  script.answers(0x1001, 0);
  for (int session = 0; session < 2; ++session) {
    script.opens();
    for (std::uint32_t id : {0xFFFFFFFEU, 1U})
      script.answers(0x1004, id);
    script.answers(0x1003, 2);
  }

  auto connection = connectTo(script, TransactionIDs(0xFFFFFFFD));
  EXPECT_EQ(run(*connection, 0x1001), 0);
  for (int session = 0; session < 2; ++session) {
    EXPECT_EQ(connection->openSession(), 0);
    EXPECT_EQ(connection->openSession(), 0);  // Open already: nothing is sent.
    EXPECT_EQ(run(*connection, 0x1004), 0);
    EXPECT_EQ(run(*connection, 0x1004), 0);
    EXPECT_EQ(session == 0 ? connection->closeSession() : 0, 0);
  }
  connection.reset();  // Closes the other one.
  EXPECT_EQ(script.report(), "");
}

TEST(Session, OfAKilledProcessIsClosedAndReopenedOrTakenOver) {
  const struct {
    const char* what;
    std::uint16_t closed;                              ///< answer to closing it
    std::uint16_t reopened;                            ///< answer to opening ours then
    bool resets;                                       ///< the device knows device reset
    TransferResult port = TransferResult::kCompleted;  ///< of a reset by port, where it does not
  } rows[] = {
      {"closes", 0x2001, 0x2001, true},
      {"closes only by a reset", 0x2004, 0x201E, true},
      {"closes only by a reset by port", 0x2004, 0x201E, false},
      {"cannot be closed", 0x2002, 0x201E, false, TransferResult::kError},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    USBScript script;
    script.opens(0x201E);
    script.out(wire::command(0x1003, 1)).in(wire::response(row.closed, 1));
    script.opens(row.reopened);
    if (row.reopened != 0x2001 && row.resets) script.deviceReset().deviceStatus(0x2001).opens();
    if (!row.resets) script.control(0x21, 0x66, {}, TransferResult::kStalled).portReset(row.port);
    if (!row.resets && row.port == TransferResult::kCompleted) script.opens();
    script.answers(0x1003, 1);
    EXPECT_EQ(connectTo(script)->openSession(), 0);
    EXPECT_EQ(script.report(), "");
  }
}

}  // namespace
}  // namespace tarvo::ptp

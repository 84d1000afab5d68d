// What a process that was killed has left behind in the device, when the next one begins.
#include <gmock/gmock.h>

#include "tests/ptp/Connecting.h"
#include "tests/support/SimulatedUSBDevice.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::SimulatedUSBDevice;
using test::USBScript;
namespace wire = test::wire;

USBScript& opens(USBScript& script) {
  return script.out(wire::command(0x1002, 0, {1})).in(wire::response(0x2001, 0));
}

Status run(BulkConnection& connection, std::uint16_t operation) {
  Transaction transaction{.operation = operation};
  return connection.transact(transaction, nullptr);
}

TEST(Leftover, IsPassedOverBeforeTheFirstAnswer) {
  const struct {
    const char* name;
    std::vector<Bytes> stale;
  } rows[] = {
      {"response", {wire::response(0x2001, 41)}},
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
    opens(script);
    // In step now: the same is an error.
    script.out(wire::command(0x1004, 1)).in(row.stale.front()).recovery(1);
    script.out(wire::command(0x1003, 2)).in(wire::response(0x2001, 2));
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
  opens(kind.recovery(0));
  USBScript hard;
  garbage(hard);
  garbage(hard.recovery(0));
  reset(hard);
  opens(hard);
  USBScript silent;  // It has swallowed the command as the data of somebody else.
  silent.out(wire::command(0x1002, 0, {1}));
  reset(silent);
  opens(silent);
  USBScript stalled;
  stalled.out(wire::command(0x1002, 0, {1})).inEnds(TransferResult::kStalled);
  opens(stalled.deviceStatus(0x2001).clearHalt(0x81).recovery(0));
  for (USBScript* script : {&kind, &hard, &silent, &stalled}) {
    script->out(wire::command(0x1003, 1)).in(wire::response(0x2001, 1));
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

/// The connection of the next process.
BulkConnection reconnected(const std::shared_ptr<simulator::PTPCamera>& camera) {
  return {std::make_unique<SimulatedUSBDevice>(camera), Timeouts(), LogSink(), "the camera"};
}

// Outside a session all ids are 0: nothing tells the answer to one process from that to another.
TEST(Leftover, OfAProcessThatAskedTheSameOutsideASessionDoesNotKeepTheNextOneOut) {
  const auto camera = test::simulatedCamera(R"({
      "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"}, "deviceInfo": {}})");
  for (const std::size_t taken : {0, 1}) {
    {
      KilledHost host(camera);
      host.write(wire::command(0x1001, 0));
      for (std::size_t i = 0; i < taken; ++i)
        host.read(4096);
    }
    auto connection = reconnected(camera);
    PiecewiseSink sink(4096, 4096);
    Transaction info{.operation = 0x1001, .receive = &sink};
    EXPECT_EQ(connection.transact(info, nullptr), 0) << taken;
    EXPECT_GT(info.bytesReceived, 0U) << taken;
    EXPECT_EQ(connection.openSession(), 0) << taken;
    EXPECT_EQ(run(connection, 0x1004), 0) << taken;
    camera->forgetViolations();  // what the killed one has left undone
  }
}

TEST(Leftover, OfAHostThatWasKilledInTheMiddleOfADataPhaseIsTEST(
                   Leftover, OfAHostThatWasKilledInTheMiddleOfADataPhaseIsGotOver)) {
  const std::function<void(KilledHost&)> deaths[] = {
      [](KilledHost& host) {
        host.write(wire::command(0x1009, 1, {1}));
        host.read(1U << 20);
      },
      [](KilledHost& host) { host.write(wire::command(0x1009, 1, {1})); },
      [](KilledHost& host) {
        host.write(wire::command(0x1016, 1, {0xD100}));
        host.write(wire::data(0x1016, 1, wire::payload(4090), 10000000));
      },
      [](KilledHost& host) { host.write(wire::command(0x1016, 1, {0xD100})); },
  };
  const std::string none = "{}";
  const std::string strict = R"({"checksTransactionIDs": true, "noClassRequests": true})";
  for (unsigned i = 0; i < 2 * std::size(deaths); ++i) {
    const auto camera = test::simulatedCamera(R"({
        "usb": {"vendor": "0xF055", "product": "0x0302", "name": "Lumo"}, "deviceInfo": {},
        "properties": [{"code": "0xD100", "type": "AUINT8", "value": [1], "writable": true}],
        "stores": [{"content": [{"file": "A.MOV", "size": 10485760}]}],
        "habits": )" + (i % 2 == 0 ? none : strict) +
                                              "}");
    {
      KilledHost host(camera);
      host.write(wire::command(0x1002, 0, {1}));
      host.read(512);
      deaths[i / 2](host);
    }
    auto connection = reconnected(camera);
    EXPECT_EQ(connection.openSession(), 0);
    camera->forgetViolations();  // what the killed one has left undone
    Transaction count{.operation = 0x1006, .parameters = {0xFFFFFFFF}, .parameterCount = 1};
    EXPECT_EQ(connection.transact(count, nullptr), 0);
    EXPECT_EQ(count.responseParameters[0], 1U);
  }
}

}  // namespace
}  // namespace tarvo::ptp

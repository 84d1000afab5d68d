// Sessions: ids, closing, and what a process that was killed leaves behind in the device.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::Bytes;
using test::USBScript;
namespace wire = test::wire;

USBScript& opens(USBScript& script, std::uint16_t code = 0x2001) {
  return script.out(wire::command(0x1002, 0, {1})).in(wire::response(code, 0));
}

USBScript& closes(USBScript& script, std::uint32_t id) {
  return script.out(wire::command(0x1003, id)).in(wire::response(0x2001, id));
}

Status run(BulkConnection& connection, std::uint16_t operation) {
  Transaction transaction{.operation = operation};
  return connection.transact(transaction, nullptr);
}

TEST(Session, CountsTransactionsFromOneInEachSessionAndFromZeroOutside) {
  USBScript script;
  script.out(wire::command(0x1001, 0)).in(wire::response(0x2001, 0));
  opens(script);
  script.out(wire::command(0x1004, 1)).in(wire::response(0x2001, 1));
  script.out(wire::command(0x1004, 2)).in(wire::response(0x2001, 2));
  closes(script, 3);
  script.out(wire::command(0x1001, 0)).in(wire::response(0x2001, 0));
  opens(script);
  script.out(wire::command(0x1004, 1)).in(wire::response(0x2001, 1));
  closes(script, 2);  // By the destructor.

  auto connection = connectTo(script);
  EXPECT_EQ(run(*connection, 0x1001), 0);
  EXPECT_EQ(connection->openSession(), 0);
  EXPECT_EQ(connection->openSession(), 0);  // Open already: nothing is sent.
  EXPECT_EQ(run(*connection, 0x1004), 0);
  EXPECT_EQ(run(*connection, 0x1004), 0);
  EXPECT_EQ(connection->closeSession(), 0);
  EXPECT_EQ(connection->closeSession(), 0);
  EXPECT_EQ(run(*connection, 0x1001), 0);
  EXPECT_EQ(connection->openSession(), 0);
  EXPECT_EQ(run(*connection, 0x1004), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, WrapsTransactionIDsOverTheReservedOnes) {
  USBScript script;
  opens(script);
  for (std::uint32_t id : {0xFFFFFFFEU, 1U})
    script.out(wire::command(0x1004, id)).in(wire::response(0x2001, id));
  closes(script, 2);
  auto connection = connectTo(script, TransactionIDs(0xFFFFFFFD));
  EXPECT_EQ(connection->openSession(), 0);
  EXPECT_EQ(run(*connection, 0x1004), 0);
  EXPECT_EQ(run(*connection, 0x1004), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, HandsOnTheCodeOfADeviceThatRefuses) {
  USBScript script;
  opens(script, 0x2019);
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0x2019);
  connection.reset();
  EXPECT_EQ(script.report(), "");  // No session, so none is closed.
}

TEST(Session, ClosesAndReopensWhatAKilledProcessLeftOpen) {
  USBScript script;
  opens(script, 0x201E);
  closes(script, 1);
  opens(script);
  closes(script, 1);
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, ResetsADeviceWhoseOldSessionDoesNotClose) {
  USBScript script;
  opens(script, 0x201E);
  script.out(wire::command(0x1003, 1)).in(wire::response(0x2004, 1));
  opens(script, 0x201E);
  script.deviceReset().deviceStatus(0x2001);
  opens(script);
  closes(script, 1);
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, TakesOverASessionThatNothingCloses) {
  USBScript script;
  opens(script, 0x201E);
  script.out(wire::command(0x1003, 1)).in(wire::response(0x2002, 1));
  opens(script, 0x201E);
  script.control(0x21, 0x66, {}, TransferResult::kStalled);
  closes(script, 1);
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, PassesOverStaleAnswersBeforeTheFirstOne) {
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
    closes(script, 2);
    auto connection = connectTo(script);
    EXPECT_EQ(connection->openSession(), 0);
    EXPECT_EQ(run(*connection, 0x1004), status::kICAProtocolError);
    connection.reset();
    EXPECT_EQ(script.report(), "");
  }
}

TEST(Session, TriesOnceMoreWhenTheFirstAnswerIsGarbage) {
  USBScript script;
  script.out(wire::command(0x1002, 0, {1})).in(wire::payload(300)).recovery(0);
  opens(script);
  closes(script, 1);
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0);
  connection.reset();
  EXPECT_EQ(script.report(), "");

  USBScript liar;
  for (int i = 0; i < 2; ++i)
    liar.out(wire::command(0x1002, 0, {1})).in(wire::response(0x2001, 5)).recovery(0);
  EXPECT_EQ(connectTo(liar)->openSession(), status::kICAProtocolError);
  EXPECT_EQ(liar.report(), "");
}

TEST(Session, IsNotClosedOnADeviceThatIsGone) {
  USBScript script;
  opens(script).vanish();
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), 0);
  EXPECT_EQ(run(*connection, 0x1004), status::kICADeviceGone);
  EXPECT_EQ(connection->closeSession(), status::kICADeviceGone);
  connection.reset();
  EXPECT_EQ(script.report(), "");
}

TEST(Session, OfADeviceThatNeverTakesACommandTimesOut) {
  USBScript script;
  script.silence();
  auto connection = connectTo(script);
  EXPECT_EQ(connection->openSession(), status::kICATimeout);
  EXPECT_EQ(run(*connection, 0x1001), status::kICATimeout);
}

}  // namespace
}  // namespace tarvo::ptp

// Sessions: ids, closing, and one that a process which was killed has left open.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

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

TEST(Session, CountsTransactionsAnewWithoutTheReservedIDsAndFromZeroOutside) {
  USBScript script;
  script.out(wire::command(0x1001, 0)).in(wire::response(0x2001, 0));
  for (int session = 0; session < 2; ++session) {
    opens(script);
    for (std::uint32_t id : {0xFFFFFFFEU, 1U})
      script.out(wire::command(0x1004, id)).in(wire::response(0x2001, id));
    closes(script, 2);
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

TEST(Session, IsNotClosedOnADeviceThatRefusesItOrIsGone) {
  USBScript refusing;
  opens(refusing, 0x2019);
  EXPECT_EQ(connectTo(refusing)->openSession(), 0x2019);
  EXPECT_EQ(refusing.report(), "");

  USBScript gone;
  opens(gone).vanish();
  auto connection = connectTo(gone);
  EXPECT_EQ(connection->openSession(), 0);
  EXPECT_EQ(run(*connection, 0x1004), status::kICADeviceGone);
  EXPECT_EQ(connection->closeSession(), status::kICADeviceGone);
  connection.reset();
  EXPECT_EQ(gone.report(), "");
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
    opens(script, 0x201E);
    script.out(wire::command(0x1003, 1)).in(wire::response(row.closed, 1));
    opens(script, row.reopened);
    if (row.reopened != 0x2001 && row.resets) opens(script.deviceReset().deviceStatus(0x2001));
    if (!row.resets) script.control(0x21, 0x66, {}, TransferResult::kStalled).portReset(row.port);
    if (!row.resets && row.port == TransferResult::kCompleted) opens(script);
    closes(script, 1);
    EXPECT_EQ(connectTo(script)->openSession(), 0);
    EXPECT_EQ(script.report(), "");
  }
}

}  // namespace
}  // namespace tarvo::ptp

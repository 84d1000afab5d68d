// Sessions: ids, closing, and one that a process which was killed has left open.
#include <gtest/gtest.h>

#include "tests/ptp/Connecting.h"

namespace tarvo::ptp {
namespace {

using test::USBScript;
namespace wire = test::wire;

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

TEST(Session, IsNotClosedOnADeviceThatRefusesItOrIsGone) {
  USBScript refusing;
  refusing.opens(0x2019);
  EXPECT_EQ(connectTo(refusing)->openSession(), 0x2019);
  EXPECT_EQ(refusing.report(), "");

  USBScript gone;
  gone.opens().vanish();
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

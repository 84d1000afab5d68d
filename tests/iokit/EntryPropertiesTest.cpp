#include "platform/iokit/EntryProperties.h"

#include <gtest/gtest.h>

#include "platform/iokit/UdevRegistry.h"
#include "tests/support/ManualRunLoop.h"

namespace tarvo {
namespace {

TEST(LocationID, HasTheBusInTheTopByteAndAPortInEachNibble) {
  const struct {
    unsigned bus;
    const char* portPath;
    std::uint32_t location;
  } rows[] = {{1, "0", 0x01000000},
              {250, "1.2.3.4.5.6", 0xFA123456},
              // A port that does not fit a nibble, a level too deep, a bus beyond a byte.
              {3, "16.1", 0x03F10000},
              {3, "1.1.1.1.1.1.7", 0x03111111},
              {0x105, "1", 0x05100000},
              // Nothing that a kernel writes.
              {1, "x..2", 0x01002000}};
  for (const auto& row : rows)
    EXPECT_EQ(usbLocationID(row.bus, row.portPath), row.location) << row.bus << "-" << row.portPath;
}

// What is announced before udev has dealt with its nodes cannot be opened.
TEST(SCSIUnitAssembly, WaitsLongerForNodesThatTheKernelHasMade) {
  using Node = SCSIUnitAssembly::Node;
  using Units = std::vector<std::string>;
  test::ManualRunLoop loop;
  Units complete;
  SCSIUnitAssembly assembly(
      loop, [](const std::string&, Node) { return true; },
      [&](const std::string& unit) { complete.push_back(unit); });
  assembly.unitSeen("/slow", true);
  assembly.nodeSeen("/slow", true, Node::kGeneric);
  loop.advance(std::chrono::milliseconds(9000));
  EXPECT_EQ(complete, Units{});
  assembly.nodeSeen("/slow", true, Node::kBlock);
  EXPECT_EQ(complete, Units{"/slow"});
  assembly.unitSeen("/stuck", true);
  loop.advance(std::chrono::milliseconds(9999));
  EXPECT_TRUE(assembly.isWaiting("/stuck"));
  loop.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(complete, (Units{"/slow", "/stuck"}));
  EXPECT_EQ(loop.validTimerCount(), 0U);
}

}  // namespace
}  // namespace tarvo

// Which device a command is for.
#include <gmock/gmock.h>

#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::SizeIs;

/// A second camera, which nobody opens.
ServiceHandle plugAnother(CameraBench& bench, std::uint32_t vendor = 0xF055) {
  const auto unit = bench.sim.registry.plug({{"IOClass", "usb_device"},
                                             {"USB Product Name", "Another"},
                                             {"USB Serial Number", "SECOND"},
                                             {"USB Device Node", "/dev/bus/usb/001/005"},
                                             {"idVendor", vendor},
                                             {"idProduct", 0x0304},
                                             {"locationID", 0xFA200000U}});
  bench.sim.registry.plug({{"IOClass", "usb_interface"},
                           {"bInterfaceNumber", 0},
                           {"bInterfaceClass", 6},
                           {"bInterfaceSubClass", 1},
                           {"bInterfaceProtocol", 1}},
                          unit);
  return unit;
}

TEST(Devices, AreListedWithoutBeingOpened) {
  CameraBench bench;
  plugAnother(bench, 0x04A9);
  const auto run = bench.run({"--json", "devices"});
  ASSERT_THAT(run.json(), SizeIs(2));
  EXPECT_EQ(run.json()[0]["locationHex"], "0x01420000");
  EXPECT_EQ(run.json()[1]["location"], -98566144);
  EXPECT_EQ(run.json()[1]["serial"], "SECOND");
  EXPECT_THAT(bench.run({"devices"}).out, ContainsRegex("PTP +0xfa200000  SECOND +no +Another"));
  EXPECT_EQ(bench.run({"ls"}).exitCode, 0) << "one of another maker is no choice";
}

TEST(Choice, IsByLocationBySerialNumberOrByWhatTheDeviceSays) {
  CameraBench bench;
  plugAnother(bench);
  for (const char* device : {"0x01420000", "21102592", "TLX2-000417"}) {
    const auto run = bench.run({"--json", "--device", device, "storage", "list"});
    EXPECT_EQ(run.exitCode, 0) << device << run.out;
  }
}

TEST(Choice, OfNoneOrSeveralIsExplained) {
  CameraBench bench;
  plugAnother(bench);
  const auto several = bench.run({"ls"});
  EXPECT_EQ(several.exitCode, tools::kBadUsage);
  EXPECT_THAT(several.err, AllOf(HasSubstr("SECOND (Another, location 0xfa200000)"),
                                 HasSubstr("0x01420000"), HasSubstr("--device")));
  const auto none = bench.run({"--device", "-1", "ls"});
  EXPECT_EQ(none.exitCode, tools::kNoDevice);
  EXPECT_THAT(none.err, HasSubstr("'-1'"));
}

TEST(Watching, TellsWhatComesAndGoes) {
  CameraBench bench;
  ServiceHandle another = 0;
  const auto plug = [&] { another = plugAnother(bench); };
  const auto unplug = [&] { bench.sim.registry.unplug(another); };
  const auto later = +[](gpointer work) -> gboolean {
    (*static_cast<std::function<void()>*>(work))();
    return G_SOURCE_REMOVE;
  };
  std::function<void()> first = plug;
  std::function<void()> second = unplug;
  g_idle_add(later, &first);
  g_idle_add(later, &second);
  const auto run = bench.run({"--json", "devices", "--watch", "--count", "2"});
  ASSERT_THAT(run.json(), SizeIs(3));
  EXPECT_EQ(run.json()[0]["event"], "present");
  EXPECT_EQ(run.json()[1]["event"], "added");
  EXPECT_EQ(run.json()[2]["event"], "removed");
  EXPECT_EQ(run.json()[2]["serial"], "SECOND") << "what was known of it is told";
}

}  // namespace
}  // namespace tarvo::test

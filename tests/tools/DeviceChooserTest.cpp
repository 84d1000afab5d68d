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
  const auto devices = bench.run({"--json", "devices"}).json();
  ASSERT_THAT(devices, SizeIs(2));
  EXPECT_EQ(devices[1]["location"], -98566144);
  EXPECT_EQ(devices[1]["serial"], "SECOND");
  EXPECT_THAT(bench.run({"devices"}).out, ContainsRegex("PTP +0xfa200000  SECOND +no +Another"));
  bench.done({"ls"});  // one of another maker is no choice
}

TEST(Choice, IsByLocationBySerialNumberOrByWhatTheDeviceSays) {
  CameraBench bench;
  plugAnother(bench);
  for (const char* device : {"0x01420000", "21102592", "TLX2-000417"})
    bench.done({"--device", device, "storage", "list"});
  EXPECT_THAT(bench.ends({"ls"}, tools::kBadUsage).err,
              AllOf(HasSubstr("SECOND (Another, location 0xfa200000)"), HasSubstr("0x01420000"),
                    HasSubstr("--device")));
  EXPECT_THAT(bench.ends({"--device", "-1", "ls"}, tools::kNoDevice).err, HasSubstr("'-1'"));
}

TEST(Watching, TellsWhatComesAndGoes) {
  CameraBench bench;
  ServiceHandle another = 0;
  const auto later = +[](gpointer work) -> gboolean {
    (*static_cast<std::function<void()>*>(work))();
    return G_SOURCE_REMOVE;
  };
  std::function<void()> first = [&] { another = plugAnother(bench); };
  std::function<void()> second = [&] { bench.sim.registry.unplug(another); };
  g_idle_add(later, &first);
  g_idle_add(later, &second);
  const auto told = bench.run({"--json", "devices", "--watch", "--count", "2"}).json();
  ASSERT_THAT(told, SizeIs(3));
  EXPECT_EQ(told[0]["event"], "present");
  EXPECT_EQ(told[1]["event"], "added");
  EXPECT_EQ(told[2]["event"], "removed");
  EXPECT_EQ(told[2]["serial"], "SECOND") << "what was known of it is told";
}

}  // namespace
}  // namespace tarvo::test

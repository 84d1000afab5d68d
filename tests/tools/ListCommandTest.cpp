// ls and the other commands that tell what a device is and holds, and set its properties; and for
// which device a command is.
#include <gmock/gmock.h>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

TEST(List, ShowsTheRootOrAFolderOrEverything) {
  CameraBench bench;
  EXPECT_THAT(bench.run({"ls"}).lines(),
              ElementsAre(HasSubstr("NAME"), ContainsRegex("0x[0-9a-f]{8}  DCIM/"),
                          ContainsRegex("0x[0-9a-f]{8}  MISC/")));
  EXPECT_THAT(bench.run({"ls", "--association", bench.handleText("MISC")}).out,
              ContainsRegex("NOTES.TXT\n$"));
  const auto all = bench.run({"ls", "--recursive"});
  EXPECT_THAT(all.lines(), SizeIs(8));
  EXPECT_THAT(all.out, HasSubstr("  DCIM/100TARVO/TARV0003.MOV\n"));
  const auto below = bench.run({"ls", "--recursive", "--association", bench.handleText("DCIM")});
  EXPECT_THAT(below.lines(), SizeIs(5));
  EXPECT_THAT(below.out, Not(HasSubstr("NOTES")));
}

// Each by a command, and so a session, of its own: what one of them has listed is no help to the
// next.
TEST(List, AndGetPutAndRemoveWorkWhateverTheDevicesWayOfListing) {
  for (const char* habits :
       {R"("allStoresResponse": "0x2008")", R"("allStoresResponse": "0x2013")",
        R"("allStoresResponse": 0)",  // never answered
        R"("formatResponse": "0x2014")", R"("formatResponse": "0x2005")",
        R"("formatResponse": "0x201D")", R"("ignoresFormat": true)",
        R"("needsAllParameters": true)", R"("listsFolderByFolder": true, "choosesNoStore": true)",
        R"("listsFolderByFolder": true, "ignoresFormat": true, "allStoresResponse": 0,
              "rootParent": "0xFFFFFFFF")",
        R"("listsFolderByFolder": true, "rootParent": "0x77777777")"}) {
    SCOPED_TRACE(habits);
    CameraBench bench(std::string(R"({"faults": {"respond": "0x2005,0x1006"}, "habits": {)") +
                      habits + "}}");
    const auto all = bench.done({"ls", "--recursive"});
    EXPECT_THAT(all.lines(), SizeIs(8));
    EXPECT_THAT(all.out, HasSubstr("  DCIM/100TARVO/TARV0003.MOV\n"));
    EXPECT_THAT(bench.run({"--json", "ls", "--handles", "--recursive"}).json(), SizeIs(7));
    EXPECT_THAT(bench.run({"ls"}).lines(), SizeIs(3));
    EXPECT_THAT(bench.run({"--json", "ls", "--handles", "--format", "jpg"}).json(), SizeIs(2));
    const auto pictures = bench.handleText("100TARVO");
    EXPECT_THAT(bench.run({"--json", "ls", "--association", pictures, "--format", "mov"}).json(),
                SizeIs(1));
    bench.done({"put", "--parent", pictures, bench.folder.write("NEW.TXT", "x")});
    const auto got = bench.done({"--json", "get", "--output", bench.folder.path("got/"),
                                 bench.handleText("NOTES.TXT"), "TARV*.JPG", "NEW.TXT"});
    EXPECT_THAT(got.json(), SizeIs(4));
    bench.done({"rm", bench.handleText("TARV0003.MOV"), "--yes"});
    EXPECT_THAT(bench.names(), SizeIs(7));
    bench.fails({"get", "4711"});
  }
}

TEST(List, HasWhatTurnsUpWhileTheRestIsRead) {
  CameraBench bench(R"({"stores": [{"id": "0x00010001", "content": [
      {"file": "A.NEF", "size": 5, "appearsWith": "A.JPG"}, {"file": "A.JPG", "size": 3}]}]})");
  EXPECT_THAT(bench.run({"ls", "--recursive"}).out, HasSubstr("A.NEF"));
}

TEST(List, FiltersByFormatAndByStore) {
  CameraBench bench;
  EXPECT_THAT(bench.run({"ls", "--format", "0x300D"}).out, HasSubstr("TARV0003.MOV"));
  EXPECT_THAT(bench.run({"--json", "ls", "--format", "mp3"}).json(), IsEmpty());
  EXPECT_THAT(bench.run({"ls", "--store", "0x00010001"}).lines(), SizeIs(3));
  EXPECT_THAT(bench.fails({"ls", "--store", "0x00090001"}).err,
              HasSubstr("ls the root: invalid storage id. "));
}

TEST(List, TakesFoldersNamesAndPatternsWhateverTheirCase) {
  CameraBench bench;
  const std::pair<std::vector<std::string>, std::string> kRows[] = {
      {{"DCIM"}, "DCIM/100TARVO/\n$"},
      {{"/dcim/100tarvo/", "--limit", "1"}, "DCIM/100TARVO/TARV0001.JPG\n$"},
      {{"100tarvo", "--films"}, "NAME\n.*  DCIM/100TARVO/TARV0003.MOV\n$"},
      {{"DCIM/*/tarv000[12]*"}, "TARV0001.JPG\n.*TARV0002.JPG\n$"},
      {{"notes.txt"}, "NAME\n.*  MISC/NOTES.TXT\n$"},
      {{"--pictures", "--sort", "size"}, "TARV0002.JPG\n.*TARV0001.JPG\n$"},
      {{"--films", "--store", "card"}, "NAME\n.*  DCIM/100TARVO/TARV0003.MOV\n$"}};
  for (auto [words, shown] : kRows) {
    words.insert(words.begin(), "ls");
    EXPECT_THAT(bench.done(words).out, ContainsRegex(shown)) << words.at(1);
  }
  EXPECT_THAT(bench.fails({"ls", "none"}).err, HasSubstr("nothing on the device has that name"));
  EXPECT_THAT(bench.ends({"ls", "--store", "x"}, tools::kBadUsage).err,
              HasSubstr("no store has the label 'x': 0x00010001 (CARD)"));
}

TEST(List, AsksNoMoreThanItShows) {
  CameraBench bench(R"({"stores": [{"id": "0x00010001", "content": [
      {"generate": {"count": 100000, "size": 100, "prefix": "P", "extension": "JPG"}}]}]})");
  EXPECT_THAT(bench.run({"ls", "--limit", "3"}).lines(), SizeIs(4));
  EXPECT_EQ(bench.sim.asked(ptp::kGetObjectInfo), 3U);
  EXPECT_THAT(bench.run({"ls", "--handles"}).lines(), SizeIs(100001));
  EXPECT_EQ(bench.sim.asked(ptp::kGetObjectInfo), 3U);
}

TEST(List, AnObjectThatCannotBeReadDoesNotEndIt) {
  CameraBench bench;
  // What is refused is asked for twice.
  bench.sim.camera->setFault("respond", "0x2002,0x1008,@3");
  bench.sim.camera->setFault("raise", "0x1008,@4");
  const auto run = bench.fails({"--json", "ls", "--recursive"});
  ASSERT_THAT(run.json(), SizeIs(7));
  EXPECT_EQ(run.json()[2]["error"]["statusHex"], "0x2002");
  EXPECT_THAT(run.json()[6], Contains(nlohmann::json("NOTES.TXT")));
}

TEST(Information, IsToldInWordsAndAsJSON) {
  CameraBench bench;
  const auto run = bench.run({"info"});
  for (const char* part : {"Tarvo Lumo X2", "80 %", " behind this computer\n"})
    EXPECT_THAT(run.out, HasSubstr(part));
  EXPECT_THAT(run.out, ContainsRegex("Store CARD: +2.0 GB used, 2.0 GB free of 4.0 GB"));
  EXPECT_THAT(run.out, ContainsRegex("Holds: +2 pictures, 1 film, 7 objects in all\n"));
  EXPECT_THAT(run.out, Not(HasSubstr("GetObject")));
  for (const char* part : {"GetObject (0x1009)", "BatteryLevel", "CARD (0x00010001)"})
    EXPECT_THAT(bench.run({"info", "--long"}).out, HasSubstr(part));
  const auto told = bench.run({"--json", "info"}).json();
  EXPECT_EQ(told["objects"], 7);
  EXPECT_EQ(told["films"], 1);
  EXPECT_LT(told["secondsAhead"], -1000000);
  EXPECT_EQ(told["stores"][0]["storageID"], 0x00010001);
  EXPECT_EQ(told["stores"][0]["label"], "CARD");
  EXPECT_THAT(bench.run({"clock", "get"}).out, HasSubstr("2024-06-15 12:00:00, "));
}

TEST(Storage, WithoutACardOrWithAbsurdSizesIsListedAllTheSame) {
  CameraBench bench(R"({"stores": [
      {"id": "0x00010001", "capacity": 1000, "free": 1001},
      {"id": "0x00020001", "capacity": "0xFFFFFFFFFFFFFFFF", "free": "0xFFFFFFFFFFFFFFFF"},
      {"id": "0x00030001", "emptySlot": true}, {"id": "0x00040000", "emptySlot": true}]})");
  const auto run = bench.done({"storage", "list"});
  EXPECT_THAT(run.out, ContainsRegex(
                           "0x00010001 .* unknown +unknown +Memory card\n.* unknown +unknown +M.*\n"
                           "0x00030001  no card\n0x00040000  no card\n"));
  EXPECT_THAT(bench.run({"info"}).out, HasSubstr("unknown free of unknown"));
}

TEST(Information, LeavesOutWhatTheDeviceTellsWrongly) {
  CameraBench bench(R"({"properties": [{"code": "0x5001", "type": "UINT8", "value": 255},
                                       {"code": "0x5011", "type": "STR", "writable": true,
                                        "value": "20240615T120000"}]})");
  bench.sim.camera->setFault("truncate", "3,0x1014");
  const auto run = bench.done({"info"});
  EXPECT_THAT(run.out, ContainsRegex("Battery: +unknown\n"));
  EXPECT_THAT(run.out, HasSubstr("objects in all"));
  EXPECT_THAT(run.err,
              ContainsRegex("^Left out: the clock, which the device tells wrongly: .+\n$"));
  EXPECT_EQ(bench.run({"--json", "info"}).json()["leftOut"][0]["what"], "the clock");
  EXPECT_THAT(bench.done({"clock", "set"}).err, HasSubstr("the device tells wrongly"));
}

TEST(Storage, IsListedAndFormattedOnlyWhenSomebodySaysSo) {
  CameraBench bench;
  EXPECT_THAT(bench.run({"storage", "list"}).out,
              ContainsRegex("0x00010001  removable memory  read and write +4.0 GB +2.0 GB"));
  const Terminal no("n\n");
  bench.terminal = no.path();
  bench.fails({"storage", "format"});
  EXPECT_THAT(no.shown(),
              HasSubstr("Delete everything in store 0x00010001, 7 objects, 2.0 GB, of "));
  EXPECT_EQ(bench.sim.asked(ptp::kFormatStore), 0U);
  bench.done({"storage", "format", "--yes"});
  EXPECT_THAT(bench.names(), IsEmpty());
}

TEST(Query, RowsComeAsTheyAreAndTheQueryIsLetGo) {
  CameraBench bench;
  const auto run = bench.done({"query", "SELECT * FROM pictures"});
  EXPECT_EQ(run.out, "1|TARV0001.JPG\n2|TARV0002.JPG\n");
  EXPECT_EQ(bench.run({"--json", "query", "SELECT"}).json()["rows"], run.out);
  EXPECT_THAT(bench.names(), SizeIs(7)) << "the query object is gone";
}

TEST(Properties, AreReadByNameAndByCode) {
  CameraBench bench;
  for (const char* property : {"BatteryLevel", "batterylevel", "0x5001", "20481"})
    EXPECT_EQ(bench.run({"--json", "property", "get", property}).json()["current"], 80) << property;
  EXPECT_THAT(bench.run({"property", "get", "ExposureBiasCompensation"}).out,
              ContainsRegex("Allowed: +-1000 \\(-1.0 EV\\), 0 \\(\\+0.0 EV\\), 1000 "));
  EXPECT_EQ(bench.run({"--json", "property", "get", "0x5010"}).json()["words"], "+0.0 EV");
  EXPECT_THAT(bench.fails({"property", "get", "0x5002"}).err,
              ContainsRegex(
                  "FunctionalMode \\(0x5002\\): device property not supported\\. .+\\(0x200a\\)"));
}

TEST(Properties, AreSetInTheirOwnType) {
  CameraBench bench;
  bench.done({"property", "set", "0x5010", "-1000"});
  for (const char* date : {"20261124T120000.0+0200", "2026-11-24 12:00:00 +0200", "20261124T120000",
                           "2026-11-24 12:00:00"})
    bench.done({"property", "set", "DateTime", date});
  EXPECT_EQ(bench.run({"--json", "property", "get", "0x5010"}).json()["current"], -1000);
  EXPECT_EQ(bench.run({"--json", "property", "get", "DateTime"}).json()["current"],
            "20261124T120000");
}

TEST(Properties, WhatDoesNotFitIsNotSent) {
  CameraBench bench;
  const std::string tooLong(255, '1');
  const std::vector<std::string> kBad[] = {
      {"0x5010", "much"},    {"0x5010", "40000"},       {"0x5010", "[1]"},
      {"BatteryLevel", "1"}, {"DateTime", "yesterday"}, {"DateTime", "2026-02-30 12:00:00"},
      {"DateTime", tooLong}};
  for (const auto& words : kBad)
    EXPECT_THAT(bench.fails({"property", "set", words[0], words[1]}).err,
                ContainsRegex("property set .+\\(0x50[01][01]\\): .+"));
  EXPECT_EQ(bench.sim.asked(ptp::kSetDevicePropValue), 0U);
}

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
  EXPECT_THAT(bench.run({"devices"}).out,
              ContainsRegex("\nName: +Another\nSerial: +SECOND\nLocation: +0xfa200000\n"
                            "Can: +list, get \\(model not supported\\)\n"));
  bench.done({"ls"});  // one of another maker is no choice
}

TEST(Choice, IsByLocationBySerialNumberOrByWhatTheDeviceSays) {
  CameraBench bench;
  for (const char* device : {"TLX2-000417", "tlx2"})
    bench.done({"--device", device, "storage", "list"});
  plugAnother(bench);
  for (const char* device : {"0x01420000", "21102592", "0x014", "lumo"})
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

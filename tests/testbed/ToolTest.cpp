// The unmodified tarvoctl on virtual hardware: every example of its help, transfers, interruption,
// what a shell does to it, mounts below a card, and a destination without room.
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "Utilities/PTPCodes.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

/// A file system in memory, mounted for the test alone.
class SmallMount {
 public:
  SmallMount(std::string path, const char* options) : path_(std::move(path)) {
    fs::create_directories(path_);
    EXPECT_EQ(::mount("tmpfs", path_.c_str(), "tmpfs", 0, options), 0);
  }
  SmallMount(const SmallMount&) = delete;
  SmallMount& operator=(const SmallMount&) = delete;
  ~SmallMount() { ::umount2(path_.c_str(), MNT_DETACH); }

 private:
  std::string path_;
};

class Tool : public ToolTestbed {
 protected:
  /// Starts it at a camera that falls silent in its first object, and ends it there.
  Run endInAnObject(const std::string& id, int signal) {
    pluggedCamera(id).setFault("silent", "0x1009,@1");
    start("--timeout 60 get TARV0001.JPG --output pictures/");
    EXPECT_TRUE(waitUntil([&] {
      const auto all = pluggedCamera(id).operations();
      return std::ranges::count(all, ptp::kGetObject) > 0;
    }));
    running().signal(signal);
    return finish();
  }
};

TEST_F(Tool, EveryExampleOfItsHelpWorks) {
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"tarvo-camera",
       {"",       "devices",       "info",           "clock set",    "reset", "events",
        "ls",     "storage list",  "storage format", "get",          "put",   "rm",
        "rename", "property list", "property get",   "property set", "query", "encode",
        "decode", "models list",   "models check",   "storage",      "clock", "property",
        "models"}},
      {"orders-camera",
       {"orders list",      "orders show",          "orders fulfil",        "orders delete",
        "addressbook show", "addressbook validate", "addressbook export",   "addressbook import",
        "albums list",      "albums show",          "albums get",           "albums put",
        "favourites list",  "favourites delete",    "collection get",       "collection set",
        "shoebox send",     "shoebox add",          "wireless-config show", "display"}}};
  for (const char* file : {"photo.jpg", "pictures.sbx", "request.bin"})
    folder_.write(std::string("work/") + file, "content");
  folder_.write("work/contacts.vcf", "BEGIN:VCARD\nVERSION:3.0\nFN:A\nEMAIL:a@b.cc\nEND:VCARD\n");
  folder_.write("work/object.json", "{}");
  for (const auto& [device, commands] : rows) {
    for (const auto& command : commands) {
      const auto help = tool(command + " --help").out;
      const auto at = help.rfind("\n  tarvoctl " + command);
      ASSERT_NE(at, std::string::npos) << command << help;
      auto description = camera(device);
      description.vendor.operations.push_back(ptp::XTO_UPDATE_EXT_OBJECT_INFO);
      const auto id = plug(description);
      pluggedCamera(id).sendEvent(0x4002, {3});
      const auto run = shell(help.substr(at + 3, help.find('\n', at + 3) - at - 3));
      EXPECT_EQ(run.exitCode, 0) << command << "\n" << run.out << run.err;
      if (command == "encode") folder_.write("work/object.bin", run.out);
      EXPECT_THAT(pluggedCamera(id).violations(), IsEmpty()) << command;
      testbed_->unplug(id);
    }
  }
}

TEST_F(Tool, ACardKeepsItsEncodingWhenItIsWritten) {
  configure("Platform", "DefaultEncoding", "ISO-8859-1");
  auto description = camera("orders-legacy");
  description.stores[0].content[0].text = "Ren\xE9 <r@example.org>\r\n";
  description.stores[0].content[0].size = 22;
  const auto id = plug(description);
  const auto file = [&] {
    const auto handles = pluggedCamera(id).handles({0xFFFFFFFF, ptp::XTD_ADDRESS_BOOK_FILE, 0});
    const auto bytes = pluggedCamera(id).bytes(handles.at(0));
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  auto wanted = tool("--json addressbook show").json();
  auto& contacts = wanted["XTAddressBookContactsKey"];
  contacts.push_back({{"kABEmailProperty", "z@example.org"}, {"kABNicknameProperty", "Zoë"}});
  folder_.write("work/book.json", wanted.dump());
  EXPECT_EQ(tool("addressbook import book.json --yes").exitCode, 0) << err();
  EXPECT_EQ(file(), "Ren\xE9 <r@example.org>\r\nZo\xEB <z@example.org>\r\n");
  contacts[0]["kABNicknameProperty"] = "Łukasz";
  folder_.write("work/book.json", wanted.dump());
  EXPECT_EQ(tool("addressbook import book.json --yes").exitCode, 1);
  EXPECT_THAT(file(), HasSubstr("Zo\xEB")) << "it was not touched";
}

TEST_F(Tool, FetchesWhatItSentByteForByte) {
  plug(camera());
  std::string content;
  for (unsigned index = 0; index < 3'000'000; ++index)
    content += static_cast<char>(index * 7919 >> 5);
  folder_.write("work/SENT.JPG", content);
  EXPECT_EQ(tool("put SENT.JPG").exitCode, 0) << err();
  EXPECT_EQ(tool("get SENT.JPG NOTES.TXT --output back/").exitCode, 0) << err();
  EXPECT_TRUE(folder_.read("work/back/SENT.JPG") == content);
  EXPECT_EQ(folder_.read("work/back/NOTES.TXT"), "Sharing orders live here.\n");
}

TEST_F(Tool, ShowsAnObjectBeforeTheNextOneIsAsked) {
  const auto id = plug(camera());
  pluggedCamera(id).setFault("silent", "0x1008,@3");
  start("ls --recursive");
  EXPECT_TRUE(waitUntil([&] { return out().find("DCIM/100TARVO/\n") != std::string::npos; }));
  EXPECT_TRUE(running().isRunning()) << "it waits for the third object";
  running().signal(SIGINT);
  EXPECT_EQ(finish().exitCode, 130);
}

TEST_F(Tool, CtrlCCancelsATransferAndTheCameraWorksOn) {
  for (const bool knowsClassRequests : {true, false}) {
    auto description = camera();
    description.habits.noClassRequests = !knowsClassRequests;
    const auto id = plug(description);
    const auto run = endInAnObject(id, SIGINT);
    EXPECT_EQ(run.exitCode, 130);
    EXPECT_THAT(run.err, HasSubstr("cancelled"));
    EXPECT_THAT(folder_.names("work/pictures"), Not(::testing::Contains("TARV0001.JPG")));
    EXPECT_EQ(tool("get TARV0001.JPG --output pictures/").exitCode, 0) << err();
    EXPECT_EQ(fs::file_size(folder_.path("work/pictures/TARV0001.JPG")), 2412034U);
    fs::remove_all(folder_.path("work/pictures"));
    testbed_->unplug(id);
  }
}

TEST_F(Tool, AKilledCommandDoesNotBlockTheNextOne) {
  auto description = camera();
  description.habits.sessionBeforeDeviceInfo = true;
  description.habits.checksTransactionIDs = true;
  const auto id = plug(description);
  EXPECT_EQ(endInAnObject(id, SIGKILL).exitCode, 128 + SIGKILL);
  EXPECT_FALSE(folder_.exists("work/pictures/TARV0001.JPG"));
  // Longer than a first word is waited for by itself.
  pluggedCamera(id).setFault("delay", "1500,0x1001,@1");
  EXPECT_EQ(tool("--timeout 60 ls").exitCode, 0) << err();
}

TEST_F(Tool, ADeviceThatIsHeldIsReportedWithItsHolder) {
  const auto id = plug(camera());
  const auto other = startBeside("events", "other");
  ASSERT_TRUE(
      waitUntil([&] { return folder_.read("other.err").find("Watching") != std::string::npos; }));
  const auto run = tool("ls");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, ContainsRegex("in use by .*tarvoctl \\(pid [0-9]+\\).* Close the program"));
  pluggedCamera(id).sendEvent(0x4002, {7});
  EXPECT_TRUE(
      waitUntil([&] { return folder_.read("other").find("ObjectAdded") != std::string::npos; }));
  other->signal(SIGINT);
  EXPECT_EQ(other->waitForEnd(), 130);
}

TEST_F(Tool, EndsQuietlyWhenNobodyReads) {
  plug(camera("big-store"));
  const auto run = shell("tarvoctl ls --recursive --handles | head -n 2; echo ${PIPESTATUS[0]}");
  EXPECT_THAT(run.out, ContainsRegex("^HANDLE\n0x[0-9a-f]{8}\n0\n$"));
  EXPECT_THAT(run.err, IsEmpty());
  const auto full = shell("tarvoctl models list > /dev/full");
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.err, HasSubstr("standard output: No space left on device"));
}

TEST_F(Tool, DoesNotEnterAMountBelowTheCard) {
  const auto card = [&](const char* name) { return folder_.path("volumes/TARVO_CARD/") + name; };
  plug(camera("card"));
  const SmallMount below(card("BELOW"), "size=1m");
  folder_.write("volumes/TARVO_CARD/BELOW/other.jpg", "of another file system");
  // The same file system at a second place is another mount, too, and would be a loop.
  fs::create_directories(card("LOOP"));
  ASSERT_EQ(::mount(card("").c_str(), card("LOOP").c_str(), nullptr, MS_BIND, nullptr), 0);
  std::vector<std::string> paths;
  for (const auto& each : tool("--json volume ls --all").json())
    paths.push_back(each.value("path", ""));
  EXPECT_THAT(paths,
              UnorderedElementsAre("BELOW", "LOOP", "MISC", "MISC/IREVIEW.DB", "TARV0001.JPG"));
  EXPECT_EQ(tool("volume rm LOOP/TARV0001.JPG BELOW/other.jpg --yes").exitCode, 1);
  EXPECT_EQ(tool("volume get LOOP/TARV0001.JPG").exitCode, 1);
  ::umount2(card("LOOP").c_str(), MNT_DETACH);
}

TEST_F(Tool, WhatADiskHasNoRoomForIsToldBeforehandAndNotBegun) {
  plug(camera("card"));
  const SmallMount small(folder_.path("work/small"), "size=1m");
  const auto run = tool("volume get --all --output small/");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("no room for all that is to be fetched (2 files, 1.3 MB): 1.0 MB "
                                 "are free in 'small', 262.2 kB are missing.\n"));
  EXPECT_THAT(run.err, ContainsRegex("1 file fetched, .*, 1 without room, 1.3 MB\n$"));
  EXPECT_THAT(folder_.names("work/small"), UnorderedElementsAre("IREVIEW.DB"));
}

TEST_F(Tool, AFullDiskEndsTheTransfers) {
  auto description = camera();
  auto& content = description.stores.front().content;
  content.clear();
  for (const char16_t* name : {u"A.MOV", u"B.MOV", u"C.MOV"}) {
    simulator::ContentNode film;
    film.name = name;
    film.size = 2'000'000;
    film.traits.hidesSize = true;
    content.push_back(film);
  }
  const auto id = plug(std::move(description));
  const SmallMount small(folder_.path("work/small"), "size=1m");
  const auto run = tool("get --all --output small/");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("A.MOV (0x00000001): "));
  EXPECT_THAT(run.err, HasSubstr("No space left on device"));
  EXPECT_THAT(run.err, HasSubstr("0 files fetched, 3 without room"));
  EXPECT_EQ(std::ranges::count(pluggedCamera(id).operations(), ptp::kGetObject), 1);
  EXPECT_THAT(folder_.names("work/small"), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test

// Orders, the address book and the maker's files through the unmodified tarvoctl, on a camera with
// vendor data sets and on one with files; what the device holds afterwards, byte by byte.
#include <algorithm>
#include <filesystem>

#include "Utilities/PTPCodes.h"
#include "simulator/description/DatasetDescription.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using simulator::Bytes;
using simulator::ByteWriter;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kContacts = "XTAddressBookContactsKey";
constexpr const char* kGroups = "XTAddressBookGroupsKey";
constexpr const char* kMembers = "contactGroupMembersKey";

class Orders : public ToolTestbed {
 protected:
  void plugCamera(const std::string& name) { id_ = plug(camera(name)); }
  simulator::PTPCamera& device() { return pluggedCamera(id_); }
  void TearDown() override {
    if (testbed_->device(id_) != nullptr) {
      EXPECT_THAT(device().violations(), IsEmpty());
    }
  }

  std::vector<std::uint32_t> handles(std::uint16_t format) {
    return device().handles({0xFFFFFFFF, format, 0});
  }
  std::string textOf(std::uint32_t handle) {
    const auto bytes = device().bytes(handle);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
  /// The only object of the format, as text.
  std::string fileOf(std::uint16_t format) {
    const auto found = handles(format);
    EXPECT_THAT(found, SizeIs(1)) << format;
    return found.empty() ? "" : textOf(found.front());
  }
  void expectDone(const std::string& words) {
    const auto run = tool(words);
    EXPECT_EQ(run.exitCode, 0) << words << "\n" << run.out << run.err;
  }
  json book() { return tool("--json addressbook show").json(); }
  Run import(const json& book, const std::string& options = "--yes") {
    folder_.write("work/book.json", book.dump());
    return tool("addressbook import book.json " + options);
  }
  std::vector<std::string> backups(const std::string& extension) {
    std::vector<std::string> contents;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder_.path("data/tarvo/backups"), none)) {
      if (entry.path().extension() == extension)
        contents.push_back(folder_.read("data/tarvo/backups/" + entry.path().filename().string()));
    }
    return contents;
  }
  void useEncoding(const std::string& encoding) {
    folder_.write("config/tarvo/agent.conf", "[Platform]\nDefaultEncoding=" + encoding + "\n");
  }

  std::string id_;
};

Bytes groupBytes(const char* name, std::uint32_t image, const std::vector<std::uint32_t>& members) {
  ByteWriter writer;
  writer.text(name);
  writer.u32(image);
  writer.u32Array(members);
  return writer.take();
}

std::vector<std::string> columnOf(const json& list, const char* key) {
  std::vector<std::string> values;
  for (const auto& each : list)
    values.push_back(each.value(key, json()).dump());
  return values;
}

TEST_F(Orders, AreListedAlikeFromDataSetsAndFromFiles) {
  struct Row {
    const char* camera;
    std::vector<std::string> kinds;
    std::vector<std::string> assets;
  };
  const Row rows[] = {
      {"orders-camera",
       {R"("email")", R"("email")", R"("print")", R"("transfer")", R"("transfer")"},
       {R"(["TARV0001.JPG","TARV0003.MOV"])", R"(["TARV0002.JPG"])", R"(["TARV0002.JPG"])", "[3]",
        "[4,5]"}},
      {"orders-legacy",
       {R"("email")", R"("email")", R"("email")", R"("print")", R"("print")"},
       {R"(["TARV0001.JPG"])", R"(["TARV0002.JPG"])", R"(["TARV0002.JPG"])", R"(["TARV0001.JPG"])",
        R"(["TARV0002.JPG"])"}},
  };
  for (const auto& row : rows) {
    plugCamera(row.camera);
    const auto list = tool("--json orders list").json();
    EXPECT_EQ(columnOf(list, "kind"), row.kinds) << err();
    EXPECT_EQ(columnOf(list, "XTOrderAssetListKey"), row.assets);
    expectDone("orders show --download orders/");
    std::size_t pictures = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path("work/orders"))) {
      if (entry.path().filename() == "TARV0001.JPG") {
        EXPECT_EQ(entry.file_size(), 241203U);
        ++pictures;
      }
    }
    EXPECT_EQ(pictures, 2U);
    fs::remove_all(folder_.path("work/orders"));
    EXPECT_THAT(device().violations(), IsEmpty());
    testbed_->unplug(id_);
  }
}

TEST_F(Orders, AFulfilledPictureLeavesItsOrderOnTheDevice) {
  plugCamera("orders-camera");
  expectDone("orders fulfil 1 TARV0001.JPG");
  const auto order = simulator::parseDataset(ptp::XTD_EMAIL_ORDER, device().bytes(16)).value();
  EXPECT_THAT(simulator::assetsOf(order), ElementsAre(5));
  expectDone("orders fulfil 0x10");
  expectDone("orders fulfil 0x12");
  EXPECT_THAT(handles(ptp::XTD_EMAIL_ORDER), ElementsAre(17));
  EXPECT_THAT(handles(ptp::XTD_PRINT_ORDER), IsEmpty());
  EXPECT_EQ(tool("orders fulfil 1 NONE.JPG").exitCode, 1);
  EXPECT_THAT(handles(0x3801), SizeIs(2)) << "the pictures stay";
}

TEST_F(Orders, DeletingTakesOrdersAndNothingElse) {
  plugCamera("orders-camera");
  const auto before = device().handles();
  expectDone("orders delete --yes");
  auto left = before;
  for (const std::uint32_t order : {16U, 17U, 18U})
    std::erase(left, order);
  EXPECT_EQ(device().handles(), left);
  EXPECT_EQ(tool("--json orders list").json().size(), 2U) << "those for transfer";
  EXPECT_THAT(device().violations(), IsEmpty());
  testbed_->unplug(id_);
  plugCamera("orders-legacy");
  expectDone("orders delete --yes");
  EXPECT_THAT(handles(0x3006), IsEmpty());
  EXPECT_THAT(handles(0x3801), SizeIs(2));
  EXPECT_THAT(handles(0x3004), SizeIs(1)) << "the collection id is a file beside them";
  EXPECT_EQ(tool("--json orders list").json(), json::array());
}

TEST_F(Orders, AnAddressBookIsWrittenToDataSetsByteByByte) {
  plugCamera("orders-camera");
  expectDone("orders delete --yes");  // those keep whoever they go to
  auto wanted = book();
  wanted[kContacts].erase(1);
  wanted[kContacts].push_back({{"kABUIDProperty", "00010203-0405-0607-0809-0A0B0C0D0E0F"},
                               {"kABEmailProperty", "dora@example.org"},
                               {"kABNicknameProperty", "Dora"},
                               {"kABAddressStreetKey", "1\r2"},
                               {"XTContactSharingPrefKey", 3}});
  wanted[kGroups][1][kMembers] = {12, 10};
  wanted[kGroups][2]["kABGroupNameProperty"] = "Renamed";
  const auto chloe = device().bytes(12);
  const auto run = import(wanted);
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("- Børge"));

  const auto contacts = handles(ptp::XTD_CONTACT);
  ASSERT_THAT(contacts, SizeIs(3)) << run.err;
  EXPECT_FALSE(device().object(11)) << "Børge";
  ByteWriter dora;
  dora.u32(16);
  for (std::uint8_t byte = 0; byte < 16; ++byte)
    dora.u8(byte);
  for (const char* text : {"dora@example.org", "Dora", "", "", "1", "2", "", "", "", "", ""})
    dora.text(text);
  dora.u32(0);
  dora.u32Array({});
  dora.u16(3);
  dora.u16(0);
  EXPECT_EQ(device().bytes(contacts.back()), dora.take());
  EXPECT_NE(device().bytes(12), chloe) << "she is in another group";

  EXPECT_EQ(device().bytes(13), groupBytes("Family", 4, {10, 12}));
  EXPECT_EQ(device().bytes(14), groupBytes("Friends", 0, {12, 10}));
  EXPECT_FALSE(device().object(15)) << "Nobody";
  EXPECT_EQ(device().bytes(handles(ptp::XTD_GROUP).back()), groupBytes("Renamed", 0, {}));
  EXPECT_THAT(backups(".json"), ElementsAre(HasSubstr("borge@example.org")));
  EXPECT_THAT(import(book()).err, HasSubstr("has all of this already"));
}

TEST_F(Orders, ASynchronisationAloneSendsGroupsOrNothing) {
  plugCamera("orders-camera");
  auto wanted = book();
  wanted[kContacts][0]["kABNicknameProperty"] = "Annie";
  wanted[kGroups][0][kMembers] = {10};
  EXPECT_EQ(import(wanted, "--sync --yes").exitCode, 0) << err();
  EXPECT_THAT(err(), HasSubstr("Groups alone are sent"));
  EXPECT_EQ(book()[kContacts][0]["kABNicknameProperty"], "Anna");
  EXPECT_EQ(device().bytes(13), groupBytes("Family", 4, {10}));
  EXPECT_THAT(device().violations(), IsEmpty());
  testbed_->unplug(id_);
  plugCamera("orders-legacy");
  const auto held = fileOf(ptp::XTD_ADDRESS_BOOK_FILE);
  EXPECT_EQ(import(book(), "--sync --yes").exitCode, 0) << err();
  EXPECT_THAT(err(), HasSubstr("An EMPTY file is sent"));
  EXPECT_EQ(fileOf(ptp::XTD_ADDRESS_BOOK_FILE), "");
  EXPECT_THAT(backups(".abk"), ElementsAre(held));
}

TEST_F(Orders, AnAddressBookIsWrittenToItsFileByteByByte) {
  plugCamera("orders-legacy");
  const auto held = fileOf(ptp::XTD_ADDRESS_BOOK_FILE);
  auto wanted = book();
  wanted[kContacts].erase(1);
  wanted[kContacts].push_back(
      {{"kABEmailProperty", "dora@example.org"}, {"kABNicknameProperty", "Dora"}});
  EXPECT_EQ(import(wanted).exitCode, 0) << err();
  EXPECT_EQ(fileOf(ptp::XTD_ADDRESS_BOOK_FILE),
            "Anna <anna@example.org>\r\n <nameless@example.org>\r\nDora <dora@example.org>\r\n");
  EXPECT_EQ(device().object(handles(ptp::XTD_ADDRESS_BOOK_FILE).at(0))->nameText(), "DCEMAIL.ABK");
  EXPECT_THAT(backups(".abk"), ElementsAre(held));
}

TEST_F(Orders, ABookThatTheDeviceCannotKeepIsNamedAndNotSent) {
  plugCamera("orders-camera");
  EXPECT_EQ(tool("--json addressbook validate").json(),
            json({{"valid", true}, {"ptpErrorCode", 0}}));
  const auto before = device().operations().size();
  struct Row {
    const char* key;
    std::string value;
    std::uint32_t code;
  };
  const Row rows[] = {
      {"kABEmailProperty", "anna.example.org", 0x10000012},
      {"kABEmailProperty", "änna@example.org", 0x10000011},
  };
  for (const auto& row : rows) {
    auto wanted = book();
    wanted[kContacts][0][row.key] = row.value;
    folder_.write("work/book.json", wanted.dump());
    const auto run = tool("--json addressbook validate book.json");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.json()["valid"], false) << run.out;
    EXPECT_EQ(run.json()["ptpErrorCode"], row.code);
    EXPECT_EQ(run.json()["errorObject"], row.value);
    EXPECT_EQ(tool("addressbook import book.json --yes").exitCode, 1);
  }
  const auto all = device().operations();
  for (const std::uint16_t writing : {0x9205, 0x9207, 0x9209, 0x100B, 0x100C})
    EXPECT_EQ(std::count(all.begin() + static_cast<std::ptrdiff_t>(before), all.end(), writing), 0);
  EXPECT_THAT(backups(".json"), IsEmpty());
}

/// What cards hold, in the encodings and forms of their firmware.
TEST_F(Orders, CardsOfEveryFormAreRead) {
  struct Row {
    const char* encoding;
    std::string text;
    std::vector<std::string> nicknames;
  };
  const Row rows[] = {
      {"ISO-8859-1", "Ren\xE9 <r@example.org>\r\n", {R"("René")"}},
      {"UTF-8", "Ren\xC3\xA9 <r@example.org>\r\n", {R"("René")"}},
      {"ISO-8859-1", "A <a@b.example>\r\nB <b@b.example>", {R"("A")", R"("B")"}},
      {"ISO-8859-1", "A <a@b.example>\nB <b@b.example>\n", {R"("A")"}},
      {"ISO-8859-1", "", {}},
  };
  for (const auto& row : rows) {
    useEncoding(row.encoding);
    auto description = camera("orders-legacy");
    auto& file = description.stores[0].content[0];
    file.text = row.text;
    file.size = row.text.size();
    id_ = plug(description);
    EXPECT_EQ(columnOf(book()[kContacts], "kABNicknameProperty"), row.nicknames) << row.text;
    testbed_->unplug(id_);
  }
}

TEST_F(Orders, ALargeFileIsReadAndOneLineTooManyIsSaid) {
  for (const std::size_t lines : {10'000U, 10'001U}) {
    auto description = camera("orders-legacy");
    description.vendor.addressBook->maxAddresses = 10'000;
    auto& file = description.stores[0].content[0];
    file.text->clear();
    for (file.size = 0; file.size < lines; ++file.size)
      *file.text += "N <n" + std::to_string(file.size) + "@example.org>\r\n";
    file.size = file.text->size();
    id_ = plug(description);
    const auto run = tool("--json addressbook show");
    EXPECT_EQ(run.exitCode, lines == 10'000 ? 0 : 1) << run.err;
    if (lines == 10'000) {
      EXPECT_THAT(run.json()[kContacts], SizeIs(lines));
    } else {
      EXPECT_THAT(run.out, HasSubstr("has 10001 lines, more than the 10000"));
    }
    testbed_->unplug(id_);
  }
}

TEST_F(Orders, AMarkerFileIsReadInTheEncodingOfItsCard) {
  useEncoding("ISO-8859-1");
  auto description = camera("orders-legacy");
  auto& misc = description.stores[1].content[1].children;
  auto& marker = misc[0];
  marker.text = "\n[JOB]\nDST EML = \"r\xE9n\xE9@example.org\"\nIMG SRC = \"TARV0001.JPG\"\n";
  marker.size = marker.text->size();
  misc.resize(1);
  id_ = plug(description);
  EXPECT_THAT(columnOf(tool("--json orders list").json(), "XTEmailOrderDestAddressListKey"),
              ElementsAre("[\"réné@example.org\"]"));
}

TEST_F(Orders, ACardKeepsItsEncodingWhenItIsWritten) {
  useEncoding("ISO-8859-1");
  auto description = camera("orders-legacy");
  description.stores[0].content[0].text = "Ren\xE9 <r@example.org>\r\n";
  description.stores[0].content[0].size = 22;
  id_ = plug(description);
  auto wanted = book();
  wanted[kContacts].push_back(
      {{"kABEmailProperty", "z@example.org"}, {"kABNicknameProperty", "Zoë"}});
  EXPECT_EQ(import(wanted).exitCode, 0) << err();
  EXPECT_EQ(fileOf(ptp::XTD_ADDRESS_BOOK_FILE),
            "Ren\xE9 <r@example.org>\r\nZo\xEB <z@example.org>\r\n");
  wanted[kContacts][0]["kABNicknameProperty"] = "Łukasz";
  EXPECT_EQ(import(wanted).exitCode, 1);
  EXPECT_THAT(fileOf(ptp::XTD_ADDRESS_BOOK_FILE), HasSubstr("Zo\xEB")) << "it was not touched";
}

TEST_F(Orders, TheMakersFilesComeAndGoWhole) {
  plugCamera("orders-camera");
  EXPECT_EQ(tool("wireless-config show").out, "<network><ssid>attic</ssid></network>\n");
  folder_.write("work/NEW.lcb", "Spring\n");
  expectDone("albums put NEW.lcb --yes");
  EXPECT_EQ(fileOf(ptp::XTD_ALBUM_NAMES_FILE), "Spring\n");
  expectDone("favourites delete --yes");
  EXPECT_THAT(handles(ptp::XTD_BRAGBOOK2), IsEmpty());
  expectDone("collection set 00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(tool("collection get").out, "00112233-4455-6677-8899-AABBCCDDEEFF\n");
  folder_.write("work/any.sbx", "shoebox");
  expectDone("shoebox send any.sbx");
  EXPECT_EQ(device().object(handles(0xB00C).at(0))->nameText(), "tarvodsb.sbx");
  EXPECT_EQ(fileOf(0xB00C), "shoebox");
  folder_.write("work/any.jpg", "a picture");
  expectDone("shoebox add any.jpg");
  EXPECT_EQ(fileOf(ptp::XTD_SHOEBOX_IMAGE), "a picture");
  folder_.write("work/display", "title");
  expectDone("display display");
  EXPECT_THAT(device().displayRequest(), SizeIs(5));
}

TEST_F(Orders, TheCollectionIdOfAnOlderDeviceIsAFile) {
  plugCamera("orders-legacy");
  EXPECT_EQ(tool("collection get").out, "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0\n");
  expectDone("collection set 00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(fileOf(0x3004), "00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(device().object(handles(0x3004).at(0))->storage, 0x00020001U);
  expectDone("collection set --clear");
  EXPECT_THAT(handles(0x3004), IsEmpty());
}

TEST_F(Orders, EveryExampleOfTheHelpWorks) {
  folder_.write("work/contacts.vcf", "BEGIN:VCARD\nVERSION:3.0\nFN:A\nEMAIL:a@b.cc\nEND:VCARD\n");
  for (const char* file : {"photo.jpg", "pictures.sbx", "request.bin"})
    folder_.write(std::string("work/") + file, "content");
  for (const char* command :
       {"orders list",      "orders show",          "orders fulfil",        "orders delete",
        "addressbook show", "addressbook validate", "addressbook export",   "addressbook import",
        "albums list",      "albums show",          "albums get",           "albums put",
        "favourites list",  "favourites delete",    "collection get",       "collection set",
        "shoebox send",     "shoebox add",          "wireless-config show", "display"}) {
    const auto help = tool(std::string(command) + " --help").out;
    const auto example = help.substr(help.rfind("  tarvoctl ") + 2);
    ASSERT_THAT(example, HasSubstr("tarvoctl " + std::string(command)));
    const auto id = plug(camera("orders-camera"));
    const auto run = shell(example);
    EXPECT_EQ(run.exitCode, 0) << example << run.out << run.err;
    testbed_->unplug(id);
  }
}

}  // namespace
}  // namespace tarvo::test

// The unmodified tarvoctl and the cameras that keep orders and an address book, of both
// generations: what the camera holds afterwards is looked at on its own side.
#include "Utilities/PTPCodes.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Sharing : public ToolTestbed {
 protected:
  void TearDown() override {
    if (!id_.empty()) {
      EXPECT_THAT(pluggedCamera(id_).violations(), IsEmpty());
    }
  }
  void use(const std::string& name) { id_ = plug(camera(name)); }
  std::vector<std::uint32_t> handles(std::uint16_t format) {
    return pluggedCamera(id_).handles({.format = format});
  }
  std::string onlyObject(std::uint16_t format) {
    const auto all = handles(format);
    if (all.size() != 1) return std::to_string(all.size()) + " objects";
    const auto bytes = pluggedCamera(id_).bytes(all.front());
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  std::string id_;
};

TEST_F(Sharing, OrdersOfDataSetsAreListedFulfilledAndDeleted) {
  use("orders-camera");
  EXPECT_THAT(tool("--json orders list").json(), SizeIs(5));
  EXPECT_EQ(tool("orders show 1 --download o/").exitCode, 0) << err();
  EXPECT_TRUE(folder_.exists("work/o/1 email - Holidays/TARV0003.MOV"));
  EXPECT_EQ(tool("orders fulfil 1").exitCode, 0) << err();
  EXPECT_THAT(handles(ptp::XTD_EMAIL_ORDER), SizeIs(1));
  EXPECT_EQ(tool("orders delete --yes").exitCode, 0) << err();
  EXPECT_THAT(handles(ptp::XTD_EMAIL_ORDER), IsEmpty());
  EXPECT_THAT(handles(ptp::XTD_PRINT_ORDER), IsEmpty());
}

TEST_F(Sharing, OrdersOfMarkerFilesAreListedAndDeleted) {
  use("orders-legacy");
  EXPECT_THAT(tool("--json orders list").json(), SizeIs(5));
  EXPECT_EQ(tool("orders delete --yes").exitCode, 0) << err();
  EXPECT_THAT(handles(0x3006), IsEmpty());
  EXPECT_THAT(tool("--json orders list").json(), IsEmpty());
}

TEST_F(Sharing, AnAddressBookOfDataSetsIsReadCheckedChangedAndWritten) {
  use("orders-camera");
  const auto contacts = handles(ptp::XTD_CONTACT);
  const auto untouched = pluggedCamera(id_).bytes(contacts[2]);
  EXPECT_EQ(tool("addressbook validate").exitCode, 0) << err();
  const auto run = shell(
      "tarvoctl addressbook export b.json && sed -i 's/borge@example.org/b.j@example.org/' b.json "
      "&& "
      "tarvoctl addressbook import b.json --yes && tarvoctl addressbook validate b.json");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("~ B\xC3\xB8rge <b.j@example.org> (e-mail)"));
  EXPECT_EQ(handles(ptp::XTD_CONTACT), contacts);
  EXPECT_EQ(pluggedCamera(id_).bytes(contacts[2]), untouched);
  // The GUID, its count before it, and the address as a PTP string of 15 units and a zero.
  const auto changed = pluggedCamera(id_).bytes(contacts[1]);
  const std::string address(reinterpret_cast<const char*>(changed.data()) + 20, 10);
  EXPECT_EQ(address, std::string("\x10"
                                 "b\0.\0j\0@\0e",
                                 10));
}

TEST_F(Sharing, AnAddressBookInAFileIsReadCheckedChangedAndWritten) {
  use("orders-legacy");
  const auto run = shell(
      "tarvoctl addressbook export b.vcf && sed -i 's/^EMAIL:bert@/EMAIL:rob@/' b.vcf && "
      "tarvoctl addressbook import b.vcf --yes");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(onlyObject(ptp::XTD_ADDRESS_BOOK_FILE),
            "Anna <anna@example.org>\r\nBert <rob@example.org>\r\n <nameless@example.org>\r\n");
  EXPECT_EQ(tool("addressbook import b.vcf --yes --sync").exitCode, 0) << err();
  EXPECT_EQ(onlyObject(ptp::XTD_ADDRESS_BOOK_FILE), "");
}

TEST_F(Sharing, EveryExampleOfTheHelpWorks) {
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

// Orders and the address book through the unmodified tarvoctl, and what the device holds
// afterwards.
#include "Utilities/PTPCodes.h"
#include "simulator/description/DatasetDescription.h"
#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kContacts = "XTAddressBookContactsKey";

class Orders : public ToolTestbed {
 protected:
  simulator::PTPCamera& device() { return pluggedCamera(id_); }
  void TearDown() override {
    if (testbed_->device(id_) != nullptr) {
      EXPECT_THAT(device().violations(), IsEmpty());
    }
  }

  /// The address book of a device that keeps it as a file.
  std::string bookFile() {
    const auto found = device().handles({0xFFFFFFFF, ptp::XTD_ADDRESS_BOOK_FILE, 0});
    EXPECT_THAT(found, SizeIs(1));
    const auto bytes = device().bytes(found.at(0));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
  void expectDone(const std::string& words) {
    const auto run = tool(words);
    EXPECT_EQ(run.exitCode, 0) << words << "\n" << run.out << run.err;
  }
  json book() { return tool("--json addressbook show").json(); }
  Run import(const json& book) {
    folder_.write("work/book.json", book.dump());
    return tool("addressbook import book.json --yes");
  }

  std::string id_;
};

TEST_F(Orders, AreFulfilledAndDeletedAndNothingElseIs) {
  id_ = plug(camera("orders-camera"));
  auto left = device().handles();
  expectDone("orders fulfil 1 TARV0001.JPG");
  const auto order = simulator::parseDataset(ptp::XTD_EMAIL_ORDER, device().bytes(16)).value();
  EXPECT_THAT(simulator::assetsOf(order), ElementsAre(5));
  EXPECT_EQ(tool("orders fulfil 1 NONE.JPG").exitCode, 1);
  EXPECT_EQ(device().handles(), left);
  expectDone("orders fulfil 0x10");
  expectDone("orders delete --yes");
  for (const std::uint32_t gone : {16U, 17U, 18U})
    std::erase(left, gone);
  EXPECT_EQ(device().handles(), left);
  EXPECT_EQ(tool("--json orders list").json().size(), 2U) << "those for transfer";
}

TEST_F(Orders, ACardKeepsItsEncodingWhenItIsWritten) {
  folder_.write("config/tarvo/agent.conf", "[Platform]\nDefaultEncoding=ISO-8859-1\n");
  auto description = camera("orders-legacy");
  description.stores[0].content[0].text = "Ren\xE9 <r@example.org>\r\n";
  description.stores[0].content[0].size = 22;
  id_ = plug(description);
  auto wanted = book();
  wanted[kContacts].push_back(
      {{"kABEmailProperty", "z@example.org"}, {"kABNicknameProperty", "Zoë"}});
  EXPECT_EQ(import(wanted).exitCode, 0) << err();
  EXPECT_EQ(bookFile(), "Ren\xE9 <r@example.org>\r\nZo\xEB <z@example.org>\r\n");
  wanted[kContacts][0]["kABNicknameProperty"] = "Łukasz";
  EXPECT_EQ(import(wanted).exitCode, 1);
  EXPECT_THAT(bookFile(), HasSubstr("Zo\xEB")) << "it was not touched";
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

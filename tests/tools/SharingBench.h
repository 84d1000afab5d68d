// tarvoctl on the cameras that keep orders and an address book, as they are shipped.
//
//   SharingBench bench("orders-legacy");
//   EXPECT_EQ(bench.run({"orders", "list"}).exitCode, 0);
#pragma once

#include <filesystem>
#include <fstream>

#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {

inline constexpr const char* kContacts = "XTAddressBookContactsKey";
inline constexpr const char* kGroups = "XTAddressBookGroupsKey";
inline constexpr const char* kMembers = "contactGroupMembersKey";

inline std::string shippedCamera(const std::string& name, const std::string& over = "{}") {
  std::ifstream file(std::string(DEVICES_FOLDER) + "/" + name + ".json");
  auto json = nlohmann::json::parse(file);
  json.merge_patch(nlohmann::json::parse(over));
  return json.dump();
}

/// A description with one more vendor data set: zeros, then a count of which nothing follows.
inline std::string withEndlessDataSet(const std::string& format, std::size_t zeros) {
  const std::string hex = "10000000" + std::string(2 * zeros, '0') + "ffffffff";
  return R"({"datasets": {"raw": [{"format": ")" + format + R"(", "hex": ")" + hex + R"("}]}})";
}

class SharingBench : public CameraBench {
 public:
  /// `over` is laid over the camera's description.
  explicit SharingBench(const std::string& name, const std::string& over = "{}")
      : CameraBench(shippedCamera(name, over)) {}

  /// Names of files below the bench's folder, with `below` in front, in order.
  std::vector<std::string> files(const std::string& below) const {
    std::vector<std::string> names;
    const std::filesystem::path root = folder.path();
    if (!std::filesystem::exists(root / below)) return names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / below))
      if (entry.is_regular_file()) names.push_back(std::filesystem::relative(entry, root));
    std::ranges::sort(names);
    return names;
  }
  /// The backups that there are.
  std::vector<std::string> backups() const { return files("data/tarvo/backups"); }
  /// The bytes of the only object of a format; a text of its own where there is another number.
  std::string onlyObject(std::uint16_t format) const {
    const auto handles = sim.camera->handles({.format = format});
    if (handles.size() != 1) return std::to_string(handles.size()) + " objects";
    return content(handles.front());
  }
  std::string content(std::uint32_t handle) const {
    const auto bytes = sim.camera->bytes(handle);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
  std::size_t count(std::uint16_t format) const {
    return sim.camera->handles({.format = format}).size();
  }
  /// Imports a book from a file; `options` may be more of them.
  ToolRun import(const std::string& text, const std::vector<std::string>& options = {"--yes"}) {
    std::vector<std::string> words = {"addressbook", "import", folder.write("book.json", text)};
    words.insert(words.end(), options.begin(), options.end());
    return run(words);
  }
  /// The device's address book as it tells it now.
  nlohmann::json book() { return run({"--json", "addressbook", "show"}).json(); }
  /// "NICKNAME <EMAIL>" of each contact.
  std::vector<std::string> contacts() {
    std::vector<std::string> all;
    const auto now = book();
    for (const auto& contact : now.value(kContacts, nlohmann::json::array()))
      all.push_back(contact.value("kABNicknameProperty", "") + " <" +
                    contact.value("kABEmailProperty", "") + ">");
    return all;
  }

  ScopedEnvironment dataHome{"XDG_DATA_HOME", folder.path("data")};
  ScopedEnvironment vcard{"TARVO_VCARD", VCARD_PROGRAM};
};

}  // namespace tarvo::test

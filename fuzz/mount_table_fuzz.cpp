// Feeds the reader of the mount table any text: a mount point has the name that a card gives.
//
// A second reading, field by field, must give the same mounts, and each of them comes back as it
// was from a line that is written of it as the kernel would.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Format.h"
#include "fuzz/Require.h"
#include "platform/foundation/UnixMountTable.h"

namespace {

using tarvo::Mount;

std::vector<std::string> naiveSplit(std::string_view text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  // What ends with a separator has nothing behind it.
  if (parts.back().empty()) parts.pop_back();
  return parts;
}

std::string naiveUnescaped(const std::string& field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const std::string digits = field.substr(i + 1, 3);
    if (field[i] == '\\' && digits.size() == 3 &&
        digits.find_first_not_of("01234567") == std::string::npos) {
      text += static_cast<char>(std::stoi(digits, nullptr, 8));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::vector<Mount> naiveMounts(std::string_view text) {
  std::vector<Mount> mounts;
  for (const auto& line : naiveSplit(text, '\n')) {
    const auto fields = naiveSplit(line, ' ');
    for (std::size_t i = 6; i < fields.size(); ++i) {
      if (fields[i] != "-") continue;
      if (i + 2 < fields.size())
        mounts.push_back({naiveUnescaped(fields[i + 2]), naiveUnescaped(fields[4])});
      break;
    }
  }
  return mounts;
}

bool areSame(const std::vector<Mount>& a, const std::vector<Mount>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].device != b[i].device || a[i].mountPoint != b[i].mountPoint) return false;
  return true;
}

std::string escaped(const std::string& text) {
  std::string field;
  for (const char c : text)
    field += c == ' ' || c == '\t' || c == '\n' || c == '\\'
                 ? tarvo::formatted("\\%03o", static_cast<unsigned>(c))
                 : std::string(1, c);
  return field;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> copy(data, data + size);
  const std::string_view text(copy.data(), copy.size());
  const auto mounts = tarvo::mountsOfMountInfo(text);
  require(areSame(mounts, naiveMounts(text)));
  std::string again;
  for (const Mount& mount : mounts) {
    if (mount.device.empty()) return 0;
    again += "36 35 8:17 / " + escaped(mount.mountPoint) + " rw shared:1 - vfat " +
             escaped(mount.device) + " rw\n";
  }
  require(areSame(tarvo::mountsOfMountInfo(again), mounts));
  return 0;
}

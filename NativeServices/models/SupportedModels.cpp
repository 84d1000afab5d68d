#include "NativeServices/models/SupportedModels.h"

#include <algorithm>
#include <array>
#include <boost/xpressive/xpressive_dynamic.hpp>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

#include "NativeServices/Logging.h"
#include "Utilities/Format.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;
namespace xpressive = boost::xpressive;

/// The section for 32-bit Windows. The carriage return belongs to it: the file has DOS line ends,
/// and one without them is not the driver's.
constexpr std::string_view kSectionHeader = "[Models.NTx86]\r";
constexpr const char* kFallbackPath = "../Resources/ggcam.inf";
/// Cameras of this range are taken whatever the file says.
constexpr std::int32_t kFirstFixedPid = 0x302;
constexpr std::int32_t kLastFixedPid = 0x311;

// A setup information file has some kilobytes and short lines. What is larger is not one, and
// neither memory nor the matcher's stack is spent on it.
constexpr std::size_t kLargestFile = 1 << 20;
constexpr std::size_t kLongestLine = 1024;

constexpr std::array<std::string_view, 4> kCardMarkers = {"MISC/SSECUPLD.XML", "MISC/SSICUPLD.XML",
                                                          "MISC/EREVIEW.DB", "MISC/IREVIEW.DB"};

/// The process-wide table; its owner sets it for its lifetime.
SupportedModels* currentModels = nullptr;

/// The first megabyte of a regular file.
std::optional<std::string> contentsOfFile(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;  // a pipe would block
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text(kLargestFile, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  text.shrink_to_fit();  // a file of some kilobytes must not hold a megabyte while it is read
  return text;
}

/// The next line without its line feed, taken off `text`. A last line without a line feed is not
/// examined: intended, see docs/oddities.md.
std::optional<std::string_view> takeLine(std::string_view& text) {
  const auto end = text.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

/// Moves behind the header line of the model section. False when there is none.
bool skipToModels(std::string_view& text) {
  while (const auto line = takeLine(text))
    if (*line == kSectionHeader) return true;
  return false;
}

/// The hexadecimal number that `text` begins with: 0 without a digit, the largest when it is too
/// large.
std::int32_t leadingHexNumber(std::string_view text) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::uint64_t number = 0;
  for (const char character : text) {
    const bool isUpper = character >= 'A' && character <= 'F';
    const auto digit = kDigits.find(isUpper ? static_cast<char>(character - 'A' + 'a') : character);
    if (digit == std::string_view::npos) break;
    number = std::min(number * 16 + digit, kLargest);
  }
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
}

}  // namespace

SupportedModels::SupportedModels(const MakerConstants& constants)
    : previous_(std::exchange(currentModels, this)),
      vendorID_(constants.usbVendorID),
      bundlePath_(constants.agentBundlePath) {}

SupportedModels::~SupportedModels() {
  currentModels = previous_;
}

SupportedModels* SupportedModels::current() {
  return currentModels;
}

void SupportedModels::getValidDscPids() {
  if (sPidList) return;
  auto text = contentsOfFile(fs::path(bundlePath_) / "Resources" / "ggcam.inf");
  if (!text) {
    TraceLog::trace("getValidDscPids: Failed to open file 'ggcam.inf'");
    text = contentsOfFile(kFallbackPath);
  }
  if (!text) return;
  std::string_view rest = *text;
  if (!skipToModels(rest)) {
    systemLogLine("getValidDscPids: Failed to find [Models.NTx86] in ggcam.inf");
    return;
  }
  auto pids = modelLinePids(rest);
  for (std::int32_t pid = kFirstFixedPid; pid <= kLastFixedPid; ++pid)
    pids.push_back(pid);
  sPidList = std::move(pids);
}

/// The product ids of the model lines at the start of `lines`: the first line of another form ends
/// them.
std::vector<std::int32_t> SupportedModels::modelLinePids(std::string_view lines) const {
  std::vector<std::int32_t> pids;
  // The dots are not escaped and stand for any character: intended, see docs/oddities.md.
  const auto pattern = xpressive::cregex::compile(formatted(
      "(%%MfgName%%=QRS.Camera,USB.VID_%04X&PID_)(.*)", static_cast<unsigned>(vendorID_)));
  while (const auto line = takeLine(lines)) {
    // The length first: the matcher's stack grows with the line.
    xpressive::cmatch match;
    if (line->size() > kLongestLine ||
        !xpressive::regex_match(line->data(), line->data() + line->size(), match, pattern))
      break;
    pids.push_back(leadingHexNumber(match.str(2)));
  }
  return pids;
}

bool SupportedModels::isValidDscVid(std::int32_t vid, std::int32_t pid) {
  getValidDscPids();
  if (vid != vendorID_ || !sPidList) return false;
  return std::ranges::find(*sPidList, pid) != sPidList->end();
}

bool SupportedModels::isValidPVC(std::int32_t vid, std::int32_t pid) const {
  return vid == vendorID_ && (pid == 0x40B || (pid >= 0x410 && pid <= 0x41F));
}

bool SupportedModels::isValidCard(std::optional<std::string_view> logicalMountPath) {
  if (!logicalMountPath || logicalMountPath->empty()) return false;
  const fs::path volume(*logicalMountPath);
  // A volume that is pulled out meanwhile gives errors, which count as "no such file".
  return std::ranges::any_of(kCardMarkers, [&](std::string_view marker) {
    std::error_code error;
    return fs::exists(volume / marker, error);
  });
}

}  // namespace tarvo

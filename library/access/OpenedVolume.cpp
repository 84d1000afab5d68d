#include "library/access/OpenedVolume.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo::library {
namespace {

using Kind = FolderWalk::Kind;
using Entry = FolderWalk::Entry;

/// The operands of a command, and which of them have found something.
class Operands {
 public:
  explicit Operands(const std::vector<std::string>& texts) {
    for (const auto& text : texts)
      operands_.push_back({text, text.find_first_of("*?[") != std::string::npos});
  }

  /// Whether each is a name that has its entry.
  bool areComplete() const {
    return std::ranges::all_of(operands_,
                               [](const auto& each) { return each.wasMatched && !each.isPattern; });
  }

  bool take(const Entry& entry) {
    bool isWanted = false;
    for (auto& operand : operands_) {
      const bool isSpent = operand.isPattern ? entry.kind == Kind::kFolder : operand.wasMatched;
      if (isSpent || !matches(operand, entry)) continue;
      operand.wasMatched = true;
      isWanted = true;
    }
    return isWanted;
  }

  void eachUnmatched(const std::function<void(const std::string&)>& report) const {
    for (const auto& operand : operands_) {
      if (!operand.wasMatched) report(operand.text);
    }
  }

 private:
  struct Operand {
    std::string text;
    bool isPattern = false;
    bool wasMatched = false;
  };

  static bool matches(const Operand& operand, const Entry& entry) {
    const bool hasSlash = operand.text.find('/') != std::string::npos;
    const std::string compared = hasSlash ? entry.path : std::string(entry.name());
    if (!operand.isPattern) return compared == operand.text;
    return ::fnmatch(operand.text.c_str(), compared.c_str(), FNM_PATHNAME | FNM_PERIOD) == 0;
  }

  std::vector<Operand> operands_;
};

}  // namespace

OpenedVolume::OpenedVolume(DeviceSummary summary)
    : summary_(std::move(summary)), tree_(summary_.path) {
  if (!tree_.isOpen())
    raise({.object = summary_.path, .status = status::kIOError, .why = errorText(tree_.error())});
}

std::uint64_t OpenedVolume::visit(const std::vector<std::string>& operands,
                                  ObjectChoice::Others others, const VolumeVisitor& visitor) const {
  std::uint64_t passedOver = 0;
  Operands wanted(operands);
  FolderWalk walk(tree_, [&](const std::string& path, int error) {
    const std::string folder = path.empty() ? summary_.path : path;
    visitor.onUnreadable(path, {.object = folder,
                                .status = status::kIOError,
                                .why = "the folder cannot be read: " + errorText(error)});
  });
  const bool endsEarly = others == ObjectChoice::Others::kNone;
  while (visitor.goesOn() && !(endsEarly && wanted.areComplete())) {
    const Entry* entry = walk.next();
    if (!entry) break;
    const bool isFile = entry->kind == Kind::kFile;
    const bool isAmongOthers =
        (others == ObjectChoice::Others::kEverything) ||
        (others == ObjectChoice::Others::kPictures && isFile && isPictureOrFilmName(entry->name()));
    const bool wasNamed = wanted.take(*entry);
    if (wasNamed || isAmongOthers) {
      visitor.onEntry(walk, *entry, wasNamed);
    } else if (isFile && others == ObjectChoice::Others::kPictures) {
      ++passedOver;
    }
  }
  if (visitor.goesOn()) wanted.eachUnmatched(visitor.onUnmatched);
  return passedOver;
}

namespace {

// Wider than what the library counts as a picture, which is that of the maker's own devices.
constexpr std::string_view kExtensions[] = {
    // Pictures.
    "jpg", "jpeg", "jpe", "jfif", "jp2", "jpx", "jxl", "tif", "tiff", "bmp", "bmg", "fpx", "fpix",
    "gif", "png", "pict", "pcd", "heic", "heif", "hif", "avif", "webp", "mpo", "jps", "insp",
    // Raw pictures, maker by maker.
    "dng", "raw", "crw", "cr2", "cr3", "nef", "nrw", "arw", "srf", "sr2", "orf", "ori", "rw2",
    "rwl", "raf", "pef", "ptx", "srw", "x3f", "kdc", "dcr", "dc2", "dcs", "k25", "tdc", "mrw",
    "3fr", "fff", "iiq", "mos", "mef", "erf", "gpr", "bay", "cap",
    // Films.
    "mov", "qt", "mp4", "m4v", "mpg", "mpeg", "mpe", "avi", "mts", "m2ts", "m2t", "ts", "mod",
    "tod", "3gp", "3g2", "wmv", "asf", "mkv", "webm", "mxf", "vob", "dv", "insv", "360", "lrv",
    "braw", "crm", "r3d"};

}  // namespace

bool isPictureOrFilmName(std::string_view name) {
  return !name.starts_with('.') &&
         std::ranges::find(kExtensions, lowerCaseExtension(name)) != std::end(kExtensions);
}

}  // namespace tarvo::library

#include "import/Groups.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

#include "platform/files/FileNames.h"
#include "tarvo/Objects.h"

namespace tarvo::importing {
namespace {

// Maker by maker.
constexpr std::string_view kRaw[] = {"dng", "raw", "crw", "cr2", "cr3", "nef", "nrw", "arw", "srf",
                                     "sr2", "orf", "ori", "rw2", "rwl", "raf", "pef", "ptx", "srw",
                                     "x3f", "kdc", "dcr", "dc2", "dcs", "k25", "tdc", "mrw", "3fr",
                                     "fff", "iiq", "mos", "mef", "erf", "gpr", "bay", "cap"};
constexpr std::string_view kFilms[] = {"mov", "qt",   "mp4",  "m4v",  "mpg", "mpeg", "mpe", "avi",
                                       "mts", "m2ts", "m2t",  "ts",   "mod", "tod",  "3gp", "3g2",
                                       "wmv", "asf",  "mkv",  "webm", "mxf", "vob",  "dv",  "insv",
                                       "360", "lrv",  "braw", "crm",  "r3d"};
constexpr std::string_view kSounds[] = {"wav", "wave", "mp3", "m4a", "aac", "aif", "aiff"};
constexpr std::string_view kSidecars[] = {"xmp", "aae"};

template <typename Table>
bool isIn(const Table& table, std::string_view extension) {
  return std::ranges::find(table, extension) != std::end(table);
}

/// The path without its ending, in lower case but for the folder.
std::string keyOf(std::string_view path) {
  const std::size_t name = path.rfind('/') + 1;  // npos + 1 is the beginning
  const std::size_t dot = path.rfind('.');
  std::string key(path.substr(0, dot == std::string_view::npos || dot < name ? path.size() : dot));
  std::transform(key.begin() + static_cast<std::ptrdiff_t>(name), key.end(),
                 key.begin() + static_cast<std::ptrdiff_t>(name),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
  return key;
}

}  // namespace

MediaKind mediaKindOf(std::string_view name) {
  const std::string extension = lowerCaseExtension(name);
  if (isIn(kSounds, extension)) return MediaKind::kSound;
  if (isIn(kSidecars, extension)) return MediaKind::kSidecar;
  if (extension == "thm") return MediaKind::kThumbnail;
  if (!isPictureOrFilm(name.substr(name.rfind('/') + 1))) return MediaKind::kOther;
  if (isIn(kRaw, extension)) return MediaKind::kRaw;
  return isIn(kFilms, extension) ? MediaKind::kFilm : MediaKind::kPicture;
}

std::vector<std::vector<std::size_t>> groupsOf(std::span<const std::string> paths) {
  std::vector<std::vector<std::size_t>> groups;
  std::unordered_map<std::string, std::vector<std::size_t>> groupsOfKey;
  const auto kindOf = [&](std::size_t path) { return mediaKindOf(paths[path]); };
  for (std::size_t path = 0; path < paths.size(); ++path) {
    const MediaKind kind = kindOf(path);
    auto& near = groupsOfKey[keyOf(paths[path])];
    const auto found = std::ranges::find_if(near, [&](std::size_t group) {
      return std::ranges::find(groups[group], kind, kindOf) == groups[group].end();
    });
    if (kind != MediaKind::kOther && found != near.end()) {
      groups[*found].push_back(path);
      continue;
    }
    if (kind != MediaKind::kOther) near.push_back(groups.size());
    groups.push_back({path});
  }
  for (auto& group : groups)
    std::ranges::sort(group, {}, kindOf);
  return groups;
}

}  // namespace tarvo::importing

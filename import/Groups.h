// What belongs together on a device: a picture and its raw one, a film and its thumbnail file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::importing {

enum class MediaKind : std::uint8_t {
  kPicture,
  kRaw,  ///< a picture too, as the sensor saw it
  kFilm,
  kSound,
  kThumbnail,  ///< of a film, "MOV_0001.THM"
  kSidecar,    ///< what a program noted of a picture
  kOther,
};

/// By the ending of its name, without regard to case. Any thread.
MediaKind mediaKindOf(std::string_view name);

/// The paths that belong together, as their numbers in `paths`: in the same folder, of one name but
/// for the ending and the case, and each of another kind, of which none is kOther. Every path is in
/// one group; the first of each group is the one whose date counts for all. Groups are in the order
/// of their first member in `paths`. Any thread.
std::vector<std::vector<std::size_t>> groupsOf(std::span<const std::string> paths);

}  // namespace tarvo::importing

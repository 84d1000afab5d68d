#include "library/access/OpenedVolume.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo::library {
OpenedVolume::OpenedVolume(DeviceSummary summary)
    : summary_(std::move(summary)), tree_(summary_.path) {
  if (!tree_.isOpen())
    raise({.object = summary_.path, .status = status::kIOError, .why = errorText(tree_.error())});
}

namespace {

// Wider than what the library counts as a picture, which is that of the maker's own devices.
constexpr std::string_view kPictures[] = {
    "jpg",
    "jpeg",
    "jpe",
    "jfif",
    "jp2",
    "jpx",
    "jxl",
    "tif",
    "tiff",
    "bmp",
    "bmg",
    "fpx",
    "fpix",
    "gif",
    "png",
    "pict",
    "pcd",
    "heic",
    "heif",
    "hif",
    "avif",
    "webp",
    "mpo",
    "jps",
    "insp",
    // Raw pictures, maker by maker.
    "dng",
    "raw",
    "crw",
    "cr2",
    "cr3",
    "nef",
    "nrw",
    "arw",
    "srf",
    "sr2",
    "orf",
    "ori",
    "rw2",
    "rwl",
    "raf",
    "pef",
    "ptx",
    "srw",
    "x3f",
    "kdc",
    "dcr",
    "dc2",
    "dcs",
    "k25",
    "tdc",
    "mrw",
    "3fr",
    "fff",
    "iiq",
    "mos",
    "mef",
    "erf",
    "gpr",
    "bay",
    "cap",
};
constexpr std::string_view kFilms[] = {"mov", "qt",   "mp4",  "m4v",  "mpg", "mpeg", "mpe", "avi",
                                       "mts", "m2ts", "m2t",  "ts",   "mod", "tod",  "3gp", "3g2",
                                       "wmv", "asf",  "mkv",  "webm", "mxf", "vob",  "dv",  "insv",
                                       "360", "lrv",  "braw", "crm",  "r3d"};

template <std::size_t N>
bool endsInOneOf(const std::string_view (&extensions)[N], std::string_view name) {
  return !name.starts_with('.') &&
         std::ranges::find(extensions, lowerCaseExtension(name)) != std::end(extensions);
}

}  // namespace

bool isFilmName(std::string_view name) { return endsInOneOf(kFilms, name); }

bool isPictureOrFilmName(std::string_view name) {
  return endsInOneOf(kPictures, name) || isFilmName(name);
}

}  // namespace tarvo::library

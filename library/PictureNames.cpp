#include <algorithm>
#include <span>

#include "platform/files/FileNames.h"
#include "tarvo/Objects.h"

namespace tarvo {
namespace {

// Wider than what the library counts as a picture, which is that of the maker's own devices.
constexpr std::string_view kPictures[] = {"jpg",  "jpeg", "jpe", "jfif", "jp2",  "jpx",  "jxl",
                                          "tif",  "tiff", "bmp", "bmg",  "fpx",  "fpix", "gif",
                                          "png",  "pict", "pcd", "heic", "heif", "hif",  "avif",
                                          "webp", "mpo",  "jps", "insp"};
/// Raw pictures, maker by maker.
constexpr std::string_view kRawPictures[] = {
    "dng", "raw", "crw", "cr2", "cr3", "nef", "nrw", "arw", "srf", "sr2", "orf", "ori",
    "rw2", "rwl", "raf", "pef", "ptx", "srw", "x3f", "kdc", "dcr", "dc2", "dcs", "k25",
    "tdc", "mrw", "3fr", "fff", "iiq", "mos", "mef", "erf", "gpr", "bay", "cap"};
constexpr std::string_view kFilms[] = {"mov", "qt",   "mp4",  "m4v",  "mpg", "mpeg", "mpe", "avi",
                                       "mts", "m2ts", "m2t",  "ts",   "mod", "tod",  "3gp", "3g2",
                                       "wmv", "asf",  "mkv",  "webm", "mxf", "vob",  "dv",  "insv",
                                       "360", "lrv",  "braw", "crm",  "r3d"};

bool endsInOneOf(std::span<const std::string_view> extensions, std::string_view name) {
  return !name.starts_with('.') &&
         std::ranges::find(extensions, lowerCaseExtension(name)) != extensions.end();
}

}  // namespace

bool isFilm(std::string_view name) { return endsInOneOf(kFilms, name); }

bool isPictureOrFilm(std::string_view name) {
  return endsInOneOf(kPictures, name) || endsInOneOf(kRawPictures, name) || isFilm(name);
}

}  // namespace tarvo

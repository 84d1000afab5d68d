#include "tarvo/Objects.h"

#include <algorithm>
#include <ostream>
#include <span>
#include <utility>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/Records.h"
#include "library/access/DeviceState.h"
#include "platform/files/FileNames.h"

namespace tarvo {

using namespace library;

struct ObjectInfo::Data {
  /// Of a volume: what a camera would tell.
  std::shared_ptr<const XTExtendedObjectInfo> info;
  std::uint32_t handle = 0;
  std::string name{};  ///< of a volume: the bytes of the file system
  std::string path{};
  std::uint64_t size = 0;
  std::optional<std::time_t> modified{};
  FolderWalk::Kind kind = FolderWalk::Kind::kFile;
};

std::uint32_t ObjectInfo::handle() const { return data_->handle; }
const std::string& ObjectInfo::name() const {
  return data_->name.empty() ? data_->info->fileName() : data_->name;
}
const std::string& ObjectInfo::path() const { return data_->path; }
std::uint64_t ObjectInfo::size() const { return data_->size; }
std::uint32_t ObjectInfo::thumbnailSize() const { return data_->info->thumbCompressedSize(); }
std::uint16_t ObjectInfo::format() const { return data_->info->objFmtCode(); }
bool ObjectInfo::isFolder() const { return data_->info->objFmtCode() == ptp::kAssociationFormat; }
bool ObjectInfo::isSpecial() const { return data_->kind == FolderWalk::Kind::kOther; }
bool ObjectInfo::isProtected() const { return data_->info->protectionStatus() != 0; }
std::optional<std::time_t> ObjectInfo::modified() const { return data_->modified; }
const std::string& ObjectInfo::captureDate() const { return data_->info->captureDateStr(); }
const std::string& ObjectInfo::modificationDate() const { return data_->info->modDataStr(); }
std::uint32_t ObjectInfo::parent() const { return data_->info->parentObject(); }
std::uint32_t ObjectInfo::store() const { return data_->info->storageID(); }
std::uint32_t ObjectInfo::width() const { return data_->info->imagePixWidth(); }
std::uint32_t ObjectInfo::height() const { return data_->info->imagePixHeight(); }

std::ostream& operator<<(std::ostream& out, const ObjectInfo& object) {
  return out << printable(object.path()) << " (" << handleText(object.handle()) << ", format 0x"
             << std::hex << object.format() << std::dec << ", " << object.size() << " bytes)";
}

const XTExtendedObjectInfo& library::recordOf(const ObjectInfo& object) {
  return *object.data().info;
}

namespace {

/// As a PTP device would tell of the file, so that both kinds of devices have the same.
std::shared_ptr<const XTExtendedObjectInfo> infoOf(const FolderWalk::Entry& entry,
                                                   const std::optional<struct stat>& attributes) {
  constexpr off_t kMost = 0xFFFFFFFF;
  auto info = std::make_shared<XTExtendedObjectInfo>();
  const bool isFolder = entry.kind == FolderWalk::Kind::kFolder;
  info->setObjFmtCode(isFolder ? ptp::kAssociationFormat
                               : ptpFormatOfExtension(lowerCaseExtension(entry.name())));
  info->setFileName(validUTF8(entry.name()));
  if (!attributes) return info;
  if (!isFolder)
    info->setCompressedSize(static_cast<std::uint32_t>(std::min(attributes->st_size, kMost)));
  info->setModDataStr(ptpDateOfTime(attributes->st_mtime).value_or(""));
  return info;
}

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

ObjectInfo library::cameraObject(std::uint32_t handle, ObjectInfoPointer info, std::string path) {
  const std::uint64_t size = info->compressedSize();
  const auto modified = dateOfObject(*info);
  return valueOf<ObjectInfo>({.info = std::move(info),
                              .handle = handle,
                              .path = std::move(path),
                              .size = size,
                              .modified = modified});
}

ObjectInfo library::volumeObject(const FolderWalk::Entry& entry,
                                 const std::optional<struct stat>& attributes) {
  ObjectInfo::Data data{.info = infoOf(entry, attributes),
                        .name = std::string(entry.name()),
                        .path = entry.path,
                        .kind = entry.kind};
  if (attributes && entry.kind != FolderWalk::Kind::kFolder)
    data.size = static_cast<std::uint64_t>(attributes->st_size);
  if (attributes) data.modified = attributes->st_mtim.tv_sec;
  return valueOf<ObjectInfo>(std::move(data));
}

bool isFilm(std::string_view name) { return endsInOneOf(kFilms, name); }

bool isPictureOrFilm(std::string_view name) {
  return endsInOneOf(kPictures, name) || endsInOneOf(kRawPictures, name) || isFilm(name);
}

}  // namespace tarvo

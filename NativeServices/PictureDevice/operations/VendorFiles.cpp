#include "NativeServices/PictureDevice/operations/VendorFiles.h"

#include <sys/stat.h>

#include <limits>
#include <optional>
#include <span>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// Physical store 2, logical part 1: the device's own memory, which nobody takes out.
constexpr std::uint32_t kInnerStore = 0x00020001;
constexpr std::uint16_t kTextFormat = 0x3004;

}  // namespace

bool CollectionIDFile::isViewer() const {
  return device_.facts().model == kPictureViewerModel;
}

std::string CollectionIDFile::fileName() const {
  return isViewer() ? "PREFGUID.HOW" : "PREFGUID.TXT";
}

std::uint16_t CollectionIDFile::format() const {
  return isViewer() ? static_cast<std::uint16_t>(ptp::XTD_HOST_OBJECT_WRAPPER) : kTextFormat;
}

Status CollectionIDFile::find(std::uint32_t* handle) {
  *handle = 0;
  ObjectHandles files;
  // By name and not by handle: the file gets a new one each time that it is written.
  const Status status = listObjects(device_, format(), files, kInnerStore);
  for (const std::uint32_t file : files) {
    ObjectInfoPointer info;
    if (device_.objectInfo(info, file) != status::kOK || !info) {
      TraceLog::trace("object 0x%08X without information is no collection id", file);
    } else if (info->fileName() == fileName()) {
      *handle = file;
      break;
    }
  }
  return status;
}

std::optional<std::string> CollectionIDFile::defaultCollectionIDFromFile() {
  std::uint32_t handle = 0;
  // A device that cannot list has none to be found; the status would tell callers nothing else.
  (void)find(&handle);
  if (handle == 0) return std::nullopt;
  const auto data = ObjectDownloads(device_, kMostBytesOfTextFile).dataInPieces(handle);
  if (!data) return std::nullopt;
  std::string text(reinterpret_cast<const char*>(data->data()), data->size());
  if (isASCII(text)) return text;
  TraceLog::trace("%s is no ASCII text", fileName().c_str());
  return std::nullopt;
}

Status CollectionIDFile::storeDefaultCollectionIDInFile(
    const std::optional<std::string>& collectionID) {
  const std::string text = collectionID.value_or("");
  if (!isASCII(text)) return status::kBadParameter;
  std::uint32_t handle = 0;
  Status status = find(&handle);
  // The old one first: with two of a name a device may read either.
  if (handle != 0) status = ObjectChanges(device_).deleteObject(handle);
  if (text.empty()) return status;
  if (status != status::kOK) {
    TraceLog::trace("the old %s stays: 0x%x", fileName().c_str(), static_cast<unsigned>(status));
  }
  XTExtendedObjectInfo info;
  info.setFileName(fileName());
  info.setObjFmtCode(format());
  info.setCompressedSize(static_cast<std::uint32_t>(text.size()));
  return ObjectSending(device_, maker_)
      .sendData(std::as_bytes(std::span(text)), info, kInnerStore, 0, nullptr);
}

namespace {

constexpr char kShoeboxName[] = "tarvodsb.sbx";
constexpr char kImageName[] = "sbximg.jpg";

/// Bytes of a regular file that can be one object; none for anything else.
std::optional<std::uint32_t> sizeOfFile(const std::string& path) {
  struct stat attributes {};
  // A folder, a pipe or a device file has no size that could be announced.
  if (::stat(path.c_str(), &attributes) != 0 || !S_ISREG(attributes.st_mode)) return std::nullopt;
  if (attributes.st_size > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(attributes.st_size);
}

}  // namespace

Status Shoebox::sendContents(const std::string& path, const CodeList* operations) {
  XTExtendedObjectInfo info;
  const Status status = fillInObjInfo(info, path, operations, device_.facts(), maker_, nullptr);
  if (status != status::kOK) return status;
  info.setFileName(kShoeboxName);
  return device_.sendContentsOfFile(path, info, 0, 0, nullptr);
}

Status Shoebox::sendWhole(const std::string& path, const CodeList* operations,
                          std::uint32_t* resultHandle) {
  XTExtendedObjectInfo info;
  Status status = fillInObjInfo(info, path, operations, device_.facts(), maker_, nullptr);
  if (status != status::kOK) return status;
  info.setFileName(kShoeboxName);
  ByteBuffer content;
  status = readWholeFile(path, info.compressedSize(), content);
  if (status != status::kOK) return status;
  return ObjectSending(device_, maker_).sendContent(path, 0, 0, content, info, resultHandle);
}

Status Shoebox::addImage(const std::string& path, const CodeList* operations) {
  assertParameter(!path.empty(), "imagePath");
  ByteBuffer content;
  const auto size = sizeOfFile(path);
  if (!size || readWholeFile(path, *size, content) != status::kOK) {
    TraceLog::trace("Could not find image file '%s'.", path.c_str());
    return status::kFileNotFound;
  }
  XTExtendedObjectInfo info;
  // After the reading, which has its own words for a missing file; the size is that of what was
  // read.
  Status status = fillInObjInfo(info, path, operations, device_.facts(), maker_, nullptr);
  TraceLog::trace("fillInObjInfo status: %d", status);
  if (status != status::kOK) return status;
  info.setCompressedSize(static_cast<std::uint32_t>(content.size()));
  info.setObjFmtCode(ptp::XTD_SHOEBOX_IMAGE);
  info.setFileName(kImageName);
  status = ObjectSending(device_, maker_).sendData(content, info, 0, 0, nullptr);
  TraceLog::trace("sendData status: %d", status);
  return status;
}

}  // namespace tarvo

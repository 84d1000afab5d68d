#include "NativeServices/PictureDevice/operations/Shoebox.h"

#include <sys/stat.h>

#include <limits>
#include <optional>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

constexpr char kShoeboxName[] = "tarvodsb.sbx";
constexpr char kImageName[] = "sbximg.jpg";

/// Bytes of a regular file that can be one object; none for anything else.
std::optional<std::uint32_t> sizeOfFile(const std::string& path) {
  struct stat attributes {};
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

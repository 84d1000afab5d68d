#include "NativeServices/PictureDevice/operations/CollectionIDFile.h"

#include <span>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {

namespace {

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
  find(&handle);
  if (handle == 0) return std::nullopt;
  const auto data = ObjectDownloads(device_).dataInPieces(handle);
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

}  // namespace tarvo

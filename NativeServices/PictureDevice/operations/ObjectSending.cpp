#include "NativeServices/PictureDevice/operations/ObjectSending.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

// Pairs of the vendor extension: the announcement of an object and its bytes.
constexpr SendOpcodes kVendorObject{0x9001, ptp::XTO_SEND_VENDOR_OBJECT};
constexpr SendOpcodes kVendorSend{0x9005, ptp::XTO_SEND_OBJECT};
constexpr SendOpcodes kStandardSend{ptp::kSendObjectInfo, ptp::kSendObject};
constexpr std::uint16_t kSendExtendedObjectInfo = 0x9202;

constexpr std::string_view kDefaultCollectionFile = "PREFGUID.TXT";
constexpr std::string_view kViewersDefaultCollectionFile = "PREFGUID.HOW";

/// The choice of both operations; each function of the header gives its half.
SendOpcodes opcodesForFormat(const PTPDeviceFacts& facts, const MakerConstants& maker,
                             std::uint16_t format) {
  const auto& capabilities = facts.capabilities;
  if (format == ptp::XTD_WIRELESS_CONFIG && capabilities.hasSendVendorObject) return kVendorObject;
  // Legacy models take their firmware by the standard operation whatever they require.
  const bool takesVendorSend = !isLegacyModel(facts.model, maker) || format != ptp::kFirmwareFormat;
  return takesVendorSend && capabilities.xtSendRequired ? kVendorSend : kStandardSend;
}

}  // namespace

SendOpcodes opcodesForInfo(const PTPDeviceFacts& facts, const MakerConstants& maker,
                           const XTExtendedObjectInfo& info) {
  // Only devices that have the extension get such information, so the list is not asked.
  if (info.isExtended()) return {kSendExtendedObjectInfo, ptp::kSendObject};
  return opcodesForFormat(facts, maker, info.objFmtCode());
}

std::uint16_t sendObjectInfoOpcodeForFormat(const PTPDeviceFacts& facts,
                                            const MakerConstants& maker, std::uint16_t format) {
  return opcodesForFormat(facts, maker, format).sendInfo;
}

std::uint16_t sendObjectOpcodeForFormat(const PTPDeviceFacts& facts, const MakerConstants& maker,
                                        std::uint16_t format) {
  return opcodesForFormat(facts, maker, format).sendObject;
}

std::uint16_t formatCodeFilter(std::string_view model, const MakerConstants& maker,
                               std::uint16_t format) {
  const auto& models = maker.undefinedFormatModelsWithFamily;
  return std::ranges::find(models, model) != models.end() ? ptp::kUndefinedFormat : format;
}

bool takesData(const CodeList* operations, const DeviceCapabilities& capabilities) {
  const bool sendsByList = operations && (containsCode(*operations, ptp::kSendObjectInfo) ||
                                          containsCode(*operations, kVendorSend.sendInfo));
  return sendsByList || capabilities.hasSendVendorObject;
}

Status readWholeFile(const std::string& path, std::uint32_t size, ByteBuffer& content) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) return status::kFileNotFound;
  // What was announced, even where the file has grown meanwhile.
  // The device has been told this size or will be, and takes exactly so many bytes.
  content.resize(size);
  std::size_t filled = 0;
  while (filled < content.size()) {
    const ssize_t count = ::read(file.get(), content.data() + filled, content.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return status::kIOError;
    filled += static_cast<std::size_t>(count);
  }
  return status::kOK;
}

Status ObjectSending::sendFile(const std::string& path, const CodeList* operations,
                               std::uint32_t storage, std::uint32_t parent,
                               std::uint32_t* resultHandle) {
  XTExtendedObjectInfo info;
  Status status = fillInObjInfo(info, path, operations, device_.facts(), maker_, nullptr);
  if (status != status::kOK) return status;
  ByteBuffer content;
  status = readWholeFile(path, info.compressedSize(), content);
  if (status != status::kOK) return status;
  return sendContent(path, storage, parent, content, info, resultHandle);
}

Status ObjectSending::sendContent(const std::string& path, std::uint32_t storage,
                                  std::uint32_t parent, std::span<const std::byte> content,
                                  XTExtendedObjectInfo& info, std::uint32_t* resultHandle) {
  // Only the verdict below goes by this name: the object is announced as `info` has it.
  std::string name = lastPathComponent(path);
  if (name == kDefaultCollectionFile && device_.facts().model == kPictureViewerModel) {
    name = kViewersDefaultCollectionFile;
  }
  std::uint32_t handle = 0;
  Status status = device_.sendObjectInfo(info, storage, parent, &handle);
  // A device that refuses this file goes without a default collection, which is no failure.
  if (status != status::kOK) return name == kDefaultCollectionFile ? status::kOK : status;
  // The device waits for the bytes of what it accepted; nothing may come in between.
  // SendObject has no parameter: it belongs to the SendObjectInfo just before (ISO 15740,
  // SendObject).
  status = device_.sendObjectData(content);
  if (status == status::kOK && resultHandle != nullptr) *resultHandle = handle;
  return status;
}

Status ObjectSending::sendData(std::span<const std::byte> data, XTExtendedObjectInfo& info,
                               std::uint32_t storage, std::uint32_t parent,
                               std::uint32_t* resultHandle) {
  const auto facts = device_.facts();
  // Asked here so that nothing is announced to a device that takes no object.
  if (!takesData(&facts.operations, facts.capabilities)) return status::kUnsupported;
  std::uint32_t handle = 0;
  Status status = device_.sendObjectInfo(info, storage, parent, &handle);
  if (status == status::kOK) status = device_.sendObjectData(data);
  // A handle whose object has no bytes names nothing that the caller could use.
  if (status == status::kOK && resultHandle != nullptr) *resultHandle = handle;
  return status;
}

}  // namespace tarvo

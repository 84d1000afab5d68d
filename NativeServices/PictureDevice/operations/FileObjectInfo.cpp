#include "NativeServices/PictureDevice/operations/FileObjectInfo.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <optional>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Format.h"
#include "Utilities/FourCharCode.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"

namespace tarvo {
namespace {

bool isOneOf(const std::vector<std::string>& models, std::string_view model) {
  return std::ranges::find(models, model) != models.end();
}

/// The attribute where the file has it, else the type that goes with the extension. None for an
/// attribute that is no type.
std::optional<std::string> fileType(const std::string& path, std::string_view extension) {
  char type[sizeof(FourCharCode)];
  const ssize_t length = ::getxattr(path.c_str(), kFileTypeAttribute, type, sizeof type);
  if (length == sizeof type) return std::string(type, sizeof type);
  // No attribute, no such name space on the file system: the usual case. ERANGE: a longer text.
  if (length < 0 && errno != ERANGE) return fourCharText(fileTypeOfExtension(extension));
  return std::nullopt;
}

/// Makes the PTP type of a file out of that of its extension, for one device.
struct FormatChoice {
  const CodeList* operations;
  const PTPDeviceFacts& facts;
  const MakerConstants& maker;
  bool* xtSendRequired;
  bool undefinedIsAllowed = false;

  void setSendRequired(bool required) const {
    if (xtSendRequired != nullptr) *xtSendRequired = required;
  }

  /// Legacy models take nothing but firmware from a host: what becomes undefined here is refused
  /// at the end.
  std::uint16_t forLegacyModel(std::uint16_t type) const {
    if (type != ptp::kFirmwareFormat) return ptp::kUndefinedFormat;
    // Firmware goes to them by the standard send, whatever they list (see opcodesForFormat()).
    setSendRequired(false);
    return type;
  }

  std::uint16_t byOperations(std::uint16_t type) const {
    const bool takesVendorSend = operations && containsCode(*operations, ptp::XTO_SEND_OBJECT);
    const bool takesSend = operations && containsCode(*operations, ptp::kSendObject);
    // A response code as a format: intended, see docs/oddities.md.
    if (!takesVendorSend && !takesSend) return status::kPTPOperationNotSupported;
    // Of the two the vendor's comes first.
    setSendRequired(takesVendorSend);
    return type;
  }

  /// The newer form where the device shows it.
  std::uint16_t favourite() const {
    return containsCode(facts.imageFormats, ptp::XTD_BRAGBOOK2) ? ptp::XTD_BRAGBOOK2
                                                                : ptp::XTD_BRAGBOOK;
  }

  std::uint16_t choose(std::uint16_t type, std::string_view path) {
    // The order matters: what a model can take is decided first, what it calls that afterwards, and
    // a favourite is a JPEG only where it is still one.
    type = isLegacyModel(facts.model, maker) ? forLegacyModel(type) : byOperations(type);
    undefinedIsAllowed = isOneOf(maker.undefinedFormatModels, facts.model);
    if (undefinedIsAllowed) return ptp::kUndefinedFormat;
    const bool isFavourite = type == ptp::kJPEGFormat &&
                             facts.capabilities.deviceSupportsBragbooks && isBragbookFilename(path);
    return isFavourite ? favourite() : type;
  }
};

void traceStep(const std::string& text) {
  TraceLog::traceWithTag("MakeObjectInfo: " + text, XTOptDebugLog);
}

/// "2007-06-15 10:00:00 +0000".
std::string dateInWords(std::time_t time) {
  std::tm date{};
  std::array<char, 32> text{};
  if (::gmtime_r(&time, &date) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S +0000", &date)};
}

/// What is read of the file itself.
struct LocalFile {
  std::uint16_t type = 0;  ///< by its extension
  std::uint32_t size = 0;
  std::string date;  ///< of modification, as PTP writes it
};

/// Size and date, of which the file system may have none that an ObjectInfo can hold.
Status readSizeAndDate(const struct stat& attributes, const std::string& path, LocalFile& file) {
  traceStep(formatted("File size: %lld", static_cast<long long>(attributes.st_size)));
  traceStep("Modification Date: " + dateInWords(attributes.st_mtime) + "\n");
  // Before the size: without a date there is nothing to be announced, whatever the size is.
  const auto date = ptpDateOfTime(attributes.st_mtime);
  if (!date) {
    // Said of the date too: intended, see docs/oddities.md.
    traceStep("file size was not found for: " + path);
    return status::kFileTypeNotFound;
  }
  if (attributes.st_size > UINT32_MAX) return status::kBadParameter;
  file.date = *date;
  file.size = static_cast<std::uint32_t>(attributes.st_size);
  return status::kOK;
}

Status readLocalFile(const std::string& path, LocalFile& file) {
  struct stat attributes {};
  // A link stands for its file, as everywhere.
  // stat() follows it, and the extension is that of the link.
  if (::stat(path.c_str(), &attributes) != 0) {
    traceStep("path was not found: " + path);
    return status::kFileNotFound;
  }
  if (!S_ISREG(attributes.st_mode)) {
    traceStep("path does not specify a file: " + path);
    return status::kNotAFile;
  }
  // Cameras know their files by extension, whatever is in them; looking into the file would
  // disagree with them.
  const std::string extension = lowerCaseExtension(path);
  const auto fourCharacters = fileType(path, extension);
  if (!fourCharacters) {
    traceStep("file type was not found for: " + path);
    return status::kFileTypeNotFound;
  }
  traceStep("file type: " + *fourCharacters);
  file.type = ptpFormatOfExtension(extension);
  traceStep(formatted("PTP type: 0x%x", file.type));
  return readSizeAndDate(attributes, path, file);
}

}  // namespace

bool isLegacyModel(std::string_view model, const MakerConstants& maker) {
  return isOneOf(maker.legacyModels, model);
}

bool isBragbookFilename(std::string_view path) {
  return lastPathComponent(path).starts_with("FAV");
}

Status fillInObjInfo(XTExtendedObjectInfo& info, const std::string& path,
                     const CodeList* supportedOperations, const PTPDeviceFacts& facts,
                     const MakerConstants& maker, bool* xtSendRequired) {
  LocalFile file;
  const Status status = readLocalFile(path, file);
  if (status != status::kOK) return status;

  FormatChoice choice{supportedOperations, facts, maker, xtSendRequired};
  const std::uint16_t type = choice.choose(file.type, path);
  traceStep(formatted("final PTP type: 0x%x", type));
  // Undefined is what a device would show as a file that it cannot open: refused here, before a
  // byte is sent, except on models that take everything so.
  if (type == ptp::kUndefinedFormat && !choice.undefinedIsAllowed) {
    return status::kPTPInvalidObjectFormatCode;
  }
  // Storage, parent and everything about pictures stay 0: the device fills them in.
  info = XTExtendedObjectInfo();
  info.setObjFmtCode(type);
  info.setCompressedSize(file.size);
  info.setFileName(lastPathComponent(path));
  info.setCaptureDateStr(file.date);
  info.setModDataStr(file.date);
  return status::kOK;
}

}  // namespace tarvo

// The object information of a local file, as a device can take it.
#pragma once

#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Extended attribute with the four-character type that a file had where it came from.
inline constexpr const char* kFileTypeAttribute = "user.tarvo.hfstype";

/// Whether a model is one of the earliest series.
bool isLegacyModel(std::string_view model, const MakerConstants& maker);

/// Whether a file is a favourite ("FAV..."), by its name without its folder; case matters.
bool isBragbookFilename(std::string_view path);

/// Fills the standard fields of `info` from the file at `path`, every step traced; storage, parent
/// and picture fields are 0. `supportedOperations` (null: not known) and `facts` are those of the
/// device. `*xtSendRequired`, where given, tells whether the vendor's send operation is needed; it
/// is left alone where that does not follow.
///
/// -43 where there is no such file; -1302 where it is no regular file; -127 where its file type or
/// date cannot be told; -50 for 4 GiB and more, which no ObjectInfo can announce; 0x200B for a
/// file of no format that the device knows. On a device that can take no file the format is 0x2005
/// and the result 0 (docs/oddities.md).
[[nodiscard]] Status fillInObjInfo(XTExtendedObjectInfo& info, const std::string& path,
                                   const CodeList* supportedOperations, const PTPDeviceFacts& facts,
                                   const MakerConstants& maker, bool* xtSendRequired);

}  // namespace tarvo

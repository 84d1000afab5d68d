// The shoebox of a device: its file, and pictures that are added to it.
#pragma once

#include <cstdint>
#include <string>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Format of the shoebox file; its information is stale once a picture was added.
inline constexpr std::uint16_t kShoeboxFormat = 0xB00C;

/// Main thread only. `operations` may be null. Statuses are those of fillInObjInfo() and of
/// sending.
class Shoebox {
 public:
  /// Both are lent.
  Shoebox(PTPTransactions& device, const MakerConstants& maker) : device_(device), maker_(maker) {}

  /// Sends a file as "tarvodsb.sbx", in parts where the device takes them; nobody learns its
  /// handle, which is intended.
  Status sendContents(const std::string& path, const CodeList* operations);
  /// The same from memory as a whole; `resultHandle` may be null.
  Status sendWhole(const std::string& path, const CodeList* operations,
                   std::uint32_t* resultHandle);
  /// Sends a picture as "sbximg.jpg". -43 where it cannot be read. An empty path is a failed
  /// assertion.
  Status addImage(const std::string& path, const CodeList* operations);

 private:
  PTPTransactions& device_;
  const MakerConstants& maker_;
};

}  // namespace tarvo

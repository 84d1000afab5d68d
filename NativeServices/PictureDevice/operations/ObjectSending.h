// How a host's file becomes an object of a PTP device: by which operations it is sent, under which
// format, and what its announcement says.
//
//   ObjectSending sending(device, maker);
//   std::uint32_t handle = 0;
//   const Status status = sending.sendFile("DCEMAIL.ABK", 0, 0, &handle);
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Status.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// The model that keeps its default collection in a file of another name.
inline constexpr std::string_view kPictureViewerModel = "Tarvo Brisklink picture viewer";

/// The two operations of one object; the second belongs to the first.
struct SendOpcodes {
  std::uint16_t sendInfo = 0;
  std::uint16_t sendObject = 0;

  friend bool operator==(const SendOpcodes&, const SendOpcodes&) = default;
};

/// By which operations `info` goes to a device: extended information by 0x9202 and SendObject,
/// other information by what the two functions below say of its format. Whether the device lists
/// them is not looked at: a transaction that it does not list ends with 0x2005.
SendOpcodes opcodesForInfo(const PTPDeviceFacts& facts, const MakerConstants& maker,
                           const XTExtendedObjectInfo& info);
/// 0x9001 for a wireless configuration on a device with the vendor's send operation; 0x9005 where
/// the vendor's send is required, but not for the firmware of a legacy model; else SendObjectInfo.
std::uint16_t sendObjectInfoOpcodeForFormat(const PTPDeviceFacts& facts,
                                            const MakerConstants& maker, std::uint16_t format);
/// 0x9002, 0x9006 or SendObject, as it goes with sendObjectInfoOpcodeForFormat().
std::uint16_t sendObjectOpcodeForFormat(const PTPDeviceFacts& facts, const MakerConstants& maker,
                                        std::uint16_t format);
/// The format under which an object is announced: 0x3000 for the undefined-format models (by their
/// name with maker and family), the format itself for others.
std::uint16_t formatCodeFilter(std::string_view model, const MakerConstants& maker,
                               std::uint16_t format);

/// Whether a device takes objects whose bytes and information the caller made: by SendObjectInfo,
/// by the vendor's 0x9005, or by the vendor's operation for objects of its own.
bool takesData(const CodeList* operations, const DeviceCapabilities& capabilities);

/// Reads all of a file of `size` bytes. -43 when it cannot be opened, -36 when it ends early.
[[nodiscard]] Status readWholeFile(const std::string& path, std::uint32_t size,
                                   ByteBuffer& content);

/// Main thread only.
class ObjectSending {
 public:
  /// Both are lent.
  ObjectSending(PTPTransactions& device, const MakerConstants& maker)
      : device_(device), maker_(maker) {}

  /// Sends a local file as a new object of `storage` below `parent` (0: the device chooses), from
  /// memory as a whole. `resultHandle` may be null; it is written after success alone. -43 for a
  /// file that cannot be read, -36 for one that ends early, -50 for one of 4 GiB and more,
  /// otherwise the status of fillInObjInfo() or of the device. `operations` may be null.
  [[nodiscard]] Status sendFile(const std::string& path, const CodeList* operations,
                                std::uint32_t storage, std::uint32_t parent,
                                std::uint32_t* resultHandle);
  /// The same with content and information that the caller made. A device that refuses the
  /// information of a file "PREFGUID.TXT" keeps no default collection, which is no failure: 0, and
  /// nothing was sent. On the picture-viewer model the file counts as "PREFGUID.HOW".
  [[nodiscard]] Status sendContent(const std::string& path, std::uint32_t storage,
                                   std::uint32_t parent, std::span<const std::byte> content,
                                   XTExtendedObjectInfo& info, std::uint32_t* resultHandle);
  /// The same without a file. -1400 where the device takes none (takesData()).
  [[nodiscard]] Status sendData(std::span<const std::byte> data, XTExtendedObjectInfo& info,
                                std::uint32_t storage, std::uint32_t parent,
                                std::uint32_t* resultHandle);

 private:
  PTPTransactions& device_;
  const MakerConstants& maker_;
};

}  // namespace tarvo

// Downloads of objects of a PTP device: as the device classes offer them (into memory, to a file of
// a given path, into a temporary file), and to a file as a user wants it, which goes on after a
// cut.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/operations/DataPhases.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/ByteBuffer.h"
#include "Utilities/Status.h"
#include "platform/files/FilePlace.h"

namespace tarvo {

/// What is read at once of an object that is larger, from a device with GetPartialObject; bytes.
inline constexpr std::uint32_t kDownloadChunk = 0x200000;

/// Whether an object of `size` bytes goes in chunks: never where the size is not known
/// (0xFFFFFFFF).
bool goesInChunks(const PTPDeviceFacts& facts, std::uint32_t size);

/// Bytes of an object that is read into memory, at most; texts have less (kMostBytesOfTextFile).
inline constexpr std::uint32_t kMostBytesInMemory = std::uint32_t{64} << 20;

/// Main thread only. A file gets its name once it is whole and as long as the device announced.
class ObjectDownloads {
 public:
  /// `device` is lent. `most` is for data(), dataInPieces() and temporaryFile().
  explicit ObjectDownloads(PTPTransactions& device, std::uint32_t most = kMostBytesInMemory)
      : device_(device), most_(most) {}

  /// The whole object; none on failure, for one that there is no memory for, and for one of more
  /// than `most` bytes, which the device's last outcome tells then (kObjectTooLarge): nothing of it
  /// is asked for, or where its size is not known, its transfer ends there.
  std::optional<ByteBuffer> data(std::uint32_t handle);
  /// The same, and none on a device without GetPartialObject, whatever the size.
  std::optional<ByteBuffer> dataInPieces(std::uint32_t handle);
  /// dataInPieces() in a file of the temporary folder, under the object's name: its path.
  std::optional<std::string> temporaryFile(std::uint32_t handle);
  /// To the file at `destination`, over one that is there; no file of that name is left after a
  /// failure. -19 without information of the object, -36 for a file that cannot be made or written
  /// and for an object that came short, otherwise the status of the device.
  [[nodiscard]] Status file(std::uint32_t handle, const std::string& destination);
  /// To a new file, by one GetObject during which the progress callback is asked. -48 where there
  /// is a file of that name, -490 when the callback cancelled, otherwise as file(). The file shows
  /// the date of the object.
  [[nodiscard]] Status image(std::uint32_t handle, const std::string& destination);

 private:
  ObjectInfoPointer information(std::uint32_t handle);
  [[nodiscard]] Status toMemory(std::uint32_t handle, std::uint32_t size, ByteBuffer& buffer);
  [[nodiscard]] Status toDescriptor(std::uint32_t handle, std::uint32_t size, int descriptor);
  [[nodiscard]] Status wholeTo(std::uint32_t handle, std::uint32_t size, int descriptor,
                               ProgressCallback progress);

  PTPTransactions& device_;
  std::uint32_t most_;
};

/// Writes `content` to a file of the last component of `name` in a new folder under the system's
/// temporary folder, which no other user can look into; its path, or none for a name that no file
/// can have. Raises std::system_error where it cannot be written. The file is the caller's;
/// removeTemporaryFile() takes both away.
std::optional<std::string> writeTemporaryFile(std::string_view name,
                                              std::span<const std::byte> content);
void removeTemporaryFile(const std::string& path);

// Downloading objects of a PTP device to files of their own, as a user wants it: whole or not at
// all, never over an existing file unasked, and going on where a cut download stopped.
//
//   ObjectFetch fetch(device);
//   const auto result = fetch.toFile(handle, {.folder = "pictures"});
//   if (result.status != status::kOK) explain(result.status, result.why);

/// Main thread only.
///
/// An object goes by one streamed GetObject. Its bytes lie in a hidden file beside the final name
/// until they are whole and as many as announced; a failure removes that file, unless the object is
/// larger than 2 MiB and the device has GetPartialObject: then it stays and the next attempt goes
/// on behind it, piece by piece, however short the pieces are. A device that refuses such a piece,
/// or sends nothing of it, costs the part, so that the attempt after that begins anew. The file
/// gets the object's modification date.
class ObjectFetch {
 public:
  /// `device` is lent.
  explicit ObjectFetch(PTPTransactions& device) : device_(device) {}

  FetchResult toFile(std::uint32_t handle, const FetchRequest& request);

 private:
  PTPTransactions& device_;
  SparePieces spare_;
};

}  // namespace tarvo

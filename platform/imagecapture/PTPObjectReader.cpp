#include "platform/imagecapture/PTPObjectReader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <unordered_set>
#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/PropertyDictionary.h"
#include "platform/files/FilePlace.h"
#include "platform/files/PartFile.h"

namespace tarvo {
namespace {

/// A device with more objects is none that a person could look through; it costs no more memory
/// than it sends handles.
/// A million handles are 4 MiB on the wire.
constexpr std::size_t kMostObjects = std::size_t{1} << 20;
/// ObjectInfo with four strings of 255 units, and DeviceInfo as it comes from real devices.
constexpr std::size_t kObjectInfoRoom = 2356;
constexpr std::size_t kDeviceInfoRoom = 16384;

/// Reads a data set from its beginning. Beyond the end everything is 0, and isGood() false.
class Cursor {
 public:
  explicit Cursor(std::span<const std::byte> bytes) : bytes_(bytes) {}

  bool isGood() const { return isGood_; }
  std::size_t left() const { return bytes_.size(); }
  std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return number(4); }
  void skip(std::uint64_t count) {
    isGood_ = isGood_ && count <= bytes_.size();
    bytes_ = isGood_ ? bytes_.subspan(count) : bytes_.first(0);
  }
  /// A count of units, then so many UTF-16 units of which the last is 0.
  /// The terminator counts. A device that leaves it out is read all the same.
  std::string text() {
    std::u16string units(u8(), u'\0');
    for (char16_t& unit : units)
      unit = u16();
    if (!units.empty() && units.back() == u'\0') units.pop_back();
    return utf8FromUTF16(units);
  }
  void skipText() { skip(std::uint64_t{2} * u8()); }
  void skipCodes() { skip(std::uint64_t{2} * u32()); }

 private:
  std::uint32_t number(std::size_t size) {
    const auto from = bytes_;
    skip(size);
    std::uint32_t value = 0;
    for (std::size_t i = 0; isGood_ && i < size; ++i)
      value |= std::to_integer<std::uint32_t>(from[i]) << (8 * i);
    return value;
  }

  std::span<const std::byte> bytes_;
  bool isGood_ = true;
};

/// A transaction that receives into `room`; `data` is what came, as far as it fits.
Status receive(PTPChannel& channel, ptp::Transaction transaction, std::span<std::byte> room,
               std::span<const std::byte>& data, std::string* why) {
  ptp::MemorySink sink(room);
  transaction.receive = &sink;
  const Status result = channel.transact(transaction, why);
  if (result != status::kOK) return result;
  data = room.first(sink.filled());
  // The data may have come before a refusal; what a device says at the end holds.
  return transaction.responseCode == status::kPTPOK ? status::kOK : transaction.responseCode;
}

/// An operation that answers with an array of numbers.
Status readNumbers(PTPChannel& channel, const ptp::Transaction& transaction,
                   std::vector<std::uint32_t>& numbers, std::string* why) {
  const std::size_t size = 4 * (kMostObjects + 1);
  // Of memory that is not touched the system gives none.
  const auto memory = std::make_unique_for_overwrite<std::byte[]>(size);
  std::span<const std::byte> data;
  const Status result = receive(channel, transaction, {memory.get(), size}, data, why);
  if (result != status::kOK) return result;
  auto decoded = decodeHandles(data);
  if (!decoded) return status::kICAProtocolError;
  numbers = std::move(*decoded);
  return status::kOK;
}

/// One reading of all that lies on a device.
class ObjectReading {
 public:
  ObjectReading(PTPChannel& channel, std::vector<PTPObject>& objects, std::string* why)
      : channel_(channel), objects_(objects), why_(why) {}

  Status run() {
    // One by one: there are devices that refuse a list over all stores, or never answer it.
    std::vector<std::uint32_t> stores;
    Status result = readNumbers(channel_, {.operation = ptp::kGetStorageIDs}, stores, why_);
    // A response code is a refusal and no failure: then all stores are asked together.
    if (result < status::kOK) return result;
    if (stores.empty()) stores = {ptp::kAllStores};
    bool hasAnswered = false;
    for (const std::uint32_t store : stores) {
      if (!ptp::hasLogicalStore(store)) continue;
      result = readFolder(store, 0);
      const bool hasNoCard =
          result == status::kPTPInvalidStorageID || result == status::kPTPStoreNotAvailable;
      if (result != status::kOK && !hasNoCard) return result;
      hasAnswered = hasAnswered || result == status::kOK;
    }
    return hasAnswered ? readBelow() : result;
  }

 private:
  /// What the device lists of a folder; 0 is all that it lists of the store.
  Status readFolder(std::uint32_t store, std::uint32_t folder) {
    std::vector<std::uint32_t> handles;
    Status result = readNumbers(channel_,
                                {.operation = ptp::kGetObjectHandles,
                                 .parameters = {store, 0, folder},
                                 .parameterCount = 3},
                                handles, why_);
    for (std::size_t i = 0; result == status::kOK && i < handles.size(); ++i)
      if (seen_.insert(handles[i]).second) result = readObject(handles[i]);
    return result;
  }

  Status readObject(std::uint32_t handle) {
    std::span<const std::byte> data;
    const Status result = receive(
        channel_, {.operation = ptp::kGetObjectInfo, .parameters = {handle}, .parameterCount = 1},
        room_, data, why_);
    if (auto object = decodeObject(handle, data)) {
      hasMembers_.insert(object->parent);
      objects_.push_back(std::move(*object));
    }
    // One object that went meanwhile, or that the device itself cannot read, is no reason to show
    // none.
    // Negative is the transport: after that nothing more will be answered.
    return result > status::kOK ? status::kOK : result;
  }

  /// Many devices list what lies at the top alone, and then one folder at a time.
  Status readBelow() {
    // The list grows while it is walked, so folders of folders are read, too. A folder of which
    // members are known needs no asking.
    for (std::size_t i = 0; i < objects_.size() && seen_.size() < kMostObjects; ++i) {
      if (!objects_[i].isFolder() || hasMembers_.contains(objects_[i].handle)) continue;
      const Status result = readFolder(objects_[i].store, objects_[i].handle);
      if (result < status::kOK) return result;
    }
    return status::kOK;
  }

  PTPChannel& channel_;
  std::vector<PTPObject>& objects_;
  std::string* why_;
  std::array<std::byte, kObjectInfoRoom> room_{};
  std::unordered_set<std::uint32_t> seen_;
  std::unordered_set<std::uint32_t> hasMembers_;  ///< folders in which something lies
};

}  // namespace

bool PTPObject::isFolder() const {
  return format == ptp::kAssociationFormat;
}

bool PTPObject::isPicture() const {
  // ISO 15740, "Object format codes": 0x38xx and a vendor's 0xB8xx and above are images.
  constexpr std::uint16_t kKindBits = 0x7800;
  constexpr std::uint16_t kImageKind = 0x3800;
  return (format & kKindBits) == kImageKind;
}

std::optional<PTPObject> decodeObject(std::uint32_t handle, std::span<const std::byte> objectInfo) {
  Cursor cursor(objectInfo);
  PTPObject object{.handle = handle};
  object.store = cursor.u32();
  object.format = cursor.u16();
  // The offsets are those of ISO 15740, "ObjectInfo dataset": 52 bytes before the name.
  cursor.skip(2);  // protection
  object.size = cursor.u32();
  cursor.skip(2);  // format of the thumbnail
  object.thumbnailSize = cursor.u32();
  cursor.skip(20);  // measures of thumbnail and picture, depth of a pixel
  object.parent = cursor.u32();
  cursor.skip(10);  // kind and description of a folder, place in a sequence
  object.name = cursor.text();
  if (!cursor.isGood()) return std::nullopt;
  return object;
}

std::optional<std::vector<std::uint32_t>> decodeHandles(std::span<const std::byte> array) {
  Cursor cursor(array);
  const std::size_t count = cursor.u32();
  if (!cursor.isGood() || count > cursor.left() / 4) return std::nullopt;
  std::vector<std::uint32_t> handles(count);
  for (std::uint32_t& handle : handles)
    handle = cursor.u32();
  return handles;
}

bool listsProperty(std::span<const std::byte> deviceInfo, std::uint16_t property) {
  Cursor cursor(deviceInfo);
  cursor.skip(8);  // versions and vendor
  cursor.skipText();
  cursor.skip(2);      // mode
  cursor.skipCodes();  // operations
  cursor.skipCodes();  // events
  for (std::uint32_t left = cursor.u32(); left > 0 && cursor.isGood(); --left)
    if (cursor.u16() == property && cursor.isGood()) return true;
  return false;
}

Status readObjects(PTPChannel& channel, std::vector<PTPObject>& objects, std::string* why) {
  return ObjectReading(channel, objects, why).run();
}

Status readWhetherPropertyIsListed(PTPChannel& channel, std::uint16_t property, bool& isListed,
                                   std::string* why) {
  std::array<std::byte, kDeviceInfoRoom> room{};
  std::span<const std::byte> data;
  // Asked again and not kept from the inspection: the service knows nothing of what clients have
  // read.
  const Status result = receive(channel, {.operation = ptp::kGetDeviceInfo}, room, data, why);
  if (result == status::kOK) isListed = listsProperty(data, property);
  return result;
}

Status deleteObject(PTPChannel& channel, std::uint32_t handle, std::string* why) {
  ptp::Transaction transaction{
      .operation = ptp::kDeleteObject, .parameters = {handle}, .parameterCount = 1};
  const Status result = channel.transact(transaction, why);
  if (result != status::kOK || transaction.responseCode == status::kPTPOK) return result;
  return transaction.responseCode;
}

namespace {

/// Writes what arrives to a file. It holds the pieces that are in flight and nothing else.
class DownloadSink : public ptp::DataSink {
 public:
  explicit DownloadSink(int descriptor) : descriptor_(descriptor) {}

  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    // Several are in flight at once, and each must stay where it is until it is reported.
    pieces_.push_back({offset, length, std::make_unique_for_overwrite<std::byte[]>(length)});
    return {pieces_.back().memory.get(), length};
  }

  bool received(std::uint64_t offset, std::size_t length) override {
    // The transport asks again for the end of a room that it could not use: the last room counts.
    const auto holds = [&](const Piece& piece) { return piece.offset <= offset; };
    const auto piece = std::find_if(pieces_.rbegin(), pieces_.rend(), holds);
    if (piece == pieces_.rend()) return false;
    const bool written = write(piece->memory.get() + (offset - piece->offset), length, offset);
    received_ = offset + length;
    while (!pieces_.empty() && pieces_.front().offset + pieces_.front().length <= received_)
      pieces_.pop_front();
    return written;
  }

  std::uint64_t size() const { return received_; }
  int error() const { return error_; }  ///< errno of the write that failed, else 0

 private:
  struct Piece {
    std::uint64_t offset;
    std::size_t length;
    std::unique_ptr<std::byte[]> memory;
  };

  bool write(const std::byte* bytes, std::size_t length, std::uint64_t offset) {
    while (length > 0) {
      const auto count = ::pwrite(descriptor_, bytes, length, static_cast<off_t>(offset));
      if (count < 0 && errno == EINTR) continue;
      // pwrite() gives 0 only where there is no room left.
      if (count <= 0) {
        error_ = count < 0 ? errno : ENOSPC;
        return false;
      }
      bytes += count;
      length -= static_cast<std::size_t>(count);
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }

  int descriptor_;
  std::deque<Piece> pieces_;
  std::uint64_t received_ = 0;
  int error_ = 0;
};

bool isWhole(const PTPObject& object, std::uint64_t size) {
  return object.size == ptp::kUnknownObjectSize || size == object.size;
}

}  // namespace

Status downloadObject(PTPChannel& channel, const PTPObject& object, const std::string& folder,
                      std::string& path, std::string* why) {
  if (::access(folder.c_str(), F_OK) != 0) return status::kFileNotFound;
  FetchResult placed;
  const FetchRequest request{.folder = folder};
  FilePlace place(request, placed);
  // Looked at first, so that nothing is fetched in vain.
  if (!place.prepare(object.name)) return placed.status;
  PartFile file(place.folder(), PartFile::nameFor(place.name(), ""));
  if (file.open(PartFile::Opening::kNew) != 0) return status::kIOError;

  DownloadSink sink(file.descriptor());
  ptp::Transaction transaction{.operation = ptp::kGetObject,
                               .parameters = {object.handle},
                               .parameterCount = 1,
                               .receive = &sink};
  const Status result = channel.transact(transaction, why);
  // Looked at first: the transport reports a sink that failed as a cancelled transfer.
  if (sink.error() != 0) {
    *why = std::strerror(sink.error());
    return status::kIOError;
  }
  if (result != status::kOK) return result;
  // The hidden file goes with `file`, which was not put in place.
  if (transaction.responseCode != status::kPTPOK) return transaction.responseCode;
  if (!isWhole(object, sink.size())) {
    *why = "the object is shorter or longer than the device has said";
    return status::kIOError;
  }
  place.put(file, std::nullopt);
  if (placed.status == status::kOK) path = placed.path;
  return placed.status;
}

}  // namespace tarvo

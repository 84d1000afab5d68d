// A device that is held: its objects, settings, stores and events.
//
//   auto camera = session.openCamera();
//   camera.visit(tarvo::ObjectQuery().recursive(), [&](const tarvo::ObjectInfo& object) {
//     if (!object.isFolder()) camera.download(object, tarvo::DownloadOptions().folder("pictures"));
//     return true;
//   });
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/Objects.h"
#include "tarvo/Session.h"
#include "tarvo/Transfer.h"

namespace tarvo {

class DeviceState;

/// What a camera says of itself (ISO 15740, "DeviceInfo dataset"). A value.
class TARVO_API DeviceFacts {
 public:
  struct Data;
  explicit DeviceFacts(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::string& name() const;
  const std::string& manufacturer() const;
  const std::string& model() const;
  const std::string& version() const;
  const std::string& serial() const;
  /// Codes in the order of the device.
  const std::vector<std::uint16_t>& operations() const&;
  std::vector<std::uint16_t> operations() &&;  ///< of one that goes
  const std::vector<std::uint16_t>& properties() const&;
  std::vector<std::uint16_t> properties() &&;  ///< of one that goes
  const std::vector<std::uint16_t>& imageFormats() const&;
  std::vector<std::uint16_t> imageFormats() &&;  ///< of one that goes
  /// What can be done with it besides: "acceptsFiles", "addressBooks", "albumNames", "capture",
  /// "display", "favourites", each with whether it can.
  const std::vector<std::pair<std::string, bool>>& capabilities() const&;
  std::vector<std::pair<std::string, bool>> capabilities() &&;  ///< of one that goes
  bool can(std::string_view capability) const;

 private:
  std::shared_ptr<const Data> data_;
};

/// A store of a camera (ISO 15740, "StorageInfo dataset"). A value.
class TARVO_API StoreInfo {
 public:
  struct Data;
  explicit StoreInfo(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  std::uint32_t id() const;
  /// A slot without a card: everything below is 0 and empty then.
  bool isEmpty() const;
  /// 1, 2: fixed and removable read-only memory; 3, 4: the same of memory that can be written.
  std::uint16_t type() const;
  /// 1: flat, 2: in folders, 3: DCF, as cameras have it.
  std::uint16_t fileSystem() const;
  /// 0: read and write; 1: read alone; 2: read and delete.
  std::uint16_t access() const;
  /// Bytes, and pictures, as the device says: all bits set where it does not know.
  std::uint64_t capacity() const;
  std::uint64_t freeBytes() const;
  std::uint32_t freePictures() const;
  /// What a person calls it: the volume's label, or else the device's description. May be empty.
  std::string label() const;

  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<const Data> data_;
};

/// A setting of a camera (ISO 15740, "DevicePropDesc dataset"). A value. Values are texts: a number
/// in decimal, an array of them as "[1,2]", a number of 128 bits as 32 hexadecimal digits, or the
/// text itself.
class TARVO_API PropertyInfo {
 public:
  struct Data;
  explicit PropertyInfo(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  std::uint16_t code() const;
  std::uint16_t type() const;  ///< ISO 15740, "Datatype codes"
  bool isWritable() const;
  std::string value() const;
  std::string factoryDefault() const;
  /// What it may be set to: smallest, largest and step of a range, or each of a list; neither where
  /// anything goes.
  bool isRange() const;
  std::vector<std::string> allowed() const;

  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<const Data> data_;
};

/// Something that a camera reports by itself (ISO 15740, "Events"). A value.
class TARVO_API DeviceEvent {
 public:
  struct Data;
  explicit DeviceEvent(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// Not of the camera: it was unplugged. All else is 0 then.
  bool isGone() const;
  /// Of the standard or the maker: 0x4002 an object was added.
  std::uint16_t code() const;
  /// The number of the transaction that it belongs to, as the camera says.
  std::uint32_t transaction() const;
  /// At most 3, by the event handles, store ids or property codes.
  const std::vector<std::uint32_t>& parameters() const&;
  std::vector<std::uint32_t> parameters() &&;  ///< of one that goes

 private:
  std::shared_ptr<const Data> data_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const DeviceFacts& facts);
TARVO_API std::ostream& operator<<(std::ostream& out, const StoreInfo& store);
TARVO_API std::ostream& operator<<(std::ostream& out, const PropertyInfo& property);
TARVO_API std::ostream& operator<<(std::ostream& out, const DeviceEvent& event);

/// Held from open() until it goes, which gives it back. It may go before or after its session.
///
/// Calls wait for the device. Each raises Error: kGone, kTimedOut, kBroken and kRefused for what
/// the device does, kCancelled where StopSignals or a callback ended it, kMisuse for a call from a
/// progress callback, from another thread or after the session; kUnsupported for what only the
/// other kind of device has. After an error with endsDevice() nothing more comes of this one.
class TARVO_API Device {
 public:
  explicit Device(std::shared_ptr<DeviceState> state) : state_(std::move(state)) {}
  Device(Device&&) noexcept = default;
  Device& operator=(Device&&) noexcept = default;
  ~Device() = default;

  const DeviceInfo& info() const;
  /// Of a camera: as it was read when it was opened.
  DeviceFacts facts() const;
  /// The same data set as the camera sends it now.
  std::vector<std::byte> deviceInfo();

  // Objects.

  /// Gives each object as soon as it is known, and once. The whole list of handles is held, and
  /// nothing of what was given. On a volume a query without anything means all that there is.
  void visit(const ObjectQuery& query, const ObjectVisitor& visitor);
  /// The same for what is named. Gives how many files ObjectChoice::Others::kPictures passed over.
  std::uint64_t visit(const ObjectChoice& choice, const ObjectVisitor& visitor);
  /// Handles alone, by as few transactions as the device allows. Of a camera.
  std::vector<std::uint32_t> handles(const ObjectQuery& query);
  /// Of a camera. kNotFound.
  ObjectInfo object(std::uint32_t handle);
  /// How many objects a camera has, in one store or, for 0, in all; none where it does not tell.
  std::optional<std::uint32_t> count(std::uint32_t store = 0);
  /// The same of one format, as the camera counts: some pass over the format.
  std::optional<std::uint32_t> count(std::uint32_t store, std::uint16_t format);
  /// A folder goes with all that is in it; on a volume folders are refused (kNotAFile, -1302).
  void remove(const ObjectInfo& object);
  /// Of a camera. 1 to 254 UTF-16 units.
  void rename(std::uint32_t handle, const std::string& name);

  // Transfers.

  /// To a file, which gets its name once it is whole, and the object's date. A cut download of more
  /// than 2 MiB goes on where it stopped, at the next attempt with the same device and folder.
  /// kExists, kHost, kTooLarge, kDiskFull; of a folder kRefused (-1302).
  Downloaded download(const ObjectInfo& object, DownloadRun& run);
  Downloaded download(const ObjectInfo& object, const DownloadOptions& options = {});
  /// Into memory, 64 MiB at most: kTooLarge.
  std::vector<std::byte> read(const ObjectInfo& object);
  /// The small picture, mostly a JPEG of some kilobytes. kRefused (0x2010) where there is none.
  std::vector<std::byte> thumbnail(const ObjectInfo& object);
  /// A file as an object, under the file's name. Of a camera that acceptsFiles. Names of 255
  /// characters and files of 4 GiB, and more, are kMisuse.
  Uploaded upload(const std::string& path, const UploadOptions& options = {});

  // Settings, stores, events: of a camera.

  /// Each setting that it lists; `unreadable` is told of those that cannot be had, without it the
  /// first of them raises.
  std::vector<PropertyInfo> properties(
      const std::function<void(std::uint16_t code, const Error& error)>& unreadable = {});
  PropertyInfo property(std::uint16_t code);
  /// `value` as PropertyInfo has them, or a number as 0x... kMisuse with a reason for one that does
  /// not fit the setting's type; whether it is allowed is the device's to say.
  void setProperty(std::uint16_t code, const std::string& value);
  /// The device's own date, as in ObjectInfo; none where it has none.
  std::optional<std::string> clock();
  /// Sets it to the local time of this machine.
  void setClock();
  /// Percent; 255 where it cannot tell.
  std::uint8_t batteryLevel();
  std::vector<std::uint32_t> storeIDs();
  StoreInfo store(std::uint32_t id);
  /// Deletes everything in a store.
  void formatStore(std::uint32_t id);
  /// Puts it into the state after switching on.
  void reset();
  /// Tells what it reports, and its going, until the subscription goes; one at a time.
  [[nodiscard]] Subscription onEvent(std::function<void(const DeviceEvent& event)> told);

  const std::shared_ptr<DeviceState>& state() const { return state_; }

 private:
  std::shared_ptr<DeviceState> state_;
};

}  // namespace tarvo

// A mass-storage unit of the maker: a camera, frame or dock that shows itself as a disk until it is
// told to come back as a camera. Vendor mode pages say and set how it comes up and what time it is;
// its volumes are unmounted and ejected through disk arbitration.
//
//   auto unit = TarvoMSCDeviceList::sharedDeviceList()->mainDevice();
//   if (unit && unit->canAutoPowerCycle()) unit->setUSBMode(true, true, 1000);
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Utilities/Object.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"
#include "msc/ModePages.h"
#include "platform/diskarbitration/DiskArbitration.h"
#include "platform/foundation/MountTable.h"
#include "platform/iokit/Registry.h"
#include "platform/iokit/SCSITask.h"

namespace tarvo {

/// Main thread only, and only while an MSCRoom lives. What asks the unit waits for it: a select at
/// most 6 s, a sense as long as two commands take, a disk operation at most 20 s, in which nothing
/// of the main loop happens. An operation that fails traces why and leaves it in lastFailure().
class TarvoMSCDevice : public Object {
 public:
  /// Why the last operation failed.
  struct Failure {
    Status status = status::kOK;  ///< 0: nothing failed
    std::string why;              ///< for a person: the step, the unit's answer, or who objects
  };

  /// A unit that is reached through `device`, of which it keeps a reference, and of the SCSI task
  /// interface that it gives. Every argument must be there: raises an assertion that names the one
  /// that is not.
  static std::shared_ptr<TarvoMSCDevice> initWithMMCDevice(
      std::shared_ptr<MMCDeviceInterface> device, ServiceHandle service,
      std::optional<std::string> modelString, std::optional<std::vector<std::uint8_t>> guid);

  std::string description() const override { return "unit " + _massStorageModel; }

  // What it is.

  /// Registry service of the unit, from which its USB device is found.
  ServiceHandle iokitService() const { return _service; }
  /// Identity of the unit in the list; the same for as long as the object lives.
  const std::vector<std::uint8_t>& guid() const { return _guid; }
  /// The product name of its inquiry data.
  const std::string& massStorageModel() const { return _massStorageModel; }
  /// The unit's own disk ("sr0"), looked up in the registry until it is found; none where it has
  /// none.
  std::optional<std::string> bsdName();

  // Its card: the mounted volume of Image Capture that lies on the same USB device.

  /// The volume at `locationID`, looked up until one is found and never again after that. True when
  /// it is known; both out arguments, which may be null, get what is known.
  bool getDCFMediaForLocationID(std::optional<std::int32_t> locationID,
                                std::optional<std::string>* bsdName,
                                std::optional<std::string>* volumeName);
  /// Its disk ("sdb1"); none where there is no card.
  std::optional<std::string> dcfVolumeBSDName();
  /// Its name, when dcfVolumeBSDName() or getDCFMediaForLocationID() has found it.
  const std::optional<std::string>& dcfVolumeName() const { return _dcfVolumeName; }
  /// Whether a file on the card says that pictures are to be shared. False where that cannot be
  /// seen.
  bool sharingOrderExists();

  // Disks. Each gives 0, or -1 when it was refused, took longer than 20 s, or the process was told
  // to end, which is then the status of lastFailure().

  /// Unmounts every volume of the unit's USB device. 0, too, when it has no disk of its own.
  [[nodiscard]] Status unmountMedia();
  // A `bsdName` that is not a disk of this unit's USB device alone is refused.

  /// Unmounts every volume of the unit's USB device.
  [[nodiscard]] Status unmountAllPartitions(const std::string& bsdName);
  [[nodiscard]] Status ejectMediaWithBSDName(const std::string& bsdName);
  /// Mounts `bsdName`, where the system has room for it: dcfVolumeName() is a wish.
  [[nodiscard]] Status remountMediaWithBSDName(const std::string& bsdName);
  /// Unmounts, unless that was done, within what an unmounting before has left of its 20 s. Then
  /// has the unit open its tray, also when it could not be unmounted: its lock stays then, and the
  /// unit refuses. True on success.
  [[nodiscard]] bool ejectTray();
  /// What is mounted of the unit's USB device, wherever, in the order of mounting; also what lies
  /// on its disks by a mapped device (LUKS, LVM), each with the kernel's name of its node.
  std::vector<Mount> mounts() const;

  // Vendor mode pages.

  /// The model's name as the unit has it, asked for until it answers; none where it does not.
  std::optional<std::string> model();
  /// How it comes up and what it can do, see dictionaryFromUSBModePage(); the preference
  /// "OverrideSupportAutoRestart" stands in place of what the unit says. None without the page.
  std::optional<PropertyDictionary> usbModeDictionary();
  /// Sends the unit to the mode that `mode` describes, see smartFinderUSBModePage(). True when it
  /// has taken it.
  [[nodiscard]] bool setUSBModeDictionary(const PropertyDictionary& mode);
  /// True when the unit can switch itself off and return in another mode. The preference counts
  /// nothing here (docs/oddities.md).
  bool canAutoPowerCycle();
  /// Sends the unit to camera mode, or to the mode in which it starts up. With `powerDown` it
  /// switches itself off and wakes after `autowakeDelay`, of which the page holds a tenth. True
  /// when it has taken it.
  [[nodiscard]] bool setUSBMode(bool cameraMode, bool powerDown, std::uint32_t autowakeDelay);
  /// Sets the unit's clock to `dateTime` in the local time zone; raises an assertion without one.
  [[nodiscard]] bool setDateTime(std::optional<std::time_t> dateTime);

  /// Of the operation that was called last, when it can fail and has.
  const Failure& lastFailure() const { return lastFailure_; }

  // What the operations above are made of.

  /// MODE SENSE(10) of one page (SPC-4, 6.12): first its header, then all of it. 0 and the bytes
  /// with the header in front, or an IOKit status. Both out arguments must be there.
  [[nodiscard]] Status _modeSensePageCode(std::uint8_t pageCode, std::vector<std::byte>* buffer,
                                          std::uint16_t* bufferSize);
  /// Whether the unit has the page; `size`, which may be null, gets its page length where what the
  /// unit sent is long enough to say it.
  [[nodiscard]] bool _modeSenseTestPageCode(std::uint8_t pageCode, std::uint16_t* size);
  /// MODE SELECT(10) of `pageBuffer` (SPC-4, 6.10), with exclusive access for that one task.
  [[nodiscard]] bool _modeSelectPage(std::span<const std::byte> pageBuffer);

  /// The longest that a disk operation may take.
  static constexpr std::chrono::milliseconds kDiskTimeout{20'000};
  /// Waits for the completion of what was started in `session`, which stops it, and takes that time
  /// off `left`. Why it was in vain; nothing where it was not.
  static Failure awaitDisk(DASession& session, std::chrono::milliseconds& left);

  /// What the completion of a disk operation is handed.
  struct DiskContext {
    TarvoMSCDevice* self;
    Status status;
    DASession* session;
  };
  void diskUnmounted(const std::string& disk, const DADissenter* dissenter, DiskContext* context);
  void diskMounted(const std::string& disk, const DADissenter* dissenter, DiskContext* context);

 private:
  using DiskCompletion = void (*)(const std::string& disk, const DADissenter* dissenter,
                                  DiskContext* context);
  using StartOperation = std::function<void(DASession&, const DADisk&, DASession::Callback)>;

  TarvoMSCDevice() = default;

  void requireInterface() const;
  /// 0 where it is not known.
  ServiceHandle usbDevice() const;
  std::optional<std::string> _getModelString();
  void _fillOutDateStruct(ClockPage& page, std::time_t date);
  bool couldNotSetUSBMode();
  [[nodiscard]] Status sense(std::uint8_t pageCode, std::span<std::byte> buffer,
                             std::uint8_t& taskStatus);
  [[nodiscard]] Status senseFailed(std::uint8_t pageCode, Status called);
  [[nodiscard]] Status senseRefused(std::uint8_t pageCode, std::uint8_t taskStatus);
  [[nodiscard]] bool executeModeSelect(SCSITaskInterface& task, std::span<std::byte> page);
  bool isTaskComplete(std::uint8_t taskStatus, SCSIServiceResponse response,
                      std::span<const std::byte> sense);
  // What each takes is taken off `left`.
  [[nodiscard]] Status unmountWithin(std::chrono::milliseconds& left);
  [[nodiscard]] Status unmountAllPartitionsWithin(const std::string& bsdName,
                                                  std::chrono::milliseconds& left);
  [[nodiscard]] Status runDiskOperation(const std::string& bsdName, std::chrono::milliseconds& left,
                                        DiskCompletion completion, const StartOperation& start);
  void diskDone(const std::string& disk, const DADissenter* dissenter, DiskContext& context);
  bool hasSharingOrder();
  void fail(Status status, std::string why) { lastFailure_ = {status, std::move(why)}; }

  // The task interface goes first: it is part of what the device gave.
  std::shared_ptr<MMCDeviceInterface> _mmcDevice;
  ServiceHandle _service = 0;
  std::shared_ptr<SCSITaskDeviceInterface> _scsi;
  std::string _massStorageModel;
  std::optional<std::string> _model;
  std::vector<std::uint8_t> _guid;
  bool _isUnmounted = false;
  std::chrono::milliseconds unmountTimeLeft_ = kDiskTimeout;  ///< for the one before the tray
  std::optional<std::string> _bsdName;
  std::optional<std::string> _dcfVolumeBSDName;
  std::optional<std::string> _dcfVolumeName;
  /// Of the last answer that had any.
  std::array<std::byte, 18> senseData_{};
  Failure lastFailure_;
};

/// ", sense 5/26/00": key, additional code and qualifier (SPC-4, 4.5) of 18 bytes; empty where they
/// are no sense data.
std::string senseInWords(std::span<const std::byte> sense);

// The USB device that a disk belongs to.

/// "locationID", "idVendor" and "idProduct" of the nearest USB device above the disk `bsdName`
/// ("sdb1"); an empty object, with a trace that says why, where there is none. Main thread only.
///
///   const auto location = int32ForKey(GetUSBDataFromBSDName("sdb1"), "locationID");
PropertyDictionary GetUSBDataFromBSDName(const std::string& bsdName);

}  // namespace tarvo

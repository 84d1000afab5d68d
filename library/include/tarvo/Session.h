// Where everything begins: the devices that are connected, and the loop that tells what comes and
// goes.
//
//   tarvo::Session session;
//   for (const auto& info : session.devices()) std::cout << info.name() << '\n';
//   auto camera = session.openCamera();
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/Error.h"

struct _GMainContext;  // NOLINT(bugprone-reserved-identifier): GLib's own name for it

namespace tarvo {

class Device;
class SessionState;
class Unit;
class UnitInfo;

/// What a device looks like to a program.
enum class DeviceKind : std::uint8_t {
  kCamera,  ///< it speaks PTP
  kVolume,  ///< a mounted card, or a camera in disk mode: its pictures are files
};

/// A device as it can be told without opening it. A value: it stays as it was when the device went.
class TARVO_API DeviceInfo {
 public:
  struct Data;
  explicit DeviceInfo(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  DeviceKind kind() const;
  /// As the USB device calls itself, or the volume's label. UTF-8, from the device.
  const std::string& name() const;
  /// Of the USB device; empty where it has none.
  const std::string& serial() const;
  /// Where it is plugged in: the bus in the top byte, then a port number for every four bits, from
  /// the top down. None for a volume of no USB device.
  std::optional<std::int32_t> location() const;
  /// USB ids (usb.org); 0 where they are not known.
  std::uint16_t vendor() const;
  std::uint16_t product() const;
  /// Where a volume is mounted; empty for a camera.
  const std::string& path() const;
  bool isOfMaker() const;
  /// Whether the model is one that this system knows, or the card one of such a model.
  bool isSupported() const;
  /// One number for as long as the session lives; never used for another device.
  std::uint32_t id() const;
  /// As a person would be told: "SERIAL (NAME, location 0x01100000)".
  std::string description() const;

 private:
  std::shared_ptr<const Data> data_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const DeviceInfo& info);

/// While it lives SIGINT and SIGTERM end what a session does, in order, with ErrorKind::kCancelled;
/// a second SIGINT ends the process. One at a time; afterwards the signals do what they did before.
class TARVO_API StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Any thread.
  bool isSet() const noexcept;

  class Signals;
  const Signals& signals() const { return *signals_; }

 private:
  std::unique_ptr<Signals> signals_;
};

/// How much a line for the log matters.
enum class Severity : std::uint8_t { kDebug, kInfo, kWarning, kError };

/// Each call gives the options back, so that they can be chained.
class TARVO_API SessionOptions {
 public:
  SessionOptions();

  /// How long a device may be silent in one transaction; 4 s where nothing is said.
  SessionOptions& timeout(std::chrono::milliseconds most);
  /// What ends a running call. Lent for the session's life.
  SessionOptions& stopBy(const StopSignals& signals);
  /// Takes what the library logs, in the session's thread. Without it warnings go to standard
  /// error.
  SessionOptions& log(std::function<void(Severity, std::string_view)> sink);
  /// Nothing is said on standard error, or under another name than "libtarvo".
  SessionOptions& quiet(bool is = true);
  SessionOptions& name(std::string program);
  /// A preferences file in place of the user's own.
  SessionOptions& preferences(std::string file);
  /// The context of a program with a GLib main loop: what comes and goes is told from that loop,
  /// and Session::dispatch() is not needed. A reference is taken.
  SessionOptions& mainContext(_GMainContext* context);
  /// Called once in each operation that takes a device minutes (formatting, say). It may not call
  /// the library.
  SessionOptions& whileWaiting(std::function<void()> waiting);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// Ends what it stands for when it goes: nothing is told any more. It may outlive its session, and
/// may go from within its own callback.
class TARVO_API Subscription {
 public:
  Subscription();
  explicit Subscription(std::shared_ptr<void> hold);
  Subscription(Subscription&&) noexcept;
  Subscription& operator=(Subscription&&) noexcept;
  ~Subscription();

 private:
  std::shared_ptr<void> hold_;
};

/// What a device did.
enum class Presence : std::uint8_t { kCame, kWent };

/// One a process; a second one raises kMisuse while the first lives. Any one thread makes it and
/// calls all that belongs to it: another thread gets kMisuse.
///
/// Callbacks come from dispatch(), wait(), devices() and units(), or from the loop whose context
/// was given, never from another thread. From a callback everything may be called but dispatch()
/// and wait(); from one that tells of progress, nothing. What a callback raises comes out of the
/// call that it was called from; a GLib loop logs it. Devices may outlive the session; they answer
/// kMisuse then. A session that goes in a callback ends what runs with kCancelled.
class TARVO_API Session {
 public:
  /// Raises kMisuse as above, and kHost for preferences that cannot be read.
  explicit Session(const SessionOptions& options = {});
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Every camera and every volume of a USB device, in order of arrival.
  std::vector<DeviceInfo> devices();
  /// The maker's units that show themselves as a disk, in order of arrival.
  std::vector<UnitInfo> units();

  /// The one that `wanted` names best: by its serial number (of a camera also the one that the
  /// camera itself tells), its location as a number, decimal or 0x..., or its name; else by one of
  /// these without regard to the case of ASCII letters; else by how one of these, or a word of the
  /// name, begins. An empty text means the only one: the only camera of the maker, the only volume,
  /// the only unit. kNotFound, or kAmbiguous, which lists them.
  DeviceInfo findCamera(std::string_view wanted = {});
  DeviceInfo findVolume(std::string_view wanted = {});
  UnitInfo findUnit(std::string_view wanted = {});
  /// A camera or a volume; where nothing is named and there is no camera, the only volume.
  DeviceInfo findDevice(std::string_view wanted = {});

  /// Opens a device, and holds it for as long as what is returned lives: no other program uses a
  /// camera meanwhile. One that is held is waited for a moment, as the desktop looks at each
  /// arrival. kBusy names the holder; kMisuse for one that this session holds already; kGone,
  /// kNotPermitted, kTimedOut, kBroken.
  Device open(const DeviceInfo& info);
  Device openCamera(std::string_view wanted = {});
  Device openVolume(std::string_view wanted = {});
  Unit open(const UnitInfo& info);
  /// Unmounts every volume of the USB device of this one, which can be taken away then; the tray of
  /// a unit is opened by Unit::eject(). Waits 20 s at most. kBusy names what keeps one mounted;
  /// kNotPermitted, kTimedOut, kRefused, kGone; kUnsupported for a camera.
  void eject(const DeviceInfo& volume);

  /// Tells what comes and goes from now on, until the subscription goes; one at a time.
  [[nodiscard]] Subscription onDevice(
      std::function<void(Presence presence, const DeviceInfo& info)> told);

  /// For a program with a loop of its own: readable when there is something for dispatch(). Of the
  /// session; never read from it.
  int fd();
  /// Tells what has come, without waiting. True when there was something.
  bool dispatch();
  /// The same until something was told, the time is over or StopSignals are set. False when
  /// nothing was told.
  bool wait(std::chrono::milliseconds most = std::chrono::hours{24});

  /// Whether USB ids are those of a supported camera, or of a supported device that shows itself as
  /// a disk.
  bool isSupportedCamera(std::uint16_t vendor, std::uint16_t product);
  bool isSupportedVolume(std::uint16_t vendor, std::uint16_t product);
  /// The maker's supported product ids, cameras that speak PTP alone, in order. kHost where the
  /// list of models is not installed.
  std::vector<std::uint16_t> supportedCameras();
  std::uint16_t makerVendor();

  /// For the other classes of the library.
  const std::shared_ptr<SessionState>& state() const { return state_; }
  explicit Session(std::shared_ptr<SessionState> state);

 private:
  std::shared_ptr<SessionState> state_;
};

}  // namespace tarvo

// The one exception of the library: what went wrong, with which object, and what helps.
//
//   try {
//     tarvo::Session session;
//     session.openCamera().download(picture);
//   } catch (const tarvo::Error& error) {
//     std::cerr << error.what() << '\n';
//   }
#pragma once

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <memory>
#include <string>

#define TARVO_API __attribute__((visibility("default")))

namespace tarvo {

/// What a program can do about an error. More kinds may follow; treat one that you do not know as
/// kRefused.
enum class ErrorKind : std::uint8_t {
  kMisuse,        ///< a mistake of the calling program, found before the device was asked
  kNotFound,      ///< no such device, object, file, order or contact
  kAmbiguous,     ///< several are meant, where one is wanted
  kBusy,          ///< another process holds the device; worth another try
  kNotPermitted,  ///< this user may not use the device, or the file
  kGone,          ///< the device was unplugged; nothing more comes of it
  kTimedOut,      ///< the device did not answer in time; it is not asked again
  kCancelled,     ///< by a callback, or by StopSignals
  kExists,        ///< a file of that name is there, and is not to be replaced
  kTooLarge,      ///< it does not fit: into the room that is left, or into what is read at once
  kDiskFull,      ///< the room ran out while a file was written; the next one has none, either
  kHost,          ///< this machine could not read or write, or had no memory
  kUnsupported,   ///< this kind of device cannot do it
  kBroken,        ///< what the device sent breaks the protocol, or ended early
  kRefused,       ///< the device said no, for the reason that status() tells
};

/// A value, cheap to copy. Any thread.
class TARVO_API Error : public std::exception {
 public:
  struct Details;
  explicit Error(std::shared_ptr<const Details> details) noexcept;
  Error(const Error&) noexcept;
  Error& operator=(const Error&) noexcept;
  ~Error() override;

  ErrorKind kind() const noexcept;
  /// The number under it: positive a PTP response code (ISO 15740, "Responses"), or an address-book
  /// code above 0x10000000; negative one of this system. 0 for a mistake of the caller.
  std::int32_t status() const noexcept;
  /// What was being done: the name of the library's call, "download".
  const std::string& operation() const noexcept;
  /// To what: a device, a file, an object's path; may be empty. UTF-8 as the device gave it.
  const std::string& object() const noexcept;
  /// More than the status says, a clause; may be empty.
  const std::string& reason() const noexcept;
  /// What a person can do, a sentence; empty where nobody knows.
  const std::string& advice() const noexcept;
  /// All of it on one line, without control characters, whatever a device gave.
  const char* what() const noexcept override;

  /// Of a download that was cut: the path of what came, on which the next one goes on, and how many
  /// bytes that are. Empty and 0 where nothing is kept.
  const std::string& part() const noexcept;
  std::uint64_t kept() const noexcept;

  /// Whether the device answers nothing more, so that a list of objects had better end.
  bool endsDevice() const noexcept;

  /// A status in words with its number: "file not found (-43)".
  static std::string inWords(std::int32_t status);
  /// The advice that goes with a status; empty for one without.
  static std::string adviceFor(std::int32_t status);

 private:
  std::shared_ptr<const Details> details_;
};

TARVO_API std::ostream& operator<<(std::ostream& out, const Error& error);

}  // namespace tarvo

// The properties of a PTP device as values: read by their kind, and written; its languages among
// them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "Utilities/Status.h"

namespace tarvo {

/// Main thread only.
///
/// A getter asks a device that lists the property, and answers 0 or no text where it does not list
/// it or does not answer. All of them raise NSRangeException for an answer that is cut off.
class DeviceProperties {
 public:
  /// `device` is lent.
  explicit DeviceProperties(PTPTransactions& device) : device_(device) {}

  // Current values (GetDevicePropValue).
  std::uint32_t UInt32Property(std::uint16_t property);
  std::uint16_t UInt16Property(std::uint16_t property);
  std::uint8_t UInt8Property(std::uint16_t property);
  std::optional<std::string> GUIDProperty(std::uint16_t property);
  /// The current value in the property's description (GetDevicePropDesc). A property that is no
  /// text is a failed assertion.
  std::optional<std::string> stringProperty(std::uint16_t property);

  /// 0x200A where the device does not list the property, else the status of SetDevicePropValue. A
  /// text that is no GUID is sent as an empty one.
  [[nodiscard]] Status setProperty(std::uint16_t property, const std::string& text);
  [[nodiscard]] Status setPropertyGuid(std::uint16_t property, const std::string& guid);

 private:
  bool has(std::uint16_t property) const;
  std::optional<XTPTPDataSet> value(std::uint16_t property);
  [[nodiscard]] Status set(std::uint16_t property, const XTMutablePTPDataSet& value);

  PTPTransactions& device_;
};

// Languages: that of this host's user, and what a device says of its own.

/// The first of the user's preferred localizations, without character set: "de_DE", "en". By
/// LANGUAGE, LC_ALL, LC_MESSAGES and LANG, in that order; "en" where they name none.
std::string hostLocalization();

/// The language of a code, of a locale ("de_DE.UTF-8", "pt-BR"), or of a name ("German"), as its
/// code of two letters; none for one that is not known. Case does not matter. Any thread.
std::optional<std::string> languageCode(std::string_view language);

/// "de" gives "German"; an unknown code gives itself. Any thread.
std::string languageNameOfCode(std::string_view code);

/// `host` where it has the language of `device`, else that language's code; `host` again where the
/// language is not known.
std::string localizationForLanguage(const std::string& host,
                                    const std::optional<std::string>& device);

}  // namespace tarvo

// Where a picture goes: the folder and the name that a pattern gives it.
//
//   const PlacePattern pattern("{device}/{date}/{name}");
//   const auto place = pattern.placeOf({.device = "Tarvo X1", .taken = taken, .name = "A.JPG"});
//   // "Tarvo X1/2024-06-15", "A.JPG"
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "import/CalendarTime.h"

namespace tarvo::importing {

/// What is known of an object. Texts as the device gave them; nothing in them leads anywhere else.
struct PlaceFacts {
  std::string device{};  ///< model
  std::string serial{};
  std::optional<CalendarTime> taken{};
  std::string name{};
  std::string folder{};  ///< on the device, "DCIM/100TARVO"
};

struct Place {
  std::string folder{};  ///< relative, without a slash at its end; may be empty
  std::string name{};
};

/// A value; any thread.
class PlacePattern {
 public:
  static constexpr std::string_view kUsual = "{device}/{date}/{name}";

  /// Folders and a name with {device}, {serial}, {date} (2024-06-15), {year}, {month}, {day},
  /// {time} (120000), {name}, {stem} and {extension} (its parts), {number} (the digits at the end
  /// of the stem) and {folder} (as on the device, one or several). A name without {name} and
  /// {extension} keeps its extension at the end.
  ///
  /// Raises Exception, kInvalidArgument, in words: for an unknown field, a brace by itself, a last
  /// part without {name} and {stem}, a part that is empty, "." or "..".
  explicit PlacePattern(std::string_view text = kUsual);

  /// What is unknown leaves its folder out, a date is "undated". Every part is a safe file name.
  /// None for an object whose name is none.
  std::optional<Place> placeOf(const PlaceFacts& facts) const;

 private:
  struct Piece {
    bool isField = false;
    std::string text{};  ///< or the field's name
  };
  std::vector<Piece> pieces_;
};

/// The user's folder for pictures (XDG user directories), else ~/Pictures. An absolute path.
std::string defaultTargetFolder();

}  // namespace tarvo::importing

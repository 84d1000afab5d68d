#include "import/Placement.h"

#include <glib.h>

#include <algorithm>
#include <iterator>

#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "platform/files/FileNames.h"

namespace tarvo::importing {
namespace {

constexpr std::string_view kFields[] = {"device", "serial", "date",      "year",
                                        "month",  "day",    "time",      "name",
                                        "stem",   "number", "extension", "folder"};

[[noreturn]] void refusePattern(const std::string& why) {
  throw Exception(std::string(exception_name::kInvalidArgument), why);
}

/// The text between two slashes, from `rest`, which loses it with its slash.
std::string_view takePart(std::string_view& rest) {
  const std::string_view part = rest.substr(0, rest.find('/'));
  rest.remove_prefix(std::min(rest.size(), part.size() + 1));
  return part;
}

void checkPart(std::string_view part) {
  if (part.empty())
    refusePattern("a pattern has no empty part, neither at its beginning nor its end");
  if (part == "." || part == "..") refusePattern("a pattern has no part that is . or ..");
  if (part == "~") refusePattern("a pattern begins in the folder of the import, not at home (~)");
}

void checkField(const std::string& field) {
  if (std::ranges::find(kFields, field) != std::end(kFields)) return;
  refusePattern("there is no {" + field + "}; a pattern has " + listText(kFields));
}

bool has(std::string_view part, std::string_view field) {
  return part.find(field) != std::string_view::npos;
}

/// What a name falls into.
struct NameParts {
  std::string_view stem{}, number{}, extension{};
};

NameParts partsOfName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  NameParts parts{.stem = name.substr(0, dot)};
  if (dot != std::string_view::npos) parts.extension = name.substr(dot + 1);
  const std::size_t last = parts.stem.find_last_not_of("0123456789");
  parts.number = parts.stem.substr(last == std::string_view::npos ? 0 : last + 1);
  return parts;
}

std::string dateField(const std::optional<CalendarTime>& taken, std::string_view field) {
  if (!taken) return "undated";
  const auto parts = taken->parts();
  if (field == "date") return taken->day();
  if (field == "time") return formatted("%02d%02d%02d", parts.hour, parts.minute, parts.second);
  if (field == "year") return formatted("%04d", parts.year);
  return formatted("%02d", field == "month" ? parts.month : parts.day);
}

/// `name` is safe.
std::string fieldOf(const PlaceFacts& facts, const std::string& name, std::string_view field) {
  const NameParts parts = partsOfName(name);
  std::string text(field == "device"      ? std::string_view(facts.device)
                   : field == "serial"    ? std::string_view(facts.serial)
                   : field == "name"      ? std::string_view(name)
                   : field == "stem"      ? parts.stem
                   : field == "number"    ? parts.number
                   : field == "extension" ? parts.extension
                                          : std::string_view());
  if (field == "folder") return facts.folder;
  if (field == "date" || field == "year" || field == "month" || field == "day" || field == "time")
    return dateField(facts.taken, field);
  std::ranges::replace(text, '/', '_');
  return text;
}

}  // namespace

PlacePattern::PlacePattern(std::string_view text) {
  std::string_view last;
  for (std::string_view rest = text;;) {
    const bool isLast = rest.find('/') == std::string_view::npos;
    last = takePart(rest);
    checkPart(last);
    if (isLast) break;
  }
  if (!has(last, "{name}") && !has(last, "{stem}"))
    refusePattern("the last part of a pattern has {name} or {stem}, so that files differ");
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t brace = std::min(rest.find_first_of("{}"), rest.size());
    if (brace > 0) pieces_.push_back({false, std::string(rest.substr(0, brace))});
    rest.remove_prefix(brace);
    if (rest.empty()) break;
    const std::size_t end = rest.find('}');
    if (rest.front() == '}' || end == std::string_view::npos)
      refusePattern("a brace of the pattern stands by itself");
    pieces_.push_back({true, std::string(rest.substr(1, end - 1))});
    checkField(pieces_.back().text);
    rest.remove_prefix(end + 1);
  }
  if (has(last, "{name}") || has(last, "{extension}")) return;
  pieces_.push_back({false, "."});
  pieces_.push_back({true, "extension"});
}

std::optional<Place> PlacePattern::placeOf(const PlaceFacts& facts) const {
  const auto name = safeFileName(facts.name);
  if (!name) return std::nullopt;
  std::string whole;
  for (const Piece& piece : pieces_) {
    const std::string text = piece.isField ? fieldOf(facts, *name, piece.text) : piece.text;
    const bool isMissing = text.empty() && piece.text == "extension";
    if (isMissing && whole.ends_with('.')) whole.pop_back();
    whole += text;
  }
  Place place;
  for (std::string_view rest = whole; !rest.empty();) {
    const std::string part(takePart(rest));
    if (part.empty()) continue;
    const std::string safe = safeFileName(part).value_or("_");
    if (rest.empty()) {
      place.name = safe;
    } else {
      place.folder += (place.folder.empty() ? "" : "/") + safe;
    }
  }
  return place;
}

std::string defaultTargetFolder() {
  const std::string home = g_get_home_dir();
  const char* pictures = g_get_user_special_dir(G_USER_DIRECTORY_PICTURES);
  // A user who wants no such folder has the home folder in its place.
  if (pictures != nullptr && home != pictures) return pictures;
  return home + "/Pictures";
}

}  // namespace tarvo::importing

#include "import/Items.h"

#include "platform/files/FileNames.h"

namespace tarvo::importing {

std::optional<CalendarTime> takenOf(const ObjectInfo& object) {
  if (const auto captured = CalendarTime::ofPTPDate(object.captureDate())) return captured;
  if (const auto changed = CalendarTime::ofPTPDate(object.modificationDate())) return changed;
  return object.modified() ? CalendarTime::ofTime(*object.modified()) : std::nullopt;
}

std::string ordersFolder(const ImportOptions& options) {
  // The name is the device's, which may say anything.
  return options.folder + "/" + safeFileName(options.device + " orders").value_or("orders");
}

std::optional<Place> placeOf(const ImportOptions& options, const ObjectInfo& object,
                             const std::optional<CalendarTime>& taken) {
  const std::string& path = object.path();
  const auto slash = path.rfind('/');
  auto place = options.pattern.placeOf(
      {.device = options.device,
       .serial = options.serial,
       .taken = taken,
       .name = object.name(),
       .folder = slash == std::string::npos ? std::string() : path.substr(0, slash)});
  if (place) place->folder = options.folder + (place->folder.empty() ? "" : "/") + place->folder;
  return place;
}

}  // namespace tarvo::importing

#include "tools/objects/ObjectFilter.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include "Utilities/Numbers.h"
#include "Utilities/PTPCodes.h"
#include "platform/files/FileNames.h"
#include "tools/access/Devices.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

constexpr std::size_t kDateLength = std::string_view("20240615T120000").size();

/// Of the picture, by the device's own clock; empty where there is none, or no date.
std::string dateOf(const ObjectInfo& object) {
  const auto& date =
      object.captureDate().empty() ? object.modificationDate() : object.captureDate();
  return ptpDateFromWords(date).value_or("").substr(0, kDateLength);
}

/// Whether it is of a kind that is asked for.
bool isWantedKind(const ObjectFilter& filter, const ObjectInfo& object) {
  if (!filter.pictures && !filter.films) return true;
  if (object.isFolder()) return false;
  return isFilm(object.name()) ? filter.films : filter.pictures && isPictureOrFilm(object.name());
}

/// A format as a user writes it: a code (0x3801), or a file extension ("jpg"). Raises kBadUsage.
std::uint16_t formatArgument(const std::string& text) {
  if (const auto code = numberOf(text, 0xFFFF)) return static_cast<std::uint16_t>(*code);
  const std::uint16_t code = ptpFormatOfExtension(lowerCaseExtension("x." + text));
  if (code == ptp::kUndefinedFormat)
    refuseUsage("'" + text + "' is neither a format code nor a known file extension");
  return code;
}

/// So many days before that day, at its beginning.
std::string beginningOfDay(std::time_t now, int daysBefore) {
  std::tm local = {};
  ::localtime_r(&now, &local);
  local.tm_mday -= daysBefore;
  local.tm_hour = 12;  // which every day has, whatever is done to its clocks
  local.tm_isdst = -1;
  return localDateText(std::mktime(&local), "%Y%m%dT000000");
}

}  // namespace

std::optional<std::string> dateSince(const std::string& words, std::time_t now) {
  constexpr std::uint64_t kLongest = 100'000;
  constexpr std::time_t kHour = 3600;
  if (words == "today") return beginningOfDay(now, 0);
  if (words == "yesterday") return beginningOfDay(now, 1);
  for (const char* missing : {"", " 00:00:00", ":00", "T000000"})
    if (const auto date = ptpDateFromWords(words + missing)) return date->substr(0, kDateLength);
  const std::string number = words.substr(0, words.empty() ? 0 : words.size() - 1);
  const auto count = numberOf(number, kLongest);
  const std::time_t hours = words.ends_with('h')   ? 1
                            : words.ends_with('d') ? 24
                            : words.ends_with('w') ? 7 * 24
                                                   : 0;
  if (!count || hours == 0) return std::nullopt;
  return localDateText(now - static_cast<std::time_t>(*count) * hours * kHour, "%Y%m%dT%H%M%S");
}

CommandOptions& addFilterOptions(CommandOptions& command, ObjectFilter& filter) {
  return command.flag("--pictures", filter.pictures, "Pictures alone, by their names' endings")
      .flag("--films", filter.films, "Films alone; with --pictures, both")
      .option("--since", filter.since, "DATE",
              "Not older than that: 2026-11-20, yesterday, today, 7d")
      .option("--format", filter.format, "FORMAT",
              "Of this format alone: a code, or an extension (jpg)")
      .option("--store", filter.store, "STORE", "In this store alone: its label or its id")
      .option("--sort", filter.sort, "ORDER", "By name, date or size, the smallest first")
      .oneOf({"name", "date", "size"})
      .count("--limit", filter.limit, "End after N objects");
}

ObjectSieve::ObjectSieve(const ObjectFilter& filter) : filter_(filter) {
  if (!filter.format.empty()) format_ = formatArgument(filter.format);
  if (filter.since.empty()) return;
  const auto since = dateSince(filter.since, std::time(nullptr));
  if (!since)
    refuseUsage("'" + filter.since +
                "' is no date, which looks like 2026-11-20, '2026-11-20 18:00', yesterday, today, "
                "12h, 7d or 2w");
  since_ = *since;
}

void ObjectSieve::useStoresOf(Device& device) {
  if (filter_.store.empty()) return;
  if (device.info().kind() == DeviceKind::kVolume)
    refuseUsage("a volume has no stores to choose from");
  store_ = storeArgument(device, filter_.store);
}

bool ObjectSieve::passes(const ObjectInfo& object) const {
  if (!isWantedKind(filter_, object)) return false;
  if (object.isFolder() && !isOpen()) return false;
  if (format_ != 0 && object.format() != format_) return false;
  if (store_ != 0 && object.store() != store_) return false;
  return since_.empty() || dateOf(object) >= since_;
}

void ObjectSieve::arrange(std::vector<ObjectInfo>& objects) const {
  if (filter_.sort == "name") std::ranges::stable_sort(objects, {}, &ObjectInfo::path);
  if (filter_.sort == "date") std::ranges::stable_sort(objects, {}, dateOf);
  if (filter_.sort == "size") std::ranges::stable_sort(objects, {}, &ObjectInfo::size);
  if (filter_.limit && objects.size() > *filter_.limit)
    objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(*filter_.limit), objects.end());
}

}  // namespace tarvo::tools

#include "import/Fetch.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include "import/CaptureDate.h"
#include "import/Groups.h"
#include "platform/files/FileNames.h"
#include "platform/files/FilePlace.h"

namespace tarvo::importing {

Fetch::Fetch(Device& device, History* history, const ImportOptions& options,
             ImportObserver& observer, ImportSum& sum)
    : device_(device),
      history_(history),
      options_(options),
      observer_(observer),
      sum_(sum),
      securing_(device, history, options, observer, sum) {}

void Fetch::run(std::vector<Item>& items) {
  std::vector<Item*> chosen;
  std::vector<std::string> paths;
  for (auto& item : items) {
    if (!item.isToFetch()) continue;
    chosen.push_back(&item);
    paths.push_back(item.object.path());
  }
  try {
    for (const auto& members : groupsOf(paths)) {
      Group group;
      for (const std::size_t member : members)
        group.items.push_back(chosen[member]);
      if (end_ || !observer_.goesOn()) break;
      fetchGroup(group);
    }
  } catch (const Error& error) {
    end_ = error;  // while something else was asked for, or deleted
  } catch (const HistoryError& error) {
    observer_.warned(std::string(error.what()) + "; the rest was not fetched.");
  }
  securing_.flush();
  if (end_) throw Error(*end_);
}

void Fetch::fetchGroup(Group& group) {
  group.date = group.items.front()->taken;
  group.number = freeNumberOf(group);
  for (Item* const item : group.items) {
    if (end_ || !observer_.goesOn()) return;
    observer_.pauses();
    fetchOne(group, *item);
    securing_.flushIfDue();
  }
}

unsigned Fetch::freeNumberOf(const Group& group) const {
  // One by itself is numbered where it is put.
  if (group.items.size() == 1) return 1;
  std::string folder;
  std::vector<std::string> names;
  for (const Item* const item : group.items) {
    auto place = placeOf(options_, item->object, group.date);
    if (!place) continue;
    folder = place->folder;
    names.push_back(std::move(place->name));
  }
  return freeNumber(folder, names);
}

void Fetch::fetchOne(Group& group, Item& item) {
  if (isFull_) return failed(item, {.outcome = Outcome::kNoRoom, .why = "there is no room left"});
  const auto place = placeOf(options_, item.object, group.date);
  if (!place) return failed(item, {.why = "its name cannot be the name of a file"});
  std::error_code made;
  std::filesystem::create_directories(place->folder, made);
  if (made)
    return failed(item,
                  {.why = "the folder '" + place->folder + "' cannot be made: " + made.message()});
  observer_.begins(item);
  Fingerprint fingerprint;
  DownloadOptions options;
  options.folder(place->folder)
      .name(numberedFileName(place->name, group.number))
      .existing(Existing::kKeepOthers)
      .progress([&](std::uint64_t done, std::uint64_t) {
        observer_.progressed(item, done);
        return observer_.goesOn();
      })
      .content([&](std::uint64_t offset, std::span<const std::byte> bytes) {
        fingerprint.add(offset, bytes);
      });
  try {
    came(group, item, device_.download(item.object, options), fingerprint);
  } catch (const Error& error) {
    failed(item, error);
  }
}

void Fetch::came(Group& group, Item& item, const Downloaded& file, const Fingerprint& fingerprint) {
  const FileDescriptor opened = openFile(file.path());
  std::optional<std::string> print;
  if (opened.isOpen()) print = fingerprint.of(file.size());
  // Not all of it came just now.
  if (opened.isOpen() && !print) print = fingerprintOf(opened.get());
  if (!print)
    return failed(item, {.path = file.path(), .why = "it cannot be read: " + errorText(errno)});
  Securing::File kept = {
      .item = &item, .path = file.path(), .fingerprint = *print, .wasThere = file.wasThere()};
  kept.date = captureDateOf(beginningOf(opened.get()));
  if (!kept.wasThere) {
    if (auto earlier = pathOfTwin(group, item, kept)) {
      // What has just come is one more copy of it.
      ::unlink(kept.path.c_str());
      kept.path = std::move(*earlier);
      kept.wasThere = kept.isElsewhere = true;
    } else {
      auto moved = moveByDate(group, item, kept.path, kept.date);
      kept.path = std::move(moved.path);
      kept.wasThere = moved.wasThere;
    }
  }
  observer_.ended(
      item, {.outcome = kept.wasThere ? Outcome::kKnown : Outcome::kFetched, .path = kept.path});
  securing_.add(std::move(kept));
}

std::optional<std::string> Fetch::pathOfTwin(const Group& group, const Item& item,
                                             const Securing::File& file) const {
  if (history_ && item.novelty == Novelty::kDoubtful)
    for (auto& each : history_->find(item.object.name(), item.object.size(), item.taken))
      if (each.fingerprint == file.fingerprint) return std::move(each.path);
  const auto place = placeOf(options_, item.object, group.date);
  return place ? twinOf(file.path, *place, group.number) : std::nullopt;
}

Moved Fetch::moveByDate(Group& group, const Item& item, const std::string& path,
                        const std::optional<CalendarTime>& date) const {
  // The first of a group has told for all.
  if (!date || &item != group.items.front()) return {.path = path};
  const auto before = placeOf(options_, item.object, group.date);
  const auto after = placeOf(options_, item.object, date);
  if (after->folder == before->folder && after->name == before->name) return {.path = path};
  Group there = {.items = group.items, .date = date};
  there.number = freeNumberOf(there);
  auto moved = moveTo(path, {after->folder, numberedFileName(after->name, there.number)});
  if (moved.error == 0) {
    group = std::move(there);
  } else {
    observer_.warned("'" + path + "' stays where it is, and not in '" + after->folder +
                     "': " + errorText(moved.error));
  }
  return moved;
}

void Fetch::failed(const Item& item, const Error& error) {
  // What the user has ended is no failure of an object.
  if (error.kind() == ErrorKind::kCancelled && !observer_.goesOn()) return;
  isFull_ = isFull_ || error.kind() == ErrorKind::kDiskFull;
  if (error.endsDevice()) end_ = error;
  const bool hasNoRoom =
      error.kind() == ErrorKind::kDiskFull || error.kind() == ErrorKind::kTooLarge;
  failed(item, {.outcome = hasNoRoom ? Outcome::kNoRoom : Outcome::kFailed,
                .why = error.reason().empty() ? Error::inWords(error.status()) : error.reason(),
                .error = error});
}

void Fetch::failed(const Item& item, const Result& result) {
  ++(result.outcome == Outcome::kNoRoom ? sum_.noRoom : sum_.failed);
  observer_.ended(item, result);
}

}  // namespace tarvo::importing

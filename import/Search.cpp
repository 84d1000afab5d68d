#include "import/Search.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "import/CaptureDate.h"
#include "import/Files.h"
#include "import/Groups.h"
#include "platform/files/FolderTree.h"

namespace tarvo::importing {
namespace {

std::uint64_t keyOf(const ObjectInfo& object) {
  std::string text = object.name() + "/" + std::to_string(object.size());
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::hash<std::string>{}(text);
}

bool areAlike(const std::optional<CalendarTime>& one, const std::optional<CalendarTime>& other) {
  return one && other ? isSameTime(*one, *other) : !one && !other;
}

/// Different ones for certain: a content may be remembered by two dates, and one that was only seen
/// at its place may be any of the others.
std::uint32_t copiesOf(const std::vector<Remembered>& objects) {
  std::map<std::string, std::uint32_t> copies;
  for (const auto& each : objects)
    copies[each.fingerprint] = std::max(copies[each.fingerprint], each.copies);
  std::uint32_t sum = 0;
  for (const auto& [fingerprint, count] : copies)
    if (!fingerprint.empty()) sum += count;
  return std::max(sum, copies[""]);
}

}  // namespace

Search::Search(Device& device, History* history, const ImportOptions& options,
               ImportObserver& observer)
    : device_(device), history_(history), options_(options), observer_(observer) {}

void Search::run(const Wanted& wanted, bool keepsKnown) {
  items_.clear();
  sightings_.clear();
  order_.clear();
  known_ = 0;
  visit(wanted, [&](const ObjectInfo& object) { take(object, keepsKnown); });
  for (const auto& sighting : sightings_)
    order_.emplace_back(sighting.key, sighting.taken);
  std::ranges::sort(order_);
  settle(wanted, keepsKnown);
  passOverWhatIsThere();
  if (!keepsKnown) std::erase_if(items_, [](const Item& item) { return !item.isToFetch(); });
}

void Search::rememberWhatIsKnown() {
  if (history_ && !alsoKnown_.empty()) history_->remember(std::exchange(alsoKnown_, {}));
}

void Search::visit(const Wanted& wanted, const std::function<void(const ObjectInfo&)>& each) {
  ObjectVisitor visitor([&](const ObjectInfo& object) {
    if (!object.isFolder() && !object.isSpecial() && (!wanted.accepts || wanted.accepts(object)))
      each(object);
    observer_.pauses();
    return observer_.goesOn();
  });
  visitor.onUnreadable([this](std::uint32_t, const std::string& path, const Error& error) {
    observer_.unreadable(path, error);
    return observer_.goesOn();
  });
  device_.visit(wanted.choice, visitor);
}

void Search::take(const ObjectInfo& object, bool keepsKnown) {
  Item item = {.object = object, .taken = takenOf(object)};
  const std::uint32_t remembered = rememberedOf(item);
  sightings_.push_back({keyOf(object), item.taken, remembered});
  observer_.looked(sightings_.size());
  if (!keepsKnown && remembered > 0) return;
  if (remembered > 0) item.novelty = item.taken ? Novelty::kKnown : Novelty::kDoubtful;
  items_.push_back(std::move(item));
  if (keepsKnown) observer_.found(items_.back());
}

std::uint32_t Search::rememberedOf(Item& item) {
  const auto& object = item.object;
  const std::uint32_t copies =
      history_ ? copiesOf(history_->find(object.name(), object.size(), item.taken)) : 0;
  return copies > 0 ? copies : rememberedByPicture(item);
}

// A file system without zones tells another hour in another half of the year, or in another
// country.
std::uint32_t Search::rememberedByPicture(Item& item) {
  if (device_.info().kind() != DeviceKind::kVolume) return 0;
  int error = 0;
  const auto file = FolderTree(device_.info().path()).openFile(item.object.path(), error);
  const auto date = file.isOpen() ? captureDateOf(beginningOf(file.get())) : std::nullopt;
  if (!date || areAlike(date, item.taken)) return 0;
  const auto fileDate = std::exchange(item.taken, date);
  if (!history_) return 0;
  auto found = history_->find(item.object.name(), item.object.size(), date);
  for (auto& each : found) {
    each.taken = fileDate;  // so that the picture need not be asked the next time
    alsoKnown_.push_back(each);
  }
  return copiesOf(found);
}

std::size_t Search::alike(const Sighting& sighting) const {
  std::size_t count = 0;
  for (auto each = std::ranges::lower_bound(
           order_, sighting.key, {}, &std::pair<std::uint64_t, std::optional<CalendarTime>>::first);
       each != order_.end() && each->first == sighting.key; ++each)
    if (areAlike(each->second, sighting.taken)) ++count;
  return count;
}

Novelty Search::noveltyOf(const Sighting& sighting) const {
  const bool isOne = alike(sighting) <= std::max(1U, sighting.remembered);
  // Which of the like is the one that was imported, nobody can tell without its content.
  if (!sighting.taken || !isOne) return Novelty::kDoubtful;
  return sighting.remembered > 0 ? Novelty::kKnown : Novelty::kNew;
}

void Search::settle(const Wanted& wanted, bool keepsKnown) {
  bool anyAgain = false;
  auto item = items_.begin();
  for (const auto& sighting : sightings_) {
    const Novelty novelty = noveltyOf(sighting);
    if (novelty == Novelty::kKnown) ++known_;
    if (keepsKnown || sighting.remembered == 0) {
      item++->novelty = novelty;
    } else if (novelty == Novelty::kDoubtful) {
      anyAgain = true;
    }
  }
  if (!anyAgain || !observer_.goesOn()) return;
  // These are few and were not kept: the device gives them once more.
  visit(wanted, [this](const ObjectInfo& object) {
    Item again = {.object = object, .taken = takenOf(object), .novelty = Novelty::kDoubtful};
    const std::uint32_t remembered = rememberedOf(again);
    if (remembered > 0 && noveltyOf({keyOf(object), again.taken, remembered}) == Novelty::kDoubtful)
      items_.push_back(std::move(again));
  });
}

void Search::passOverWhatIsThere() {
  for (auto& item : items_) {
    if (item.novelty != Novelty::kNew || !observer_.goesOn()) continue;
    const auto place = placeOf(options_, item.object, item.taken);
    if (!place) continue;
    DownloadRun run(
        DownloadOptions().folder(place->folder).name(place->name).existing(Existing::kKeepOthers));
    if (!run.isThere(item.object, true)) continue;
    item.novelty = Novelty::kThere;
    ++known_;
    alsoKnown_.push_back({.name = item.object.name(),
                          .size = item.object.size(),
                          .taken = item.taken,
                          .device = options_.serial,
                          .path = place->folder + "/" + place->name,
                          .imported = std::time(nullptr)});
  }
}

}  // namespace tarvo::importing

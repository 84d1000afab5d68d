// What is new on a device.
//
//   Search search(device, history, options, observer);
//   search.run(ObjectChoice().others(ObjectChoice::Others::kPictures), {});
//   for (Item& item : search.items()) ...
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "import/History.h"
#include "import/Items.h"

namespace tarvo::importing {

/// Which objects an import is about.
struct Wanted {
  ObjectChoice choice{};
  std::function<bool(const ObjectInfo& object)> accepts{};  ///< none: all that the choice means
};

/// One thread; everything is lent.
///
/// An object is known by its name, size and date. Several of one device that are alike in these, or
/// one without a date, are doubtful: they are fetched, and their content tells.
class Search {
 public:
  /// Without a history known is what lies at its place.
  Search(Device& device, History* history, const ImportOptions& options, ImportObserver& observer);

  /// `keepsKnown`: items() has all, not only what is to be fetched. Raises Error for a device that
  /// fails.
  void run(const Wanted& wanted, bool keepsKnown = false);

  /// What was known by something else than the history: the history knows it now, too.
  void rememberWhatIsKnown();

  /// In the order of the device.
  std::vector<Item>& items() { return items_; }
  const std::vector<Item>& items() const { return items_; }
  /// Of all that was looked at.
  std::uint64_t known() const { return known_; }
  std::uint64_t seen() const { return sightings_.size(); }

 private:
  /// An object that was looked at.
  struct Sighting {
    std::uint64_t key;  ///< of its name and size
    std::optional<CalendarTime> taken;
    std::uint32_t remembered;  ///< how many of the like were imported before
  };

  void visit(const Wanted& wanted, const std::function<void(const ObjectInfo&)>& each);
  void take(const ObjectInfo& object, bool keepsKnown);
  /// How many of the like were imported before.
  std::uint32_t rememberedOf(Item& item);
  /// The same by the date in the picture, which the item has then.
  std::uint32_t rememberedByPicture(Item& item);
  /// How many objects of the device are like that one.
  std::size_t alike(const Sighting& sighting) const;
  Novelty noveltyOf(const Sighting& sighting) const;
  void settle(const Wanted& wanted, bool keepsKnown);
  void passOverWhatIsThere();

  Device& device_;
  History* history_;
  const ImportOptions& options_;
  ImportObserver& observer_;
  std::vector<Item> items_;
  std::vector<Sighting> sightings_;
  std::vector<std::pair<std::uint64_t, std::optional<CalendarTime>>> order_;  ///< of sightings
  std::vector<Remembered> alsoKnown_;  ///< which the history did not know, or by another date
  std::uint64_t known_ = 0;
};

}  // namespace tarvo::importing

// The transfer of what an import has chosen, each to its place.
//
//   ImportSum sum;
//   Fetch(device, history, options, observer, sum).run(search.items());
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "import/Files.h"
#include "import/Fingerprint.h"
#include "import/Securing.h"

namespace tarvo::importing {

/// One thread; everything is lent.
///
/// What belongs together goes into one folder under one name. A file of the same name is left
/// alone: one with the same content stands for the object, beside another one the new file is
/// numbered.
class Fetch {
 public:
  Fetch(Device& device, History* history, const ImportOptions& options, ImportObserver& observer,
        ImportSum& sum);

  /// What is chosen and not known, until the observer ends it. What was fetched is safe when this
  /// returns, or raises the Error that ended the device.
  void run(std::vector<Item>& items);

 private:
  /// Objects that belong together, and where they go.
  struct Group {
    std::vector<Item*> items;
    std::optional<CalendarTime> date{};
    unsigned number = 1;
  };

  void fetchGroup(Group& group);
  void fetchOne(Group& group, Item& item);
  /// `fingerprint` is of what came over USB.
  void came(Group& group, Item& item, const Downloaded& file, const Fingerprint& fingerprint);
  /// Of the group with this date.
  unsigned freeNumberOf(const Group& group) const;
  /// Where its EXIF block says that it belongs; its path as it is then.
  Moved moveByDate(Group& group, const Item& item, const std::string& path,
                   const std::optional<CalendarTime>& date) const;
  /// Where the same content was put before; none where it was not.
  std::optional<std::string> pathOfTwin(const Group& group, const Item& item,
                                        const Securing::File& file) const;
  void failed(const Item& item, const Error& error);
  void failed(const Item& item, const Result& result);

  Device& device_;
  History* history_;
  const ImportOptions& options_;
  ImportObserver& observer_;
  ImportSum& sum_;
  Securing securing_;
  bool isFull_ = false;       ///< the disk is
  std::optional<Error> end_;  ///< of the device
};

}  // namespace tarvo::importing

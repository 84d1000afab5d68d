// What an import deals with: the objects of a device with what is known of them, and who is told
// how it goes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "import/CalendarTime.h"
#include "import/Placement.h"
#include "tarvo/Device.h"

namespace tarvo::importing {

struct ImportOptions {
  std::string folder{};  ///< below which everything goes; made where it is missing
  PlacePattern pattern{};
  std::string device{};  ///< what {device} and {serial} stand for
  std::string serial{};
  /// Each file is read back from the disk and compared before it counts as fetched.
  bool verifies = false;
  /// What was fetched, and is safe on the disk, is deleted from the device.
  bool deletes = false;
};

/// What is known of an object before it is fetched.
enum class Novelty : std::uint8_t {
  kNew,
  kDoubtful,  ///< it may be here already: its content decides, once it is fetched
  kKnown,     ///< imported before
  kThere,     ///< not remembered, but it lies at its place
};

struct Item {
  ObjectInfo object;
  std::optional<CalendarTime> taken{};  ///< as the device says
  Novelty novelty = Novelty::kNew;
  bool isChosen = true;

  bool isToFetch() const {
    return isChosen && (novelty == Novelty::kNew || novelty == Novelty::kDoubtful);
  }
};

enum class Outcome : std::uint8_t {
  kFetched,
  kKnown,  ///< its content was here already: nothing was added
  kFailed,
  kNoRoom,  ///< not begun, or cut by a full disk
};

struct Result {
  Outcome outcome = Outcome::kFailed;
  std::string path{};            ///< of the file, where there is one
  std::string why{};             ///< there is none, a clause
  std::optional<Error> error{};  ///< the same, of what the library raised
};

struct ImportSum {
  std::uint64_t fetched = 0;
  std::uint64_t bytes = 0;  ///< of these
  std::uint64_t known = 0;  ///< found to be here already
  std::uint64_t failed = 0;
  std::uint64_t noRoom = 0;
  std::uint64_t deleted = 0;
  std::uint64_t kept = 0;  ///< still on the device, though it was to be deleted
};

/// Is told how an import goes. None of it may call the import or the device.
class ImportObserver {
 public:
  virtual ~ImportObserver() = default;
  /// Asked between objects, and some times a second while one is looked for or fetched: false ends
  /// the import in order.
  virtual bool goesOn() = 0;
  /// Called between two objects, of a search as well: here the device may be asked for more.
  virtual void pauses() {}
  /// While the device is looked through.
  virtual void looked(std::uint64_t /*objects*/) {}
  /// One of the items of a search that keeps all, with what is known of it so far.
  virtual void found(const Item& /*item*/) {}
  /// A folder or an object that cannot be looked at.
  virtual void unreadable(const std::string& /*path*/, const Error& /*error*/) {}
  virtual void begins(const Item& /*item*/) {}
  virtual void progressed(const Item& /*item*/, std::uint64_t /*done*/) {}
  virtual void ended(const Item& /*item*/, const Result& /*result*/) {}
  /// What was fetched is safe on the disk, and remembered.
  virtual void secured(const Item& /*item*/, const std::string& /*path*/) {}
  virtual void deleted(const Item& /*item*/) {}
  virtual void keptOnDevice(const Item& /*item*/, const std::string& /*why*/) {}
  /// What is to be said and ends nothing.
  virtual void warned(const std::string& /*text*/) {}
};

/// By the device's own word: when it was taken, else when it was changed last.
std::optional<CalendarTime> takenOf(const ObjectInfo& object);

/// Below which the orders of a device go, one folder an order.
std::string ordersFolder(const ImportOptions& options);

/// Where an object goes that was taken then: its folder, absolute, and its name. None for one whose
/// name is no file name.
std::optional<Place> placeOf(const ImportOptions& options, const ObjectInfo& object,
                             const std::optional<CalendarTime>& taken);

}  // namespace tarvo::importing

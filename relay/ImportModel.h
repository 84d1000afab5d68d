// The objects of the device, as the import tells of them, and which of them are to be fetched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Utilities/PropertyDictionary.h"

namespace tarvo::relay {

/// Of the number `key`; 0 where there is none.
std::uint64_t numberIn(const PropertyDictionary& json, const char* key);
/// One line of a text, printable and with at most so many bytes; empty where there is none.
std::string textIn(const PropertyDictionary& json, const char* key, std::size_t most = 500);
bool isTrueIn(const PropertyDictionary& json, const char* key);

struct Picture {
  enum class State : std::uint8_t { kWaiting, kFetched, kSafe, kKnown, kFailed, kNoRoom, kDeleted };

  std::uint64_t id = 0;
  std::string name{};
  std::string taken{};  ///< "2024-06-15T12:00:00"; empty where it is not known
  std::uint64_t size = 0;
  bool isFilm = false;
  bool isNew = false;
  bool isProtected = false;
  bool isChosen = false;  ///< to be fetched; no other than a new one ever is
  State state = State::kWaiting;
};

/// One thread. A row is a place in the order of arrival, and stays with its object.
class ImportModel {
 public:
  /// What comes behind them is not shown; it is imported with all that is new.
  static constexpr std::size_t kMost = 100'000;
  static constexpr std::size_t kLongestName = 255;

  struct Sums {
    std::uint64_t news = 0;
    std::uint64_t chosen = 0;
    std::uint64_t chosenBytes = 0;
    std::uint64_t safe = 0;  ///< imported, and still on the device
  };

  void clear();
  /// The event "object": a new row, or another word on one that is there. A new object is chosen,
  /// one that is told again stays as it was chosen. Answers the row; none where it is beyond kMost.
  std::optional<std::size_t> take(const PropertyDictionary& json);

  std::size_t size() const { return pictures_.size(); }
  const Picture& at(std::size_t row) const { return pictures_[row]; }
  std::optional<std::size_t> rowOf(std::uint64_t id) const;
  const Sums& sums() const { return sums_; }
  /// Whether objects are missing here.
  bool isCut() const { return isCut_; }

  /// Answers whether that changed anything.
  bool choose(std::size_t row, bool isChosen);
  /// Everything that is new, or nothing.
  void chooseAll(bool isChosen);
  void setState(std::size_t row, Picture::State state);

  /// The command "choose" for what is chosen.
  PropertyDictionary choice() const;
  std::vector<std::uint64_t> safeIds() const;

 private:
  /// Changes a picture, and the sums with it.
  template <typename Change>
  void change(std::size_t row, Change change);
  void count(const Picture& picture, bool isThere);

  std::vector<Picture> pictures_;
  std::unordered_map<std::uint64_t, std::size_t> rows_;
  Sums sums_;
  bool isCut_ = false;
};

}  // namespace tarvo::relay

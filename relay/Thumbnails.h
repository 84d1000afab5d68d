// The small pictures: which of them to ask for, and those that came, checked and at the size in
// which they are drawn.
#pragma once

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::relay {

using GBytesPtr = std::shared_ptr<GBytes>;

/// Red, green and blue, a byte each, row by row without gaps.
struct Thumbnail {
  int width = 0;
  int height = 0;
  GBytesPtr pixels{};
};

/// What an event "thumbnail" brings, at most kWidth x kHeight; none where it is no such picture.
std::optional<Thumbnail> thumbnailFrom(const PropertyDictionary& json);

/// One thread. Objects are meant by their ids.
class Thumbnails {
 public:
  static constexpr int kWidth = 160;
  static constexpr int kHeight = 120;
  /// Of a side, as it comes.
  static constexpr std::uint64_t kLargest = 256;
  static constexpr std::size_t kUnderWay = 12;
  static constexpr std::size_t kKept = 600;

  void clear();
  /// What is looked at, in the order in which it is to come; in place of what was wished before.
  void wish(std::vector<std::uint64_t> ids);
  /// What is to be asked for now. It counts as under way until take().
  std::vector<std::uint64_t> next();
  /// What is under way does not come any more, and may be asked for again.
  void expectNone();
  bool isWaiting() const { return !underWay_.empty(); }
  /// The event "thumbnail". Answers the id where a picture came of it that had been asked for.
  std::optional<std::uint64_t> take(const PropertyDictionary& json);
  /// Null where it is not there. What is looked at stays longer than the rest.
  const Thumbnail* find(std::uint64_t id);

 private:
  struct Kept {
    std::uint64_t id;
    Thumbnail thumbnail;
  };

  std::vector<std::uint64_t> wished_;
  std::size_t askedUpTo_ = 0;  ///< in `wished_`; each is asked for once, though it may be forgotten
  std::unordered_set<std::uint64_t> underWay_;
  std::unordered_set<std::uint64_t> without_;  ///< those that have none
  std::list<Kept> kept_;                       ///< the one that was looked at last comes first
  std::unordered_map<std::uint64_t, std::list<Kept>::iterator> places_;
};

}  // namespace tarvo::relay

#include "relay/ImportModel.h"

#include "Utilities/Printable.h"

namespace tarvo::relay {
namespace {

/// At most so many bytes, and no half character.
std::string cutTo(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  std::size_t end = most;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
    --end;
  text.resize(end);
  return text;
}

bool isFetchedState(Picture::State state) {
  using State = Picture::State;
  return state == State::kFetched || state == State::kSafe || state == State::kKnown ||
         state == State::kDeleted;
}

}  // namespace

std::uint64_t numberIn(const PropertyDictionary& json, const char* key) {
  const auto* const value = valueForKey(json, key);
  return value != nullptr && value->is_number_unsigned() ? value->get<std::uint64_t>() : 0;
}

std::string textIn(const PropertyDictionary& json, const char* key, std::size_t most) {
  return cutTo(printable(cutTo(textForKey(json, key).value_or(""), most)), most);
}

bool isTrueIn(const PropertyDictionary& json, const char* key) {
  const auto* const value = valueForKey(json, key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

void ImportModel::clear() {
  *this = {};
}

void ImportModel::count(const Picture& picture, bool isThere) {
  const std::uint64_t one = isThere ? 1 : ~std::uint64_t{0};
  if (picture.isNew) sums_.news += one;
  if (picture.isChosen) {
    sums_.chosen += one;
    sums_.chosenBytes += one * picture.size;
  }
  if (picture.state == Picture::State::kSafe) sums_.safe += one;
}

template <typename Change>
void ImportModel::change(std::size_t row, Change change) {
  count(pictures_[row], false);
  change(pictures_[row]);
  count(pictures_[row], true);
}

std::optional<std::size_t> ImportModel::take(const PropertyDictionary& json) {
  const auto* const id = valueForKey(json, "id");
  if (id == nullptr || !id->is_number_unsigned()) return std::nullopt;
  Picture told;
  told.id = id->get<std::uint64_t>();
  told.name = textIn(json, "name", kLongestName);
  told.taken = textIn(json, "taken", 19);
  told.size = numberIn(json, "size");
  told.isFilm = textForKey(json, "kind") == "film";
  told.isNew = told.isChosen = isTrueIn(json, "new");
  told.isProtected = isTrueIn(json, "protected");
  const auto [place, isAdded] = rows_.try_emplace(told.id, pictures_.size());
  const std::size_t row = place->second;
  if (!isAdded) {
    change(row, [&](Picture& picture) {
      if (picture.isNew && told.isNew) told.isChosen = picture.isChosen;
      told.state = picture.state;
      picture = std::move(told);
    });
    return row;
  }
  if (row == kMost) {
    isCut_ = true;
    rows_.erase(place);
    return std::nullopt;
  }
  pictures_.push_back(std::move(told));
  count(pictures_.back(), true);
  return row;
}

std::optional<std::size_t> ImportModel::rowOf(std::uint64_t id) const {
  const auto found = rows_.find(id);
  return found == rows_.end() ? std::nullopt : std::optional(found->second);
}

bool ImportModel::choose(std::size_t row, bool isChosen) {
  const Picture& picture = pictures_[row];
  if (!picture.isNew || picture.isChosen == isChosen) return false;
  change(row, [&](Picture& changed) { changed.isChosen = isChosen; });
  return true;
}

void ImportModel::chooseAll(bool isChosen) {
  for (std::size_t row = 0; row < pictures_.size(); ++row)
    choose(row, isChosen);
}

void ImportModel::setState(std::size_t row, Picture::State state) {
  change(row, [&](Picture& picture) {
    picture.state = state;
    // What is here now is not to be fetched again; what failed is, when somebody chooses it.
    if (isFetchedState(state)) picture.isNew = false;
    picture.isChosen = false;
  });
}

PropertyDictionary ImportModel::choice() const {
  PropertyDictionary command = {{"command", "choose"}};
  if (sums_.chosen == sums_.news) {
    command["what"] = "new";
    return command;
  }
  PropertyDictionary ids = PropertyDictionary::array();
  PropertyDictionary except = PropertyDictionary::array();
  for (const auto& picture : pictures_)
    if (picture.isNew) (picture.isChosen ? ids : except).push_back(picture.id);
  // What is not shown is new, too, as far as anybody knows.
  if (isCut_) {
    command["what"] = "new";
    command["except"] = std::move(except);
  } else {
    command["ids"] = std::move(ids);
  }
  return command;
}

std::vector<std::uint64_t> ImportModel::safeIds() const {
  std::vector<std::uint64_t> ids;
  for (const auto& picture : pictures_)
    if (picture.state == Picture::State::kSafe) ids.push_back(picture.id);
  return ids;
}

}  // namespace tarvo::relay

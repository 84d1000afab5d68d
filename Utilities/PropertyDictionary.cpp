#include "Utilities/PropertyDictionary.h"

namespace tarvo {
namespace {

const PropertyDictionary* valueForKey(const PropertyDictionary& dictionary, std::string_view key) {
  // find() on anything but an object is a mistake in the library's eyes; here it is an answer.
  if (!dictionary.is_object()) return nullptr;
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &*found;
}

}  // namespace

std::optional<std::string> textForKey(const PropertyDictionary& dictionary, std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::int32_t> int32ForKey(const PropertyDictionary& dictionary,
                                        std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  if (value == nullptr || !value->is_number_integer()) return std::nullopt;
  // By way of unsigned numbers, where narrowing is defined for every value.
  const auto bits = value->is_number_unsigned()
                        ? value->get<std::uint64_t>()
                        : static_cast<std::uint64_t>(value->get<std::int64_t>());
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
}

const PropertyDictionary* arrayForKey(const PropertyDictionary& dictionary, std::string_view key) {
  const PropertyDictionary* value = valueForKey(dictionary, key);
  return value != nullptr && value->is_array() ? value : nullptr;
}

std::string lastPathComponent(std::string_view path) {
  const auto end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return {};
  path = path.substr(0, end + 1);
  const auto slash = path.find_last_of('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace tarvo

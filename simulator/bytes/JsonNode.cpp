#include "simulator/bytes/JsonNode.h"

#include <algorithm>
#include <charconv>

namespace tarvo::simulator {

void JsonNode::fail(const std::string& problem) const {
  throw DescriptionError((path_.empty() ? std::string("the description") : path_) + ": " + problem);
}

void JsonNode::allowKeys(const std::vector<std::string_view>& keys) const {
  if (!value_->is_object()) fail("an object is expected");
  for (const auto& [key, child] : value_->items()) {
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) continue;
    std::string known;
    for (auto name : keys)
      known.append(known.empty() ? "" : ", ").append(name);
    fail(std::string("unknown key \"").append(key).append("\" (known: ").append(known).append(")"));
  }
}

std::optional<JsonNode> JsonNode::find(const char* key) const {
  if (!value_->is_object()) fail("an object is expected");
  const auto found = value_->find(key);
  if (found == value_->end()) return std::nullopt;
  return JsonNode(*found, path_.empty() ? key : path_ + "." + key);
}

JsonNode JsonNode::at(const char* key) const {
  auto child = find(key);
  if (!child) fail(std::string("the key \"") + key + "\" is missing");
  return *child;
}

std::string JsonNode::text() const {
  if (!value_->is_string()) fail("a text is expected");
  return value_->get<std::string>();
}

bool JsonNode::boolean() const {
  if (!value_->is_boolean()) fail("true or false is expected");
  return value_->get<bool>();
}

std::uint64_t JsonNode::number(std::uint64_t maximum) const {
  std::optional<std::uint64_t> value;
  // JSON has no hexadecimal numbers, so codes may be texts.
  if (value_->is_number_unsigned()) {
    value = value_->get<std::uint64_t>();
    if (*value > maximum) value.reset();
  } else if (value_->is_string()) {
    value = parseNumber(value_->get_ref<const std::string&>(), maximum);
  }
  if (!value) fail("a number from 0 to " + std::to_string(maximum) + " is expected");
  return *value;
}

std::vector<JsonNode> JsonNode::items() const {
  if (!value_->is_array()) fail("a list is expected");
  std::vector<JsonNode> nodes;
  for (std::size_t i = 0; i < value_->size(); ++i) {
    nodes.emplace_back((*value_)[i], path_ + "[" + std::to_string(i) + "]");
  }
  return nodes;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::entries() const {
  if (!value_->is_object()) fail("an object is expected");
  std::vector<std::pair<std::string, JsonNode>> nodes;
  for (const auto& [key, child] : value_->items()) {
    nodes.emplace_back(key, JsonNode(child, path_.empty() ? key : path_ + "." + key));
  }
  return nodes;
}

std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t maximum) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  // Blanks, signs and anything behind the number make it none.
  if (error != std::errc() || end != text.data() + text.size() || value > maximum) {
    return std::nullopt;
  }
  return value;
}

}  // namespace tarvo::simulator

// A JSON value together with where it stands, so that a mistake in a device description is reported
// as, for example, "usb.product: a number from 0 to 65535 is expected".
//
//   const JsonNode root(json, "");
//   root.at("usb").at("product").get(usb.product);
//   root.read("comment", comment);  // may be absent
//   node.readAll({"content"}, Key("id", store.id), Key("label", store.label));
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::simulator {

/// A description that cannot be used; what() begins with the key path.
class DescriptionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A key of an object, and where its value goes.
template <typename T>
struct Key {
  Key(const char* key, T& target) : name(key), field(target) {}
  const char* name;
  T& field;
};

/// A view of a JSON value, which must outlive it. Every accessor raises DescriptionError.
class JsonNode {
 public:
  /// `path` is where the value stands; empty for the whole description.
  JsonNode(const nlohmann::json& value, std::string path)
      : value_(&value), path_(std::move(path)) {}

  /// An object with none but these keys.
  void allowKeys(const std::vector<std::string_view>& keys) const;
  JsonNode at(const char* key) const;                   ///< raises when it is absent
  std::optional<JsonNode> find(const char* key) const;  ///< none when it is absent

  std::string text() const;
  bool boolean() const;
  /// A JSON number, or text in decimal or 0x... form.
  std::uint64_t number(std::uint64_t maximum) const;
  std::vector<JsonNode> items() const;                            ///< of an array
  std::vector<std::pair<std::string, JsonNode>> entries() const;  ///< of an object

  /// Reads the value under a key of an object into `field`, which stays as it is where the key is
  /// absent. Numbers are bounded by their type.
  template <typename T>
  void read(const char* key, T& field) const {
    if (const auto child = find(key)) child->get(field);
  }
  /// The same for many keys of an object that has none but these and `others`.
  template <typename... T>
  void readAll(std::vector<std::string_view> others, Key<T>... keys) const {
    (others.push_back(keys.name), ...);
    allowKeys(others);
    (read(keys.name, keys.field), ...);
  }
  /// The same for a list whose items `make` turns into values, from a JsonNode each.
  template <typename T, typename Make>
  void readList(const char* key, std::vector<T>& field, Make make) const {
    const auto child = find(key);
    if (!child) return;
    field.clear();
    for (const auto& item : child->items())
      field.push_back(make(item));
  }

  // The value itself, which must have the form of the field.
  void get(std::string& field) const { field = text(); }
  void get(bool& field) const { field = boolean(); }
  template <std::unsigned_integral T>
  void get(T& field) const {
    field = static_cast<T>(number(std::numeric_limits<T>::max()));
  }
  template <typename T>
  void get(std::optional<T>& field) const {
    get(field.emplace());
  }
  template <typename T>
  void get(std::vector<T>& field) const {
    field.clear();
    for (const auto& item : items())
      item.get(field.emplace_back());
  }

  const nlohmann::json& json() const { return *value_; }
  /// Raises DescriptionError: the path, then `problem`.
  [[noreturn]] void fail(const std::string& problem) const;

 private:
  const nlohmann::json* value_;
  std::string path_;
};

/// The number that `text` is in decimal or 0x... form; none when it is none or beyond `maximum`.
std::optional<std::uint64_t> parseNumber(std::string_view text, std::uint64_t maximum);

}  // namespace tarvo::simulator

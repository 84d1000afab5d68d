// A JSON value together with where it stands, so that a mistake in a device description is reported
// as, for example, "usb.product: a number from 0 to 65535 is expected".
//
//   const JsonNode root(json, "");
//   const auto product = root.at("usb").at("product").number(0xFFFF);
#pragma once

#include <cstdint>
#include <initializer_list>
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

/// A view of a JSON value, which must outlive it. Every accessor raises DescriptionError.
class JsonNode {
 public:
  /// `path` is where the value stands; empty for the whole description.
  JsonNode(const nlohmann::json& value, std::string path)
      : value_(&value), path_(std::move(path)) {}

  /// An object with none but these keys.
  void allowKeys(std::initializer_list<std::string_view> keys) const;
  JsonNode at(const char* key) const;                   ///< raises when it is absent
  std::optional<JsonNode> find(const char* key) const;  ///< none when it is absent

  std::string text() const;
  bool boolean() const;
  /// A JSON number, or text in decimal or 0x... form.
  std::uint64_t number(std::uint64_t maximum) const;
  std::vector<JsonNode> items() const;                            ///< of an array
  std::vector<std::pair<std::string, JsonNode>> entries() const;  ///< of an object

  // The value under a key of an object, or `otherwise` where the key is absent. A value that is
  // there but of another form raises all the same.
  std::string textOr(const char* key, std::string otherwise) const;
  std::uint64_t numberOr(const char* key, std::uint64_t maximum, std::uint64_t otherwise) const;
  bool booleanOr(const char* key, bool otherwise) const;
  std::vector<std::uint16_t> codesOr(const char* key, std::vector<std::uint16_t> otherwise) const;

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

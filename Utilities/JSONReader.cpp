#include "Utilities/JSONReader.h"

#include <iterator>
#include <string>

#include "Utilities/Exception.h"

namespace tarvo {
namespace {

[[noreturn]] void refuseJSON(const std::string& reason) {
  throw Exception(std::string(exception_name::kInvalidArgument), reason);
}

/// Follows a document without keeping any of it. Every call answers whether to go on: always, since
/// what is too much raises.
class JSONCounter : public nlohmann::json_sax<PropertyDictionary> {
 public:
  bool null() override { return take(0); }
  bool boolean(bool) override { return take(0); }
  bool number_integer(number_integer_t) override { return take(0); }
  bool number_unsigned(number_unsigned_t) override { return take(0); }
  bool number_float(number_float_t, const string_t&) override { return take(0); }
  bool string(string_t& text) override { return take(kBlock + sizeof text + beside(text)); }
  bool binary(binary_t&) override { return take(0); }
  bool key(string_t& name) override { return occupy(kBlock + kMember + beside(name)); }
  bool start_object(std::size_t) override {
    return take(kBlock + sizeof(PropertyDictionary::object_t)) && enter();
  }
  bool start_array(std::size_t) override {
    return take(kBlock + sizeof(PropertyDictionary::array_t)) && enter();
  }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }
  /// Called for each character.
  void step() {
    if (++sinceEvent_ > kLongestJSONText)
      refuseJSON("it has a value of more than " + std::to_string(kLongestJSONText >> 20) + " MiB");
  }
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    // It repeats what it has read last, which may be all of the text.
    constexpr std::size_t kLongest = 200;
    refuseJSON(std::string(error.what()).substr(0, kLongest));
  }

 private:
  /// What the allocator adds to a block, and rounds it up by.
  static constexpr std::size_t kBlock = 16;
  /// A name with its value, and the node of a tree around them.
  static constexpr std::size_t kMember =
      sizeof(PropertyDictionary::object_t::value_type) + 4 * sizeof(void*);

  /// What does not fit into the text object itself.
  static std::size_t beside(const string_t& text) {
    constexpr std::size_t kInside = 15;
    return text.size() <= kInside ? 0 : kBlock + text.size();
  }
  bool take(std::size_t bytes) {
    if (++values_ > kMostJSONValues)
      refuseJSON("it has more than " + std::to_string(kMostJSONValues) + " values");
    // An array has up to twice the room that it needs.
    return occupy(bytes + 2 * sizeof(PropertyDictionary));
  }
  bool occupy(std::size_t bytes) {
    sinceEvent_ = 0;
    memory_ += bytes;
    if (memory_ > kMostJSONMemory)
      refuseJSON("its values take more than " + std::to_string(kMostJSONMemory >> 20) + " MiB");
    return true;
  }
  bool enter() {
    if (++depth_ > kMostJSONDepth)
      refuseJSON("it is more than " + std::to_string(kMostJSONDepth) + " levels deep");
    return true;
  }
  bool leave() {
    --depth_;
    return true;
  }

  std::size_t values_ = 0;
  std::size_t memory_ = 0;
  std::size_t depth_ = 0;
  std::size_t sinceEvent_ = 0;
};

/// A text that tells the counter of each of its characters.
class CountedCharacters {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountedCharacters(const char* at, JSONCounter& counter) : at_(at), counter_(&counter) {}
  reference operator*() const { return *at_; }
  CountedCharacters& operator++() {
    counter_->step();
    ++at_;
    return *this;
  }
  bool operator==(const CountedCharacters& other) const { return at_ == other.at_; }

 private:
  const char* at_;
  JSONCounter* counter_;
};

}  // namespace

PropertyDictionary jsonFromText(std::string_view text) {
  if (text.size() > kMostJSONBytes)
    refuseJSON("it is larger than " + std::to_string(kMostJSONBytes >> 20) + " MiB");
  JSONCounter counter;
  PropertyDictionary::sax_parse(CountedCharacters(text.data(), counter),
                                CountedCharacters(text.data() + text.size(), counter), &counter);
  return PropertyDictionary::parse(text);
}

}  // namespace tarvo

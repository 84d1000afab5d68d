// Feeds the reader of key files (preferences, desktop entries) any text.
//
// A second reading, line by line, must give the same pairs and the same end; what is read is part
// of the text; a value whose escapes can be resolved says the same once they are put back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "platform/foundation/KeyFile.h"

namespace {

struct NaiveLine {
  int number = 0;
  std::string group;
  std::string key;
  std::string value;
};

std::string naiveTrimmed(std::string text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!text.empty() && isBlank(text.back()))
    text.pop_back();
  while (!text.empty() && isBlank(text.front()))
    text.erase(text.begin());
  return text;
}

std::vector<std::string> naiveLines(std::string_view text) {
  std::vector<std::string> lines(1);
  for (const char c : text) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += c;
    }
  }
  return lines;
}

/// The pairs; `malformed` gets the number of the line that ends the reading.
std::vector<NaiveLine> naiveRead(std::string_view text, std::optional<int>& malformed) {
  std::vector<NaiveLine> pairs;
  NaiveLine current;
  for (const auto& raw : naiveLines(text)) {
    ++current.number;
    const std::string line = naiveTrimmed(raw);
    if (line.empty() || line[0] == '#') continue;
    const auto equals = line.find('=');
    if (line[0] == '[' && line.size() > 2 && line.back() == ']') {
      current.group = line.substr(1, line.size() - 2);
    } else if (line[0] == '[' || equals == std::string::npos ||
               naiveTrimmed(line.substr(0, equals)).empty()) {
      malformed = current.number;
      return pairs;
    } else {
      current.key = naiveTrimmed(line.substr(0, equals));
      current.value = naiveTrimmed(line.substr(equals + 1));
      pairs.push_back(current);
    }
  }
  return pairs;
}

std::string escaped(const std::string& text) {
  std::string value;
  for (const char c : text) {
    switch (c) {
      case ' ':
        value += "\\s";
        break;
      case '\n':
        value += "\\n";
        break;
      case '\t':
        value += "\\t";
        break;
      case '\r':
        value += "\\r";
        break;
      case '\\':
        value += "\\\\";
        break;
      default:
        value += c;
    }
  }
  return value;
}

void checkValue(std::string_view value) {
  const auto text = tarvo::unescapedKeyFileValue(value);
  // Without backslashes it stands for itself.
  if (value.find('\\') == std::string_view::npos) require(text == value);
  if (!text) return;
  require(text->size() <= value.size());
  const std::string again = escaped(*text);
  require(tarvo::trimmedBlanks(again) == again);
  require(tarvo::unescapedKeyFileValue(again) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of exact size, so that the sanitizer sees a read beyond it.
  const std::vector<char> copy(data, data + size);
  const std::string_view text(copy.data(), copy.size());
  const auto isWithin = [&](std::string_view part) {
    return part.empty() ||
           (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size());
  };
  std::optional<int> expectedEnd;
  const auto expected = naiveRead(text, expectedEnd);
  std::size_t count = 0;
  const auto end = tarvo::readKeyFile(text, [&](const tarvo::KeyFileLine& line) {
    require(count < expected.size());
    const NaiveLine& same = expected[count++];
    require(line.number == same.number && line.group == same.group && line.key == same.key &&
            line.value == same.value);
    require(isWithin(line.group) && isWithin(line.key) && isWithin(line.value));
    checkValue(line.value);
    return true;
  });
  require(end == expectedEnd && count == expected.size());
  checkValue(text);
  // Who has what he wants is called no more.
  std::size_t calls = 0;
  tarvo::readKeyFile(text, [&](const tarvo::KeyFileLine&) { return ++calls < 2; });
  require(calls == std::min<std::size_t>(count, 2));
  return 0;
}

#include "NativeServices/MissingArguments.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace tarvo {

namespace {

/// Text of a device must not blow a line up: "%999999999d" is padded no further than this.
constexpr std::size_t kWidest = 64;

constexpr std::string_view kFlags = "-+ #0'";
/// Lengths ("ll", "hh", "z") do not matter without an argument; in any order and number.
constexpr std::string_view kLengths = "hlqLjzt";
constexpr std::string_view kDigits = "0123456789";

/// One "%..." of a format, taken apart (C11, 7.21.6.1; "%@", "%C" and "%S" as Cocoa has them, "%D",
/// "%O" and "%U" as BSD has them).
struct Directive {
  std::string_view flags;
  std::size_t width = 0;
  std::optional<std::size_t> precision;  ///< "%.d" has one, 0
  char conversion = '\0';

  bool has(char flag) const { return flags.find(flag) != std::string_view::npos; }
};

/// The longest beginning of `rest` that consists of `characters`, taken off it.
std::string_view take(std::string_view& rest, std::string_view characters) {
  const auto length = std::min(rest.find_first_not_of(characters), rest.size());
  const std::string_view taken = rest.substr(0, length);
  rest.remove_prefix(length);
  return taken;
}

/// A number or "*" (a missing argument, hence 0), no larger than kWidest.
std::size_t takeNumber(std::string_view& rest) {
  if (rest.starts_with('*')) {
    rest.remove_prefix(1);
    return 0;
  }
  std::size_t number = 0;
  for (const char digit : take(rest, kDigits))
    number = std::min(number * 10 + static_cast<std::size_t>(digit - '0'), kWidest);
  return number;
}

/// Takes the directive behind a "%" off `rest`. The conversion stays 0 where the text ends first.
Directive takeDirective(std::string_view& rest) {
  Directive directive;
  // Digits are a width unless a "$" follows, so they are read on a copy first.
  std::string_view position = rest;
  if (!take(position, kDigits).empty() && position.starts_with('$')) {
    rest = position.substr(1);  // "%1$s": which argument is missing does not matter
  }
  directive.flags = take(rest, kFlags);
  directive.width = takeNumber(rest);
  if (rest.starts_with('.')) {
    rest.remove_prefix(1);
    directive.precision = takeNumber(rest);
  }
  take(rest, kLengths);
  if (!rest.empty()) {
    directive.conversion = rest.front();
    rest.remove_prefix(1);
  }
  return directive;
}

std::string signOf(const Directive& directive) {
  if (directive.has('+')) return "+";
  return directive.has(' ') ? " " : "";
}

/// Zero as a floating directive writes it, without a sign.
std::string floatingZero(const Directive& directive) {
  const std::size_t digits = directive.precision.value_or(6);
  std::string fixed = digits == 0 ? "0" : "0." + std::string(digits, '0');
  switch (directive.conversion) {
    case 'f':
    case 'F':
      return fixed;
    case 'e':
      return fixed + "e+00";
    case 'E':
      return fixed + "E+00";
    case 'a':
      return "0x0p+0";  // exact already; a precision would only lengthen it
    case 'A':
      return "0X0P+0";
    default:  // 'g' and 'G' take trailing zeros away
      return "0";
  }
}

/// What stands for a missing text, character, object or pointer.
std::string missingText(const Directive& directive) {
  constexpr std::string_view kNull = "(null)";
  switch (directive.conversion) {
    case 's':
    case 'S':
      return std::string(kNull.substr(0, directive.precision.value_or(kNull.size())));
    case '@':
      return std::string(kNull);  // an object's description is never cut
    case 'p':
      return "0x0";
    default:
      return "";
  }
}

/// `text` behind `sign`, brought to the directive's width.
std::string padded(const Directive& directive, const std::string& sign, const std::string& text,
                   bool zeros) {
  const std::size_t length = sign.size() + text.size();
  const std::size_t missing = directive.width > length ? directive.width - length : 0;
  if (directive.has('-')) return sign + text + std::string(missing, ' ');
  if (zeros && directive.has('0')) return sign + std::string(missing, '0') + text;
  return std::string(missing, ' ') + sign + text;
}

/// What the directive gives without its argument; none when it is no directive.
std::optional<std::string> expansion(const Directive& directive) {
  const auto isOneOf = [&](std::string_view conversions) {
    return conversions.find(directive.conversion) != std::string_view::npos;
  };
  if (isOneOf("%")) return "%";
  if (isOneOf("n")) return "";  // there is nothing to store the length in
  if (isOneOf("cCsS@p")) return padded(directive, "", missingText(directive), false);
  // A precision of 0 leaves nothing of the number 0, and any precision disables padding by zeros
  // (C11, 7.21.6.1).
  const std::string integer(directive.precision.value_or(1), '0');
  if (isOneOf("diD")) return padded(directive, signOf(directive), integer, !directive.precision);
  if (isOneOf("uUoOxX")) return padded(directive, "", integer, !directive.precision);
  if (isOneOf("fFeEgGaA"))
    return padded(directive, signOf(directive), floatingZero(directive), true);
  return std::nullopt;
}

}  // namespace

std::string expandMissingArguments(std::string_view format) {
  std::string line;
  line.reserve(format.size());
  while (!format.empty()) {
    const auto percent = std::min(format.find('%'), format.size());
    line += format.substr(0, percent);
    format.remove_prefix(percent);
    if (format.empty()) break;
    // What is no directive keeps its "%" and is looked at again from the next character on, where
    // another "%" may stand.
    std::string_view rest = format.substr(1);
    const auto text = expansion(takeDirective(rest));
    line += text ? std::string_view(*text) : format.substr(0, 1);
    format = text ? rest : format.substr(1);
  }
  return line;
}

}  // namespace tarvo

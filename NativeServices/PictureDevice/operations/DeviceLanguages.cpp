#include "NativeServices/PictureDevice/operations/DeviceLanguages.h"

#include <glib.h>

#include <algorithm>

namespace tarvo {

namespace {

/// Codes of ISO 639-1, and the names by which devices and menus know the languages.
struct Language {
  std::string_view code;
  std::string_view name;
};

constexpr Language kLanguages[] = {
    {"ar", "Arabic"},   {"bg", "Bulgarian"},  {"cs", "Czech"},   {"da", "Danish"},
    {"de", "German"},   {"el", "Greek"},      {"en", "English"}, {"es", "Spanish"},
    {"et", "Estonian"}, {"fi", "Finnish"},    {"fr", "French"},  {"he", "Hebrew"},
    {"hr", "Croatian"}, {"hu", "Hungarian"},  {"it", "Italian"}, {"ja", "Japanese"},
    {"ko", "Korean"},   {"lt", "Lithuanian"}, {"lv", "Latvian"}, {"nb", "Norwegian"},
    {"nl", "Dutch"},    {"no", "Norwegian"},  {"pl", "Polish"},  {"pt", "Portuguese"},
    {"ro", "Romanian"}, {"ru", "Russian"},    {"sk", "Slovak"},  {"sl", "Slovenian"},
    {"sv", "Swedish"},  {"th", "Thai"},       {"tr", "Turkish"}, {"uk", "Ukrainian"},
    {"zh", "Chinese"},
};

bool equalWithoutCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](char x, char y) { return g_ascii_tolower(x) == g_ascii_tolower(y); });
}

/// A device may say "de", "de_DE.UTF-8" or "German".
const Language* languageOf(std::string_view text) {
  const std::string_view code = text.substr(0, text.find_first_of("_-.@"));
  for (const Language& language : kLanguages) {
    if (equalWithoutCase(code, language.code) || equalWithoutCase(text, language.name)) {
      return &language;
    }
  }
  return nullptr;
}

}  // namespace

std::string hostLocalization() {
  // The list is never empty: it ends with "C".
  const std::string_view first = *g_get_language_names();
  const std::string_view localization = first.substr(0, first.find_first_of(".@"));
  const bool isNone = localization == "C" || localization == "POSIX";
  return std::string(isNone ? "en" : localization);
}

std::optional<std::string> languageCode(std::string_view language) {
  const Language* known = languageOf(language);
  return known ? std::optional(std::string(known->code)) : std::nullopt;
}

std::string languageNameOfCode(std::string_view code) {
  const Language* known = languageOf(code);
  return std::string(known ? known->name : code);
}

std::string localizationForLanguage(const std::string& host,
                                    const std::optional<std::string>& device) {
  const auto code = device ? languageCode(*device) : std::nullopt;
  return !code || languageCode(host) == code ? host : *code;
}

}  // namespace tarvo

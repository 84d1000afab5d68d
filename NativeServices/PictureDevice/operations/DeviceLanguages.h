// Languages: that of this host's user, and what a device says of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// The first of the user's preferred localizations, without character set: "de_DE", "en". By
/// LANGUAGE, LC_ALL, LC_MESSAGES and LANG, in that order; "en" where they name none.
std::string hostLocalization();

/// The language of a code, of a locale ("de_DE.UTF-8", "pt-BR"), or of a name ("German"), as its
/// code of two letters; none for one that is not known. Case does not matter. Any thread.
std::optional<std::string> languageCode(std::string_view language);

/// "de" gives "German"; an unknown code gives itself. Any thread.
std::string languageNameOfCode(std::string_view code);

/// `host` where it has the language of `device`, else that language's code; `host` again where the
/// language is not known.
std::string localizationForLanguage(const std::string& host,
                                    const std::optional<std::string>& device);

}  // namespace tarvo

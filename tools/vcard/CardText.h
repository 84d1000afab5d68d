// vCards as JSON and back, with the GNOME address book library: what tarvo-vcard does. See
// tools/addressbook/VCard.h for the JSON. Linked into that program alone, and into a fuzz target.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::vcard {

/// Of what the program reads, and of what it answers, in bytes.
inline constexpr std::size_t kMostBytes = 8U << 20;

/// How the program ends.
enum Exit : int {
  kDone = 0,
  kFailed = 1,
  kBadUsage = 2,
  kTooMuch = 3,  ///< the input, or the answer to it, is beyond kMostBytes or what JSON may have
};

/// The library made ready: silent, and with all open that it would otherwise open as it goes. One a
/// process, before the first card, and as long as there are cards.
class CardLibrary {
 public:
  CardLibrary();
  CardLibrary(const CardLibrary&) = delete;
  CardLibrary& operator=(const CardLibrary&) = delete;
  ~CardLibrary();

 private:
  std::vector<void*> conversions_;  ///< open (GIConv), which keeps their tables in memory
};

/// All cards of a text, whatever its bytes are; empty where there are none.
nlohmann::json cardsFromText(std::string_view text);
/// Cards of version 3.0. Raises an exception of the JSON library for values of another type.
std::string textFromCards(const nlohmann::json& cards);

}  // namespace tarvo::vcard

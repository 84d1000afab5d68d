// Feeds the two ends of the program that reads vCards: its own reading with files from anywhere,
// and what tarvoctl takes of its answer with whatever a program that was taken over could say.
//
// The first byte of an input chooses: even, the rest is a file; odd, it is an answer. The first end
// raises nothing, and what it says is JSON within the limits; the second raises refusals alone. A
// book that was read is written as as many cards as it has contacts, whatever is in their texts.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/Exception.h"
#include "Utilities/JSONReader.h"
#include "fuzz/Require.h"
#include "tools/addressbook/VCard.h"
#include "tools/vcard/CardText.h"

namespace {

/// None where the answer is refused.
std::optional<tarvo::AddressBook> bookOf(const std::string& answer) {
  try {
    return tarvo::tools::bookFromCards(tarvo::jsonFromText(answer)).book;
  } catch (const tarvo::Exception& exception) {
    require(exception.name() == tarvo::exception_name::kInvalidArgument);
    return std::nullopt;
  }
}

}  // namespace

/// The library forgets some of what it made of malformed parameters. Its program reads one file and
/// ends, so that is no fault of anybody's.
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const tarvo::vcard::CardLibrary library;
  if (size == 0) return 0;
  std::string text(data + 1, data + size);
  const bool isFile = *data % 2 == 0;
  if (isFile)
    text = tarvo::vcard::cardsFromText(text).dump(-1, ' ', false,
                                                  nlohmann::json::error_handler_t::replace);
  const auto book = bookOf(text);
  require(book || !isFile);
  if (!book) return 0;
  const auto cards = tarvo::tools::cardsFromBook(*book);
  const auto again = tarvo::vcard::cardsFromText(tarvo::vcard::textFromCards(cards));
  require(again.size() == book->contacts->size());
  return 0;
}

#include "tools/addressbook/BookFile.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "Utilities/Exception.h"
#include "tools/access/InputFile.h"
#include "tools/addressbook/VCard.h"

namespace tarvo::tools {
namespace {

AddressBook bookFromJSONText(const std::string& operation, const std::string& path,
                             const std::string& text) {
  const auto fail = [&](const std::string& why) -> ToolError {
    return ToolError({.operation = operation,
                      .object = path,
                      .why = why,
                      .advice = "'tarvoctl addressbook export' shows the form."});
  };
  try {
    return addressBookFromJSON(PropertyDictionary::parse(text));
  } catch (const Exception& exception) {
    throw fail(exception.reason());
  } catch (const PropertyDictionary::exception& exception) {
    throw fail(exception.what());
  }
}

}  // namespace

BookFormat bookFormat(const std::string& operation, const std::string& format,
                      const std::string& path) {
  if (format == "json") return BookFormat::kJSON;
  if (format == "vcard") return BookFormat::kVCard;
  if (!format.empty())
    refuseUsage(operation, "'" + format + "' is no format; there are json and vcard");
  std::string ending = std::filesystem::path(path).extension().string();
  std::ranges::transform(ending, ending.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  return ending == ".vcf" || ending == ".vcard" ? BookFormat::kVCard : BookFormat::kJSON;
}

BookFile readBookFile(ToolContext& context, const std::string& operation, const std::string& path,
                      BookFormat format) {
  const std::string text = readInputText(context, operation, path);
  if (format == BookFormat::kJSON) return {.book = bookFromJSONText(operation, path, text)};
  auto cards = bookFromVCards(operation, path, text);
  for (const auto& note : cards.notes)
    context.output.message(note);
  return {.book = std::move(cards.book), .isPartial = true, .nameless = std::move(cards.nameless)};
}

std::string bookFileText(const std::string& operation, const AddressBook& book, BookFormat format) {
  if (format == BookFormat::kVCard) return vCardsFromBook(operation, book);
  return jsonFromAddressBook(book).dump(2, ' ', false,
                                        PropertyDictionary::error_handler_t::replace) +
         "\n";
}

}  // namespace tarvo::tools

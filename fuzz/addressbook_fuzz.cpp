// Feeds the reader and the validation of address books what a hostile device could have there.
//
// The first bytes of an input are the device's limits, the rest is the file. A second reading,
// which follows the rules one by one, must give the same contacts; the validation must give one of
// its codes, and the value that it names must be in the book.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "fuzz/Require.h"

namespace {

using tarvo::AddressBook;
using tarvo::Contact;
using tarvo::DataSyncAction;
namespace status = tarvo::status;

/// Conversion takes most of the time, so most inputs are made UTF-8 in place of it.
constexpr std::size_t kChoices = 16;
constexpr const char* kEncodings[] = {"UTF-8", "ISO-8859-1", "SHIFT_JIS", "ASCII"};
constexpr std::size_t kHeader = 5;

struct NaiveContact {
  std::string nickname;
  std::string address;
};

/// The second reading, character by character; none where there are too many lines.
std::optional<std::vector<NaiveContact>> naiveContacts(std::string text, std::size_t limit) {
  std::vector<NaiveContact> contacts;
  if (text.empty()) return contacts;
  if (text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  std::vector<std::string> lines(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 2, "\r\n") == 0) {
      lines.emplace_back();
      ++i;
    } else {
      lines.back() += text[i];
    }
  }
  if (lines.size() > limit) return std::nullopt;
  for (const auto& line : lines) {
    const std::string upToFirst = line.substr(0, line.find('>'));
    const auto before = upToFirst.find(" <");
    if (upToFirst == line || before == std::string::npos) continue;
    const NaiveContact contact{upToFirst.substr(0, before), upToFirst.substr(before + 2)};
    if (!contact.address.empty()) contacts.push_back(contact);
  }
  return contacts;
}

void checkReading(const AddressBook& book, const std::string& text) {
  const auto expected = naiveContacts(text, book.limits.maxAddresses);
  require(book.contacts.has_value() == expected.has_value());
  if (!expected) return;
  require(book.contacts->size() == expected->size());
  for (std::size_t i = 0; i < expected->size(); ++i) {
    Contact contact;
    contact.nickname = expected->at(i).nickname;
    contact.email = expected->at(i).address;
    contact.action = DataSyncAction::kNone;
    require(*book.contacts->at(i) == contact);
  }
}

bool isOfABook(tarvo::Status code) {
  return code == status::kOK || (code >= 0x10000001 && code <= 0x10000017);
}

void checkValidation(const AddressBook& book) {
  const auto error = tarvo::validateAddressBookDict(book, true);
  require(tarvo::validateAddressBook(book, true) == (error ? error->ptpErrorCode : 0));
  require(tarvo::validateAddressBook(book, false) == status::kPTPOperationNotSupported);
  if (!error) return;
  require(error->ptpErrorCode != status::kOK && isOfABook(error->ptpErrorCode));
  bool isThere = !error->errorObject && error->ptpErrorCode == status::kAddressBookTooManyContacts;
  for (const auto& contact : book.contacts.value_or(tarvo::Contacts{}))
    isThere =
        isThere || error->errorObject == contact->nickname || error->errorObject == contact->email;
  require(isThere);
}

std::optional<std::string> textOf(std::size_t choice, std::string_view bytes) {
  return choice < std::size(kEncodings)
             ? tarvo::textInEncoding(bytes, kEncodings[choice])
             : std::optional(tarvo::utf8FromUTF16(tarvo::utf16FromUTF8(bytes)));
}

/// One edit changes the size by a unit or two, so a second one finds nothing to do.
void checkEdit(AddressBook& book) {
  if (!tarvo::editAddressBookToAvoidMod64ICABug(book)) return;
  require(!tarvo::editAddressBookToAvoidMod64ICABug(book));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHeader) return 0;
  AddressBook book;
  book.limits.maxAddresses = data[1];
  book.limits.maxAddressLengthInBytes = data[2];
  book.limits.maxNicknameLengthInBytes = data[3];
  book.limits.characterTypeLimitation = data[4] % 4;
  const std::vector<std::byte> copy(reinterpret_cast<const std::byte*>(data),
                                    reinterpret_cast<const std::byte*>(data) + size);
  tarvo::isValidLCB(copy);
  const std::string_view bytes(reinterpret_cast<const char*>(data + kHeader), size - kHeader);
  const auto text = textOf(data[0] % kChoices, bytes);
  if (!text) return 0;
  tarvo::fillInABDictFromText(book, *text);
  checkReading(book, *text);
  checkValidation(book);
  checkEdit(book);
  // As an address and a nickname of their own, which need not be what a line can hold.
  require(isOfABook(tarvo::validateEmailAddressFormat(*text, data[2])));
  require(isOfABook(tarvo::validateNickname(*text, data[4])));
  require(tarvo::utf16Length(*text) == tarvo::utf16FromUTF8(*text).size());
  return 0;
}

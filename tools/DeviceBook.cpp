#include "tools/DeviceBook.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "NativeServices/PictureDevice/DeviceCapabilities.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/Exception.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/AddressBookChanges.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

bool offers(const OpenedDevice& device, std::uint16_t operation) {
  return containsCode(device.transactions().facts().operations, operation);
}

/// How many objects of a format the device says it holds. Raises a ToolError where it says nothing.
std::size_t countOf(const OpenedDevice& device, std::uint16_t format) {
  return device.objectHandles(format, "the address book").size();
}

std::string missing(const char* what, std::size_t held, std::size_t read) {
  return "the device holds " + std::to_string(held) + " " + what + ", of which " +
         std::to_string(read) + " could be read";
}

/// What is missing in a book of data sets.
std::string gapInDataSets(const OpenedDevice& device, const AddressBook& book) {
  const std::size_t contacts = book.contacts ? book.contacts->size() : 0;
  const std::size_t heldContacts = countOf(device, ptp::XTD_CONTACT);
  if (heldContacts > contacts) return missing("contacts", heldContacts, contacts);
  const std::size_t groups = book.groups ? book.groups->size() : 0;
  const std::size_t heldGroups = countOf(device, ptp::XTD_GROUP);
  return heldGroups > groups ? missing("groups", heldGroups, groups) : "";
}

/// Lines as the device's file has them; the last one needs no end.
std::size_t linesIn(std::string_view text) {
  std::size_t lines = text.empty() || text.ends_with('\n') ? 0 : 1;
  for (std::size_t at = text.find("\r\n"); at != std::string_view::npos;
       at = text.find("\r\n", at + 2))
    ++lines;
  return lines;
}

/// The same of a book in a file. Without a file the device has no contacts, and that is all; a file
/// that gave none is looked at. Raises a ToolError for one that cannot be had.
std::string gapInFile(const ToolContext& context, const OpenedDevice& device,
                      const AddressBook& book) {
  if (book.contacts && !book.contacts->empty()) return {};
  const auto handles = device.objectHandles(ptp::XTD_ADDRESS_BOOK_FILE, "the address book");
  if (handles.empty()) return {};
  const auto bytes = device.device().downloadObject(ObjectReference(handles.front()));
  if (!bytes) device.failWithout("the address book");
  const std::string_view text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
  if (!book.contacts && linesIn(text) > book.limits.maxAddresses)
    return "the device's file has " + std::to_string(linesIn(text)) + " lines, more than the " +
           std::to_string(book.limits.maxAddresses) + " that the device itself takes";
  const std::string encoding = context.platform.services().defaultEncoding;
  if (!textInEncoding(text, encoding))
    return "the device's file is no text in the encoding " + encoding +
           " (DefaultEncoding in the preferences)";
  // It can be read now, and could not a moment ago.
  if (!book.contacts) device.failWithout("the address book");
  return {};
}

std::string quoted(const std::string& text) {
  return "'" + printable(text) + "'";
}

/// What a broken rule is about.
enum class Subject { kBook, kEmail, kNickname, kGroup };

Subject subjectOf(Status code) {
  switch (code) {
    case status::kAddressBookNicknameTooLong:
    case status::kAddressBookNicknameCharacters:
      return Subject::kNickname;
    case status::kAddressBookTooManyMembers:
    case status::kAddressBookGroupNameTooLong:
      return Subject::kGroup;
    case status::kAddressBookTooManyContacts:
    case status::kAddressBookTooManyGroups:
    case status::kPTPOperationNotSupported:
      return Subject::kBook;
    default:
      return Subject::kEmail;
  }
}

/// The contact that the check means: of those that have the value, the first that breaks the rule.
std::string contactOf(const AddressBookError& error, const AddressBook& book) {
  if (!book.contacts) return {};
  const bool isNickname = subjectOf(error.ptpErrorCode) == Subject::kNickname;
  std::size_t number = 0;
  for (const auto& contact : *book.contacts) {
    ++number;
    if (contact->action == DataSyncAction::kDelete) continue;
    if ((isNickname ? contact->nickname : contact->email) == error.errorObject)
      return "contact " + std::to_string(number) + ", " + contactInWords(*contact);
  }
  return {};
}

std::string limitInWords(const char* format, std::uint32_t limit) {
  return formatted(format, unsigned{limit});
}

template <typename Entries>
std::string countedInWords(const std::optional<Entries>& entries) {
  if (!entries) return "0";
  const auto counts = [](const auto& entry) { return entry->action != DataSyncAction::kDelete; };
  return std::to_string(std::ranges::count_if(*entries, counts));
}

/// The rule, with the numbers that it is about.
std::string ruleOf(const AddressBookError& error, const AddressBook& book) {
  const auto& limits = book.limits;
  const std::string value = error.errorObject.value_or("");
  const std::string length = std::to_string(utf16FromUTF8(value).size());
  switch (error.ptpErrorCode) {
    case status::kAddressBookTooManyContacts:
      return "the book has " + countedInWords(book.contacts) +
             limitInWords(" contacts, the device takes %u", limits.maxAddresses);
    case status::kAddressBookTooManyGroups:
      return "the book has " + countedInWords(book.groups) +
             limitInWords(" groups, the device takes %u", limits.maxGroups);
    case status::kAddressBookTooManyMembers:
      return limitInWords("it has more members than the %u that the device takes",
                          limits.maxAddressesPerGroup);
    case status::kAddressBookAddressTooLong:
      return "the e-mail address has " + length +
             limitInWords(" characters, the device takes %u", limits.maxAddressLengthInBytes);
    case status::kAddressBookNicknameTooLong:
      return "the nickname has " + length +
             limitInWords(" characters, the device takes %u", limits.maxNicknameLengthInBytes);
    case status::kAddressBookGroupNameTooLong:
      return "the name has " + length +
             limitInWords(" characters, the device takes %u", limits.maxGroupNameLengthInBytes);
    case status::kAddressBookNicknameCharacters:
      return "the nickname has characters that the device cannot show";
    case status::kAddressBookAddressCharacters:
      return error.errorObject ? "the e-mail address has characters that none may have"
                               : "there is no e-mail address";
    case status::kAddressBookNoAtSign:
      return "the e-mail address has no '@'";
    case status::kAddressBookNoDot:
      return "the e-mail address has no '.' behind the '@'";
    case status::kAddressBookAtSignDot:
      return "the e-mail address has '@.' in it";
    case status::kAddressBookTwoAtSigns:
      return "the e-mail address has more than one '@'";
    case status::kAddressBookDotAtSign:
      return "the e-mail address has '.@' in it";
    case status::kAddressBookOuterDot:
      return "the e-mail address begins or ends with '.' or '@'";
    case status::kPTPOperationNotSupported:
      return "the device keeps no address book";
    default:
      return statusWithHex(error.ptpErrorCode);
  }
}

}  // namespace

bool keepsContactsSingly(const OpenedDevice& device) {
  return offers(device, ptp::XTO_UPDATE_DATASET);
}

DeviceBook readDeviceBook(const ToolContext& context, const OpenedDevice& device) {
  if (!device.device().supportsAddressBooks())
    throw ToolError(device.failure(device.device().name(), status::kPTPOperationNotSupported,
                                   "it keeps no address book"));
  DeviceBook result;
  try {
    // Not the kept one: what is compared and backed up is what the device holds now.
    auto book = device.device().addressBookDictUncached();
    if (!book) device.failWithout("the address book");
    result.book = *std::move(book);
  } catch (const Exception& exception) {
    throw ToolError(
        device.failure("the address book", status::kICAProtocolError, exception.reason()));
  }
  if (device.isLost(device.transactions().lastOutcome())) device.failWithout("the address book");
  result.gap = offers(device, ptp::XTO_GET_DATASET) ? gapInDataSets(device, result.book)
                                                    : gapInFile(context, device, result.book);
  if (!result.book.contacts) result.book.contacts.emplace();
  if (!result.book.groups) result.book.groups.emplace();
  return result;
}

std::string inWords(const AddressBookError& error, const AddressBook& book) {
  const Subject subject = subjectOf(error.ptpErrorCode);
  std::string entry;
  if (subject == Subject::kGroup) entry = "group " + quoted(error.errorObject.value_or(""));
  if (subject == Subject::kEmail || subject == Subject::kNickname) entry = contactOf(error, book);
  return (entry.empty() ? "" : entry + ": ") + ruleOf(error, book);
}

PropertyDictionary validityAsJSON(const std::optional<AddressBookError>& error,
                                  const AddressBook& book) {
  if (!error) return {{"valid", true}, {"ptpErrorCode", status::kOK}};
  PropertyDictionary json = {
      {"valid", false}, {"ptpErrorCode", error->ptpErrorCode}, {"message", inWords(*error, book)}};
  if (error->errorObject) json["errorObject"] = validUTF8(*error->errorObject);
  return json;
}

}  // namespace tarvo::tools

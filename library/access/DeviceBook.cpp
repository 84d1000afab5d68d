#include "library/access/DeviceBook.h"

#include <utility>

#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/AddressBookSync.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/BookPlan.h"

namespace tarvo::library {
namespace {

bool offers(const OpenedDevice& device, std::uint16_t operation) {
  return containsCode(device.transactions().facts().operations, operation);
}

/// Record by record, where the library's whole answer fails: what is good is there, and what is not
/// is named.
class RecordReading {
 public:
  RecordReading(const OpenedDevice& device, DeviceBook& result)
      : reading_{device, result.unread}, result_(result) {}

  void run() {
    result_.book.contacts.emplace();
    result_.book.groups.emplace();
    // Contacts before groups, which name them.
    for (const std::uint32_t handle : reading_.handles(ptp::XTD_CONTACT, "contacts"))
      readContact(handle);
    for (const std::uint32_t handle : reading_.handles(ptp::XTD_GROUP, "groups"))
      readGroup(handle);
  }

 private:
  void readContact(std::uint32_t handle) {
    auto contact = reading_.record("contact", handle, ptp::XTD_CONTACT, scanContact);
    if (!contact) return;
    contact->handle = handle;
    contact->action = DataSyncAction::kNone;
    result_.book.contacts->push_back(std::make_shared<Contact>(*std::move(contact)));
    byHandle_[handle] = result_.book.contacts->back();
  }

  void readGroup(std::uint32_t handle) {
    const auto record = reading_.record("group", handle, ptp::XTD_GROUP, scanContactGroup);
    if (!record) return;
    auto group = std::make_shared<ContactGroup>(ContactGroup{.name = record->name,
                                                             .image = record->image,
                                                             .members = {},
                                                             .handle = handle,
                                                             .action = DataSyncAction::kNone});
    for (const std::uint32_t member : record->members) {
      const auto found = byHandle_.find(member);
      if (found == byHandle_.end()) {
        reading_.note({"group", handle,
                       "'" + printable(record->name) + "' names " + handleText(member) +
                           ", which is no contact that can be read"});
        return;
      }
      group->members.push_back(found->second);
    }
    result_.book.groups->push_back(std::move(group));
  }

  const Reading reading_;
  DeviceBook& result_;
  ContactsByHandle byHandle_;
};

/// The limits, where they went with the rest of an answer.
void readLimits(const OpenedDevice& device, AddressBook& book) {
  const auto& operations = device.transactions().facts().operations;
  XT_AddressBookInfo info;
  if (offers(device, ptp::XTO_GET_ADDRESS_BOOK_INFO))
    device.require(device.transactions().addressBookInfo(info), "the address book");
  fillInABDict(book, info.version == 0 ? nullptr : &info, operations);
}

/// Lines as the device's file has them; the last one needs no end.
std::vector<std::string_view> linesIn(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find("\r\n");
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
  }
  return lines;
}

/// Whether a line of the file is a contact and nothing else, or blank. Read by the library and
/// written again as it would: only a line that comes out the same loses nothing.
bool isReadInWhole(std::string_view line) {
  if (line.find_first_not_of(" <>\r\n") == std::string_view::npos) return true;
  AddressBook book;
  book.limits.maxAddresses = 1;
  fillInABDictFromText(book, line);
  if (!book.contacts || book.contacts->size() != 1) return false;
  const auto& contact = *book.contacts->front();
  return line == *contact.nickname + " <" + *contact.email + ">";
}

/// What keeps the text of the device's file from being its book; empty where nothing does. What
/// the library passes over, a new file would lose.
std::string obstacleIn(std::string_view bytes, const AddressBook& book,
                       const std::string& encoding) {
  const auto text = textInEncoding(bytes, encoding);
  if (!text)
    return "it is no text in the encoding " + encoding + " (DefaultEncoding in the preferences)";
  const auto lines = linesIn(*text);
  if (lines.size() > book.limits.maxAddresses)
    return "it has " + std::to_string(lines.size()) + " lines, more than the " +
           std::to_string(book.limits.maxAddresses) + " that the device itself takes";
  for (std::size_t index = 0; index < lines.size(); ++index) {
    if (!isReadInWhole(lines[index]))
      return "line " + std::to_string(index + 1) + " is no contact, or has more to it";
  }
  return {};
}

/// The same of a book in a file: the first that can be had is it, another one is in its way.
void readFile(const OpenedDevice& device, DeviceBook& result) {
  constexpr const char* kFile = "address-book file";
  const Reading reading = {device, result.unread};
  std::uint32_t read = 0;
  for (const auto handle : reading.handles(ptp::XTD_ADDRESS_BOOK_FILE, "address-book files")) {
    // Which of two the device itself reads is not known, so neither may be replaced.
    if (read != 0) {
      reading.note({kFile, handle, "there is another one, " + handleText(read)});
      continue;
    }
    const auto bytes = device.device().downloadObject(ObjectReference(handle));
    if (!bytes) {
      reading.noteMissing(kFile, handle, "the address book");
      continue;
    }
    read = handle;
    const std::string_view text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    const auto& encoding = device.session().platform().services().defaultEncoding;
    const auto obstacle = obstacleIn(text, result.book, encoding);
    if (!obstacle.empty()) {
      reading.note({kFile, handle, obstacle});
    } else {
      // The library may have failed where this has not: what was read now is the book.
      result.book.contacts.reset();
      fillInABDictFromText(result.book, textInEncoding(text, encoding).value_or(""));
    }
  }
}

/// The rule, with the numbers that it is about.
std::string ruleOf(const AddressBookError& error, const AddressBook& book) {
  const auto& limits = book.limits;
  const auto takes = [](std::uint32_t limit) {
    return "the device takes " + std::to_string(limit);
  };
  const auto isTooLong = [&](const char* what, std::uint32_t limit) {
    return what + (" has " + std::to_string(utf16Length(error.errorObject.value_or("")))) +
           " characters, " + takes(limit);
  };
  switch (error.ptpErrorCode) {
    case status::kAddressBookTooManyContacts:
      return "the book has " + std::to_string(countKept(book.contacts)) + " contacts, " +
             takes(limits.maxAddresses);
    case status::kAddressBookTooManyGroups:
      return "the book has " + std::to_string(countKept(book.groups)) + " groups, " +
             takes(limits.maxGroups);
    case status::kAddressBookTooManyMembers:
      return "it has more members than the " + std::to_string(limits.maxAddressesPerGroup) +
             " that the device takes";
    case status::kAddressBookAddressTooLong:
      return isTooLong("the e-mail address", limits.maxAddressLengthInBytes);
    case status::kAddressBookNicknameTooLong:
      return isTooLong("the nickname", limits.maxNicknameLengthInBytes);
    case status::kAddressBookGroupNameTooLong:
      return isTooLong("the name", limits.maxGroupNameLengthInBytes);
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
    default:
      return statusText(error.ptpErrorCode);
  }
}

/// The library's answer: not the kept one, for what is compared and backed up is what the device
/// holds now. False where something is missing in it. Raises an error where there are not even
/// limits.
bool readWhole(const OpenedDevice& device, AddressBook& result) {
  try {
    auto book = device.device().addressBookDictUncached();
    if (!book) device.failWithout("the address book");
    result = *std::move(book);
    return device.device().lastReading().isComplete();
  } catch (const Exception&) {
    readLimits(device, result);
    return false;
  }
}

}  // namespace

bool keepsContactsSingly(const OpenedDevice& device) {
  return offers(device, ptp::XTO_UPDATE_DATASET);
}

DeviceBook readDeviceBook(const OpenedDevice& device) {
  if (!device.device().supportsAddressBooks())
    raise(device.failure(device.device().name(), status::kPTPOperationNotSupported,
                         "it keeps no address book"));
  // What was written in this run may not fit the room that was right before.
  device.device().forgetBookCounts();
  DeviceBook result;
  const Reading reading = {device, result.unread};
  const bool isWhole = readWhole(device, result.book);
  // Record by record would only be time-out after time-out.
  if (device.isLost(device.transactions().lastOutcome())) device.failWithout("the address book");
  const ReadingReport report = device.device().lastReading();
  if (!offers(device, ptp::XTO_GET_DATASET)) {
    readFile(device, result);
  } else if (!isWhole) {
    RecordReading(device, result).run();
  }
  // Whatever failed and cannot be named is a gap all the same.
  if (!isWhole && result.unread.empty() && report.read == report.listed)
    reading.note({.what = "the address book", .why = reading.why(report.status)});
  if (!result.book.contacts) result.book.contacts.emplace();
  if (!result.book.groups) result.book.groups.emplace();
  return result;
}

std::string inWords(const AddressBookFault& fault, const AddressBook& book) {
  using Part = AddressBookFault::Part;
  std::string rule = ruleOf(fault, book);
  if (fault.part == Part::kGroup)
    return "group '" + printable(fault.errorObject.value_or("")) + "': " + rule;
  if (fault.part == Part::kBook) return rule;
  return "contact " + std::to_string(fault.index + 1) + ", " +
         contactInWords(*(*book.contacts)[fault.index]) + ": " + rule;
}

std::string Reading::why(Status status) const {
  if (status == status::kPTPIncompleteTransfer) return "it was cut short, or is too large";
  return statusText(device.explained(status == status::kOK ? status::kPTPGeneralError : status));
}

ObjectHandles Reading::handles(std::uint16_t format, const char* what) const {
  ObjectHandles handles;
  try {
    const Status status = ObjectListing(device.transactions()).handles({.format = format}, handles);
    if (status != status::kOK && device.isLost(status)) device.failWithout(what);
    if (status != status::kOK) note({.what = what, .why = why(status)});
  } catch (const Exception& exception) {
    note({.what = what, .why = exception.reason()});
  }
  return handles;
}

void Reading::noteMissing(const char* what, std::uint32_t handle, const char* gone) const {
  const Status outcome = device.transactions().lastOutcome();
  if (device.isLost(outcome)) device.failWithout(gone ? gone : what + (" " + handleText(handle)));
  note({what, handle, why(outcome)});
}

}  // namespace tarvo::library

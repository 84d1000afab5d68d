#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"

#include <algorithm>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBeforeAddress = " <";
constexpr char kBehindAddress = '>';

/// Without the line end, of either kind, and without a line feed before it: intended, see
/// docs/oddities.md.
std::string_view withoutLastLineEnd(std::string_view text) {
  for (const char end : {'\n', '\r', '\n'}) {
    if (text.ends_with(end)) text.remove_suffix(1);
  }
  return text;
}

/// At least one line: bare line feeds separate none (docs/oddities.md).
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  for (;;) {
    const std::size_t end = text.find(kLineEnd);
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return lines;
    text.remove_prefix(end + kLineEnd.size());
  }
}

/// Null for a line without an address.
ContactPointer contactOfLine(std::string_view line) {
  const std::size_t before = line.find(kBeforeAddress);
  const std::size_t behind = line.find(kBehindAddress);
  constexpr auto kNone = std::string_view::npos;
  if (before == kNone || behind == kNone || behind < before) return nullptr;
  const std::size_t start = before + kBeforeAddress.size();
  auto contact = std::make_shared<Contact>();
  contact->nickname = line.substr(0, before);
  contact->email = line.substr(start, behind - start);
  contact->action = DataSyncAction::kNone;
  TraceLog::trace("nickname: %s", contact->nickname->c_str());
  TraceLog::trace("emailAddress: %s", contact->email->c_str());
  return contact->email->empty() ? nullptr : contact;
}

std::size_t lengthOf(const std::optional<std::string>& text) {
  return text ? utf16Length(*text) : 0;
}

/// Contacts that are in the file: a deleted one has no part in its size.
Contacts contactsOfFile(const AddressBook& book) {
  Contacts kept;
  if (book.contacts) {
    std::ranges::copy_if(*book.contacts, std::back_inserter(kept), [](const auto& contact) {
      return contact->action != DataSyncAction::kDelete;
    });
  }
  return kept;
}

/// Bytes that the file's transfer has, by the estimate that goes with the edits: the header of a
/// container, and a unit of text a byte.
std::size_t payloadSize(const Contacts& contacts) {
  constexpr std::size_t kHeader = 12;
  constexpr std::size_t kMarks = std::string_view(" <>\r\n").size();
  std::size_t size = kHeader;
  for (const auto& contact : contacts)
    // A unit of text is a byte in the file, which is ASCII.
    size += lengthOf(contact->nickname) + lengthOf(contact->email) + kMarks;
  return size;
}

bool lengthenANickname(const Contacts& contacts, std::uint32_t limit) {
  // A blank at the end changes the least.
  for (const auto& contact : contacts) {
    if (lengthOf(contact->nickname) >= limit) continue;
    const std::string former = contact->nickname.value_or("");
    contact->nickname = former + " ";
    TraceLog::trace("nickname '%s' lengthened to '%s' to adjust payload", former.c_str(),
                    contact->nickname->c_str());
    return true;
  }
  return false;
}

/// Without its last character, of however many bytes.
std::string shortened(std::string text) {
  const auto isContinuation = [](char byte) { return (byte & 0xC0) == 0x80; };
  while (!text.empty() && isContinuation(text.back()))
    text.pop_back();
  if (!text.empty()) text.pop_back();
  return text;
}

bool shortenTheLongestNickname(const Contacts& contacts) {
  ContactPointer longest;
  for (const auto& contact : contacts) {
    // Of equally long ones the last.
    if (!longest || lengthOf(contact->nickname) >= lengthOf(longest->nickname)) longest = contact;
  }
  // A nickname of one character would be gone.
  if (lengthOf(longest->nickname) <= 1) return false;
  const std::string former = *longest->nickname;
  longest->nickname = shortened(former);
  TraceLog::trace("nickname '%s' shortened to '%s' to adjust payload", former.c_str(),
                  longest->nickname->c_str());
  return true;
}

}  // namespace

void fillInABDictFromText(AddressBook& book, std::string_view text) {
  if (text.empty()) {
    // A file that is there and empty is a book without contacts, not a missing one.
    book.contacts.emplace();
    return;
  }
  text = withoutLastLineEnd(text);
  const bool isTraced = TraceLog::isActive();
  if (isTraced) {
    TraceLog::traceWithTag("fileContentsString = " + std::string(text), XTOptDebugLog);
  }
  const auto lines = linesOf(text);
  // A book of more lines than the device takes could not be written back.
  if (lines.size() > book.limits.maxAddresses) {
    TraceLog::trace("Device address book invalid. Has %d addresses, limit is %u",
                    static_cast<int>(lines.size()), book.limits.maxAddresses);
    return;
  }
  if (isTraced) TraceLog::traceWithTag("addressArray = " + listText(lines), {});
  auto& contacts = book.contacts.emplace();
  for (const auto line : lines) {
    if (isTraced) TraceLog::traceWithTag("address = " + std::string(line), {});
    if (auto contact = contactOfLine(line)) {
      contacts.push_back(std::move(contact));
    } else {
      TraceLog::trace("skipping blank entry in address book.");
    }
  }
}

Status fillInABDict(AddressBook& book, const std::string& abFile,
                    const std::string& defaultEncoding) {
  fillInABDictFromText(book, textFileInEncoding(abFile, defaultEncoding).value_or(""));
  return status::kOK;
}

bool editAddressBookToAvoidMod64ICABug(AddressBook& book) {
  constexpr std::size_t kBadMultiple = 64;
  const Contacts contacts = contactsOfFile(book);
  if (payloadSize(contacts) % kBadMultiple != 0) return false;
  // 12 bytes alone are no multiple, so there is a contact.
  if (lengthenANickname(contacts, book.limits.maxNicknameLengthInBytes)) return true;
  if (shortenTheLongestNickname(contacts)) return true;
  TraceLog::trace("address book payload needs adjustment, but no appropriate edit was possible");
  return false;
}

}  // namespace tarvo

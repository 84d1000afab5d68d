#include "NativeServices/PictureDevice/datasets/AddressBookValidation.h"

#include <algorithm>
#include <string_view>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"

namespace tarvo {
namespace {

/// What an address must not be. Each rule may rely on those before it.
struct AddressRule {
  bool (*isBroken)(std::string_view address);
  const char* words;  ///< traced behind the address
  Status code;
};

std::string_view behindFirstAtSign(std::string_view address) {
  return address.substr(address.find('@') + 1);
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool isDotOrAtSign(char character) {
  return character == '.' || character == '@';
}

constexpr AddressRule kAddressRules[] = {
    {[](std::string_view address) { return !contains(address, "@"); }, "missing @",
     status::kAddressBookNoAtSign},
    {[](std::string_view address) { return !contains(address, "."); }, "missing .",
     status::kAddressBookNoDot},
    {[](std::string_view address) { return !contains(behindFirstAtSign(address), "."); },
     "missing . after @", status::kAddressBookNoDot},
    {[](std::string_view address) {
       return isDotOrAtSign(address.front()) || isDotOrAtSign(address.back());
     },
     "begins or ends with dot", status::kAddressBookOuterDot},
    // These two say what the other one looks for: intended, see docs/oddities.md.
    {[](std::string_view address) { return contains(address, "@."); }, "contains '.@'",
     status::kAddressBookAtSignDot},
    {[](std::string_view address) { return contains(address, ".@"); }, "contains '@.'",
     status::kAddressBookDotAtSign},
    {[](std::string_view address) { return contains(behindFirstAtSign(address), "@"); },
     "contains more than one '@'", status::kAddressBookTwoAtSigns},
    {[](std::string_view address) {
       return address.find_first_of("()<>,;:\\\"[]") != std::string_view::npos;
     },
     "contains invalid characters", status::kAddressBookAddressCharacters},
};

Status traced(const std::optional<std::string>& address, const char* words, Status code) {
  TraceLog::trace("Email %s address %s", address ? address->c_str() : "(null)", words);
  return code;
}

/// Entries that are to be deleted are on the device no longer, as far as its limits go.
constexpr auto kCounts = [](const auto& entry) { return entry->action != DataSyncAction::kDelete; };

/// Number of entries that count; 0 without a list.
template <typename Entries>
std::size_t countOf(const std::optional<Entries>& entries) {
  return entries ? static_cast<std::size_t>(std::ranges::count_if(*entries, kCounts)) : 0;
}

/// Whether `count` is more than the limit, which is traced.
bool exceeds(std::size_t count, std::uint32_t limit, const char* what) {
  if (count <= limit) return false;
  TraceLog::trace("%s: %d exceeds limit of %d.", what, static_cast<int>(count),
                  static_cast<int>(limit));
  return true;
}

AddressBookError errorOfContact(const Contact& contact, const XT_AddressBookInfo& limits,
                                const BadNicknameSet& bad) {
  const Status address = validateEmailAddressFormat(contact.email, limits.maxAddressLengthInBytes);
  if (address != status::kOK) return {address, contact.email};
  if (contact.nickname && utf16Length(*contact.nickname) > limits.maxNicknameLengthInBytes) {
    TraceLog::trace("Nickname <%s> is more than the limit of %d characters",
                    contact.nickname->c_str(), static_cast<int>(limits.maxNicknameLengthInBytes));
    return {status::kAddressBookNicknameTooLong, contact.nickname};
  }
  const Status nickname = validateNickname(contact.nickname, limits.characterTypeLimitation, bad);
  return {nickname, contact.nickname};
}

/// All members count, those that are to be deleted as well: intended, see docs/oddities.md.
Status statusOfGroup(const ContactGroup& group, const XT_AddressBookInfo& limits) {
  if (exceeds(group.members.size(), limits.maxAddressesPerGroup,
              "Too many members in a group for device"))
    return status::kAddressBookTooManyMembers;
  return exceeds(utf16Length(group.name), limits.maxGroupNameLengthInBytes, "Group name too long")
             ? status::kAddressBookGroupNameTooLong
             : status::kOK;
}

/// The value to blame; a group without a name has none.
AddressBookError errorOfGroup(const ContactGroup& group, const XT_AddressBookInfo& limits) {
  return {statusOfGroup(group, limits),
          group.name.empty() ? std::nullopt : std::optional(group.name)};
}

/// Appends the error of each entry that has one, until there are `most`.
template <typename Entries, typename Check>
void appendFaults(std::vector<AddressBookFault>& faults, std::size_t most,
                  AddressBookFault::Part part, const std::optional<Entries>& entries,
                  const Check& check) {
  for (std::size_t index = 0; entries && index < entries->size(); ++index) {
    if (faults.size() >= most) return;
    const auto& entry = (*entries)[index];
    if (!kCounts(entry)) continue;
    AddressBookFault fault{check(*entry), part, index};
    if (fault.ptpErrorCode != status::kOK) faults.push_back(std::move(fault));
  }
}

/// "<00010203 0405>", as the platform shows bytes.
std::string bytesText(std::span<const std::byte> data) {
  constexpr std::size_t kGroup = 4;
  std::string text = "<";
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0 && i % kGroup == 0) text += ' ';
    text += formatted("%02x", std::to_integer<unsigned>(data[i]));
  }
  return text + ">";
}

}  // namespace

Status validateEmailAddressFormat(const std::optional<std::string>& address,
                                  std::uint32_t maxLength) {
  if (!address || !isASCII(*address)) {
    return traced(address, "cannot be converted to ascii", status::kAddressBookAddressCharacters);
  }
  for (const auto& rule : kAddressRules) {
    if (rule.isBroken(*address)) return traced(address, rule.words, rule.code);
  }
  // Last, and in bytes: it is ASCII by now.
  if (address->size() > maxLength) {
    return traced(address, "is too long", status::kAddressBookAddressTooLong);
  }
  return status::kOK;
}

BadNicknameSet makeBadNicknameSet() {
  return [](char16_t unit) { return unit != u'#'; };
}

Status validateNickname(const std::optional<std::string>& nickname, std::uint16_t charTypeLimit,
                        const BadNicknameSet& bad) {
  constexpr std::uint16_t kAnyCharacter = 3;
  if (charTypeLimit == kAnyCharacter) return status::kOK;
  const bool isAccepted = nickname && isASCII(*nickname) &&
                          std::ranges::none_of(utf16FromUTF8(*nickname), std::cref(bad));
  return isAccepted ? status::kOK : status::kAddressBookNicknameCharacters;
}

std::vector<AddressBookFault> addressBookFaults(const AddressBook& book, const BadNicknameSet& bad,
                                                std::size_t most) {
  using Part = AddressBookFault::Part;
  const auto& limits = book.limits;
  std::vector<AddressBookFault> faults;
  // Before the contacts themselves: with too many of them it does not matter what is in them.
  if (exceeds(countOf(book.contacts), limits.maxAddresses, "Too many contacts for device"))
    faults.push_back({{status::kAddressBookTooManyContacts, {}}});
  appendFaults(faults, most, Part::kContact, book.contacts,
               [&](const Contact& contact) { return errorOfContact(contact, limits, bad); });
  if (faults.size() < most &&
      exceeds(countOf(book.groups), limits.maxGroups, "Too many groups for device"))
    faults.push_back({{status::kAddressBookTooManyGroups, {}}});
  appendFaults(faults, most, Part::kGroup, book.groups,
               [&](const ContactGroup& group) { return errorOfGroup(group, limits); });
  return faults;
}

std::optional<AddressBookError> validateAddressBookDict(const AddressBook& book,
                                                        bool supportsAddressBooks,
                                                        const BadNicknameSet& bad) {
  if (!supportsAddressBooks) return AddressBookError{status::kPTPOperationNotSupported, {}};
  auto faults = addressBookFaults(book, bad, 1);
  if (faults.empty()) return std::nullopt;
  return std::move(faults.front());
}

Status validateAddressBook(const AddressBook& book, bool supportsAddressBooks,
                           const BadNicknameSet& bad) {
  const auto error = validateAddressBookDict(book, supportsAddressBooks, bad);
  return error ? error->ptpErrorCode : status::kOK;
}

bool isValidLCB(std::span<const std::byte> data) {
  // The layout of the file with album names: a header whose last byte counts the records, and an
  // exclusive or of all bytes at the end.
  constexpr std::size_t kCountOffset = 31;
  constexpr std::size_t kHeader = 32;
  constexpr std::size_t kRecord = 272;
  if (data.empty()) return false;
  // A buffer that ends before the number of records has none, and is too short for that as well.
  const std::size_t count =
      data.size() > kCountOffset ? std::to_integer<std::size_t>(data[kCountOffset]) : 0;
  const std::size_t expected = kHeader + kRecord * count + 1;
  if (data.size() != expected) {
    if (TraceLog::isActive()) {
      TraceLog::trace("isValidLCB: LCB data size is %d, expected %d, data:\r%s",
                      static_cast<int>(data.size()), static_cast<int>(expected),
                      bytesText(data).c_str());
    }
    return false;
  }
  std::byte sum{0};
  for (const std::byte byte : data.first(expected - 1))
    sum ^= byte;
  if (sum == data.back()) return true;
  if (TraceLog::isActive()) {
    TraceLog::trace("%s isValidLCB: checksum mismatch", bytesText(data).c_str());
  }
  return false;
}

}  // namespace tarvo

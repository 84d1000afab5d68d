// The address book that a device keeps: contacts, groups of them, and the limits that the device
// sets.
//
//   AddressBook book;
//   book.contacts.emplace().push_back(std::make_shared<Contact>(Contact{.email = "a@b.example"}));
//   if (const auto error = validateAddressBookDict(book, true)) use(error->ptpErrorCode);
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarvo {

/// The limits of the address book of a device, its answer to XTO_GET_ADDRESS_BOOK_INFO (28 bytes).
/// Limits "in bytes" count UTF-16 units.
struct XT_AddressBookInfo {
  std::uint16_t version = 0;  ///< 0: not read
  std::uint16_t characterTypeLimitation = 0;
  std::uint32_t maxAddresses = 0;
  std::uint32_t maxGroups = 0;
  std::uint32_t maxAddressesPerGroup = 0;
  std::uint32_t maxAddressLengthInBytes = 0;
  std::uint32_t maxNicknameLengthInBytes = 0;
  std::uint32_t maxGroupNameLengthInBytes = 0;

  friend bool operator==(const XT_AddressBookInfo&, const XT_AddressBookInfo&) = default;
};

/// What a synchronisation still has to do with an entry ("XTDataSyncActionKey").
enum class DataSyncAction : std::uint8_t {
  kAbsent,  ///< the entry carries no action; it counts as kNone
  kNone,    ///< "kSyncDataAction_None": as on the device
  kAdd,     ///< "kSyncDataAction_Add"
  kUpdate,  ///< "kSyncDataAction_Update"
  kDelete,  ///< "kSyncDataAction_Delete": it no longer counts
  kOther,   ///< any other text: nothing is sent for it
};

/// A person in the address book of a device. Texts are UTF-8.
struct Contact {
  std::optional<std::string> uid{};       ///< canonical GUID text; none until it was written
  std::optional<std::string> email{};     ///< none is invalid, unlike empty on a device's own book
  std::optional<std::string> nickname{};  ///< how the device's menus show the person
  std::string firstName{};
  std::string lastName{};
  std::string street{};  ///< lines separated by one carriage return
  std::string city{};
  std::string state{};
  std::string country{};
  std::string zip{};
  std::string phone{};
  std::uint32_t image = 0;                        ///< handle of the picture; read, never written
  std::vector<std::uint32_t> associatedGroups{};  ///< handles of groups; read, never written
  std::uint16_t sharingPref = 0;                  ///< the device's own number
  std::uint16_t defaultNumPrints = 0;
  std::uint32_t handle = 0;  ///< "XTPTPObjectHandleKey"; 0 on a device that keeps a file
  DataSyncAction action = DataSyncAction::kAbsent;

  friend bool operator==(const Contact&, const Contact&) = default;
};

/// Shared between the book and its groups: a group has its members themselves, not copies.
using ContactPointer = std::shared_ptr<Contact>;
using Contacts = std::vector<ContactPointer>;
/// In order: handles are whatever a device or a file says, and may be chosen to collide in a hash.
using ContactsByHandle = std::map<std::uint32_t, ContactPointer>;

struct ContactGroup {
  std::string name{};
  std::uint32_t image = 0;  ///< handle of the picture
  Contacts members{};       ///< never null
  std::uint32_t handle = 0;
  DataSyncAction action = DataSyncAction::kAbsent;
};

/// The group data set (format 0xB202).
struct ContactGroupRecord {
  std::string name{};
  std::uint32_t image = 0;
  std::vector<std::uint32_t> members{};  ///< handles of contacts

  friend bool operator==(const ContactGroupRecord&, const ContactGroupRecord&) = default;
};

using ContactGroupPointer = std::shared_ptr<ContactGroup>;
using ContactGroups = std::vector<ContactGroupPointer>;

/// Of a book in a file, contacts as well as groups: more than any device takes.
inline constexpr std::size_t kMostBookEntries = 20'000;

struct AddressBook {
  XT_AddressBookInfo limits{};  ///< lengths count UTF-16 units; a limit that is missing is 0
  bool supportsGroups = false;
  /// None where they could not be read, which is not the same as an empty book. No entry is null.
  std::optional<Contacts> contacts{};
  std::optional<ContactGroups> groups{};
};

}  // namespace tarvo

// What has to change on a device for its address book to become another one.
//
//   const auto plan = planBook(onDevice, wanted, {});
//   if (plan.changes.isEmpty()) return;
//   send(plan.book);
#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"

namespace tarvo::library {

/// What comes, changes and goes of the contacts, or of the groups.
template <typename Entry>
struct EntryChanges {
  struct Changed {
    std::shared_ptr<Entry> before;  ///< as on the device
    std::shared_ptr<Entry> after;   ///< as it will be
    std::vector<std::string> how;   ///< the fields that differ, or "2 more" and "1 less" of members
  };

  bool isEmpty() const { return added.empty() && changed.empty() && removed.empty(); }

  std::vector<std::shared_ptr<Entry>> added;
  std::vector<Changed> changed;
  std::vector<std::shared_ptr<Entry>> removed;
};

struct BookChanges {
  bool isEmpty() const { return contacts.isEmpty() && groups.isEmpty(); }

  EntryChanges<Contact> contacts;
  EntryChanges<ContactGroup> groups;
};

/// A contact or a group of a book, which lives as long as the book.
using EntryID = const void*;

struct PlanOptions {
  bool keepsOthers = false;      ///< what only the device has stays: people, fields, members
  bool keepsOnlyLabels = false;  ///< the device keeps nickname and e-mail of a contact, no groups
  bool wantedIsPartial = false;  ///< fields that a vCard does not carry stay as on the device
  /// Of the wanted ones: known by name alone, so that a nickname on the device stays.
  std::set<EntryID> nameless{};
  bool leavesContacts = false;  ///< groups alone change
  /// Of the wanted ones: the device keeps what it has of them, or nothing.
  std::set<EntryID> skipped{};
};

struct BookPlan {
  /// Everything that the device has and is to have, with an action in each entry; what is to be
  /// removed stands last, but a group whose place another one needs.
  AddressBook book;
  BookChanges changes;
  /// The wanted entry from which one of the book was made.
  std::map<EntryID, EntryID> origins;
  /// Of whom, or of which group, it cannot be told whether the device has it; nothing may be
  /// written then. Empty where all is plain.
  std::string doubt;
};

/// What the device cannot keep.
struct BookObstacle {
  EntryID entry = nullptr;  ///< of the plan's book; null for all of it
  std::string why{};        ///< names the entry
  Status code = status::kOK;
};

/// Contacts are the same by a uid that is a GUID other than zeros, else by handle, else by e-mail
/// address, whatever its case, and nickname where only one has these; groups by handle and name,
/// else by a name that only one has. A wanted book without groups leaves those of the device, but
/// for members that go. Both books are left as they are.
BookPlan planBook(const AddressBook& onDevice, const AddressBook& wanted,
                  const PlanOptions& options);

/// The book with texts that the device takes, and for each that is cut a clause in `notes`.
AddressBook shortened(const AddressBook& book, const XT_AddressBookInfo& limits,
                      std::vector<std::string>& notes);

/// A line each: "+ Bob <bob@example.com>", "~ ... (nickname)", "- ...".
std::vector<std::string> inWords(const BookChanges& changes);
/// "contacts" and "groups" with "added", "changed" and "removed".
PropertyDictionary asJSON(const BookChanges& changes);
/// The contacts or the groups of a book, none where it does not say. They live as long as the book.
template <typename Entries>
const Entries& entriesOf(const std::optional<Entries>& entries) {
  static const Entries kNone;
  return entries ? *entries : kNone;
}

/// "Bob <bob@example.com>".
std::string contactInWords(const Contact& contact);

/// What a contact has besides nickname and e-mail address.
struct ContactField {
  const char* name;  ///< for a person
  std::string Contact::*text;
};
inline constexpr std::array kContactFields = {
    ContactField{"first name", &Contact::firstName}, ContactField{"last name", &Contact::lastName},
    ContactField{"street", &Contact::street},        ContactField{"city", &Contact::city},
    ContactField{"state", &Contact::state},          ContactField{"country", &Contact::country},
    ContactField{"postcode", &Contact::zip},         ContactField{"phone", &Contact::phone}};

}  // namespace tarvo::library

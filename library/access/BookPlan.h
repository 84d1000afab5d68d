// What has to change on a device for its address book to become another one.
//
//   const auto plan = planBook(onDevice, wanted, {});
//   if (plan.changes.isEmpty()) return;
//   send(plan.book);
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/PropertyDictionary.h"
#include "Utilities/Status.h"

namespace tarvo::library {

struct BookChanges {
  struct Contact {
    ContactPointer before;            ///< as on the device
    ContactPointer after;             ///< as it will be
    std::vector<std::string> fields;  ///< which differ, in words
  };
  struct Group {
    ContactGroupPointer group;
    std::string how;  ///< "2 members more, 1 less", of a changed one
  };

  bool isEmpty() const;
  bool hasContacts() const { return !(added.empty() && changed.empty() && removed.empty()); }
  bool hasGroups() const;

  Contacts added;
  std::vector<Contact> changed;
  Contacts removed;
  ContactGroups addedGroups;
  std::vector<Group> changedGroups;
  ContactGroups removedGroups;
};

struct PlanOptions {
  bool keepsOthers = false;      ///< what only the device has stays: people, fields, members
  bool keepsOnlyLabels = false;  ///< the device keeps nickname and e-mail of a contact, no groups
  bool wantedIsPartial = false;  ///< fields that a vCard does not carry stay as on the device
  std::set<ContactPointer> nameless{};  ///< of the wanted ones: known by name alone, so that a
                                        ///< nickname on the device stays
  bool leavesContacts = false;          ///< groups alone change
  /// Of the wanted ones: the device keeps what it has of them, or nothing.
  std::set<ContactPointer> skipped{};
  std::set<ContactGroupPointer> skippedGroups{};
};

struct BookPlan {
  /// Everything that the device has and is to have, with an action in each entry; what is to be
  /// removed stands last, but a group whose place another one needs.
  AddressBook book;
  BookChanges changes;
  /// The wanted entry from which one of the book was made.
  std::map<ContactPointer, ContactPointer> origins;
  std::map<ContactGroupPointer, ContactGroupPointer> groupOrigins;
  /// Of whom, or of which group, it cannot be told whether the device has it; nothing may be
  /// written then. Empty where all is plain.
  std::string doubt;
};

/// What the device cannot keep: a contact or a group of the plan's book, or, without either, all of
/// it.
struct BookObstacle {
  ContactPointer contact{};
  ContactGroupPointer group{};
  std::string why{};  ///< names the entry
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
/// "Bob <bob@example.com>".
std::string contactInWords(const tarvo::Contact& contact);

}  // namespace tarvo::library

// The address book of a PTP device: read from its vendor data sets, with the limits that hold for
// it, and brought to what a book of this side says.
#pragma once

#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/ReadingReport.h"
#include "Utilities/Status.h"
#include "platform/foundation/MakerConstants.h"

namespace tarvo {

/// Sets the book's limits, and whether there are groups, from what the device says of itself, or to
/// defaults where it says nothing (null). With those there are groups where `operations` lists
/// XTO_GET_DATASET. Always 0.
Status fillInABDict(AddressBook& book, const XT_AddressBookInfo* info, const CodeList& operations);

/// Main thread only.
class AddressBookReading {
 public:
  /// Both are lent.
  AddressBookReading(PTPTransactions& device, ReadingReport& report)
      : device_(device), report_(report) {}

  /// Reads the contacts and then the groups, which get those of the contacts that are their
  /// members. The book gets both or, on failure, neither: 0x2002 for one that cannot be read, or
  /// the code of an XTPTPException. One that was cut short is in the book, and unread in the
  /// report. Raises NSRangeException for one that ends early, and an assertion for a group with a
  /// member that is no contact.
  [[nodiscard]] Status fillInABDict(AddressBook& book, const ObjectHandles& contacts,
                                    const ObjectHandles& groups);

 private:
  [[nodiscard]] Status readContacts(const ObjectHandles& handles, Contacts& contacts,
                                    ContactsByHandle& map);
  [[nodiscard]] Status readGroups(const ObjectHandles& handles, const ContactsByHandle& map,
                                  ContactGroups& groups);

  PTPTransactions& device_;
  ReadingReport& report_;
};

// Writing the address book to a PTP device: its groups as vendor data sets, or the file of devices
// that keep one.
//
// Neither way writes a contact (docs/oddities.md); lastWriting() of the device tells what was sent.

/// Main thread only.
class AddressBookWriting {
 public:
  /// All are lent.
  AddressBookWriting(PTPTransactions& device, const MakerConstants& maker, WritingReport& report)
      : device_(device), maker_(maker), report_(report) {}

  /// Deletes, updates and adds the groups whose action says so, in order, until one fails: its
  /// status. What was sent has no action any more, and an added group has its handle; the list of
  /// groups loses the deleted ones only when all succeeded. Assertions: a group that is deleted
  /// without a handle, a member without one, an update without one, a device that gives none.
  [[nodiscard]] Status setAddressBookDictToDatasets(AddressBook& book);
  /// Puts an empty file "DCEMAIL.ABK" in place of those on the device, which are deleted first, and
  /// empties the book's contacts (docs/oddities.md). An assertion for a book without a list of
  /// contacts.
  [[nodiscard]] Status setAddressBookDictToABKFile(AddressBook& book);

 private:
  /// True in `keep` where the group belongs into the list afterwards.
  [[nodiscard]] Status writeGroup(ContactGroup& group, bool& keep);
  [[nodiscard]] Status deleteGroup(const ContactGroup& group);
  [[nodiscard]] Status sendGroup(ContactGroup& group);
  [[nodiscard]] Status deleteFiles();
  Status note(DataSyncAction action, const std::string& what, std::uint32_t handle, Status status);

  PTPTransactions& device_;
  const MakerConstants& maker_;
  WritingReport& report_;
};

}  // namespace tarvo

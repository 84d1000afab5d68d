// The address book of a PTP device, read from its vendor data sets, and the limits that hold for
// it.
#pragma once

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/operations/DeviceCapabilities.h"
#include "NativeServices/PictureDevice/operations/PTPTransactions.h"
#include "NativeServices/PictureDevice/operations/ReadingReport.h"
#include "Utilities/Status.h"

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
  Status fillInABDict(AddressBook& book, const ObjectHandles& contacts,
                      const ObjectHandles& groups);

 private:
  Status readContacts(const ObjectHandles& handles, Contacts& contacts, ContactsByHandle& map);
  Status readGroups(const ObjectHandles& handles, const ContactsByHandle& map,
                    ContactGroups& groups);

  PTPTransactions& device_;
  ReadingReport& report_;
};

}  // namespace tarvo

// The vendor data sets of the address book: a contact (format 0xB203) and a group (0xB202).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

namespace tarvo {

/// A random GUID as canonical text. Any thread.
std::string newGUID();
/// Whether a uid tells one contact from all others: a GUID does, but for that of zeros.
bool identifies(const std::optional<std::string>& uid);

/// Reads a contact from the current position; handle and action are left as they are made. Raises
/// NSRangeException when the data set ends early.
Contact scanContact(XTPTPDataSet& dataSet);

/// Appends a contact. Its picture and its groups are written as none, and of its street the first
/// two lines: intended. A contact without a uid gets a new GUID on the wire, each time anew.
void storeContact(XTMutablePTPDataSet& dataSet, const Contact& contact);

/// A group as it travels, its members still being handles. Raises NSRangeException when the data
/// set ends early.
ContactGroupRecord scanContactGroup(XTPTPDataSet& dataSet);
void storeContactGroupRecord(XTMutablePTPDataSet& dataSet, const ContactGroupRecord& group);

/// Reads a group whose members are those of `contacts`, in the order of the wire. A member that is
/// not among them is a failed assertion, "Could not find contacts for all members of group %@".
/// Raises NSRangeException when the data set ends early.
ContactGroup scanGroupAndAssignContacts(XTPTPDataSet& dataSet, const ContactsByHandle& contacts);

/// Appends a group with the handles of its members; those of `group` itself do not count.
void storeContactGroup(XTMutablePTPDataSet& dataSet, const ContactGroup& group,
                       std::span<const std::uint32_t> members);

}  // namespace tarvo

// Address book and orders as JSON and back: what the tools show and read. The keys are those of
// the records ("kABEmailProperty", "XTOrderAssetListKey"...); what is absent is an absent key.
//
// A group's "contactGroupMembersKey" is the list of its members' handles, as numbers.
#pragma once

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo {

PropertyDictionary jsonFromContact(const Contact& contact);
PropertyDictionary jsonFromContactGroup(const ContactGroup& group);
PropertyDictionary jsonFromAddressBook(const AddressBook& book);
PropertyDictionary jsonFromEmailOrder(const EmailOrder& order);
PropertyDictionary jsonFromPrintOrder(const PrintOrder& order);
PropertyDictionary jsonFromTransferOrder(const TransferOrder& order);

// Each raises NSInvalidArgumentException, with a reason for a user that names the key, for what the
// record cannot hold: an unknown key, another type, a number out of range.

Contact contactFromJSON(const PropertyDictionary& json);
/// Raises the same where a member's handle is that of no contact in the book, and for more than
/// kMostBookEntries. Limits may be missing; they are 0 then.
AddressBook addressBookFromJSON(const PropertyDictionary& json);

}  // namespace tarvo

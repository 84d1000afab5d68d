// vCards (RFC 2426, RFC 6350) as address books and back.
//
// The syntax is read and written by a program of its own, tarvo-vcard, which stands on the GNOME
// address book library: whatever a file from elsewhere does to a parser, it does to that process,
// which has little memory and little time, and can reach nothing (tools/vcard/Lockdown.h). What it
// says is a JSON array of cards, each with those of the keys "uid", "fullName", "familyName",
// "givenName", "nickname", "email", "phone", "street", "city", "state", "zip", "country" (texts),
// "categories" (texts) and "emails" (a number) that the card has; it is believed no more than the
// file is.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/PropertyDictionary.h"

namespace tarvo::tools {

struct VCardBook {
  AddressBook book;                ///< without limits; without groups where no card has categories
  std::vector<std::string> notes;  ///< what is not in the book, for a person
  /// Whose cards have no nickname: theirs is made of the name.
  std::set<ContactPointer> nameless{};
};

/// Reads all cards of `text`. Raises a ToolError for a text without cards or with more than
/// kMostBookEntries, and where tarvo-vcard is not installed or gives up.
VCardBook bookFromVCards(const std::string& path, const std::string& text);
/// A card a contact (vCard 3.0); groups become the categories of their members.
std::string vCardsFromBook(const AddressBook& book);

// The mapping alone, without the syntax.

/// Whatever `cards` is: what has another type is passed over. Raises NSInvalidArgumentException for
/// more than kMostBookEntries contacts or groups.
VCardBook bookFromCards(const PropertyDictionary& cards);
PropertyDictionary cardsFromBook(const AddressBook& book);

}  // namespace tarvo::tools

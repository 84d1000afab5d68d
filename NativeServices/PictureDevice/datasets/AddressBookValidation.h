// Whether an address book is one that the device can keep: its limits, and what its firmware takes
// for an e-mail address and a nickname.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/Status.h"

namespace tarvo {

/// The first rule that a book breaks, and the value that breaks it, where one value does.
struct AddressBookError {
  Status ptpErrorCode = status::kOK;
  std::optional<std::string> errorObject;

  friend bool operator==(const AddressBookError&, const AddressBookError&) = default;
};

/// 0, or the code of the first rule that the address breaks, which is traced. `maxLength` counts
/// UTF-16 units. The texts of "@." and ".@" are exchanged in the traces: intended.
Status validateEmailAddressFormat(const std::optional<std::string>& address,
                                  std::uint32_t maxLength);

/// 0 or kAddressBookNicknameCharacters. With a limit other than 3 only "#" is accepted, which is
/// intended.
Status validateNickname(const std::optional<std::string>& nickname, std::uint16_t charTypeLimit);

/// None when the book is valid: contacts first, then groups, in order. `supportsAddressBooks` is
/// the device's; without it the code is 0x2005. Entries that are to be deleted do not count.
std::optional<AddressBookError> validateAddressBookDict(const AddressBook& book,
                                                        bool supportsAddressBooks);
/// The code alone; 0 when the book is valid.
Status validateAddressBook(const AddressBook& book, bool supportsAddressBooks);

/// Whether the bytes are a whole LCB block: a header of 32 bytes whose last one is the number of
/// records, records of 272 bytes, and one byte that is the XOR of all before it. What is wrong is
/// traced.
bool isValidLCB(std::span<const std::byte> data);

}  // namespace tarvo

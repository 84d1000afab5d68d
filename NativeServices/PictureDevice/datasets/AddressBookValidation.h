// Whether an address book is one that the device can keep: its limits, and what its firmware takes
// for an e-mail address and a nickname.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "Utilities/Status.h"

namespace tarvo {

/// The first rule that a book breaks, and the value that breaks it, where one value does.
struct AddressBookError {
  Status ptpErrorCode = status::kOK;
  std::optional<std::string> errorObject;

  friend bool operator==(const AddressBookError&, const AddressBookError&) = default;
};

/// The same with what breaks it: the place of a contact or a group among those of the book.
struct AddressBookFault : AddressBookError {
  enum class Part : std::uint8_t { kBook, kContact, kGroup };
  Part part = Part::kBook;
  std::size_t index = 0;
};

/// 0, or the code of the first rule that the address breaks, which is traced. `maxLength` counts
/// UTF-16 units. The texts of "@." and ".@" are exchanged in the traces.
[[nodiscard]] Status validateEmailAddressFormat(const std::optional<std::string>& address,
                                                std::uint32_t maxLength);

/// True for a UTF-16 unit that a nickname may not have.
using BadNicknameSet = std::function<bool(char16_t)>;
/// Every unit but "#" (docs/oddities.md). A device makes its own once.
BadNicknameSet makeBadNicknameSet();

/// 0 or kAddressBookNicknameCharacters. A limit of 3 accepts every nickname, even none; any other
/// none that has a unit of the set.
[[nodiscard]] Status validateNickname(const std::optional<std::string>& nickname,
                                      std::uint16_t charTypeLimit,
                                      const BadNicknameSet& bad = makeBadNicknameSet());

/// Each entry that breaks a rule, with the first that it breaks, `most` of them at most: contacts
/// first, then groups, in order, and before either that there are too many of them. `bad` is the
/// device's. Entries that are to be deleted do not count.
std::vector<AddressBookFault> addressBookFaults(const AddressBook& book,
                                                const BadNicknameSet& bad = makeBadNicknameSet(),
                                                std::size_t most = SIZE_MAX);
/// None when the book is valid, else the first of them: contacts first, then groups, in order.
/// `supportsAddressBooks` and `bad` are the device's; without support the code is 0x2005. Entries
/// that are to be deleted do not count.
std::optional<AddressBookError> validateAddressBookDict(
    const AddressBook& book, bool supportsAddressBooks,
    const BadNicknameSet& bad = makeBadNicknameSet());
/// The code alone; 0 when the book is valid.
[[nodiscard]] Status validateAddressBook(const AddressBook& book, bool supportsAddressBooks,
                                         const BadNicknameSet& bad = makeBadNicknameSet());

/// Whether the bytes are a whole LCB block: a header of 32 bytes whose last one is the number of
/// records, records of 272 bytes, and one byte that is the XOR of all before it. What is wrong is
/// traced.
bool isValidLCB(std::span<const std::byte> data);

}  // namespace tarvo

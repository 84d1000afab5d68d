// The address book that a camera keeps: people with their e-mail addresses, and groups of them.
//
//   const auto there = tarvo::readAddressBook(camera);
//   const auto wanted = tarvo::ContactBook::fromJSON(text);
//   const auto change = tarvo::planAddressBook(camera, there, wanted);
//   for (const auto& line : change.lines()) std::cout << line << '\n';
//   if (!change.isEmpty()) tarvo::writeAddressBook(camera, change);
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvo/Device.h"

namespace tarvo {

/// Something of an address book, or of the orders, that a camera has and that cannot be read. A
/// value.
class TARVO_API Unread {
 public:
  struct Data;
  explicit Unread(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// "contact", "group", "address-book file", "e-mail order", "print order", "transfer order",
  /// "marker file", in the plural what was to be listed ("contacts"), or "the address book" and
  /// "the order for a transfer" where no entry is to blame.
  const std::string& what() const;
  /// 0 where no single object is to blame.
  std::uint32_t handle() const;
  /// A clause.
  const std::string& reason() const;
  /// "contact 0x00010003 cannot be read: it was cut short".
  std::string description() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// A person. A value; texts are UTF-8 and empty where nothing is known.
class TARVO_API BookContact {
 public:
  struct Data;
  explicit BookContact(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// How the device's menus show the person.
  const std::string& nickname() const;
  const std::string& email() const;
  const std::string& firstName() const;
  const std::string& lastName() const;
  /// Lines are separated by one carriage return; a device keeps two.
  const std::string& street() const;
  const std::string& city() const;
  const std::string& state() const;
  const std::string& country() const;
  const std::string& zip() const;
  const std::string& phone() const;
  /// 0 on a device that keeps a file, and for somebody new.
  std::uint32_t handle() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// A group of people. A value.
class TARVO_API BookGroup {
 public:
  struct Data;
  explicit BookGroup(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  const std::string& name() const;
  /// Places in ContactBook::contacts().
  const std::vector<std::size_t>& members() const&;
  std::vector<std::size_t> members() &&;  ///< of one that goes
  std::uint32_t handle() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// An address book, of a device or of a file. A value.
class TARVO_API ContactBook {
 public:
  struct Data;
  explicit ContactBook(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// Reads what json() gives, of 8 MiB at most. A group names its members by their handles:
  /// somebody new gets any that no other contact has. kMisuse with the key that is wrong.
  static ContactBook fromJSON(std::string_view text);

  /// Both are made anew, in the order of the device or the file.
  std::vector<BookContact> contacts() const;
  std::vector<BookGroup> groups() const;
  bool supportsGroups() const;
  /// What the device takes; 0xFFFFFFFF for any number, 0 where a file does not say.
  std::uint32_t mostContacts() const;
  std::uint32_t mostGroups() const;
  std::uint32_t mostMembers() const;  ///< of one group
  /// In UTF-16 units.
  std::uint32_t longestEmail() const;
  std::uint32_t longestNickname() const;
  std::uint32_t longestGroupName() const;
  /// What is missing: while there is any, nothing is written, and nobody may be taken for gone.
  const std::vector<Unread>& unread() const&;
  std::vector<Unread> unread() &&;  ///< of one that goes
  /// All of it but that, as a JSON object ("XTAddressBookContactsKey", "XTAddressBookGroupsKey").
  std::string json() const;

  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<const Data> data_;
};

/// A rule of the device that a book breaks. A value.
class TARVO_API BookFault {
 public:
  struct Data;
  explicit BookFault(std::shared_ptr<const Data> data) : data_(std::move(data)) {}

  /// The first rule that is broken: 0x10000001 and above, as in Error::status().
  std::int32_t code() const;
  /// The value that breaks it; none where the whole book does, or the value is missing.
  const std::optional<std::string>& object() const;
  /// Which entry breaks which rule: "contact 3, Bob <bob@>: ...".
  const std::string& message() const;

 private:
  std::shared_ptr<const Data> data_;
};

/// How a book becomes the device's. Each call gives the options back.
class TARVO_API BookOptions {
 public:
  BookOptions();
  /// What only the device has stays: people, fields, members of groups.
  BookOptions& keepsOthers(bool is = true);
  /// The book is of cards (vCard): what those have no fields for stays as on the device.
  BookOptions& isPartial(bool is = true);
  /// Places in contacts() of people whose nickname was made of their name: one on the device stays.
  BookOptions& nameless(std::vector<std::size_t> contacts);
  /// As other software of the maker synchronises: groups alone are sent, or, to a device that keeps
  /// a file, an empty one.
  BookOptions& syncOnly(bool is = true);
  /// Entries that the device cannot keep are left out, each with a warning; of somebody whom it
  /// has, what it has stays.
  BookOptions& skipsInvalid(bool is = true);
  /// Names and other texts that are too long are cut, each with a warning.
  BookOptions& shortens(bool is = true);

  struct Data;
  const Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// What is to change on a device, and how. For one writeAddressBook() to the device that it was
/// made for; copies are the same change.
class TARVO_API BookChange {
 public:
  struct Data;
  explicit BookChange(std::shared_ptr<Data> data) : data_(std::move(data)) {}

  /// The device has all of it already. With emptiesBook() there is something to write all the same.
  bool isEmpty() const;
  /// Of BookOptions::syncOnly(): the device will have an empty book.
  bool emptiesBook() const;
  /// A line each: "+ Bob <bob@example.com>", "~ ... (nickname)", "- ...".
  std::vector<std::string> lines() const;
  /// "contacts" and "groups", with "added", "changed" and "removed" each, as a JSON object.
  std::string json() const;
  /// What a person has to know before it is written, a sentence each.
  const std::vector<std::string>& warnings() const&;
  std::vector<std::string> warnings() &&;  ///< of one that goes

  Data& data() const { return *data_; }

 private:
  std::shared_ptr<Data> data_;
};

/// What lies on a device for its book.
enum class BookEntryKind : std::uint8_t { kContact, kGroup, kFile };

TARVO_API std::ostream& operator<<(std::ostream& out, const Unread& unread);
TARVO_API std::ostream& operator<<(std::ostream& out, const BookContact& contact);
TARVO_API std::ostream& operator<<(std::ostream& out, const BookGroup& group);
TARVO_API std::ostream& operator<<(std::ostream& out, const ContactBook& book);
TARVO_API std::ostream& operator<<(std::ostream& out, const BookFault& fault);
TARVO_API std::ostream& operator<<(std::ostream& out, const BookChange& change);

// Calls to a device that is held. Each raises as those of Device.

/// Reads the book anew, entry by entry where it cannot be had as a whole: a bad one hides no other.
/// kUnsupported for a device that keeps none.
TARVO_API ContactBook readAddressBook(Device& device);
/// Whether each contact is kept by itself, or all of them in one file of nicknames and addresses.
TARVO_API bool keepsContactsSingly(Device& device);
/// What is wrong with a book under the limits of the device's own, `there`; none where it would be
/// kept.
TARVO_API std::optional<BookFault> checkAddressBook(Device& device, const ContactBook& there,
                                                    const ContactBook& wanted);

/// The same, all of it: of each entry the first rule that it breaks.
TARVO_API std::vector<BookFault> findBookFaults(Device& device, const ContactBook& there,
                                                const ContactBook& wanted);

/// What has to change for the book of the device, as it was read, to become `wanted`. People are
/// the same by their ids, else by handle, else by e-mail address and nickname; groups by handle and
/// name, else by a name that only one has. Nothing is sent.
///
/// Raises kRefused where `there` has gaps; kAmbiguous where it cannot be told who is who; kMisuse
/// for entries that the device cannot keep, which the reason names, the first twenty of them, with
/// the code of the first one's BookFault where there is one; kBusy,
/// with the order's handle as the object, where an e-mail order would go to somebody else then.
TARVO_API BookChange planAddressBook(Device& device, const ContactBook& there,
                                     const ContactBook& wanted, const BookOptions& options = {});

/// Writes it, and reads the book once more to compare. Contacts go last, a file's successor comes
/// when the old one is gone. Where that ends early the error's reason says what was written and
/// what was not, or, as "it was written, but ...", how the device has it. Keep what it held before,
/// its files byte for byte, to be able to put it back.
TARVO_API void writeAddressBook(Device& device, const BookChange& change);

/// The handles of all entries of a kind, such as cannot be read among them.
TARVO_API std::vector<std::uint32_t> bookEntries(Device& device, BookEntryKind kind);
/// The bytes of one, as far as the device gives them.
TARVO_API std::vector<std::byte> readBookEntry(Device& device, BookEntryKind kind,
                                               std::uint32_t handle);
/// Deletes one, when `keep` has got what the device has of it, nothing where that cannot be had;
/// what `keep` raises leaves the entry there. kTooLarge for one that cannot be read at once.
TARVO_API void removeBookEntry(Device& device, BookEntryKind kind, std::uint32_t handle,
                               const std::function<void(std::span<const std::byte>)>& keep);

}  // namespace tarvo

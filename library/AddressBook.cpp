#include "tarvo/AddressBook.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <span>
#include <utility>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "Utilities/JSONReader.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/Records.h"
#include "library/access/BookPlan.h"
#include "library/access/BookWriting.h"
#include "library/access/DeviceBook.h"
#include "library/access/DeviceState.h"

namespace tarvo {

using namespace library;

const std::string& Unread::what() const { return data_->what; }
std::uint32_t Unread::handle() const { return data_->handle; }
const std::string& Unread::reason() const { return data_->why; }
std::string Unread::description() const {
  const std::string object = handle() == 0 ? "" : " " + handleText(handle());
  return what() + object + " cannot be read: " + reason();
}

/// With e-mail address and nickname, empty where there is none.
struct BookContact::Data : Contact {};

const std::string& BookContact::nickname() const { return *data_->nickname; }
const std::string& BookContact::email() const { return *data_->email; }
const std::string& BookContact::firstName() const { return data_->firstName; }
const std::string& BookContact::lastName() const { return data_->lastName; }
const std::string& BookContact::street() const { return data_->street; }
const std::string& BookContact::city() const { return data_->city; }
const std::string& BookContact::state() const { return data_->state; }
const std::string& BookContact::country() const { return data_->country; }
const std::string& BookContact::zip() const { return data_->zip; }
const std::string& BookContact::phone() const { return data_->phone; }
std::uint32_t BookContact::handle() const { return data_->handle; }

struct BookGroup::Data {
  std::string name;
  std::vector<std::size_t> members;
  std::uint32_t handle = 0;
};

const std::string& BookGroup::name() const { return data_->name; }
const std::vector<std::size_t>& BookGroup::members() const& { return data_->members; }
std::vector<std::size_t> BookGroup::members() && { return data_->members; }
std::uint32_t BookGroup::handle() const { return data_->handle; }

ContactBook ContactBook::fromJSON(std::string_view text) {
  try {
    return valueOf<ContactBook>({.book = addressBookFromJSON(jsonFromText(text))});
  } catch (const Exception& exception) {
    throw named(errorOf({.why = exception.reason(), .kind = ErrorKind::kMisuse}), "fromJSON");
  }
}

std::vector<BookContact> ContactBook::contacts() const {
  std::vector<BookContact> contacts;
  for (const auto& each : entriesOf(data_->book.contacts)) {
    BookContact::Data contact{*each};
    contact.email.emplace(contact.email.value_or(""));
    contact.nickname.emplace(contact.nickname.value_or(""));
    contacts.push_back(valueOf<BookContact>(std::move(contact)));
  }
  return contacts;
}

std::vector<BookGroup> ContactBook::groups() const {
  std::map<const Contact*, std::size_t> places;
  std::size_t place = 0;
  for (const auto& contact : entriesOf(data_->book.contacts))
    places.emplace(contact.get(), place++);
  std::vector<BookGroup> groups;
  for (const auto& each : entriesOf(data_->book.groups)) {
    BookGroup::Data group{.name = each->name, .members = {}, .handle = each->handle};
    for (const auto& member : each->members)
      if (const auto found = places.find(member.get()); found != places.end())
        group.members.push_back(found->second);
    groups.push_back(valueOf<BookGroup>(std::move(group)));
  }
  return groups;
}

bool ContactBook::supportsGroups() const { return data_->book.supportsGroups; }
std::uint32_t ContactBook::mostContacts() const { return data_->book.limits.maxAddresses; }
std::uint32_t ContactBook::mostGroups() const { return data_->book.limits.maxGroups; }
std::uint32_t ContactBook::mostMembers() const { return data_->book.limits.maxAddressesPerGroup; }
std::uint32_t ContactBook::longestEmail() const {
  return data_->book.limits.maxAddressLengthInBytes;
}
std::uint32_t ContactBook::longestNickname() const {
  return data_->book.limits.maxNicknameLengthInBytes;
}
std::uint32_t ContactBook::longestGroupName() const {
  return data_->book.limits.maxGroupNameLengthInBytes;
}
const std::vector<Unread>& ContactBook::unread() const& { return data_->unread; }
std::vector<Unread> ContactBook::unread() && { return data_->unread; }
std::string ContactBook::json() const { return textOf(jsonFromAddressBook(data_->book)); }

const AddressBook& library::recordOf(const ContactBook& book) { return book.data().book; }
ContactBook library::contactBook(AddressBook book) {
  return valueOf<ContactBook>({.book = std::move(book)});
}

struct BookFault::Data {
  AddressBookError error;
  std::string message;
};

std::int32_t BookFault::code() const { return data_->error.ptpErrorCode; }
const std::optional<std::string>& BookFault::object() const { return data_->error.errorObject; }
const std::string& BookFault::message() const { return data_->message; }

struct BookOptions::Data {
  bool keepsOthers = false;
  bool isPartial = false;
  std::vector<std::size_t> nameless{};
  bool syncOnly = false;
  bool skipsInvalid = false;
  bool shortens = false;
};

BookOptions::BookOptions() : data_(std::make_shared<Data>()) {}

BookOptions& BookOptions::keepsOthers(bool is) { return set<&Data::keepsOthers>(*this, data_, is); }
BookOptions& BookOptions::isPartial(bool is) { return set<&Data::isPartial>(*this, data_, is); }
BookOptions& BookOptions::nameless(std::vector<std::size_t> contacts) {
  return set<&Data::nameless>(*this, data_, std::move(contacts));
}
BookOptions& BookOptions::syncOnly(bool is) { return set<&Data::syncOnly>(*this, data_, is); }
BookOptions& BookOptions::skipsInvalid(bool is) {
  return set<&Data::skipsInvalid>(*this, data_, is);
}
BookOptions& BookOptions::shortens(bool is) { return set<&Data::shortens>(*this, data_, is); }

struct BookChange::Data : OutgoingBook {
  std::weak_ptr<DeviceState> device;
  std::vector<std::string> warnings{};
  bool isUsed = false;
};

bool BookChange::isEmpty() const { return data_->plan.changes.isEmpty(); }
bool BookChange::emptiesBook() const { return data_->way == BookWay::kEmptyFile; }
std::vector<std::string> BookChange::lines() const { return inWords(data_->plan.changes); }
std::string BookChange::json() const { return textOf(asJSON(data_->plan.changes)); }
const std::vector<std::string>& BookChange::warnings() const& { return data_->warnings; }
std::vector<std::string> BookChange::warnings() && { return data_->warnings; }

std::ostream& operator<<(std::ostream& out, const Unread& unread) {
  return out << printable(unread.description());
}
std::ostream& operator<<(std::ostream& out, const BookContact& contact) {
  return out << printable(contact.nickname() + " <" + contact.email() + ">");
}
std::ostream& operator<<(std::ostream& out, const BookGroup& group) {
  return out << printable(group.name()) << " (" << group.members().size() << ')';
}
std::ostream& operator<<(std::ostream& out, const ContactBook& book) {
  return out << book.contacts().size() << " contacts, " << book.groups().size() << " groups";
}
std::ostream& operator<<(std::ostream& out, const BookFault& fault) {
  return out << fault.message();
}
std::ostream& operator<<(std::ostream& out, const BookChange& change) {
  for (const auto& line : change.lines())
    out << line << '\n';
  return out;
}

namespace {

std::vector<AddressBookFault> faultsIn(const OpenedDevice& camera, const AddressBook& book) {
  const auto error = camera.device().validateAddressBookDict(book);
  auto faults = error ? addressBookFaults(book) : std::vector<AddressBookFault>();
  if (error && faults.empty()) faults.push_back({*error});
  return faults;
}

void refuseChange(const std::string& why, const std::string& advice, ErrorKind kind,
                  const std::string& object = {}) {
  if (why.empty()) return;
  raise({.object = object, .why = why, .advice = "Nothing was sent. " + advice, .kind = kind});
}

/// Contacts that could not be read would be taken for contacts that are not there.
void refuseGaps(const OpenedDevice& camera, const ContactBook& there) {
  if (there.unread().empty()) return;
  raise({.object = camera.device().name(),
         .status = status::kPTPGeneralError,
         .why = there.unread().front().description() + "; nothing was sent",
         .advice = "Try again, or remove what cannot be read."});
}

/// Of the plan and not of the file: where others are kept the book is both. An entry is named once.
std::vector<BookObstacle> obstaclesIn(const OpenedDevice& camera, const BookChange::Data& change) {
  const AddressBook& book = change.plan.book;
  std::vector<BookObstacle> obstacles;
  std::set<EntryID> named;
  for (const auto& fault : faultsIn(camera, book)) {
    BookObstacle obstacle{.why = inWords(fault, book), .code = fault.ptpErrorCode};
    if (fault.part == AddressBookFault::Part::kContact)
      obstacle.entry = (*book.contacts)[fault.index].get();
    if (fault.part == AddressBookFault::Part::kGroup)
      obstacle.entry = (*book.groups)[fault.index].get();
    named.insert(obstacle.entry);
    obstacles.push_back(std::move(obstacle));
  }
  for (auto& obstacle : obstaclesTo(change))
    if (!named.contains(obstacle.entry)) obstacles.push_back(std::move(obstacle));
  return obstacles;
}

/// What can be done about it, by what is wrong first.
std::string adviceFor(const BookObstacle& obstacle, const AddressBook& book) {
  const auto excess = [](const auto& entries, std::uint32_t limit) {
    return std::to_string(countKept(entries) - limit);
  };
  if (obstacle.code == status::kAddressBookTooManyContacts)
    return "Contacts to be taken out of it: " + excess(book.contacts, book.limits.maxAddresses) +
           ".";
  if (obstacle.code == status::kAddressBookTooManyGroups)
    return "Groups to be taken out of it: " + excess(book.groups, book.limits.maxGroups) + ".";
  return "Correct what is wrong and try again.";
}

void refuseInvalid(const OpenedDevice& camera, const BookChange::Data& change) {
  constexpr std::size_t kMostNamed = 20;
  const auto obstacles = obstaclesIn(camera, change);
  if (obstacles.empty()) return;
  std::vector<std::string> words;
  for (const auto& obstacle : std::span(obstacles).first(std::min(obstacles.size(), kMostNamed)))
    words.push_back(obstacle.why);
  if (obstacles.size() > kMostNamed)
    words.push_back("and " + std::to_string(obstacles.size() - kMostNamed) + " more");
  raise({.status = obstacles.front().code,
         .why = joined(words, "; "),
         .advice = "Nothing was sent. " + adviceFor(obstacles.front(), change.plan.book),
         .kind = ErrorKind::kMisuse});
}

/// To whom the e-mail orders of a device go: an order by the handle of each recipient. Raises an
/// error where one of them cannot be read.
std::map<std::uint32_t, std::uint32_t> emailRecipients(const OpenedDevice& device) {
  std::map<std::uint32_t, std::uint32_t> orders;
  std::vector<Unread> unread;
  const Reading reading = {device, unread};
  // Also those that wait for a transfer, whose recipients count as well.
  for (const auto format : {ptp::XTD_EMAIL_ORDER, ptp::XTD_SQUIRT_EMAIL_ORDER}) {
    for (const std::uint32_t handle : reading.handles(format, "e-mail orders")) {
      const auto record = reading.record("e-mail order", handle, format, scanEmailOrder);
      for (const std::uint32_t contact : record ? record->destContacts : ObjectHandles())
        orders.emplace(contact, handle);
    }
  }
  if (unread.empty()) return orders;
  raise({.why = unread.front().description() +
                ", so that it is not known to whom it goes; nothing was sent"});
}

/// An order names its recipients by their handles: it would go to another address, or to nobody.
void refuseOtherRecipients(const OpenedDevice& camera, BookChange::Data& change) {
  const auto& changes = change.plan.changes.contacts;
  if (change.way != BookWay::kSingly || changes.isEmpty()) return;
  const auto orders = emailRecipients(camera);
  for (const auto& [recipient, order] : orders)
    change.recipients.insert(recipient);
  const auto refuseFor = [&](const Contact& contact) {
    const auto found = orders.find(contact.handle);
    if (found == orders.end()) return;
    const std::string order = handleText(found->second);
    refuseChange("e-mail order " + order + " goes to " + contactInWords(contact),
                 "Fulfil the order, or delete it.", ErrorKind::kBusy, order);
  };
  for (const auto& contact : changes.removed)
    refuseFor(*contact);
  for (const auto& changed : changes.changed)
    if (changed.before->email != changed.after->email) refuseFor(*changed.before);
}

/// The entries of the wanted book that cannot be kept: what the device has of them stays.
void skipInvalid(const OpenedDevice& camera, BookChange::Data& change, PlanOptions& options) {
  for (const auto& obstacle : obstaclesIn(camera, change)) {
    const auto origin = change.plan.origins.find(obstacle.entry);
    if (origin == change.plan.origins.end()) continue;
    options.skipped.insert(origin->second);
    change.warnings.push_back("Left out: " + obstacle.why + ".");
  }
}

BookWay wayTo(const OpenedDevice& camera, bool syncOnly) {
  if (keepsContactsSingly(camera)) return syncOnly ? BookWay::kGroups : BookWay::kSingly;
  return syncOnly ? BookWay::kEmptyFile : BookWay::kFile;
}

PlanOptions planOptions(const AddressBook& wanted, const BookOptions::Data& options, BookWay way) {
  PlanOptions plan = {.keepsOthers = options.keepsOthers,
                      .keepsOnlyLabels = !isSingly(way),
                      .wantedIsPartial = options.isPartial,
                      .leavesContacts = way == BookWay::kGroups};
  for (const std::size_t index : options.nameless) {
    if (!wanted.contacts || index >= wanted.contacts->size())
      refuse("the book has no contact " + std::to_string(index));
    plan.nameless.insert((*wanted.contacts)[index].get());
  }
  return plan;
}

/// What the device lacks of the book that it was to get, by reading it once more; none where it
/// cannot be read in whole.
std::optional<BookChanges> differencesNow(const OpenedDevice& camera,
                                          const BookChange::Data& change) {
  try {
    const auto now = readDeviceBook(camera);
    auto plan = planBook(now.book, change.plan.book, {.keepsOnlyLabels = !isSingly(change.way)});
    if (now.unread.empty() && plan.doubt.empty()) return std::move(plan.changes);
  } catch (const Error&) {
    // Told by the caller, which knows what it means there.
  }
  return std::nullopt;
}

/// A line without what it says in brackets, which may be another number by now.
std::string headOf(const std::string& line) {
  return line.substr(0, line.ends_with(')') ? line.rfind(" (") : std::string::npos);
}

/// What was written and what was not: by the device itself, where it can still be asked, for the
/// answer to a change may be lost and the change there all the same.
std::string howFar(const OpenedDevice& camera, const BookChange::Data& change,
                   const BookWritten& written) {
  const auto left = isSingly(change.way) ? differencesNow(camera, change) : std::nullopt;
  std::set<std::string> known;
  for (const auto& line : left ? inWords(*left) : written.done)
    known.insert(headOf(line));
  std::vector<std::string> open;
  std::vector<std::string> done;
  for (const auto& line : inWords(change.plan.changes))
    (known.contains(headOf(line)) == left.has_value() ? open : done).push_back(line);
  std::string words = done.empty() ? "Nothing of it was written" : "Written: " + joined(done, "; ");
  if (!open.empty()) words += ". Not written: " + joined(open, "; ");
  if (isSingly(change.way) && !left)
    words += ". The last change may or may not have arrived: the device cannot be asked";
  return words;
}

/// A device may say OK to what it then keeps otherwise.
void compareAfterwards(const OpenedDevice& camera, const BookChange::Data& change) {
  const auto left = differencesNow(camera, change);
  if (left && left->isEmpty()) return;
  camera.session().endIfInterrupted();
  raise(camera.failure(
      camera.device().name(),
      left ? status::kPTPIncompleteTransfer : camera.transactions().lastOutcome(),
      left ? "it was written, but the device has it differently: " + joined(inWords(*left), "; ")
           : "it was written, but cannot be read again to make sure"));
}

struct EntryWords {
  std::uint16_t format;
  const char* what;
};

EntryWords kindOf(BookEntryKind kind) {
  if (kind == BookEntryKind::kContact) return {ptp::XTD_CONTACT, "contact"};
  if (kind == BookEntryKind::kGroup) return {ptp::XTD_GROUP, "group"};
  return {ptp::XTD_ADDRESS_BOOK_FILE, "address-book file"};
}

/// As bytes, since it may be one that cannot be read as a record; none where it cannot be had.
std::optional<ByteBuffer> bytesOf(const OpenedDevice& camera, BookEntryKind kind,
                                  std::uint32_t handle) {
  if (kind == BookEntryKind::kFile) return camera.device().downloadObject(ObjectReference(handle));
  const auto dataSet = camera.transactions().getDataSet(handle, kindOf(kind).format);
  if (!dataSet) return std::nullopt;
  const auto bytes = dataSet->bytes().first(
      std::min<std::size_t>(dataSet->length(), camera.transactions().lastReceived()));
  return ByteBuffer(bytes.begin(), bytes.end());
}

}  // namespace

ContactBook readAddressBook(Device& device) {
  return asked(device.state(), "readAddressBook",
               [](OpenedDevice& camera) { return valueOf<ContactBook>(readDeviceBook(camera)); });
}

bool keepsContactsSingly(Device& device) {
  return asked(device.state(), "keepsContactsSingly",
               [](OpenedDevice& camera) { return keepsContactsSingly(camera); });
}

std::vector<BookFault> findBookFaults(Device& device, const ContactBook& there,
                                      const ContactBook& wanted) {
  return asked(device.state(), "findBookFaults", [&](OpenedDevice& camera) {
    AddressBook book = wanted.data().book;
    // The limits of the device that is there, whatever the book's own are.
    book.limits = there.data().book.limits;
    if (!book.contacts) book.contacts.emplace();
    if (!book.groups) book.groups.emplace();
    std::vector<BookFault> faults;
    for (const auto& fault : faultsIn(camera, book))
      faults.push_back(
          valueOf<BookFault>({static_cast<const AddressBookError&>(fault), inWords(fault, book)}));
    return faults;
  });
}

std::optional<BookFault> checkAddressBook(Device& device, const ContactBook& there,
                                          const ContactBook& wanted) {
  const auto faults = findBookFaults(device, there, wanted);
  return faults.empty() ? std::nullopt : std::optional(faults.front());
}

BookChange planAddressBook(Device& device, const ContactBook& there, const ContactBook& wanted,
                           const BookOptions& options) {
  return asked(device.state(), "planAddressBook", [&](OpenedDevice& camera) {
    refuseGaps(camera, there);
    const AddressBook& now = there.data().book;
    std::vector<std::string> notes;
    const AddressBook book = options.data().shortens
                                 ? shortened(wanted.data().book, now.limits, notes)
                                 : wanted.data().book;
    const BookWay way = wayTo(camera, options.data().syncOnly);
    PlanOptions how = planOptions(book, options.data(), way);
    const auto data = std::make_shared<BookChange::Data>(
        BookChange::Data{{.way = way,
                          .plan = planBook(now, book, how),
                          .encoding = camera.session().platform().services().defaultEncoding},
                         device.state()});
    BookChange change(data);
    for (const auto& note : notes)
      data->warnings.push_back(note + ".");
    if (options.data().skipsInvalid) {
      skipInvalid(camera, *data, how);
      data->plan = planBook(now, book, how);
    }
    // Where it is not known who is who, one of two people would be lost.
    refuseChange(data->plan.doubt, "Export the book, and change that.", ErrorKind::kAmbiguous);
    if (change.isEmpty() && !change.emptiesBook()) return change;
    refuseInvalid(camera, *data);
    refuseOtherRecipients(camera, *data);
    if (!isSingly(way) && book.groups && !book.groups->empty())
      data->warnings.emplace_back("The device keeps no groups: those of the file are left out.");
    std::ranges::move(warningsOf(*data), std::back_inserter(data->warnings));
    return change;
  });
}

void writeAddressBook(Device& device, const BookChange& change) {
  asked(device.state(), "writeAddressBook", [&](OpenedDevice& camera) {
    auto& data = change.data();
    if (data.device.lock() != device.state()) refuse("the change is one for another device");
    if (std::exchange(data.isUsed, true)) refuse("the change was written already");
    const auto written = writeBook(camera, data);
    if (written.status == status::kOK) return compareAfterwards(camera, data);
    std::string why = written.why.empty() ? "" : written.why + ". ";
    why += howFar(camera, data, written);
    if (!written.outcome.empty()) why += ". " + written.outcome;
    raise({.object = camera.device().name(), .status = written.status, .why = why});
  });
}

std::vector<std::uint32_t> bookEntries(Device& device, BookEntryKind kind) {
  return asked(device.state(), "bookEntries", [&](OpenedDevice& camera) {
    return camera.objectHandles({.format = kindOf(kind).format}, "the address book");
  });
}

std::vector<std::byte> readBookEntry(Device& device, BookEntryKind kind, std::uint32_t handle) {
  return asked(device.state(), "readBookEntry", [&](OpenedDevice& camera) {
    return camera.require(bytesOf(camera, kind, handle), std::string("the ") + kindOf(kind).what);
  });
}

void removeBookEntry(Device& device, BookEntryKind kind, std::uint32_t handle,
                     const std::function<void(std::span<const std::byte>)>& keep) {
  asked(device.state(), "removeBookEntry", [&](OpenedDevice& camera) {
    const std::string object = kindOf(kind).what + (" " + handleText(handle));
    const auto bytes = bytesOf(camera, kind, handle);
    if (camera.transactions().lastOutcome() == status::kObjectTooLarge)
      raise(camera.failure(object, status::kObjectTooLarge));
    keep(bytes.value_or(ByteBuffer()));
    camera.require(kind == BookEntryKind::kFile
                       ? camera.device().deleteObject(ObjectReference(handle))
                       : camera.device().deleteVendorObjectPTP(handle),
                   object);
  });
}

}  // namespace tarvo

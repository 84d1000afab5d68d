#include "library/access/BookWriting.h"

#include <glib.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectListing.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "Utilities/Printable.h"
#include "library/access/DeviceState.h"
#include "platform/files/ScratchFolder.h"
#include "platform/files/WholeFile.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::library {
namespace {

const char* signOf(DataSyncAction action) {
  if (action == DataSyncAction::kDelete) return "-";
  return action == DataSyncAction::kAdd ? "+" : "~";
}

constexpr std::string_view kLineEnd = "\r\n";

/// None where the encoding has no such characters.
std::optional<std::string> encoded(const std::string& text, const std::string& encoding) {
  gsize size = 0;
  const GCharPtr bytes(g_convert(text.data(), static_cast<gssize>(text.size()), encoding.c_str(),
                                 "UTF-8", nullptr, &size, nullptr));
  if (!bytes) return std::nullopt;
  return std::string(bytes.get(), size);
}

/// What the form of a line cannot hold.
const char* misfit(const std::string& nickname, const std::string& email) {
  if (email.empty()) return "it has no e-mail address";
  // A line is a contact: a break in it would make another one of the rest.
  if ((nickname + email).find_first_of("\r\n") != std::string::npos)
    return "it has a line break in it";
  if (nickname.find(" <") != std::string::npos || nickname.find('>') != std::string::npos ||
      email.find('>') != std::string::npos)
    return "it has a '<' or '>' where the device's file cannot hold one";
  return nullptr;
}

/// The bytes of a device's file, "DCEMAIL.ABK", with every contact that is not to be deleted, a
/// line each, lines ended by CR LF, in `encoding` (an iconv name). The last line goes without its
/// end where the file would else have a size that some hosts lose. Contacts that do not fit the
/// form or the encoding are left out, and told in `obstacles`.
std::string bookText(const AddressBook& book, const std::string& encoding,
                     std::vector<BookObstacle>& obstacles) {
  std::string text;
  if (!book.contacts) return text;
  for (const auto& contact : *book.contacts) {
    if (contact->action == DataSyncAction::kDelete) continue;
    const std::string nickname = contact->nickname.value_or("");
    const std::string email = contact->email.value_or("");
    const char* reason = misfit(nickname, email);
    std::string written = nickname;
    written.append(" <").append(email).append(">");
    const auto line = encoded(written, encoding);
    if (reason || !line) {
      const std::string why =
          reason ? reason
                 : "it has characters that the device's encoding (" + encoding + ") does not have";
      obstacles.push_back({.entry = contact.get(), .why = contactInWords(*contact) + ": " + why});
      continue;
    }
    text += *line;
    text += kLineEnd;
  }
  // Rather than pad the file with a zero byte, as every object of such a size would be.
  if (isModulo64PayloadSize(text.size()) && !text.empty())
    text.erase(text.size() - kLineEnd.size());
  return text;
}

class Writing {
 public:
  Writing(const OpenedDevice& device, OutgoingBook& book)
      : device_(device), out_(book), plan_(book.plan) {}

  // Never raises: how far it came is what the user has to know.
  BookWritten run() {
    try {
      if (out_.way == BookWay::kSingly) writeSingly();
      if (out_.way == BookWay::kFile) writeFile();
      if (out_.way == BookWay::kGroups) writeGroups();
      // The library would send it beside a file that it could not delete.
      if (out_.way == BookWay::kEmptyFile)
        replaceFile([this] { return device_.device().setAddressBookDict(plan_.book); });
    } catch (const Exception& exception) {
      result_.status = status::kICAProtocolError;
      result_.why = exception.reason();
    } catch (const std::system_error& error) {
      result_.status = status::kIOError;
      result_.why = error.what();
    }
    return std::move(result_);
  }

 private:
  void writeSingly() {
    const auto& changes = plan_.changes.contacts;
    std::size_t held = plan_.book.contacts->size() - changes.added.size();
    auto removed = changes.removed.begin();
    for (const auto& contact : changes.added) {
      // The old ones go first only where the device has no room.
      // New ones first, so that a cable that is pulled out leaves too many people and not too few.
      for (; held >= plan_.book.limits.maxAddresses && removed != changes.removed.end(); --held)
        if (!remove(**removed++)) return;
      if (!create(*contact)) return;
      ++held;
    }
    for (const auto& changed : changes.changed)
      if (!update(*changed.after)) return;
    // Behind the contacts, whose handles they name.
    if (!writeGroups()) return;
    // Only now does no group name them any more.
    for (; removed != changes.removed.end(); ++removed)
      if (!remove(**removed)) return;
  }

  bool isDone(Status status) {
    if (isGood(status)) return true;
    result_.status = device_.explained(status);
    return false;
  }

  /// The same of a contact, which is noted.
  bool isDone(DataSyncAction action, const Contact& contact, Status status) {
    if (!isDone(status)) return false;
    result_.done.push_back(signOf(action) + (" " + contactInWords(contact)));
    return true;
  }

  bool remove(const Contact& contact) {
    return isDone(DataSyncAction::kDelete, contact,
                  device_.device().deleteVendorObjectPTP(contact.handle));
  }

  bool create(Contact& contact) {
    auto dataSet = dataSetOf(contact);
    std::uint32_t handle = 0;
    if (!isDone(device_.transactions().createFormat(ptp::XTD_CONTACT, dataSet, &handle)))
      return false;
    if (handle == 0) return fail("the device gave the new contact no handle");
    // The order would go to somebody whom nobody has chosen. Devices give handles of deleted
    // objects again.
    if (out_.recipients.contains(handle)) {
      // It is refused whether it can be taken back or not.
      (void)device_.device().deleteVendorObjectPTP(handle);
      return fail("the device gave " + contactInWords(contact) + " the handle " +
                  handleText(handle) + ", to which an order goes");
    }
    contact.handle = handle;
    contact.action = DataSyncAction::kNone;
    return isDone(DataSyncAction::kAdd, contact, status::kOK);
  }

  bool fail(const std::string& why) {
    result_.status = status::kICAProtocolError;
    result_.why = why;
    return false;
  }

  bool update(Contact& contact) {
    auto dataSet = dataSetOf(contact);
    const Status status =
        device_.transactions().updateObject(contact.handle, ptp::XTD_CONTACT, dataSet);
    if (!isDone(DataSyncAction::kUpdate, contact, status)) return false;
    contact.action = DataSyncAction::kNone;
    return true;
  }

  static XTMutablePTPDataSet dataSetOf(const Contact& contact) {
    auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    storeContact(dataSet, contact);
    return dataSet;
  }

  /// All groups by the library's synchronisation, which tells how far it came.
  bool writeGroups() {
    if (plan_.changes.groups.isEmpty()) return true;
    const bool isWhole = isDone(device_.device().setAddressBookDict(plan_.book));
    for (const auto& step : device_.device().lastWriting().steps)
      if (step.status == status::kOK)
        result_.done.push_back(signOf(step.action) + (" group " + printable(step.what)));
    return isWhole;
  }

  void writeFile() {
    std::vector<BookObstacle> obstacles;
    const auto text = bookText(plan_.book, out_.encoding, obstacles);
    if (!obstacles.empty()) result_.why = obstacles.front().why;
    // Written before the device is touched: a text that cannot be made costs nobody his book.
    const ScratchFolder folder;
    const auto made = obstacles.empty()
                          ? writeWhole({.folder = folder.path(), .name = "DCEMAIL.ABK"},
                                       std::as_bytes(std::span(text)))
                          : FetchResult{.status = status::kIOError};
    if (made.status != status::kOK) {
      result_.status = made.status;
      if (result_.why.empty()) result_.why = made.why;
      result_.outcome = "The device was not touched.";
      return;
    }
    replaceFile([&] { return device_.device().sendFile(made.path); });
  }

  Status listFiles(ObjectHandles& files) const {
    return ObjectListing(device_.transactions())
        .handles({.format = ptp::XTD_ADDRESS_BOOK_FILE}, files);
  }

  /// Deletes the old file, and only where it is gone sends the new one.
  template <typename Send>
  void replaceFile(const Send& send) {
    ObjectHandles files;
    if (!isDone(listFiles(files))) {
      result_.outcome = "The device was not touched.";
      return;
    }
    // The first that cannot be deleted ends it, with the old book still there.
    const bool isGone = std::ranges::all_of(files, [this](std::uint32_t file) {
      return isDone(device_.device().deleteObject(ObjectReference(file)));
    });
    if (!isGone || !isDone(send())) result_.outcome = whatIsThere(files);
  }

  std::string whatIsThere(const ObjectHandles& old) const {
    ObjectHandles now;
    if (listFiles(now) != status::kOK) return "What the device holds now is not known.";
    if (now.empty())
      return "The device has no address book now: the old file is deleted, the new one is not "
             "there.";
    const auto kept = std::ranges::find_first_of(now, old);
    return kept != now.end() ? "The device still has the old file, " + handleText(*kept) + "."
                             : "The old file is deleted; of the new one, " +
                                   handleText(now.front()) + ", not all may be there.";
  }

  const OpenedDevice& device_;
  const OutgoingBook& out_;
  BookPlan& plan_;
  BookWritten result_;
};

/// Whether a contact of the book has more to it than the device's file can hold.
bool hasMoreThanLabels(const AddressBook& book) {
  return std::ranges::any_of(*book.contacts, [](const ContactPointer& contact) {
    return std::ranges::any_of(kContactFields, [&](const ContactField& field) {
      return !((*contact).*field.text).empty();
    });
  });
}

/// What no record of a contact can hold; null where all is well.
const char* misfitOf(const Contact& contact) {
  // A longer text would wrap its count.
  const auto isTooLong = [](const std::string& text) {
    return utf16Length(text) > kMostStringUnits;
  };
  if (isTooLong(contact.email.value_or("")) || isTooLong(contact.nickname.value_or("")) ||
      std::ranges::any_of(kContactFields,
                          [&](const auto& field) { return isTooLong(contact.*field.text); }))
    return "it has a text of 255 characters or more";
  const auto [first, second] = firstTwoLines(contact.street);
  return joinedLines(std::string(first), std::string(second)) == contact.street
             ? nullptr
             : "the device keeps two lines of a street, which has more";
}

}  // namespace

std::vector<std::string> warningsOf(const OutgoingBook& book) {
  switch (book.way) {
    case BookWay::kGroups:
      return {
          "Groups alone are sent: contacts stay on the device as they are, and no change of a "
          "contact reaches it."};
    case BookWay::kEmptyFile:
      return {
          "An EMPTY file is sent, which is all that synchronising this device does: it will have "
          "no contacts afterwards. Without --sync the contacts are sent."};
    case BookWay::kFile: {
      std::vector<std::string> warnings = {
          "The device keeps all contacts in one file. The old file is deleted and a new one, with "
          "all contacts, is sent in its place."};
      if (hasMoreThanLabels(book.plan.book))
        warnings.emplace_back(
            "The device keeps the nickname and the e-mail address of a contact, and nothing else: "
            "names, addresses and phone numbers stay here.");
      return warnings;
    }
    case BookWay::kSingly:
      break;
  }
  const bool hasPicture = std::ranges::any_of(
      book.plan.changes.contacts.changed, [](const auto& each) { return each.before->image != 0; });
  if (!hasPicture) return {};
  return {"A contact that changes may lose its picture on the device: pictures are not sent."};
}

std::vector<BookObstacle> obstaclesTo(const OutgoingBook& book) {
  std::vector<BookObstacle> obstacles;
  if (book.way == BookWay::kFile) bookText(book.plan.book, book.encoding, obstacles);
  if (book.way != BookWay::kSingly) return obstacles;
  for (const auto& contact : *book.plan.book.contacts) {
    if (contact->action != DataSyncAction::kAdd && contact->action != DataSyncAction::kUpdate)
      continue;
    if (const char* why = misfitOf(*contact))
      obstacles.push_back({.entry = contact.get(), .why = contactInWords(*contact) + ": " + why});
  }
  for (const auto& group : *book.plan.book.groups) {
    if (utf16Length(group->name) <= kMostStringUnits) continue;
    obstacles.push_back(
        {.entry = group.get(),
         .why = "group " + printable(group->name) + ": its name has 255 characters or more"});
  }
  return obstacles;
}

BookWritten writeBook(const OpenedDevice& device, OutgoingBook& book) {
  return Writing(device, book).run();
}

}  // namespace tarvo::library

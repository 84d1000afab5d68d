#include "tools/BookWriting.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "NativeServices/PictureDevice/ObjectListing.h"
#include "NativeServices/PictureDevice/XTPictureDevice.h"
#include "NativeServices/PictureDevice/datasets/ContactRecords.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/PTPCodes.h"
#include "tools/BookText.h"
#include "tools/LocalFiles.h"
#include "tools/PutCommand.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

bool isGood(Status status) {
  return status == status::kOK || status == status::kPTPOK;
}

/// A folder of the temporary folder that goes with its owner.
class PrivateFolder {
 public:
  PrivateFolder() {
    std::string pattern = (fs::temp_directory_path() / "tarvoctl-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// The texts of a contact as a data set has them.
std::vector<std::string> textsOf(const Contact& contact) {
  return {contact.email.value_or(""),
          contact.nickname.value_or(""),
          contact.firstName,
          contact.lastName,
          contact.street,
          contact.city,
          contact.state,
          contact.country,
          contact.zip,
          contact.phone};
}

/// One writing.
class Writing {
 public:
  Writing(const OpenedDevice& device, BookPlan& plan, const std::string& encoding)
      : device_(device), plan_(plan), encoding_(encoding) {}

  BookWritten run(BookWay way) {
    try {
      if (way == BookWay::kSingly) writeSingly();
      if (way == BookWay::kFile) writeFile();
      if (way == BookWay::kSynchronisation) synchronise();
    } catch (const Exception& exception) {
      result_.status = status::kICAProtocolError;
      result_.why = exception.reason();
    }
    result_.pending = linesOf(left_);
    return std::move(result_);
  }

 private:
  void writeSingly() {
    left_ = plan_.changes;
    while (!left_.added.empty()) {
      if (!create(*left_.added.front())) return;
      settle(left_.added);
    }
    while (!left_.changed.empty()) {
      if (!update(*left_.changed.front().after)) return;
      settle(left_.changed);
    }
    if (!writeGroups()) return;
    // Only now does no group name them any more.
    while (!left_.removed.empty()) {
      if (!isDone(device_.device().deleteVendorObjectPTP(left_.removed.front()->handle))) return;
      settle(left_.removed);
    }
  }

  bool isDone(Status status) {
    if (isGood(status)) return true;
    result_.status = device_.explained(status);
    return false;
  }

  bool create(Contact& contact) {
    auto dataSet = dataSetOf(contact);
    std::uint32_t handle = 0;
    if (!isDone(device_.transactions().createFormat(ptp::XTD_CONTACT, dataSet, &handle)))
      return false;
    if (handle == 0) {
      result_.status = status::kICAProtocolError;
      result_.why = "the device gave the new contact no handle";
      return false;
    }
    contact.handle = handle;
    contact.action = DataSyncAction::kNone;
    return true;
  }

  bool update(Contact& contact) {
    auto dataSet = dataSetOf(contact);
    if (!isDone(device_.transactions().updateObject(contact.handle, ptp::XTD_CONTACT, dataSet)))
      return false;
    contact.action = DataSyncAction::kNone;
    return true;
  }

  static XTMutablePTPDataSet dataSetOf(const Contact& contact) {
    auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder);
    storeContact(dataSet, contact);
    return dataSet;
  }

  /// All groups by the library's synchronisation. Where it ends early, those that still have their
  /// action were not written; a group that was to go and one that is gone look alike to it.
  bool writeGroups() {
    if (!left_.hasGroups()) return true;
    const Status status = device_.device().setAddressBookDict(plan_.book);
    const auto isWritten = [](const ContactGroupPointer& group) {
      return group->action == DataSyncAction::kNone;
    };
    while (!left_.addedGroups.empty() && isWritten(left_.addedGroups.front()))
      settle(left_.addedGroups);
    while (!left_.changedGroups.empty() && isWritten(left_.changedGroups.front().group))
      settle(left_.changedGroups);
    if (!isDone(status)) return false;
    while (!left_.removedGroups.empty())
      settle(left_.removedGroups);
    return true;
  }

  void writeFile() {
    left_ = plan_.changes;
    const auto text = bookText(plan_.book, encoding_, result_.why);
    const PrivateFolder folder;
    const auto made = text && !folder.path().empty()
                          ? writeWhole(folder.path(), "DCEMAIL.ABK",
                                       std::as_bytes(std::span(*text)), ExistingFile::kRefuse)
                          : WrittenFile{.status = status::kIOError};
    if (made.status != status::kOK) {
      result_.status = made.status;
      if (result_.why.empty()) result_.why = made.why;
      result_.outcome = "The device was not touched.";
      return;
    }
    if (isDone(device_.device().setAddressBook(made.path))) {
      result_.done = linesOf(std::exchange(left_, {}));
      return;
    }
    sayWhatIsThere();
  }

  /// A file that was to be replaced is deleted first.
  void sayWhatIsThere() {
    ObjectHandles files;
    if (listObjects(device_.transactions(), ptp::XTD_ADDRESS_BOOK_FILE, files) != status::kOK)
      result_.outcome = "What the device holds now is not known.";
    else if (files.empty())
      result_.outcome =
          "The device has no address book now: the old one is gone, the new one is "
          "not there.";
    else
      result_.outcome = "The device still has an address-book file.";
  }

  void synchronise() {
    left_ = plan_.changes;
    const bool isSingle = keepsContactsSingly(device_);
    if (!isSingle) {
      if (isDone(device_.device().setAddressBookDict(plan_.book))) {
        left_ = {};
        result_.done = {"an empty file"};
      } else {
        sayWhatIsThere();
      }
      return;
    }
    writeGroups();
  }

  /// The first of a list is written.
  template <typename List>
  void settle(List& list) {
    BookChanges one;
    if constexpr (std::is_same_v<List, Contacts>) {
      (&list == &left_.removed ? one.removed : one.added).push_back(list.front());
    } else if constexpr (std::is_same_v<List, ContactGroups>) {
      (&list == &left_.removedGroups ? one.removedGroups : one.addedGroups).push_back(list.front());
    } else if constexpr (std::is_same_v<List, std::vector<BookChanges::Contact>>) {
      one.changed.push_back(list.front());
    } else {
      one.changedGroups.push_back(list.front());
    }
    list.erase(list.begin());
    for (auto& line : linesOf(one))
      result_.done.push_back(std::move(line));
  }

  static std::vector<std::string> linesOf(const BookChanges& changes) { return inWords(changes); }

  const OpenedDevice& device_;
  BookPlan& plan_;
  const std::string& encoding_;
  BookChanges left_;  ///< what is still to be written
  BookWritten result_;
};

/// Whether a contact of the book has more to it than the device's file can hold.
bool hasMoreThanLabels(const AddressBook& book) {
  return std::ranges::any_of(*book.contacts, [](const ContactPointer& contact) {
    const auto texts = textsOf(*contact);
    return std::any_of(texts.begin() + 2, texts.end(),
                       [](const auto& text) { return !text.empty(); });
  });
}

}  // namespace

std::vector<std::string> warningsOf(BookWay way, const OpenedDevice& device, const BookPlan& plan) {
  std::vector<std::string> warnings;
  if (way == BookWay::kSynchronisation && keepsContactsSingly(device))
    warnings.emplace_back(
        "Groups alone are sent: contacts stay on the device as they are, and no change of a "
        "contact reaches it.");
  if (way == BookWay::kSynchronisation && !keepsContactsSingly(device))
    warnings.emplace_back(
        "An EMPTY file is sent, which is all that synchronising this device does: it will have no "
        "contacts afterwards. Without --sync the contacts are sent.");
  if (way == BookWay::kFile)
    warnings.emplace_back(
        "The device keeps all contacts in one file. The old file is deleted and a new one, with "
        "all contacts, is sent in its place.");
  if (way == BookWay::kFile && hasMoreThanLabels(plan.book))
    warnings.emplace_back(
        "The device keeps the nickname and the e-mail address of a contact, and nothing else: "
        "names, addresses and phone numbers stay here.");
  if (way == BookWay::kSingly && std::ranges::any_of(plan.changes.changed, [](const auto& each) {
        return each.before->image != 0;
      }))
    warnings.emplace_back(
        "A contact that changes may lose its picture on the device: pictures are not sent.");
  return warnings;
}

std::string obstacleTo(BookWay way, const BookPlan& plan, const std::string& encoding) {
  std::string why;
  if (way == BookWay::kFile && !bookText(plan.book, encoding, why)) return why;
  if (way != BookWay::kSingly) return {};
  for (const auto& contact : *plan.book.contacts) {
    if (contact->action != DataSyncAction::kAdd && contact->action != DataSyncAction::kUpdate)
      continue;
    for (const auto& text : textsOf(*contact)) {
      // A longer text would wrap its count.
      if (nameLength(text) >= kNameLimit)
        return contactInWords(*contact) + ": it has a text of 255 characters or more";
    }
  }
  for (const auto& group : *plan.book.groups) {
    if (nameLength(group->name) >= kNameLimit)
      return "group " + printable(group->name) + ": its name has 255 characters or more";
  }
  return {};
}

BookWritten writeBook(BookWay way, const OpenedDevice& device, BookPlan& plan,
                      const std::string& encoding) {
  return Writing(device, plan, encoding).run(way);
}

}  // namespace tarvo::tools

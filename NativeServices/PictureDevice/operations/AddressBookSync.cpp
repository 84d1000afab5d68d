#include "NativeServices/PictureDevice/operations/AddressBookSync.h"

#include <limits>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "NativeServices/Logging.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/operations/ObjectChanges.h"
#include "NativeServices/PictureDevice/operations/ObjectSending.h"
#include "Utilities/Exception.h"
#include "Utilities/PTPCodes.h"

namespace tarvo {
namespace {

constexpr std::uint32_t kUnlimited = std::numeric_limits<std::uint32_t>::max();

/// What a device keeps that does not tell its limits.
XT_AddressBookInfo defaultLimits(bool hasGroups) {
  return {.version = 0,
          .characterTypeLimitation = 3,
          .maxAddresses = 100,
          .maxGroups = hasGroups ? kUnlimited : 0,
          .maxAddressesPerGroup = kUnlimited,
          .maxAddressLengthInBytes = 100,
          .maxNicknameLengthInBytes = 100,
          .maxGroupNameLengthInBytes = hasGroups ? 100U : 0U};
}

}  // namespace

Status fillInABDict(AddressBook& book, const XT_AddressBookInfo* info, const CodeList& operations) {
  const bool hasDataSets = containsCode(operations, ptp::XTO_GET_DATASET);
  book.limits = info ? *info : defaultLimits(hasDataSets);
  book.supportsGroups = info ? info->maxGroups != 0 : hasDataSets;
  return status::kOK;
}

Status AddressBookReading::fillInABDict(AddressBook& book, const ObjectHandles& contacts,
                                        const ObjectHandles& groups) {
  // Before the reading: what an exception cuts off counts as missing.
  report_.listed += contacts.size() + groups.size();
  return untilPTPException(report_, [&] {
    Contacts allContacts;
    ContactGroups allGroups;
    ContactsByHandle map;
    Status status = readContacts(contacts, allContacts, map);
    if (status == status::kOK) status = readGroups(groups, map, allGroups);
    if (status != status::kOK) return status;
    // Both at the end: a book that could be read in part only keeps none of it, so that nobody
    // takes it for the whole and writes it back.
    book.groups = std::move(allGroups);
    book.contacts = std::move(allContacts);
    return status;
  });
}

Status AddressBookReading::readContacts(const ObjectHandles& handles, Contacts& contacts,
                                        ContactsByHandle& map) {
  for (const std::uint32_t handle : handles) {
    auto dataSet = device_.getDataSet(handle, ptp::XTD_CONTACT);
    if (!dataSet) {
      // One contact that is missing ends the reading, for groups name their members by handle and
      // could not be resolved.
      report_.leaveOut("contact", handle, device_.lastOutcome());
      return status::kPTPGeneralError;
    }
    auto contact = std::make_shared<Contact>(scanContact(*dataSet));
    report_.take("contact", handle, wasShort(device_, *dataSet, handle));
    contact->handle = handle;
    contact->action = DataSyncAction::kNone;
    map[handle] = contact;
    contacts.push_back(std::move(contact));
  }
  return status::kOK;
}

Status AddressBookReading::readGroups(const ObjectHandles& handles, const ContactsByHandle& map,
                                      ContactGroups& groups) {
  for (const std::uint32_t handle : handles) {
    auto dataSet = device_.getDataSet(handle, ptp::XTD_GROUP);
    if (!dataSet) {
      report_.leaveOut("group", handle, device_.lastOutcome());
      return status::kPTPGeneralError;
    }
    auto group = std::make_shared<ContactGroup>(scanGroupAndAssignContacts(*dataSet, map));
    report_.take("group", handle, wasShort(device_, *dataSet, handle));
    group->handle = handle;
    group->action = DataSyncAction::kNone;
    groups.push_back(std::move(group));
  }
  return status::kOK;
}

namespace {

/// Bytes of a group with a short name and some members.
constexpr std::uint32_t kGroupReserve = 68;
constexpr char kAddressBookFile[] = "DCEMAIL.ABK";
/// A text that the file's encoding does not have.
constexpr Status kNotConvertible = -8757;

void require(bool satisfied, const std::string& description) {
  if (!satisfied) raiseAssertion(description);
}

bool isUnchanged(const ContactGroup& group) {
  return group.action == DataSyncAction::kAbsent || group.action == DataSyncAction::kNone;
}

}  // namespace

Status AddressBookWriting::setAddressBookDictToDatasets(AddressBook& book) {
  // The contacts stay as they are and are not sent: intended, see docs/oddities.md.
  ContactGroups groups;
  for (const auto& group : book.groups.value_or(ContactGroups())) {
    bool keep = true;
    const Status status = isUnchanged(*group) ? status::kOK : writeGroup(*group, keep);
    // The list is left as it was: what has been sent shows in the actions of its groups.
    if (status != status::kOK) return status;
    if (keep) groups.push_back(group);
  }
  book.groups = std::move(groups);
  return status::kOK;
}

Status AddressBookWriting::writeGroup(ContactGroup& group, bool& keep) {
  if (group.action == DataSyncAction::kDelete) {
    keep = false;
    return deleteGroup(group);
  }
  const Status status = sendGroup(group);
  if (status == status::kOK) group.action = DataSyncAction::kNone;
  return status;
}

Status AddressBookWriting::deleteGroup(const ContactGroup& group) {
  require(group.handle != 0, "Group handle nil for group " + group.name);
  return note(DataSyncAction::kDelete, group.name, group.handle,
              ObjectChanges(device_).deleteVendorObject(group.handle));
}

Status AddressBookWriting::sendGroup(ContactGroup& group) {
  std::vector<std::uint32_t> members;
  for (const auto& member : group.members) {
    require(member->handle != 0, "Bogus group member handle");
    members.push_back(member->handle);
  }
  auto dataSet = XTMutablePTPDataSet::dataSetWithByteOrder(kPTPByteOrder, kGroupReserve);
  storeContactGroup(dataSet, group, members);
  if (group.action == DataSyncAction::kUpdate) {
    require(group.handle != 0, "Bogus group handle");
    return note(DataSyncAction::kUpdate, group.name, group.handle,
                device_.updateObject(group.handle, ptp::XTD_GROUP, dataSet));
  }
  // Any other action sends nothing (docs/oddities.md).
  if (group.action != DataSyncAction::kAdd) return status::kOK;
  std::uint32_t handle = 0;
  const Status status = device_.createFormat(ptp::XTD_GROUP, dataSet, &handle);
  note(DataSyncAction::kAdd, group.name, handle, status);
  if (status != status::kOK) return status;
  require(handle != 0, "Bogus handle!");
  group.handle = handle;
  return status;
}

Status AddressBookWriting::setAddressBookDictToABKFile(AddressBook& book) {
  if (!device_.facts().capabilities.deviceSupportsAddressBooks) {
    return status::kPTPOperationNotSupported;
  }
  // An absent list would mean "do not touch", and this operation empties it.
  require(book.contacts.has_value(), "setAddressBookDict requires a contacts array");
  for (const auto& contact : *book.contacts) {
    TraceLog::traceWithTag("Deleting " + contact->nickname.value_or("") + " <" +
                               contact->email.value_or("") + "> from addresses",
                           XTOptDebugLog);
  }
  // The text stays empty: intended, see docs/oddities.md.
  const std::string text;
  if (!isASCII(text)) {
    TraceLog::trace("Could not convert address book to ASCII.");
    return kNotConvertible;
  }
  // Goes on after a failure: the status that counts is that of the new file.
  const Status deleted = deleteFiles();
  if (deleted != status::kOK) {
    TraceLog::trace("old address books cannot be deleted: 0x%x", static_cast<unsigned>(deleted));
  }
  XTExtendedObjectInfo info;
  info.setFileName(kAddressBookFile);
  info.setCompressedSize(static_cast<std::uint32_t>(text.size()));
  info.setObjFmtCode(ptp::XTD_ADDRESS_BOOK_FILE);
  std::uint32_t handle = 0;
  const Status status =
      ObjectSending(device_, maker_).sendData(std::as_bytes(std::span(text)), info, 0, 0, &handle);
  note(DataSyncAction::kAdd, kAddressBookFile, handle, status);
  if (status == status::kOK) book.contacts = Contacts();
  return status;
}

Status AddressBookWriting::deleteFiles() {
  ObjectHandles files;
  Status status = listObjects(device_, ptp::XTD_ADDRESS_BOOK_FILE, files);
  for (auto file = files.begin(); status == status::kOK && file != files.end(); ++file)
    status = note(DataSyncAction::kDelete, kAddressBookFile, *file,
                  ObjectChanges(device_).deleteObject(*file));
  return status;
}

Status AddressBookWriting::note(DataSyncAction action, const std::string& what,
                                std::uint32_t handle, Status status) {
  report_.steps.push_back({action, what, handle, status});
  return status;
}

}  // namespace tarvo

#include "NativeServices/PictureDevice/operations/AddressBookReading.h"

#include <limits>
#include <memory>
#include <utility>

#include "NativeServices/PictureDevice/datasets/ContactRecords.h"
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
  report_.listed += contacts.size() + groups.size();
  return untilPTPException(report_, [&] {
    Contacts allContacts;
    ContactGroups allGroups;
    ContactsByHandle map;
    Status status = readContacts(contacts, allContacts, map);
    if (status == status::kOK) status = readGroups(groups, map, allGroups);
    if (status != status::kOK) return status;
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

}  // namespace tarvo

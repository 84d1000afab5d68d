#include "simulator/ptp/DatasetOperations.h"

#include <algorithm>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

void complain(PTPReply& reply, std::uint16_t code, std::string complaint) {
  reply.code = code;
  reply.complaints.push_back(std::move(complaint));
}

/// Lengths are limited in UTF-16 units.
std::string tooLong(const char* what, const std::u16string& text, std::uint32_t limit) {
  if (text.size() <= limit) return {};
  return formatted("%s has %zu units, the limit is %u", what, text.size(), limit);
}

}  // namespace

void DatasetOperations::addTo(OperationTable& table) {
  using enum DataDirection;
  using Self = DatasetOperations;
  table[ptp::XTO_GET_DATASET] = {kFromDevice, 2, 2, calling(this, &Self::getDataset)};
  table[ptp::XTO_CREATE_DATASET] = {kToDevice, 1, 1, calling(this, &Self::createDataset)};
  table[ptp::XTO_UPDATE_DATASET] = {kToDevice, 2, 2, calling(this, &Self::updateDataset)};
  table[ptp::XTO_MODIFY_ASSET_LIST] = {kNone, 3, 3, calling(this, &Self::modifyAssetList)};
}

bool DatasetOperations::find(std::uint32_t handle, std::uint32_t format, PTPReply& reply) const {
  const auto object = state_.objects.object(handle);
  if (!object) {
    reply.code = kInvalidObjectHandle;
    return false;
  }
  if (object->traits.format == format && isDatasetFormat(object->traits.format)) return true;
  complain(reply, kInvalidObjectFormatCode,
           formatted("object %u of format 0x%04X was named as a data set of format 0x%04X", handle,
                     object->traits.format, format));
  return false;
}

PTPReply DatasetOperations::getDataset(const PTPRequest& request) {
  PTPReply made;
  if (!find(request.parameters[0], request.parameters[1], made)) return made;
  made.data = ObjectStore::content(*state_.objects.object(request.parameters[0]));
  return made;
}

// What a host may send.

std::string DatasetOperations::unknownContact(const Handles& handles) const {
  for (const auto handle : handles) {
    const auto object = state_.objects.object(handle);
    if (!object || object->traits.format != ptp::XTD_CONTACT) {
      return formatted("handle %u is that of no contact", handle);
    }
  }
  return {};
}

std::string DatasetOperations::unknownAsset(const Handles& handles) const {
  for (const auto handle : handles) {
    if (!state_.objects.object(handle)) return formatted("handle %u is that of no object", handle);
  }
  return {};
}

// Pictures and groups of a contact are the device's own affair: a host sends none.
std::string DatasetOperations::problemOfContact(const ContactRecord& contact) const {
  if (contact.image != 0) return "the contact has a picture";
  if (!contact.groups.empty()) return "the contact has groups";
  const auto& limits = state_.description.vendor.addressBook;
  if (!limits) return {};
  auto problem = tooLong("the address of a contact", contact.texts[kContactEmail],
                         limits->maxAddressLengthInBytes);
  if (!problem.empty()) return problem;
  return tooLong("the nickname of a contact", contact.texts[kContactNickname],
                 limits->maxNicknameLengthInBytes);
}

std::string DatasetOperations::problemOfGroup(const GroupRecord& group) const {
  auto problem = unknownContact(group.members);
  if (problem.empty() && group.image != 0) problem = unknownAsset({group.image});
  const auto& limits = state_.description.vendor.addressBook;
  if (!problem.empty() || !limits) return problem;
  if (group.members.size() > limits->maxAddressesPerGroup) {
    return formatted("a group has %zu members, the limit is %u", group.members.size(),
                     limits->maxAddressesPerGroup);
  }
  return tooLong("the name of a group", group.name, limits->maxGroupNameLengthInBytes);
}

std::string DatasetOperations::problemOf(const DatasetRecord& record) const {
  if (const auto* contact = std::get_if<ContactRecord>(&record)) return problemOfContact(*contact);
  if (const auto* group = std::get_if<GroupRecord>(&record)) return problemOfGroup(*group);
  if (const auto* order = std::get_if<EmailOrderRecord>(&record)) {
    auto problem = unknownContact(order->recipients);
    if (!problem.empty()) return problem;
  }
  return unknownAsset(assetsOf(record));
}

std::optional<DatasetRecord> DatasetOperations::received(std::uint16_t format,
                                                         const PTPRequest& request,
                                                         PTPReply& reply) const {
  auto record = parseDataset(format, allBytes(*request.data));
  if (!record) {
    complain(reply, kGeneralError, formatted("the data set of format 0x%04X is malformed", format));
    return std::nullopt;
  }
  auto problem = problemOf(*record);
  if (problem.empty()) return record;
  complain(reply, kInvalidParameter,
           formatted("data set of format 0x%04X: %s", format, problem.c_str()));
  return std::nullopt;
}

bool DatasetOperations::hasRoomFor(std::uint16_t format) const {
  const auto& limits = state_.description.vendor.addressBook;
  if (!limits) return true;
  const auto count = state_.datasets.count(format);
  if (format == ptp::XTD_CONTACT) return count < limits->maxAddresses;
  return format != ptp::XTD_GROUP || count < limits->maxGroups;
}

PTPReply DatasetOperations::createDataset(const PTPRequest& request) {
  PTPReply made;
  const auto format = static_cast<std::uint16_t>(request.parameters[0]);
  const auto& formats = state_.description.vendor.supportedDatasets;
  const bool listed = !formats || std::ranges::count(*formats, format) > 0;
  if (request.parameters[0] > 0xFFFF || !isDatasetFormat(format) || !listed) {
    complain(made, kInvalidObjectFormatCode,
             formatted("the device has no data sets of format 0x%04X", request.parameters[0]));
    return made;
  }
  const auto record = received(format, request, made);
  if (!record) return made;
  if (!hasRoomFor(format)) {
    complain(made, kStoreFull, formatted("more data sets of format 0x%04X than the limit", format));
    return made;
  }
  const auto* store = state_.datasets.store();
  if (store == nullptr) return refuse(kInvalidStorageID);
  if (store->description.access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  made.parameters = {state_.datasets.add(format, *record)};
  return made;
}

// A contact belongs to the groups that name it, whatever a host sends; its picture is lost, as a
// host sends none.
PTPReply DatasetOperations::updateDataset(const PTPRequest& request) {
  PTPReply made;
  const auto handle = request.parameters[0];
  if (!find(handle, request.parameters[1], made)) return made;
  auto record = received(static_cast<std::uint16_t>(request.parameters[1]), request, made);
  if (!record) return made;
  const auto object = *state_.objects.object(handle);
  const auto access = state_.objects.store(object.storage)->description.access;
  if (access != StoreAccess::kReadWrite) return refuse(kStoreReadOnly);
  if (object.traits.isProtected) return refuse(kObjectWriteProtected);
  const auto before = state_.datasets.record(handle);
  if (auto* contact = std::get_if<ContactRecord>(&*record); contact != nullptr && before) {
    contact->groups = std::get<ContactRecord>(*before).groups;
  }
  state_.datasets.replace(handle, *record);
  return made;
}

// An order without pictures is done, and goes.
PTPReply DatasetOperations::modifyAssetList(const PTPRequest& request) {
  PTPReply made;
  const auto handle = request.parameters[0];
  const auto object = state_.objects.object(handle);
  if (!object) return refuse(kInvalidObjectHandle);
  if (request.parameters[2] != 0) {
    complain(made, kInvalidParameter, "XTO_MODIFY_ASSET_LIST with a third parameter");
    return made;
  }
  auto order = state_.datasets.record(handle);
  if (!order || !isOrderFormat(object->traits.format)) {
    complain(made, kInvalidObjectFormatCode, formatted("object %u is no order", handle));
    return made;
  }
  if (!removeAsset(*order, request.parameters[1])) return refuse(kInvalidParameter);
  if (assetsOf(*order).empty()) {
    state_.objects.remove(handle);
  } else {
    state_.datasets.replace(handle, *order);
  }
  return made;
}

}  // namespace tarvo::simulator

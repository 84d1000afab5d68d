#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "NativeServices/PictureDevice/datasets/RecordJSONFields.h"
#include "Utilities/Exception.h"

namespace tarvo {
namespace {

constexpr const char* kHandleKey = "XTPTPObjectHandleKey";
constexpr const char* kActionKey = "XTDataSyncActionKey";
constexpr const char* kMembersKey = "contactGroupMembersKey";
constexpr const char* kContactsKey = "XTAddressBookContactsKey";
constexpr const char* kGroupsKey = "XTAddressBookGroupsKey";
constexpr const char* kSupportsGroupsKey = "XTAddressBookSupportsGroupsKey";
constexpr const char* kAssetsKey = "XTOrderAssetListKey";
constexpr const char* kQuantityKey = "XTPrintOrderQuantityKey";

/// By the number of the action. Any other text is kept as the last, whose name is our own.
constexpr std::array<std::string_view, 6> kActionNames = {"",
                                                          "kSyncDataAction_None",
                                                          "kSyncDataAction_Add",
                                                          "kSyncDataAction_Update",
                                                          "kSyncDataAction_Delete",
                                                          "kSyncDataAction_Other"};

DataSyncAction actionFromText(const std::optional<std::string>& text) {
  if (!text) return DataSyncAction::kAbsent;
  for (std::size_t i = 1; i < kActionNames.size(); ++i) {
    if (kActionNames.at(i) == *text) return static_cast<DataSyncAction>(i);
  }
  // An action of a later version must not be taken for one of these, so it is none of them and does
  // nothing.
  return DataSyncAction::kOther;
}

/// The limits are those of XT_AddressBookInfo under the keys of the address book.
template <ConstOrNot<XT_AddressBookInfo> Limits, typename Visitor>
void visitLimits(Limits& limits, Visitor&& visit) {
  visit("XTAddressBookVersionKey", limits.version);
  visit("XTAddressBookCharTypeLimitKey", limits.characterTypeLimitation);
  visit("XTAddressBookMaxAddressesKey", limits.maxAddresses);
  visit("XTAddressBookMaxGroupsKey", limits.maxGroups);
  visit("XTAddressBookMaxAddressesPerGroupKey", limits.maxAddressesPerGroup);
  visit("XTAddressBookMaxAddressLengthKey", limits.maxAddressLengthInBytes);
  visit("XTAddressBookMaxNicknameLengthKey", limits.maxNicknameLengthInBytes);
  visit("XTAddressBookMaxGroupNameLengthKey", limits.maxGroupNameLengthInBytes);
}

void putHandle(PropertyDictionary& json, std::uint32_t handle) {
  if (handle != 0) json[kHandleKey] = handle;
}

/// What an entry of the book has beside its record.
template <typename Entry>
void putEntry(PropertyDictionary& json, const Entry& entry) {
  putHandle(json, entry.handle);
  if (entry.action != DataSyncAction::kAbsent)
    json[kActionKey] = kActionNames.at(static_cast<std::size_t>(entry.action));
}

template <typename Entry>
void takeEntry(FieldsFromJSON& fields, Entry& entry) {
  std::optional<std::string> action;
  fields(kHandleKey, entry.handle);
  fields(kActionKey, action);
  fields.finish();
  entry.action = actionFromText(action);
}

bool isNothing(const PropertyDictionary& value) {
  const auto* text = value.get_ptr<const std::string*>();
  return value == 0 || (text && text->empty()) || (value.is_array() && value.empty());
}

/// Whoever was never in a data set has no such fields, rather than empty ones.
void eraseFieldsWithoutValue(PropertyDictionary& contact) {
  for (auto field = contact.begin(); field != contact.end();) {
    // These two are what a contact in a file consists of, and are shown even where they are empty.
    const bool stays = field.key() == "kABEmailProperty" || field.key() == "kABNicknameProperty";
    field = !stays && isNothing(*field) ? contact.erase(field) : std::next(field);
  }
}

/// Calls `take` with each element of the array under `key`. What it refuses is refused with the
/// element's place in front, for one wrong contact is to be found among thousands.
template <typename Take>
void takeElements(const PropertyDictionary& json, const char* key, const Take& take) {
  const PropertyDictionary& array = arrayFromJSON(json.at(key), key);
  if (array.size() > kMostBookEntries)
    refuseValue(key, "has more than " + std::to_string(kMostBookEntries) + " entries");
  for (std::size_t i = 0; i < array.size(); ++i) {
    try {
      take(array[i]);
    } catch (const Exception& exception) {
      throw Exception(exception.name(),
                      std::string(key) + '[' + std::to_string(i) + "]: " + exception.reason());
    }
  }
}

Contacts contactsFromJSON(const PropertyDictionary& json, ContactsByHandle& byHandle) {
  Contacts contacts;
  takeElements(json, kContactsKey, [&](const PropertyDictionary& each) {
    auto contact = std::make_shared<Contact>(contactFromJSON(each));
    const std::uint32_t handle = contact->handle;
    // A group that names the handle would mean either of the two.
    if (handle != 0 && !byHandle.emplace(handle, contact).second)
      refuseValue(kHandleKey, std::to_string(handle) + " is another contact's already");
    contacts.push_back(std::move(contact));
  });
  return contacts;
}

ContactGroup contactGroupFromJSON(const PropertyDictionary& json,
                                  const ContactsByHandle& contacts) {
  ContactGroup group;
  ContactGroupRecord record;
  FieldsFromJSON fields(json, kAnyLength);
  visitFields(record, fields);
  takeEntry(fields, group);
  group.name = std::move(record.name);
  group.image = record.image;
  for (const std::uint32_t handle : record.members) {
    const auto found = contacts.find(handle);
    if (found == contacts.end())
      // Refused, where the codec raises an assertion: this is a user's file.
      refuseValue(kMembersKey,
                  "names " + std::to_string(handle) + ", which is no contact's handle");
    group.members.push_back(found->second);
  }
  return group;
}

template <typename Entries, typename Convert>
PropertyDictionary jsonFromEntries(const Entries& entries, const Convert& convert) {
  auto json = PropertyDictionary::array();
  for (const auto& entry : entries)
    json.push_back(convert(*entry));
  return json;
}

/// The record, where the order comes from one, and what it was resolved to.
template <typename Order>
PropertyDictionary jsonFromOrder(const Order& order) {
  auto json = order.record ? jsonFromRecord(*order.record) : PropertyDictionary::object();
  json[kAssetsKey] = order.assets;
  putHandle(json, order.handle);
  return json;
}

}  // namespace

PropertyDictionary jsonFromContact(const Contact& contact) {
  PropertyDictionary json = jsonFromRecord(contact);
  if (!contact.uid) eraseFieldsWithoutValue(json);
  putEntry(json, contact);
  return json;
}

PropertyDictionary jsonFromContactGroup(const ContactGroup& group) {
  ContactGroupRecord record = {.name = group.name, .image = group.image, .members = {}};
  for (const ContactPointer& member : group.members)
    record.members.push_back(member->handle);
  PropertyDictionary json = jsonFromRecord(record);
  putEntry(json, group);
  return json;
}

PropertyDictionary jsonFromAddressBook(const AddressBook& book) {
  PropertyDictionary json = PropertyDictionary::object();
  visitLimits(book.limits, FieldsToJSON(json));
  json[kSupportsGroupsKey] = book.supportsGroups;
  if (book.contacts) json[kContactsKey] = jsonFromEntries(*book.contacts, jsonFromContact);
  if (book.groups) json[kGroupsKey] = jsonFromEntries(*book.groups, jsonFromContactGroup);
  return json;
}

PropertyDictionary jsonFromEmailOrder(const EmailOrder& order) {
  PropertyDictionary json = jsonFromOrder(order);
  // Of the record, the handles of the recipients' contacts.
  json["XTEmailOrderDestAddressListKey"] = order.destAddresses;
  return json;
}

PropertyDictionary jsonFromPrintOrder(const PrintOrder& order) {
  PropertyDictionary json = jsonFromOrder(order);
  if (!order.record) json[kQuantityKey] = order.quantity;
  return json;
}

PropertyDictionary jsonFromTransferOrder(const TransferOrder& order) {
  PropertyDictionary json = jsonFromRecord(order.record);
  putHandle(json, order.handle);
  return json;
}

Contact contactFromJSON(const PropertyDictionary& json) {
  Contact contact;
  FieldsFromJSON fields(json, kAnyLength);
  visitFields(contact, fields);
  takeEntry(fields, contact);
  return contact;
}

AddressBook addressBookFromJSON(const PropertyDictionary& json) {
  AddressBook book;
  FieldsFromJSON fields(json);
  visitLimits(book.limits, fields);
  // Where the document does not say it: a device that takes no group supports none.
  book.supportsGroups = book.limits.maxGroups != 0;
  fields(kSupportsGroupsKey, book.supportsGroups);
  // Read below, once all handles are known; passed here, so that they do not count as unknown keys.
  fields.pass(kContactsKey);
  fields.pass(kGroupsKey);
  fields.finish();
  ContactsByHandle byHandle;
  if (json.contains(kContactsKey)) book.contacts = contactsFromJSON(json, byHandle);
  if (!json.contains(kGroupsKey)) return book;
  auto& groups = book.groups.emplace();
  takeElements(json, kGroupsKey, [&](const PropertyDictionary& each) {
    groups.push_back(std::make_shared<ContactGroup>(contactGroupFromJSON(each, byHandle)));
  });
  return book;
}

}  // namespace tarvo

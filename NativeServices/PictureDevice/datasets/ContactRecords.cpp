#include "NativeServices/PictureDevice/datasets/ContactRecords.h"

#include <uuid/uuid.h>

#include <array>
#include <string>
#include <utility>

#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "Utilities/Exception.h"

namespace tarvo {

std::string newGUID() {
  uuid_t bytes;
  uuid_generate_random(bytes);
  std::array<char, UUID_STR_LEN> text;
  uuid_unparse_upper(bytes, text.data());
  return text.data();
}

bool identifies(const std::optional<std::string>& uid) {
  uuid_t bytes;
  return uid && uuid_parse(uid->c_str(), bytes) == 0 && uuid_is_null(bytes) == 0;
}

Contact scanContact(XTPTPDataSet& dataSet) {
  Contact contact;
  visitFields(contact, FieldReader(dataSet));
  return contact;
}

void storeContact(XTMutablePTPDataSet& dataSet, const Contact& contact) {
  Contact written = contact;
  if (!written.uid) written.uid = newGUID();
  // Read and never written back, which is intended: a group's record has its members.
  written.image = 0;
  written.associatedGroups.clear();
  visitFields(std::as_const(written), FieldWriter(dataSet));
}

ContactGroupRecord scanContactGroup(XTPTPDataSet& dataSet) {
  ContactGroupRecord record;
  visitFields(record, FieldReader(dataSet));
  return record;
}

void storeContactGroupRecord(XTMutablePTPDataSet& dataSet, const ContactGroupRecord& group) {
  visitFields(group, FieldWriter(dataSet));
}

ContactGroup scanGroupAndAssignContacts(XTPTPDataSet& dataSet, const ContactsByHandle& contacts) {
  ContactGroupRecord record = scanContactGroup(dataSet);
  ContactGroup group;
  group.name = std::move(record.name);
  group.image = record.image;
  for (const std::uint32_t handle : record.members) {
    const auto found = contacts.find(handle);
    if (found != contacts.end() && found->second) group.members.push_back(found->second);
  }
  if (group.members.size() != record.members.size())
    raiseAssertion("Could not find contacts for all members of group " + group.name);
  return group;
}

void storeContactGroup(XTMutablePTPDataSet& dataSet, const ContactGroup& group,
                       std::span<const std::uint32_t> members) {
  storeContactGroupRecord(
      dataSet,
      {.name = group.name, .image = group.image, .members = {members.begin(), members.end()}});
}

}  // namespace tarvo

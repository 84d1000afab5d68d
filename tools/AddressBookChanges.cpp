#include "tools/AddressBookChanges.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "Utilities/NSStringUtilsCategory.h"
#include "platform/foundation/GlibPtr.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

const Contacts kNoContacts;
const ContactGroups kNoGroups;

/// Addresses that differ in the case of letters reach the same person.
std::string folded(const std::string& text) {
  return takeText(g_utf8_casefold(validUTF8(text).c_str(), -1));
}

struct Field {
  const char* name;
  std::string Contact::*text;
};

constexpr std::array kFields = {
    Field{"first name", &Contact::firstName}, Field{"last name", &Contact::lastName},
    Field{"street", &Contact::street},        Field{"city", &Contact::city},
    Field{"state", &Contact::state},          Field{"country", &Contact::country},
    Field{"postcode", &Contact::zip},         Field{"phone", &Contact::phone}};

std::vector<std::string> differences(const Contact& before, const Contact& after, bool onlyLabels) {
  std::vector<std::string> names;
  if (before.email.value_or("") != after.email.value_or("")) names.emplace_back("e-mail");
  if (before.nickname.value_or("") != after.nickname.value_or("")) names.emplace_back("nickname");
  if (onlyLabels) return names;
  for (const auto& field : kFields) {
    if (before.*field.text != after.*field.text) names.emplace_back(field.name);
  }
  if (before.sharingPref != after.sharingPref) names.emplace_back("sharing preference");
  if (before.defaultNumPrints != after.defaultNumPrints) names.emplace_back("number of prints");
  return names;
}

/// Finds contacts of the device, each once.
class Matcher {
 public:
  explicit Matcher(const Contacts& contacts) {
    for (const auto& contact : contacts) {
      if (contact->uid && !contact->uid->empty()) byUID_.emplace(folded(*contact->uid), contact);
      if (contact->email) byEmail_.emplace(folded(*contact->email), contact);
    }
  }

  ContactPointer take(const Contact& wanted) {
    auto found = wanted.uid ? find(byUID_, *wanted.uid) : nullptr;
    if (!found && wanted.email) found = find(byEmail_, *wanted.email);
    if (found) taken_.insert(found.get());
    return found;
  }
  bool isTaken(const ContactPointer& contact) const { return taken_.contains(contact.get()); }

 private:
  using Index = std::multimap<std::string, ContactPointer>;

  ContactPointer find(const Index& index, const std::string& key) const {
    const auto [begin, end] = index.equal_range(folded(key));
    const auto found =
        std::find_if(begin, end, [this](const auto& entry) { return !isTaken(entry.second); });
    return found == end ? nullptr : found->second;
  }

  Index byUID_;
  Index byEmail_;
  std::set<const Contact*> taken_;
};

class Planning {
 public:
  Planning(const AddressBook& onDevice, const AddressBook& wanted, const PlanOptions& options)
      : device_(onDevice),
        wanted_(wanted),
        options_(options),
        matcher_(onDevice.contacts ? *onDevice.contacts : kNoContacts) {
    plan_.book.limits = onDevice.limits;
    plan_.book.supportsGroups = onDevice.supportsGroups;
    plan_.book.contacts.emplace();
    plan_.book.groups.emplace();
  }

  BookPlan run() {
    planContacts();
    if (!options_.keepsOnlyLabels) planGroups();
    for (const auto& contact : plan_.changes.removed)
      plan_.book.contacts->push_back(contact);
    for (const auto& group : plan_.changes.removedGroups)
      plan_.book.groups->push_back(group);
    return std::move(plan_);
  }

 private:
  /// Puts a copy of `contact` into the book; `original` finds it again as a member.
  ContactPointer put(const ContactPointer& original, Contact contact, DataSyncAction action) {
    contact.action = action;
    auto copy = std::make_shared<Contact>(std::move(contact));
    planned_[original.get()] = copy;
    return copy;
  }

  void planContacts() {
    for (const auto& contact : wanted_.contacts ? *wanted_.contacts : kNoContacts)
      planWanted(contact);
    for (const auto& contact : device_.contacts ? *device_.contacts : kNoContacts) {
      if (matcher_.isTaken(contact)) continue;
      const bool stays = options_.keepsOthers || options_.leavesContacts;
      const auto copy =
          put(contact, *contact, stays ? DataSyncAction::kNone : DataSyncAction::kDelete);
      (stays ? *plan_.book.contacts : plan_.changes.removed).push_back(copy);
    }
  }

  void planWanted(const ContactPointer& contact) {
    if (contact->action == DataSyncAction::kDelete) return;
    const auto there = matcher_.take(*contact);
    if (!there) {
      // Groups alone change: a person whom the device does not know stays unknown to it.
      if (options_.leavesContacts) return;
      Contact added = *contact;
      added.handle = 0;
      plan_.changes.added.push_back(put(contact, std::move(added), DataSyncAction::kAdd));
      plan_.book.contacts->push_back(plan_.changes.added.back());
      return;
    }
    Contact after = options_.leavesContacts ? *there : *contact;
    after.uid = there->uid;
    after.handle = there->handle;
    after.image = there->image;
    after.associatedGroups = there->associatedGroups;
    if (options_.wantedIsPartial) {
      after.sharingPref = there->sharingPref;
      after.defaultNumPrints = there->defaultNumPrints;
    }
    const auto fields = differences(*there, after, options_.keepsOnlyLabels);
    const auto copy = put(contact, std::move(after),
                          fields.empty() ? DataSyncAction::kNone : DataSyncAction::kUpdate);
    planned_[there.get()] = copy;
    plan_.book.contacts->push_back(copy);
    if (!fields.empty()) plan_.changes.changed.push_back({there, copy, fields});
  }

  /// The members of `group` as the book has them; those that go, or are not there, are left out.
  Contacts membersOf(const ContactGroup& group) const {
    Contacts members;
    std::set<const Contact*> seen;
    for (const auto& member : group.members) {
      const auto found = planned_.find(member.get());
      if (found == planned_.end() || found->second->action == DataSyncAction::kDelete) continue;
      if (seen.insert(found->second.get()).second) members.push_back(found->second);
    }
    return members;
  }

  void planGroups() {
    std::map<std::string, ContactGroupPointer> there;
    for (const auto& group : device_.groups ? *device_.groups : kNoGroups)
      there.emplace(group->name, group);
    const bool saysGroups = wanted_.groups.has_value();
    for (const auto& group : saysGroups ? *wanted_.groups : kNoGroups) {
      if (group->action == DataSyncAction::kDelete) continue;
      const auto found = there.find(group->name);
      if (found == there.end()) {
        addGroup(*group);
      } else {
        changeGroup(*found->second, membersOf(*group));
        there.erase(found);
      }
    }
    // In the order of the device.
    for (const auto& group : device_.groups ? *device_.groups : kNoGroups) {
      const auto found = there.find(group->name);
      if (found != there.end() && found->second == group) leaveGroup(*group, saysGroups);
    }
  }

  void addGroup(const ContactGroup& group) {
    auto added = std::make_shared<ContactGroup>(group);
    added->handle = 0;
    added->image = 0;
    added->members = membersOf(group);
    added->action = DataSyncAction::kAdd;
    plan_.changes.addedGroups.push_back(added);
    plan_.book.groups->push_back(std::move(added));
  }

  void changeGroup(const ContactGroup& there, Contacts members) {
    auto after = std::make_shared<ContactGroup>(there);
    const Contacts before = membersOf(there);
    const std::set<ContactPointer> former(before.begin(), before.end());
    const auto stayed = static_cast<std::size_t>(std::ranges::count_if(
        members, [&](const ContactPointer& member) { return former.contains(member); }));
    const std::size_t more = members.size() - stayed;
    const std::size_t less = there.members.size() - stayed;
    // Cards stand in an order of their own, which says nothing of that in a group.
    if (options_.wantedIsPartial && more == 0 && less == 0) members = before;
    const bool isSame = more == 0 && less == 0 && members == before;
    after->members = std::move(members);
    after->action = isSame ? DataSyncAction::kNone : DataSyncAction::kUpdate;
    if (!isSame) {
      std::string how = more > 0 ? std::to_string(more) + " more" : "";
      if (less > 0) how += (how.empty() ? "" : ", ") + std::to_string(less) + " less";
      plan_.changes.changedGroups.push_back({after, how.empty() ? "order" : how});
    }
    plan_.book.groups->push_back(std::move(after));
  }

  /// A group that only the device has.
  void leaveGroup(const ContactGroup& group, bool saysGroups) {
    // A group without members is in no card.
    const bool isUnknown = options_.wantedIsPartial && group.members.empty();
    if (!saysGroups || options_.keepsOthers || isUnknown) {
      changeGroup(group, membersOf(group));
      return;
    }
    auto removed = std::make_shared<ContactGroup>(group);
    removed->members = {};
    removed->action = DataSyncAction::kDelete;
    plan_.changes.removedGroups.push_back(std::move(removed));
  }

  const AddressBook& device_;
  const AddressBook& wanted_;
  const PlanOptions& options_;
  Matcher matcher_;
  std::map<const Contact*, ContactPointer> planned_;
  BookPlan plan_;
};

PropertyDictionary namesOf(const Contacts& contacts) {
  auto names = PropertyDictionary::array();
  for (const auto& contact : contacts)
    names.push_back(validUTF8(contactInWords(*contact)));
  return names;
}

PropertyDictionary namesOf(const ContactGroups& groups) {
  auto names = PropertyDictionary::array();
  for (const auto& group : groups)
    names.push_back(validUTF8(group->name));
  return names;
}

}  // namespace

bool BookChanges::hasGroups() const {
  return !(addedGroups.empty() && changedGroups.empty() && removedGroups.empty());
}

bool BookChanges::isEmpty() const {
  return !hasContacts() && !hasGroups();
}

BookPlan planBook(const AddressBook& onDevice, const AddressBook& wanted,
                  const PlanOptions& options) {
  return Planning(onDevice, wanted, options).run();
}

std::string contactInWords(const Contact& contact) {
  const std::string email = "<" + contact.email.value_or("") + ">";
  const std::string nickname = contact.nickname.value_or("");
  return printable(nickname.empty() ? email : nickname + " " + email);
}

std::vector<std::string> inWords(const BookChanges& changes) {
  std::vector<std::string> lines;
  for (const auto& contact : changes.added)
    lines.push_back("+ " + contactInWords(*contact));
  for (const auto& [before, after, fields] : changes.changed)
    lines.push_back("~ " + contactInWords(*after) + " (" + joined(fields) + ")");
  for (const auto& contact : changes.removed)
    lines.push_back("- " + contactInWords(*contact));
  const auto groupLine = [](const char* sign, const ContactGroup& group) {
    const std::size_t count = group.members.size();
    return std::string(sign) + " group " + printable(group.name) + " (" + std::to_string(count) +
           (count == 1 ? " member" : " members");
  };
  for (const auto& group : changes.addedGroups)
    lines.push_back(groupLine("+", *group) + ")");
  for (const auto& [group, how] : changes.changedGroups)
    lines.push_back(groupLine("~", *group) + ", " + how + ")");
  for (const auto& group : changes.removedGroups)
    lines.push_back("- group " + printable(group->name));
  return lines;
}

PropertyDictionary asJSON(const BookChanges& changes) {
  auto changed = PropertyDictionary::array();
  for (const auto& [before, after, fields] : changes.changed)
    changed.push_back({{"contact", validUTF8(contactInWords(*after))}, {"fields", fields}});
  auto changedGroups = PropertyDictionary::array();
  for (const auto& [group, how] : changes.changedGroups)
    changedGroups.push_back(validUTF8(group->name));
  return {{"contacts",
           {{"added", namesOf(changes.added)},
            {"changed", changed},
            {"removed", namesOf(changes.removed)}}},
          {"groups",
           {{"added", namesOf(changes.addedGroups)},
            {"changed", changedGroups},
            {"removed", namesOf(changes.removedGroups)}}}};
}

}  // namespace tarvo::tools

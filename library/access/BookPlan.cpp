#include "library/access/BookPlan.h"

#include <glib.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "NativeServices/PictureDevice/datasets/JSONValues.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "Utilities/Printable.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::library {
namespace {

/// Addresses that differ in the case of letters reach the same person.
std::string folded(const std::string& text) {
  return takeText(g_utf8_casefold(validUTF8(text).c_str(), -1));
}

std::vector<std::string> differences(const Contact& before, const Contact& after, bool onlyLabels) {
  std::vector<std::string> names;
  if (before.email.value_or("") != after.email.value_or("")) names.emplace_back("e-mail");
  if (before.nickname.value_or("") != after.nickname.value_or("")) names.emplace_back("nickname");
  if (onlyLabels) return names;
  for (const auto& field : kContactFields) {
    if (before.*field.text != after.*field.text) names.emplace_back(field.name);
  }
  if (before.sharingPref != after.sharingPref) names.emplace_back("sharing preference");
  if (before.defaultNumPrints != after.defaultNumPrints) names.emplace_back("number of prints");
  return names;
}

std::string idOf(const Contact& contact) {
  return identifies(contact.uid) ? folded(*contact.uid) : std::string();
}

/// A handle may have been given to somebody else since, who has another id.
std::string handleKey(const Contact& contact) {
  return contact.handle == 0 ? "" : std::to_string(contact.handle) + ' ' + idOf(contact);
}

std::string addressOf(const Contact& contact) { return folded(contact.email.value_or("")); }

std::string labelsOf(const Contact& contact) {
  return addressOf(contact) + '\n' + contact.nickname.value_or("");
}

/// Who of the wanted book is who on the device.
template <typename Entry>
class Pairs {
 public:
  using Pointer = std::shared_ptr<Entry>;

  /// Null for one that the device does not have.
  Pointer find(const Pointer& wanted) const {
    const auto found = matched_.find(wanted.get());
    return found == matched_.end() ? nullptr : found->second;
  }
  bool isTaken(const Pointer& there) const { return taken_.contains(there.get()); }
  /// Of whom it is not known whether the device has them; empty where nobody is in doubt.
  const std::string& doubt() const { return doubt_; }

 protected:
  void pair(const Pointer& wanted, const Pointer& there) {
    matched_[wanted.get()] = there;
    taken_.insert(there.get());
  }

  std::string doubt_;

 private:
  std::map<const Entry*, Pointer> matched_;
  std::set<const Entry*> taken_;
};

/// Each step goes over all contacts, so that a weak likeness takes nobody from a strong one.
class Matcher : public Pairs<Contact> {
 public:
  Matcher(const Contacts& there, const Contacts& wanted, const PlanOptions& options)
      : left_(there) {
    std::ranges::copy_if(wanted, std::back_inserter(open_), [](const auto& contact) {
      return contact->action != DataSyncAction::kDelete;
    });
    for (const auto& contact : there)
      ids_.insert(idOf(*contact));
    // From sure to unsure: an id is nobody else's, a handle may be, an address can be shared by a
    // family.
    matchBy(idOf, false);
    matchBy(handleKey, false);
    // Where labels are all there is, those who have the same ones are the same.
    matchBy(labelsOf, options.keepsOnlyLabels);
    // There a new nickname costs nothing, as long as nobody is to stay under the old one.
    if (options.keepsOnlyLabels && !options.keepsOthers) matchBy(addressOf, true);
    for (const auto& contact : left_) {
      auto& [first, withoutID] = leftAt_[addressOf(*contact)];
      if (!first) first = contact;
      if (!withoutID && idOf(*contact).empty()) withoutID = contact;
    }
    std::ranges::for_each(open_, [this](const auto& contact) { noteDoubt(*contact); });
  }

 private:
  using Key = std::string (*)(const Contact&);
  using Index = std::map<std::string, Contacts>;

  static Index indexed(const Contacts& contacts, Key key) {
    Index index;
    for (const auto& contact : contacts)
      if (const auto text = key(*contact); !text.empty()) index[text].push_back(contact);
    return index;
  }

  /// Pairs those who alone have a key on both sides, or, `inOrder`, all who have it.
  void matchBy(Key key, bool inOrder) {
    const auto there = indexed(left_, key);
    for (const auto& [text, wanted] : indexed(open_, key)) {
      const auto found = there.find(text);
      if (found == there.end()) continue;
      const std::size_t pairs = std::min(wanted.size(), found->second.size());
      // Of several with one key nobody knows who is who, so none of them is paired by it.
      if (!inOrder && std::max(wanted.size(), found->second.size()) > 1) continue;
      for (std::size_t i = 0; i < pairs; ++i)
        pair(wanted[i], found->second[i]);
    }
    std::erase_if(left_, [this](const auto& contact) { return isTaken(contact); });
    std::erase_if(open_, [this](const auto& contact) { return find(contact) != nullptr; });
  }

  /// A new contact is in doubt when it has the id of another one, or the address of somebody on the
  /// device whom nobody was found to be, unless their ids tell them apart.
  void noteDoubt(const Contact& contact) {
    const auto id = idOf(contact);
    if (!id.empty() && !ids_.insert(id).second)
      doubt_ = contactInWords(contact) + " has the uid of another contact";
    const auto found = leftAt_.find(addressOf(contact));
    if (found == leftAt_.end()) return;
    const auto& other = id.empty() ? found->second.first : found->second.withoutID;
    if (other)
      doubt_ = contactInWords(contact) + " has the address of " + contactInWords(*other) +
               " on the device, and nothing tells whether they are the same";
  }

  /// The first of those on the device who have one address, and the first without an id.
  struct Namesakes {
    ContactPointer first{};
    ContactPointer withoutID{};
  };

  Contacts left_;
  Contacts open_;
  std::map<std::string, Namesakes> leftAt_;
  std::set<std::string> ids_;
};

/// Pairs the groups of two books: by handle and name, then by a name that only one has.
class GroupMatcher : public Pairs<ContactGroup> {
 public:
  // A group has no id: its name is what a user knows it by.
  GroupMatcher(const ContactGroups& there, const ContactGroups& wanted) {
    for (const auto& group : there)
      left_[group->name].push_back(group);
    for (const auto& group : wanted)
      if (group->action != DataSyncAction::kDelete) open_[group->name].push_back(group);
    for (auto& [name, groups] : open_)
      matchNamed(name, groups);
  }

 private:
  void matchNamed(const std::string& name, ContactGroups& wanted) {
    auto& there = left_[name];
    std::map<std::uint32_t, ContactGroupPointer> byHandle;
    for (const auto& group : there)
      if (group->handle != 0) byHandle.emplace(group->handle, group);
    std::erase_if(wanted, [&](const auto& group) {
      const auto found = byHandle.extract(group->handle);
      if (found) pair(group, found.mapped());
      return !found.empty();
    });
    std::erase_if(there, [this](const auto& group) { return isTaken(group); });
    if (wanted.empty() || there.empty()) return;
    if (wanted.size() == 1 && there.size() == 1) return pair(wanted.front(), there.front());
    doubt_ = "there are several groups called '" + printable(name) +
             "', and nothing tells which of them is which";
  }

  std::map<std::string, ContactGroups> left_;
  std::map<std::string, ContactGroups> open_;
};

/// What only the device has stays in it: an empty field of a file says nothing.
void keepWhatIsMissing(Contact& after, const Contact& there) {
  for (const auto& field : kContactFields)
    if ((after.*field.text).empty()) after.*field.text = there.*field.text;
  if (!after.nickname || after.nickname->empty()) after.nickname = there.nickname;
  if (after.sharingPref == 0) after.sharingPref = there.sharingPref;
  if (after.defaultNumPrints == 0) after.defaultNumPrints = there.defaultNumPrints;
}

class Planning {
 public:
  Planning(const AddressBook& onDevice, const AddressBook& wanted, const PlanOptions& options)
      : device_(onDevice),
        wanted_(wanted),
        options_(options),
        matcher_(entriesOf(onDevice.contacts), entriesOf(wanted.contacts), options),
        groupMatcher_(entriesOf(onDevice.groups), entriesOf(wanted.groups)) {
    plan_.book.limits = onDevice.limits;
    plan_.book.supportsGroups = onDevice.supportsGroups;
    plan_.book.contacts.emplace();
    plan_.book.groups.emplace();
  }

  BookPlan run() {
    plan_.doubt = matcher_.doubt();
    planContacts();
    if (!options_.keepsOnlyLabels) planGroups();
    auto& contacts = *plan_.book.contacts;
    const auto& gone = plan_.changes.contacts.removed;
    contacts.insert(contacts.end(), gone.begin(), gone.end());
    // Last, but where the device has no room for the new ones before.
    auto& groups = *plan_.book.groups;
    const auto& removed = plan_.changes.groups.removed;
    const bool isFull = groups.size() + removed.size() > plan_.book.limits.maxGroups;
    // A device without room refuses the new one; elsewhere nothing goes before its successor is
    // there.
    groups.insert(isFull ? groups.begin() : groups.end(), removed.begin(), removed.end());
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
    for (const auto& contact : entriesOf(wanted_.contacts))
      planWanted(contact);
    for (const auto& contact : entriesOf(device_.contacts)) {
      if (matcher_.isTaken(contact)) continue;
      // Nobody without an address is in a card.
      const bool isUnknown = options_.wantedIsPartial && contact->email.value_or("").empty();
      const bool stays = options_.keepsOthers || options_.leavesContacts || isUnknown;
      const auto copy =
          put(contact, *contact, stays ? DataSyncAction::kNone : DataSyncAction::kDelete);
      (stays ? *plan_.book.contacts : plan_.changes.contacts.removed).push_back(copy);
    }
  }

  void planWanted(const ContactPointer& contact) {
    if (contact->action == DataSyncAction::kDelete) return;
    const auto there = matcher_.find(contact);
    const bool isLeft = options_.leavesContacts || options_.skipped.contains(contact.get());
    if (!there) {
      // A person whom the device does not know stays unknown to it.
      if (isLeft) return;
      Contact added = *contact;
      added.handle = 0;
      if (!identifies(added.uid)) added.uid = newGUID();
      const auto copy = put(contact, std::move(added), DataSyncAction::kAdd);
      plan_.changes.contacts.added.push_back(copy);
      plan_.book.contacts->push_back(copy);
      plan_.origins[copy.get()] = contact.get();
      return;
    }
    Contact after = isLeft ? *there : *contact;
    // What the device counts by stays the device's own.
    after.uid = there->uid;
    after.handle = there->handle;
    after.image = there->image;
    after.associatedGroups = there->associatedGroups;
    if (options_.nameless.contains(contact.get()) && !there->nickname.value_or("").empty())
      after.nickname = there->nickname;
    if (options_.keepsOthers) keepWhatIsMissing(after, *there);
    // Cards have no field for them.
    if (options_.wantedIsPartial) {
      after.sharingPref = there->sharingPref;
      after.defaultNumPrints = there->defaultNumPrints;
    }
    const auto fields = differences(*there, after, options_.keepsOnlyLabels);
    const auto copy = put(contact, std::move(after),
                          fields.empty() ? DataSyncAction::kNone : DataSyncAction::kUpdate);
    planned_[there.get()] = copy;
    plan_.origins[copy.get()] = contact.get();
    plan_.book.contacts->push_back(copy);
    if (!fields.empty()) plan_.changes.contacts.changed.push_back({there, copy, fields});
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
    if (plan_.doubt.empty()) plan_.doubt = groupMatcher_.doubt();
    const bool saysGroups = wanted_.groups.has_value();
    for (const auto& group : entriesOf(wanted_.groups)) {
      if (group->action == DataSyncAction::kDelete) continue;
      const auto found = groupMatcher_.find(group);
      const bool isLeft = options_.skipped.contains(group.get());
      if (!found && isLeft) continue;
      if (!found) {
        addGroup(*group);
      } else {
        changeGroup(found, isLeft                 ? membersOf(*found)
                           : options_.keepsOthers ? membersOfBoth(*found, *group)
                                                  : membersOf(*group));
      }
      plan_.origins[plan_.book.groups->back().get()] = group.get();
    }
    // In the order of the device.
    for (const auto& group : entriesOf(device_.groups))
      if (!groupMatcher_.isTaken(group)) leaveGroup(group, saysGroups);
  }

  /// Those of the device, and behind them those whom only the file has.
  Contacts membersOfBoth(const ContactGroup& there, const ContactGroup& group) const {
    ContactGroup both = there;
    both.members.insert(both.members.end(), group.members.begin(), group.members.end());
    return membersOf(both);
  }

  void addGroup(const ContactGroup& group) {
    auto added = std::make_shared<ContactGroup>(group);
    added->handle = 0;
    added->image = 0;
    added->members = membersOf(group);
    added->action = DataSyncAction::kAdd;
    plan_.changes.groups.added.push_back(added);
    plan_.book.groups->push_back(std::move(added));
  }

  void changeGroup(const ContactGroupPointer& there, Contacts members) {
    auto after = std::make_shared<ContactGroup>(*there);
    const Contacts before = membersOf(*there);
    const std::set<ContactPointer> former(before.begin(), before.end());
    const auto stayed = static_cast<std::size_t>(std::ranges::count_if(
        members, [&](const ContactPointer& member) { return former.contains(member); }));
    const std::size_t more = members.size() - stayed;
    const std::size_t less = there->members.size() - stayed;
    // Cards stand in an order of their own, which says nothing of that in a group.
    if (options_.wantedIsPartial && more == 0 && less == 0) members = before;
    const bool isSame = more == 0 && less == 0 && members == before;
    after->members = std::move(members);
    after->action = isSame ? DataSyncAction::kNone : DataSyncAction::kUpdate;
    if (!isSame) {
      std::vector<std::string> how;
      if (more > 0) how.push_back(std::to_string(more) + " more");
      if (less > 0) how.push_back(std::to_string(less) + " less");
      if (how.empty()) how.emplace_back("order");
      plan_.changes.groups.changed.push_back({there, after, std::move(how)});
    }
    plan_.book.groups->push_back(std::move(after));
  }

  /// A group that only the device has.
  void leaveGroup(const ContactGroupPointer& group, bool saysGroups) {
    // A group without members is in no card.
    const bool isUnknown = options_.wantedIsPartial && group->members.empty();
    if (!saysGroups || options_.keepsOthers || isUnknown)
      return changeGroup(group, membersOf(*group));
    auto removed = std::make_shared<ContactGroup>(*group);
    // A group that goes names nobody, so that its contacts may go, too.
    removed->members = {};
    removed->action = DataSyncAction::kDelete;
    plan_.changes.groups.removed.push_back(std::move(removed));
  }

  const AddressBook& device_;
  const AddressBook& wanted_;
  const PlanOptions& options_;
  Matcher matcher_;
  GroupMatcher groupMatcher_;
  std::map<const Contact*, ContactPointer> planned_;
  BookPlan plan_;
};

/// At most `most` UTF-16 units of it; a device that tells no limit gets all.
std::string cutTo(std::string text, std::size_t most) {
  if (most == 0) return text;
  while (utf16Length(text) > most)
    text.erase(static_cast<std::size_t>(
        g_utf8_find_prev_char(text.data(), text.data() + text.size()) - text.data()));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string nameOf(const Contact& contact) { return validUTF8(contactInWords(contact)); }
std::string nameOf(const ContactGroup& group) { return validUTF8(group.name); }

template <typename Entries>
PropertyDictionary namesOf(const Entries& entries) {
  auto names = PropertyDictionary::array();
  for (const auto& entry : entries)
    names.push_back(nameOf(*entry));
  return names;
}

}  // namespace

BookPlan planBook(const AddressBook& onDevice, const AddressBook& wanted,
                  const PlanOptions& options) {
  return Planning(onDevice, wanted, options).run();
}

AddressBook shortened(const AddressBook& book, const XT_AddressBookInfo& limits,
                      std::vector<std::string>& notes) {
  AddressBook result = book;
  std::map<const Contact*, ContactPointer> copies;
  const auto cut = [&notes](std::string& text, std::size_t most, const std::string& whose) {
    const auto shorter = cutTo(validUTF8(text), most);
    if (shorter.size() >= text.size()) return;
    notes.push_back(whose + " is shortened to '" + printable(shorter) + "'");
    text = shorter;
  };
  if (!result.contacts) return result;
  for (auto& contact : *result.contacts) {
    const auto copy = copies[contact.get()] = std::make_shared<Contact>(*contact);
    const auto name = contactInWords(*contact);
    if (copy->nickname)
      cut(*copy->nickname, limits.maxNicknameLengthInBytes, name + ": the nickname");
    for (const auto& field : kContactFields)
      cut((*copy).*field.text, kMostStringUnits, name + ": the " + field.name);
    contact = copy;
  }
  if (!result.groups) return result;
  for (auto& group : *result.groups) {
    group = std::make_shared<ContactGroup>(*group);
    cut(group->name, limits.maxGroupNameLengthInBytes, "group " + printable(group->name));
    for (auto& member : group->members)
      if (const auto found = copies.find(member.get()); found != copies.end())
        member = found->second;
  }
  return result;
}

std::string contactInWords(const Contact& contact) {
  const std::string email = "<" + contact.email.value_or("") + ">";
  const std::string nickname = contact.nickname.value_or("");
  return printable(nickname.empty() ? email : nickname + " " + email);
}

std::vector<std::string> inWords(const BookChanges& changes) {
  std::vector<std::string> lines;
  const auto& [contacts, groups] = changes;
  for (const auto& contact : contacts.added)
    lines.push_back("+ " + contactInWords(*contact));
  for (const auto& [before, after, fields] : contacts.changed)
    lines.push_back("~ " + contactInWords(*after) + " (" + joined(fields) + ")");
  for (const auto& contact : contacts.removed)
    lines.push_back("- " + contactInWords(*contact));
  const auto groupLine = [](const char* sign, const ContactGroup& group) {
    const std::size_t count = group.members.size();
    return std::string(sign) + " group " + printable(group.name) + " (" + std::to_string(count) +
           (count == 1 ? " member" : " members");
  };
  for (const auto& group : groups.added)
    lines.push_back(groupLine("+", *group) + ")");
  for (const auto& [before, after, how] : groups.changed)
    lines.push_back(groupLine("~", *after) + ", " + joined(how) + ")");
  for (const auto& group : groups.removed)
    lines.push_back("- group " + printable(group->name));
  return lines;
}

PropertyDictionary asJSON(const BookChanges& changes) {
  const auto& [contacts, groups] = changes;
  auto changedContacts = PropertyDictionary::array();
  for (const auto& [before, after, fields] : contacts.changed)
    changedContacts.push_back({{"contact", nameOf(*after)}, {"fields", fields}});
  auto changedGroups = PropertyDictionary::array();
  for (const auto& [before, after, how] : groups.changed)
    changedGroups.push_back(nameOf(*after));
  return {{"contacts",
           {{"added", namesOf(contacts.added)},
            {"changed", changedContacts},
            {"removed", namesOf(contacts.removed)}}},
          {"groups",
           {{"added", namesOf(groups.added)},
            {"changed", changedGroups},
            {"removed", namesOf(groups.removed)}}}};
}

}  // namespace tarvo::library

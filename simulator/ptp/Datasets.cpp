#include "simulator/ptp/Datasets.h"

#include <map>
#include <memory>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kEverywhere = 0xFFFFFFFF;

/// What ObjectInfo calls a data set: real devices have some name for every object.
std::u16string objectName(std::uint16_t format, std::uint32_t handle) {
  return utf16(formatted("%04X%04u.DST", format, handle));
}

/// Handles of what a description calls by name; the first of several with one name.
class Names {
 public:
  explicit Names(const ObjectStore& objects) {
    for (const auto handle : objects.handles({}))
      files_.try_emplace(objects.object(handle)->name, handle);
  }

  void addContact(const ContactRecord& contact, std::uint32_t handle) {
    contacts_.try_emplace(contact.texts[kContactNickname], handle);
  }
  Handles contacts(const ObjectReferences& references) const {
    return find(references, contacts_, "contact");
  }
  Handles files(const ObjectReferences& references) const {
    return find(references, files_, "file");
  }

 private:
  using ByName = std::map<std::u16string, std::uint32_t>;

  static Handles find(const ObjectReferences& references, const ByName& names, const char* what) {
    Handles handles;
    for (const auto& reference : references) {
      const auto* name = std::get_if<std::string>(&reference);
      const auto found = name == nullptr ? names.end() : names.find(utf16(*name));
      if (name != nullptr && found == names.end()) {
        throw DescriptionError(std::string("datasets: no ") + what + " is called \"" + *name +
                               "\"");
      }
      handles.push_back(name == nullptr ? std::get<std::uint32_t>(reference) : found->second);
    }
    return handles;
  }

  ByName files_;
  ByName contacts_;
};

void setImage(DatasetRecord& record, std::uint32_t image) {
  if (auto* contact = std::get_if<ContactRecord>(&record)) contact->image = image;
  if (auto* group = std::get_if<GroupRecord>(&record)) group->image = image;
  if (auto* album = std::get_if<AlbumRecord>(&record)) album->cover = image;
}

DatasetRecord resolved(const DescribedDataset& described, const Names& names) {
  auto record = described.record;
  const auto people = names.contacts(described.people);
  const auto assets = names.files(described.assets);
  std::visit(
      [&](auto& each) {
        if constexpr (requires { each.members; }) each.members = people;
        if constexpr (requires { each.recipients; }) each.recipients = people;
        if constexpr (requires { each.assets; }) each.assets = assets;
        if constexpr (requires { each.asset; }) each.asset = assets.empty() ? 0 : assets.front();
      },
      record);
  const auto image = names.files(described.image);
  if (!image.empty()) setImage(record, image.front());
  return record;
}

}  // namespace

Datasets::Datasets(ObjectStore& objects, const DatasetsDescription& described)
    : objects_(objects), storage_(described.storage) {
  if (storage_ == 0 && !objects.stores().empty()) {
    storage_ = objects.stores().front().description.id;
  }
  if (!described.list.empty() && store() == nullptr) {
    throw DescriptionError("datasets: the device has no store for them");
  }
  Names names(objects);
  for (const auto& each : described.list) {
    if (each.raw) {
      addBytes(each.format, *each.raw);
      continue;
    }
    const auto record = resolved(each, names);
    const auto handle = add(each.format, record);
    if (const auto* contact = std::get_if<ContactRecord>(&record)) {
      names.addContact(*contact, handle);
    }
  }
}

// Looking.

std::optional<DatasetRecord> Datasets::record(std::uint32_t handle) const {
  const auto object = objects_.object(handle);
  if (!object || !object->content) return std::nullopt;
  return parseDataset(object->traits.format, allBytes(*object->content));
}

std::uint32_t Datasets::count(std::uint16_t format) const {
  return objects_.count({kEverywhere, format, 0});
}

// Changing.

std::uint32_t Datasets::addBytes(std::uint16_t format, Bytes bytes) {
  StoredObject object;
  object.handle = objects_.reserveHandle();
  object.storage = storage_;
  object.name = objectName(format, object.handle);
  object.traits.format = format;
  object.size = bytes.size();
  object.content = std::make_shared<BytesPayload>(std::move(bytes));
  return objects_.add(std::move(object));
}

// A data set is too small for the room on the card to matter.
void Datasets::setBytes(std::uint32_t handle, Bytes bytes) {
  objects_.change(handle, [&](StoredObject& object) {
    object.size = bytes.size();
    object.content = std::make_shared<BytesPayload>(std::move(bytes));
  });
}

std::uint32_t Datasets::add(std::uint16_t format, const DatasetRecord& record) {
  const auto handle = addBytes(format, datasetBytes(record));
  if (const auto* group = std::get_if<GroupRecord>(&record)) link(handle, group->members, true);
  return handle;
}

void Datasets::replace(std::uint32_t handle, const DatasetRecord& record) {
  const auto before = this->record(handle);
  setBytes(handle, datasetBytes(record));
  if (before && std::holds_alternative<GroupRecord>(*before)) {
    link(handle, std::get<GroupRecord>(*before).members, false);
  }
  if (const auto* group = std::get_if<GroupRecord>(&record)) link(handle, group->members, true);
}

void Datasets::link(std::uint32_t group, const Handles& members, bool belong) {
  for (const auto member : members) {
    auto found = record(member);
    if (!found || !std::holds_alternative<ContactRecord>(*found)) continue;
    auto& groups = std::get<ContactRecord>(*found).groups;
    std::erase(groups, group);
    if (belong) groups.push_back(group);
    setBytes(member, datasetBytes(*found));
  }
}

void Datasets::forget(const StoredObject& removed) {
  if (!removed.content) return;
  const auto record = parseDataset(removed.traits.format, allBytes(*removed.content));
  if (!record) return;
  if (const auto* group = std::get_if<GroupRecord>(&*record)) {
    link(removed.handle, group->members, false);
  }
  const auto* contact = std::get_if<ContactRecord>(&*record);
  if (contact == nullptr) return;
  for (const auto handle : contact->groups) {
    auto group = this->record(handle);
    if (!group) continue;
    std::erase(std::get<GroupRecord>(*group).members, removed.handle);
    setBytes(handle, datasetBytes(*group));
  }
}

}  // namespace tarvo::simulator

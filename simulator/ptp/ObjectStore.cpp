#include "simulator/ptp/ObjectStore.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <memory>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "simulator/bytes/JsonNode.h"

namespace tarvo::simulator {
namespace {

bool isOfFormat(std::uint16_t format, std::uint16_t wanted) {
  if (wanted == ObjectFilter::kEveryImage) return isImageFormat(format);
  return wanted == 0 || wanted == format;
}

bool matches(const StoredObject& object, const ObjectFilter& filter) {
  if (filter.storage != ObjectFilter::kEverywhere && filter.storage != object.storage) return false;
  if (!isOfFormat(object.traits.format, filter.format)) return false;
  if (!object.traits.appearsWith.empty()) return false;
  if (filter.association == 0) return true;
  return object.parent == (filter.association == ObjectFilter::kRoot ? 0 : filter.association);
}

std::shared_ptr<const Payload> textPayload(const std::string& text) {
  ByteWriter writer;
  writer.raw(std::as_bytes(std::span(text)));
  return std::make_shared<BytesPayload>(writer.take());
}

}  // namespace

// Object format codes of ISO 15740, and those of the maker's files.
std::uint16_t formatOfExtension(const std::string& name) {
  static constexpr std::array<std::pair<std::string_view, std::uint16_t>, 15> kFormats = {{
      {"jpg", 0x3801},
      {"jpeg", 0x3801},
      {"tif", 0x380D},
      {"png", 0x380B},
      {"gif", 0x3807},
      {"avi", 0x300A},
      {"mpg", 0x300B},
      {"mov", 0x300D},
      {"wav", 0x3008},
      {"txt", 0x3004},
      {"mrk", 0x3006},
      {"abk", 0xB003},
      {"lcb", 0xB005},
      {"how", 0xB008},
      {"sbx", 0xB00C},
  }};
  auto extension = name.substr(std::min(name.size(), name.rfind('.') + 1));
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  for (const auto& [known, format] : kFormats) {
    if (known == extension) return format;
  }
  return 0x3000;
}

ObjectStore::ObjectStore(const std::vector<StoreDescription>& stores) {
  for (const auto& store : stores) {
    auto& state = stores_.emplace_back(StoreState{store, store.capacity});
    state.description.content.clear();
    for (const auto& node : store.content)
      add(node, store.id, 0);
    // What the description says counts, whatever the sum of the objects is.
    state.free = store.free;
  }
}

const StoreState* ObjectStore::store(std::uint32_t id) const {
  const auto found = std::find_if(stores_.begin(), stores_.end(),
                                  [&](const auto& each) { return each.description.id == id; });
  return found == stores_.end() ? nullptr : &*found;
}

StoreState* ObjectStore::storeState(std::uint32_t id) {
  return const_cast<StoreState*>(std::as_const(*this).store(id));
}

void ObjectStore::takeRoom(std::uint32_t storage, std::uint64_t size) {
  if (auto* state = storeState(storage)) state->free -= std::min(state->free, size);
}

void ObjectStore::giveRoom(std::uint32_t storage, std::uint64_t size) {
  auto* state = storeState(storage);
  if (state == nullptr) return;
  const auto room =
      state->description.capacity - std::min(state->free, state->description.capacity);
  state->free += std::min(room, size);
}

// Looking.

std::optional<StoredObject> ObjectStore::object(std::uint32_t handle) const {
  if (const auto found = objects_.find(handle); found != objects_.end()) return found->second;
  for (const auto& range : ranges_) {
    if (!range.holds(handle)) continue;
    auto object = range.common;
    object.handle = handle;
    object.name = utf16(range.files.nameOf(handle - range.first));
    return object;
  }
  return std::nullopt;
}

// Objects and ranges are each in order; sorting is what merges them.
std::vector<std::uint32_t> ObjectStore::handles(const ObjectFilter& filter) const {
  std::vector<std::uint32_t> result;
  for (const auto& [handle, object] : objects_) {
    if (matches(object, filter)) result.push_back(handle);
  }
  for (const auto& range : ranges_) {
    if (!matches(range.common, filter)) continue;
    for (std::uint32_t i = 0; i < range.files.count; ++i) {
      if (!range.without.contains(range.first + i)) result.push_back(range.first + i);
    }
  }
  std::sort(result.begin(), result.end());
  return result;
}

std::uint32_t ObjectStore::count(const ObjectFilter& filter) const {
  auto total = static_cast<std::uint32_t>(
      std::count_if(objects_.begin(), objects_.end(),
                    [&](const auto& entry) { return matches(entry.second, filter); }));
  for (const auto& range : ranges_) {
    if (!matches(range.common, filter)) continue;
    total += range.files.count - static_cast<std::uint32_t>(range.without.size());
  }
  return total;
}

std::shared_ptr<const Payload> ObjectStore::content(const StoredObject& object) {
  if (object.content) return object.content;
  return std::make_shared<PatternPayload>(object.handle, object.size);
}

bool ObjectStore::isWithin(std::uint32_t handle, std::uint32_t folder) const {
  while (handle != 0 && handle != folder) {
    const auto found = object(handle);
    handle = found ? found->parent : 0;
  }
  return handle == folder;
}

std::uint64_t ObjectStore::totalSize(std::uint32_t handle) const {
  const auto found = object(handle);
  if (!found) return 0;
  auto total = found->size;
  if (!found->isFolder()) return total;
  for (const auto child : handles({.association = handle}))
    total += totalSize(child);
  return total;
}

// Adding.

std::uint32_t ObjectStore::add(StoredObject object) {
  if (object.handle == 0) object.handle = reserveHandle();
  takeRoom(object.storage, object.size);
  const auto handle = object.handle;
  objects_.insert_or_assign(handle, std::move(object));
  return handle;
}

std::uint32_t ObjectStore::add(const ContentNode& node, std::uint32_t storage,
                               std::uint32_t parent) {
  if (node.kind == ContentNode::Kind::kGenerated) {
    const auto first = nextHandle_;
    addRange(node, storage, parent);
    return first;
  }
  StoredObject object;
  object.storage = storage;
  object.parent = parent;
  object.name = node.name;
  object.size = node.size;
  object.traits = node.traits;
  if (node.text) object.content = textPayload(*node.text);
  if (node.kind == ContentNode::Kind::kFolder) object.traits.format = StoredObject::kAssociation;
  if (object.traits.format == 0) object.traits.format = formatOfExtension(object.nameText());
  const auto handle = add(std::move(object));
  for (const auto& child : node.children)
    add(child, storage, handle);
  return handle;
}

void ObjectStore::addRange(const ContentNode& node, std::uint32_t storage, std::uint32_t parent) {
  Range range;
  range.first = nextHandle_;
  range.files = node.generated;
  range.common.storage = storage;
  range.common.parent = parent;
  range.common.traits = node.traits;
  range.common.traits.format = formatOfExtension("." + node.generated.extension);
  range.common.size = node.generated.size;
  nextHandle_ += node.generated.count;
  takeRoom(storage, std::uint64_t{node.generated.count} * node.generated.size);
  ranges_.push_back(std::move(range));
}

// Changing.

StoredObject* ObjectStore::record(std::uint32_t handle) {
  if (const auto found = objects_.find(handle); found != objects_.end()) return &found->second;
  auto made = object(handle);
  if (!made) return nullptr;
  for (auto& range : ranges_) {
    if (range.holds(handle)) range.without.insert(handle);
  }
  return &(objects_[handle] = std::move(*made));
}

bool ObjectStore::change(std::uint32_t handle, const std::function<void(StoredObject&)>& edit) {
  auto* found = record(handle);
  if (found == nullptr) return false;
  edit(*found);
  return true;
}

void ObjectStore::reveal(const std::string& name) {
  for (auto& [handle, object] : objects_) {
    if (object.traits.appearsWith == name) object.traits.appearsWith.clear();
  }
}

void ObjectStore::forget(std::uint32_t handle) {
  const auto found = object(handle);
  giveRoom(found->storage, found->size);
  if (objects_.erase(handle) > 0) return;
  for (auto& range : ranges_) {
    if (range.holds(handle)) range.without.insert(handle);
  }
}

Removal ObjectStore::remove(std::uint32_t handle) {
  Removal result;
  const auto found = object(handle);
  if (!found) return result;
  if (found->isFolder()) {
    for (const auto child : handles({.association = handle})) {
      const auto part = remove(child);
      result.removed += part.removed;
      result.kept += part.kept;
    }
  }
  if (result.kept > 0 || found->traits.isProtected) {
    ++result.kept;
  } else {
    forget(handle);
    ++result.removed;
  }
  return result;
}

void ObjectStore::move(std::uint32_t handle, std::uint32_t storage, std::uint32_t parent) {
  auto* moved = record(handle);
  giveRoom(moved->storage, moved->size);
  takeRoom(storage, moved->size);
  moved->storage = storage;
  moved->parent = parent;
  if (!moved->isFolder()) return;
  for (const auto child : handles({.association = handle}))
    move(child, storage, handle);
}

std::uint32_t ObjectStore::copy(std::uint32_t handle, std::uint32_t storage, std::uint32_t parent) {
  auto copied = *object(handle);
  // The pattern follows from the handle, which is another one for the copy.
  if (!copied.isFolder()) copied.content = content(copied);
  copied.handle = 0;
  copied.storage = storage;
  copied.parent = parent;
  copied.traits.isProtected = false;
  const auto children =
      copied.isFolder() ? handles({.association = handle}) : std::vector<std::uint32_t>();
  const auto made = add(std::move(copied));
  for (const auto child : children)
    copy(child, storage, made);
  return made;
}

void ObjectStore::format(std::uint32_t storage) {
  std::erase_if(objects_, [&](const auto& entry) { return entry.second.storage == storage; });
  std::erase_if(ranges_, [&](const auto& range) { return range.common.storage == storage; });
  if (auto* state = storeState(storage)) state->free = state->description.capacity;
}

namespace {

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
  return objects_.count({.format = format});
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

#include "platform/iokit/EntryTable.h"

#include <algorithm>

namespace tarvo {

ServiceHandle EntryTable::intern(std::string_view path) {
  if (const Entry* known = findPath(path)) return known->handle;
  // A device that comes back has a new handle, since forget() took its path off the table.
  entries_.push_back({++lastHandle_, std::string(path), std::nullopt});
  return lastHandle_;
}

EntryTable::Entry* EntryTable::find(ServiceHandle handle) {
  const auto entry = std::ranges::find(entries_, handle, &Entry::handle);
  return entry == entries_.end() ? nullptr : &*entry;
}

EntryTable::Entry* EntryTable::findPath(std::string_view path) {
  const auto entry = std::ranges::find(entries_, path, &Entry::path);
  return entry == entries_.end() ? nullptr : &*entry;
}

std::vector<ServiceHandle> EntryTable::above(std::string_view path) const {
  // An ancestor's path is the front of the path, up to a slash.
  std::vector<const Entry*> found;
  for (const Entry& entry : entries_) {
    const auto length = entry.path.size();
    if (path.size() > length && path.starts_with(entry.path) && path[length] == '/')
      found.push_back(&entry);
  }
  // The longer the path the nearer the ancestor.
  std::ranges::sort(found, std::ranges::greater{},
                    [](const Entry* entry) { return entry->path.size(); });
  std::vector<ServiceHandle> handles;
  handles.reserve(found.size());
  for (const Entry* entry : found)
    handles.push_back(entry->handle);
  return handles;
}

void EntryTable::forget(ServiceHandle handle) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.handle == handle; });
}

}  // namespace tarvo

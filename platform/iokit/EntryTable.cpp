#include "platform/iokit/EntryTable.h"

#include <algorithm>

namespace tarvo {

EntryTable::Entry& EntryTable::intern(std::string_view path, std::string_view plug) {
  const auto known = std::ranges::find_if(
      entries_, [&](const Entry& entry) { return entry.path == path && entry.plug == plug; });
  if (known != entries_.end()) return *known;
  return entries_.emplace_back(Entry{.handle = ++lastHandle_,
                                     .path = std::string(path),
                                     .plug = std::string(plug),
                                     .properties = {},
                                     .ancestors = {}});
}

EntryTable::Entry* EntryTable::find(ServiceHandle handle) {
  const auto entry = std::ranges::find(entries_, handle, &Entry::handle);
  return entry == entries_.end() ? nullptr : &*entry;
}

std::vector<ServiceHandle> EntryTable::at(std::string_view path) const {
  std::vector<ServiceHandle> handles;
  for (const Entry& entry : entries_)
    if (entry.path == path) handles.push_back(entry.handle);
  return handles;
}

void EntryTable::forget(ServiceHandle handle) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.handle == handle; });
}

}  // namespace tarvo

#include "platform/files/WholeFile.h"

#include <unistd.h>

#include <cerrno>

namespace tarvo {

bool writeAll(int descriptor, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    content = content.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

FetchResult writeWhole(const FetchRequest& request, std::span<const std::byte> content,
                       std::optional<std::time_t> modified) {
  FetchResult result;
  FilePlace place(request, result);
  if (!place.prepare("") || !place.hasRoom(content.size())) return result;
  PartFile part(place.folder(), PartFile::nameFor(place.name(), ""));
  if (const int error = part.open(PartFile::Opening::kNew); error != 0) {
    place.failToWrite("no file can be made in the folder", error);
  } else if (!writeAll(part.descriptor(), content)) {
    place.failToWrite("the file cannot be written", errno);
  } else {
    place.put(part, modified);
  }
  return result;
}

}  // namespace tarvo

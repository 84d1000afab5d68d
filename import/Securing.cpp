#include "import/Securing.h"

#include <fcntl.h>

#include <ctime>
#include <set>
#include <utility>

#include "import/Files.h"
#include "import/Fingerprint.h"
#include "platform/files/FilePlace.h"

namespace tarvo::importing {
namespace {

constexpr std::uint64_t kMostBytes = std::uint64_t{64} << 20;
constexpr std::size_t kMostFiles = 256;
constexpr std::chrono::seconds kLongest{1};

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

Securing::Securing(Device& device, History* history, const ImportOptions& options,
                   ImportObserver& observer, ImportSum& sum)
    : device_(device), history_(history), options_(options), observer_(observer), sum_(sum) {}

void Securing::add(File file) {
  if (files_.empty()) since_ = Clock::now();
  bytes_ += file.item->object.size();
  files_.push_back(std::move(file));
}

void Securing::flushIfDue() {
  if (files_.empty()) return;
  if (bytes_ >= kMostBytes || files_.size() >= kMostFiles || Clock::now() - since_ >= kLongest)
    flush();
}

void Securing::flush() {
  const auto files = std::exchange(files_, {});
  bytes_ = 0;
  std::vector<File> safe;
  std::set<std::string> folders;
  for (const auto& file : files)
    // A folder that was made is an entry of the one above it.
    for (std::string each = folderOf(file.path);
         each.size() >= options_.folder.size() && folders.insert(each).second;
         each = folderOf(each)) {
    }
  // Some file systems cannot; the files themselves are flushed below.
  for (const auto& folder : folders)
    (void)flushFolder(folder);
  for (const auto& file : files) {
    const std::string why = secure(file);
    if (why.empty()) {
      safe.push_back(file);
      continue;
    }
    ++sum_.failed;
    observer_.warned("'" + file.path + "' is not safe on the disk: " + why);
  }
  remember(safe);
  for (const auto& file : safe) {
    if (file.wasThere) {
      ++sum_.known;
      continue;
    }
    ++sum_.fetched;
    sum_.bytes += file.item->object.size();
    observer_.secured(*file.item, file.path);
  }
  for (const auto& file : safe)
    if (options_.deletes && !file.wasThere) removeFromDevice(*file.item);
}

std::string Securing::secure(const File& file) const {
  if (file.isElsewhere) return {};
  const FileDescriptor opened = openFile(file.path);
  if (!opened.isOpen()) return errorText(errno);
  if (const int error = flushFile(opened.get())) return errorText(error);
  if (!options_.verifies) return {};
  // What lies in memory would only be compared with itself.
  ::posix_fadvise(opened.get(), 0, 0, POSIX_FADV_DONTNEED);
  const auto read = fingerprintOf(opened.get());
  if (!read) return errorText(errno);
  return *read == file.fingerprint ? "" : "it holds something else than what came";
}

void Securing::remember(const std::vector<File>& files) {
  if (!history_ || files.empty()) return;
  std::vector<Remembered> entries;
  for (const auto& file : files) {
    const auto& object = file.item->object;
    entries.push_back({.name = object.name(),
                       .size = object.size(),
                       .taken = file.item->taken,
                       .fingerprint = file.fingerprint,
                       .device = options_.serial,
                       .copies = ++copies_[file.fingerprint],
                       .path = file.path,
                       .imported = std::time(nullptr)});
    // A card may tell its file's date where the camera told the picture's, and the other way round.
    if (!file.date || (file.item->taken && isSameTime(*file.date, *file.item->taken))) continue;
    entries.push_back(entries.back());
    entries.back().taken = file.date;
  }
  try {
    history_->remember(entries);
  } catch (const HistoryError& error) {
    observer_.warned(std::string("What was imported cannot be remembered: ") + error.what() + ".");
    history_ = nullptr;
  }
}

void Securing::removeFromDevice(const Item& item) {
  if (item.object.isProtected()) {
    ++sum_.kept;
    return observer_.keptOnDevice(item, "it is protected");
  }
  try {
    device_.remove(item.object);
    ++sum_.deleted;
    observer_.deleted(item);
  } catch (const Error& error) {
    ++sum_.kept;
    observer_.keptOnDevice(item, Error::inWords(error.status()));
    if (error.endsDevice()) throw;
  }
}

}  // namespace tarvo::importing

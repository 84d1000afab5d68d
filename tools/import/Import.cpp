#include "tools/import/Import.h"

#include <glib.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "import/Fetch.h"
#include "import/Groups.h"
#include "import/Search.h"
#include "platform/files/FolderTree.h"
#include "tools/access/Devices.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/import/Conversation.h"
#include "tools/import/ImportPace.h"
#include "tools/objects/ObjectFilter.h"
#include "tools/orders/OrderPictures.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

using namespace importing;

namespace {

/// Whether it is of a kind that is asked for: by its name, and by its format where the name does
/// not say (ISO 15740, "Object formats").
bool isOfKind(const ImportCommandOptions& options, const ObjectInfo& object) {
  if (options.allFiles) return true;
  const bool both = options.pictures == options.films;
  constexpr std::uint16_t kImages = 0x38;
  const MediaKind kind = mediaKindOf(object.name());
  const bool isOfFilm = kind == MediaKind::kFilm || kind == MediaKind::kThumbnail;
  if (isOfFilm) return both || options.films;
  const bool isOfPicture = kind != MediaKind::kOther || object.format() >> 8 == kImages;
  return (both || options.pictures) && isOfPicture;
}

/// What the user's preferences say of imports: the keys "Folder" and "Pattern" of a group of their
/// own. A key of the user's own stands in place of the machine's.
std::string preference(const std::optional<std::string>& file, const char* key) {
  constexpr const char* kName = "/tarvo/agent.conf";
  std::vector<std::string> files = {file.value_or(std::string(g_get_user_config_dir()) + kName)};
  for (const gchar* const* each = g_get_system_config_dirs(); !file && *each != nullptr; ++each)
    files.push_back(std::string(*each) + kName);
  for (const auto& each : files) {
    g_autoptr(GKeyFile) keys = g_key_file_new();
    if (g_key_file_load_from_file(keys, each.c_str(), G_KEY_FILE_NONE, nullptr) == FALSE) continue;
    g_autofree gchar* value = g_key_file_get_string(keys, "Import", key, nullptr);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

PlacePattern patternOf(const std::string& text) {
  try {
    return PlacePattern(text.empty() ? PlacePattern::kUsual : text);
  } catch (const Exception& exception) {
    refuseUsage("the pattern '" + text + "' makes no sense: " + exception.reason());
  }
}

CalendarTime timeSince(const std::string& words) {
  const auto date = dateSince(words, std::time(nullptr));
  const auto time = date ? CalendarTime::ofPTPDate(*date) : std::nullopt;
  if (!time) refuseUsage("'" + words + "' is no date; 2026-11-25, today or 7d is one");
  return *time;
}

constexpr std::chrono::milliseconds kRedraw{100};
/// Work that is done sooner needs no line.
constexpr std::chrono::milliseconds kBeforeFirst{500};

/// "1.2 of 4.0 GB", where both have the same unit.
std::string partInWords(std::uint64_t part, std::uint64_t whole) {
  const std::string done = sizeInWords(part);
  const std::string all = sizeInWords(whole);
  const auto unit = done.rfind(' ');
  const bool isSameUnit = all.ends_with(done.substr(unit));
  return (isSameUnit ? done.substr(0, unit) : done) + " of " + all;
}

/// "12/340 files  1.2 of 4.0 GB  42 MB/s  01:12"; what does not fit in the columns is left out.
std::string importLine(const ImportPace& pace, std::size_t columns) {
  std::string line = std::to_string(pace.files) + "/" + std::to_string(pace.ofFiles) + " files";
  // The most telling first: what has no room is left out.
  for (const std::string& part :
       {pace.secondsLeft() > 0 ? durationInWords(pace.secondsLeft()) : std::string(),
        partInWords(pace.bytes, pace.ofBytes),
        pace.rate() > 0 ? sizeInWords(pace.rate()) + "/s" : std::string()}) {
    if (!part.empty() && line.size() + 2 + part.size() <= columns) line += "  " + part;
  }
  return line.substr(0, columns);
}

/// An import as a person in a terminal sees it: one line for the whole, and what went wrong.
class ImportProgress : public ImportObserver {
 public:
  explicit ImportProgress(ToolContext& context) : context_(context) {}
  ~ImportProgress() override { context_.output.status({}); }
  ImportProgress(const ImportProgress&) = delete;
  ImportProgress& operator=(const ImportProgress&) = delete;

  /// What is to be fetched, now that it is known.
  void expect(std::uint64_t files, std::uint64_t bytes) {
    context_.output.status({});
    pace_ = {.ofFiles = files, .ofBytes = bytes};
    started_ = Clock::now();
  }

  /// How many objects could not be looked at.
  std::uint64_t unread() const { return unread_; }

  bool goesOn() override { return !context_.interrupt.isSet(); }

  void looked(std::uint64_t objects) override {
    if (isDue()) show(counted(objects, "objects looked at"));
  }

  void unreadable(const std::string& path, const Error& error) override {
    ++unread_;
    const Failure failure = failureOf(context_, error, path);
    context_.output.item({{"source", validUTF8(path)}, {"error", asJSON(failure)}});
    context_.output.objectError(failure);
  }

  void begins(const Item& /*item*/) override { bytesBefore_ = pace_.bytes; }

  void progressed(const Item& /*item*/, std::uint64_t done) override {
    pace_.bytes = bytesBefore_ + done;
    draw();
  }

  void ended(const Item& item, const Result& result) override {
    ++pace_.files;
    pace_.bytes = bytesBefore_ + item.object.size();
    PropertyDictionary json = {{"source", validUTF8(item.object.path())}};
    if (item.object.handle() != 0) json["handle"] = item.object.handle();
    if (!result.path.empty()) json["path"] = validUTF8(result.path);
    if (result.outcome == Outcome::kKnown) json["known"] = true;
    const bool isHere = result.outcome == Outcome::kFetched || result.outcome == Outcome::kKnown;
    if (!isHere) {
      Failure failure = {.operation = context_.operation,
                         .object = item.object.path(),
                         .status = status::kIOError,
                         .why = result.why};
      if (result.error) failure = failureOf(context_, *result.error, item.object.path());
      json["error"] = asJSON(failure);
      // That the disk is full is said once; the sum has the number.
      const bool isSaid = result.outcome == Outcome::kNoRoom && hasToldOfRoom_;
      hasToldOfRoom_ = hasToldOfRoom_ || result.outcome == Outcome::kNoRoom;
      if (!isSaid) context_.output.objectError(failure);
    }
    context_.output.item(json);
    draw();
  }

  void deleted(const Item& item) override {
    context_.output.item({{"source", validUTF8(item.object.path())}, {"deleted", true}});
  }

  void keptOnDevice(const Item& item, const std::string& why) override {
    context_.output.item(
        {{"source", validUTF8(item.object.path())}, {"deleted", false}, {"why", why}});
    context_.output.message(printable(item.object.path()) + " stays on the device: " + why + ".");
  }

  void warned(const std::string& text) override { context_.output.message(text); }

 private:
  using Clock = std::chrono::steady_clock;

  bool isDue() const {
    const auto now = Clock::now();
    return context_.output.showsStatus() && now - started_ >= kBeforeFirst &&
           now - lastDrawn_ >= kRedraw;
  }
  void draw() {
    if (!isDue()) return;
    pace_.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_);
    show(importLine(pace_, terminalColumns() - 1));
  }
  void show(const std::string& line) {
    lastDrawn_ = Clock::now();
    context_.output.status(line.substr(0, terminalColumns() - 1));
  }

  ToolContext& context_;
  ImportPace pace_;
  std::uint64_t bytesBefore_ = 0;  ///< of the objects that have ended
  std::uint64_t unread_ = 0;
  bool hasToldOfRoom_ = false;
  Clock::time_point started_ = Clock::now();
  Clock::time_point lastDrawn_ = started_;
};

/// One run of the command.
class Importing {
 public:
  Importing(ToolContext& context, const ImportCommandOptions& options)
      : context_(context), command_(options) {
    if (options.progress == "json") context.output.converse("orderPicture");
    const auto& file = context.options.configFile;
    std::string folder = options.output.empty() ? preference(file, "Folder") : options.output;
    if (folder.starts_with("~/")) folder.replace(0, 1, g_get_home_dir());
    options_.folder =
        folder.empty() ? defaultTargetFolder() : std::filesystem::absolute(folder).string();
    options_.pattern =
        patternOf(options.pattern.empty() ? preference(file, "Pattern") : options.pattern);
    if (!options.since.empty()) since_ = timeSince(options.since);
    options_.verifies = options.verifies;
    options_.deletes = options.deletes;
    if (options.deletes && !options.dryRun)
      consent_.emplace(context, options.yes, "delete what was imported");
    device_.emplace(openDevice(context));
    options_.device = device_->info().name();
    options_.serial = device_->info().serial();
    if (device_->info().kind() == DeviceKind::kVolume &&
        FolderTree(device_->info().path()).holds(options_.folder))
      refuseUsage("'" + options_.folder + "' lies on the device itself");
    if (!command_.dryRun) makeFolder(options_.folder);
  }

  int run() {
    try {
      return runWithHistory();
    } catch (const HistoryError& error) {
      throw ToolError({.status = status::kIOError, .why = error.what(), .advice = "Try again."});
    }
  }

 private:
  int runWithHistory() {
    openHistory();
    if (command_.progress == "json")
      return converse(context_, *device_, history(), options_, wanted());
    if (command_.setsClock && !command_.dryRun) device_->setClock();
    context_.output.beginList();
    progress_.emplace(context_);
    importing::Search search(*device_, history(), options_, *progress_);
    search.run(wanted());
    endIfInterrupted(context_);
    sum_.known = search.known();
    if (command_.dryRun) return tellPlan(search.items());
    remember(search);
    return fetch(search.items());
  }

  /// Without one everything still works; what lies in the folder is known by itself.
  void openHistory() {
    try {
      history_.emplace();
      if (!history_->note().empty()) context_.output.message(history_->note());
    } catch (const HistoryError& error) {
      context_.output.message(std::string("What was imported before is not known: ") +
                              error.what() + ". Known is what lies in '" + options_.folder + "'.");
    }
  }

  History* history() { return history_ ? &*history_ : nullptr; }

  Wanted wanted() const {
    ObjectChoice choice;
    choice.names(command_.objects)
        .others(command_.objects.empty() ? ObjectChoice::Others::kEverything
                                         : ObjectChoice::Others::kNone);
    return {.choice = choice, .accepts = [this](const ObjectInfo& object) {
              return isOfKind(command_, object) && isSince(object);
            }};
  }

  bool isSince(const ObjectInfo& object) const {
    return !since_ || takenOf(object).value_or(*since_) >= *since_;
  }

  void remember(importing::Search& search) {
    try {
      search.rememberWhatIsKnown();
    } catch (const HistoryError& error) {
      context_.output.message(std::string(error.what()) + ".");
    }
  }

  int tellPlan(const std::vector<Item>& items) {
    std::uint64_t bytes = 0;
    for (const auto& item : items) {
      const auto place = placeOf(options_, item.object, item.taken);
      const std::string path = place ? place->folder + "/" + place->name : "no file name";
      bytes += item.object.size();
      context_.output.item({{"source", validUTF8(item.object.path())},
                            {"path", path},
                            {"size", item.object.size()}});
      context_.output.line(item.object.path() + " -> " + path);
    }
    context_.output.message(counted(items.size(), "files would be fetched") + ", " +
                            sizeInWords(bytes) + "; " + std::to_string(sum_.known) +
                            " known. Nothing was done.");
    context_.output.endList();
    return progress_->unread() == 0 ? kDone : kFailed;
  }

  int fetch(std::vector<Item>& items) {
    std::uint64_t bytes = 0;
    for (const auto& item : items)
      bytes += item.object.size();
    if (consent_ && !items.empty())
      consent_->require("Import " + counted(items.size(), "files") + ", " + sizeInWords(bytes) +
                            ", and delete them from " + device_->info().name() + "?",
                        "nothing was imported");
    warnOfRoom(context_.output, options_.folder, "new", items.size(), bytes);
    progress_->expect(items.size(), bytes);
    Fetch run(*device_, history(), options_, *progress_, sum_);
    try {
      run.run(items);
    } catch (const Error& error) {
      tellSum();
      throw ToolError(failureOf(error));
    }
    tellSum();
    endIfInterrupted(context_);
    const int orders =
        command_.orders ? importOrders(context_, *device_, ordersFolder(options_)) : int{kDone};
    context_.output.endList();
    if (orders != kDone) return orders;
    return sum_.failed + sum_.noRoom + sum_.kept + progress_->unread() == 0 ? kDone : kFailed;
  }

  void tellSum() {
    std::string sum = counted(sum_.fetched, "files fetched");
    if (sum_.bytes > 0) sum += ", " + sizeInWords(sum_.bytes);
    const std::pair<std::uint64_t, const char*> parts[] = {
        {sum_.known, " known"},
        {sum_.failed, " failed"},
        {sum_.noRoom, " without room"},
        {sum_.deleted, " deleted from the device"},
        {sum_.kept, " not deleted from it"}};
    for (const auto& [count, words] : parts)
      if (count > 0) sum += ", " + std::to_string(count) + words;
    if (context_.interrupt.isSet()) sum += "; the same command goes on there";
    context_.output.message(sum + ". They are in " + options_.folder + ".");
  }

  ToolContext& context_;
  const ImportCommandOptions& command_;
  ImportOptions options_;
  std::optional<CalendarTime> since_;
  std::optional<Consent> consent_;
  std::optional<Device> device_;
  std::optional<History> history_;
  std::optional<ImportProgress> progress_;
  ImportSum sum_;
};

}  // namespace

int runImport(ToolContext& context, const ImportCommandOptions& options) {
  return Importing(context, options).run();
}

}  // namespace tarvo::tools

// import: what is new on a camera or a card, into folders by date.
#include <glib.h>

#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "import/Fetch.h"
#include "import/Groups.h"
#include "import/Search.h"
#include "platform/files/FilePlace.h"
#include "platform/files/FolderTree.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/import/Conversation.h"
#include "tools/import/ImportProgress.h"
#include "tools/objects/ObjectFilter.h"
#include "tools/orders/ImportOrders.h"
#include "tools/output/Words.h"

namespace tarvo::tools {

using namespace importing;

namespace {

struct ImportCommandOptions {
  std::vector<std::string> objects{};
  bool pictures = false;
  bool films = false;
  bool allFiles = false;
  std::string since{};
  std::string output{};
  std::string pattern{};
  bool dryRun = false;
  bool verifies = false;
  bool deletes = false;
  bool yes = false;
  bool setsClock = false;
  bool orders = false;
  std::string progress{};
};

/// Whether it is of a kind that is asked for: by its name, and by its format where the name does
/// not say (ISO 15740, "Object formats").
bool isOfKind(const ImportCommandOptions& options, const ObjectInfo& object) {
  if (options.allFiles) return true;
  const bool both = options.pictures == options.films;
  switch (mediaKindOf(object.name())) {
    case MediaKind::kFilm:
    case MediaKind::kThumbnail:
      return both || options.films;
    case MediaKind::kPicture:
    case MediaKind::kRaw:
    case MediaKind::kSound:
    case MediaKind::kSidecar:
      return both || options.pictures;
    case MediaKind::kOther:
      break;
  }
  constexpr std::uint16_t kImages = 0x38;
  return (both || options.pictures) && object.format() >> 8 == kImages;
}

/// What the user's preferences say of imports: keys "Folder" and "Pattern" of a group of their own.
class ImportPreferences {
 public:
  explicit ImportPreferences(const std::optional<std::string>& file) {
    if (file) {
      read(*file);
      return;
    }
    // A key of the user's own stands in place of the machine's.
    constexpr const char* kName = "/tarvo/agent.conf";
    read(std::string(g_get_user_config_dir()) + kName);
    for (const gchar* const* each = g_get_system_config_dirs(); *each != nullptr; ++each)
      read(std::string(*each) + kName);
  }

  std::string text(const char* key) const {
    for (const auto& keys : files_) {
      gchar* const value = g_key_file_get_string(keys.get(), "Import", key, nullptr);
      std::string text = value ? value : "";
      g_free(value);
      if (!text.empty()) return text;
    }
    return {};
  }

 private:
  using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

  void read(const std::string& file) {
    KeyFile keys(g_key_file_new(), g_key_file_free);
    if (g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_NONE, nullptr) != FALSE)
      files_.push_back(std::move(keys));
  }

  std::vector<KeyFile> files_;  ///< the first that has a key holds
};

PlacePattern patternOf(const std::string& operation, const std::string& text) {
  try {
    return PlacePattern(text.empty() ? PlacePattern::kUsual : text);
  } catch (const Exception& exception) {
    refuseUsage(operation, "the pattern '" + text + "' makes no sense: " + exception.reason());
  }
}

CalendarTime timeSince(const std::string& operation, const std::string& words) {
  const auto date = dateSince(words, std::time(nullptr));
  const auto time = date ? CalendarTime::ofPTPDate(*date) : std::nullopt;
  if (!time) refuseUsage(operation, "'" + words + "' is no date; 2026-11-25, today or 7d is one");
  return *time;
}

/// One run of the command.
class Importing {
 public:
  Importing(ToolContext& context, const ImportCommandOptions& options)
      : context_(context), command_(options) {
    if (options.progress == "json") context.output.converse("orderPicture");
    const ImportPreferences preferences(context.options.configFile);
    std::string folder = options.output.empty() ? preferences.text("Folder") : options.output;
    if (folder.starts_with("~/")) folder.replace(0, 1, g_get_home_dir());
    options_.folder =
        folder.empty() ? defaultTargetFolder() : std::filesystem::absolute(folder).string();
    options_.pattern = patternOf(
        context.operation, options.pattern.empty() ? preferences.text("Pattern") : options.pattern);
    if (!options.since.empty()) since_ = timeSince(context.operation, options.since);
    options_.verifies = options.verifies;
    options_.deletes = options.deletes;
    if (options.deletes && !options.dryRun)
      consent_.emplace(context, context.operation, options.yes, "delete what was imported");
    device_.emplace(openDevice(context));
    options_.device = device_->info().name();
    options_.serial = device_->info().serial();
    if (device_->info().kind() == DeviceKind::kVolume &&
        FolderTree(device_->info().path()).holds(options_.folder))
      refuseUsage(context.operation, "'" + options_.folder + "' lies on the device itself");
    makeFolder();
  }

  int run() {
    try {
      return runWithHistory();
    } catch (const HistoryError& error) {
      throw ToolError({.operation = context_.operation,
                       .status = status::kIOError,
                       .why = error.what(),
                       .advice = "Try again."});
    }
  }

 private:
  int runWithHistory() {
    openHistory();
    if (command_.progress == "json")
      return Conversation(context_, *device_, history(), options_, wanted()).run();
    if (command_.setsClock && !command_.dryRun) device_->setClock();
    context_.output.beginList();
    progress_.emplace(context_);
    Search search(*device_, history(), options_, *progress_);
    search.run(wanted());
    endIfInterrupted(context_, context_.operation);
    sum_.known = search.known();
    if (command_.dryRun) return tellPlan(search.items());
    remember(search);
    return fetch(search.items());
  }

  void makeFolder() {
    if (command_.dryRun) return;
    std::error_code error;
    std::filesystem::create_directories(options_.folder, error);
    if (error)
      throw ToolError({.operation = context_.operation,
                       .object = options_.folder,
                       .status = status::kIOError,
                       .why = "the folder cannot be made: " + error.message()});
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

  void remember(Search& search) {
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
    tellRoom(items.size(), bytes);
    progress_->expect(items.size(), bytes);
    Fetch run(*device_, history(), options_, *progress_, sum_);
    try {
      run.run(items);
    } catch (const Error& error) {
      tellSum();
      throw ToolError(failureOf(context_, error));
    }
    tellSum();
    endIfInterrupted(context_, context_.operation);
    const int orders =
        command_.orders ? importOrders(context_, *device_, ordersFolder(options_)) : int{kDone};
    context_.output.endList();
    if (orders != kDone) return orders;
    return sum_.failed + sum_.noRoom + sum_.kept + progress_->unread() == 0 ? kDone : kFailed;
  }

  void tellRoom(std::size_t count, std::uint64_t bytes) const {
    const auto here = fileSystemSizeOf(options_.folder);
    if (!here || bytes <= here->free) return;
    context_.output.message("There is no room for all that is new (" + counted(count, "files") +
                            ", " + sizeInWords(bytes) + "): " + sizeInWords(here->free) +
                            " are free in '" + options_.folder + "', " +
                            sizeInWords(bytes - here->free) + " are missing.");
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

void addImportCommand(CommandGroup& root) {
  const auto options = std::make_shared<ImportCommandOptions>();
  root.command("import", "Fetch what is new into folders by date", "tarvoctl import --dry-run",
               [options](ToolContext& context) { return Importing(context, *options).run(); })
      .operand("OBJECT", options->objects, "Names, or patterns such as '*.JPG'; all that is new")
      .flag("--pictures", options->pictures, "Pictures alone, with their sound notes")
      .flag("--films", options->films, "Films alone")
      .flag("--all-files", options->allFiles, "Whatever the kind")
      .option("--since", options->since, "DATE", "Taken on that day or later")
      .option("--output", options->output, "DIR", "In place of your folder for pictures")
      .option("--pattern", options->pattern, "PATTERN",
              "Folders and name below it; {device}/{date}/{name}")
      .flag("--dry-run", options->dryRun, "Say what would be done, and do nothing")
      .flag("--verify", options->verifies, "Read each file back from the disk and compare")
      .flag("--delete", options->deletes, "Delete from the device what was fetched")
      .flag("--yes", options->yes, "Do not ask")
      .needs("--delete")
      .flag("--set-clock", options->setsClock, "Set the camera's clock first")
      .flag("--orders", options->orders, "Fetch and fulfil the orders on the camera, too")
      .option("--progress", options->progress, "FORM",
              "json: a conversation of JSON lines, for other programs")
      .oneOf({"json"})
      .more(
          "New is what was not imported before, by name, size and date, whether it comes\n"
          "by the camera or on its card, and does not lie at its place. What belongs\n"
          "together, as a picture and its raw one, goes together. Nothing is replaced: a\n"
          "name that is taken gets a number. Each file is whole or not there, and is\n"
          "flushed to the disk before it is remembered or deleted from the device;\n"
          "protected objects stay there. The same command goes on where one was ended.\n"
          "A pattern has {device}, {serial}, {date}, {year}, {month}, {day}, {time},\n"
          "{name}, {stem}, {number}, {extension} and {folder}, the one on the device.");
}

}  // namespace tarvo::tools

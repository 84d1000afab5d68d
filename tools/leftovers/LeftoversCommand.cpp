// leftovers: what earlier commands have left on this computer.
#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/Batch.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/leftovers/Leftovers.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct LeftoversOptions {
  std::vector<std::string> paths{};  ///< left-overs, or folders in which they lie
  bool remove = false;
  bool yes = false;
};

constexpr const char* kLeftovers = "leftovers";

std::string ageInWords(const Leftover& leftover) {
  struct Unit {
    std::time_t seconds;
    const char* name;
  };
  constexpr std::array kUnits = {Unit{86400, "days"}, Unit{3600, "hours"}, Unit{60, "minutes"},
                                 Unit{1, "seconds"}};
  const std::time_t age = std::max<std::time_t>(std::time(nullptr) - leftover.modified, 0);
  const auto* unit = std::ranges::find_if(
      kUnits, [age](const Unit& each) { return age >= each.seconds || each.seconds == 1; });
  return counted(static_cast<std::uint64_t>(age / unit->seconds), unit->name);
}

std::string inWords(const Leftover& leftover) {
  return std::string(kindName(leftover.kind)) + " " + leftover.path + " (" + leftover.holds + ", " +
         sizeInWords(leftover.size) + ", " + ageInWords(leftover) + " old)";
}

std::string dateText(std::time_t date) {
  std::tm utc = {};
  std::array<char, 32> text{};
  if (::gmtime_r(&date, &utc) == nullptr) return {};
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc)};
}

PropertyDictionary asJSON(const Leftover& leftover) {
  PropertyDictionary json = {{"kind", kindName(leftover.kind)},
                             {"path", validUTF8(leftover.path)},
                             {"holds", validUTF8(leftover.holds)},
                             {"size", leftover.size},
                             {"modified", dateText(leftover.modified)}};
  json.update(leftover.facts);
  return json;
}

/// The folders where something may lie when nobody says where.
std::vector<std::string> usualFolders() {
  std::error_code error;
  std::vector<std::string> folders = {".", keptFolder(Kept::kBackup), keptFolder(Kept::kEdit),
                                      std::filesystem::temp_directory_path(error).string()};
  // Nothing is told twice.
  const bool isTwice = std::any_of(folders.begin() + 1, folders.end(), [](const auto& folder) {
    std::error_code unlike;
    return std::filesystem::equivalent(".", folder, unlike);
  });
  if (isTwice) folders.erase(folders.begin());
  return folders;
}

/// Those that `path` names, which is one of them or a folder.
std::vector<Leftover> leftoversNamed(const std::string& path) {
  if (auto one = leftoverAt(path)) return {std::move(*one)};
  std::error_code error;
  const std::filesystem::directory_iterator readable(path, error);
  if (!error) return leftoversIn(path);
  const bool isOther = error == std::errc::not_a_directory;
  throw ToolError({.operation = kLeftovers,
                   .object = path,
                   .status = isOther ? status::kBadParameter : status::kFileNotFound,
                   .why = isOther ? "it is nothing that tarvoctl has left" : error.message(),
                   .advice = "Name a folder, or what 'tarvoctl leftovers' lists."});
}

std::vector<Leftover> leftoversOf(const std::vector<std::string>& paths) {
  std::vector<Leftover> all;
  for (const auto& path : paths.empty() ? usualFolders() : paths) {
    auto found = paths.empty() ? leftoversIn(path) : leftoversNamed(path);
    std::ranges::move(found, std::back_inserter(all));
  }
  return all;
}

int list(ToolContext& context, const std::vector<Leftover>& all) {
  Listing listing(context.output, {{"KIND"}, {"SIZE", 0, true}, {"AGE"}, {"HOLDS"}, {"PATH"}},
                  Listing::kWhole);
  for (const Leftover& each : all)
    listing.add(asJSON(each), {kindName(each.kind), sizeInWords(each.size), ageInWords(each),
                               each.holds, each.path});
  listing.finish();
  if (all.empty()) context.output.message("Nothing was left.");
  return kDone;
}

/// Why it is not even asked about; empty where it is.
std::string obstacleTo(const Leftover& leftover, const LeftoversOptions& options) {
  // A folder's name says nothing of what lies in it.
  const bool isNamed = std::ranges::count(options.paths, leftover.path) > 0;
  return isPrecious(leftover) && !isNamed ? "name it to remove it: nothing else may hold the same"
                                          : "";
}

void keep(ToolContext& context, const Leftover& leftover, const std::string& why) {
  auto json = asJSON(leftover);
  json["kept"] = validUTF8(why);
  context.output.item(json);
  context.output.message("Kept: " + inWords(leftover) + ": " + why + ".");
}

int removeAll(ToolContext& context, const std::vector<Leftover>& all,
              const LeftoversOptions& options, const Consent& consent) {
  const auto isMeant = [&](const Leftover& each) { return obstacleTo(each, options).empty(); };
  const auto count = static_cast<std::uint64_t>(std::ranges::count_if(all, isMeant));
  for (const Leftover& each : all)
    if (isMeant(each) && !options.yes) context.output.message(inWords(each));
  if (count > 0)
    consent.require("Remove " + counted(count, "left-overs") + "?", "none was removed");
  Batch batch(context, "left-overs removed");
  for (const Leftover& each : all) {
    const std::string obstacle = obstacleTo(each, options);
    const auto why = obstacle.empty() ? remove(each) : std::optional(obstacle);
    if (why) {
      keep(context, each, *why);
      continue;
    }
    auto json = asJSON(each);
    json["removed"] = true;
    batch.succeeded(json, inWords(each), each.size);
  }
  return batch.finish();
}

int runLeftovers(ToolContext& context, const LeftoversOptions& options) {
  const Consent consent(context, kLeftovers, options.yes || !options.remove, "remove left-overs");
  const auto all = leftoversOf(options.paths);
  return options.remove ? removeAll(context, all, options, consent) : list(context, all);
}

}  // namespace

void addLeftoversCommand(CommandGroup& root) {
  const auto options = std::make_shared<LeftoversOptions>();
  root.command(kLeftovers, "What earlier commands have left on this computer",
               "tarvoctl leftovers pictures/ --remove",
               [options](ToolContext& context) { return runLeftovers(context, *options); })
      .operand("PATH", options->paths, "Folders to look in, or left-overs by name; see below")
      .flag("--remove", options->remove, "Remove them, after asking")
      .flag("--yes", options->yes, "Do not ask")
      .more(
          "Parts of cut downloads, backups of what a device held before it was changed,\n"
          "texts of edits that did not reach it, and scratch folders of killed processes.\n"
          "Without PATH the current folder is looked in, the folders in which backups and\n"
          "edits are kept, and the temporary folder; folders in them are not. What a\n"
          "running process uses stays, and so do backups and edits that are not named\n"
          "themselves.");
}

}  // namespace tarvo::tools

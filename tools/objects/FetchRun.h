// What get and volume get have in common: where files go, what becomes of those that are there, and
// what there is no room for.
//
//   FetchRun run(context, "get", options);
//   for (each object)
//     run.meet(name, size);
//   if (run.isThere(name, size, date)) return;
//   const auto result = fetch.toFile(handle, run.begin(name, size));
//   run.end(result);
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/files/FilePlace.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Progress.h"

namespace tarvo::tools {

struct FetchOptions {
  std::vector<std::string> objects{};  ///< what is to be fetched, as the command names it
  bool all = false;
  bool onlyNew = false;  ///< not what the folder has already
  /// A folder, or the name of the one file; empty: the current folder.
  std::string output{};
  bool overwrite = false;
  bool keepBoth = false;
};

/// What get and volume get have in common; what the operands and --all mean is the command's own.
void addFetchOptions(CommandOptions& command, FetchOptions& options, const std::string& objects,
                     const std::string& all);

/// Main thread only. What is only new counts as there by its name, size and date, else by its
/// content; its name gets a number where another file has it.
class FetchRun {
 public:
  /// Makes the folder where it is missing. Raises kBadUsage for options that say nothing, or two
  /// things, and otherwise as resolvedTarget(). All are lent.
  FetchRun(ToolContext& context, std::string operation, const FetchOptions& options);

  const std::string& folder() const { return target_.folder; }
  /// Tells before anything is fetched how much is to come, and what has no room.
  void expect(std::size_t count, std::uint64_t bytes);

  /// Each object of the run, before the first isThere(); `name` is what the device calls it.
  void meet(const std::string& name, std::uint64_t size);
  /// Whether it is only new and the folder has it. That file is no other object's then, unless this
  /// only `looksAhead`. Of objects of one name and size a file may be any, so none is there: their
  /// contents tell when they are fetched.
  bool isThere(const std::string& name, std::uint64_t size, std::optional<std::time_t> date,
               bool looksAhead = false);
  /// For the next object, of which name and size are shown.
  FetchRequest begin(const std::string& name, std::uint64_t size);
  void end(const FetchResult& result);
  /// Why nothing more is to be tried; none as long as there is room.
  std::optional<Failure> obstacle(const std::string& object) const;

 private:
  FetchRequest request(RunFiles* files) const;

  ToolContext& context_;
  const std::string operation_;
  const FetchOptions& options_;
  LocalTarget target_;
  Progress progress_;
  RunFiles files_;
  std::unordered_map<std::string, std::size_t> met_;  ///< how many of a name and size
  bool isFull_ = false;
};

}  // namespace tarvo::tools

// What get and volume get have in common: where files go, what becomes of those that are there, and
// what there is no room for.
//
//   FetchRun run(context, batch, device, options);
//   for (each object) run.expect(object);
//   if (!run.passesOver(object)) run.fetch(object, json);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvo/Device.h"
#include "tools/access/Batch.h"
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
  bool thumbnails = false;
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
  FetchRun(ToolContext& context, const FetchOptions& options);

  const std::string& folder() const { return target_.folder; }
  /// Each object of the run, before the first passesOver().
  void expect(const ObjectInfo& object);
  /// Tells before anything is fetched how much is to come, and what has no room.
  void tellSum(std::size_t count, std::uint64_t bytes);
  /// Whether it is only new and the folder has it.
  bool passesOver(const ObjectInfo& object, bool looksAhead = false);
  /// Fetches it, as a result of `batch`; `json` is what is known of it.
  void fetch(Device& device, Batch& batch, const ObjectInfo& object, PropertyDictionary json);

 private:
  DownloadOptions downloadOptions();
  void fail(Batch& batch, const ObjectInfo& object, PropertyDictionary json, const Error& error);

  ToolContext& context_;
  const FetchOptions& options_;
  LocalTarget target_;
  Progress progress_;
  DownloadRun run_;
  bool isFull_ = false;
};

}  // namespace tarvo::tools

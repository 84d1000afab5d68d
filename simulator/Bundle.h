// A stand-in for the installed applications: a folder laid out as the agent expects its bundle,
// with programs that only say how they were started.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace tarvo::simulator {

struct BundleOptions {
  std::filesystem::path standins;  ///< folder of the stand-in programs
  std::filesystem::path models;    ///< the ggcam.inf to copy; empty: none
  /// What to leave out: "relay", "wireless", "viewer", "page", "models".
  std::set<std::string> without;
};

/// Paths of a bundle below its folder.
struct BundlePaths {
  explicit BundlePaths(const std::filesystem::path& folder);

  std::filesystem::path agent;  ///< the agent's own bundle: the value for TARVO_AGENT_BUNDLE
  std::filesystem::path relay;
  std::filesystem::path wireless;
  std::filesystem::path viewer;
  std::filesystem::path page;
  std::filesystem::path models;
  std::filesystem::path desktopEntry;
  std::filesystem::path dataFolder;  ///< to be listed in XDG_DATA_DIRS
};

/// Makes the bundle; what is there already is replaced. Raises std::filesystem::filesystem_error.
BundlePaths makeBundle(const std::filesystem::path& folder, const BundleOptions& options);

/// The folder of the stand-in programs beside this program, as built or as installed; empty when
/// there is none.
std::filesystem::path installedStandins();

}  // namespace tarvo::simulator

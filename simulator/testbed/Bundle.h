// A stand-in for the installed applications: a folder laid out as the agent expects its bundle,
// with programs that only say how they were started.
//
//   const auto paths = makeBundle("/tmp/bundle", {standins, models, {"wireless"}});
//   setenv("TARVO_AGENT_BUNDLE", paths.agent.c_str(), 1);
//
// The desktop entry in it is what lets the agent recognise the stand-in as the running Relay.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace tarvo::simulator {

/// What a bundle is made from.
struct BundleOptions {
  std::filesystem::path standins;  ///< folder of the stand-in programs
  std::filesystem::path models;    ///< the ggcam.inf to copy; empty: none
  /// What to leave out: "relay", "wireless", "viewer", "page", "models".
  std::set<std::string> without;
  // The real ones in place of stand-ins; empty: the stand-in, and a page of one sentence.
  std::filesystem::path relay{}, viewer{}, page{};
};

/// Paths of a bundle below its folder, whether or not the parts are there.
struct BundlePaths {
  /// Touches nothing; `folder` must be absolute, as the agent takes the paths as they stand.
  explicit BundlePaths(const std::filesystem::path& folder);

  std::filesystem::path agent;         ///< the agent's own bundle: the value for TARVO_AGENT_BUNDLE
  std::filesystem::path relay;         ///< program that the agent starts for a device
  std::filesystem::path wireless;      ///< program of the wireless utility
  std::filesystem::path viewer;        ///< program that shows the busy page
  std::filesystem::path page;          ///< the busy page
  std::filesystem::path models;        ///< ggcam.inf
  std::filesystem::path desktopEntry;  ///< of the Relay (desktop entry specification)
  std::filesystem::path dataFolder;    ///< to be listed in XDG_DATA_DIRS
};

/// Makes the bundle; what is there already is replaced, and a part that is to be left out but is
/// there already stays. Raises std::filesystem::filesystem_error where a stand-in is missing or the
/// folder cannot be written.
BundlePaths makeBundle(const std::filesystem::path& folder, const BundleOptions& options);

/// The folder of the stand-in programs beside this program, as built or as installed; empty when
/// there is none.
std::filesystem::path installedStandins();

}  // namespace tarvo::simulator

// The base folders of the user's session, from the environment as it stands at the call. No
// trailing slash; relative entries are ignored.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarvo {

/// Where the user's own configuration lies, and where the system's does, the most important folder
/// first (XDG Base Directory Specification).
std::string xdgConfigHome();               ///< $XDG_CONFIG_HOME, else ~/.config
std::vector<std::string> xdgConfigDirs();  ///< $XDG_CONFIG_DIRS, else /etc/xdg
/// The same for data files, desktop entries among them.
std::string xdgDataHome();               ///< $XDG_DATA_HOME, else ~/.local/share
std::vector<std::string> xdgDataDirs();  ///< $XDG_DATA_DIRS, else /usr/local/share, /usr/share
/// And what a program keeps from one run to the next, which is no data of the user's.
std::string xdgStateHome();  ///< $XDG_STATE_HOME, else ~/.local/state

/// "/a//" gives "/a", and "/" itself. Any thread.
std::string withoutTrailingSlash(std::string_view folder);

}  // namespace tarvo

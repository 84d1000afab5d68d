// The base folders of the user's session, from the environment as it stands at the call. No
// trailing slash; relative entries are ignored.
#pragma once

#include <string>
#include <vector>

namespace tarvo {

std::string xdgConfigHome();               ///< $XDG_CONFIG_HOME, else ~/.config
std::vector<std::string> xdgConfigDirs();  ///< $XDG_CONFIG_DIRS, else /etc/xdg
std::string xdgDataHome();                 ///< $XDG_DATA_HOME, else ~/.local/share
std::vector<std::string> xdgDataDirs();    ///< $XDG_DATA_DIRS, else /usr/local/share, /usr/share

}  // namespace tarvo

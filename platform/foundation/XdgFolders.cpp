#include "platform/foundation/XdgFolders.h"

#include <glib.h>

#include <cstdlib>

namespace tarvo {
namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string homeFolder(const char* variable, const char* belowHome) {
  // The base-directory standard wants relative paths ignored, and a variable that is empty counts
  // as not set.
  if (const auto folder = environment(variable); folder.starts_with('/')) {
    return withoutTrailingSlash(folder);
  }
  // $HOME, or the password database where that is not set, as for a service.
  return withoutTrailingSlash(g_get_home_dir()) + belowHome;
}

std::vector<std::string> folderList(const char* variable, std::string_view otherwise) {
  std::string_view rest = environment(variable);
  if (rest.empty()) rest = otherwise;
  std::vector<std::string> folders;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), folder.size() + 1));
    if (folder.starts_with('/')) folders.push_back(withoutTrailingSlash(folder));
  }
  return folders;
}

}  // namespace

std::string withoutTrailingSlash(std::string_view folder) {
  while (folder.size() > 1 && folder.ends_with('/'))
    folder.remove_suffix(1);
  return std::string(folder);
}

std::string xdgConfigHome() {
  return homeFolder("XDG_CONFIG_HOME", "/.config");
}

std::vector<std::string> xdgConfigDirs() {
  return folderList("XDG_CONFIG_DIRS", "/etc/xdg");
}

std::string xdgDataHome() {
  return homeFolder("XDG_DATA_HOME", "/.local/share");
}

std::vector<std::string> xdgDataDirs() {
  return folderList("XDG_DATA_DIRS", "/usr/local/share:/usr/share");
}

std::string xdgStateHome() {
  return homeFolder("XDG_STATE_HOME", "/.local/state");
}

}  // namespace tarvo

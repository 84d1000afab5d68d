#include "simulator/program/DeviceFiles.h"

#include <set>

#include "simulator/bytes/JsonNode.h"

namespace tarvo::simulator {
namespace {

namespace fs = std::filesystem;

fs::path besideProgram(const char* relative) {
  return fs::read_symlink("/proc/self/exe").parent_path() / relative;
}

/// As installed, else as in the source tree that this was built from.
fs::path firstThatExists(const char* installed, const char* source) {
  auto path = besideProgram(installed);
  if (fs::exists(path)) return path;
  return fs::exists(source) ? fs::path(source) : fs::path();
}

}  // namespace

fs::path findDeviceFile(const std::string& text) {
  if (fs::is_regular_file(text)) return text;
  const auto folder = firstThatExists("../share/tarvo/simulator", TARVO_SOURCE_DEVICES);
  auto file = folder / (text + ".json");
  if (text.find('/') == std::string::npos && fs::exists(file)) return file;
  std::set<std::string> names;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    names.insert(entry.path().stem().string());
  }
  std::string known;
  for (const auto& name : names)
    known += " " + name;
  throw DescriptionError("no device description \"" + text + "\"; known names:" + known);
}

fs::path findModelsFile() {
  return firstThatExists(
      "../lib/tarvo/Tarvo Relay.app/Contents/Library/Tarvo Agent.app/Resources/ggcam.inf",
      TARVO_SOURCE_MODELS);
}

}  // namespace tarvo::simulator

#include "simulator/testbed/Bundle.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tarvo::simulator {
namespace {

namespace fs = std::filesystem;

constexpr const char* kBusyPage =
    "<!DOCTYPE html>\n<title>Busy</title>\n<p>The wireless utility is transferring.</p>\n";

void copyProgram(const fs::path& from, const fs::path& to) {
  fs::create_directories(to.parent_path());
  // First removed: a running program cannot be written over (ETXTBSY).
  fs::remove(to);
  // A copy, never a link: a running application is recognised by the path of its executable.
  fs::copy_file(from, to);
}

void writeText(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

std::string textOf(const fs::path& file) {
  std::ifstream stream(file);
  if (!stream)
    throw fs::filesystem_error("no page", file, std::error_code(ENOENT, std::generic_category()));
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// The program's path has blanks, so it stands in quotation marks (desktop entry specification,
/// "The Exec key").
std::string desktopEntry(const fs::path& relay) {
  return "[Desktop Entry]\nType=Application\nName=Tarvo Relay\nExec=\"" + relay.string() +
         "\"\nTerminal=false\n";
}

}  // namespace

BundlePaths::BundlePaths(const fs::path& folder) {
  const auto applications = folder / "lib" / "tarvo";
  const auto library = applications / "Tarvo Relay.app" / "Contents" / "Library";
  agent = library / "Tarvo Agent.app";
  relay = library / "Tarvo Relay";
  wireless =
      applications / "TARVO Wireless Utility.app" / "Contents" / "MacOS" / "TARVO Wireless Utility";
  viewer = applications / "ViewerApp.app" / "Contents" / "MacOS" / "ViewerApp";
  page =
      applications / "Modules" / "web" / "gg" / "statics" / "conflict window" / "conflictpage.htm";
  models = agent / "Resources" / "ggcam.inf";
  dataFolder = folder / "share";
  desktopEntry = dataFolder / "applications" / "com.tarvo.Relay.desktop";
}

BundlePaths makeBundle(const fs::path& folder, const BundleOptions& options) {
  BundlePaths paths(fs::absolute(folder));
  const auto wanted = [&](const char* part) { return !options.without.contains(part); };
  fs::create_directories(paths.models.parent_path());
  const auto program = [&](const fs::path& real, const char* standin) {
    return real.empty() ? options.standins / standin : real;
  };
  if (wanted("relay")) copyProgram(program(options.relay, "relay-standin"), paths.relay);
  // Its window lies beside it.
  const auto window = options.relay.parent_path() / "relay-window.so";
  if (!options.relay.empty() && fs::exists(window))
    copyProgram(window, paths.relay.parent_path() / window.filename());
  if (wanted("wireless")) copyProgram(options.standins / "wireless-standin", paths.wireless);
  if (wanted("viewer")) copyProgram(program(options.viewer, "viewer-standin"), paths.viewer);
  if (wanted("page"))
    writeText(paths.page, options.page.empty() ? kBusyPage : textOf(options.page));
  if (wanted("models") && !options.models.empty()) {
    fs::copy_file(options.models, paths.models, fs::copy_options::overwrite_existing);
  }
  writeText(paths.desktopEntry, desktopEntry(paths.relay));
  return paths;
}

fs::path installedStandins() {
  const auto program = fs::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder :
       {program / ".." / "standins", program / ".." / "libexec" / "tarvo" / "standins"}) {
    if (fs::exists(folder / "relay-standin")) return fs::canonical(folder);
  }
  return {};
}

}  // namespace tarvo::simulator

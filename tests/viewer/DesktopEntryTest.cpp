// The entries that are installed, against the places from which the agent starts the programs.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/desktop/ProcessRunningApplications.h"
#include "platform/foundation/MakerConstants.h"
#include "tests/support/FakeUserDefaults.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

TEST(InstalledEntries, NameTheProgramsThatTheAgentStarts) {
  const ScopedEnvironment installed("TARVO_AGENT_BUNDLE", "");
  const auto constants = MakerConstants::load(FakeUserDefaults(), {});
  const std::filesystem::path bundle(constants.agentBundlePath);
  const std::pair<std::string, std::filesystem::path> rows[] = {
      {constants.relayBundleIdentifier, bundle / "../Tarvo Relay"},
      {"com.tarvo.Viewer", bundle / "../../../../ViewerApp.app/Contents/MacOS/ViewerApp"},
  };
  for (const auto& [identifier, program] : rows) {
    std::ostringstream entry;
    entry << std::ifstream(DESKTOP_ENTRIES "/" + identifier + ".desktop").rdbuf();
    EXPECT_THAT(programsOfDesktopEntry(entry.str()),
                testing::ElementsAre(program.lexically_normal().string()));
  }
}

}  // namespace
}  // namespace tarvo::test

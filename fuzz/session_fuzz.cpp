// Commands of tarvoctl on a camera whose answers are changed on the way.
//
// The first byte of an input tells where the changes begin; the others say what is done to one
// answer and how many pass until the next (MutatingUSBDevice.h), and, between the commands, which
// one comes next. Every command ends with a status; nothing is written but in the folder that was
// named; and once the device answers truthfully again, it works.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "fuzz/MutatingUSBDevice.h"
#include "fuzz/Require.h"
#include "tests/tools/ToolBench.h"

namespace {

namespace fs = std::filesystem;
using tarvo::test::ByteScript;
using tarvo::test::CameraBench;
using tarvo::test::MutatingUSBDevice;
using tarvo::test::Mutations;

constexpr std::size_t kMostCommands = 3;

/// Small objects: what is looked for is in the heads of things, not in their contents.
constexpr const char* kSmallCard = R"({
  "stores": [{"id": "0x00010001", "label": "CARD", "free": 2000000000, "content": [
    {"folder": "DCIM", "content": [{"folder": "100TARVO", "content": [
      {"file": "TARV0001.JPG", "size": 4096, "thumbnail": true},
      {"file": "TARV0002.MOV", "size": 70000}]}]},
    {"file": "NOTES.TXT", "text": "Sharing orders live here.\n"}]}]
})";

using Words = std::vector<std::string>;

std::vector<Words> commands(const CameraBench& bench) {
  const auto pictures = bench.folder.path("pictures/");
  return {{"ls", "--long", "--recursive"},
          {"get", "--all", "--output", pictures},
          {"--json", "info"},
          {"property", "list"},
          {"property", "get", "DateTime"},
          {"property", "set", "DateTime", "20261124T120000"},
          {"put", bench.folder.path("SENT.JPG")},
          {"get", "--thumbnail", "TARV0001.JPG", "--output", pictures},
          {"storage", "list"},
          {"storage", "format", "--yes"},
          {"rm", "TARV*", "--yes"},
          {"rename", "NOTES.TXT", "OTHER.TXT"},
          {"query", "SELECT * FROM objects"},
          {"clock", "set"},
          {"--json", "ls", "--recursive"}};
}

/// A name that a device made up leads nowhere else.
void requireNothingElseWritten(const CameraBench& bench) {
  for (const auto& entry : fs::directory_iterator(bench.folder.path())) {
    const auto name = entry.path().filename().string();
    require(name == "SENT.JPG" || name == "pictures");
  }
}

/// The message goes to the report of libFuzzer.
void requireWorks(const tarvo::test::ToolRun& run) {
  if (run.exitCode != tarvo::tools::kDone) std::fputs(run.err.c_str(), stderr);
  require(run.exitCode == tarvo::tools::kDone);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteScript script(std::span(data, size));
  Mutations mutations(script);
  CameraBench bench(kSmallCard);
  bench.folder.write("SENT.JPG", std::string(600, 's'));
  auto& connector = bench.sim.connector;
  connector.timeouts.bulk = connector.timeouts.control = connector.timeouts.takeOver =
      std::chrono::milliseconds(20);
  connector.timeouts.recovery = std::chrono::milliseconds(0);
  connector.wrap = [&](std::unique_ptr<tarvo::ptp::USBDevice> device) {
    return std::make_unique<MutatingUSBDevice>(std::move(device), mutations);
  };
  const auto choice = commands(bench);
  for (std::size_t count = 0; count < kMostCommands && !script.isUsedUp(); ++count)
    require(bench.run(choice[script.next() % choice.size()]).exitCode >= 0);
  requireNothingElseWritten(bench);
  connector.wrap = nullptr;
  requireWorks(bench.run({"ls", "--recursive"}));
  bench.sim.camera->forgetViolations();  // a host that is told lies takes other ways
  return 0;
}

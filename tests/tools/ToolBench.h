// tarvoctl in the process of the test: words in, exit status and both outputs out.
//
//   CameraBench bench;                     // a simulated camera
//   const auto run = bench.run({"ls", "--long"});
//   EXPECT_EQ(run.exitCode, 0);
//   EXPECT_THAT(run.out, HasSubstr("JPEG image"));
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/devices/XTPictureDevice.h"
#include "NativeServices/models/SupportedModels.h"
#include "Utilities/FileDescriptor.h"
#include "identify/DeviceInfoSupport.h"
#include "library/access/SessionState.h"
#include "msc/MSCRoom.h"
#include "msc/TarvoMSCDeviceList.h"
#include "platform/foundation/MakerConstants.h"
#include "tests/support/FakeDiskArbitration.h"
#include "tests/support/FakeSCSIServices.h"
#include "tests/support/SimulatedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"
#include "tools/CommandLine.h"
#include "tools/access/ToolContext.h"

namespace tarvo::test {

/// What a command runs on in a test: the session that it gets, and the platform under that.
class BenchPlatform : public library::Platform {
 public:
  Session& session() {
    if (!session_) session_.emplace(std::make_shared<SessionState>(*this));
    return *session_;
  }
  const Interrupt* interrupt() const override { return running; }

  const Interrupt* running = nullptr;  ///< what ends the command that runs

 private:
  std::optional<Session> session_;
};

struct ToolRun {
  int exitCode = -1;
  std::string out;
  std::string err;

  /// Standard output as JSON; a discarded value where it is not exactly one document.
  nlohmann::json json() const { return nlohmann::json::parse(out, nullptr, false); }
  /// Every line of standard output.
  std::vector<std::string> lines() const;
};

/// Runs `words` behind "tarvoctl". `input` is standard input, `terminal` the path of the terminal;
/// without it nobody can be asked.
ToolRun runTool(const std::vector<std::string>& words, BenchPlatform& platform,
                const std::string& input = {}, const StopSignals* interrupt = nullptr,
                const std::string& terminal = {});
/// The same at a terminal, to which both outputs lead: what it is given to show.
std::string shownByTool(const std::vector<std::string>& words, BenchPlatform& platform);
/// The same without a platform.
ToolRun runTool(const std::vector<std::string>& words, const std::string& input = {});

/// No platform at all: for what must not need one.
class NoPlatform : public BenchPlatform {
 public:
  const MakerConstants& maker() override { throw std::logic_error("the platform was asked for"); }
  SupportedModels& models() override { throw std::logic_error("the models were asked for"); }
  const PictureDeviceServices& services() override {
    throw std::logic_error("services were asked for");
  }
  TarvoMSCDeviceList& massStorage() override { throw std::logic_error("units were asked for"); }

  virtual ToolRun run(const std::vector<std::string>& words) { return runTool(words, *this); }
  /// The same, of a command that must be done, must fail, or must end so.
  ToolRun done(const std::vector<std::string>& words) { return ends(words, tools::kDone); }
  ToolRun fails(const std::vector<std::string>& words) { return ends(words, tools::kFailed); }
  ToolRun ends(const std::vector<std::string>& words, int exitCode);
};

/// A terminal at which somebody has typed something.
class Terminal {
 public:
  explicit Terminal(const std::string& typed);
  std::string path() const;
  /// What it has shown: the echo of what was typed first.
  std::string shown() const;

 private:
  FileDescriptor master_;
};

/// A simulated camera with tarvoctl on it.
class CameraBench : public NoPlatform {
 public:
  /// `json` is laid over a camera with folders, pictures and properties.
  explicit CameraBench(const std::string& json = "{}");

  const MakerConstants& maker() override { return sim.maker; }
  SupportedModels& models() override { return sim.models; }
  const PictureDeviceServices& services() override { return sim.room.services(); }
  TarvoMSCDeviceList& massStorage() override { return units.list(); }

  ToolRun run(const std::vector<std::string>& words) override {
    return runTool(words, *this, {}, interrupt, terminal);
  }
  /// Handle of the first object of that name; fails the test where there is none.
  std::string handleText(const std::string& name);
  /// Names of all objects, in the order of the device.
  std::vector<std::string> names();

  SimulatedPTPDevice sim;
  FakeSCSIServices scsi;
  FakeDiskArbitration disks;
  IdentifyRoom identify{{sim.service, sim.registry, sim.mounts}};
  MSCRoom units{{sim.center,
                 sim.registry,
                 scsi,
                 disks,
                 sim.mounts,
                 sim.defaults,
                 sim.maker,
                 {},
                 "UTF-8",
                 stderr}};
  TemporaryFolder folder;
  const StopSignals* interrupt = nullptr;
  std::string terminal;
};

}  // namespace tarvo::test

#include "tests/tools/ToolBench.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <sstream>

#include "tools/import/Import.h"

namespace tarvo::test {
namespace {

constexpr const char* kContent = R"({
  "properties": [
    {"code": "0x5001", "type": "UINT8", "value": 80, "range": [0, 100, 1]},
    {"code": "0x5010", "type": "INT16", "value": 0, "writable": true,
     "choices": [-1000, 0, 1000]},
    {"code": "0x5011", "type": "STR", "value": "20240615T120000", "writable": true}
  ],
  "vendor": {"queryRows": ["1|TARV0001.JPG\n", "2|TARV0002.JPG\n"]},
  "stores": [{"id": "0x00010001", "label": "CARD", "free": 2000000000, "content": [
    {"folder": "DCIM", "content": [{"folder": "100TARVO", "content": [
      {"file": "TARV0001.JPG", "size": 2412034, "thumbnail": true},
      {"file": "TARV0002.JPG", "size": 1987},
      {"file": "TARV0003.MOV", "size": 5242880}]}]},
    {"folder": "MISC", "content": [{"file": "NOTES.TXT", "text": "Sharing orders live here.\n"}]}
  ]}]
})";

std::string laidOver(const std::string& json) {
  auto content = nlohmann::json::parse(kContent);
  content.merge_patch(nlohmann::json::parse(json));
  return content.dump();
}

using OpenedFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

OpenedFile opened(const std::string& path, const char* mode) {
  return {std::fopen(path.c_str(), mode), std::fclose};
}

struct Streams {
  std::FILE* in;
  std::FILE* out;
  std::FILE* err;
};

int exitCodeOf(const std::vector<std::string>& words, BenchPlatform& platform,
               const Streams& streams, const StopSignals& interrupt, const std::string& terminal) {
  std::vector<const char*> arguments = {"tarvoctl"};
  for (const auto& word : words)
    arguments.push_back(word.c_str());
  auto line = tools::readCommandLine(static_cast<int>(arguments.size()), arguments.data(),
                                     streams.out, streams.err);
  if (line.exitCode) return *line.exitCode;
  tools::Output output(streams.out, streams.err, line.options);
  platform.running = &interrupt.signals();
  const tools::SessionSource session = [&]() -> Session& { return platform.session(); };
  tools::ToolContext context{line.options, output,   session, interrupt,
                             streams.in,   terminal, nullptr, tools::runImport};
  return tools::runCommand(context, line.command);
}

}  // namespace

std::vector<std::string> ToolRun::lines() const {
  std::vector<std::string> all;
  std::istringstream stream(out);
  for (std::string line; std::getline(stream, line);)
    all.push_back(line);
  return all;
}

Terminal::Terminal(const std::string& typed)
    : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  EXPECT_EQ(::grantpt(master_.get()), 0);
  EXPECT_EQ(::unlockpt(master_.get()), 0);
  EXPECT_EQ(::write(master_.get(), typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
}

std::string Terminal::path() const {
  return ::ptsname(master_.get());
}

std::string Terminal::shown() const {
  std::string all;
  std::array<char, 4096> text{};
  // It fails once all is read, as nobody has the terminal open any more.
  for (ssize_t length = 0; (length = ::read(master_.get(), text.data(), text.size())) > 0;)
    all.append(text.data(), static_cast<std::size_t>(length));
  return all;
}

ToolRun runTool(const std::vector<std::string>& words, BenchPlatform& platform,
                const std::string& input, const StopSignals* interrupt,
                const std::string& terminal) {
  const TemporaryFolder folder;
  const auto in = opened(folder.write("in", input), "rb");
  auto out = opened(folder.path("out"), "wb");
  auto err = opened(folder.path("err"), "wb");
  const std::unique_ptr<StopSignals> own = interrupt ? nullptr : std::make_unique<StopSignals>();
  ToolRun run;
  run.exitCode = exitCodeOf(words, platform, {in.get(), out.get(), err.get()},
                            interrupt ? *interrupt : *own, terminal);
  out.reset();
  err.reset();
  run.out = folder.read("out");
  run.err = folder.read("err");
  return run;
}

std::string shownByTool(const std::vector<std::string>& words, BenchPlatform& platform) {
  const Terminal terminal("");
  auto screen = opened(terminal.path(), "r+b");
  auto shown = std::async(std::launch::async, [&] { return terminal.shown(); });
  const StopSignals interrupt;
  exitCodeOf(words, platform, {screen.get(), screen.get(), screen.get()}, interrupt, "");
  screen.reset();
  return shown.get();
}

ToolRun runTool(const std::vector<std::string>& words, const std::string& input) {
  NoPlatform none;
  return runTool(words, none, input);
}

CameraBench::CameraBench(const std::string& json) : sim(laidOver(json)) {
  // Each command claims the device itself, as each is a process of its own.
  sim.device.reset();
  sim.scope.reset();
}

ToolRun NoPlatform::ends(const std::vector<std::string>& words, int exitCode) {
  auto ended = run(words);
  EXPECT_EQ(ended.exitCode, exitCode) << ::testing::PrintToString(words) << ended.out << ended.err;
  return ended;
}

std::string CameraBench::handleText(const std::string& name) {
  for (const auto& object : run({"--json", "ls", "--recursive"}).json())
    if (object.value("name", "") == name) return object["handle"].dump();
  ADD_FAILURE() << "there is no " << name;
  return "0";
}

std::vector<std::string> CameraBench::names() {
  std::vector<std::string> all;
  for (const auto& object : run({"--json", "ls", "--recursive"}).json())
    all.push_back(object.value("name", ""));
  return all;
}

}  // namespace tarvo::test

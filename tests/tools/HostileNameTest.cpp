// Names that a device gives stay inside the folder that the user chose.
#include <gmock/gmock.h>

#include <filesystem>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/PassThroughTransaction.h"
#include "Utilities/PTPCodes.h"
#include "tests/tools/ToolBench.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::Not;

/// Gives a camera without files objects of any name, as no description can.
class Planting {
 public:
  explicit Planting(CameraBench& bench) {
    ICAObject list = 0;
    ICAChildInfo child;
    bench.sim.service.getDeviceList(list);
    bench.sim.service.getNthChild(list, 0, child);
    scope_ = bench.sim.service.openScope(child.object, nullptr, nullptr);
    device_ = XTImageCapturePTPDevice::withICAObject(child.object, nullptr);
  }

  /// U+FFFD in `name` goes to the camera as half a surrogate pair.
  void file(const std::string& name) {
    XTExtendedObjectInfo info;
    info.setObjFmtCode(0x3801);
    info.setCompressedSize(static_cast<std::uint32_t>(kContent.size()));
    info.setFileName(name);
    auto bytes = info.dataSetWithByteOrder(kPTPByteOrder).data();
    for (std::size_t at = 0; at + 1 < bytes.size(); ++at) {
      if (bytes[at] == std::byte{0xFD} && bytes[at + 1] == std::byte{0xFF}) {
        bytes[at] = std::byte{0x00};
        bytes[at + 1] = std::byte{0xD8};
      }
    }
    if (isModulo64PayloadSize(static_cast<std::uint32_t>(bytes.size())))
      bytes.push_back(std::byte{0});
    send(ptp::kSendObjectInfo, {0x00010001, 0xFFFFFFFF}, bytes);
    send(ptp::kSendObject, {}, std::as_bytes(std::span(kContent)));
  }

 private:
  void send(std::uint16_t operation, std::vector<std::uint32_t> parameters,
            std::span<const std::byte> data) {
    PassThroughTransaction transaction({.method = "plant",
                                        .operation = operation,
                                        .parameters = std::move(parameters),
                                        .responseParameters = 3,
                                        .dataUsageMode = kDataToDevice,
                                        .data = data});
    EXPECT_TRUE(transaction.run(*device_)) << statusText(transaction.outcome());
  }

  static constexpr std::string_view kContent = "from the device";
  std::unique_ptr<ICAScope> scope_;
  std::shared_ptr<XTImageCapturePTPDevice> device_;
};

/// A camera that holds nothing but files of these names.
std::unique_ptr<CameraBench> benchWith(const std::vector<std::string>& names) {
  auto bench = std::make_unique<CameraBench>(
      R"({"stores": [{"id": "0x00010001", "free": 1000000, "content": []}]})");
  Planting planting(*bench);
  for (const auto& name : names)
    planting.file(name);
  return bench;
}

TEST(HostileNames, AllStayInsideTheFolder) {
  const auto bench =
      benchWith({"../x", "/etc/x", "a/../../b", "..", ".", "", std::string(254, 'n'),
                 "bell\x07\x1b[2J", "line\nend", "Same.txt", "SAME.TXT", "\xEF\xBF\xBD.jpg"});
  const auto inner = bench->folder.path("chosen/inner");
  const auto run = bench->run({"get", "--all", "--output", inner + "/"});
  EXPECT_EQ(run.exitCode, tools::kFailed) << "three names are none";
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(bench->folder.path())) {
    if (!entry.is_regular_file()) continue;
    EXPECT_EQ(entry.path().parent_path(), inner);
    names.push_back(entry.path().filename());
    for (const char letter : names.back())
      EXPECT_GE(static_cast<unsigned char>(letter), 0x20) << "no control characters";
  }
  EXPECT_EQ(names.size(), 9U);
  for (const char* name : {"x", "x (2)", "b", "Same.txt", "SAME.TXT", "\xEF\xBF\xBD.jpg"})
    EXPECT_THAT(names, Contains(name));
  EXPECT_FALSE(fs::exists("/etc/x"));
}

TEST(HostileNames, CannotSteerTheTerminal) {
  const auto bench = benchWith({"bell\x07\x1b[2J.JPG", "two\nlines.JPG"});
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"ls"},
           {"ls", "--long"},
           {"get", "--all", "--output", bench->folder.path("pictures/")},
           {"rm", "*.JPG", "--yes"}}) {
    const auto run = bench->run(words);
    for (const std::string& text : {run.out, run.err})
      EXPECT_THAT(text, Not(Contains('\x1b')));
  }
}

TEST(HostileNames, AreWholeInJSON) {
  const auto bench = benchWith({"two\nlines.JPG"});
  EXPECT_EQ(bench->run({"--json", "ls"}).json()[0]["name"], "two\nlines.JPG");
}

}  // namespace
}  // namespace tarvo::test

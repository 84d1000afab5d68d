#include "simulator/description/DeviceDescription.h"

#include <gmock/gmock.h>

#include "simulator/bytes/JsonNode.h"
#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {
namespace {

/// What is said about a description; empty when nothing is.
std::string problemOf(const std::string& json) {
  try {
    const DeviceState state(DeviceDescription::fromJson(nlohmann::json::parse(json)));
    return {};
  } catch (const DescriptionError& error) {
    return error.what();
  }
}

TEST(DeviceDescription, NamesTheKeyPathOfAMistake) {
  const std::string camera = R"({"usb": {"vendor": 1, "product": 2}, "deviceInfo": {}, )";
  const std::pair<std::string, const char*> rows[] = {
      {R"({"usb": {"vendor": "0x10000", "product": 2}})", "usb.vendor: a number from 0 to 65535"},
      {camera + R"("stores": [{"content": [{"file": "a/b"}]}]})", "stores[0].content[0].file: "},
      {camera + R"("datasets": {"contacts": [{"name": "Anna"}]}})",
       "datasets.contacts[0]: unknown key \"name\""},
      {camera + R"("faults": {"delay": true}})", "faults.delay: the fault is written delay="},
  };
  for (const auto& [json, expected] : rows)
    EXPECT_THAT(problemOf(json), ::testing::StartsWith(expected)) << json;
  EXPECT_NE(problemOf(camera + R"("stores": [{}], "datasets": {"groups": [{"members": ["X"]}]}})"),
            "");
  EXPECT_EQ(problemOf(camera + R"("stores": []})"), "");
}

TEST(DeviceDescription, ReadsEveryShippedDescription) {
  for (const auto& entry : std::filesystem::directory_iterator(DEVICES_FOLDER))
    EXPECT_NO_THROW(DeviceState(DeviceDescription::fromFile(entry.path()))) << entry.path();
}

}  // namespace
}  // namespace tarvo::simulator

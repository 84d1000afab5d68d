#include "simulator/description/DeviceDescription.h"

#include <gmock/gmock.h>

#include "simulator/bytes/JsonNode.h"
#include "simulator/ptp/DeviceState.h"

namespace tarvo::simulator {
namespace {

using ::testing::StartsWith;

/// What is said about a description; empty when nothing is.
std::string problemOf(const std::string& json) {
  try {
    DeviceDescription::fromJson(nlohmann::json::parse(json));
    return {};
  } catch (const DescriptionError& error) {
    return error.what();
  }
}

constexpr const char* kCamera = R"({"usb": {"vendor": 1, "product": 2}, "deviceInfo": {}, )";

TEST(DeviceDescription, NamesTheKeyPathOfAMistake) {
  const std::string camera = kCamera;
  const std::string unit = R"({"kind": "massStorage", "usb": {"vendor": 1, "product": 2}, )";
  const std::pair<std::string, const char*> rows[] = {
      {R"({"usb": {"vendor": "0x10000", "product": 2}})", "usb.vendor: a number from 0 to 65535"},
      {R"({"kind": "toaster", "usb": {"vendor": 1, "product": 2}})", "kind: \"ptp\" or"},
      {camera + R"("colour": 1})", "the description: unknown key \"colour\""},
      {camera + R"("stores": {}})", "stores: a list is expected"},
      {camera + R"("stores": [{"content": [{"file": "a/b"}]}]})", "stores[0].content[0].file: "},
      {camera + R"("properties": [{"code": 1, "type": "UINT9", "value": 1}]})",
       "properties[0].type: one of these is expected: INT8"},
      {camera +
           R"("stores": [{"content": [{"file": "a", "text": "ł", "encoding": "ISO-8859-1"}]}]})",
       "stores[0].content[0].encoding: an encoding that has all of the text"},
      {camera + R"("datasets": {"contacts": [{"name": "Anna"}]}})",
       "datasets.contacts[0]: unknown key \"name\""},
      {camera + R"("datasets": {"groups": [{"generate": 2, "image": -1}]}})",
       "datasets.groups.image: a number from 0"},
      {camera + R"("datasets": {"raw": [{"format": "0x3801", "hex": ""}]}})",
       "datasets.raw[0].format: a data set's format"},
      {unit + R"("modePages": {"usbMode": {"flag": 1}}})",
       "modePages.usbMode: unknown key \"flag\""},
      {unit + R"("camera": {"usb": {"vendor": 1}}})", "camera: usb: the key \"product\""},
      {unit + R"("faults": {"wrong-id": true}})", "faults.wrong-id: unknown fault"},
      {camera + R"("faults": {"delay": true}})", "faults.delay: the fault is written delay="},
  };
  for (const auto& [json, expected] : rows) {
    EXPECT_THAT(problemOf(json), StartsWith(expected)) << json;
  }
  EXPECT_EQ(problemOf(camera + R"("stores": []})"), "");
}

TEST(DeviceDescription, ReadsEveryShippedDescription) {
  for (const auto& entry : std::filesystem::directory_iterator(DEVICES_FOLDER)) {
    EXPECT_NO_THROW(DeviceState(DeviceDescription::fromFile(entry.path()))) << entry.path();
  }
  EXPECT_THROW(DeviceDescription::fromFile("/nowhere/x.json"), DescriptionError);
}

TEST(DeviceDescription, NamesWhatADataSetRefersToInVain) {
  for (const auto* datasets :
       {R"({"groups": [{"members": ["Zoe"]}]})", R"({"printOrders": [{"asset": "NONE.JPG"}]})",
        R"({"storage": 7, "contacts": [{}]})"}) {
    const auto json = nlohmann::json::parse(std::string(kCamera) +
                                            R"("stores": [{}], "datasets": )" + datasets + "}");
    EXPECT_THROW(DeviceState(DeviceDescription::fromJson(json)), DescriptionError) << datasets;
  }
}

}  // namespace
}  // namespace tarvo::simulator

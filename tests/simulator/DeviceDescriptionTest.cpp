#include "simulator/description/DeviceDescription.h"

#include <gmock/gmock.h>

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
      {R"({})", "the description: the key \"usb\" is missing"},
      {R"({"usb": {"vendor": "0x10000", "product": 2}})", "usb.vendor: a number from 0 to 65535"},
      {R"({"usb": {"vendor": 1, "product": -2}})", "usb.product: a number from 0 to 65535"},
      {R"({"kind": "toaster", "usb": {"vendor": 1, "product": 2}})", "kind: \"ptp\" or"},
      {camera + R"("colour": 1})", "the description: unknown key \"colour\""},
      {camera + R"("stores": {}})", "stores: a list is expected"},
      {camera + R"("stores": [{"content": [{"file": "a/b"}]}]})", "stores[0].content[0].file: "},
      {camera + R"("stores": [{"content": [{"folder": ".."}]}]})", "stores[0].content[0].folder: "},
      {camera + R"("properties": [{"code": 1, "type": "UINT9", "value": 1}]})",
       "properties[0].type: one of these is expected: INT8"},
      {camera + R"("properties": [{"code": 1, "type": "STR", "value": 1}]})",
       "properties[0].value: a text is expected"},
      {camera +
           R"("stores": [{"content": [{"file": "a", "text": "ł", "encoding": "ISO-8859-1"}]}]})",
       "stores[0].content[0].encoding: an encoding that has all of the text"},
      {camera + R"("datasets": {"contacts": [{"name": "Anna"}]}})",
       "datasets.contacts[0]: unknown key \"name\""},
      {camera + R"("datasets": {"contacts": [{"guid": "123"}]}})",
       "datasets.contacts[0].guid: pairs of hexadecimal digits"},
      {camera + R"("datasets": {"groups": [{"generate": 2, "image": -1}]}})",
       "datasets.groups.image: a number from 0"},
      {camera + R"("datasets": {"raw": [{"format": "0x3801", "hex": ""}]}})",
       "datasets.raw[0].format: a data set's format"},
      {camera + R"("faults": {"explode": true}})", "faults.explode: unknown fault"},
      {unit + R"("modePages": {"usbMode": {"flag": 1}}})",
       "modePages.usbMode: unknown key \"flag\""},
      {unit + R"("modePages": {"model": {"bytes": [256]}}})",
       "modePages.model.bytes[0]: a number from 0 to 255"},
      {unit + R"("camera": {"usb": {"vendor": 1}}})", "camera: usb: the key \"product\""},
      {unit + R"("camera": "a name"})", "camera: an object is expected"},
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

TEST(DeviceDescription, GivesTheCameraOfAUnitTheUnitsSerialNumber) {
  const auto dock = DeviceDescription::fromFile(DEVICES_FOLDER "/dock.json");
  EXPECT_EQ(dock.camera->usb.name, "Tarvo Lumo X2");
  EXPECT_EQ(dock.camera->usb.serial, dock.usb.serial);
  EXPECT_EQ(dock.camera->info.serial, dock.usb.serial);
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

TEST(DeviceDescription, WritesTheBytesThatFirmwareWrites) {
  const DeviceState state(DeviceDescription::fromJson(nlohmann::json::parse(
      std::string(kCamera) +
      R"("stores": [{"content": [{"file": "A.ABK", "lines": ["é", "b"], "encoding": "ISO-8859-1"},
                                 {"file": "B.MRK", "lines": []}]}]})")));
  const auto file = state.objects.object(1).value();
  EXPECT_EQ(file.traits.format, 0xB003);
  const auto bytes = allBytes(*file.content);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
            "\xE9\r\nb\r\n");
  EXPECT_EQ(state.objects.object(2)->traits.format, 0x3006);
}

class Store : public ::testing::Test {
 protected:
  ObjectStore store_{DeviceDescription::fromJson(nlohmann::json::parse(std::string(kCamera) + R"(
      "stores": [{"content": [{"folder": "DCIM", "content": [
        {"generate": {"count": 100000, "size": 2000000}}, {"file": "X.TXT", "text": "hello"}]}]}]})"))
                         .stores};
};

TEST_F(Store, CountsWhatItWouldList) {
  for (const auto& filter : {ObjectFilter{}, ObjectFilter{0xFFFFFFFF, 0x3801, 0},
                             ObjectFilter{0x00010001, 0x3001, 0}, ObjectFilter{0xFFFFFFFF, 0, 1},
                             ObjectFilter{0xFFFFFFFF, 0, 0xFFFFFFFF}, ObjectFilter{5, 0, 0}}) {
    EXPECT_EQ(store_.count(filter), store_.handles(filter).size());
  }
  EXPECT_EQ(store_.count({}), 100002U);
  EXPECT_EQ(store_.count({0xFFFFFFFF, 0, 0xFFFFFFFF}), 1U);
}

TEST_F(Store, DescribesGeneratedAndExplicitObjectsAlike) {
  const std::pair<std::uint32_t, const char*> rows[] = {
      {1, "DCIM"}, {2, "TARV000001.JPG"}, {100001, "TARV100000.JPG"}, {100002, "X.TXT"}};
  for (const auto& [handle, name] : rows)
    EXPECT_EQ(store_.object(handle).value().nameText(), name);
  EXPECT_FALSE(store_.object(0));
  EXPECT_FALSE(store_.object(100003));
}

}  // namespace
}  // namespace tarvo::simulator

// What lies on a device as Image Capture shows it, and what is done with it through plain messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/devices/XTImageCaptureMSCDevice.h"
#include "tests/support/ScriptedPTPDevice.h"

namespace tarvo::test {
namespace {

using testing::IsEmpty;

PropertyDictionary file(const std::string& name, std::uint32_t object) {
  return {{"ifil", name}, {"icao", object}, {"isiz", 1000}};
}

/// A card with a device of its own.
struct Card {
  Card() {
    room.addUSBUnit("sdb1", 0x0302);
    auto& volume = room.ica.addVolume("CARD", "sdb1");
    volume.properties["data"] = {file("A.JPG", 0x201), file("B.JPG", 0x202)};
    device = XTImageCaptureMSCDevice::withICAObject(volume.object, nullptr);
  }
  PictureDeviceTestRoom room;
  std::shared_ptr<XTImageCaptureDevice> device;
};

TEST(Contents, AreTheElementsUnderDataUntilTheyChange) {
  Card card;
  EXPECT_EQ(card.device->imageCount(), 2);
  EXPECT_EQ(*card.device->pictureFiles(),
            (ObjectReferences{file("A.JPG", 0x201), file("B.JPG", 0x202)}));
  auto& volume = *card.room.ica.find(card.device->icaObject());
  volume.properties["data"].clear();
  EXPECT_EQ(card.device->imageCount(), 2) << "as last copied";
  card.device->storesChanged();
  EXPECT_EQ(volume.forgotten, 1);
  EXPECT_EQ(card.device->imageCount(), 0);
  volume.properties.erase("data");
  card.device->storesChanged();
  EXPECT_EQ(card.device->imageCount(), 0);
  EXPECT_THAT(*card.device->pictureFiles(), IsEmpty());
  card.room.ica.vanish(card.device->icaObject());
  card.device->storesChanged();
  EXPECT_EQ(card.device->imageCount(), 0);
}

TEST(Contents, LoseAPictureOnceItWasDeleted) {
  Card card;
  EXPECT_EQ(card.device->imageCount(), 2);
  card.room.ica.messageStatus = -36;
  EXPECT_EQ(card.device->deleteObject(file("A.JPG", 0x201)), -36);
  EXPECT_EQ(card.device->imageCount(), 2);
  card.room.ica.messageStatus = 0;
  EXPECT_EQ(card.device->deleteObject(file("A.JPG", 0x201)), 0);
  EXPECT_EQ(card.device->deleteObject(file("not a picture", 0x207)), 0);
  EXPECT_EQ(*card.device->pictureFiles(), ObjectReferences{file("B.JPG", 0x202)});
  EXPECT_EQ(card.room.ica.messages.back(), std::pair(ICAObject{0x207}, ica::kMessageDelete));

  for (const ObjectReference& object : {ObjectReference(), ObjectReference("/media/u/A.JPG"),
                                        ObjectReference({{"ifil", "no handle"}})})
    EXPECT_EQ(card.device->deleteObject(object), status::kICAInvalidObject);
  card.device->setDisconnected(true);
  EXPECT_EQ(card.device->deleteObject(file("B.JPG", 0x202)), 0x2002);
  EXPECT_EQ(card.room.ica.messages.size(), 3U);
}

TEST(Clock, IsSetByTheFirstCapabilityForIt) {
  const std::uint32_t other = 0x61626364;
  const struct {
    PropertyDictionary capabilities;
    Status ends;
    Status status;
    std::size_t messages;
  } rows[] = {
      {{other, ica::kMessageSyncClock, ica::kMessageSyncClock}, 0, 0, 1},
      {{other, ica::kMessageSyncClock}, 0x200F, 0x200F, 1},
      {{other, "sclk"}, 0, -1400, 0},
      {nullptr, 0, -1400, 0},
  };
  for (const auto& row : rows) {
    ScriptedPTPDevice scripted;
    if (!row.capabilities.is_null()) scripted.camera.properties["capa"] = row.capabilities;
    scripted.room.ica.messageStatus = row.ends;
    EXPECT_EQ(scripted->setDateTime(), row.status) << row.capabilities;
    EXPECT_EQ(scripted.room.ica.messages.size(), row.messages);
    EXPECT_EQ(scripted.room.trace.count("setDateTime CameraSyncClock objectSendMessagePB.header.err"
                                        ": 0x200f"),
              row.ends == 0 ? 0U : 1U);
    EXPECT_EQ(scripted.room.trace.contains("Capability 0: abcd"), !row.capabilities.is_null());
  }
  ScriptedPTPDevice gone;
  gone.camera.dictionaryStatus = status::kICADeviceGone;
  EXPECT_EQ(gone->setDateTime(), status::kICADeviceGone) << "not knowing is no answer";
}

TEST(ExtendedEvents, ReachTheDeviceUntilItLeavesOrIsGone) {
  ScriptedPTPDevice scripted;
  std::vector<PropertyDictionary> heard;
  scripted.room.center.addObserver(
      &heard, "DeviceEvent", [&](const Notification& posted) { heard.push_back(posted.userInfo); });
  const PropertyDictionary event = {
      {"code", 0x4002}, {"session", 1}, {"transaction", 5}, {"params", {0xFFFFFFF0U, 2}}};
  scripted.room.ica.report(scripted.camera.object, event);
  EXPECT_THAT(heard, IsEmpty());
  EXPECT_EQ(scripted->registerForExtendedEvents(), 0);
  scripted.camera.properties["ifil"] = "read anew";
  scripted.room.ica.report(scripted.camera.object, event);
  (void)scripted->refreshIcaDictionary();
  EXPECT_EQ(scripted->icaDictionary()->at("ifil"), "read anew");
  ASSERT_EQ(heard.size(), 1U);
  EXPECT_EQ(heard[0]["code"], 0x4002);
  EXPECT_EQ(heard[0]["params"], event["params"]);
  scripted.room.ica.report(scripted.camera.object, {{"code", "none"}, {"params", {"x"}}});
  scripted->unregisterForExtendedEvents();
  scripted.room.ica.report(scripted.camera.object, event);
  EXPECT_EQ(heard.size(), 2U);

  EXPECT_EQ(scripted->registerForExtendedEvents(), 0);
  scripted.device.reset();
  scripted.room.ica.report(scripted.camera.object, event);
  EXPECT_EQ(heard.size(), 2U);
  scripted.room.center.removeObserver(&heard);
}

TEST(ExtendedEvents, AreTracedWhereTheyCannotBeHad) {
  ScriptedPTPDevice scripted;
  scripted.room.ica.registrationStatus[ica::kExtended] = -9906;
  EXPECT_EQ(scripted->registerForExtendedEvents(), -9906);
  scripted->unregisterForExtendedEvents();
  EXPECT_EQ(scripted.room.trace.count("Extended : registerEventNotificationPB.header.err: -9906"),
            2U);
}

}  // namespace
}  // namespace tarvo::test

#include "platform/imagecapture/ImageCaptureService.h"

#include <gmock/gmock.h>

#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ImageCaptureServiceTest : public ServiceFixture {
 protected:
  void listen(ICAObject object, FourCharCode type, const std::string& name) {
    EXPECT_EQ(service().registerForEventNotification(
                  object, type,
                  [this, name](const ICAEvent& event) {
                    heard.push_back(name + " " + event.dictionary.value("ifil", "?"));
                    objects.push_back(event.object);
                  }),
              status::kOK);
  }
  std::vector<std::string> heard;
  std::vector<ICAObject> objects;
};

TEST_F(ImageCaptureServiceTest, ShowsACameraThatWasThereAtTheStart) {
  plugCamera();
  ASSERT_THAT(devices(), SizeIs(1));
  const PropertyDictionary expected = {
      {"ifil", "Tarvo N10"},
      {"device module", "/System/Library/Image Capture/Devices/PTPCamera.app"},
      {"capa", PropertyDictionary::array()},
      {"idVendor", 0xF055},
      {"idProduct", 0x0A01},
      {"locationID", 0xFA200000U}};
  EXPECT_EQ(dictionaryOf(devices()[0]), expected);
  EXPECT_THAT(connector.log, IsEmpty()) << "an arrival sends nothing to the device";
}

TEST_F(ImageCaptureServiceTest, TakesTheInterfaceTripleOfPTPAndNoOther) {
  const ServiceHandle device = plugDevice("several interfaces");
  for (const auto& [interfaceClass, subclass, protocol] :
       {std::array{8U, 6U, 80U}, {6U, 1U, 2U}, {6U, 2U, 1U}, {7U, 1U, 1U}, {255U, 1U, 1U}})
    plugInterface(device, interfaceClass, subclass, protocol);
  EXPECT_THAT(devices(), IsEmpty());
  plugInterface(device);
  EXPECT_THAT(devices(), SizeIs(1));
}

TEST_F(ImageCaptureServiceTest, LeavesOutAnInterfaceThatIsGoneBeforeItWasRead) {
  const ServiceHandle device = plugDevice("going");
  registry.makeUnreadable(device);
  plugInterface(device);
  plugInterface(0);
  EXPECT_THAT(devices(), IsEmpty());
}

TEST_F(ImageCaptureServiceTest, TellsOfCamerasThatComeAndGo) {
  listen(0, ica::kDeviceAdded, "added");
  listen(0, ica::kDeviceRemoved, "removed");
  const ServiceHandle camera = plugCamera("N10");
  ASSERT_THAT(objects, SizeIs(1));
  const ICAObject object = objects[0];
  EXPECT_EQ(devices(), objects);
  registry.unplug(camera);
  EXPECT_THAT(heard, ElementsAre("added N10", "removed N10"));
  EXPECT_EQ(objects[1], object);
  EXPECT_THAT(devices(), IsEmpty());
  plugCamera("N20");
  EXPECT_GT(objects[2], object) << "a handle is never used twice";
}

TEST_F(ImageCaptureServiceTest, TellsTheObjectsOwnListenerFirstAndEachTypeAlone) {
  const ServiceHandle camera = plugCamera("N10");
  const ServiceHandle other = plugCamera("N20");
  const ICAObject object = devices()[0];
  listen(object, ica::kDeviceRemoved, "own");
  listen(object, ica::kStoreAdded, "store");
  listen(0, ica::kDeviceRemoved, "any");
  registry.unplug(other);
  EXPECT_THAT(heard, ElementsAre("any N20"));
  registry.unplug(camera);
  EXPECT_THAT(heard, ElementsAre("any N20", "own N10", "any N10"));
}

TEST_F(ImageCaptureServiceTest, ReplacesARegistrationAndEndsItWithAnEmptyCallback) {
  listen(0, ica::kDeviceAdded, "first");
  listen(0, ica::kDeviceAdded, "second");
  plugCamera("N10");
  EXPECT_EQ(service().registerForEventNotification(0, ica::kDeviceAdded, nullptr), status::kOK);
  EXPECT_EQ(service().registerForEventNotification(0, ica::kExtended, nullptr), status::kOK);
  plugCamera("N20");
  EXPECT_THAT(heard, ElementsAre("second N10"));
}

TEST_F(ImageCaptureServiceTest, SurvivesAListenerThatRaises) {
  const ServiceHandle camera = plugCamera("N10");
  EXPECT_EQ(service().registerForEventNotification(
                devices()[0], ica::kDeviceRemoved,
                [](const ICAEvent&) { throw std::runtime_error("listener"); }),
            status::kOK);
  listen(0, ica::kDeviceRemoved, "any");
  registry.unplug(camera);
  EXPECT_THAT(heard, ElementsAre("any N10"));
}

TEST_F(ImageCaptureServiceTest, DescribesTheListAndItsDevices) {
  plugCamera();
  ICAObject list = 0;
  ICAObjectInfo info;
  ASSERT_EQ(service().getDeviceList(list), status::kOK);
  EXPECT_EQ(service().getObjectInfo(list, info), status::kOK);
  EXPECT_EQ(fourCharText(info.objectType) + fourCharText(info.objectSubtype), "objlicdv");
  ICAChildInfo child;
  EXPECT_EQ(service().getNthChild(list, 0, child), status::kOK);
  EXPECT_EQ(fourCharText(child.info.objectType) + fourCharText(child.info.objectSubtype),
            "icdvcmra");
  EXPECT_EQ(service().getNthChild(list, 1, child), status::kICAInvalidObject);
  EXPECT_EQ(service().getNthChild(child.object, 0, child), status::kICAInvalidObject);
}

TEST_F(ImageCaptureServiceTest, AnswersWithAStatusForWhatIsNotOrNoLongerThere) {
  const ServiceHandle camera = plugCamera();
  const ICAObject gone = devices()[0];
  registry.unplug(camera);
  const struct {
    ICAObject object;
    Status status;
  } rows[] = {{gone, status::kICADeviceGone},
              {4711, status::kICAInvalidObject},
              {0, status::kICAInvalidObject}};
  for (const auto& row : rows) {
    ICAObjectInfo info;
    PropertyDictionary dictionary;
    std::string text;
    std::uint32_t count = 1;
    Status headerErr = status::kOK;
    Status failure = status::kOK;
    ICAObjectSendMessagePB block{.object = row.object, .messageType = ica::kMessageSyncClock};
    EXPECT_EQ(service().getObjectInfo(row.object, info), row.status);
    EXPECT_EQ(service().getChildCount(row.object, count, headerErr), row.status);
    EXPECT_EQ(headerErr, row.status);
    EXPECT_EQ(service().copyObjectPropertyDictionary(row.object, dictionary), row.status);
    EXPECT_EQ(service().getPropertyData(row.object, ica::kPropertyVolumeLabel, text), row.status);
    EXPECT_EQ(service().downloadFile(row.object, "/tmp", text), row.status);
    EXPECT_EQ(service().objectSendMessage(block), row.status);
    EXPECT_EQ(block.headerErr, row.status);
    EXPECT_EQ(service().openScope(row.object, &failure, &text), nullptr);
    EXPECT_EQ(failure, row.status);
    EXPECT_EQ(text, statusText(row.status));
  }
  EXPECT_EQ(service().registerForEventNotification(gone, ica::kStoreAdded, [](const ICAEvent&) {}),
            status::kICADeviceGone);
}

TEST_F(ImageCaptureServiceTest, DeletesAndDownloadsFilesAlone) {
  plugCamera();
  std::string path;
  ICAObjectSendMessagePB block{.object = devices()[0], .messageType = ica::kMessageDelete};
  EXPECT_EQ(service().objectSendMessage(block), status::kICAInvalidObject);
  EXPECT_EQ(service().downloadFile(block.object, folder, path), status::kICAInvalidObject);
  EXPECT_THAT(connector.log, IsEmpty());
}

}  // namespace
}  // namespace tarvo

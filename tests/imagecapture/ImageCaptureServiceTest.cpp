#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using ImageCaptureServiceTest = ServiceFixture;

TEST_F(ImageCaptureServiceTest, TakesTheInterfaceTripleOfPTPAndNoOther) {
  const ServiceHandle device = plugDevice("several interfaces");
  for (const auto& classes :
       {std::array{8U, 6U, 80U}, {6U, 1U, 2U}, {6U, 2U, 1U}, {7U, 1U, 1U}, {255U, 1U, 1U}})
    plugInterface(device, classes);
  plugInterface(0);  // its device has gone already
  EXPECT_THAT(devices(), IsEmpty());
  plugInterface(device);
  EXPECT_THAT(devices(), SizeIs(1));
}

TEST_F(ImageCaptureServiceTest, TellsOfCamerasThatComeAndGoTheirOwnListenerFirst) {
  listen(0, ica::kDeviceAdded, "replaced");
  listen(0, ica::kDeviceAdded, "added");
  listen(0, ica::kICANotificationTypeDeviceAdded, "beside");
  listen(0, ica::kDeviceRemoved, "removed");
  const ServiceHandle camera = plugCamera("N10");
  ASSERT_THAT(objects, SizeIs(2));
  const ICAObject object = objects[0];
  EXPECT_THAT(devices(), ElementsAre(object));
  EXPECT_EQ(object, objects[1]);
  const ServiceHandle other = plugCamera("N20");
  for (const auto type : {ica::kDeviceAdded, ica::kICANotificationTypeDeviceAdded})
    EXPECT_EQ(service().registerForEventNotification(0, type, nullptr), status::kOK);
  plugCamera("nobody hears of it");
  listen(object, ica::kStoreAdded, "store");
  const auto raising = [&](const ICAEvent& event) {
    heard.push_back("own");
    EXPECT_EQ(event.object, object);
    EXPECT_THAT(devices(), SizeIs(1)) << "it is off the list by now";
    throw std::runtime_error("listener");
  };
  EXPECT_EQ(service().registerForEventNotification(object, ica::kDeviceRemoved, raising),
            status::kOK);
  registry.unplug(other);
  registry.unplug(camera);
  EXPECT_THAT(heard, ElementsAre("added: N10", "beside: N10", "added: N20", "beside: N20",
                                 "removed: N20", "own", "removed: N10"));
  EXPECT_LT(object, objects[2]) << "a handle is never used twice";
}

TEST_F(ImageCaptureServiceTest, AnswersWithAStatusForWhatIsNotOrNoLongerThere) {
  const ServiceHandle camera = plugCamera();
  const ICAObject gone = devices()[0];
  registry.unplug(camera);
  for (const ICAObject object : {gone, gone + 1, ICAObject{0}}) {
    const Status expected = object == gone ? status::kICADeviceGone : status::kICAInvalidObject;
    ICAObjectInfo info;
    PropertyDictionary dictionary;
    std::string text;
    std::uint32_t count = 1;
    Status headerErr = status::kOK;
    Status failure = status::kOK;
    EXPECT_EQ(service().getObjectInfo(object, info), expected);
    EXPECT_EQ(service().getChildCount(object, count, headerErr), expected);
    EXPECT_EQ(headerErr, expected);
    EXPECT_EQ(service().copyObjectPropertyDictionary(object, dictionary), expected);
    EXPECT_EQ(service().downloadFile(object, "/tmp", text), expected);
    EXPECT_EQ(service().openScope(object, &failure, &text), nullptr);
    EXPECT_EQ(failure, expected);
    EXPECT_EQ(text, statusText(expected));
  }
  EXPECT_EQ(service().registerForEventNotification(gone, ica::kStoreAdded, [](const ICAEvent&) {}),
            status::kICADeviceGone);
}

}  // namespace
}  // namespace tarvo

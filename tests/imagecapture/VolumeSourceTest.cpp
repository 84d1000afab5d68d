#include "platform/imagecapture/VolumeSource.h"

#include <gmock/gmock.h>

#include <fstream>

#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Volumes : public ServiceFixture {
 protected:
  void makeFolder(const std::string& path) {
    std::filesystem::create_directories(folder + "/" + path);
  }
};

TEST_F(Volumes, AreDevicesWithTheirNameAndDisk) {
  plugDisk("sdb1");
  mounts.add("/dev/sdb1", mountPoint("CARD"));
  ASSERT_THAT(devices(), SizeIs(1));
  const auto dictionary = dictionaryOf(devices()[0]);
  EXPECT_EQ(dictionary["ifil"], "CARD");
  EXPECT_EQ(dictionary["volume"], "CARD");
  EXPECT_EQ(dictionary["bsdName"], "sdb1");
  EXPECT_EQ(dictionary["idVendor"], 0xF055);
  EXPECT_EQ(dictionary["capa"], PropertyDictionary::array());
}

TEST_F(Volumes, AreACamerasWhenTheyHoldAPictureFolder) {
  for (const char* disk : {"sdb1", "sdc1", "sdd1"})
    plugDisk(disk);
  makeFolder("CAMERA/DCIM");
  makeFolder("CARD/pictures/DCIM");
  makeFolder("FILE");
  std::ofstream(mountPoint("FILE") + "/DCIM") << "no folder";
  mounts.mount("/dev/sdb1", mountPoint("CAMERA"));
  mounts.mount("/dev/sdc1", mountPoint("CARD"));
  mounts.mount("/dev/sdd1", mountPoint("FILE"));
  ASSERT_THAT(devices(), SizeIs(3));
  EXPECT_EQ(moduleOf(devices()[0]), "MassStorageCamera.app");
  EXPECT_EQ(moduleOf(devices()[1]), "MassStorage.app");
  EXPECT_EQ(moduleOf(devices()[2]), "MassStorage.app");
}

TEST_F(Volumes, CountWhenMountedDirectlyInTheFolderFromAUSBDisk) {
  plugDisk("sdb1");
  registry.plug({{"IOClass", "block"}, {"BSD Name", "sda1"}});
  const struct {
    const char* device;
    std::string mountPoint;
  } rows[] = {{"/dev/sdb1", "/"},
              {"/dev/sdb1", folder},
              {"/dev/sdb1", folder + "/"},
              {"/dev/sdb1", folder + "/a/b"},
              {"/dev/sdb1", folder + "x/CARD"},
              {"/dev/sda1", folder + "/INTERNAL"},
              {"tmpfs", folder + "/tmp"},
              {"", folder + "/none"}};
  for (const auto& row : rows) {
    mounts.mount(row.device, row.mountPoint);
    EXPECT_THAT(devices(), IsEmpty()) << row.device << " on " << row.mountPoint;
  }
  mounts.mount("/dev/sdb1", mountPoint("CARD"));
  EXPECT_THAT(devices(), SizeIs(1));
}

TEST_F(Volumes, ComeAndGoWithTheirMount) {
  std::vector<std::string> heard;
  for (const FourCharCode type : {ica::kDeviceAdded, ica::kDeviceRemoved}) {
    service().registerForEventNotification(0, type, [&](const ICAEvent& event) {
      heard.push_back(fourCharText(event.type) + " " + event.dictionary.value("ifil", "?"));
    });
  }
  plugDisk("sdb1");
  mounts.mount("/dev/sdb1", mountPoint("CARD"));
  mounts.tellWatcher();
  mounts.mount("proc", "/proc");
  EXPECT_THAT(heard, ElementsAre("edea CARD"));
  const auto first = devices();
  mounts.unmount(mountPoint("CARD"));
  EXPECT_THAT(devices(), IsEmpty());
  mounts.mount("/dev/sdb1", mountPoint("CARD"));
  EXPECT_THAT(heard, ElementsAre("edea CARD", "eder CARD", "edea CARD"));
  EXPECT_NE(devices(), first);
}

TEST_F(Volumes, AreWhatWasMountedLastOnAFolder) {
  plugDisk("sdb1");
  plugDisk("sdc1");
  mounts.mount("/dev/sdb1", mountPoint("CARD"));
  mounts.mount("/dev/sdc1", mountPoint("CARD"));
  ASSERT_THAT(devices(), SizeIs(1));
  EXPECT_EQ(dictionaryOf(devices()[0])["bsdName"], "sdc1");
}

TEST_F(Volumes, HaveALabelAndAScopeButNoInterface) {
  plugDisk("sdb1");
  plugCamera();
  mounts.mount("/dev/sdb1", mountPoint("Größe"));
  const ICAObject camera = devices()[0];
  const ICAObject volume = devices()[1];
  ICAPropertyInfo info;
  std::string label;
  EXPECT_EQ(service().getPropertyByType(volume, ica::kPropertyVolumeLabel, info), status::kOK);
  EXPECT_EQ(fourCharText(info.dataType), "TEXT");
  EXPECT_EQ(service().getPropertyData(volume, ica::kPropertyVolumeLabel, label), status::kOK);
  EXPECT_EQ(label, "Größe");
  EXPECT_EQ(info.dataSize, label.size());
  EXPECT_EQ(service().getPropertyData(volume, ica::kObjectList, label),
            status::kICAPropertyNotFound);
  EXPECT_EQ(service().getPropertyData(camera, ica::kPropertyVolumeLabel, label),
            status::kICAPropertyNotFound);

  PTPPassThroughRecord record(8);
  ICAObjectSendMessagePB block{.object = volume, .messageType = ica::kMessagePass, .data = &record};
  EXPECT_EQ(service().objectSendMessage(block), status::kICAInvalidObject);
  Status failure = status::kIOError;
  EXPECT_NE(service().openScope(volume, &failure, nullptr), nullptr);
  EXPECT_EQ(failure, status::kOK);
  EXPECT_THAT(connector.log, IsEmpty());
}

TEST_F(Volumes, AreWatchedOnlyWhileTheServiceLives) {
  {
    ImageCaptureService shortLived(registry, mounts, connector, LogSink());
    EXPECT_TRUE(mounts.isWatched());
    EXPECT_EQ(registry.subscriptionCount(), 1U);
  }
  EXPECT_FALSE(mounts.isWatched());
  EXPECT_EQ(registry.subscriptionCount(), 0U);
}

}  // namespace
}  // namespace tarvo

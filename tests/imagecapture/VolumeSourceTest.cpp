#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Volumes : public ServiceFixture {
 protected:
  void mount(const std::string& device, const std::string& name) {
    mounts.mount(device, folder.path(name));
  }
};

TEST_F(Volumes, AreDevicesAndACamerasWhenTheyHoldAPictureFolder) {
  const std::pair<const char*, const char*> rows[] = {{"CAMERA", "MassStorageCamera.app"},
                                                      {"CARD", "MassStorage.app"},
                                                      {"FILE", "MassStorage.app"}};
  std::filesystem::create_directories(folder.path("CAMERA/DCIM"));
  std::filesystem::create_directories(folder.path("CARD/pictures/DCIM"));
  folder.write("FILE/DCIM", "no folder");
  plugDisk("sdb1");
  for (const auto& [name, module] : rows) {
    mount("/dev/sdb1", name);
    const PropertyDictionary expected = {
        {"ifil", name},
        {"device module", std::string("/System/Library/Image Capture/Devices/") + module},
        {"capa", PropertyDictionary::array()},
        {"volume", name},
        {"bsdName", "sdb1"},
        {"idVendor", 0xF055},
        {"idProduct", 0x0A01},
        {"locationID", 0xFA200000U}};
    EXPECT_EQ(dictionaryOf(devices().back()), expected);
  }
}

TEST_F(Volumes, CountWhenMountedDirectlyInTheFolderFromAUSBDisk) {
  plugDisk("sdb1");
  registry.plug({{"IOClass", "block"}, {"BSD Name", "sda1"}});
  const std::string volumes = folder.path();
  const std::pair<const char*, std::string> rows[] = {{"/dev/sdb1", "/"},
                                                      {"/dev/sdb1", volumes + "/"},
                                                      {"/dev/sdb1", volumes + "/a/b"},
                                                      {"/dev/sdb1", volumes + "x/CARD"},
                                                      {"/dev/sda1", volumes + "/INTERNAL"},
                                                      {"tmpfs", volumes + "/tmp"}};
  for (const auto& [device, mountPoint] : rows) {
    mounts.mount(device, mountPoint);
    EXPECT_THAT(devices(), IsEmpty()) << device << " on " << mountPoint;
  }
}

TEST_F(Volumes, ComeAndGoWithTheirMountWhichIsTheLastOnAFolder) {
  listen(0, ica::kDeviceAdded, "added");
  listen(0, ica::kDeviceRemoved, "removed");
  plugDisk("sdb1");
  plugDisk("sdc1");
  mount("/dev/sdb1", "CARD");
  mounts.mount("proc", "/proc");
  EXPECT_THAT(heard, ElementsAre("added: CARD"));
  mount("/dev/sdc1", "CARD");
  ASSERT_THAT(devices(), SizeIs(1));
  EXPECT_EQ(dictionaryOf(devices()[0])["bsdName"], "sdc1");
  mounts.unmount(folder.path("CARD"));
  EXPECT_THAT(devices(), IsEmpty());
  EXPECT_THAT(heard, ElementsAre("added: CARD", "removed: CARD", "added: CARD", "removed: CARD"));
  EXPECT_LT(objects[0], objects[2]) << "a handle is never used twice";
}

TEST_F(Volumes, HaveALabelAndAScopeButNoInterface) {
  plugDisk("sdb1");
  plugCamera();
  mount("/dev/sdb1", "Größe");
  const ICAObject camera = devices()[0];
  const ICAObject volume = devices()[1];
  std::string label;
  EXPECT_EQ(service().getPropertyData(volume, ica::kPropertyVolumeLabel, label), status::kOK);
  EXPECT_EQ(label, "Größe");
  EXPECT_EQ(service().getPropertyData(camera, ica::kPropertyVolumeLabel, label),
            status::kICAPropertyNotFound);
  ICAObjectSendMessagePB block{.object = volume, .messageType = ica::kMessagePass};
  EXPECT_EQ(service().objectSendMessage(block), status::kICAInvalidObject);
  EXPECT_NE(service().openScope(volume, nullptr, nullptr), nullptr);
}

TEST_F(Volumes, ShowTheirFilesWhichAreFetchedAndDeletedByTheirHandles) {
  const test::TemporaryFolder place;
  folder.write("CARD/MISC/PRINT.MRK", "order");
  folder.write("CARD/A.JPG", "picture");
  folder.write("CARD/bytes\xFF.TXT", "");
  std::filesystem::create_directory_symlink(place.path(), folder.path("CARD/out"));
  plugDisk("sdb1");
  mount("/dev/sdb1", "CARD");
  const ICAObject card = devices().back();
  PropertyDictionary pictures;
  PropertyDictionary tree;
  ASSERT_EQ(service().copyObjectProperty(card, "data", pictures), status::kOK);
  ASSERT_EQ(service().copyObjectProperty(card, "tree", tree), status::kOK);
  ASSERT_THAT(pictures, SizeIs(1));
  EXPECT_EQ(pictures[0]["isiz"], 7);
  ASSERT_THAT(tree, SizeIs(3)) << tree;
  PropertyDictionary marker;
  for (const auto& node : tree)
    if (node["ifil"] == "MISC") marker = node["tree"][0];
  EXPECT_EQ(marker["ifil"], "PRINT.MRK");

  const ICAObject handle = marker["icao"];
  std::string path;
  EXPECT_EQ(service().downloadFile(handle, place.path(), path), status::kOK);
  EXPECT_EQ(place.read("PRINT.MRK"), "order");
  EXPECT_EQ(service().downloadFile(handle, place.path(), path), status::kDuplicateFile);
  ICAObjectSendMessagePB block;
  block.object = handle;
  block.messageType = ica::kMessageDelete;
  EXPECT_EQ(service().objectSendMessage(block), status::kOK);
  EXPECT_FALSE(folder.exists("CARD/MISC/PRINT.MRK"));
  EXPECT_EQ(service().objectSendMessage(block), status::kICAInvalidObject);
  ASSERT_EQ(service().copyObjectProperty(card, "data", pictures), status::kOK);
  block.object = pictures[0]["icao"];
  std::filesystem::remove(folder.path("CARD/A.JPG"));
  EXPECT_EQ(service().objectSendMessage(block), status::kFileNotFound);
  std::filesystem::remove_all(folder.path("CARD"));
  service().forgetContents(card);
  EXPECT_EQ(service().copyObjectProperty(card, "tree", tree), status::kICADeviceGone);
}

}  // namespace
}  // namespace tarvo

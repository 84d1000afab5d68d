// A mounted volume as a picture device.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCaptureVolume.h"
#include "tests/support/PictureDeviceTestRoom.h"
#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::EndsWith;

class Volume : public ::testing::Test {
 protected:
  Volume() {
    room.mounts.moveTo(folder.path());
    room.mounts.add("/dev/sdb1", folder.path("CARD"));
    device = XTImageCaptureVolume::withICAObject(
        room.ica.addVolume("CARD", "sdb1", "MassStorage.app").object, nullptr);
  }
  std::string path(const std::string& name) const { return folder.path("CARD/" + name); }
  std::string write(const std::string& name, const std::string& content = "picture") const {
    return folder.write("CARD/" + name, content);
  }
  Status download(const std::string& source, const std::string& name) {
    return device->downloadImage(source, folder.path(name));
  }
  bool hasTraced(const std::string& text) const { return room.trace.contains(text); }

  TemporaryFolder folder;
  PictureDeviceTestRoom room;
  std::shared_ptr<XTImageCaptureVolume> device;
};

TEST_F(Volume, IsFoundAmongTheRemovableMountsByItsName) {
  ASSERT_TRUE(device);
  EXPECT_EQ(device->volumePath(), folder.path("CARD"));
  EXPECT_EQ(device->serialNumber(), room.maker.volumeSerialPlaceholder);
  EXPECT_EQ(device->model(), "");
  room.mounts.add("/dev/sdc1", folder.path("a/DEEP"));
  room.mounts.add("/dev/sdd1", "/mnt/OTHER");
  for (const char* name : {"DEEP", "OTHER", "..", ""}) {
    const auto object = room.ica.addVolume(name, "sdb1", "MassStorage.app").object;
    EXPECT_EQ(XTImageCaptureVolume::withICAObject(object, nullptr)->volumePath(), std::nullopt);
  }
}

TEST_F(Volume, WithoutAPathOrADictionaryAssertionsFail) {
  const auto none = XTImageCaptureVolume::withICAObject(
      room.ica.addVolume("GONE", "sdb1", "MassStorage.app").object, nullptr);
  EXPECT_THAT(raised([&] { none->imageCount(); }), EndsWith("imageCount requires a Volume Path"));
  EXPECT_THAT(raised([&] { none->pictureFiles(); }),
              EndsWith("pictureFiles requires a Volume Path"));
  EXPECT_THAT(raised([&] { device->isProtected(nullptr); }),
              EndsWith("Invalid parameter not satisfying: path"));
  EXPECT_THAT(raised([&] { return device->downloadVolumeObject(nullptr); }),
              EndsWith("Invalid parameter not satisfying: path"));
  EXPECT_THAT(raised([&] { XTImageCaptureVolume::withICAObject(0x999, nullptr); }),
              EndsWith("loadDeviceInfo requires an Image Capture dictionary"));
}

TEST_F(Volume, CountsAndListsPicturesByTheirExtensions) {
  for (const char* name : {"DCIM/photo.Jpeg", "DCIM/a.bmg", "b.JPG", ".trash/c.mov", "d.png"})
    write(name);
  for (const char* name : {".hidden.jpg", "a.bmp", "jpg", "notes.txt", "e.jpgx"})
    write(name);
  fs::create_directories(path("folder.JPG"));
  fs::create_symlink(path("b.JPG"), path("link.jpg"));
  EXPECT_EQ(device->imageCount(), 5);
  EXPECT_THAT(*device->pictureFiles(),
              ElementsAre(path(".trash/c.mov"), path("DCIM/a.bmg"), path("DCIM/photo.Jpeg"),
                          path("b.JPG"), path("d.png")));
}

TEST_F(Volume, CopiesContentDatesPermissionsAndTheLowHalfOfTheType) {
  const auto source = write("A.JPG", std::string(300'000, 'x'));
  const timespec times[] = {{.tv_sec = 1'000'000'000, .tv_nsec = 5},
                            {.tv_sec = 1'100'000'000, .tv_nsec = 7}};
  ::utimensat(AT_FDCWD, source.c_str(), times, 0);
  ::chmod(source.c_str(), 04640);
  EXPECT_EQ(download(source, "copy.jpg"), status::kOK);
  EXPECT_EQ(folder.read("copy.jpg"), std::string(300'000, 'x'));
  struct stat copy {};
  ASSERT_EQ(::stat(folder.path("copy.jpg").c_str(), &copy), 0);
  EXPECT_EQ(copy.st_mode & 07777U, 0640U);
  EXPECT_EQ(copy.st_mtim.tv_sec, 1'100'000'000);
  EXPECT_EQ(copy.st_mtim.tv_nsec, 7);
  char type[5] = {};
  ASSERT_EQ(::getxattr(folder.path("copy.jpg").c_str(), "user.tarvo.hfstype", type, 5), 4);
  EXPECT_EQ(std::string(type, 4), std::string("\0\0EG", 4)) << "'JPEG' cut to its low 16 bits";
}

TEST_F(Volume, AReadOnlyFileIsProtected) {
  const auto source = write("A.JPG");
  ::chmod(source.c_str(), 0664);
  EXPECT_FALSE(device->isProtected(source));
  ::chmod(source.c_str(), 0444);
  EXPECT_TRUE(device->isProtected(source));
}

TEST_F(Volume, ReplacesNothingAndLeavesNothingHalf) {
  const auto source = write("A.JPG", std::string(2'000'000, 'x'));
  folder.write("there.jpg", "mine");
  EXPECT_EQ(download(source, "there.jpg"), status::kDuplicateFile);
  EXPECT_EQ(folder.read("there.jpg"), "mine");
  EXPECT_TRUE(hasTraced("downloadImage: there is already a file at: " + folder.path("there.jpg")));
  fs::create_symlink("/nowhere", folder.path("dangling.jpg"));
  EXPECT_EQ(download(source, "dangling.jpg"), status::kDuplicateFile);

  // A link on the volume leads nowhere, whatever it points to.
  fs::create_symlink(folder.path("there.jpg"), path("link.jpg"));
  fs::create_directory_symlink(folder.path(), path("out"));
  for (const char* name : {"link.jpg", "out/there.jpg", "none.jpg", ""}) {
    EXPECT_EQ(download(path(name), "copy.jpg"), status::kIOError) << name;
    EXPECT_TRUE(hasTraced("downloadImage: there was an error copying " + path(name)));
  }
  EXPECT_EQ(download(source, "none/copy.jpg"), status::kIOError);
  device->setDownloadUpdateCb([](std::uint32_t) { return true; });
  EXPECT_EQ(download(source, "copy.jpg"), status::kCancelled);
  for (const auto& entry : fs::directory_iterator(folder.path()))
    EXPECT_THAT((std::vector<std::string>{"CARD", "there.jpg", "dangling.jpg"}),
                ::testing::Contains(entry.path().filename().string()));
}

TEST_F(Volume, TellsOfFilesAndDeletesThem) {
  const auto source = write("A.JPG", "12345");
  EXPECT_EQ(device->objectSize(source), 5);
  EXPECT_EQ(device->objectFilename(source), "A.JPG");
  const auto info = device->objectInfoForHandle(source);
  EXPECT_EQ(info->fileName(), "A.JPG");
  EXPECT_EQ(info->compressedSize(), 5U);
  EXPECT_THAT(raised([&] { device->objectSize(path("none")); }),
              EndsWith("_objectHandle is not a dictionary!"));
  XTPictureDevice& base = *device;
  for (const Status status : {base.sendFile(source), base.deleteFilesOfType(0x3801),
                              base.deleteOrderFiles(), device->downloadVolumeObject(source)})
    EXPECT_EQ(status, status::kOK);
  EXPECT_EQ(device->deleteObject(source), status::kOK);
  EXPECT_EQ(device->deleteObject(source), status::kFileNotFound);
  fs::create_directories(path("FOLDER/inside"));
  EXPECT_EQ(device->deleteObject(path("FOLDER")), status::kWriteNotPermitted);
}

}  // namespace
}  // namespace tarvo::test

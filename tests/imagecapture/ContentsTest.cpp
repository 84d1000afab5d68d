// What lies on a camera: dictionaries, handles, downloads and deletions of its files.
#include <filesystem>

#include "Utilities/Format.h"
#include "tests/imagecapture/ServiceFixture.h"
#include "tests/support/FakeImageCapture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Contents : public ServiceFixture {
 protected:
  Contents() {
    plugCamera();
    camera = devices().at(0);
  }

  /// From now on this lies on the camera, and `more` is in its description.
  void fill(const std::string& content, const std::string& more = "{}") {
    auto description = nlohmann::json::parse(more);
    description["stores"] = nlohmann::json::parse("[{\"content\": [" + content + "]}]");
    describe(description.dump());
    service().forgetContents(camera);
  }
  PropertyDictionary property(ICAObject object, const char* key) {
    PropertyDictionary value;
    EXPECT_EQ(service().copyObjectProperty(object, key, value), status::kOK) << key;
    return value;
  }
  ICAObject picture(std::size_t index = 0) {
    return property(camera, "data").at(index).at("icao").get<ICAObject>();
  }
  Status remove(ICAObject object) {
    ICAObjectSendMessagePB block{.object = object, .messageType = ica::kMessageDelete};
    return service().objectSendMessage(block);
  }
  /// "name" and "name(members)", in their order.
  static std::string shape(const PropertyDictionary& nodes) {
    std::string text;
    for (const auto& node : nodes) {
      text += (text.empty() ? "" : " ") + node.at("ifil").get<std::string>();
      if (node.contains("tree")) text += "(" + shape(node["tree"]) + ")";
    }
    return text;
  }
  Status download(ICAObject object) {
    path.clear();
    return service().downloadFile(object, folder.path(), path);
  }
  std::vector<std::string> filesInFolder() const {
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::directory_iterator(folder.path()))
      names.push_back(each.path().filename());
    return names;
  }

  ICAObject camera = 0;
  std::string path;  ///< of the last download
};

TEST_F(Contents, AreReadOnFirstNeedAndOnceUntilForgotten) {
  fill(R"({"folder": "DCIM", "content": [{"file": "A.JPG", "size": 4}, {"file": "A.AVI"}]})");
  EXPECT_EQ(dictionaryOf(camera)["capa"], PropertyDictionary::array());
  EXPECT_FALSE(dictionaryOf(camera).contains("tree"));
  EXPECT_THAT(simulated->operations(), IsEmpty()) << "an arrival costs nothing";

  EXPECT_EQ(shape(property(camera, "data")), "A.JPG");
  EXPECT_EQ(shape(property(camera, "tree")), "DCIM(A.JPG A.AVI)");
  EXPECT_EQ(asked(0x1007), 1);
  EXPECT_EQ(asked(0x1002), 1);
  EXPECT_EQ(shape(dictionaryOf(camera)["tree"]), "DCIM(A.JPG A.AVI)");
  const ICAObject before = picture();
  EXPECT_EQ(property(camera, "data").at(0),
            (PropertyDictionary{{"ifil", "A.JPG"}, {"icao", before}, {"isiz", 4}, {"tsiz", 0}}));

  service().forgetContents(camera);
  EXPECT_FALSE(dictionaryOf(camera).contains("data"));
  EXPECT_EQ(property(before, "ifil"), "A.JPG") << "named until the next reading";
  EXPECT_NE(picture(), before);
  ICAObjectInfo info;
  EXPECT_EQ(service().getObjectInfo(before, info), status::kICAInvalidObject);
}

TEST_F(Contents, AreFoundOnADeviceThatListsOneFolderOfOneStoreAtATime) {
  fill(R"({"folder": "DCIM", "content": [{"folder": "A", "content": [{"file": "A.JPG"}]}]})",
       R"({"habits": {"listsFolderByFolder": true, "allStoresResponse": "0x2008"}})");
  EXPECT_EQ(shape(property(camera, "tree")), "DCIM(A(A.JPG))");
}

TEST_F(Contents, TellTheKindOfAFileAndHaveNothingElse) {
  fill(R"({"folder": "DCIM", "content": []}, {"file": "A.JPG", "format": "0xB802"},
          {"file": "A.MRK"})");
  const auto tree = property(camera, "tree");
  const FourCharCode subtypes[] = {ica::kDirectory, ica::kPictureFile, ica::kOtherFile};
  for (std::size_t i = 0; i < 3; ++i) {
    const auto object = tree[i]["icao"].get<ICAObject>();
    ICAObjectInfo info;
    EXPECT_EQ(service().getObjectInfo(object, info), status::kOK);
    EXPECT_EQ(info.objectType, i == 0 ? ica::kDirectory : ica::kFile);
    EXPECT_EQ(info.objectSubtype, subtypes[i]);
    EXPECT_EQ(dictionaryOf(object)["ifil"], tree[i]["ifil"]);
    PropertyDictionary value;
    EXPECT_EQ(service().copyObjectProperty(object, "capa", value), status::kICAPropertyNotFound);
    EXPECT_EQ(service().openScope(object, nullptr, nullptr), nullptr);
  }
}

TEST_F(Contents, OfAnyHostileShapeAreShownOnceEach) {
  const auto at = [](std::uint32_t handle, std::uint32_t parent, const char* name,
                     std::uint16_t format = 0x3001) {
    return FileObject{
        .object = {.handle = handle, .format = format, .parent = parent, .name = name}};
  };
  const std::pair<std::vector<FileObject>, const char*> rows[] = {
      {{at(1, 1, "self")}, "self()"},
      {{at(1, 2, "a"), at(2, 1, "b"), at(3, 1, "c")}, "a(b() c())"},
      {{at(1, 77, "orphan"), at(2, 1, "p", 0x3801)}, "orphan(p)"},
      {{at(1, 0, "file", 0x3801), at(2, 1, "in it", 0x3801)}, "file in it"},
  };
  for (const auto& [files, expected] : rows)
    EXPECT_EQ(shape(folderTree(files)), expected);
  std::vector<FileObject> chain;
  for (std::uint32_t i = 1; i <= 3000; ++i)
    chain.push_back(at(i, i - 1, "d"));
  const std::string deep = shape(folderTree(chain));
  EXPECT_EQ(std::ranges::count(deep, 'd'), 3000);
  EXPECT_EQ(deep.find(std::string(33, ')')), std::string::npos) << "no level beyond the limit";
}

TEST_F(Contents, LeaveOutWhatTheDeviceDoesNotTellOfAndRefuseWhatCannotBe) {
  fill(R"({"file": "A.JPG"}, {"file": "B.JPG"})");
  fail("respond", "0x2009,0x1008,once");
  EXPECT_EQ(shape(property(camera, "data")), "B.JPG");

  PropertyDictionary value = "untouched";
  service().forgetContents(camera);
  fail("truncate", "8,0x1007,once");
  EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kICAProtocolError);
  fail("silent", "0x1007,once");
  EXPECT_EQ(service().copyObjectProperty(camera, "tree", value), status::kICATimeout);
  EXPECT_EQ(service().copyObjectProperty(camera, "none", value), status::kICAPropertyNotFound);
  EXPECT_EQ(value, "untouched");

  for (std::size_t size = 0; size < 53; ++size)
    EXPECT_FALSE(decodeObject(1, std::vector<std::byte>(size))) << size;
  EXPECT_TRUE(decodeObject(1, std::vector<std::byte>(53)));
  auto longName = std::vector<std::byte>(53);
  longName.back() = std::byte{255};
  EXPECT_FALSE(decodeObject(1, longName));
  EXPECT_FALSE(decodeHandles(std::vector<std::byte>(8, std::byte{0x40})));
}

TEST_F(Contents, HaveTheClockAmongTheirCapabilitiesWhereItsPropertyIsListed) {
  for (const std::string listed : {"0x5011", "0x5012"}) {
    fill("", R"({"properties": [{"code": ")" + listed + R"(", "type": "STR", "value": ""}]})");
    EXPECT_EQ(property(camera, "capa").dump(),
              listed == "0x5011" ? formatted("[%u]", ica::kMessageSyncClock) : "[]");
    EXPECT_EQ(asked(0x1002), 0);
  }
  const auto deviceInfo = test::PTPCameraDescription{.properties = {0x5012}}.deviceInfo();
  for (std::size_t size = 0; size < deviceInfo.size(); ++size)
    EXPECT_FALSE(listsProperty(std::as_bytes(std::span(deviceInfo)).first(size), 0x5011));
}

TEST_F(Contents, LoseAFileThatIsDeletedByItsHandle) {
  fill(R"({"file": "A.JPG"}, {"file": "B.JPG"})");
  const ICAObject first = picture(0);
  const ICAObject second = picture(1);
  EXPECT_EQ(remove(first), status::kOK);
  EXPECT_EQ(remove(first), status::kICAInvalidObject);
  simulated->removeObject(2);
  EXPECT_EQ(remove(second), status::kPTPInvalidObjectHandle);
  EXPECT_EQ(remove(camera), status::kICAInvalidObject);
  EXPECT_THAT(simulated->handles(), IsEmpty());
}

TEST_F(Contents, AreDownloadedWholeUnderTheirOwnName) {
  fill(R"({"file": "A.JPG", "text": "xxxx"}, {"folder": "DCIM", "content": []})");
  EXPECT_EQ(download(picture()), status::kOK);
  EXPECT_EQ(path, folder.path() + "/A.JPG");
  EXPECT_EQ(folder.read("A.JPG"), "xxxx");
  EXPECT_THAT(filesInFolder(), ElementsAre("A.JPG"));
  EXPECT_EQ(download(picture()), status::kDuplicateFile);
  EXPECT_EQ(download(property(camera, "tree")[1]["icao"].get<ICAObject>()), status::kNotAFile);
  EXPECT_EQ(download(camera), status::kICAInvalidObject);

  std::filesystem::remove(folder.path("A.JPG"));
  std::filesystem::create_symlink("/nowhere", folder.path("A.JPG"));
  EXPECT_EQ(download(picture()), status::kDuplicateFile);
}

TEST_F(Contents, LeaveNothingBehindWhereTheirDownloadFails) {
  fill(R"({"file": "A.JPG", "size": 5})");
  fail("truncate", "4,0x1009,once");
  EXPECT_EQ(download(picture()), status::kIOError) << "four bytes of five";
  fill(R"({"file": "A.JPG", "size": 4, "hidesSize": true})");
  fail("silent", "0x1009,once");
  EXPECT_EQ(download(picture()), status::kICATimeout);
  EXPECT_THAT(filesInFolder(), IsEmpty());
  EXPECT_EQ(download(picture()), status::kOK);
  EXPECT_EQ(service().downloadFile(picture(), folder.path("none"), path), status::kFileNotFound);
}

TEST_F(Contents, StayInsideTheFolderWhateverTheirName) {
  const std::pair<const char*, const char*> rows[] = {
      {"../x", "x"},  {"/etc/y", "y"}, {"a/b/../z", "z"}, {"", nullptr},
      {".", nullptr}, {"..", nullptr}, {"a/..", nullptr}, {"a/.profile", "_profile"}};
  for (const auto& [name, expected] : rows) {
    fill(formatted(R"({"file": {"raw": "%s"}, "format": "0x3801", "size": 4})", name));
    EXPECT_EQ(download(picture()), expected ? status::kOK : status::kFileNotFound) << name;
    EXPECT_EQ(path, expected ? folder.path() + "/" + expected : "");
  }
  EXPECT_EQ(filesInFolder().size(), 4U);
}

}  // namespace
}  // namespace tarvo

// What lies on a camera: dictionaries, handles, downloads and deletions of its files.
#include <filesystem>
#include <fstream>
#include <map>

#include "Utilities/PTPCodes.h"
#include "tests/imagecapture/ServiceFixture.h"
#include "tests/support/FakeImageCapture.h"

namespace tarvo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// An object of the camera as the test describes it.
struct Entry {
  std::uint32_t parent = 0;
  std::uint16_t format = 0x3801;
  std::string name{};
  std::uint32_t size = 4;
};

std::vector<std::byte> bytesOf(const test::PTPBytes& bytes) {
  const std::vector<std::uint8_t> values = bytes;
  std::vector<std::byte> converted;
  converted.reserve(values.size());
  for (const auto value : values)
    converted.push_back(static_cast<std::byte>(value));
  return converted;
}

std::vector<std::byte> objectInfo(const Entry& entry) {
  test::PTPBytes info;
  info.u32(0x10001).u16(entry.format).u16(0).u32(entry.size).u16(0x3808).u32(160);
  for (int i = 0; i < 5; ++i)
    info.u32(0);
  info.u32(entry.parent).u16(0).u32(0).u32(0).text(entry.name);
  return bytesOf(info);
}

class Contents : public ServiceFixture {
 protected:
  Contents() {
    plugCamera();
    connector.answer = [this](ptp::Transaction& transaction) { return respond(transaction); };
    camera = devices().at(0);
  }

  Status respond(ptp::Transaction& transaction) {
    const auto handle = transaction.parameters[0];
    transaction.responseCode = 0x2001;
    switch (transaction.operation) {
      case ptp::kGetDeviceInfo:
        test::sendPayload(transaction, deviceInfo);
        break;
      case ptp::kGetStorageIDs:
        if (!listsFolderByFolder) transaction.responseCode = 0x2005;
        if (listsFolderByFolder)
          test::sendPayload(transaction, bytesOf(test::PTPBytes().u32(1).u32(0x10001)));
        break;
      case ptp::kGetObjectHandles:
        if (listsFolderByFolder && handle == ptp::kAllStores)
          transaction.responseCode = 0x2008;
        else
          test::sendPayload(transaction, handles(transaction.parameters[2]));
        break;
      case ptp::kGetObjectInfo:
        if (!entries.contains(handle)) transaction.responseCode = 0x2009;
        if (entries.contains(handle)) test::sendPayload(transaction, objectInfo(entries[handle]));
        break;
      case ptp::kGetObject:
        test::sendPayload(transaction, content);
        break;
      case ptp::kDeleteObject:
        transaction.responseCode = entries.erase(handle) > 0 ? 0x2001 : 0x2009;
        break;
      default:
        transaction.responseCode = 0x2005;
    }
    return failure;
  }
  std::vector<std::byte> handles(std::uint32_t parent) {
    std::vector<std::uint32_t> list;
    for (const auto& [handle, entry] : entries)
      if (!listsFolderByFolder || entry.parent == parent) list.push_back(handle);
    list.insert(list.end(), extraHandles.begin(), extraHandles.end());
    test::PTPBytes bytes;
    bytes.u32(static_cast<std::uint32_t>(list.size()));
    for (const auto handle : list)
      bytes.u32(handle);
    return bytesOf(bytes);
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
  Status download(ICAObject object, std::string* path = nullptr) {
    std::string made;
    const Status result = service().downloadFile(object, folder.path(), path ? *path : made);
    return result;
  }
  std::vector<std::string> filesInFolder() const {
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::directory_iterator(folder.path()))
      names.push_back(each.path().filename());
    return names;
  }

  std::map<std::uint32_t, Entry> entries;
  std::vector<std::uint32_t> extraHandles;
  bool listsFolderByFolder = false;  ///< and refuses a list over all stores
  std::vector<std::byte> deviceInfo;
  std::vector<std::byte> content = std::vector<std::byte>(4, std::byte{'x'});
  Status failure = status::kOK;
  ICAObject camera = 0;
};

TEST_F(Contents, AreReadOnFirstNeedAndOnceUntilForgotten) {
  entries = {{5, {0, 0x3001, "DCIM"}}, {7, {5, 0x3801, "A.JPG"}}, {9, {5, 0x300B, "A.AVI"}}};
  EXPECT_EQ(dictionaryOf(camera)["capa"], PropertyDictionary::array());
  EXPECT_FALSE(dictionaryOf(camera).contains("tree"));
  EXPECT_THAT(connector.log, IsEmpty()) << "an arrival costs nothing";

  EXPECT_EQ(shape(property(camera, "data")), "A.JPG");
  EXPECT_EQ(shape(property(camera, "tree")), "DCIM(A.JPG A.AVI)");
  EXPECT_EQ(std::ranges::count(connector.log, "1007"), 1);
  EXPECT_EQ(std::ranges::count(connector.log, "open session"), 1);
  EXPECT_EQ(shape(dictionaryOf(camera)["tree"]), "DCIM(A.JPG A.AVI)");
  const ICAObject before = picture();
  EXPECT_EQ(property(camera, "data").at(0),
            (PropertyDictionary{{"ifil", "A.JPG"}, {"icao", before}, {"isiz", 4}, {"tsiz", 160}}));

  service().forgetContents(camera);
  EXPECT_FALSE(dictionaryOf(camera).contains("data"));
  EXPECT_EQ(property(before, "ifil"), "A.JPG") << "named until the next reading";
  EXPECT_NE(picture(), before);
  ICAObjectInfo info;
  EXPECT_EQ(service().getObjectInfo(before, info), status::kICAInvalidObject);
}

TEST_F(Contents, AreFoundOnADeviceThatListsOneFolderOfOneStoreAtATime) {
  entries = {{5, {0, 0x3001, "DCIM"}}, {7, {5, 0x3001, "A"}}, {9, {7, 0x3801, "A.JPG"}}};
  listsFolderByFolder = true;
  EXPECT_EQ(shape(property(camera, "tree")), "DCIM(A(A.JPG))");
}

TEST_F(Contents, TellTheKindOfAFileAndHaveNothingElse) {
  entries = {{5, {0, 0x3001, "DCIM"}}, {7, {0, 0xB802, "A.JPG"}}, {9, {0, 0x3006, "A.MRK"}}};
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
  const auto at = [](std::uint32_t parent, const char* name) {
    return Entry{parent, 0x3001, name};
  };
  const std::pair<std::map<std::uint32_t, Entry>, const char*> rows[] = {
      {{}, ""},
      {{{1, at(1, "self")}}, "self()"},
      {{{1, at(2, "a")}, {2, at(1, "b")}, {3, at(1, "c")}}, "a(b() c())"},
      {{{1, at(77, "orphan")}, {2, {1, 0x3801, "p"}}}, "orphan(p)"},
      {{{1, {0, 0x3801, "file"}}, {2, {1, 0x3801, "in it"}}}, "file in it"},
  };
  for (const auto& [described, expected] : rows) {
    entries = described;
    service().forgetContents(camera);
    EXPECT_EQ(shape(property(camera, "tree")), expected);
  }
  entries.clear();
  for (std::uint32_t i = 1; i <= 3000; ++i)
    entries[i] = at(i - 1, "d");
  service().forgetContents(camera);
  const std::string deep = shape(property(camera, "tree"));
  EXPECT_EQ(std::ranges::count(deep, 'd'), 3000);
  EXPECT_EQ(deep.find(std::string(33, ')')), std::string::npos) << "no level beyond the limit";
}

TEST_F(Contents, LeaveOutWhatTheDeviceDoesNotTellOfAndRefuseWhatCannotBe) {
  entries = {{7, {0, 0x3801, "A.JPG"}}};
  extraHandles = {99, 7};  // one that is not there, and one twice
  EXPECT_EQ(shape(property(camera, "data")), "A.JPG");

  PropertyDictionary value = "untouched";
  service().forgetContents(camera);
  connector.answer = [](ptp::Transaction& transaction) {
    test::sendPayload(transaction, bytesOf(test::PTPBytes().u32(0x40000000).u32(1)));
    transaction.responseCode = 0x2001;
    return status::kOK;
  };
  EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kICAProtocolError);
  connector.answer = [](ptp::Transaction&) { return status::kICATimeout; };
  EXPECT_EQ(service().copyObjectProperty(camera, "tree", value), status::kICATimeout);
  EXPECT_EQ(service().copyObjectProperty(camera, "capa", value), status::kICATimeout);
  EXPECT_EQ(service().copyObjectProperty(camera, "none", value), status::kICAPropertyNotFound);
  EXPECT_EQ(value, "untouched");

  for (std::size_t size = 0; size < 53; ++size)
    EXPECT_FALSE(decodeObject(1, std::vector<std::byte>(size))) << size;
  EXPECT_TRUE(decodeObject(1, std::vector<std::byte>(53)));
  auto longName = std::vector<std::byte>(53);
  longName.back() = std::byte{255};
  EXPECT_FALSE(decodeObject(1, longName));
}

TEST_F(Contents, HaveTheClockAmongTheirCapabilitiesWhereItsPropertyIsListed) {
  for (const std::uint16_t listed : {0x5011, 0x5001}) {
    test::PTPBytes bytes;
    for (const auto value : test::PTPCameraDescription{.properties = {listed}}.deviceInfo())
      bytes.u8(value);
    deviceInfo = bytesOf(bytes);
    service().forgetContents(camera);
    EXPECT_EQ(property(camera, "capa").dump(),
              listed == 0x5011 ? formatted("[%u]", ica::kMessageSyncClock) : "[]");
  }
  EXPECT_EQ(std::ranges::count(connector.log, "open session"), 0);
  for (std::size_t size = 0; size < deviceInfo.size(); ++size)
    EXPECT_FALSE(listsProperty(std::span(deviceInfo).first(size), 0x5011));
}

TEST_F(Contents, LoseAFileThatIsDeletedByItsHandle) {
  entries = {{7, {0, 0x3801, "A.JPG"}}, {8, {0, 0x3801, "B.JPG"}}};
  const ICAObject first = picture(0);
  const ICAObject second = picture(1);
  EXPECT_EQ(remove(first), status::kOK);
  EXPECT_EQ(remove(first), status::kICAInvalidObject);
  EXPECT_EQ(remove(second), status::kOK);
  EXPECT_EQ(shape(property(camera, "data")), "");
  EXPECT_EQ(remove(camera), status::kICAInvalidObject);

  entries = {{7, {0, 0x3801, "C.JPG"}}};
  service().forgetContents(camera);
  const ICAObject third = picture();
  entries.clear();
  EXPECT_EQ(remove(third), status::kPTPInvalidObjectHandle);
}

TEST_F(Contents, AreDownloadedWholeUnderTheirOwnName) {
  entries = {{7, {0, 0x3801, "A.JPG"}}, {8, {0, 0x3001, "DCIM"}}};
  std::string path;
  EXPECT_EQ(download(picture(), &path), status::kOK);
  EXPECT_EQ(path, folder.path() + "/A.JPG");
  std::string text;
  std::getline(std::ifstream(path), text);
  EXPECT_EQ(text, "xxxx");
  EXPECT_THAT(filesInFolder(), ElementsAre("A.JPG"));
  EXPECT_EQ(download(picture()), status::kDuplicateFile);
  EXPECT_EQ(download(property(camera, "tree")[1]["icao"].get<ICAObject>()), status::kNotAFile);
  EXPECT_EQ(download(camera), status::kICAInvalidObject);

  std::filesystem::remove(path);
  std::filesystem::create_symlink("/nowhere", path);
  EXPECT_EQ(download(picture()), status::kDuplicateFile);
}

TEST_F(Contents, LeaveNothingBehindWhereTheirDownloadFails) {
  entries = {{7, {0, 0x3801, "A.JPG", 5}}};
  EXPECT_EQ(download(picture()), status::kIOError) << "four bytes of five";
  entries[7].size = PTPObject::kUnknownSize;
  failure = status::kOK;
  service().forgetContents(camera);
  const ICAObject object = picture();
  failure = status::kICATimeout;
  EXPECT_EQ(download(object), status::kICATimeout);
  EXPECT_THAT(filesInFolder(), IsEmpty());
  failure = status::kOK;
  EXPECT_EQ(download(object), status::kOK);
  std::string path;
  EXPECT_EQ(service().downloadFile(object, folder.path() + "/none", path), status::kFileNotFound);
}

TEST_F(Contents, StayInsideTheFolderWhateverTheirName) {
  const std::pair<const char*, const char*> rows[] = {
      {"../x", "x"},  {"/etc/y", "y"}, {"a/b/../z", "z"}, {"", nullptr},
      {".", nullptr}, {"..", nullptr}, {"a/..", nullptr}};
  for (const auto& [name, expected] : rows) {
    entries = {{7, {0, 0x3801, name}}};
    service().forgetContents(camera);
    std::string path;
    EXPECT_EQ(download(picture(), &path), expected ? status::kOK : status::kFileNotFound) << name;
    EXPECT_EQ(path, expected ? folder.path() + "/" + expected : "");
  }
  EXPECT_EQ(filesInFolder().size(), 3U);
}

}  // namespace
}  // namespace tarvo

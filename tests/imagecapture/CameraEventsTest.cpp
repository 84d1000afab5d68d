// What cameras report by themselves, on its way to who is registered for it.
#include "tests/imagecapture/ServiceFixture.h"

namespace tarvo {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kConnect = "connect /dev/bus/usb/001/004#2";

class CameraEvents : public ServiceFixture {
 protected:
  CameraEvents() {
    usbDevice = plugCamera();
    camera = devices().at(0);
  }
  std::unique_ptr<ICAScope> open() { return service().openScope(camera, nullptr, nullptr); }
  void note(ICAObject object, FourCharCode type) {
    service().registerForEventNotification(object, type, [this](const ICAEvent& event) {
      codes.push_back(event.type == ica::kExtended ? event.dictionary.at("code").get<unsigned>()
                                                   : event.type);
      last = event;
    });
  }
  void stop(ICAObject object) {
    service().registerForEventNotification(object, ica::kExtended, nullptr);
  }

  ServiceHandle usbDevice = 0;
  ICAObject camera = 0;
  std::vector<unsigned> codes;
  ICAEvent last;
};

TEST_F(CameraEvents, AreWatchedWhileThereIsAScopeAndARegistrationInWhateverOrder) {
  auto scope = open();
  note(camera, ica::kExtended);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "watch events"));
  note(camera, ica::kExtended);  // another callback, the same watching
  stop(camera);
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "watch events", "end watching"));
  scope.reset();
  connector.log.clear();

  note(0, ica::kExtended);
  EXPECT_THAT(connector.log, IsEmpty());
  scope = open();
  EXPECT_THAT(connector.log, ElementsAre(kConnect, "watch events"));
  scope.reset();
  EXPECT_FALSE(connector.events);
}

TEST_F(CameraEvents, CarryCodeTransactionAndParameters) {
  const auto scope = open();
  note(camera, ica::kExtended);
  connector.events({.code = 0x4002, .transactionID = 7, .parameters = {5, 6}, .parameterCount = 2});
  EXPECT_EQ(last.object, camera);
  EXPECT_EQ(
      last.dictionary,
      (PropertyDictionary{
          {"code", 0x4002}, {"session", 0xFFFFFFFF}, {"transaction", 7}, {"params", {5, 6}}}));
  connector.events({.code = 0xC001});
  EXPECT_EQ(last.dictionary["params"], PropertyDictionary::array());
  // Those of stores are told as such, too.
  codes.clear();
  for (const auto type : {ica::kStoreAdded, ica::kStoreRemoved})
    note(camera, type);
  for (const std::uint16_t code : {0x4004, 0x4005, 0x4006})
    connector.events({.code = code});
  EXPECT_THAT(codes, ElementsAre(0x4004, ica::kStoreAdded, 0x4005, ica::kStoreRemoved, 0x4006));
}

TEST_F(CameraEvents, MakeTheContentsBeReadAgain) {
  const std::pair<std::uint16_t, int> rows[] = {{0x4002, 1}, {0x4003, 1}, {0x4004, 1},
                                                {0x4005, 1}, {0x4006, 0}, {0xC001, 0}};
  // No objects, but their list.
  connector.answer = [](ptp::Transaction& transaction) {
    test::sendPayload(transaction, std::vector<std::byte>(4));
    transaction.responseCode = 0x2001;
    return status::kOK;
  };
  const auto scope = open();
  note(camera, ica::kExtended);
  PropertyDictionary value;
  EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kOK);
  for (const auto& [code, readings] : rows) {
    connector.log.clear();
    connector.events({.code = code});
    EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kOK);
    EXPECT_EQ(std::ranges::count(connector.log, "1007"), readings) << code;
  }
}

TEST_F(CameraEvents, LetTheirListenerDoAsItLikes) {
  auto scope = open();
  service().registerForEventNotification(camera, ica::kExtended, [&](const ICAEvent&) {
    stop(camera);
    scope.reset();
    registry.unplug(usbDevice);
  });
  const auto report = connector.events;
  report({.code = 0x4004});
  EXPECT_FALSE(connector.events);
  EXPECT_THAT(devices(), IsEmpty());
}

TEST_F(CameraEvents, EndWithTheDevice) {
  const auto scope = open();
  note(camera, ica::kExtended);
  registry.unplug(usbDevice);
  EXPECT_FALSE(connector.events);
  EXPECT_THAT(connector.log, Not(Contains("end watching"))) << "there is nothing left to end";
}

}  // namespace
}  // namespace tarvo

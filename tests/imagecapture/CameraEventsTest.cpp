// What cameras report by themselves, on its way to who is registered for it.
#include "tests/imagecapture/ServiceFixture.h"
#include "tests/support/MainContextWait.h"

namespace tarvo {
namespace {

using testing::ElementsAre;

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

  /// The camera sends an event, which is heard by then.
  void report(std::uint16_t code, const std::vector<std::uint32_t>& parameters = {}) {
    const std::size_t before = codes.size();
    simulated->sendEvent(code, parameters);
    EXPECT_TRUE(test::waitUntil([&] { return codes.size() > before; })) << code;
  }

  ServiceHandle usbDevice = 0;
  ICAObject camera = 0;
  std::vector<unsigned> codes;
  ICAEvent last;
};

TEST_F(CameraEvents, AreHeardWhileThereIsAScopeAndARegistrationInWhateverOrder) {
  auto scope = open();
  note(camera, ica::kExtended);
  note(camera, ica::kExtended);  // another callback in its place
  report(0xC001);
  stop(camera);
  scope.reset();
  note(0, ica::kExtended);
  scope = open();
  report(0xC002);
  EXPECT_THAT(codes, ElementsAre(0xC001, 0xC002));
}

TEST_F(CameraEvents, CarryCodeTransactionAndParameters) {
  const auto scope = open();
  note(camera, ica::kExtended);
  report(0x4002, {5, 6});
  EXPECT_EQ(last.object, camera);
  EXPECT_EQ(
      last.dictionary,
      (PropertyDictionary{
          {"code", 0x4002}, {"session", 0xFFFFFFFF}, {"transaction", 0}, {"params", {5, 6}}}));
  report(0xC001);
  EXPECT_EQ(last.dictionary["params"], PropertyDictionary::array());
  // Those of stores are told as such, too.
  codes.clear();
  for (const auto type : {ica::kStoreAdded, ica::kStoreRemoved})
    note(camera, type);
  for (const std::uint16_t code : {0x4004, 0x4005, 0x4006})
    report(code);
  EXPECT_THAT(codes, ElementsAre(0x4004, ica::kStoreAdded, 0x4005, ica::kStoreRemoved, 0x4006));
}

TEST_F(CameraEvents, MakeTheContentsBeReadAgain) {
  const std::pair<std::uint16_t, int> rows[] = {{0x4002, 1}, {0x4003, 1}, {0x4004, 1},
                                                {0x4005, 1}, {0x4006, 0}, {0xC001, 0}};
  const auto scope = open();
  note(camera, ica::kExtended);
  PropertyDictionary value;
  EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kOK);
  for (const auto& [code, readings] : rows) {
    const auto before = asked(0x1007);
    report(code);
    EXPECT_EQ(service().copyObjectProperty(camera, "data", value), status::kOK);
    EXPECT_EQ(asked(0x1007) - before, readings) << code;
  }
}

TEST_F(CameraEvents, LetTheirListenerDoAsItLikes) {
  auto scope = open();
  service().registerForEventNotification(camera, ica::kExtended, [&](const ICAEvent&) {
    stop(camera);
    scope.reset();
    registry.unplug(usbDevice);
  });
  simulated->sendEvent(0x4004, {});
  EXPECT_TRUE(test::waitUntil([&] { return devices().empty(); }));
}

}  // namespace
}  // namespace tarvo

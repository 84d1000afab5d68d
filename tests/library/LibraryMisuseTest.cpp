// What a program can do wrong with the library: it is told so, and goes on with its device.
#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <stdexcept>

#include "library/access/SessionState.h"
#include "tarvo/Device.h"
#include "tests/support/SimulatedPTPDevice.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::test {
namespace {

using ::testing::HasSubstr;

/// A session whose only device is a simulated camera with two pictures.
class CameraPlatform : public library::Platform {
 public:
  CameraPlatform() {
    sim.device.reset();
    sim.scope.reset();
  }
  const MakerConstants& maker() override { return sim.maker; }
  SupportedModels& models() override { return sim.models; }
  const PictureDeviceServices& services() override { return sim.room.services(); }
  TarvoMSCDeviceList& massStorage() override { throw std::logic_error("there are no units"); }
  const Interrupt* interrupt() const override { return nullptr; }

  void unplug() {
    sim.registry.unplug(sim.registry.servicesMatching({{"IOClass", "usb_device"}}).at(0));
  }

  SimulatedPTPDevice sim{R"({
    "properties": [{"code": "0x5001", "type": "UINT8", "value": 80, "writable": true}],
    "stores": [{"id": "0x00010001", "content": [
    {"file": "A.JPG", "size": 3000000}, {"file": "B.JPG", "size": 70000}]}]})"};
};

struct Bench {
  CameraPlatform platform;
  TemporaryFolder folder;
  std::optional<Session> session{std::in_place, std::make_shared<SessionState>(platform)};
  std::optional<Device> camera{session->openCamera()};
  ObjectInfo picture = camera->object(1);

  DownloadOptions options() const {
    return DownloadOptions().folder(folder.path()).existing(Existing::kOverwrite);
  }
  void sendEvent() { platform.sim.camera->sendEvent(0x4008, {}); }
  void waitForEvent() {
    if (!session->wait(std::chrono::seconds(20))) throw std::runtime_error("no event");
  }
};

/// "KIND CALL: REASON" of an error of the library, the text of any other, "nothing".
std::string raisedBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return std::to_string(static_cast<int>(error.kind())) + " " + error.operation() + ": " +
           error.reason();
  } catch (const std::exception& exception) {
    return exception.what();
  }
  return "nothing";
}

std::string misuse(const std::string& text) {
  return std::to_string(static_cast<int>(ErrorKind::kMisuse)) + " " + text;
}

TEST(LibraryMisuse, IsToldAndLeavesTheDeviceUsable) {
  Bench bench;
  auto& camera = *bench.camera;
  const auto fail = [] { throw std::runtime_error("mine"); };
  const auto progress = [&](const std::function<void()>& first) {
    camera.download(bench.picture, bench.options().progress([&](auto, auto) {
      first();
      return true;
    }));
  };
  const auto event = [&](const std::function<void()>& told) {
    const auto watch = camera.onEvent([&](const DeviceEvent&) { told(); });
    bench.sendEvent();
    bench.waitForEvent();
  };
  const struct {
    std::function<void()> mistake;
    std::string raises;
  } rows[] = {
      {[&] { bench.session->open(camera.info()); },
       misuse("open: it is held already by this session")},
      {[&] { std::async(std::launch::async, [&] { camera.count(); }).get(); },
       misuse("count: a session is of the thread that made it")},
      {[&] { std::async(std::launch::async, [&] { bench.session->devices(); }).get(); },
       misuse("devices: a session is of the thread that made it")},
      {[&] { progress([&] { camera.count(); }); },
       misuse("count: nothing may be called from a callback that tells of progress")},
      {[&] { progress([&] { bench.session->dispatch(); }); },
       misuse("dispatch: nothing may be called from a callback that tells of progress")},
      {[&] { event([&] { bench.session->wait(); }); },
       misuse("wait: it runs already, and has called this")},
      {[&] { event([&] { camera.count(); }); }, "nothing"},
      {[&] { progress(fail); }, "mine"},
      {[&] { event(fail); }, "mine"},
      {[&] { camera.download(bench.picture, bench.options().begin([&](auto&) { fail(); })); },
       "mine"},
      {[&] {
         camera.visit(ObjectQuery(),
                      [&](const ObjectInfo&) -> bool { throw std::runtime_error("mine"); });
       },
       "mine"},
      {[&] {
         camera.upload(bench.folder.write("C.JPG", std::string(200'000, 'x')),
                       UploadOptions().progress(
                           [&](auto, auto) -> bool { throw std::runtime_error("mine"); }));
       },
       "mine"},
  };
  for (const auto& [mistake, raises] : rows) {
    EXPECT_EQ(raisedBy(mistake), raises);
    EXPECT_EQ(camera.download(bench.picture, bench.options()).size(), 3'000'000U) << raises;
    event([] {});
  }
}

TEST(LibraryMisuse, WhatHasGoneSaysSo) {
  Bench bench;
  bench.platform.unplug();
  const struct {
    const char* call;
    std::function<void()> make;
  } rows[] = {
      {"read", [&] { bench.camera->read(bench.picture); }},
      {"download", [&] { bench.camera->download(bench.picture, bench.options()); }},
      {"visit", [&] { bench.camera->visit(ObjectQuery(), [](auto&) { return true; }); }},
      {"setProperty", [&] { bench.camera->setProperty(0x5001, "1"); }},
      {"onEvent", [&] { (void)bench.camera->onEvent([](auto&) {}); }},
      {"open", [&, info = bench.camera->info()] { bench.session->open(info); }},
  };
  for (const auto& [call, make] : rows)
    EXPECT_THAT(raisedBy(make),
                HasSubstr(std::to_string(static_cast<int>(ErrorKind::kGone)) + " " + call));
  EXPECT_EQ(bench.picture.name(), "A.JPG") << "values stay";
  bench.session.reset();
  EXPECT_EQ(raisedBy([&] { bench.camera->count(); }), misuse("count: the session has ended"));
}

TEST(LibraryMisuse, EverythingMayGoInAnyOrderAndFromEveryCallback) {
  using End = std::function<void()>;
  const std::string cancelled = std::to_string(static_cast<int>(ErrorKind::kCancelled)) + " ";
  const struct {
    std::function<void(Bench& bench, const End& end)> from;
    std::string raises;
  } rows[] = {
      {[](Bench&, const End& end) { end(); }, "nothing"},
      {[](Bench& bench, const End& end) {
         const auto watch = bench.camera->onEvent([&](const DeviceEvent&) { end(); });
         bench.sendEvent();
         bench.waitForEvent();
       },
       "nothing"},
      {[](Bench& bench, const End& end) {
         bench.camera->visit(ObjectQuery(), [&](const ObjectInfo&) {
           end();
           return true;
         });
       },
       cancelled + "visit: "},
      {[](Bench& bench, const End& end) {
         bench.camera->download(bench.picture, bench.options().progress([&](auto, auto) {
           end();
           return true;
         }));
       },
       cancelled + "download: "},
  };
  for (const auto& [from, raises] : rows) {
    std::vector<int> order = {0, 1, 2};
    do {
      Bench bench;
      std::optional<Subscription> watch = bench.session->onDevice([](auto, auto&) {});
      const auto end = [&] {
        for (const int each : order) {
          if (each == 0) bench.session.reset();
          if (each == 1) bench.camera.reset();
          if (each == 2) watch.reset();
        }
      };
      EXPECT_EQ(raisedBy([&, &call = from] { call(bench, end); }), raises);
      // It was given back.
      Session another(std::make_shared<SessionState>(bench.platform));
      EXPECT_EQ(another.openCamera().handles(ObjectQuery()).size(), 2U)
          << ::testing::PrintToString(order);
    } while (std::ranges::next_permutation(order).found);
  }
}

TEST(LibraryMisuse, AProcessHasOneSession) {
  const auto quiet = SessionOptions().quiet();
  {
    Session session(quiet);
    EXPECT_THAT(raisedBy([&] { Session second(quiet); }), HasSubstr(misuse("Session: there is")));
  }
  EXPECT_EQ(raisedBy([&] { Session next(quiet); }), "nothing");
}

}  // namespace
}  // namespace tarvo::test

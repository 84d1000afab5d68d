#include "platform/diskarbitration/UDisks2DiskArbitration.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <optional>

#include "Utilities/Status.h"
#include "platform/foundation/GlibRunLoop.h"
#include "tests/diskarbitration/FakeUDisks2.h"
#include "tests/diskarbitration/HoldingProcess.h"
#include "tests/support/FakeRegistry.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/RecordingSystemLog.h"

namespace tarvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kLimit = std::chrono::seconds(20);

std::string callOf(const char* method, const std::string& path) {
  return method + (" " + path) + " ({'auth.no_user_interaction': <true>},)";
}

class UDisks2DiskArbitrationTest : public testing::Test {
 protected:
  UDisks2DiskArbitrationTest() {
    service = std::make_unique<FakeUDisks2>(bus);
    // A card with two partitions, one mounted twice, and a disk beside it.
    const auto add = [&](const char* name, const FakeUDisks2::Block& block) {
      service->objects += (service->objects.empty() ? "" : ",") + FakeUDisks2::block(name, block);
    };
    add("sdb", {.drive = "Card"});
    add("sdb1", {.drive = "Card", .mountPoints = "[b'/media/u/A', b'/mnt/a']"});
    add("sdb2", {.drive = "Card", .mountPoints = "[b'/media/u/B']"});
    add("sdb3", {.drive = "Card", .mountPoints = "[]"});
    add("sda1", {.drive = "Disk", .mountPoints = "[b'/home']"});
    add("sr1", {});
    add("sdc1", {.drive = "Other", .mountPoints = "[b'/media/u/C']"});
    add("sdd1", {.drive = "Twin", .mountPoints = "[b'/media/u/D']"});
    add("sde1", {.drive = "Twin"});
    // sdc is another disk of the card's device, sdd that of another one with sde's serial number.
    card = plugDisks({"sdb", "sdb1", "sdb2", "sdb3", "sdc1", "sde1", "sr0", "sr1"});
    plugDisks({"sdd1"});
    plugDisks({"sda1"});
    connection.start();
    connection.waitUntilSettled();
  }

  /// Disks of a device, which a hub of the card's is above.
  ServiceHandle plugDisks(const std::vector<const char*>& names) {
    const ServiceHandle usbDevice = registry.add({{"IOClass", "usb_device"}}, card);
    for (const char* name : names)
      registry.add({{"IOClass", "block"}, {"BSD Name", name}}, usbDevice);
    return usbDevice;
  }

  struct Told {
    bool stopped = false;
    int callbacks = 0;
    std::optional<DADissenter> dissenter;
    std::string awaited;
  };
  /// One operation from its start to its end.
  template <typename Start>
  Told perform(Start start) {
    Told told;
    const auto session = arbitration.createSession();
    start(*session, [&](const DADissenter* dissenter) {
      ++told.callbacks;
      if (dissenter != nullptr) told.dissenter = *dissenter;
      session->stop();
    });
    auto left = kLimit;
    told.stopped = session->run(left);
    told.awaited = session->awaited();
    return told;
  }
  Told unmount(const char* bsdName) {
    return perform([&](DASession& session, const DASession::Callback& done) {
      session.unmount({bsdName, card}, done);
    });
  }
  Told eject(const char* bsdName) {
    return perform([&](DASession& session, const DASession::Callback& done) {
      session.eject({bsdName, card}, done);
    });
  }
  Told mount(const char* bsdName) {
    return perform([&](DASession& session, const DASession::Callback& done) {
      session.mount({bsdName, card}, "CARD", done);
    });
  }
  static void expectDone(const Told& told) {
    EXPECT_TRUE(told.stopped);
    EXPECT_EQ(told.callbacks, 1);
    EXPECT_EQ(told.dissenter.has_value(), false) << told.dissenter->why;
  }
  static void expectRefused(const Told& told, Status status, const std::string& why) {
    EXPECT_TRUE(told.stopped);
    EXPECT_EQ(told.callbacks, 1);
    ASSERT_TRUE(told.dissenter.has_value());
    EXPECT_EQ(told.dissenter->status, status) << statusText(told.dissenter->status);
    EXPECT_EQ(told.dissenter->why, why);
  }

  RecordingSystemLog log;
  GlibRunLoop loop{log.sink()};
  RunningBus bus;
  std::unique_ptr<FakeUDisks2> service;
  BusConnection connection{"system bus", bus.address(), loop, log.sink()};
  std::vector<Milliseconds> waits;
  UDisks2DiskArbitration::MakeTimeout makeTimeout = UDisks2DiskArbitration::monotonicTimeout;
  FakeRegistry registry;
  ServiceHandle card = 0;
  Interrupt interrupt{Interrupt::Second::kIsIgnored};
  UDisks2DiskArbitration arbitration{connection, registry, &interrupt, log.sink(),
                                     [this](Milliseconds limit) {
                                       waits.push_back(limit);
                                       return makeTimeout(limit);
                                     }};
};

const std::string kFirst = callOf("Unmount", FakeUDisks2::blockPath("sdb1"));
const std::string kSecond = callOf("Unmount", FakeUDisks2::blockPath("sdb2"));
const std::string kOtherDisk = callOf("Unmount", FakeUDisks2::blockPath("sdc1"));

TEST_F(UDisks2DiskArbitrationTest, UnmountsEveryFilesystemOfTheDeviceThatAVolumeIsOn) {
  // On a mapped device, too.
  registry.below = {{"md0", {"md1"}}, {"md1", {"sdb3", "sde1"}}};
  service->objects += "," + FakeUDisks2::block("md0", {.mountPoints = "[b'/media/u/E']"});
  for (const char* bsdName : {"sdb1", "sr1"}) {
    const auto before = service->calls().size();
    expectDone(unmount(bsdName));
    const auto calls = service->calls();
    EXPECT_THAT(std::vector(calls.begin() + static_cast<long>(before), calls.end()),
                ElementsAre(kFirst, kFirst, kSecond, kOtherDisk,
                            callOf("Unmount", FakeUDisks2::blockPath("md0"))))
        << bsdName;
  }
  service->script["Unmount"] = {.error = "NotMounted"};
  expectDone(unmount("sdb1"));
  EXPECT_THAT(waits, testing::Each(kLimit));
}

TEST_F(UDisks2DiskArbitrationTest, EjectsTheDriveAndMountsTheVolume) {
  expectDone(eject("sdb1"));
  expectDone(mount("sdb2"));
  EXPECT_THAT(service->calls(), ElementsAre(callOf("Eject", FakeUDisks2::drivePath("Card")),
                                            callOf("Mount", FakeUDisks2::blockPath("sdb2"))));
  service->script["Mount"] = {.error = "AlreadyMounted"};
  expectDone(mount("sdb2"));
  expectRefused(eject("sr1"), status::kDAReturnUnsupported, "no drive holds this disk");
  expectRefused(mount("sdb"), status::kDAReturnUnsupported, "there is no filesystem on it");
  for (const char* name : {"sr2", "", "../sda1", "sdb1/"})
    expectRefused(eject(name), status::kDAReturnNotFound, "the system has no disk of that name");
  EXPECT_THAT(service->calls(), SizeIs(3));
}

TEST_F(UDisks2DiskArbitrationTest, TouchesNothingThatIsNotTheDevicesAlone) {
  const auto notAlone = [](const std::string& disk) {
    return disk + " does not belong to this device alone";
  };
  registry.below = {{"md0", {"sdb3", "sdd1"}}};
  registry.add({{"IOClass", "block"}, {"BSD Name", "md0"}});
  for (const char* name : {"sdd1", "sda1", "md0"})
    for (const Told& told : {unmount(name), eject(name), mount(name)})
      expectRefused(told, status::kDAReturnExclusiveAccess, notAlone(name));
  expectRefused(
      eject("sde1"), status::kDAReturnExclusiveAccess,
      "the disk service (UDisks2) takes several devices for this drive: " + notAlone("sdd1"));
  EXPECT_THAT(service->calls(), IsEmpty());

  // A filesystem over the disks of two devices, and one that another's lies over.
  service->objects = FakeUDisks2::block("md0", {.mountPoints = "[b'/d']"}) + "," +
                     FakeUDisks2::block("sdb1", {.mountPoints = "[b'/c']"}) + "," +
                     FakeUDisks2::block("sdd1", {.mountPoints = "[b'/c']"}) + "," +
                     FakeUDisks2::block("sdb2", {.mountPoints = "[b'/b', b'/a']"});
  // After its first one another disk has its name.
  service->script["Unmount"].before = [&] { registry.below["sdb2"] = {"sdd1"}; };
  expectRefused(
      unmount("sdb1"), status::kDAReturnExclusiveAccess,
      "/d: " + notAlone("md0") + "; /c: " + notAlone("sdd1") + "; /a: " + notAlone("sdb2"));
  EXPECT_THAT(service->calls(), ElementsAre(kSecond));
}

TEST_F(UDisks2DiskArbitrationTest, PutsARefusalInWords) {
  const struct {
    const char* error;
    Status status;
    const char* why;
  } rows[] = {
      {"DeviceBusy", status::kIOReturnBusy, "the volume is in use"},
      {"NotAuthorized", status::kDAReturnNotPermitted, "this user may not do that"},
      {"Timedout", status::kIOReturnTimeout, "the disk did not answer in time"},
      {"com.example.Odd", status::kDAReturnError, "the service's words"},
      // What is asked of an object that has gone with its disk.
      {"org.freedesktop.DBus.Error.UnknownObject", status::kDAReturnNotFound, "the disk has gone"},
  };
  service->objects = FakeUDisks2::block("sdb1", {.drive = "Card"}) + "," +
                     FakeUDisks2::block("sdb2", {.mountPoints = "[b'/media/u/B']"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    service->script["Unmount"] = {.error = row.error};
    expectRefused(unmount("sdb2"), row.status, std::string("/media/u/B: ") + row.why);
    service->script["Eject"] = {.error = row.error};
    expectRefused(eject("sdb1"), row.status, row.why);
  }
}

TEST_F(UDisks2DiskArbitrationTest, UnmountsWhatItCanAndNamesEveryVolumeThatStays) {
  service->script["Unmount"] = {.error = "DeviceBusy"};
  expectRefused(unmount("sdb2"), status::kIOReturnBusy,
                "/media/u/A: the volume is in use; /mnt/a: the volume is in use; "
                "/media/u/B: the volume is in use; /media/u/C: the volume is in use");
  service->script["Unmount"] = {.silent = true, .before = [&] { service->leave(); }};
  expectRefused(unmount("sdb2"), status::kDAReturnNotReady,
                "/media/u/A: the disk service (UDisks2) went away");
}

TEST_F(UDisks2DiskArbitrationTest, WaitsForADiskThatTheServiceDoesNotKnowYet) {
  int asked = 0;
  service->script["GetManagedObjects"].after = [&] {
    // Once it has answered who asks for arrivals as well.
    if (++asked != 2) return;
    service->objects = FakeUDisks2::block("sr0", {.drive = "Dock", .mountPoints = "[b'/m']"});
    service->tellOfArrival();
  };
  expectDone(unmount("sr0"));
  EXPECT_THAT(service->calls(), ElementsAre(callOf("Unmount", FakeUDisks2::blockPath("sr0"))));
  service->objects = "";
  makeTimeout = [&](Milliseconds) { return g_timeout_source_new(200); };
  const auto told = unmount("sr0");
  EXPECT_FALSE(told.stopped);
  EXPECT_EQ(told.awaited, "the disk service (UDisks2) did not come to know the disk");
}

TEST_F(UDisks2DiskArbitrationTest, EndsAWaitAtOnceWhenTheProcessIsToldToEnd) {
  service->script["Unmount"] = {.silent = true, .before = [] { ::kill(::getpid(), SIGTERM); }};
  makeTimeout = [&](Milliseconds) { return g_timeout_source_new_seconds(3600); };
  EXPECT_FALSE(unmount("sdb1").stopped);
  EXPECT_TRUE(arbitration.isInterrupted());
  EXPECT_FALSE(eject("sdb1").stopped) << "nothing is begun after it";
  EXPECT_THAT(service->calls(), SizeIs(1));
}

TEST_F(UDisks2DiskArbitrationTest, NamesTheProcessThatKeepsAVolumeBusy) {
  const TemporaryFolder folder;
  service->objects =
      FakeUDisks2::block("sdc1", {.drive = "Card", .mountPoints = "[b'" + folder.path() + "']"});
  const HoldingProcess process([&] { (void)::chdir(folder.path().c_str()); });
  for (const char* error : {"DeviceBusy", "Failed"}) {
    service->script["Unmount"] = {.error = error};
    const auto told = unmount("sdc1");
    ASSERT_TRUE(told.dissenter.has_value());
    EXPECT_EQ(told.dissenter->status, status::kIOReturnBusy);
    EXPECT_THAT(told.dissenter->why, testing::StartsWith(folder.path() + ": in use by "));
    EXPECT_THAT(told.dissenter->why, HasSubstr("(pid " + std::to_string(process.pid()) + ")"));
  }
}

TEST_F(UDisks2DiskArbitrationTest, WaitsAsLongAsItsCallerSaysWhileTheMainLoopStandsStill) {
  // The clock strikes once the service has the call.
  GSource* clock = nullptr;
  makeTimeout = [&](Milliseconds) { return clock = g_timeout_source_new_seconds(3600); };
  service->script["Unmount"] = {.silent = true,
                                .before = [&] { g_source_set_ready_time(clock, 0); }};
  int turns = 0;
  const auto turn = +[](gpointer count) -> gboolean {
    ++*static_cast<int*>(count);
    return G_SOURCE_CONTINUE;
  };
  const guint idle = g_idle_add_full(G_PRIORITY_HIGH, turn, &turns, nullptr);
  const guint timer = g_timeout_add(0, turn, &turns);

  const auto told = unmount("sdb1");
  EXPECT_FALSE(told.stopped);
  EXPECT_EQ(turns, 0);
  EXPECT_THAT(waits, ElementsAre(kLimit)) << "one budget for all calls of the operation";
  service->answerLate();
  EXPECT_TRUE(waitUntil([&] { return turns > 100; }));
  EXPECT_EQ(told.callbacks, 0) << "nobody is there for a late answer";
  g_source_remove(idle);
  g_source_remove(timer);
}

TEST_F(UDisks2DiskArbitrationTest, EndsAtOnceWhenTheServiceOrTheBusGoes) {
  service->script["Eject"] = {.silent = true, .before = [&] { service->leave(); }};
  expectRefused(eject("sdb1"), status::kDAReturnNotReady, "the disk service (UDisks2) went away");
  expectRefused(unmount("sdb1"), status::kDAReturnNotReady, "there is no disk service (UDisks2)");
  service = std::make_unique<FakeUDisks2>(bus);
  service->objects = FakeUDisks2::block("sdb1", {.drive = "Card"});
  service->script["Eject"] = {.silent = true, .before = [&] { bus.stop(); }};
  expectRefused(eject("sdb1"), status::kDAReturnNotReady, "the system bus is not there");
  EXPECT_TRUE(waitUntil([&] { return connection.connection() == nullptr; }));
  expectRefused(eject("sdb1"), status::kDAReturnNotReady, "the system bus is not there");
}

TEST_F(UDisks2DiskArbitrationTest, GivesUpWhatIsUnderWayWhenTheSessionEnds) {
  int callbacks = 0;
  const auto count = [&](const DADissenter*) { ++callbacks; };
  const auto session = arbitration.createSession();
  session->unmount({"sdb1", card}, count);
  session->eject({"sdb1", card}, count);
  auto second = arbitration.createSession();
  second->mount({"sdb1", card}, "", count);
  second.reset();
  EXPECT_EQ(callbacks, 0);
  EXPECT_THAT(service->calls(), IsEmpty());
}

TEST_F(UDisks2DiskArbitrationTest, TakesNothingFromObjectsOfOtherTypesThanTheyShouldHave) {
  for (const char* objects :
       {"objectpath '/a': {'org.freedesktop.UDisks2.Block': {'Device': <'/dev/sdb1'>}}",
        "objectpath '/a': {'org.freedesktop.UDisks2.Block': {'Device': <@ay []>}}",
        "objectpath '/a': {'org.freedesktop.UDisks2.Filesystem': {'MountPoints': <[b'/a']>}}"}) {
    service->objects = objects;
    expectRefused(unmount("sdz1"), status::kDAReturnNotFound,
                  "the system has no disk of that name");
  }
  service->objects =
      "objectpath '/a': {'org.freedesktop.UDisks2.Block': {'Device': <b'/dev/sdb1'>, 'Drive': "
      "<'no path'>}, 'org.freedesktop.UDisks2.Filesystem': {'MountPoints': <['/a']>}}";
  expectDone(unmount("sdb1"));
  service->objects = "no objects at all";
  const auto told = unmount("sdb1");
  ASSERT_TRUE(told.dissenter.has_value());
  EXPECT_EQ(told.dissenter->status, status::kDAReturnError);
  EXPECT_THAT(service->calls(), IsEmpty());
}

}  // namespace
}  // namespace tarvo::test

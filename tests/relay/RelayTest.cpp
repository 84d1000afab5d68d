#include "relay/Relay.h"

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "relay/AgentDevices.h"
#include "relay/ImportProgram.h"
#include "relay/Texts.h"
#include "tests/relay/FakeImport.h"
#include "tests/support/FakeBusService.h"
#include "tests/support/MainContextWait.h"

namespace tarvo::relay {
namespace {

using test::waitUntil;

TEST(RelayArrival, IsReadFromThreeWordsWhateverTheyBeginWith) {
  struct Case {
    std::vector<std::string> words;
    const char* device;  ///< null: it makes no sense
    bool isBatch;
  };
  const Case cases[] = {
      {{"PTP", "-98566144", ""}, "-98566144", false},
      {{"PTP", "4196401152", ""}, "-98566144", false},
      {{"--batch", "card", "18874368", "/media/u/TARVO_CARD"}, "TARVO_CARD", true},
      {{"MSC", "18874368", "/media/u/--batch/", "--batch"}, "--batch", true},
      {{"MSC", "5", "--help"}, "--help", false},
      {{"card", "5"}, "5", false},
      {{}, "", false},
      {{"--batch"}, "", true},
      {{"ptp", "1", ""}, nullptr, false},
      {{"PTP", "1x", ""}, nullptr, false},
      {{"PTP", "--batch", ""}, nullptr, false},
      {{"PTP", "4294967296", ""}, nullptr, false},
      {{"PTP", "1", "", "more"}, nullptr, false},
      {{"--unknown"}, nullptr, false},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.words));
    const auto line = readCommandLine(each.words);
    ASSERT_EQ(line.mistake.has_value(), each.device == nullptr);
    if (line.mistake) continue;
    EXPECT_EQ(deviceArgument(line.arrival), each.device);
    EXPECT_EQ(line.isBatch, each.isBatch);
    EXPECT_FALSE(line.showsHelp);
  }
  EXPECT_EQ(importWords("t", {.type = "PTP", .location = -1}, true),
            (std::vector<std::string>{"t", "--device=-1", "import", "--progress=json"}));
}

TEST(RelayTexts, AreInTheLanguageOfTheSession) {
  using Variables = std::map<std::string, std::string>;
  const std::pair<Variables, Language> cases[] = {
      {{}, Language::kEnglish},
      {{{"LANG", "de_DE.UTF-8"}}, Language::kGerman},
      {{{"LANG", "de_DE.UTF-8"}, {"LC_MESSAGES", "en_GB.UTF-8"}}, Language::kEnglish},
      {{{"LANG", "C.UTF-8"}, {"LANGUAGE", "fr:de:en"}}, Language::kGerman},
      {{{"LC_ALL", "C"}, {"LANGUAGE", "de"}}, Language::kEnglish},
      {{{"LANG", "fr_FR.UTF-8"}}, Language::kEnglish},
  };
  for (const auto& each : cases)
    EXPECT_EQ(languageOf([&variables = each.first](const char* name) {
                const auto found = variables.find(name);
                return found == variables.end() ? std::string() : found->second;
              }),
              each.second);
  const Texts german(Language::kGerman);
  EXPECT_EQ(german.counted(12345, Word::kNewOne, Word::kNewMany), "12.345 neue Bilder");
  EXPECT_EQ(german.duration(3700), "1 h 2 min");
  EXPECT_EQ(Texts(Language::kEnglish)(Word::kBattery, {"%2"}), "Battery %2 %");
}

struct Watcher : SessionObserver {
  void standingChanged() override {
    if (relay != nullptr) relay->standingChanged();
  }
  void rowsAdded(std::size_t) override {}
  void rowChanged(std::size_t) override {}
  void rowsCleared() override { ++sessions; }
  void thumbnailCame(std::size_t) override {}

  Relay* relay = nullptr;
  int sessions = 0;
};

/// A child that is ready at once, with a new picture, and gone when the file "gone" is there.
constexpr const char* kScript = R"(say '{"event":"hello"}'; hears list
say '{"event":"object","id":0,"new":true}' '{"event":"listed"}'
while [ ! -e "${0%/*}/gone" ]; do sleep 0.02; done; say '{"event":"gone"}')";

TEST(RelayDevices, OneThatComesIsOfferedAndBeginsWhereNothingGoesOn) {
  const Arrival camera = {.type = "PTP", .location = 1};
  const Arrival card = {.type = "card", .location = 2, .path = "/media/u/CARD"};
  const test::FakeImport import;
  Watcher watcher;
  Relay relay(import.words(kScript)[0], watcher, {.leave = std::chrono::milliseconds(200)});
  watcher.relay = &relay;
  const auto isAt = [&](SessionState state) {
    return waitUntil([&] { return relay.session()->standing().state == state; });
  };
  relay.arrived(camera);
  ASSERT_TRUE(isAt(SessionState::kReady));
  relay.devicesAre({camera});
  EXPECT_EQ(relay.offered(), std::nullopt) << "it is the one that is shown";
  relay.devicesAre({camera, card});
  EXPECT_EQ(relay.offered(), card);
  EXPECT_EQ(relay.arrival(), camera);
  relay.devicesAre({camera});
  EXPECT_EQ(relay.offered(), std::nullopt);
  relay.devicesAre({camera, card});
  relay.arrived({});
  relay.arrived(camera);
  EXPECT_EQ(watcher.sessions, 1) << "what is at work goes on";
  // The first is gone: the other begins once the first one's child has ended.
  std::ofstream(import.folder() + "/gone").put('x');
  ASSERT_TRUE(waitUntil([&] { return relay.arrival() == card; }));
  ASSERT_TRUE(isAt(SessionState::kGone));
  std::filesystem::remove(import.folder() + "/gone");
  relay.devicesAre({card});
  relay.devicesAre({card, camera});
  EXPECT_EQ(relay.arrival(), camera);
  ASSERT_TRUE(isAt(SessionState::kReady));
  int closed = 0;
  relay.close([&] { ++closed; });
  relay.arrived(card);
  ASSERT_TRUE(waitUntil([&] { return closed > 0; }));
  EXPECT_EQ(closed, 1);
}

TEST(RelayDevices, AreThoseOfTheAgentThatAreSupported) {
  const test::RunningBus bus;
  const auto devices = [](const char* text) {
    return g_variant_new_parsed("{'Devices': %v}", g_variant_new_parsed(text));
  };
  test::FakeBusService agent(bus, "com.tarvo.Agent", [&](GObjectPtr<GDBusMessage> call) {
    agent.answer(
        call.get(),
        g_variant_new("(@a{sv})", devices("[('PTP', -5, '', 'S'), ('', 6, '/media/u/X', '')]")));
  });
  const auto connection = bus.connect();
  std::vector<std::vector<Arrival>> told;
  const AgentDevices followed([&](std::vector<Arrival> now) { told.push_back(std::move(now)); },
                              connection.get());
  ASSERT_TRUE(waitUntil([&] { return !told.empty(); }));
  EXPECT_THAT(told.back(), testing::ElementsAre(Arrival{.type = "PTP", .location = -5}));
  const auto change = [&](const char* text) {
    agent.emit("/com/tarvo/Agent", "org.freedesktop.DBus.Properties", "PropertiesChanged",
               g_variant_new("(s@a{sv}as)", "com.tarvo.Agent1", devices(text), nullptr));
  };
  change("[('card', 7, '/media/u/CARD', '')]");
  const Arrival card = {.type = "card", .location = 7, .path = "/media/u/CARD"};
  ASSERT_TRUE(waitUntil([&] { return told.back() == std::vector{card}; }));
  change("'nonsense'");
  ASSERT_TRUE(waitUntil([&] { return told.back().empty(); }));
}

}  // namespace
}  // namespace tarvo::relay

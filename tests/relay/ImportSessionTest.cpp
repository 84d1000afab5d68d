#include "relay/ImportSession.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <string>

#include "relay/View.h"
#include "tests/relay/FakeImport.h"
#include "tests/support/MainContextWait.h"

namespace tarvo::relay {
namespace {

using namespace std::chrono_literals;
using State = SessionState;
using test::waitUntil;

struct Window : SessionObserver {
  void standingChanged() override { ++changes; }
  void rowsAdded(std::size_t first) override { added.push_back(first); }
  void rowChanged(std::size_t row) override { changed.push_back(row); }
  void rowsCleared() override {}
  void thumbnailCame(std::size_t row) override { thumbnails.push_back(row); }

  int changes = 0;
  std::vector<std::size_t> added{}, changed{}, thumbnails{};
};

/// A session with a scripted child.
struct Scene {
  explicit Scene(const std::string& script, const ChildLimits& limits = {})
      : session(import.words(script), window, limits) {
    session.begin();
  }
  bool comesTo(State state) {
    return waitUntil([&] { return session.standing().state == state; });
  }
  View view() const { return viewOf(session, Texts(Language::kEnglish)); }

  test::FakeImport import{};
  Window window{};
  ImportSession session;
};

// Two new pictures and one that is known, and the end of an import of the first.
const std::string kHello =
    R"(say '{"event":"hello","protocol":1,"device":{"name":"Lumo"},"folder":"/p","battery":80}'
hears list
)";
const std::string kListed = kHello +
                            R"(for id in 0 1 2; do
say "{\"event\":\"object\",\"id\":$id,\"name\":\"$id.JPG\",\"size\":10,\"new\":true}"; done
say '{"event":"object","id":2,"name":"2.JPG","size":10,"new":false}' '{"event":"listed"}'
)";
const std::string kStarted = kListed + R"(hears start
say '{"event":"started","files":2,"bytes":20}' '{"event":"fetched","id":0,"path":"/p/0.JPG"}'
)";
const std::string kDone = kStarted + R"(say '{"event":"safe","id":0,"path":"/p/0.JPG"}'
say '{"event":"failed","id":1,"why":"it is spoilt"}' '{"event":"done","fetched":1,"failed":1}'
)";

TEST(RelaySession, GoesItsWayAndShowsIt) {
  Scene scene(kDone + R"(hears delete
say '{"event":"deleted","id":0}' '{"event":"deletedAll"}' '{"event":"gone"}'; exit 1)");
  EXPECT_EQ(scene.view().headline, "Connecting");
  ASSERT_TRUE(scene.comesTo(State::kReady));
  auto view = scene.view();
  EXPECT_EQ(view.title, "Lumo");
  EXPECT_EQ(view.headline, "2 new pictures");
  EXPECT_EQ(view.actionLabel, "Import 2 Pictures");
  EXPECT_EQ(scene.window.added[0], 0U);
  scene.session.chooseAll(false);
  EXPECT_FALSE(scene.view().isActionPossible);
  scene.session.chooseAll(true);
  scene.session.import();
  EXPECT_EQ(scene.view().action, MainAction::kCancel);
  ASSERT_TRUE(scene.comesTo(State::kDone));
  view = scene.view();
  EXPECT_EQ(view.headline, "1 picture imported");
  EXPECT_EQ(view.details, "1 could not be fetched");
  EXPECT_EQ(view.help, "it is spoilt");
  EXPECT_TRUE(view.canDelete);
  EXPECT_EQ(view.action, MainAction::kOpenFolder);
  scene.session.deleteImported();
  EXPECT_FALSE(scene.view().canDelete);
  ASSERT_TRUE(scene.comesTo(State::kDone));
  ASSERT_TRUE(waitUntil([&] { return !scene.session.standing().isHere; }));
  test::drainMainContext();
  EXPECT_EQ(scene.view().headline, "1 picture imported") << "also when it is unplugged then";
  EXPECT_FALSE(scene.view().canDelete);
  EXPECT_THAT(scene.view().details, testing::HasSubstr("1 deleted from the device"));
  EXPECT_EQ(scene.import.heard(),
            "{\"command\":\"list\"}\n{\"command\":\"choose\",\"what\":\"new\"}\n"
            "{\"command\":\"start\"}\n{\"command\":\"delete\",\"ids\":[0]}\n");
}

TEST(RelaySession, WhateverEndsItIsSaidAndCostsNoMoreThanOneImport) {
  struct Case {
    std::string script;
    State state;
    const char* headline;
    const char* help;
  };
  const char* const kSafe = "What was imported is safe";
  const Case cases[] = {
      {R"(say '{"event":"warning","text":"old"}' '{"event":"error","message":"No such device"}'
exit 3)",
       State::kFailed, "The device cannot be read", "No such device"},
      {"echo two >&2; echo lines >&2; exit 1", State::kFailed, "The device cannot be read",
       "two\nlines"},
      {"exit 0", State::kFailed, "The import has stopped", ""},
      {"forever", State::kFailed, "The import does not answer any more", ""},
      {kHello + "forever", State::kFailed, "The import does not answer any more", ""},
      {kHello + R"(say '{"event":"error","message":"stuck","advice":"Switch it off"}'; hears x)",
       State::kFailed, "The device cannot be read", "stuck\nSwitch it off"},
      {kHello + R"(say '{"event":"refused","command":"list","why":"not now"}'; hears x)",
       State::kFailed, "The device cannot be read", "not now"},
      {kListed + R"(say '{"event":"gone"}'; exit 1)", State::kGone, "The device is gone", "again"},
      {kStarted + "kill -9 $$", State::kFailed, "The import has crashed", kSafe},
      {kStarted + "forever", State::kFailed, "The import does not answer any more", kSafe},
      {kStarted + "say x x x; forever", State::kFailed, "The import says what makes no sense",
       kSafe},
      {kStarted + R"(say '{"event":"gone"}'; forever)", State::kGone, "The device is gone", ""},
      {kStarted + R"(say '{"event":"error","message":"it broke"}'; hears x)", State::kDone,
       "1 picture imported", "it broke"},
      {kListed + R"(hears start; say '{"event":"refused","command":"start","why":"no"}'; hears x)",
       State::kReady, "2 new pictures", "no"},
      {kStarted + R"(say '{"event":"done","fetched":1,"error":{"why":"full"}}'; hears x)",
       State::kDone, "1 picture imported", "full"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.script);
    ChildLimits limits = {.leave = 200ms, .nonsense = 3};
    if (std::string(each.headline).find("answer") != std::string::npos)
      limits.first = limits.work = 1s;
    Scene scene(each.script, limits);
    const auto isAt = [&] { return scene.session.standing().state; };
    ASSERT_TRUE(waitUntil([&] { return isAt() == State::kReady || isAt() == each.state; }));
    if (each.script.find("start") != std::string::npos) {
      scene.session.import();
      ASSERT_EQ(isAt(), State::kImporting);
    }
    ASSERT_TRUE(scene.comesTo(each.state));
    test::drainMainContext();
    EXPECT_EQ(scene.view().headline, each.headline);
    EXPECT_THAT(scene.view().help, testing::HasSubstr(each.help));
    bool isClosed = false;
    scene.session.close([&] { isClosed = true; });
    EXPECT_TRUE(waitUntil([&] { return isClosed; }));
  }
}

TEST(RelaySession, TakesNothingAtTheWrongTime) {
  Scene scene(R"(say '{"event":"listed"}' '{"event":"object","id":0,"name":"A","new":true}'
say '{"event":"thumbnail","id":0}' '{"event":"done"}' '{"event":"deletedAll"}' '{"event":"new"}'
)" + kListed + R"(say '{"event":"object","id":9,"name":"LATE.JPG","new":true}'
say '{"event":"done","fetched":5}' '{"event":"fetched","id":77}' '{"event":"looking","objects":5}'
hears never)");
  ASSERT_TRUE(scene.comesTo(State::kReady));
  ASSERT_TRUE(waitUntil([&] { return scene.session.standing().looked == 5; }));
  EXPECT_EQ(scene.session.model().size(), 3U);
  EXPECT_EQ(scene.session.standing().state, State::kReady);
  scene.session.cancel();
  scene.session.deleteImported();
  EXPECT_EQ(scene.session.standing().state, State::kReady);
}

TEST(RelaySession, CancelsAndGoesOn) {
  Scene scene(kStarted + R"(hears cancel; say '{"event":"done","fetched":1,"cancelled":true}'
hears start; say '{"event":"done","fetched":1}'; hears never)");
  ASSERT_TRUE(scene.comesTo(State::kReady));
  scene.session.import();
  ASSERT_TRUE(waitUntil([&] { return scene.session.standing().fetched == 1; }));
  scene.session.cancel();
  EXPECT_FALSE(scene.view().isActionPossible);
  ASSERT_TRUE(scene.comesTo(State::kDone));
  EXPECT_THAT(scene.view().details, testing::HasSubstr("Cancelled"));
  EXPECT_EQ(scene.view().actionLabel, "Import 1 Picture");
  scene.session.import();
  ASSERT_TRUE(scene.comesTo(State::kDone));
}

TEST(RelaySession, FetchesOrdersWhereThePersonWants) {
  Scene scene(R"(say '{"event":"hello","orders":2}'; hears list; say '{"event":"listed"}'
hears start
say '{"event":"orderPicture","name":"A.JPG","error":{"message":"A.JPG is spoilt"}}'
say '{"event":"done","orders":2}'; hears never)");
  ASSERT_TRUE(scene.comesTo(State::kReady));
  EXPECT_EQ(scene.view().orders, "Fetch the 2 orders, too");
  EXPECT_EQ(scene.view().actionLabel, "Import Orders");
  scene.session.setWantsOrders(false);
  EXPECT_EQ(scene.view().action, MainAction::kOpenFolder);
  scene.session.setWantsOrders(true);
  scene.session.import();
  ASSERT_TRUE(scene.comesTo(State::kDone));
  EXPECT_EQ(scene.view().details, "Orders done: 2");
  EXPECT_EQ(scene.view().help, "A.JPG is spoilt");
  EXPECT_THAT(scene.import.heard(), testing::HasSubstr("\"orders\":true"));
}

TEST(RelaySession, AsksForTheSmallPicturesThatAreLookedAt) {
  Scene scene(kListed + R"(hears thumbnail
say '{"event":"thumbnail","id":1,"width":1,"height":1,"pixels":"AAAA"}'
say '{"event":"thumbnail","id":0,"width":9,"height":1,"pixels":"AAAA"}'; hears never)");
  ASSERT_TRUE(scene.comesTo(State::kReady));
  scene.session.look({1, 0});
  ASSERT_TRUE(waitUntil([&] { return !scene.window.thumbnails.empty(); }));
  EXPECT_THAT(scene.window.thumbnails, testing::ElementsAre(1U));
  EXPECT_NE(scene.session.thumbnail(1), nullptr);
  EXPECT_EQ(scene.session.thumbnail(0), nullptr);
  EXPECT_THAT(scene.import.heard(), testing::HasSubstr("\"ids\":[1,0]"));
}

}  // namespace
}  // namespace tarvo::relay

#include "relay/Child.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/relay/FakeImport.h"
#include "tests/support/MainContextWait.h"
#include "tests/support/OpenDescriptors.h"

namespace tarvo::relay {
namespace {

using namespace std::chrono_literals;
using Kind = ChildEnd::Kind;
using test::waitUntil;

struct Ear : ChildListener {
  void heard(const std::string& event, const PropertyDictionary&) override {
    events.push_back(event);
  }
  void ended(const ChildEnd& how) override { ends.push_back(how); }

  std::vector<std::string> events{};
  std::vector<ChildEnd> ends{};
};

TEST(RelayChild, EndsInOneWayWhateverItDoes) {
  struct Case {
    const char* script;
    Kind kind;
    std::size_t events;
    const char* words;
  };
  const Case cases[] = {
      {R"(say '{"event":"a"}' '{"event":"b"}')", Kind::kLeft, 2, ""},
      {R"(printf '{"event":"a"}')", Kind::kLeft, 0, ""},
      {R"(say '{"event":"a"}'; echo "no such $(printf '\033')device" >&2; exit 3)", Kind::kFailed,
       1, "no such \uFFFDdevice"},
      {R"(say '{"event":"a"}'; kill -9 $$)", Kind::kCrashed, 1, ""},
      {R"(say x '[]' '{"event":1}' '{"event":"late"}'; forever)", Kind::kNonsense, 0, ""},
      {R"(say x '{"event":"a"}' y '{"event":"b"}')", Kind::kLeft, 2, ""},
      {R"(head -c 100000 /dev/zero | tr '\0' x; forever)", Kind::kNonsense, 0, ""},
      {"forever", Kind::kHung, 0, ""},
      {R"(say '{"event":"a"}'; forever)", Kind::kHung, 1, ""},
      // Somebody else keeps its output open.
      {R"(say '{"event":"a"}'; sleep 30 2>&- & echo $! > "${0%/*}/other")", Kind::kLeft, 1, ""},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.script);
    const test::FakeImport import;
    Ear ear;
    // Only who waits for a silence waits no longer than it needs.
    ChildLimits limits = {.line = 2000, .nonsense = 3};
    if (each.kind == Kind::kHung) limits.first = limits.work = 1s;
    Child child(ear, limits);
    child.start(import.words(each.script));
    ASSERT_TRUE(waitUntil([&] { return !ear.ends.empty(); }));
    test::drainMainContext();
    EXPECT_EQ(ear.ends.size(), 1U);
    EXPECT_EQ(ear.ends[0].kind, each.kind);
    EXPECT_EQ(ear.events.size(), each.events);
    EXPECT_THAT(ear.ends[0].words, testing::HasSubstr(each.words));
    (void)std::system(("{ kill $(cat '" + import.folder() + "/other'); } >/dev/null 2>&1").c_str());
  }
}

TEST(RelayChild, ThatCannotBeStartedSaysWhy) {
  Ear ear;
  Child child(ear);
  child.start({"/nowhere/tarvoctl"});
  EXPECT_TRUE(ear.ends.empty());
  ASSERT_TRUE(waitUntil([&] { return !ear.ends.empty(); }));
  EXPECT_EQ(ear.ends[0].kind, Kind::kNotStarted);
  EXPECT_THAT(ear.ends[0].words, testing::HasSubstr("/nowhere/tarvoctl"));
}

TEST(RelayChild, HearsCommandsOfAnyLengthAndLeavesWithItsInput) {
  const test::FakeImport import;
  Ear ear;
  Child child(ear);
  child.start(import.words("sleep 0.2; hears end; say '{\"event\":\"heard\"}'; hears more"));
  const std::string much(900'000, 'x');
  child.say({{"command", much}});
  child.say({{"command", "end"}});
  ASSERT_TRUE(waitUntil([&] { return !ear.events.empty(); }));
  EXPECT_EQ(import.heard(), "{\"command\":\"" + much + "\"}\n{\"command\":\"end\"}\n");
  EXPECT_TRUE(child.isRunning());
  child.close();
  child.say({{"command", "late"}});
  ASSERT_TRUE(waitUntil([&] { return !ear.ends.empty(); }));
  EXPECT_EQ(ear.ends[0].kind, Kind::kLeft);
}

TEST(RelayChild, ThatDoesNotLeaveIsKilledAndNothingOfItStays) {
  const auto before = test::openDescriptors();
  {
    const test::FakeImport import;
    Ear ear;
    Child child(ear, {.leave = 100ms});
    child.start(import.words("trap '' TERM; say '{\"event\":\"a\"}'; forever"));
    ASSERT_TRUE(waitUntil([&] { return !ear.events.empty(); }));
    child.close();
    ASSERT_TRUE(waitUntil([&] { return !ear.ends.empty(); }));
    EXPECT_EQ(ear.ends[0].kind, Kind::kLeft);
    Child silent(ear, {.leave = 100ms});
    silent.start(import.words("trap '' TERM; exec >&-; forever"));
    ASSERT_TRUE(waitUntil([&] { return ear.ends.size() == 2; }));
    EXPECT_EQ(ear.ends[1].kind, Kind::kCrashed);
    Child other(ear);
    other.start(import.words("forever"));
  }
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST(RelayChild, ThatFloodsLeavesTheLoopItsTurns) {
  const test::FakeImport import;
  Ear ear;
  Child child(ear);
  child.start(import.words("while :; do say '{\"event\":\"a\"}'; done"));
  // What a window draws with has a lower priority than what reads.
  int draws = 0;
  const auto draw = +[](gpointer count) -> gboolean {
    ++*static_cast<int*>(count);
    return G_SOURCE_CONTINUE;
  };
  const guint source = g_idle_add(draw, &draws);
  EXPECT_TRUE(waitUntil([&] { return ear.events.size() > 20'000; }));
  g_source_remove(source);
  EXPECT_GT(draws, 50);
}

}  // namespace
}  // namespace tarvo::relay

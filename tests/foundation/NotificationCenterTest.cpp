#include "platform/foundation/NotificationCenter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Utilities/Exception.h"
#include "platform/foundation/NotificationQueue.h"
#include "tests/support/ManualRunLoop.h"

namespace tarvo::test {
namespace {

class NotificationCenterTest : public testing::Test {
 protected:
  NotificationCenter::Handler record(const std::string& name) {
    return [this, name](const Notification&) { calls_.push_back(name); };
  }

  using Calls = std::vector<std::string>;
  NotificationCenter center_;
  Calls calls_;
  int a_ = 0;
  int b_ = 0;
};

TEST_F(NotificationCenterTest, CallsTheObserversOfANameInOrderOfRegistration) {
  center_.addObserver(&a_, "Added", record("first"));
  center_.addObserver(&b_, "Removed", record("other name"));
  center_.addObserver(&b_, "Added", record("second"));
  center_.post({"Added", nullptr});
  EXPECT_EQ(calls_, (Calls{"first", "second"}));
}

TEST_F(NotificationCenterTest, ASenderFilterHearsThatSenderAlone) {
  const auto camera = std::make_shared<Object>();
  const auto frame = std::make_shared<Object>();
  center_.addObserver(&a_, "Added", record("camera only"), camera.get());
  center_.addObserver(&b_, "Added", record("anyone"));
  center_.post({"Added", frame});
  center_.post({"Added", nullptr});
  EXPECT_EQ(calls_, (Calls{"anyone", "anyone"}));
  calls_.clear();
  center_.post({"Added", camera});
  EXPECT_EQ(calls_, (Calls{"camera only", "anyone"}));
  EXPECT_EQ(camera.use_count(), 1) << "the centre keeps no sender alive";
}

TEST_F(NotificationCenterTest, AnObserverLeavesByNameWhollyOrWithASender) {
  const auto camera = std::make_shared<Object>();
  center_.addObserver(&a_, "Added", record("a added"));
  center_.addObserver(&a_, "Removed", record("a removed"));
  center_.addObserver(&b_, "Added", record("b camera"), camera.get());
  const auto post = [&] {
    calls_.clear();
    center_.post({"Added", camera});
    center_.post({"Removed", camera});
    return calls_;
  };

  center_.removeObserver(&a_, "Added");
  EXPECT_EQ(post(), (Calls{"b camera", "a removed"}));
  center_.removeObserversOfSender(nullptr);
  EXPECT_EQ(post(), (Calls{"b camera", "a removed"})) << "no sender is not every sender";
  center_.removeObserversOfSender(camera.get());
  EXPECT_EQ(post(), (Calls{"a removed"}));
  center_.removeObserver(&a_);
  EXPECT_EQ(post(), Calls{});
}

TEST_F(NotificationCenterTest, WhoLeavesDuringADeliveryIsNotCalledAndWhoJoinsWaits) {
  center_.addObserver(&a_, "Added", [&](const Notification&) {
    calls_.push_back("first");
    center_.removeObserver(&a_);
    center_.removeObserver(&b_);
    center_.addObserver(&a_, "Added", record("joined"));
  });
  center_.addObserver(&b_, "Added", record("left"));
  center_.post({"Added", nullptr});
  EXPECT_EQ(calls_, (Calls{"first"}));
  center_.post({"Added", nullptr});
  EXPECT_EQ(calls_, (Calls{"first", "joined"}));
}

TEST_F(NotificationCenterTest, AHandlerMayLeaveWhileItsOwnCapturesGo) {
  struct Leaver {
    NotificationCenter& center;
    int identity = 0;
    ~Leaver() { center.removeObserver(&identity); }
  };
  auto leaver = std::make_shared<Leaver>(Leaver{center_});
  center_.addObserver(&leaver->identity, "Removed", record("leaver"));
  center_.addObserver(&a_, "Added", [leaver](const Notification&) {});
  leaver.reset();
  center_.removeObserver(&a_);
  center_.post({"Removed", nullptr});
  EXPECT_EQ(calls_, Calls{});
}

TEST_F(NotificationCenterTest, AnExceptionReachesThePosterAndEndsTheDelivery) {
  center_.addObserver(&a_, "Added",
                      [](const Notification&) { raiseAssertion("notification != nil"); });
  center_.addObserver(&b_, "Added", record("later"));
  EXPECT_THROW(center_.post({"Added", nullptr}), Exception);
  EXPECT_EQ(calls_, Calls{});
}

TEST_F(NotificationCenterTest, TheQueuePostsNowOrWhenTheLoopIsIdle) {
  ManualRunLoop loop;
  NotificationQueue queue(center_, loop);
  const auto sender = std::make_shared<Object>();
  center_.addObserver(&a_, "Idle", record("idle"), sender.get());
  center_.addObserver(&a_, "Now", record("now"));
  queue.enqueue({"Idle", sender}, PostingStyle::kWhenIdle);
  queue.enqueue({"Now", sender}, PostingStyle::kNow);
  EXPECT_EQ(calls_, (Calls{"now"}));
  loop.runPending();
  EXPECT_EQ(calls_, (Calls{"now", "idle"}));
}

}  // namespace
}  // namespace tarvo::test

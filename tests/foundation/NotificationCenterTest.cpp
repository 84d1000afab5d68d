#include "platform/foundation/NotificationCenter.h"

#include <gtest/gtest.h>

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
  const std::shared_ptr<Object> camera_ = std::make_shared<Object>();
  int a_ = 0;
  int b_ = 0;
};

TEST_F(NotificationCenterTest, AnObserverLeavesByNameWhollyOrWithASender) {
  center_.addObserver(&a_, "Added", record("a added"));
  center_.addObserver(&a_, "Removed", record("a removed"));
  center_.addObserver(&b_, "Added", record("b camera"), camera_.get());
  const auto post = [&] {
    calls_.clear();
    center_.post({"Added", camera_});
    center_.post({"Removed", camera_});
    return calls_;
  };

  center_.removeObserver(&a_, "Added");
  EXPECT_EQ(post(), (Calls{"b camera", "a removed"}));
  center_.removeObserversOfSender(nullptr);
  EXPECT_EQ(post(), (Calls{"b camera", "a removed"})) << "no sender is not every sender";
  center_.removeObserversOfSender(camera_.get());
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

}  // namespace
}  // namespace tarvo::test

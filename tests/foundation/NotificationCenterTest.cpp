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

TEST_F(NotificationCenterTest, ObserversHearTheirNameAndSenderUntilTheyLeave) {
  center_.addObserver(&a_, "Added", record("a"));
  center_.addObserver(&a_, "Removed", record("other name"));
  center_.addObserver(&b_, "Added", record("b camera"), camera_.get());
  center_.post({"Added", nullptr});
  center_.post({"Added", camera_});
  center_.removeObserver(&a_, "Added");
  center_.post({"Added", camera_});
  EXPECT_EQ(calls_, (Calls{"a", "a", "b camera", "b camera"}));
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

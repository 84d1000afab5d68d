#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "NativeServices/Logging.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo {
namespace {

using test::TraceRecorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(TraceLog, WritesUnderTheFacilityOfTheDeviceLibrary) {
  TraceRecorder traces;
  const char* volatile none = nullptr;
  TraceLog::trace("found %s at 0x%x", "it", 0xFAU);
  TraceLog::traceWithTag("tagged", XTOptDebugLog);
  TraceLog::traceFormat("Other", "%d of %d", 1, 2);
  TraceLog::trace(none, "");
  TraceLog::traceMethod("XTThing", "doIt:with:", reinterpret_cast<const void*>(0x12abcdef0UL));
  TraceLog::traceMethod("XTThing", "shared", nullptr);
  EXPECT_THAT(
      traces.log().lines(),
      ElementsAre("XT PictureDevice - found it at 0xfa", "XT PictureDevice - tagged",
                  "Other - 1 of 2", "XT PictureDevice - *** Nil format passed to -trace: ***",
                  "XT PictureDevice - -[XTThing doIt:with:] (self=0x12abcdef0)",
                  "XT PictureDevice - +[XTThing shared] (self=0x0)"));
}

TEST(TraceLog, ExpandsFormattedTextASecondTime) {
  TraceRecorder traces;
  TraceLog::trace("%s", "name with %d and %@");
  TraceLog::dump("dumped %s");
  EXPECT_THAT(traces.take(), ElementsAre("name with 0 and (null)", "dumped (null)"));
}

TEST(TraceLog, NeedsBothBitsOfTheVerboseLevel) {
  for (const char* key : {"LOG_SUBSYS_CAMERA", "LOG_SUBSYS_LISTENER", "LOG_SUBSYS_FACEBOOK"}) {
    TraceRecorder traces({{key, true}});
    EXPECT_FALSE(TraceLog::isActive()) << key;
    TraceLog::trace("x");
    TraceLog::traceWithTag("x", "");
    TraceLog::traceFormat("F", "x");
    TraceLog::traceMethod("C", "s", nullptr);
    TraceLog::dump("x");
    EXPECT_THAT(traces.take(), IsEmpty()) << key;
  }
}

}  // namespace
}  // namespace tarvo

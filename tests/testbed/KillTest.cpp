// tarvoctl is killed while it downloads, at points spread over the object: nothing partial stays
// under the final name, the next command opens the camera, and the next download is whole.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/testbed/ToolTestbed.h"

namespace tarvo::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kSize = 64'000'000;  // bytes
constexpr unsigned kUsualPoints = 10;
constexpr unsigned kFetchedWhole = 5;  // one point in so many is followed by a whole download

/// TARVO_KILL_POINTS asks for more of them.
unsigned points() {
  const char* wanted = std::getenv("TARVO_KILL_POINTS");
  return wanted == nullptr ? kUsualPoints : static_cast<unsigned>(std::atoi(wanted));
}

class Killed : public ToolTestbed {
 protected:
  Killed() {
    auto description = camera();
    simulator::ContentNode movie;
    movie.name = u"MOVIE.MOV";
    movie.size = kSize;
    description.stores.front().content = {movie};
    id_ = plug(std::move(description));
  }

  std::uint64_t sent() { return pluggedCamera(id_).counts().bytesToHost; }
  std::string fetched() const { return folder_.path("work/pictures/MOVIE.MOV"); }

  /// Kills a download once the camera has sent `bytes` of it; false where the command ended before.
  bool killAfter(std::uint64_t bytes) {
    // What an earlier attempt has left would be gone on with.
    fs::remove_all(folder_.path("work/pictures"));
    const auto before = sent();
    start("get --all --output pictures/");
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (sent() - before < bytes && Clock::now() < deadline)
      std::this_thread::yield();  // a pause would let megabytes pass
    running().signal(SIGKILL);
    const bool killed = finish().exitCode == 128 + SIGKILL;
    EXPECT_GE(sent() - before, bytes);
    return killed;
  }

  /// The same, tried again where the last bytes went out faster than the signal.
  bool killSurelyAfter(std::uint64_t bytes) {
    for (int attempt = 0; attempt < 20; ++attempt) {
      if (killAfter(bytes)) return true;
      EXPECT_EQ(fs::file_size(fetched()), kSize);
    }
    return false;
  }

  void expectTheNextCommandWorks() {
    const auto next = tool("ls");
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_THAT(next.out, ::testing::HasSubstr("MOVIE.MOV"));
  }

  void expectAWholeDownload() {
    EXPECT_EQ(tool("get --all --output pictures/").exitCode, 0) << err();
    const auto handle = pluggedCamera(id_).handles().front();
    const auto bytes = pluggedCamera(id_).bytes(handle);
    const auto file = folder_.read("work/pictures/MOVIE.MOV");
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(file)), bytes));
  }

  std::string id_;
};

TEST_F(Killed, DownloadsLeaveNothingPartialAndTheNextCommandWorks) {
  const unsigned count = points();
  for (unsigned point = 0; point < count; ++point) {
    SCOPED_TRACE("point " + std::to_string(point));
    ASSERT_TRUE(killSurelyAfter(kSize / (count + 1) * (point + 1)))
        << "the command ended before it was killed";
    EXPECT_FALSE(fs::exists(fetched()));
    expectTheNextCommandWorks();
    if (point % kFetchedWhole == 0) expectAWholeDownload();
  }
}

}  // namespace
}  // namespace tarvo::test

// An import as a conversation of JSON lines: what a window, or any other program, needs in order to
// show pictures and import them without touching the device. docs/import.md is its description.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "import/History.h"
#include "import/Items.h"
#include "import/Search.h"
#include "tools/access/ToolContext.h"
#include "tools/import/ImportProgress.h"
#include "tools/import/LineInput.h"

namespace tarvo::tools {

/// Main thread only; all are lent. Everything that is told is one line of standard output, every
/// command one of standard input.
class Conversation : public importing::ImportObserver {
 public:
  Conversation(ToolContext& context, Device& device, importing::History* history,
               importing::ImportOptions& options, importing::Wanted wanted);

  /// Until the input ends, or the device leaves. Gives the exit status.
  int run();

  bool goesOn() override;
  void pauses() override;
  void looked(std::uint64_t objects) override;
  void found(const importing::Item& item) override;
  void unreadable(const std::string& path, const Error& error) override;
  void begins(const importing::Item& item) override;
  void progressed(const importing::Item& item, std::uint64_t done) override;
  void ended(const importing::Item& item, const importing::Result& result) override;
  void secured(const importing::Item& item, const std::string& path) override;
  void deleted(const importing::Item& item) override;
  void keptOnDevice(const importing::Item& item, const std::string& why) override;
  void warned(const std::string& text) override;

 private:
  using Clock = std::chrono::steady_clock;
  using Json = PropertyDictionary;

  /// Who is not there any more wants nothing.
  bool isAlone() const { return input_.hasEnded() && !isLeaving_; }
  void tell(const Json& event);
  void hello();
  /// Takes what has come; commands that cannot wait are done at once.
  void listen();
  void obey(const Json& command);
  void refuse(const std::string& command, const std::string& why);

  void list();
  void choose(const Json& command);
  void start(const Json& command);
  /// What `start` fetches; with the device's error in it where that ended it.
  Json fetch();
  void endedBy(const Error& error, Json& done);
  /// The number of those that are here as a whole.
  std::uint64_t fetchOrders();
  void remove(const Json& command);
  void wantThumbnails(const Json& command);
  void tellOneThumbnail();
  void tellProgress(bool isDue);
  /// Numbers of items; those that there are none of are left out.
  std::vector<std::size_t> idsOf(const Json& command, const char* key = "ids") const;
  std::size_t idOf(const importing::Item& item) const;

  ToolContext& context_;
  Device& device_;
  importing::History* history_;
  importing::ImportOptions& options_;
  importing::Wanted wanted_;
  importing::Search search_;
  LineInput input_;
  std::deque<Json> commands_;           ///< not done yet
  std::deque<std::size_t> thumbnails_;  ///< asked for; the latest first
  std::vector<bool> isToldNew_;         ///< by item, as it was told last
  std::vector<bool> isSafe_;            ///< by item: fetched and secured here
  ImportPace pace_;
  std::uint64_t bytesBefore_ = 0;
  std::size_t current_ = 0;
  Clock::time_point started_;
  Clock::time_point lastTold_;
  bool isBusy_ = false;  ///< listing or fetching
  bool isCancelled_ = false;
  bool isLeaving_ = false;  ///< once all that was asked for is done
  bool isGone_ = false;
};

}  // namespace tarvo::tools

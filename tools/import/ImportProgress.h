// An import as a person in a terminal sees it: one line for the whole, and what went wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "import/Items.h"
#include "tools/access/ToolContext.h"

namespace tarvo::tools {

/// What of an import is done, and how fast.
struct ImportPace {
  std::uint64_t files = 0;
  std::uint64_t ofFiles = 0;
  std::uint64_t bytes = 0;
  std::uint64_t ofBytes = 0;
  std::chrono::milliseconds elapsed{0};

  std::uint64_t rate() const;         ///< bytes a second; 0 is not known yet
  std::uint64_t secondsLeft() const;  ///< 0 where the rate is not known
};

/// "12/340 files  1.2 of 4.0 GB  42 MB/s  01:12"; what does not fit in the columns is left out.
std::string importLine(const ImportPace& pace, std::size_t columns);

/// Main thread only; all are lent.
class ImportProgress : public importing::ImportObserver {
 public:
  explicit ImportProgress(ToolContext& context) : context_(context) {}
  ~ImportProgress() override;
  ImportProgress(const ImportProgress&) = delete;
  ImportProgress& operator=(const ImportProgress&) = delete;

  /// What is to be fetched, now that it is known.
  void expect(std::uint64_t files, std::uint64_t bytes);
  /// How many objects could not be looked at.
  std::uint64_t unread() const { return unread_; }

  bool goesOn() override { return !context_.interrupt.isSet(); }
  void looked(std::uint64_t objects) override;
  void unreadable(const std::string& path, const Error& error) override;
  void begins(const importing::Item& item) override;
  void progressed(const importing::Item& item, std::uint64_t done) override;
  void ended(const importing::Item& item, const importing::Result& result) override;
  void deleted(const importing::Item& item) override;
  void keptOnDevice(const importing::Item& item, const std::string& why) override;
  void warned(const std::string& text) override { context_.output.message(text); }

 private:
  using Clock = std::chrono::steady_clock;

  void show(const std::string& line);
  void draw();

  ToolContext& context_;
  ImportPace pace_;
  std::uint64_t bytesBefore_ = 0;  ///< of the objects that have ended
  std::uint64_t unread_ = 0;
  bool hasToldOfRoom_ = false;
  Clock::time_point started_ = Clock::now();
  Clock::time_point lastDrawn_ = started_;
};

}  // namespace tarvo::tools

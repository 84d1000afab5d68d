// How far long work has come: a bar with rate and time left, on a terminal alone.
//
//   Progress progress(output, interrupt, 3);
//   progress.begin("TARV0001.JPG", 2412034);
//   options.progress(progress.callback());
//   ...
//   progress.end();
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tarvo/Session.h"
#include "tarvo/Transfer.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

/// Main thread only.
class Progress {
 public:
  /// Of `count` objects. All are lent.
  Progress(Output& output, const StopSignals& interrupt, std::size_t count);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Of so many, now that it is known.
  void expect(std::size_t count) { count_ = count; }
  /// The next object begins. `size` is in bytes; 0 is unknown.
  void begin(const std::string& name, std::uint64_t size);
  /// What was shown goes away.
  void end();
  /// For who moves the bytes, not longer than this lives. It ends what the user has interrupted.
  TransferProgress callback();

 private:
  using Clock = std::chrono::steady_clock;

  void draw(Clock::time_point now);
  void clear();

  Output& output_;
  const StopSignals& interrupt_;
  std::size_t count_;
  std::size_t index_ = 0;
  bool isShown_;  ///< whether there is anybody to show it to
  bool isDrawn_ = false;
  std::string name_;
  std::uint64_t size_ = 0;
  std::uint64_t done_ = 0;
  Clock::time_point started_;
  Clock::time_point lastDrawn_;
};

/// What the bar says, in at most `columns` columns: "2/3 NAME [####....]  42 %  4.2 MB/s  00:12".
/// `size` 0 is unknown: then there is neither bar nor time left.
std::string progressLine(const std::string& label, std::uint64_t done, std::uint64_t size,
                         std::chrono::milliseconds elapsed, std::size_t columns);

/// Of the terminal behind standard error; 80 where it does not say.
std::size_t terminalColumns();

}  // namespace tarvo::tools

// How far long work has come, on a terminal alone: a bar with rate and time left, or how many
// objects were looked through.
//
//   Progress progress(output, interrupt, 3);
//   progress.begin("TARV0001.JPG", 2412034);
//   options.progress(progress.callback());
//   ...
//   progress.end();
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
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
  /// One that needs nothing, or cannot be had.
  void pass() { ++index_; }
  /// The next object begins. `size` is in bytes; 0 is unknown.
  void begin(const std::string& name, std::uint64_t size);
  /// What was shown goes away.
  void end();
  /// For who moves the bytes, not longer than this lives. It ends what the user has interrupted.
  TransferProgress callback();

 private:
  using Clock = std::chrono::steady_clock;

  void draw(Clock::time_point now);

  Output& output_;
  const StopSignals& interrupt_;
  std::size_t count_;
  std::size_t index_ = 0;
  std::string name_;
  std::uint64_t size_ = 0;
  std::uint64_t done_ = 0;
  Clock::time_point started_;
  Clock::time_point lastDrawn_;
};

/// While a device is looked through for what is meant: "Looking through Tarvo Z7590: 1,234 objects
/// ...", once that takes half a second.
///
///   Search search(output, device.info().name());
///   visitor.onLooked(search.counter());
class Search {
 public:
  /// `output` is lent.
  Search(Output& output, std::string device);
  ~Search() { output_.status({}); }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  /// To be called for each object, not longer than this lives.
  std::function<void()> counter();

 private:
  Output& output_;
  std::string device_;
  std::uint64_t count_ = 0;
  std::chrono::steady_clock::time_point next_;
};

/// What the bar says, in at most `columns` columns: "2/3 NAME [####....]  42 %  4.2 MB/s  00:12".
/// A narrow terminal gets no bar, and where it needs to no rate. `size` 0 is unknown: then there is
/// neither bar nor time left.
std::string progressLine(const std::string& label, std::uint64_t done, std::uint64_t size,
                         std::chrono::milliseconds elapsed, std::size_t columns);
/// The same of a search: "Looking through NAME: 1,234 objects ...".
std::string searchLine(const std::string& device, std::uint64_t count, std::size_t columns);

/// Of the terminal behind the descriptor, standard error; 80 where it does not say.
std::size_t terminalColumns(int terminal = 2);

}  // namespace tarvo::tools

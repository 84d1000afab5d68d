#include "tools/output/Progress.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/Format.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{100};
/// Work that is done sooner needs no bar.
constexpr std::chrono::milliseconds kPatience{300};
constexpr std::chrono::milliseconds kPatienceWithSearch{500};
constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kDefaultColumns = 80;
/// So much of a name is wanted beside the numbers.
constexpr std::size_t kLeastLabel = 12;

std::string bar(std::uint64_t done, std::uint64_t size) {
  const auto filled = static_cast<std::size_t>(done * kBarWidth / size);
  return "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "]";
}

/// As much of it as fits; names come from devices and may be long.
std::string fitting(const std::string& text, std::size_t columns) {
  std::string fits = text;
  while (displayWidth(fits) > columns)
    fits.pop_back();
  return printable(fits);
}

}  // namespace

std::size_t terminalColumns(int terminal) {
  winsize size = {};
  if (::ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kDefaultColumns;
  return size.ws_col;
}

std::string progressLine(const std::string& label, std::uint64_t done, std::uint64_t size,
                         std::chrono::milliseconds elapsed, std::size_t columns) {
  const double seconds = std::max(0.001, static_cast<double>(elapsed.count()) / 1000);
  const double rate = static_cast<double>(done) / seconds;
  std::vector<std::string> parts = {"  " + sizeInWords(done)};
  if (size > 0) {
    done = std::min(done, size);
    parts = {" " + bar(done, size), formatted(" %3u %%", static_cast<unsigned>(done * 100 / size))};
  }
  parts.push_back("  " + sizeInWords(static_cast<std::uint64_t>(rate)) + "/s");
  if (size > 0 && rate >= 1) {
    const double secondsLeft = std::round(static_cast<double>(size - done) / rate);
    parts.push_back("  " + durationInWords(static_cast<std::uint64_t>(secondsLeft)));
  }
  // What says least goes first: the bar, then the rate.
  std::string numbers = joined(parts, "");
  while (parts.size() > 1 && numbers.size() + kLeastLabel > columns) {
    parts.erase(parts.begin() + (parts.front().starts_with(" [") ? 0 : 1));
    numbers = joined(parts, "");
  }
  const std::size_t room = columns > numbers.size() ? columns - numbers.size() : 0;
  return fitting(fitting(label, room) + numbers, columns);
}

std::string searchLine(const std::string& device, std::uint64_t count, std::size_t columns) {
  constexpr std::string_view kBefore = "Looking through ";
  const std::string after = ": " + grouped(count) + (count == 1 ? " object ..." : " objects ...");
  const std::size_t taken = kBefore.size() + after.size();
  return fitting(
      std::string(kBefore) + fitting(device, columns > taken ? columns - taken : 0) + after,
      columns);
}

Progress::Progress(Output& output, const StopSignals& interrupt, std::size_t count)
    : output_(output), interrupt_(interrupt), count_(count) {}

Progress::~Progress() {
  end();
}

void Progress::begin(const std::string& name, std::uint64_t size) {
  name_ = name;
  size_ = size;
  done_ = 0;
  ++index_;
  started_ = Clock::now();
  lastDrawn_ = started_ + kPatience - kRedrawInterval;
}

void Progress::end() {
  output_.status({});
}

TransferProgress Progress::callback() {
  return [this](std::uint64_t done, std::uint64_t size) {
    done_ = done;
    size_ = size;
    const auto now = Clock::now();
    if (output_.showsStatus() && now - lastDrawn_ >= kRedrawInterval) draw(now);
    return !interrupt_.isSet();
  };
}

void Progress::draw(Clock::time_point now) {
  lastDrawn_ = now;
  const std::string label =
      count_ > 1 ? formatted("%zu/%zu ", index_, count_) + printable(name_) : printable(name_);
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
  output_.status(progressLine(label, done_, size_, elapsed, terminalColumns() - 1));
}

Search::Search(Output& output, std::string device)
    : output_(output),
      device_(std::move(device)),
      next_(std::chrono::steady_clock::now() + kPatienceWithSearch) {}

std::function<void()> Search::counter() {
  return [this] {
    ++count_;
    const auto now = std::chrono::steady_clock::now();
    if (!output_.showsStatus() || now < next_) return;
    next_ = now + kRedrawInterval;
    output_.status(searchLine(device_, count_, terminalColumns() - 1));
  };
}

}  // namespace tarvo::tools

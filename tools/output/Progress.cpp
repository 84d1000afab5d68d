#include "tools/output/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "Utilities/Format.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

constexpr std::chrono::milliseconds kRedrawInterval{100};
/// Work that is done sooner needs no bar.
constexpr std::chrono::milliseconds kPatience{300};
constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kDefaultColumns = 80;

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

std::size_t terminalColumns() {
  winsize size = {};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kDefaultColumns;
  return size.ws_col;
}

std::string progressLine(const std::string& label, std::uint64_t done, std::uint64_t size,
                         std::chrono::milliseconds elapsed, std::size_t columns) {
  const double seconds = std::max(0.001, static_cast<double>(elapsed.count()) / 1000);
  const double rate = static_cast<double>(done) / seconds;
  std::string numbers;
  if (size > 0) {
    done = std::min(done, size);
    numbers =
        " " + bar(done, size) + formatted(" %3u %%", static_cast<unsigned>(done * 100 / size));
  } else {
    numbers = "  " + sizeInWords(done);
  }
  numbers += "  " + sizeInWords(static_cast<std::uint64_t>(rate)) + "/s";
  if (size > 0 && rate >= 1) {
    const double secondsLeft = std::round(static_cast<double>(size - done) / rate);
    numbers += "  " + durationInWords(static_cast<std::uint64_t>(secondsLeft));
  }
  const std::size_t room = columns > numbers.size() ? columns - numbers.size() : 0;
  return fitting(label, room) + numbers;
}

Progress::Progress(Output& output, const StopSignals& interrupt, std::size_t count)
    : output_(output),
      interrupt_(interrupt),
      count_(count),
      isShown_(output.errIsTerminal() && !output.isQuiet() && !output.isJSON()) {
  output_.onWrite([this] { clear(); });
}

Progress::~Progress() {
  clear();
  output_.onWrite({});
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
  clear();
}

TransferProgress Progress::callback() {
  return [this](std::uint64_t done, std::uint64_t size) {
    done_ = done;
    size_ = size;
    const auto now = Clock::now();
    if (isShown_ && now - lastDrawn_ >= kRedrawInterval) draw(now);
    return !interrupt_.isSet();
  };
}

void Progress::draw(Clock::time_point now) {
  lastDrawn_ = now;
  const std::string label =
      count_ > 1 ? formatted("%zu/%zu ", index_, count_) + printable(name_) : printable(name_);
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
  // The last column stays free: some terminals wrap a line that fills it.
  const std::string line = progressLine(label, done_, size_, elapsed, terminalColumns() - 1);
  output_.beside("\r\033[K" + line);
  isDrawn_ = true;
}

void Progress::clear() {
  if (!isDrawn_) return;
  output_.beside("\r\033[K");
  isDrawn_ = false;
}

}  // namespace tarvo::tools

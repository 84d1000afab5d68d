#include "relay/Child.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "Utilities/Exception.h"
#include "Utilities/JSONReader.h"
#include "Utilities/Printable.h"
#include "relay/ImportProgram.h"

namespace tarvo::relay {
namespace {

using std::chrono::milliseconds;

/// A turn of the loop, and the pause in which it draws: sources of the descriptors' priority would
/// keep a window from drawing for as long as there is something to read.
constexpr milliseconds kTurn{8};
constexpr milliseconds kPause{3};
constexpr std::size_t kChunk = std::size_t{256} << 10U;
constexpr int kPipe = 1 << 20;
constexpr std::size_t kLastWords = 4096;

template <void (Child::*function)()>
gboolean callOnce(gpointer child) {
  (static_cast<Child*>(child)->*function)();
  return G_SOURCE_REMOVE;
}

AttachedSource attached(GSource* source, GSourceFunc function, gpointer data,
                        int priority = G_PRIORITY_DEFAULT) {
  g_source_set_priority(source, priority);
  g_source_set_callback(source, function, data, nullptr);
  g_source_attach(source, nullptr);
  return AttachedSource(source);
}

AttachedSource timer(milliseconds wait, GSourceFunc function, gpointer data) {
  return attached(g_timeout_source_new(static_cast<guint>(std::max(wait.count(), {}))), function,
                  data);
}

/// Lines for a person, without the end of the last one.
std::string wordsOf(const std::string& written) {
  std::string words = printableLines(written);
  words.erase(words.find_last_not_of(" \n") + 1);
  return words;
}

}  // namespace

Child::Child(ChildListener& listener, const ChildLimits& limits)
    : listener_(listener), limits_(limits) {}

Child::~Child() {
  watch_.reset();
  if (pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

void Child::start(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const auto& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  constexpr auto kFlags =
      static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_CLOEXEC_PIPES);
  GPid pid = 0;
  gint input = -1, output = -1, errors = -1;
  GErrorHolder error;
  if (g_spawn_async_with_pipes(nullptr, arguments.data(), nullptr, kFlags, endWithParent,
                               GINT_TO_POINTER(::getpid()), &pid, &input, &output, &errors,
                               error.out()) != FALSE)
    return adopt(pid, input, output, errors);
  givenUp_ = ChildEnd::Kind::kNotStarted;
  lastWords_ = error.message();
  outputEnded_ = true;
  reading_ = timer({}, callOnce<&Child::finish>, this);
}

void Child::adopt(pid_t pid, int input, int output, int errors) {
  pid_ = pid;
  input_ = FileDescriptor(input);
  output_ = FileDescriptor(output);
  errors_ = FileDescriptor(errors);
  for (const int each : {input, output, errors})
    g_unix_set_fd_nonblocking(each, TRUE, nullptr);
  // A thumbnail is larger than a pipe; where it cannot grow, it is only slower.
  ::fcntl(output, F_SETPIPE_SZ, kPipe);
  const auto reap =
      +[](GPid, gint status, gpointer child) { static_cast<Child*>(child)->reaped(status); };
  watch_ = attached(g_child_watch_source_new(pid), G_SOURCE_FUNC(reap), this);
  goOn();
  const auto err = +[](gint, GIOCondition, gpointer child) -> gboolean {
    auto* const self = static_cast<Child*>(child);
    self->readErrors();
    return self->errors_.isOpen();
  };
  erring_ =
      attached(g_unix_fd_source_new(errors, G_IO_IN), G_SOURCE_FUNC(err), this, G_PRIORITY_LOW);
  lastHeard_ = Clock::now();
  setWorking(true);
}

void Child::goOn() {
  if (pending_.find('\n', heardUpTo_) != std::string::npos) return hearSome();
  if (outputEnded_) {
    expectEnd();
    return finish();
  }
  const auto ready = +[](gint, GIOCondition, gpointer child) -> gboolean {
    static_cast<Child*>(child)->read();
    return G_SOURCE_REMOVE;
  };
  // What has been reaped says no more: nobody may keep its output open for it.
  if (pid_ == 0) return read();
  reading_ = attached(g_unix_fd_source_new(output_.get(), G_IO_IN), G_SOURCE_FUNC(ready), this);
}

void Child::read() {
  pending_.erase(0, std::exchange(heardUpTo_, 0));
  const std::size_t before = pending_.size();
  pending_.resize(before + kChunk);
  const ssize_t count = ::read(output_.get(), pending_.data() + before, kChunk);
  const bool isInterrupted = count < 0 && (errno == EAGAIN || errno == EINTR);
  pending_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  outputEnded_ = count == 0 || (count < 0 && (!isInterrupted || pid_ == 0));
  hearSome();
}

void Child::hearSome() {
  const auto end = Clock::now() + kTurn;
  while (!givenUp_ && Clock::now() < end) {
    const auto line = nextLine();
    if (!line) break;
    hear(*line);
  }
  const bool isTooLong = pending_.size() - heardUpTo_ > limits_.line &&
                         pending_.find('\n', heardUpTo_) - heardUpTo_ > limits_.line;
  if (isTooLong) giveUp(ChildEnd::Kind::kNonsense);
  if (givenUp_) heardUpTo_ = pending_.size();
  listener_.turnEnded();
  reading_ = timer(kPause, callOnce<&Child::goOn>, this);
}

std::optional<std::string> Child::nextLine() {
  const auto end = pending_.find('\n', heardUpTo_);
  if (end == std::string::npos || end - heardUpTo_ > limits_.line) return std::nullopt;
  std::string line = pending_.substr(heardUpTo_, end - heardUpTo_);
  heardUpTo_ = end + 1;
  return line;
}

void Child::hear(const std::string& line) {
  PropertyDictionary json;
  try {
    json = jsonFromText(line);
  } catch (const Exception&) {
    json = nullptr;
  }
  if (const auto event = textForKey(json, "event")) {
    hasSpoken_ = true;
    lastHeard_ = Clock::now();
    return listener_.heard(*event, json);
  }
  if (++nonsense_ >= limits_.nonsense) giveUp(ChildEnd::Kind::kNonsense);
}

void Child::readErrors() {
  std::array<char, 4096> chunk;
  const ssize_t count = ::read(errors_.get(), chunk.data(), chunk.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) {
    errors_ = FileDescriptor();
    return;
  }
  lastWords_.append(chunk.data(), static_cast<std::size_t>(count));
  if (lastWords_.size() > kLastWords) lastWords_.erase(0, lastWords_.size() - kLastWords);
}

void Child::say(const PropertyDictionary& command) {
  if (!input_.isOpen()) return;
  outgoing_ += command.dump() + "\n";
  flush();
}

void Child::flush() {
  while (!outgoing_.empty()) {
    const ssize_t count = ::write(input_.get(), outgoing_.data(), outgoing_.size());
    if (count > 0) {
      outgoing_.erase(0, static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      break;
    } else if (errno != EINTR) {
      // It has closed its input: its end tells the rest.
      outgoing_.clear();
    }
  }
  if (outgoing_.empty()) return writing_.reset();
  if (writing_) return;
  const auto ready = +[](gint, GIOCondition, gpointer child) -> gboolean {
    static_cast<Child*>(child)->flush();
    return G_SOURCE_CONTINUE;
  };
  writing_ = attached(g_unix_fd_source_new(input_.get(), G_IO_OUT), G_SOURCE_FUNC(ready), this);
}

void Child::setWorking(bool isWorking) {
  if (isWorking && !isWorking_ && hasSpoken_) lastHeard_ = Clock::now();
  isWorking_ = isWorking;
  if (!isWorking) return silence_.reset();
  if (!silence_ && pid_ != 0) armSilence(hasSpoken_ ? limits_.work : limits_.first);
}

void Child::armSilence(milliseconds wait) {
  silence_ = timer(wait, callOnce<&Child::checkSilence>, this);
}

void Child::checkSilence() {
  const auto limit = hasSpoken_ ? limits_.work : limits_.first;
  const auto left = std::chrono::ceil<milliseconds>(lastHeard_ + limit - Clock::now());
  // Events that wait for their turn are no silence.
  if (left.count() <= 0 && heardUpTo_ == pending_.size()) return giveUp(ChildEnd::Kind::kHung);
  armSilence(std::max(left, milliseconds(100)));
}

void Child::close() {
  isClosed_ = true;
  writing_.reset();
  outgoing_.clear();
  input_ = FileDescriptor();
  silence_.reset();
  expectEnd();
}

void Child::expectEnd() {
  if (leaving_ || pid_ == 0) return;
  const auto kill = +[](gpointer child) -> gboolean {
    auto* const self = static_cast<Child*>(child);
    if (self->pid_ != 0) ::kill(self->pid_, SIGKILL);
    return G_SOURCE_REMOVE;
  };
  leaving_ = timer(limits_.leave, kill, this);
}

void Child::giveUp(ChildEnd::Kind kind) {
  if (!givenUp_) givenUp_ = kind;
  silence_.reset();
  if (pid_ != 0) ::kill(pid_, SIGKILL);
}

void Child::reaped(int status) {
  using Kind = ChildEnd::Kind;
  pid_ = 0;
  leaving_.reset();
  silence_.reset();
  writing_.reset();
  input_ = FileDescriptor();
  if (!isClosed_ && WIFSIGNALED(status)) end_ = Kind::kCrashed;
  if (!isClosed_ && WIFEXITED(status) && WEXITSTATUS(status) != 0) end_ = Kind::kFailed;
  for (std::size_t read = 0; errors_.isOpen() && read < kPipe; read += kLastWords)
    readErrors();
  // What it said last may still lie in the pipe.
  reading_ = timer({}, callOnce<&Child::goOn>, this);
}

void Child::finish() {
  reading_.reset();
  if (pid_ != 0 || std::exchange(hasFinished_, true)) return;
  erring_.reset();
  listener_.ended({.kind = givenUp_.value_or(end_), .words = wordsOf(lastWords_)});
}

}  // namespace tarvo::relay

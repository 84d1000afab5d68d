// The inside of a session, shared with all that was made from it: what they stand on, and the rules
// of every call.
#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "Utilities/FileDescriptor.h"
#include "Utilities/PropertyDictionary.h"
#include "library/access/Failure.h"
#include "library/access/Platform.h"
#include "platform/foundation/Interrupt.h"
#include "tarvo/Session.h"

namespace tarvo {

struct SessionOptions::Data {
  std::optional<std::chrono::milliseconds> timeout{};
  const StopSignals* stop = nullptr;
  std::function<void(Severity, std::string_view)> log{};
  bool quiet = false;
  std::string name = "libtarvo";
  std::optional<std::string> preferences{};
  std::function<void()> waiting{};
  /// Null: one of its own.
  std::shared_ptr<GMainContext> context{};
};

class StopSignals::Signals : public Interrupt {};

namespace library {

/// That of a process: the smaller twin of the agent's. It owns the platform services and the state
/// of the rooms, in the order in which they need each other, without a listener, and makes each no
/// earlier than something needs it. One in a process, on the main context that is its thread's
/// default while it is made and used.
std::unique_ptr<Platform> makeProcessPlatform(const SessionOptions::Data& options);

/// Does its work when it goes.
template <typename Work>
class AtEnd {
 public:
  explicit AtEnd(Work work) : work_(std::move(work)) {}
  ~AtEnd() { work_(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Work work_;
};

}  // namespace library

class SessionState : public std::enable_shared_from_this<SessionState> {
 public:
  /// Makes the process's platform. Raises kMisuse while there is another session.
  explicit SessionState(const SessionOptions::Data& options);
  /// Over a platform that is lent, on the thread's main context.
  explicit SessionState(library::Platform& platform);
  ~SessionState();
  SessionState(const SessionState&) = delete;
  SessionState& operator=(const SessionState&) = delete;

  library::Platform& platform() { return *platform_; }
  GMainContext* context() const { return context_.get(); }
  /// Whether everything has been let go of, the platform too.
  bool isOver() const { return isOver_; }
  /// Whether a running call had better end: by what the program set, or as the session has gone.
  bool isInterrupted() const;
  /// Raises kCancelled if it is.
  void endIfInterrupted() const;

  /// Whether `device` is held already; marks it.
  bool hold(std::uint32_t device);
  /// `end` is called when the session ends, unless `who` is forgotten before.
  void onEnd(const void* who, std::function<void()> end) { ends_[who] = std::move(end); }
  void forget(const void* who) { ends_.erase(who); }
  void letGo(std::uint32_t device) { held_.erase(device); }

  /// What was made from the session answers kMisuse from here on, and every device is let go of: at
  /// once, or when what runs is over where this comes from a callback.
  void end();

  /// A transfer runs: the device can take no other call. As long as what is given lives.
  [[nodiscard]] auto transfer() {
    isInTransfer_ = true;
    return library::AtEnd([this] { isInTransfer_ = false; });
  }

  /// The session's context is the thread's, for what the rooms below attach to it. As long as what
  /// is given lives.
  [[nodiscard]] auto contextOfThread() const {
    g_main_context_push_thread_default(context_.get());
    return library::AtEnd(
        [context = context_] { g_main_context_pop_thread_default(context.get()); });
  }
  /// A call runs, as long as what is given lives. Raises where none may be made now.
  [[nodiscard]] auto call() {
    beginCall();
    return library::AtEnd([this] { endCall(); });
  }

  // What Session does with the loop.

  /// Raise what a callback has raised.
  int pollDescriptor();
  /// Runs what is ready. True when something was told.
  bool dispatch();
  bool wait(std::chrono::milliseconds most);
  /// Learns what has come and gone meanwhile, where no loop does.
  void catchUp();
  /// Calls a callback of the program from the loop. What it raises comes out of the call that runs
  /// the loop; where that is somebody else's it goes on to who guards it.
  void tell(const std::function<void()>& callback);

 private:
  void beginCall();
  void endCall();
  void watchContext();
  void rethrowRaised();
  void letGoOfAll();
  void letGoOfAllLater();

  std::thread::id thread_ = std::this_thread::get_id();
  bool ownsContext_;
  std::shared_ptr<GMainContext> context_;
  std::unique_ptr<library::Platform> ownPlatform_;
  library::Platform* platform_;
  std::map<std::uint32_t, bool> held_;
  std::map<const void*, std::function<void()>> ends_;
  FileDescriptor poll_;   ///< epoll, of what the context waits for
  FileDescriptor timer_;  ///< among them, when the context has something to do by the clock
  std::vector<int> watched_;
  int running_ = 0;  ///< calls, and callbacks from somebody else's loop
  bool isEnding_ = false;
  bool isOver_ = false;
  bool isInTransfer_ = false;
  bool isDispatching_ = false;
  bool told_ = false;
  std::exception_ptr raised_;
};

namespace library {

/// Sets one of the options, and gives them back. Their data become their own first: options are
/// copied as they are handed on.
template <auto Member, typename Options, typename Data, typename Value>
Options& set(Options& options, std::shared_ptr<Data>& data, Value value) {
  if (data.use_count() > 1) data = std::make_shared<Data>(*data);
  (*data).*Member = std::move(value);
  return options;
}

template <typename Value>
Value valueOf(typename Value::Data data) {
  return Value(std::make_shared<const typename Value::Data>(std::move(data)));
}

/// JSON of what a device told, which may be no text.
inline std::string textOf(const PropertyDictionary& value) {
  return value.dump(-1, ' ', false, PropertyDictionary::error_handler_t::replace);
}

/// Makes a call of the library: as `operation` in its errors, on the right thread, with the
/// session's context, and with what the rooms below raise as the one error.
template <typename Work>
std::invoke_result_t<Work> entered(const std::shared_ptr<SessionState>& state,
                                   const char* operation, const Work& work) {
  // A callback may let go of the session.
  const auto kept = state;  // NOLINT(performance-unnecessary-copy-initialization)
  try {
    const auto call = kept->call();
    const auto context = kept->contextOfThread();
    return work();
  } catch (const Error& error) {
    throw named(error, operation);
  } catch (...) {
    throw errorOfRaised(operation);
  }
}

}  // namespace library
}  // namespace tarvo

#include "platform/diskarbitration/UDisks2Session.h"

#include <climits>
#include <deque>
#include <utility>

#include "platform/diskarbitration/UDisks2Refusal.h"
#include "platform/diskarbitration/VolumeUsers.h"
#include "platform/foundation/MainLoopGuard.h"

namespace tarvo {
namespace {

constexpr const char* kNotMounted = "org.freedesktop.UDisks2.Error.NotMounted";
constexpr const char* kAlreadyMounted = "org.freedesktop.UDisks2.Error.AlreadyMounted";

/// Makes a context the one in which answers to calls arrive, while it lives.
class ThreadDefault {
 public:
  explicit ThreadDefault(GMainContext* context) : context_(context) {
    g_main_context_push_thread_default(context_);
  }
  ~ThreadDefault() { g_main_context_pop_thread_default(context_); }
  ThreadDefault(const ThreadDefault&) = delete;
  ThreadDefault& operator=(const ThreadDefault&) = delete;

 private:
  GMainContext* context_;
};

/// Some versions of the service call a busy volume a mere failure.
bool mayBeBusy(const GError* error) {
  const std::string name = remoteErrorName(error);
  return name == "org.freedesktop.UDisks2.Error.DeviceBusy" ||
         name == "org.freedesktop.UDisks2.Error.Failed";
}

GVariant* noOptions() {
  return g_variant_new("(@a{sv})", g_variant_new("a{sv}", nullptr));
}

}  // namespace

struct UDisks2Session::Unmounting {
  /// One unmount call: UDisks2 takes one mount point a call.
  struct Step {
    std::string path;
    std::string mountPoint;
  };
  std::deque<Step> steps;
  Callback done;
};

/// Owned by its callback, which GLib calls once, cancelled or not.
struct UDisks2Session::Call {
  UDisks2Session* session;
  std::string method;
  Answer answer;

  static void finished(GObject* source, GAsyncResult* result, gpointer self) {
    const std::unique_ptr<Call> call(static_cast<Call*>(self));
    GErrorHolder error;
    const GVariantPtr reply(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    UDisks2Session* session = call->session;
    --session->callsUnderWay_;
    // The session is ending: nobody wants to know any more, of an answer that has come neither.
    if (g_cancellable_is_cancelled(session->cancellable_.get()) != 0) return;
    guardedEntry(session->log_, call->method.c_str(),
                 [&] { call->answer(reply.get(), error.get()); });
  }
};

UDisks2Session::UDisks2Session(GObjectPtr<GDBusConnection> connection, LogSink log,
                               MakeTimeout makeTimeout)
    : connection_(std::move(connection)),
      log_(std::move(log)),
      makeTimeout_(std::move(makeTimeout)) {}

UDisks2Session::~UDisks2Session() {
  // Not where nothing is under way: GLib may not have seen the end of a call that we have seen.
  if (callsUnderWay_ > 0) g_cancellable_cancel(cancellable_.get());
  // Cancelled calls end by themselves, without the bus.
  while (callsUnderWay_ > 0)
    g_main_context_iteration(context_.get(), TRUE);
  // What is still waiting here would keep the context, which has it, for ever.
  while (g_main_context_iteration(context_.get(), FALSE) != 0) {
  }
}

void UDisks2Session::unmount(std::string_view bsdName, bool wholeDisk, Callback done) {
  lookUp(bsdName, done, [this, wholeDisk, done](const Blocks& all, const BlockObject& block) {
    auto work = std::make_shared<Unmounting>();
    work->done = done;
    for (const BlockObject& each : all) {
      if (&each != &block && !(wholeDisk && areOfOneDisk(each, block))) continue;
      for (const std::string& mountPoint : each.mountPoints)
        work->steps.push_back({each.path, mountPoint});
    }
    unmountNext(work);
  });
}

void UDisks2Session::unmountNext(const std::shared_ptr<Unmounting>& work) {
  if (work->steps.empty()) return succeed(work->done);
  const Unmounting::Step step = work->steps.front();
  work->steps.pop_front();
  call(step.path, udisks2::kFilesystem, "Unmount", noOptions(), "()",
       [this, work, step](GVariant*, const GError* error) {
         if (error == nullptr || remoteErrorName(error) == kNotMounted) return unmountNext(work);
         DADissenter dissenter = dissenterFor(error);
         const std::string users = mayBeBusy(error) ? processesUsing({step.mountPoint}) : "";
         if (!users.empty()) dissenter = {status::kIOReturnBusy, "in use by " + users};
         refuse(work->done, dissenter);
       });
}

void UDisks2Session::eject(std::string_view bsdName, Callback done) {
  lookUp(bsdName, done, [this, done](const Blocks&, const BlockObject& block) {
    if (block.drive.empty())
      return refuse(done, {status::kIOReturnUnsupported, "no drive holds this disk"});
    finalCall(block.drive, udisks2::kDrive, "Eject", nullptr, done);
  });
}

void UDisks2Session::mount(std::string_view bsdName, std::string_view location, Callback done) {
  logTo(log_, LogLevel::kDebug,
        "the mount point is for the system to choose, not " + std::string(location));
  lookUp(bsdName, done, [this, done](const Blocks&, const BlockObject& block) {
    if (!block.hasFilesystem)
      return refuse(done, {status::kIOReturnUnsupported, "there is no filesystem on it"});
    finalCall(block.path, udisks2::kFilesystem, "Mount", kAlreadyMounted, done);
  });
}

bool UDisks2Session::run(std::chrono::milliseconds limit) {
  stopped_ = false;
  bool late = false;
  GSource* clock = makeTimeout_(limit);
  const auto strike = +[](gpointer flag) -> gboolean {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(clock, strike, &late, nullptr);
  g_source_attach(clock, context_.get());
  const AttachedSource owner(clock);
  while (!stopped_ && !late)
    g_main_context_iteration(context_.get(), TRUE);
  return stopped_;
}

void UDisks2Session::lookUp(std::string_view bsdName, Callback done, Found found) {
  call(udisks2::kManagerPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", nullptr,
       "(a{oa{sa{sv}}})",
       [this, name = std::string(bsdName), done = std::move(done), found = std::move(found)](
           GVariant* reply, const GError* error) {
         if (error != nullptr) return refuse(done, dissenterFor(error));
         const GVariantPtr objects(g_variant_get_child_value(reply, 0));
         const Blocks blocks = blockObjects(objects.get());
         const BlockObject* block = blockNamed(blocks, name);
         if (block == nullptr)
           return refuse(done, {status::kIOReturnNoDevice, "there is no such disk"});
         found(blocks, *block);
       });
}

void UDisks2Session::finalCall(const std::string& path, const char* interface, const char* method,
                               const char* alreadyDone, Callback done) {
  call(path, interface, method, noOptions(), nullptr,
       [this, alreadyDone, done = std::move(done)](GVariant*, const GError* error) {
         if (error == nullptr || (alreadyDone != nullptr && remoteErrorName(error) == alreadyDone))
           return succeed(done);
         refuse(done, dissenterFor(error));
       });
}

void UDisks2Session::call(const std::string& path, const char* interface, const char* method,
                          GVariant* arguments, const char* replyType, Answer answer) {
  logTo(log_, LogLevel::kDebug, "UDisks2 " + std::string(method) + " " + path);
  if (!connection_) return answerClosed(std::move(answer));
  const ThreadDefault here(context_.get());
  ++callsUnderWay_;
  // The wait in run() is the one limit of an operation, whatever it is made of. A service that does
  // not run is started by the bus.
  g_dbus_connection_call(connection_.get(), udisks2::kService, path.c_str(), interface, method,
                         arguments, replyType ? G_VARIANT_TYPE(replyType) : nullptr,
                         G_DBUS_CALL_FLAGS_NONE, INT_MAX, cancellable_.get(), Call::finished,
                         new Call{this, method, std::move(answer)});
}

void UDisks2Session::answerClosed(Answer answer) {
  struct Closed {
    UDisks2Session* session;
    Answer answer;
  };
  const auto tell = +[](gpointer self) -> gboolean {
    const auto* closed = static_cast<Closed*>(self);
    const GError error{G_IO_ERROR, G_IO_ERROR_CLOSED, nullptr};
    guardedEntry(closed->session->log_, "UDisks2", [&] { closed->answer(nullptr, &error); });
    return G_SOURCE_REMOVE;
  };
  // The context owns it, and is this session's alone.
  GSource* source = g_idle_source_new();
  g_source_set_callback(source, tell, new Closed{this, std::move(answer)},
                        [](gpointer closed) { delete static_cast<Closed*>(closed); });
  g_source_attach(source, context_.get());
  g_source_unref(source);
}

void UDisks2Session::succeed(const Callback& done) {
  logTo(log_, LogLevel::kDebug, "UDisks2: done");
  if (done) done(nullptr);
}

void UDisks2Session::refuse(const Callback& done, const DADissenter& dissenter) {
  logTo(log_, LogLevel::kDebug,
        "UDisks2 refused: " + statusText(dissenter.status) + ", " + dissenter.why);
  if (done) done(&dissenter);
}

}  // namespace tarvo

#include "platform/diskarbitration/UDisks2DiskArbitration.h"

#include <algorithm>
#include <climits>
#include <deque>
#include <optional>
#include <utility>

#include "Utilities/Status.h"
#include "platform/diskarbitration/UDisks2Refusal.h"
#include "platform/foundation/MainLoopGuard.h"
#include "platform/iokit/Registry.h"

namespace tarvo {

UDisks2DiskArbitration::UDisks2DiskArbitration(BusConnection& systemBus, Registry& registry,
                                               const Interrupt* interrupt, LogSink log,
                                               MakeTimeout makeTimeout)
    : systemBus_(systemBus),
      registry_(registry),
      interrupt_(interrupt),
      log_(std::move(log)),
      makeTimeout_(std::move(makeTimeout)) {}

std::unique_ptr<DASession> UDisks2DiskArbitration::createSession() {
  return std::make_unique<UDisks2Session>(retained(systemBus_.connection()), registry_, interrupt_,
                                          log_, makeTimeout_);
}

GSource* UDisks2DiskArbitration::monotonicTimeout(std::chrono::milliseconds limit) {
  return g_timeout_source_new(
      static_cast<guint>(std::clamp<std::chrono::milliseconds::rep>(limit.count(), 0, UINT_MAX)));
}

namespace {

constexpr const char* kNotMounted = "org.freedesktop.UDisks2.Error.NotMounted";
constexpr const char* kAlreadyMounted = "org.freedesktop.UDisks2.Error.AlreadyMounted";

/// Makes a context the one in which answers to calls arrive, while it lives.
class ThreadDefault {
 public:
  // GDBus delivers an answer to the context that was thread default when the call was made. In the
  // default context it would come only after run() has returned, which waits for it.
  explicit ThreadDefault(GMainContext* context) : context_(context) {
    g_main_context_push_thread_default(context_);
  }
  ~ThreadDefault() { g_main_context_pop_thread_default(context_); }
  ThreadDefault(const ThreadDefault&) = delete;
  ThreadDefault& operator=(const ThreadDefault&) = delete;

 private:
  GMainContext* context_;
};

/// Its own answer, and not that of the bus.
bool isOfService(const GError* error) {
  return remoteErrorName(error).starts_with("org.freedesktop.UDisks2.");
}

/// Some versions of the service call a busy volume a mere failure.
bool mayBeBusy(const GError* error) {
  const std::string name = remoteErrorName(error);
  return name == "org.freedesktop.UDisks2.Error.DeviceBusy" ||
         name == "org.freedesktop.UDisks2.Error.Failed";
}

/// The agent acts by itself, and for tarvoctl a password takes longer to type than the wait lasts:
/// what needs one is refused.
GVariant* withoutDialog() {
  return g_variant_new_parsed("({'auth.no_user_interaction': <true>},)");
}

}  // namespace

struct UDisks2Session::Unmounting {
  /// One unmount call: UDisks2 takes one mount point a call.
  struct Step {
    std::string path;
    std::string bsdName;
    std::string mountPoint;
  };
  ServiceHandle usbDevice;
  std::deque<Step> steps;
  Callback done;
  std::optional<DADissenter> dissenter{};

  void refused(const std::string& mountPoint, const GError* error) {
    // Who keeps it busy is looked for now: a moment later he may have ended.
    DADissenter each = dissenterFor(error);
    const std::string users = mayBeBusy(error) ? processesUsing({mountPoint}) : "";
    if (!users.empty()) each = {status::kIOReturnBusy, "in use by " + users};
    refused(mountPoint, std::move(each));
  }
  void refused(const std::string& mountPoint, DADissenter each) {
    each.why = mountPoint + ": " + each.why;
    if (dissenter) {
      dissenter->why += "; " + each.why;
    } else {
      dissenter = std::move(each);
    }
  }
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

UDisks2Session::UDisks2Session(GObjectPtr<GDBusConnection> connection, Registry& registry,
                               const Interrupt* interrupt, LogSink log, MakeTimeout makeTimeout)
    : connection_(std::move(connection)),
      registry_(registry),
      interrupt_(interrupt),
      log_(std::move(log)),
      makeTimeout_(std::move(makeTimeout)) {}

UDisks2Session::~UDisks2Session() {
  if (arrivals_ != 0) g_dbus_connection_signal_unsubscribe(connection_.get(), arrivals_);
  // Not where nothing is under way: GLib may not have seen the end of a call that we have seen.
  if (callsUnderWay_ > 0) g_cancellable_cancel(cancellable_.get());
  // Cancelled calls end by themselves, without the bus.
  while (callsUnderWay_ > 0)
    g_main_context_iteration(context_.get(), TRUE);
  // What is still waiting here would keep the context, which has it, for ever.
  while (g_main_context_iteration(context_.get(), FALSE) != 0) {
  }
}

void UDisks2Session::unmount(const DADisk& disk, Callback done) {
  const auto found = [this, disk, done](const Blocks& all, const BlockObject&) {
    // Shared with the calls under way, which may outlive the operation.
    auto work = std::make_shared<Unmounting>(Unmounting{disk.usbDevice, {}, done});
    for (const BlockObject& each : all) {
      if (each.mountPoints.empty()) continue;
      // Every disk of the USB device: a dock with two slots is unplugged as one.
      if (shareOfDisk(registry_, each.bsdName(), disk.usbDevice) == DiskShare::kNothing) continue;
      for (const std::string& mountPoint : each.mountPoints) {
        if (auto objected = objectionAt(mountPoint, all, disk.usbDevice)) {
          work->refused(mountPoint, std::move(*objected));
        } else {
          work->steps.push_back({each.path, each.bsdName(), mountPoint});
        }
      }
    }
    unmountNext(work);
  };
  lookUp({disk, done, found});
}

std::optional<DADissenter> UDisks2Session::objection(const std::string& bsdName,
                                                     ServiceHandle usbDevice) {
  if (shareOfDisk(registry_, bsdName, usbDevice) == DiskShare::kAll) return std::nullopt;
  return DADissenter{status::kDAReturnExclusiveAccess,
                     bsdName + " does not belong to this device alone"};
}

// What lies over another at a mount point is what an unmounting takes, and a filesystem may spread
// over several disks.
std::optional<DADissenter> UDisks2Session::objectionAt(const std::string& mountPoint,
                                                       const Blocks& all, ServiceHandle usbDevice) {
  std::optional<DADissenter> objected;
  for (const BlockObject& each : all)
    if (!objected && std::ranges::find(each.mountPoints, mountPoint) != each.mountPoints.end())
      objected = objection(each.bsdName(), usbDevice);
  return objected;
}

void UDisks2Session::unmountNext(const std::shared_ptr<Unmounting>& work) {
  // One after the other, and on after a failure: who pulls the unit out afterwards loses what is
  // still mounted, so as much as possible is let go.
  while (!work->steps.empty()) {
    const Unmounting::Step step = work->steps.front();
    work->steps.pop_front();
    // Another disk may have come to the name while the one before it was flushed.
    if (auto objected = objection(step.bsdName, work->usbDevice)) {
      work->refused(step.mountPoint, std::move(*objected));
      continue;
    }
    return call(step.path, udisks2::kFilesystem, "Unmount", withoutDialog(), "()",
                [this, work, step](GVariant*, const GError* error) {
                  // Somebody else was faster, which is as good.
                  const bool isDone = error == nullptr || remoteErrorName(error) == kNotMounted;
                  if (!isDone) work->refused(step.mountPoint, error);
                  // Of a service that has gone the others have nothing to expect.
                  if (!isDone && !isOfService(error)) work->steps.clear();
                  unmountNext(work);
                });
  }
  work->dissenter ? refuse(work->done, *work->dissenter) : succeed(work->done);
}

void UDisks2Session::eject(const DADisk& disk, Callback done) {
  const auto found = [this, disk, done](const Blocks& all, const BlockObject& block) {
    if (block.drive.empty())
      return refuse(done, {status::kDAReturnUnsupported, "no drive holds this disk"});
    // The service takes devices of one serial number or WWN for one drive, and ejects any of them.
    for (const BlockObject& each : all) {
      if (each.drive != block.drive) continue;
      if (const auto objected = objection(each.bsdName(), disk.usbDevice))
        return refuse(done, {objected->status,
                             "the disk service (UDisks2) takes several devices "
                             "for this drive: " +
                                 objected->why});
    }
    finalCall(block.drive, udisks2::kDrive, "Eject", nullptr, done);
  };
  lookUp({disk, done, found});
}

// UDisks2 chooses the mount point by the volume's label; a caller's wish cannot be heard.
void UDisks2Session::mount(const DADisk& disk, std::string_view location, Callback done) {
  logTo(log_, LogLevel::kDebug,
        "the mount point is for the system to choose, not " + std::string(location));
  const auto found = [this, done](const Blocks&, const BlockObject& block) {
    if (!block.hasFilesystem)
      return refuse(done, {status::kDAReturnUnsupported, "there is no filesystem on it"});
    finalCall(block.path, udisks2::kFilesystem, "Mount", kAlreadyMounted, done);
  };
  lookUp({disk, done, found});
}

bool UDisks2Session::run(std::chrono::milliseconds& left) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  stopped_ = false;
  // One clock for all calls of an operation, in the context that is iterated here.
  bool late = false;
  const AttachedSource clock = attachedClock(left, late);
  const AttachedSource signals = attachedSignals();
  // The private context alone: nothing of the main loop fires meanwhile, so no device is announced
  // in the middle of a disk operation.
  while (!stopped_ && !late && !isInterrupted())
    g_main_context_iteration(context_.get(), TRUE);
  const auto taken = std::chrono::floor<std::chrono::milliseconds>(Clock::now() - begin);
  left = late ? std::chrono::milliseconds(0) : left - std::min(left, taken);
  return stopped_;
}

AttachedSource UDisks2Session::attachedClock(std::chrono::milliseconds limit, bool& late) {
  GSource* clock = makeTimeout_(limit);
  const auto strike = +[](gpointer flag) -> gboolean {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(clock, strike, &late, nullptr);
  g_source_attach(clock, context_.get());
  return AttachedSource(clock);
}

// It need do nothing: that it ends a turn is what it is for.
AttachedSource UDisks2Session::attachedSignals() {
  if (!interrupt_) return {};
  GSource* signals = interrupt_->makeSource();
  const auto woken = +[](gint, GIOCondition, gpointer) -> gboolean { return G_SOURCE_REMOVE; };
  g_source_set_callback(signals, G_SOURCE_FUNC(woken), nullptr, nullptr);
  g_source_attach(signals, context_.get());
  return AttachedSource(signals);
}

std::string UDisks2Session::awaited() const {
  return awaited_.empty() ? "the disk service (UDisks2) did not answer"
                          : "the disk service (UDisks2) did not come to know the disk";
}

// All objects at once and not one by path: the path of a disk is UDisks2's own business.
void UDisks2Session::lookUp(Search search) {
  call(udisks2::kManagerPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", nullptr,
       "(a{oa{sa{sv}}})", [this, search = std::move(search)](GVariant* reply, const GError* error) {
         if (error != nullptr) return refuse(search.done, dissenterFor(error));
         const GVariantPtr objects(g_variant_get_child_value(reply, 0));
         disksCame(search, blockObjects(objects.get()));
       });
}

void UDisks2Session::disksCame(Search search, const Blocks& blocks) {
  const auto& [bsdName, usbDevice] = search.disk;
  if (registry_.servicesMatchingBSDName(bsdName).empty())
    return refuse(search.done, {status::kDAReturnNotFound, "the system has no disk of that name"});
  if (const auto objected = objection(bsdName, usbDevice)) return refuse(search.done, *objected);
  if (const BlockObject* block = blockNamed(blocks, bsdName)) return search.found(blocks, *block);
  // The kernel has it and UDisks2 not yet: both hear of a disk by udev, each in its own time.
  awaited_.push_back(std::move(search));
  if (arrivals_ != 0) return;
  hearOfDisks();
  // It may have come just before.
  askForAwaited();
}

void UDisks2Session::hearOfDisks() {
  const ThreadDefault here(context_.get());
  const auto came = +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                        GVariant*, gpointer self) {
    auto* session = static_cast<UDisks2Session*>(self);
    guardedEntry(session->log_, "InterfacesAdded", [&] { session->askForAwaited(); });
  };
  // Subscribed only where something is awaited: an idle session hears nothing.
  arrivals_ = g_dbus_connection_signal_subscribe(
      connection_.get(), udisks2::kService, "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
      udisks2::kManagerPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, came, this, nullptr);
}

void UDisks2Session::askForAwaited() {
  for (Search& search : std::exchange(awaited_, {}))
    lookUp(std::move(search));
}

void UDisks2Session::finalCall(const std::string& path, const char* interface, const char* method,
                               const char* alreadyDone, Callback done) {
  call(path, interface, method, withoutDialog(), nullptr,
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
  // From the context, like every answer: callers do not expect to be called back out of their own
  // call.
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

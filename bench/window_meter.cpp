// Preloaded into a program with a window, this tells what a person would see of it, and when, in
// lines of the file that TARVO_METER names: seconds of the monotonic clock, what, and how much.
//
//   frame           the first one is painted
//   thumbnail       the first frame with a picture in a GtkPicture is painted
//   pictures 100    so many pictures were shown, told for each hundred
//   button Import   a button is called this now
//   turn 12.5       a turn of the main loop took so many ms of its thread's processor time
//
// The program itself has no hooks for it. What it starts is not measured.
#include <dlfcn.h>
#include <fcntl.h>
#include <glib-object.h>
#include <gtk/gtk.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <utility>

namespace {

constexpr double kToldTurn = 4;  // ms; most turns are none to tell of
constexpr unsigned kToldPictures = 100;

double secondsOf(clockid_t clock) {
  constexpr double kNanosecond = 1e-9;
  timespec now{};
  ::clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * kNanosecond;
}

/// On the thread of the default main context.
class Meter {
 public:
  explicit Meter(const char* file)
      : file_(::open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}

  void beginTurn() { began_ = secondsOf(CLOCK_THREAD_CPUTIME_ID); }

  void endTurn() {
    constexpr double kMilliseconds = 1e3;
    const double cost = (secondsOf(CLOCK_THREAD_CPUTIME_ID) - began_) * kMilliseconds;
    if (began_ > 0 && cost >= kToldTurn) tell("turn", std::to_string(cost));
    if (!isWatching_) watchFrames();
  }

  void painted() {
    if (!std::exchange(hasPainted_, true)) tell("frame");
    if (pictures_ > 0 && !std::exchange(hasPaintedPicture_, true)) tell("thumbnail");
  }

  void showsPicture() {
    if (++pictures_ % kToldPictures == 0) tell("pictures", std::to_string(pictures_));
  }

  void tell(const char* what, const std::string& much = "") const {
    ::dprintf(file_, "%.6f %s %s\n", secondsOf(CLOCK_MONOTONIC), what, much.c_str());
  }

 private:
  /// The toolkit may be loaded late, and makes its classes as it needs them.
  void watchFrames() {
    const GType type = g_type_from_name("GdkFrameClock");
    if (type == 0 || g_type_class_peek(type) == nullptr) return;
    isWatching_ = true;
    const auto hook =
        +[](GSignalInvocationHint*, guint, const GValue*, gpointer meter) -> gboolean {
      static_cast<Meter*>(meter)->painted();
      return TRUE;
    };
    g_signal_add_emission_hook(g_signal_lookup("after-paint", type), 0, hook, this, nullptr);
  }

  int file_;
  double began_ = 0;
  unsigned pictures_ = 0;
  bool isWatching_ = false, hasPainted_ = false, hasPaintedPicture_ = false;
};

/// The file is named in the beginning of the process, and not for what it starts.
Meter& meter() {
  static Meter the(std::getenv("TARVO_METER"));
  return the;
}

gint pollBetweenTurns(GPollFD* descriptors, guint count, gint timeout) {
  meter().endTurn();
  const gint ready = g_poll(descriptors, count, timeout);
  meter().beginTurn();
  return ready;
}

/// Takes this module out of the list of those that are preloaded.
void leaveOthersAlone() {
  Dl_info own{};
  const char* const list = std::getenv("LD_PRELOAD");
  if (list == nullptr || ::dladdr(reinterpret_cast<void*>(&leaveOthersAlone), &own) == 0) return;
  std::istringstream names(list);
  std::string others, name;
  while (std::getline(names, name, ':'))
    if (name != own.dli_fname) others += (others.empty() ? "" : ":") + name;
  others.empty() ? ::unsetenv("LD_PRELOAD") : ::setenv("LD_PRELOAD", others.c_str(), 1);
}

[[gnu::constructor]] void begin() {
  leaveOthersAlone();
  if (std::getenv("TARVO_METER") == nullptr) return;
  meter();
  ::unsetenv("TARVO_METER");
  g_main_context_set_poll_func(g_main_context_default(), pollBetweenTurns);
}

/// What the toolkit itself has under this name: it may be loaded for a module alone.
template <typename Function>
Function* toolkits(Function& /*ours*/, const char* name) {
  void* const toolkit = ::dlopen("libgtk-4.so.1", RTLD_LAZY | RTLD_NOLOAD);
  return reinterpret_cast<Function*>(::dlsym(toolkit, name));
}

}  // namespace

extern "C" {

// In place of the toolkit's functions of these names.
[[gnu::visibility("default")]] void gtk_picture_set_paintable(GtkPicture* self,
                                                              GdkPaintable* paintable) {
  static auto* const next = toolkits(gtk_picture_set_paintable, "gtk_picture_set_paintable");
  if (paintable != nullptr) meter().showsPicture();
  next(self, paintable);
}

[[gnu::visibility("default")]] void gtk_button_set_label(GtkButton* self, const char* label) {
  static auto* const next = toolkits(gtk_button_set_label, "gtk_button_set_label");
  meter().tell("button", label == nullptr ? "" : label);
  next(self, label);
}

}  // extern "C"

// ViewerApp: shows the busy page and closes by itself once the wireless utility has finished.
// Without a display the page goes to standard output.
#include <gtkmm/application.h>

#include <clocale>
#include <csignal>
#include <exception>
#include <iostream>
#include <locale>
#include <memory>
#include <optional>
#include <span>

#include "platform/desktop/BusConnection.h"
#include "platform/desktop/DBusNotificationCenter.h"
#include "platform/foundation/GlibRunLoop.h"
#include "platform/foundation/JournalLog.h"
#include "viewer/Arguments.h"
#include "viewer/BusyWatch.h"
#include "viewer/Page.h"
#include "viewer/window/PageWindow.h"

namespace tarvo::viewer {
namespace {

constexpr const char* kApplication = "com.tarvo.Viewer";
constexpr const char* kUsage =
    "usage: ViewerApp PAGE [-h WIDTH] [-v HEIGHT] | --help | --version\n";

/// What a window needs beside it for as long as it is open.
struct Shown {
  explicit Shown(const LogSink& log) : loop(log), bus(loop, log), notifications(bus, log) {}
  GlibRunLoop loop;
  SessionBus bus;
  DBusNotificationCenter notifications;
  std::unique_ptr<PageWindow> window;
  std::optional<BusyWatch> watch;
};

int showInWindow(const Page& page, const Arguments& arguments) {
  // A second start brings the first window to the front.
  const auto application = Gtk::Application::create(kApplication);
  // The toolkit has set the user's numbers for every stream; nothing here wants them.
  std::locale::global(std::locale::classic());
  std::setlocale(LC_ALL, "");
  std::setlocale(LC_NUMERIC, "C");
  JournalLog log("tarvo-viewer");
  Shown shown(log.sink());
  application->signal_activate().connect([&] {
    if (!shown.window) {
      shown.window = std::make_unique<PageWindow>(page, arguments.width, arguments.height);
      application->add_window(*shown.window);
      shown.watch.emplace(shown.bus, shown.notifications, [&] { shown.window->close(); });
      shown.bus.start();
    }
    shown.window->present();
  });
  return application->run();
}

int run(std::span<const char* const> words) {
  // Its standard error takes no writes when the agent has started it.
  std::signal(SIGPIPE, SIG_IGN);
  const auto arguments = parsedArguments(words);
  if (!arguments || arguments->wantsHelp) {
    (arguments ? std::cout : std::cerr) << kUsage;
    return arguments ? 0 : 2;
  }
  if (arguments->wantsVersion) {
    std::cout << "ViewerApp " << TARVO_VERSION << "\n";
    return 0;
  }
  const Page page = loadPage(arguments->page, preferredLanguages());
  // Asked before anything of the toolkit's C++ side, which ends the process without a display.
  if (gtk_init_check() == 0) {
    std::cout << asText(page);
    return page.isShown ? 0 : 1;
  }
  return showInWindow(page, *arguments);
}

}  // namespace
}  // namespace tarvo::viewer

int main(int argc, char** argv) {
  try {
    return tarvo::viewer::run({argv + 1, argc > 0 ? static_cast<std::size_t>(argc - 1) : 0});
  } catch (const std::exception& exception) {
    std::cerr << "ViewerApp: " << exception.what() << "\n";
    return 1;
  }
}

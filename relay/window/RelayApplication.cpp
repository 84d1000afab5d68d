#include "relay/window/RelayApplication.h"

#include <giomm/applicationcommandline.h>
#include <glibmm/main.h>

#include <clocale>
#include <locale>
#include <string>
#include <utility>
#include <vector>

namespace tarvo::relay {

RelayApplication::RelayApplication()
    : Gtk::Application(kIdentifier, Gio::Application::Flags::HANDLES_COMMAND_LINE),
      texts_(languageOfSession()) {
  // The toolkit has set C++'s locale, in which numbers of JSON and of file names get separators.
  std::locale::global(std::locale::classic());
  std::setlocale(LC_ALL, "");
  std::setlocale(LC_NUMERIC, "C");
}

Glib::RefPtr<RelayApplication> RelayApplication::create() {
  return Glib::make_refptr_for_instance<RelayApplication>(new RelayApplication());
}

int RelayApplication::on_command_line(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) {
  int count = 0;
  char** const words = line->get_arguments(count);
  const auto read = readCommandLine({words + (count > 0 ? 1 : 0), words + count});
  g_strfreev(words);
  // main() has refused what makes no sense.
  if (!read.mistake) show(read.arrival);
  return 0;
}

void RelayApplication::show(const Arrival& arrival) {
  if (window_ && window_->isClosing()) {
    next_ = arrival;
    return;
  }
  if (!window_) {
    window_ = std::make_unique<RelayWindow>(texts_, [this] { closed(); });
    add_window(*window_);
    hold();
  }
  window_->arrived(arrival);
  window_->present();
}

void RelayApplication::closed() {
  // From within the window's own call.
  Glib::signal_idle().connect_once([this] {
    window_.reset();
    if (next_) show(*std::exchange(next_, std::nullopt));
    release();
  });
}

}  // namespace tarvo::relay

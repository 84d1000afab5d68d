// The least that a program with a window does: the measure for the start of the Relay's.
#include <gtkmm/application.h>
#include <gtkmm/applicationwindow.h>

namespace {

class BareWindow : public Gtk::ApplicationWindow {
 public:
  BareWindow() { set_default_size(940, 700); }
};

}  // namespace

int main(int argc, char** argv) {
  const auto application = Gtk::Application::create("com.tarvo.BareWindow");
  return application->make_window_and_run<BareWindow>(argc, argv);
}

// One window a person: a second start brings it to the front, and hands it its device.
#pragma once

#include <gtkmm/application.h>

#include <memory>
#include <optional>

#include "relay/Arrival.h"
#include "relay/Texts.h"
#include "relay/window/RelayWindow.h"

namespace tarvo::relay {

class RelayApplication : public Gtk::Application {
 public:
  static constexpr const char* kIdentifier = "com.tarvo.Relay";

  static Glib::RefPtr<RelayApplication> create();

 private:
  RelayApplication();

  int on_command_line(const Glib::RefPtr<Gio::ApplicationCommandLine>& line) override;
  void on_activate() override { show({}); }
  void show(const Arrival& arrival);
  void closed();

  Texts texts_;
  std::unique_ptr<RelayWindow> window_;
  std::optional<Arrival> next_;  ///< came while the window was closing
};

}  // namespace tarvo::relay

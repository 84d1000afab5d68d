// The window of the Relay: the device, its pictures, one main button.
#pragma once

#include <gtkmm/applicationwindow.h>
#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/headerbar.h>
#include <gtkmm/label.h>
#include <gtkmm/messagedialog.h>
#include <gtkmm/progressbar.h>
#include <gtkmm/spinner.h>

#include <functional>
#include <memory>
#include <vector>

#include "relay/AgentDevices.h"
#include "relay/Relay.h"
#include "relay/Texts.h"
#include "relay/View.h"
#include "relay/window/PictureGrid.h"

namespace tarvo::relay {

class RelayWindow : public Gtk::ApplicationWindow, private SessionObserver {
 public:
  /// `closed` is called once the window is closed and every import has ended.
  RelayWindow(const Texts& texts, std::function<void()> closed);
  ~RelayWindow() override;

  /// A device for which the Relay was started.
  void arrived(const Arrival& arrival);
  bool isClosing() const { return isClosing_; }

 private:
  void standingChanged() override;
  void rowsAdded(std::size_t first) override;
  void rowChanged(std::size_t row) override { grid_.updateRow(row); }
  void rowsCleared() override;
  void thumbnailCame(std::size_t row) override { grid_.updateThumbnail(row); }

  void lay();
  void layHeader();
  void layWords();
  void layFoot();
  void addActions();
  void listenToKeys();
  bool keyPressed(guint key, Gdk::ModifierType state);
  bool onCloseRequest();

  /// Shows what the session is.
  void update();
  /// Of the button that shows another device.
  Glib::ustring offer() const;
  void act();
  void toggle(std::size_t row);
  void askToDelete();
  void openFolder();

  const Texts& texts_;
  std::function<void()> closed_;
  bool isClosing_ = false;
  bool isUpdating_ = false;
  View view_;

  Gtk::HeaderBar header_;
  Gtk::Box titles_{Gtk::Orientation::VERTICAL};
  Gtk::Label title_, facts_;
  Gtk::Box content_{Gtk::Orientation::VERTICAL};
  Gtk::Box words_{Gtk::Orientation::VERTICAL, 6};
  Gtk::Box headlineRow_{Gtk::Orientation::HORIZONTAL, 8};
  Gtk::Spinner spinner_;
  Gtk::Label headline_, details_, help_;
  Gtk::Button other_;
  PictureGrid grid_;
  Gtk::ProgressBar progress_;
  Gtk::Label progressText_;
  Gtk::Box foot_{Gtk::Orientation::HORIZONTAL, 12};
  Gtk::CheckButton orders_;
  Gtk::Button delete_, main_;
  std::unique_ptr<Gtk::MessageDialog> question_;

  // These call the window, and go first.
  Relay relay_;
  std::unique_ptr<AgentDevices> agent_;
};

}  // namespace tarvo::relay

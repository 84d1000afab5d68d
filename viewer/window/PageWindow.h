// The window of ViewerApp: one page, as large as was asked for, with a way to scroll where it is
// longer.
#pragma once

#include <gtkmm/applicationwindow.h>
#include <gtkmm/box.h>
#include <gtkmm/scrolledwindow.h>

#include "viewer/Page.h"

namespace tarvo::viewer {

/// Main thread only. Escape closes it.
class PageWindow : public Gtk::ApplicationWindow {
 public:
  /// `width` and `height` in logical pixels; a page that needs more lines makes the window taller,
  /// up to three times `height`.
  PageWindow(const Page& page, int width, int height);

 private:
  void show(const Page& page, const PageBlock& block);
  /// What the whole page needs.
  int heightAt(int width) const;
  void closeOnEscape();

  Gtk::ScrolledWindow scrolled_;
  Gtk::Box blocks_{Gtk::Orientation::VERTICAL, 10};
};

}  // namespace tarvo::viewer

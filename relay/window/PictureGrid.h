// The pictures of the device. It shows what the model has, asks for the small pictures of what is
// looked at, and tells which picture a person means.
#pragma once

#include <giomm/liststore.h>
#include <glibmm/object.h>
#include <gtkmm/gridview.h>
#include <gtkmm/listitem.h>
#include <gtkmm/scrolledwindow.h>

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "relay/ImportSession.h"
#include "relay/Texts.h"
#include "relay/window/PictureCell.h"

namespace tarvo::relay {

/// Only the cells around what is seen exist: a list of any length costs no more than they do.
class PictureGrid : public Gtk::ScrolledWindow {
 public:
  explicit PictureGrid(const Texts& texts);
  ~PictureGrid() override;

  /// Whose objects are shown; null for none.
  void setSession(ImportSession* session);
  /// The session has rows from here on that are not shown yet.
  void addRows(std::size_t first);
  void clearRows();
  void updateRow(std::size_t row);
  void updateThumbnail(std::size_t row);
  /// The row that has the keyboard's focus.
  std::optional<std::size_t> focusedRow();
  sigc::signal<void(std::size_t row)>& signalToggled() { return toggled_; }

 private:
  class Item;

  void bind(const Glib::RefPtr<Gtk::ListItem>& item);
  void unbind(const Glib::RefPtr<Gtk::ListItem>& item);
  PictureCell* cellOf(std::size_t row);
  /// Looks soon: many cells change together.
  void lookSoon();
  bool look();
  /// How far a cell is from what is seen, in pixels; 0 within.
  double distanceOf(PictureCell& cell);

  const Texts& texts_;
  ImportSession* session_ = nullptr;
  Glib::RefPtr<Gio::ListStore<Item>> items_;
  Gtk::GridView grid_;
  std::unordered_map<std::size_t, PictureCell*> bound_;  ///< by row
  sigc::connection looking_;
  sigc::signal<void(std::size_t)> toggled_;
};

}  // namespace tarvo::relay

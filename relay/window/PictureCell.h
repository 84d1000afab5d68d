// One picture in the grid: small picture, name, whether it is chosen, and what became of it.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/label.h>
#include <gtkmm/overlay.h>
#include <gtkmm/picture.h>

#include <cstddef>
#include <optional>

#include "relay/ImportModel.h"
#include "relay/Texts.h"
#include "relay/Thumbnails.h"

namespace tarvo::relay {

/// A label for screen readers on any widget.
void setAccessibleLabel(Gtk::Widget& widget, const std::string& label);

class PictureCell : public Gtk::Box {
 public:
  PictureCell();

  /// The row that is shown; none while the cell waits to be used again.
  std::optional<std::size_t> row() const { return row_; }
  bool hasThumbnail() const { return hasThumbnail_; }
  void show(std::size_t row, const Picture& picture, const Texts& texts);
  /// Null where it has not come yet.
  void showThumbnail(const Thumbnail* thumbnail);
  void clear();

 private:
  std::optional<std::size_t> row_;
  bool hasThumbnail_ = false;
  Gtk::Overlay frame_;
  Gtk::Picture picture_;
  Gtk::Label check_;
  Gtk::Label mark_;
  Gtk::Label name_;
};

}  // namespace tarvo::relay

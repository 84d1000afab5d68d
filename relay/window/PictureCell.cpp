#include "relay/window/PictureCell.h"

#include <gdkmm/memorytexture.h>
#include <gtk/gtk.h>

#include <string>

#include "relay/View.h"

namespace tarvo::relay {

void setAccessibleLabel(Gtk::Widget& widget, const std::string& label) {
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget.gobj()), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 label.c_str(), -1);
}

PictureCell::PictureCell() : Gtk::Box(Gtk::Orientation::VERTICAL, 4) {
  set_halign(Gtk::Align::CENTER);
  picture_.set_size_request(Thumbnails::kWidth, Thumbnails::kHeight);
  picture_.set_can_shrink(false);
  picture_.set_halign(Gtk::Align::CENTER);
  picture_.set_valign(Gtk::Align::CENTER);
  frame_.set_child(picture_);
  frame_.add_css_class("relay-frame");
  frame_.set_overflow(Gtk::Overflow::HIDDEN);
  check_.add_css_class("relay-check");
  check_.set_halign(Gtk::Align::END);
  check_.set_valign(Gtk::Align::START);
  mark_.add_css_class("relay-mark");
  mark_.set_halign(Gtk::Align::START);
  mark_.set_valign(Gtk::Align::END);
  frame_.add_overlay(check_);
  frame_.add_overlay(mark_);
  name_.set_ellipsize(Pango::EllipsizeMode::MIDDLE);
  name_.set_max_width_chars(1);
  append(frame_);
  append(name_);
}

void PictureCell::show(std::size_t row, const Picture& picture, const Texts& texts) {
  row_ = row;
  name_.set_text(picture.name);
  picture_.set_alternative_text(picture.name);
  check_.set_text(picture.isChosen ? "✓" : "");
  check_.set_visible(picture.isNew);
  const std::string mark = markOf(picture, texts);
  mark_.set_text(mark);
  mark_.set_visible(!mark.empty());
  const bool isBad =
      picture.state == Picture::State::kFailed || picture.state == Picture::State::kNoRoom;
  isBad ? mark_.add_css_class("relay-bad") : mark_.remove_css_class("relay-bad");
  picture.isChosen ? check_.add_css_class("relay-chosen") : check_.remove_css_class("relay-chosen");
  // What has nothing to do any more steps back.
  set_opacity(picture.isNew || picture.state != Picture::State::kWaiting ? 1.0 : 0.6);
  auto* const item = get_parent();
  if (item == nullptr) return;
  setAccessibleLabel(*item, pictureInWords(picture, texts));
  gtk_accessible_update_state(
      GTK_ACCESSIBLE(item->gobj()), GTK_ACCESSIBLE_STATE_CHECKED,
      picture.isChosen ? GTK_ACCESSIBLE_TRISTATE_TRUE : GTK_ACCESSIBLE_TRISTATE_FALSE, -1);
}

void PictureCell::showThumbnail(const Thumbnail* thumbnail) {
  hasThumbnail_ = thumbnail != nullptr;
  if (!hasThumbnail_) return picture_.set_paintable({});
  constexpr gsize kSamples = 3;
  picture_.set_paintable(Gdk::MemoryTexture::create(
      thumbnail->width, thumbnail->height, Gdk::MemoryTexture::Format::R8G8B8,
      Glib::wrap(thumbnail->pixels.get(), true), static_cast<gsize>(thumbnail->width) * kSamples));
}

void PictureCell::clear() {
  row_.reset();
  showThumbnail(nullptr);
}

}  // namespace tarvo::relay

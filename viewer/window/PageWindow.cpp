#include "viewer/window/PageWindow.h"

#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/label.h>
#include <gtkmm/picture.h>
#include <gtkmm/separator.h>

#include <algorithm>

#include "viewer/window/PagePicture.h"

namespace tarvo::viewer {

namespace {

using Kind = PageBlock::Kind;

constexpr int kMargin = 18;
constexpr int kItemIndent = 14;
constexpr int kMostGrowth = 3;

Gtk::Widget* labelOf(const PageBlock& block) {
  const bool isHeading = block.kind == Kind::kHeading;
  // What a screen reader takes it for is settled when it is made.
  auto* made = GTK_LABEL(
      g_object_new(GTK_TYPE_LABEL, "accessible-role",
                   isHeading ? GTK_ACCESSIBLE_ROLE_HEADING : GTK_ACCESSIBLE_ROLE_LABEL, nullptr));
  auto* label = Gtk::manage(Glib::wrap(made));
  label->set_markup(block.markup);
  label->set_wrap(block.kind != Kind::kPreformatted);
  label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
  label->set_xalign(0);
  if (isHeading) label->add_css_class(block.level <= 1 ? "title-3" : "heading");
  if (block.kind == Kind::kItem) label->set_margin_start(block.level * kItemIndent);
  return label;
}

}  // namespace

PageWindow::PageWindow(const Page& page, int width, int height) {
  set_title(page.title);
  set_icon_name("com.tarvo.Viewer");
  set_default_size(width, -1);
  blocks_.set_margin(kMargin);
  for (const auto& block : page.blocks)
    show(page, block);
  scrolled_.set_policy(Gtk::PolicyType::AUTOMATIC, Gtk::PolicyType::AUTOMATIC);
  scrolled_.set_min_content_height(height);
  scrolled_.set_max_content_height(kMostGrowth * height);
  scrolled_.set_propagate_natural_height(true);
  scrolled_.set_child(blocks_);
  // So that the arrow keys scroll.
  scrolled_.set_focusable(true);
  set_child(scrolled_);
  closeOnEscape();
}

void PageWindow::show(const Page& page, const PageBlock& block) {
  if (block.kind == Kind::kRule) {
    blocks_.append(*Gtk::make_managed<Gtk::Separator>());
    return;
  }
  const auto texture = block.kind == Kind::kPicture ? loadPicture(page.folder + "/" + block.picture)
                                                    : Glib::RefPtr<Gdk::Texture>();
  if (!texture) {
    if (!block.text.empty()) blocks_.append(*labelOf(block));
    return;
  }
  auto* picture = Gtk::make_managed<Gtk::Picture>(texture);
  picture->set_alternative_text(block.text);
  picture->set_halign(Gtk::Align::START);
  blocks_.append(*picture);
}

void PageWindow::closeOnEscape() {
  const auto keys = Gtk::EventControllerKey::create();
  keys->signal_key_pressed().connect(
      [this](guint key, guint, Gdk::ModifierType) {
        if (key == GDK_KEY_Escape) close();
        return key == GDK_KEY_Escape;
      },
      false);
  add_controller(keys);
}

}  // namespace tarvo::viewer

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
  set_icon_name("com.tarvo.Relay");
  blocks_.set_margin(kMargin);
  for (const auto& block : page.blocks)
    show(page, block);
  scrolled_.set_policy(Gtk::PolicyType::AUTOMATIC, Gtk::PolicyType::AUTOMATIC);
  scrolled_.set_child(blocks_);
  set_default_size(width, std::clamp(heightAt(width), height, kMostGrowth * height));
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
  GObjectPtr<GdkTexture> texture;
  if (block.kind == Kind::kPicture) texture = loadPicture(page.folder + "/" + block.picture);
  if (!texture) {
    if (!block.text.empty()) blocks_.append(*labelOf(block));
    return;
  }
  auto* picture = Gtk::make_managed<Gtk::Picture>(Glib::wrap(texture.release()));
  picture->set_alternative_text(block.text);
  picture->set_halign(Gtk::Align::START);
  blocks_.append(*picture);
}

int PageWindow::heightAt(int width) const {
  int least = 0;
  int natural = 0;
  int baseline = 0;
  blocks_.measure(Gtk::Orientation::VERTICAL, width, least, natural, baseline, baseline);
  return natural;
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

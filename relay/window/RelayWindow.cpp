#include "relay/window/RelayWindow.h"

#include <gdk/gdkkeysyms.h>
#include <giomm/appinfo.h>
#include <giomm/file.h>
#include <gtkmm/cssprovider.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/stylecontext.h>

#include <utility>

#include "Utilities/Printable.h"
#include "relay/ImportProgram.h"

namespace tarvo::relay {
namespace {

constexpr int kWidth = 940;
constexpr int kHeight = 700;
constexpr int kMargin = 18;

// Colours are the theme's, so that light and dark follow the system.
constexpr const char* kStyle = R"(
.relay-headline { font-size: 150%; font-weight: bold; }
.relay-help { padding: 10px; border-radius: 8px; background: alpha(currentColor, 0.07); }
.relay-help.relay-bad { background: alpha(@warning_color, 0.25); }
.relay-grid > child { padding: 6px; }
.relay-grid > child > box { margin: 0; border-spacing: 4px; }
.relay-frame { border-radius: 6px; background: alpha(currentColor, 0.08); }
.relay-check { margin: 6px; min-width: 20px; min-height: 20px; border-radius: 10px;
  background: alpha(black, 0.35); box-shadow: 0 0 0 1.5px white; color: white; }
.relay-check.relay-chosen { background: @theme_selected_bg_color;
  color: @theme_selected_fg_color; }
.relay-mark { margin: 6px; padding: 1px 7px; border-radius: 8px; font-size: 80%;
  background: alpha(black, 0.65); color: white; }
.relay-mark.relay-bad { background: @error_color; }
)";

void wrap(Gtk::Label& label) {
  label.set_wrap();
  label.set_wrap_mode(Pango::WrapMode::WORD_CHAR);
  label.set_xalign(0);
  label.set_halign(Gtk::Align::START);
}

/// Widgets draw themselves anew for a text that they have already.
void setText(Gtk::Label& label, const Glib::ustring& text) {
  if (label.get_text().raw() != text.raw()) label.set_text(text);
  label.set_visible(!text.empty());
}

void setLabel(Gtk::Button& button, const Glib::ustring& text) {
  if (button.get_label().raw() != text.raw()) button.set_label(text);
  button.set_visible(!text.empty());
}

}  // namespace

RelayWindow::RelayWindow(const Texts& texts, std::function<void()> closed)
    : texts_(texts), closed_(std::move(closed)), grid_(texts), relay_(importProgram(), *this) {
  const auto style = Gtk::CssProvider::create();
  style->load_from_data(kStyle);
  Gtk::StyleContext::add_provider_for_display(get_display(), style,
                                              GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  set_title("Tarvo Relay");
  set_default_size(kWidth, kHeight);
  lay();
  addActions();
  listenToKeys();
  signal_close_request().connect(sigc::mem_fun(*this, &RelayWindow::onCloseRequest), false);
  agent_ = std::make_unique<AgentDevices>([this](std::vector<Arrival> devices) {
    relay_.devicesAre(std::move(devices));
    update();
  });
}

RelayWindow::~RelayWindow() {
  grid_.setSession(nullptr);
}

void RelayWindow::arrived(const Arrival& arrival) {
  relay_.arrived(arrival);
  update();
}

void RelayWindow::lay() {
  layHeader();
  layWords();
  layFoot();
  content_.append(words_);
  content_.append(grid_);
  content_.append(progress_);
  content_.append(foot_);
  set_child(content_);
  grid_.signalToggled().connect(sigc::mem_fun(*this, &RelayWindow::toggle));
}

void RelayWindow::layHeader() {
  title_.add_css_class("title");
  facts_.add_css_class("subtitle");
  for (auto* const label : {&title_, &facts_}) {
    label->set_ellipsize(Pango::EllipsizeMode::END);
    titles_.append(*label);
  }
  titles_.set_valign(Gtk::Align::CENTER);
  header_.set_title_widget(titles_);
  set_titlebar(header_);
}

void RelayWindow::layWords() {
  words_.set_margin(kMargin);
  headline_.add_css_class("relay-headline");
  details_.add_css_class("dim-label");
  help_.add_css_class("relay-help");
  for (auto* const label : {&headline_, &details_, &help_})
    wrap(*label);
  help_.set_halign(Gtk::Align::FILL);
  // What went wrong is worth being copied.
  help_.set_selectable();
  help_.set_focusable(false);
  headlineRow_.append(spinner_);
  headlineRow_.append(headline_);
  other_.set_halign(Gtk::Align::START);
  other_.signal_clicked().connect([this] {
    relay_.accept();
    update();
  });
  words_.append(headlineRow_);
  words_.append(details_);
  words_.append(help_);
  words_.append(other_);
}

void RelayWindow::layFoot() {
  setAccessibleLabel(progress_, texts_(Word::kProgressName));
  progress_.set_margin_start(kMargin);
  progress_.set_margin_end(kMargin);
  progress_.set_margin_top(kMargin / 2);
  foot_.set_margin(kMargin);
  progressText_.set_xalign(0);
  progressText_.set_ellipsize(Pango::EllipsizeMode::END);
  progressText_.set_hexpand();
  main_.add_css_class("suggested-action");
  main_.set_size_request(kWidth / 5, -1);
  foot_.append(orders_);
  foot_.append(progressText_);
  foot_.append(delete_);
  foot_.append(main_);
  main_.signal_clicked().connect([this] { act(); });
  delete_.signal_clicked().connect([this] { askToDelete(); });
  orders_.signal_toggled().connect([this] {
    if (!isUpdating_ && relay_.session() != nullptr)
      relay_.session()->setWantsOrders(orders_.get_active());
  });
}

void RelayWindow::addActions() {
  const auto chooseAll = [this](bool isChosen) {
    return [this, isChosen] {
      if (auto* const session = relay_.session()) session->chooseAll(isChosen);
    };
  };
  add_action("main", [this] { act(); });
  add_action("choose-all", chooseAll(true));
  add_action("choose-none", chooseAll(false));
  add_action("ask-to-delete", [this] { askToDelete(); });
}

void RelayWindow::listenToKeys() {
  const auto keys = Gtk::EventControllerKey::create();
  // Before the grid, which would take Enter for a picture.
  keys->set_propagation_phase(Gtk::PropagationPhase::CAPTURE);
  keys->signal_key_pressed().connect(
      [this](guint key, guint, Gdk::ModifierType state) { return keyPressed(key, state); }, false);
  add_controller(keys);
}

bool RelayWindow::keyPressed(guint key, Gdk::ModifierType state) {
  const bool isControl = (state & Gdk::ModifierType::CONTROL_MASK) != Gdk::ModifierType(0);
  auto* const session = relay_.session();
  if (isControl && (key == GDK_KEY_a || key == GDK_KEY_A) && session != nullptr)
    session->chooseAll(key == GDK_KEY_a);
  else if (isControl && (key == GDK_KEY_w || key == GDK_KEY_q))
    close();
  else if (key == GDK_KEY_Escape && view_.action == MainAction::kCancel)
    act();
  else if ((key == GDK_KEY_Return || key == GDK_KEY_KP_Enter) &&
           dynamic_cast<Gtk::Button*>(get_focus()) == nullptr)
    // The same key again must not undo what it has begun.
    view_.action == MainAction::kCancel ? void() : act();
  else if (const auto row = grid_.focusedRow(); key == GDK_KEY_space && row)
    toggle(*row);
  else
    return false;
  return true;
}

bool RelayWindow::onCloseRequest() {
  if (std::exchange(isClosing_, true)) return true;
  // An import that runs is ended in order, which may take a moment.
  set_visible(false);
  question_.reset();
  agent_.reset();
  grid_.setSession(nullptr);
  relay_.close(closed_);
  return true;
}

void RelayWindow::standingChanged() {
  relay_.standingChanged();
  update();
}

void RelayWindow::rowsAdded(std::size_t first) {
  grid_.addRows(first);
}

void RelayWindow::rowsCleared() {
  // It is about the former device.
  question_.reset();
  grid_.setSession(relay_.session());
}

void RelayWindow::update() {
  const auto* const session = relay_.session();
  if (session == nullptr || isClosing_) return;
  view_ = viewOf(*session, texts_);
  isUpdating_ = true;
  setText(title_, view_.title);
  setText(facts_, view_.facts);
  setText(headline_, view_.headline);
  setText(details_, view_.details);
  setText(help_, view_.help);
  view_.isProblem ? help_.add_css_class("relay-bad") : help_.remove_css_class("relay-bad");
  setLabel(other_, offer());
  setLabel(delete_, view_.canDelete ? texts_(Word::kDelete) : "");
  setLabel(main_, view_.actionLabel);
  main_.set_sensitive(view_.isActionPossible);
  orders_.set_visible(!view_.orders.empty());
  if (orders_.get_label().raw() != view_.orders) orders_.set_label(view_.orders);
  orders_.set_active(view_.wantsOrders);
  const bool spins = view_.showsProgress && !view_.fraction;
  spinner_.set_visible(spins);
  spinner_.set_spinning(spins);
  progress_.set_visible(view_.fraction.has_value());
  // It lays itself out anew for any, also for the one that it has.
  if (const double fraction = view_.fraction.value_or(0); fraction != progress_.get_fraction())
    progress_.set_fraction(fraction);
  progressText_.set_text(view_.progress);
  grid_.set_visible(session->model().size() > 0);
  words_.set_vexpand(session->model().size() == 0);
  isUpdating_ = false;
}

Glib::ustring RelayWindow::offer() const {
  const auto& offered = relay_.offered();
  if (!offered) return "";
  return offered->path.empty() ? texts_(Word::kShowOther)
                               : texts_(Word::kShowVolume, {printable(deviceArgument(*offered))});
}

void RelayWindow::act() {
  auto* const session = relay_.session();
  if (session == nullptr || !view_.isActionPossible) return;
  switch (view_.action) {
    case MainAction::kImport:
      // The button means something else now: its key must not go there a second time.
      if (get_focus() == &main_) grid_.child_focus(Gtk::DirectionType::TAB_FORWARD);
      return session->import();
    case MainAction::kCancel:
      return session->cancel();
    case MainAction::kOpenFolder:
      return openFolder();
    case MainAction::kRetry:
      return relay_.retry();
    case MainAction::kNone:
      break;
  }
}

void RelayWindow::toggle(std::size_t row) {
  auto* const session = relay_.session();
  if (session != nullptr && row < session->model().size())
    session->choose(row, !session->model().at(row).isChosen);
}

void RelayWindow::askToDelete() {
  auto* const session = relay_.session();
  if (session == nullptr || !session->mayDelete()) return;
  const auto count = texts_.number(session->model().sums().safe);
  question_ = std::make_unique<Gtk::MessageDialog>(*this, texts_(Word::kDeleteQuestion, {count}),
                                                   false, Gtk::MessageType::QUESTION,
                                                   Gtk::ButtonsType::NONE, true);
  question_->set_secondary_text(texts_(Word::kDeleteDetails));
  question_->add_button(texts_(Word::kCancel), Gtk::ResponseType::CANCEL);
  question_->add_button(texts_(Word::kDeleteYes), Gtk::ResponseType::ACCEPT)
      ->add_css_class("destructive-action");
  question_->set_default_response(Gtk::ResponseType::CANCEL);
  question_->signal_response().connect([this, session](int answer) {
    question_->set_visible(false);
    // Another device may be shown by now.
    if (answer == Gtk::ResponseType::ACCEPT && relay_.session() == session)
      session->deleteImported();
  });
  question_->present();
}

void RelayWindow::openFolder() {
  const auto& folder = relay_.session()->standing().folder;
  try {
    Gio::AppInfo::launch_default_for_uri(Gio::File::create_for_path(folder)->get_uri());
  } catch (const Glib::Error& error) {
    // Where it is helps without a file manager, too.
    setText(help_, folder + "\n" + error.what());
  }
}

}  // namespace tarvo::relay

#include "relay/window/PictureGrid.h"

#include <glibmm/main.h>
#include <gtkmm/adjustment.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/noselection.h>
#include <gtkmm/root.h>
#include <gtkmm/signallistitemfactory.h>

#include <algorithm>
#include <utility>

namespace tarvo::relay {
namespace {

/// A grid keeps 32 rows of cells, whatever is seen of it.
constexpr guint kMostColumns = 6;
constexpr unsigned kLookPause = 30;  // ms

}  // namespace

/// A row; the model has all the rest.
class PictureGrid::Item : public Glib::Object {
 public:
  static Glib::RefPtr<Item> create(std::size_t row) {
    return Glib::make_refptr_for_instance<Item>(new Item(row));
  }
  const std::size_t row;

 private:
  explicit Item(std::size_t place) : row(place) {}
};

PictureGrid::PictureGrid(const Texts& texts)
    : texts_(texts), items_(Gio::ListStore<Item>::create()) {
  const auto factory = Gtk::SignalListItemFactory::create();
  factory->signal_setup().connect([](const Glib::RefPtr<Gtk::ListItem>& item) {
    item->set_child(*Gtk::make_managed<PictureCell>());
  });
  factory->signal_bind().connect(sigc::mem_fun(*this, &PictureGrid::bind));
  factory->signal_unbind().connect(sigc::mem_fun(*this, &PictureGrid::unbind));
  grid_.set_model(Gtk::NoSelection::create(items_));
  grid_.set_factory(factory);
  grid_.set_max_columns(kMostColumns);
  grid_.set_single_click_activate();
  grid_.signal_activate().connect([this](guint position) { toggled_.emit(position); });
  grid_.add_css_class("relay-grid");
  setAccessibleLabel(grid_, texts_(Word::kPictures));
  set_child(grid_);
  set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
  set_expand();
  get_vadjustment()->signal_value_changed().connect([this] { lookSoon(); });
}

PictureGrid::~PictureGrid() {
  looking_.disconnect();
  // The cells that are let go with it are still known here.
  grid_.set_model({});
}

void PictureGrid::setSession(ImportSession* session) {
  session_ = session;
  clearRows();
}

void PictureGrid::addRows(std::size_t first) {
  std::vector<Glib::RefPtr<Item>> added;
  for (std::size_t row = std::max<std::size_t>(first, items_->get_n_items());
       row < session_->model().size(); ++row)
    added.push_back(Item::create(row));
  items_->splice(items_->get_n_items(), 0, added);
}

void PictureGrid::clearRows() {
  items_->remove_all();
}

PictureCell* PictureGrid::cellOf(std::size_t row) {
  const auto found = bound_.find(row);
  return found == bound_.end() ? nullptr : found->second;
}

void PictureGrid::updateRow(std::size_t row) {
  if (auto* const cell = cellOf(row)) cell->show(row, session_->model().at(row), texts_);
}

void PictureGrid::updateThumbnail(std::size_t row) {
  if (auto* const cell = cellOf(row)) cell->showThumbnail(session_->thumbnail(row));
}

void PictureGrid::bind(const Glib::RefPtr<Gtk::ListItem>& item) {
  auto* const cell = dynamic_cast<PictureCell*>(item->get_child());
  const auto place = std::dynamic_pointer_cast<Item>(item->get_item());
  if (cell == nullptr || !place || session_ == nullptr || place->row >= session_->model().size())
    return;
  cell->show(place->row, session_->model().at(place->row), texts_);
  cell->showThumbnail(session_->thumbnail(place->row));
  bound_[place->row] = cell;
  lookSoon();
}

void PictureGrid::unbind(const Glib::RefPtr<Gtk::ListItem>& item) {
  auto* const cell = dynamic_cast<PictureCell*>(item->get_child());
  if (cell == nullptr) return;
  // The row may have another cell already.
  if (const auto row = cell->row(); row && cellOf(*row) == cell) bound_.erase(*row);
  cell->clear();
}

void PictureGrid::lookSoon() {
  if (looking_.connected()) return;
  looking_ = Glib::signal_timeout().connect(sigc::mem_fun(*this, &PictureGrid::look), kLookPause);
}

bool PictureGrid::look() {
  std::vector<std::pair<double, std::size_t>> places;
  for (const auto& [row, cell] : bound_)
    if (!cell->hasThumbnail()) places.emplace_back(distanceOf(*cell), row);
  std::ranges::sort(places);
  std::vector<std::size_t> rows;
  rows.reserve(places.size());
  for (const auto& [distance, row] : places)
    rows.push_back(row);
  if (session_ != nullptr) session_->look(rows);
  return false;
}

double PictureGrid::distanceOf(PictureCell& cell) {
  double x = 0, y = 0;
  if (!cell.translate_coordinates(*this, 0, 0, x, y)) return get_height();
  if (y < 0) return std::max(-y - cell.get_height(), 0.0);
  return std::max(y - get_height(), 0.0);
}

std::optional<std::size_t> PictureGrid::focusedRow() {
  auto* const focus = get_root() != nullptr ? get_root()->get_focus() : nullptr;
  const auto* const cell =
      focus != nullptr ? dynamic_cast<PictureCell*>(focus->get_first_child()) : nullptr;
  return cell != nullptr ? cell->row() : std::nullopt;
}

}  // namespace tarvo::relay

#include "tools/output/Listing.h"

#include <algorithm>
#include <utility>

#include "tools/output/Words.h"

namespace tarvo::tools {

Listing::Listing(Output& output, std::vector<Column> columns, Mode mode)
    : output_(output), columns_(std::move(columns)), mode_(mode) {
  for (auto& column : columns_)
    column.width = std::max(column.width, displayWidth(column.title));
  output_.beginList();
}

void Listing::add(const PropertyDictionary& json, std::vector<std::string> cells) {
  output_.item(json);
  if (output_.isJSON()) return;
  for (auto& cell : cells)
    cell = printable(cell);
  if (mode_ == kStreamed) {
    showTitles();
    show(cells, false);
    return;
  }
  for (std::size_t index = 0; index < cells.size(); ++index)
    columns_[index].width = std::max(columns_[index].width, displayWidth(cells[index]));
  rows_.push_back(std::move(cells));
}

void Listing::addFailure(PropertyDictionary json, const Failure& failure) {
  json["error"] = asJSON(failure);
  output_.item(json);
  output_.objectError(failure);
}

void Listing::finish() {
  if (!rows_.empty()) showTitles();
  for (const auto& row : rows_)
    show(row, false);
  rows_.clear();
  output_.endList();
}

void Listing::showTitles() {
  if (std::exchange(hasTitles_, true)) return;
  std::vector<std::string> titles;
  for (const auto& column : columns_)
    titles.push_back(column.title);
  show(titles, true);
}

void Listing::show(const std::vector<std::string>& cells, bool isTitle) {
  std::string line;
  for (std::size_t index = 0; index < cells.size(); ++index) {
    const Column& column = columns_[index];
    line += padded(cells[index], column.width, column.alignRight);
    if (index + 1 < cells.size()) line += "  ";
  }
  // Blanks at the end of a line are of no use to anybody.
  line.erase(line.find_last_not_of(' ') + 1);
  output_.line(isTitle ? output_.bold(line) : line);
}

void showFields(Output& output, const std::vector<std::pair<std::string, std::string>>& fields) {
  std::size_t width = 0;
  for (const auto& [name, value] : fields)
    width = std::max(width, displayWidth(name) + 1);
  for (const auto& [name, value] : fields)
    output.line(padded(name + ":", width) + "  " + printable(value));
}

}  // namespace tarvo::tools

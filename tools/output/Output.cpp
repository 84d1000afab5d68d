#include "tools/output/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "Utilities/Format.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/output/Progress.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// Colours are for a terminal that knows them, and not for who says no (https://no-color.org).
bool wantsColours(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  if (refused && *refused != '\0') return false;
  const char* terminal = std::getenv("TERM");
  if (!terminal || std::strcmp(terminal, "dumb") == 0) return false;
  return ::isatty(::fileno(stream)) == 1;
}

bool isTerminal(std::FILE* stream) {
  return ::isatty(::fileno(stream)) == 1;
}

/// Two columns.
constexpr std::string_view kBetween = "  ";

/// "Kind" of the column "KIND".
std::string fieldName(std::string title) {
  std::transform(title.begin() + 1, title.end(), title.begin() + 1,
                 [](unsigned char letter) { return std::tolower(letter); });
  return title;
}

}  // namespace

std::string jsonText(const PropertyDictionary& json, int indent) {
  // Names of objects come from devices: what is no text must not end the command.
  const auto text = json.dump(indent, ' ', false, PropertyDictionary::error_handler_t::replace);
  // The writer escapes those of ASCII but for DEL; the only others are its own line ends.
  return replacingControls(text, [](char32_t character) {
    return character == '\n' ? "\n" : formatted("\\u%04x", static_cast<unsigned>(character));
  });
}

Output::Output(std::FILE* out, std::FILE* err, const GlobalOptions& options)
    : out_(out),
      err_(err),
      json_(options.json || options.jsonLines),
      jsonLines_(options.jsonLines),
      quiet_(options.quiet),
      outIsTerminal_(isTerminal(out)),
      outHasColours_(wantsColours(out)),
      errHasColours_(wantsColours(err)),
      errIsTerminal_(isTerminal(err)) {}

std::size_t Output::columns() const {
  return terminalColumns(::fileno(out_));
}

void Output::check(bool succeeded) {
  if (succeeded) return;
  if (errno == EPIPE) throw BrokenPipe();
  throw OutputError(
      {.object = "standard output", .status = status::kIOError, .why = std::strerror(errno)});
}

void Output::write(std::string_view data) {
  status({});
  check(std::fwrite(data.data(), 1, data.size(), out_) == data.size());
  // At once: what comes next may take a device its time, and who reads is not to wait for it.
  if (!gathers_) flush();
}

void Output::flush() {
  check(std::fflush(out_) == 0);
}

void Output::line(const std::string& text) {
  if (!json_) write(printable(text) + "\n");
}

void Output::lines(const std::string& text) {
  std::istringstream all(text);
  for (std::string each; std::getline(all, each);) {
    if (each.ends_with('\r')) each.pop_back();
    line(each);
  }
}

void Output::title(const std::string& text) {
  if (!outHasColours_) return line(text);
  if (!json_) write("\033[1m" + printable(text) + "\033[0m\n");
}

void Output::text(std::string_view data) {
  hasDocument_ = true;
  write(outIsTerminal_ ? printableLines(data) : std::string(data));
}

void Output::document(const PropertyDictionary& json) {
  hasDocument_ = true;
  write(jsonText(json, jsonLines_ ? -1 : 2) + "\n");
}

void Output::result(const PropertyDictionary& json, const std::string& text) {
  if (json_) {
    document(json);
  } else {
    line(text);
  }
}

void Output::beginList() {
  if (!json_ || listIsOpen_) return;
  hasDocument_ = true;
  listIsOpen_ = true;
  listIsEmpty_ = true;
}

void Output::converse(std::string itemEvent) {
  itemEvent_ = std::move(itemEvent);
  json_ = jsonLines_ = true;
}

void Output::event(const std::string& name, PropertyDictionary json) {
  json["event"] = name;
  write(jsonText(json, -1) + "\n");
}

void Output::item(const PropertyDictionary& json) {
  if (!json_) return;
  if (!itemEvent_.empty()) return event(itemEvent_, json);
  const char* before = listIsEmpty_ ? "[\n  " : ",\n  ";
  write(jsonLines_ ? jsonText(json, -1) + "\n" : before + jsonText(json, -1));
  listIsEmpty_ = false;
}

void Output::endList() {
  if (!listIsOpen_) return;
  listIsOpen_ = false;
  if (!jsonLines_) write(listIsEmpty_ ? "[]\n" : "\n]\n");
}

void Output::writeError(const std::string& text) {
  status({});
  // Where both go to one place, in the order in which they were said.
  if (gathers_) std::fflush(out_);
  std::fputs((text + "\n").c_str(), err_);
  std::fflush(err_);
}

void Output::status(const std::string& text) {
  if (!showsStatus() || (text.empty() && !hasStatus_)) return;
  hasStatus_ = !text.empty();
  std::fputs(("\r\033[K" + text).c_str(), err_);
  std::fflush(err_);
}

void Output::message(const std::string& text) {
  if (!itemEvent_.empty()) return event("warning", {{"text", validUTF8(text)}});
  if (!quiet_ && !json_) writeError(printable(text));
}

void Output::error(const Failure& failure) {
  if (!json_) {
    objectError(failure);
    return;
  }
  if (!itemEvent_.empty()) return event("error", asJSON(failure));
  const PropertyDictionary said = {{"error", asJSON(failure)}};
  if (listIsOpen_ && !listIsEmpty_) {
    item(said);
    endList();
  } else if (listIsOpen_) {
    // Nothing of the list has been said, so that the failure is all there is.
    listIsOpen_ = false;
    document(said);
  } else if (!hasDocument_) {
    document(said);
  }
}

void Output::objectError(const Failure& failure) {
  if (json_) return;
  const std::string name = errHasColours_ ? "\033[1;31mtarvoctl:\033[0m " : "tarvoctl: ";
  writeError(name + inWords(failure));
}

Listing::Listing(Output& output, std::vector<Column> columns, Mode mode)
    : output_(output), columns_(std::move(columns)), mode_(mode) {
  for (auto& column : columns_)
    column.width = std::max(column.width, displayWidth(column.title));
  output_.beginList();
}

void Listing::add(const PropertyDictionary& json, std::vector<std::string> cells) {
  isEmpty_ = false;
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
  isEmpty_ = false;
  exitCode_ = kFailed;
  json["error"] = asJSON(failure);
  output_.item(json);
  output_.objectError(failure);
}

int Listing::finish(const std::string& none) {
  if (mode_ == kFitting && isTooWide()) {
    showBlocks();
  } else {
    if (!rows_.empty()) showTitles();
    for (const auto& row : rows_)
      show(row, false);
  }
  rows_.clear();
  output_.endList();
  if (isEmpty_ && !none.empty()) output_.message(none);
  return exitCode_;
}

bool Listing::isTooWide() const {
  std::size_t width = kBetween.size() * (columns_.size() - 1);
  for (const auto& column : columns_)
    width += column.width;
  return width > output_.columns();
}

void Listing::showBlocks() const {
  for (const auto& row : rows_) {
    if (&row != &rows_.front()) output_.line("");
    Fields fields;
    for (std::size_t index = 0; index < row.size(); ++index)
      fields.emplace_back(fieldName(columns_[index].title), row[index]);
    showFields(output_, fields);
  }
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
    if (index + 1 < cells.size()) line += kBetween;
  }
  // Blanks at the end of a line are of no use to anybody.
  line.erase(line.find_last_not_of(' ') + 1);
  if (isTitle) {
    output_.title(line);
  } else {
    output_.line(line);
  }
}

void showFields(Output& output, const PropertyDictionary& json, const Fields& fields) {
  if (output.isJSON()) output.document(json);
  showFields(output, fields);
}

void showFields(Output& output, const Fields& fields) {
  std::size_t width = 0;
  for (const auto& [name, value] : fields)
    width = std::max(width, displayWidth(name) + 1);
  for (const auto& [name, value] : fields)
    output.line(padded(name + ":", width).append("  ").append(value));
}

}  // namespace tarvo::tools

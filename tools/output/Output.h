// What a command says: its result on standard output, for a person or as one JSON document, and
// messages and errors on standard error.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {

struct GlobalOptions {
  bool json = false;       ///< one JSON document on standard output
  bool jsonLines = false;  ///< the same, a line a document, and lists without brackets
  bool quiet = false;      ///< neither messages nor progress; errors are still said
  /// Serial number or USB location of the device; empty: the one that is there.
  std::string device{};
  /// Preferences file in place of the user's own.
  std::optional<std::string> configFile{};
  /// How long a device may be silent in one transaction; none: as the transport has it.
  std::optional<std::chrono::milliseconds> timeout{};
};

/// `json` as text of this `indent`, on one line where that is -1. Every control character in it is
/// escaped, those beyond ASCII too, so that it is safe on a terminal and says the same everywhere.
std::string jsonText(const PropertyDictionary& json, int indent);

/// Whoever read standard output has gone: the command ends without a word.
class BrokenPipe : public std::exception {
 public:
  const char* what() const noexcept override { return "broken pipe"; }
};

/// Main thread only. Whatever a device said, no control character of it reaches a terminal (C0 and
/// C1, DEL, and those that turn the direction of text). What writes to standard output raises
/// BrokenPipe, and an OutputError where it cannot be written for another reason (a full disk).
///
/// With --json all results of a command are one document: either a single document(), or a list,
/// an entry a line. With --json-lines each is a line, and so is each entry of a list.
class Output {
 public:
  /// Both streams are lent.
  Output(std::FILE* out, std::FILE* err, const GlobalOptions& options);

  bool isJSON() const { return json_; }
  bool isQuiet() const { return quiet_; }
  /// Of what shows the results, or as most have.
  std::size_t columns() const;

  // Results.

  /// For a person, printable; nothing with --json.
  void line(const std::string& text);
  /// The same of a text of many.
  void lines(const std::string& text);
  /// The same in bold where that is wanted.
  void title(const std::string& text);
  /// Bytes as they are, whatever the form; to a terminal as printableLines() of them, each piece by
  /// itself.
  void text(std::string_view data);
  /// The one JSON document, in either form.
  void document(const PropertyDictionary& json);
  /// The one result: `json`, or for a person the line.
  void result(const PropertyDictionary& json, const std::string& text);
  /// A list as the one document, element by element as they become known; one that is open goes on.
  /// Nothing without --json.
  void beginList();
  void item(const PropertyDictionary& json);
  void endList();
  /// Hands everything on. Raises as above.
  void flush();
  /// From here on everything is an event, one JSON document a line: event(), entries of lists,
  /// which get the name `itemEvent`, messages ("warning") and errors ("error").
  void converse(std::string itemEvent);
  void event(const std::string& name, PropertyDictionary json);
  /// From here on results are handed on by the bufferful, except to a terminal: for lists that come
  /// as fast as a disk is read. Without it each is handed on at once.
  void gather() { gathers_ = !outIsTerminal_; }

  // Beside the results.

  /// A line for a person on standard error; nothing with --quiet or --json.
  void message(const std::string& text);
  /// Why the command failed: on standard error, or, with --json, as what the document says.
  void error(const Failure& failure);
  /// The failure of one object among many: on standard error; nothing with --json, where the
  /// object's own entry says it.
  void objectError(const Failure& failure);
  /// How far it has come: a line on the terminal, until anything else is written or another line
  /// takes its place; empty: it goes. `text` is printable. Nothing where showsStatus() is false.
  void status(const std::string& text);
  /// Whether a person watches who wants to be told: neither --quiet nor --json.
  bool showsStatus() const { return errIsTerminal_ && !quiet_ && !json_; }

 private:
  void write(std::string_view data);
  void writeError(const std::string& text);
  /// Raises for a stream that has failed.
  void check(bool succeeded);
  std::FILE* out_;
  std::FILE* err_;
  bool json_;
  bool jsonLines_;
  bool quiet_;
  bool outIsTerminal_;
  bool gathers_ = false;
  bool outHasColours_;
  bool errHasColours_;
  bool errIsTerminal_;
  std::string itemEvent_;  ///< empty: no conversation
  bool hasDocument_ = false;
  bool listIsOpen_ = false;
  bool listIsEmpty_ = true;
  bool hasStatus_ = false;
};

// A list as a result: aligned columns for a person, a JSON array for a script.
//
//   Listing listing(output, {{"HANDLE"}, {"SIZE", 9, true}, {"NAME"}});
//   listing.add({{"handle", 1}, {"size", 27}}, {"0x00000001", "27 bytes", "A.TXT"});
//   return listing.finish("There are none.");

struct Column {
  std::string title{};
  std::size_t width = 0;  ///< at least so many; all there are where the list is streamed
  bool alignRight = false;
};

/// Main thread only. Raises as Output.
class Listing {
 public:
  /// kWhole aligns all rows with each other and shows them at the end; kFitting does where they are
  /// no wider than what shows them, and else shows fields below each other; kStreamed shows each
  /// row as it comes.
  enum Mode { kWhole, kFitting, kStreamed };

  /// `output` is lent. Without rows no titles are shown.
  Listing(Output& output, std::vector<Column> columns, Mode mode = kWhole);
  /// As many cells as columns; they may hold what a device gave. Only one of the two is shown:
  /// what Output::isJSON() says that nobody sees may be empty.
  void add(const PropertyDictionary& json, std::vector<std::string> cells);
  /// An object whose row cannot be told, with the keys that are known of it.
  void addFailure(PropertyDictionary json, const Failure& failure);
  /// Shows what has not been shown, and says `none` of a list without entries. To be called at the
  /// end of a list that succeeded, in whole or in part, which the exit status that it gives tells.
  int finish(const std::string& none = {});

 private:
  bool isTooWide() const;
  void show(const std::vector<std::string>& cells, bool isTitle);
  void showTitles();
  void showBlocks() const;

  Output& output_;
  std::vector<Column> columns_;
  Mode mode_;
  bool isEmpty_ = true;
  int exitCode_ = kDone;
  bool hasTitles_ = false;
  std::vector<std::vector<std::string>> rows_;
};

/// Names and values, in the order in which a person reads them.
using Fields = std::vector<std::pair<std::string, std::string>>;
/// "NAME: VALUE" lines with the values below each other; nothing with --json.
void showFields(Output& output, const Fields& fields);
/// The one result: `json`, or for a person the fields.
void showFields(Output& output, const PropertyDictionary& json, const Fields& fields);

}  // namespace tarvo::tools

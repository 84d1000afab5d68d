// A list as a result: aligned columns for a person, a JSON array for a script.
//
//   Listing listing(output, {{"HANDLE"}, {"SIZE", 9, true}, {"NAME"}}, Listing::kWhole);
//   listing.add({{"handle", 1}, {"size", 27}}, {"0x00000001", "27 bytes", "A.TXT"});
//   listing.finish();
#pragma once

#include <string>
#include <vector>

#include "Utilities/PropertyDictionary.h"
#include "tools/output/Output.h"

namespace tarvo::tools {

struct Column {
  std::string title{};
  std::size_t width = 0;  ///< at least so many; all there are where the list is streamed
  bool alignRight = false;
};

/// Main thread only. Raises as Output.
class Listing {
 public:
  /// kWhole aligns all rows with each other and shows them at the end; kStreamed shows each as it
  /// comes.
  enum Mode { kWhole, kStreamed };

  /// `output` is lent. Without rows no titles are shown.
  Listing(Output& output, std::vector<Column> columns, Mode mode);
  /// As many cells as columns; they may hold what a device gave.
  void add(const PropertyDictionary& json, std::vector<std::string> cells);
  /// An object whose row cannot be told, with the keys that are known of it.
  void addFailure(PropertyDictionary json, const Failure& failure);
  /// Shows what has not been shown. To be called at the end of a list that succeeded, in whole or
  /// in part.
  void finish();

 private:
  void show(const std::vector<std::string>& cells, bool isTitle);
  void showTitles();

  Output& output_;
  std::vector<Column> columns_;
  Mode mode_;
  bool hasTitles_ = false;
  std::vector<std::vector<std::string>> rows_;
};

/// "NAME: VALUE" lines with the values below each other; nothing with --json.
void showFields(Output& output, const std::vector<std::pair<std::string, std::string>>& fields);

}  // namespace tarvo::tools

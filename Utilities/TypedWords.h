// Hands the words of a command line to CLI11 as they were typed.
//
//   parseAsTyped(app, argc, argv);
//
// An option that takes several values has "[a,b]" taken apart by CLI11, where a user means a
// pattern, or a file of that name.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace tarvo {

namespace typed_words {

/// Stands before a word that CLI11 would take apart, until the word has its place.
constexpr char kMark = ' ';

inline bool needsMark(const std::string& word) {
  return word.starts_with('[') || word.starts_with(kMark);
}

inline void unmarkOptions(CLI::App& app) {
  const CLI::Validator unmark(
      [](std::string& word) {
        if (word.starts_with(kMark)) word.erase(0, 1);
        return std::string();
      },
      "");
  for (auto* option : app.get_options())
    option->transform(unmark);
  for (auto* command : app.get_subcommands([](CLI::App*) { return true; }))
    unmarkOptions(*command);
}

}  // namespace typed_words

/// Parses, and raises, as CLI::App::parse(). Once for an `app`, when all its options are there.
inline void parseAsTyped(CLI::App& app, int argc, const char* const* argv) {
  std::vector<std::string> words(argv, argv + argc);
  std::vector<const char*> marked;
  for (auto& word : words) {
    if (!marked.empty() && typed_words::needsMark(word)) word.insert(0, 1, typed_words::kMark);
    marked.push_back(word.c_str());
  }
  typed_words::unmarkOptions(app);
  app.parse(argc, marked.data());
}

}  // namespace tarvo

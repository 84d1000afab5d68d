// Key files (desktop entries, agent.conf): groups of "key=value" lines, '#' comments.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tarvo {

/// A "key=value" line. The views lie in the text that is being read.
struct KeyFileLine {
  int number = 0;          ///< from 1
  std::string_view group;  ///< empty before the first group
  std::string_view key;
  std::string_view value;  ///< without surrounding blanks, escapes as they stand
};

/// Hands every "key=value" line of `text` to `take` until that answers false. Returns the number of
/// the first line that is neither empty, comment, group nor pair, where reading ends; none when all
/// lines are well formed. Lines end in LF or CR LF.
std::optional<int> readKeyFile(std::string_view text,
                               const std::function<bool(const KeyFileLine&)>& take);

/// A value with its escapes (\s \n \t \r \\) resolved; none when another escape stands in it.
std::optional<std::string> unescapedKeyFileValue(std::string_view value);

/// `text` without blanks and tabs at both ends.
std::string_view trimmedBlanks(std::string_view text);

/// The content of a regular file of at most `limit` bytes. On failure none, with the cause in
/// words in `reason` and the error number in errno.
std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit,
                                         std::string* reason = nullptr);

}  // namespace tarvo

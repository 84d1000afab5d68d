// A text in the user's own editor.
#pragma once

#include <string>

namespace tarvo::tools {

/// Main thread only. The text lies in a file that only its owner can read, and stays there until
/// discard().
class BookEditor {
 public:
  /// Raises a ToolError where no file can be made.
  BookEditor(std::string operation, std::string text);

  /// Runs $VISUAL, else $EDITOR, else "editor", on the file until it ends. Raises a ToolError where
  /// it cannot be started or fails.
  void run();
  /// Whether the file says what it said at first.
  bool isUnchanged() const;
  void discard();
  const std::string& path() const { return path_; }

 private:
  std::string operation_;
  std::string text_;
  std::string path_;
};

}  // namespace tarvo::tools

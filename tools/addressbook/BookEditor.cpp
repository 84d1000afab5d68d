#include "tools/addressbook/BookEditor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "Utilities/FileDescriptor.h"
#include "platform/foundation/GlibPtr.h"
#include "tools/access/LocalFiles.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

constexpr std::string_view kEnding = ".json";

/// As a user names it, options included: "code --wait".
std::string editorCommand() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* named = std::getenv(variable);
    if (named && *named != '\0') return named;
  }
  return "editor";
}

}  // namespace

BookEditor::BookEditor(std::string operation, std::string text)
    : operation_(std::move(operation)), text_(std::move(text)) {
  path_ = (std::filesystem::temp_directory_path() / "tarvo-addressbook-XXXXXX").string();
  path_ += kEnding;
  // Made for its owner alone: people's addresses are nobody else's business.
  const FileDescriptor file(::mkostemps(path_.data(), static_cast<int>(kEnding.size()), O_CLOEXEC));
  if (!file.isOpen() || !writeAll(file.get(), std::as_bytes(std::span(text_))))
    throw ToolError({.operation = operation_,
                     .object = path_,
                     .status = status::kIOError,
                     .why = std::strerror(errno)});
}

void BookEditor::run() {
  // The shell splits the user's words; the path is a word of its own.
  const std::string command = editorCommand();
  std::string script = command + " \"$1\"";
  std::array<char*, 6> arguments = {const_cast<char*>("sh"),
                                    const_cast<char*>("-c"),
                                    script.data(),
                                    const_cast<char*>("sh"),
                                    path_.data(),
                                    nullptr};
  GErrorHolder error;
  int status = 0;
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN);
  const bool ran = g_spawn_sync(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr,
                                nullptr, nullptr, &status, error.out()) != 0;
  if (ran && g_spawn_check_wait_status(status, error.out()) != 0) return;
  throw ToolError({.operation = operation_,
                   .object = command,
                   .why = "the editor failed: " + error.message(),
                   .advice = "Set EDITOR to one that works. Your text is in " + path_ + "."});
}

bool BookEditor::isUnchanged() const {
  std::ostringstream now;
  now << std::ifstream(path_, std::ios::binary).rdbuf();
  return now.str() == text_;
}

void BookEditor::discard() {
  ::unlink(path_.c_str());
}

}  // namespace tarvo::tools

#include "tools/addressbook/BookFile.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "library/Records.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/addressbook/VCard.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

ContactBook bookFromJSONText(const std::string& operation, const std::string& path,
                             const std::string& text) {
  try {
    return ContactBook::fromJSON(text);
  } catch (const Error& error) {
    throw ToolError({.operation = operation,
                     .object = path,
                     .why = error.reason(),
                     .advice = "'tarvoctl addressbook export' shows the form."});
  }
}

}  // namespace

BookFormat bookFormat(const std::string& format, const std::string& path) {
  if (format == "json") return BookFormat::kJSON;
  if (format == "vcard") return BookFormat::kVCard;
  std::string ending = std::filesystem::path(path).extension().string();
  std::ranges::transform(ending, ending.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  return ending == ".vcf" || ending == ".vcard" ? BookFormat::kVCard : BookFormat::kJSON;
}

BookFile readBookFile(ToolContext& context, const std::string& operation, const std::string& path,
                      BookFormat format) {
  const std::string text = readInputText(context, operation, path);
  if (format == BookFormat::kJSON) return {.book = bookFromJSONText(operation, path, text)};
  auto cards = bookFromVCards(operation, path, text);
  for (const auto& note : cards.notes)
    context.output.message(note);
  std::vector<std::size_t> nameless;
  for (std::size_t index = 0; index < cards.book.contacts->size(); ++index)
    if (cards.nameless.contains((*cards.book.contacts)[index])) nameless.push_back(index);
  return {.book = library::contactBook(std::move(cards.book)),
          .isPartial = true,
          .nameless = std::move(nameless)};
}

std::string bookFileText(const std::string& operation, const ContactBook& book, BookFormat format) {
  if (format == BookFormat::kVCard) return vCardsFromBook(operation, library::recordOf(book));
  return jsonText(PropertyDictionary::parse(book.json()), 2) + "\n";
}

namespace {

/// As a user names it, options included: "code --wait".
std::string editorCommand() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* named = std::getenv(variable);
    if (named && *named != '\0') return named;
  }
  return "editor";
}

}  // namespace

BookEditor::BookEditor(std::string operation, const std::string& serial, std::string text)
    : operation_(std::move(operation)),
      text_(std::move(text)),
      path_(keepFile(operation_, serial, Kept::kEdit, "addressbook", "json",
                     std::as_bytes(std::span(text_)))),
      folder_(::open(keptFolder(Kept::kEdit).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  // Of the folder: an editor may put another file in the place of this one. Where there are no
  // locks, the text is as safe as its owner is careful.
  (void)::flock(folder_.get(), LOCK_SH);
}

// Standard input stays the user's: an editor needs the terminal.
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
  g_autoptr(GError) error = nullptr;
  int status = 0;
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN);
  const bool ran = g_spawn_sync(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr,
                                nullptr, nullptr, &status, &error) != 0;
  if (ran && g_spawn_check_wait_status(status, &error) != 0) return;
  throw ToolError({.operation = operation_,
                   .object = command,
                   .why = std::string("the editor failed: ") + error->message,
                   .advice = "Set EDITOR to one that works. Your text is in " + path_ + "."});
}

bool BookEditor::isUnchanged() const {
  std::ostringstream now;
  now << std::ifstream(path_, std::ios::binary).rdbuf();
  return now.str() == text_;
}

// Only when the text is on the device, or the same as before.
void BookEditor::discard() {
  ::unlink(path_.c_str());
}

}  // namespace tarvo::tools

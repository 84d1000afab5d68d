#include "tools/addressbook/BookFile.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include "library/Records.h"
#include "platform/files/FileNames.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/ToolContext.h"
#include "tools/addressbook/VCard.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

ContactBook bookFromJSONText(const std::string& path, const std::string& text) {
  try {
    return ContactBook::fromJSON(text);
  } catch (const Error& error) {
    throw ToolError({.object = path,
                     .why = error.reason(),
                     .advice = "'tarvoctl addressbook export' shows the form."});
  }
}

/// As a user names it, options included: "code --wait".
std::string editorCommand() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* named = std::getenv(variable);
    if (named && *named != '\0') return named;
  }
  return "editor";
}

}  // namespace

BookFormat bookFormat(const std::string& format, const std::string& path) {
  if (format == "json") return BookFormat::kJSON;
  if (format == "vcard") return BookFormat::kVCard;
  const std::string ending = lowerCaseExtension(path);
  return ending == "vcf" || ending == "vcard" ? BookFormat::kVCard : BookFormat::kJSON;
}

BookFile readBookFile(ToolContext& context, const std::string& path, BookFormat format) {
  const std::string text = readInputText(context, path);
  if (format == BookFormat::kJSON) return {.book = bookFromJSONText(path, text)};
  auto cards = bookFromVCards(path, text);
  for (const auto& note : cards.notes)
    context.output.message(note);
  std::vector<std::size_t> nameless;
  for (std::size_t index = 0; index < cards.book.contacts->size(); ++index)
    if (cards.nameless.contains((*cards.book.contacts)[index])) nameless.push_back(index);
  return {.book = library::contactBook(std::move(cards.book)),
          .isPartial = true,
          .nameless = std::move(nameless)};
}

std::string bookFileText(const ContactBook& book, BookFormat format) {
  if (format == BookFormat::kVCard) return vCardsFromBook(library::recordOf(book));
  return jsonText(PropertyDictionary::parse(book.json()), 2) + "\n";
}

BookEditor::BookEditor(const std::string& serial, std::string text)
    : text_(std::move(text)),
      path_(keepFile(serial, Kept::kEdit, "addressbook", "json", std::as_bytes(std::span(text_)))),
      folder_(::open(keptFolder(Kept::kEdit).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  // Of the folder: an editor may put another file in the place of this one. Where there are no
  // locks, the text is as safe as its owner is careful.
  (void)::flock(folder_.get(), LOCK_SH);
}

// Standard input stays the user's: an editor needs the terminal.
bool BookEditor::run() {
  // The shell splits the user's words; the path is a word of its own.
  const std::string command = editorCommand();
  const std::string script = command + " \"$1\"";
  g_autoptr(GError) error = nullptr;
  g_autoptr(GSubprocess) child =
      g_subprocess_new(G_SUBPROCESS_FLAGS_STDIN_INHERIT, &error, "sh", "-c", script.c_str(), "sh",
                       path_.c_str(), nullptr);
  if (!child || g_subprocess_wait_check(child, nullptr, &error) == FALSE)
    throw ToolError({.object = command,
                     .why = std::string("the editor failed: ") + error->message,
                     .advice = "Set EDITOR to one that works. Your text is in " + path_ + "."});
  std::ostringstream now;
  now << std::ifstream(path_, std::ios::binary).rdbuf();
  return now.str() != text_;
}

// Only when the text is on the device, or the same as before.
void BookEditor::discard() {
  ::unlink(path_.c_str());
}

}  // namespace tarvo::tools

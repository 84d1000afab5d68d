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

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "Utilities/Exception.h"
#include "Utilities/JSONReader.h"
#include "platform/foundation/GlibPtr.h"
#include "tools/access/AddressBookChanges.h"
#include "tools/access/LocalFiles.h"
#include "tools/access/OpenedDevice.h"
#include "tools/access/ToolContext.h"
#include "tools/addressbook/VCard.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

AddressBook bookFromJSONText(const std::string& operation, const std::string& path,
                             const std::string& text) {
  try {
    return addressBookFromJSON(jsonFromText(text));
  } catch (const Exception& exception) {
    throw ToolError({.operation = operation,
                     .object = path,
                     .why = exception.reason(),
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
  return {.book = std::move(cards.book), .isPartial = true, .nameless = std::move(cards.nameless)};
}

std::string bookFileText(const std::string& operation, const AddressBook& book, BookFormat format) {
  if (format == BookFormat::kVCard) return vCardsFromBook(operation, book);
  return jsonText(jsonFromAddressBook(book), 2) + "\n";
}

namespace {

constexpr std::string_view kLineEnd = "\r\n";

/// None where the encoding has no such characters.
std::optional<std::string> encoded(const std::string& text, const std::string& encoding) {
  gsize size = 0;
  const GCharPtr bytes(g_convert(text.data(), static_cast<gssize>(text.size()), encoding.c_str(),
                                 "UTF-8", nullptr, &size, nullptr));
  if (!bytes) return std::nullopt;
  return std::string(bytes.get(), size);
}

std::string lineOf(const std::string& nickname, const std::string& email) {
  std::string line = nickname;
  line.append(" <").append(email).append(">");
  return line;
}

/// What the form of a line cannot hold.
const char* misfit(const std::string& nickname, const std::string& email) {
  if (email.empty()) return "it has no e-mail address";
  // A line is a contact: a break in it would make another one of the rest.
  if ((nickname + email).find_first_of("\r\n") != std::string::npos)
    return "it has a line break in it";
  if (nickname.find(" <") != std::string::npos || nickname.find('>') != std::string::npos ||
      email.find('>') != std::string::npos)
    return "it has a '<' or '>' where the device's file cannot hold one";
  return nullptr;
}

}  // namespace

std::optional<std::string> bookText(const AddressBook& book, const std::string& encoding,
                                    std::string& why) {
  std::string text;
  if (!book.contacts) return text;
  for (const auto& contact : *book.contacts) {
    if (contact->action == DataSyncAction::kDelete) continue;
    const std::string nickname = contact->nickname.value_or("");
    const std::string email = contact->email.value_or("");
    const auto fail = [&](const std::string& reason) {
      why = contactInWords(*contact) + ": " + reason;
      return std::nullopt;
    };
    if (const char* reason = misfit(nickname, email)) return fail(reason);
    const auto line = encoded(lineOf(nickname, email), encoding);
    if (!line)
      return fail("it has characters that the device's encoding (" + encoding + ") does not have");
    text += *line;
    text += kLineEnd;
  }
  // Rather than pad the file with a zero byte, as every object of such a size would be.
  if (isModulo64PayloadSize(text.size()) && !text.empty())
    text.erase(text.size() - kLineEnd.size());
  return text;
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

BookEditor::BookEditor(const OpenedDevice& device, std::string text)
    : operation_(device.operation()),
      text_(std::move(text)),
      path_(keepFile(device, Kept::kEdit, "addressbook", "json", std::as_bytes(std::span(text_)))),
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

// Only when the text is on the device, or the same as before.
void BookEditor::discard() {
  ::unlink(path_.c_str());
}

}  // namespace tarvo::tools

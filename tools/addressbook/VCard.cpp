#include "tools/addressbook/VCard.h"

#include <gio/gunixinputstream.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <system_error>
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/Exception.h"
#include "Utilities/FileDescriptor.h"
#include "Utilities/JSONReader.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "tools/access/LocalFiles.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"
#include "tools/vcard/CardText.h"

namespace tarvo::tools {
namespace {

struct TextField {
  const char* key;
  std::string Contact::*text;
};

/// Those that are the same on both sides.
constexpr std::array kTexts = {
    TextField{"givenName", &Contact::firstName}, TextField{"familyName", &Contact::lastName},
    TextField{"street", &Contact::street},       TextField{"city", &Contact::city},
    TextField{"state", &Contact::state},         TextField{"zip", &Contact::zip},
    TextField{"country", &Contact::country},     TextField{"phone", &Contact::phone}};

std::string textOf(const PropertyDictionary& card, const char* key) {
  return textForKey(card, key).value_or("");
}

/// The GUID in a card's UID, upper case; none for a UID of another kind, which a device cannot
/// keep.
std::optional<std::string> guidOf(std::string text) {
  constexpr std::string_view kPrefix = "urn:uuid:";
  constexpr std::size_t kLength = 36;
  if (text.starts_with(kPrefix)) text.erase(0, kPrefix.size());
  if (text.size() != kLength || g_uuid_string_is_valid(text.c_str()) == FALSE) return std::nullopt;
  g_autofree char* upper = g_ascii_strup(text.c_str(), -1);
  return upper;
}

/// A device separates lines by a carriage return, and one line of its menus holds the other texts.
std::string replacedNewlines(std::string text, char replacement) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] == '\r' && index + 1 < text.size() && text[index + 1] == '\n') continue;
    result += text[index] == '\n' || text[index] == '\r' ? replacement : text[index];
  }
  return result;
}

Contact contactFrom(const PropertyDictionary& card) {
  Contact contact;
  for (const auto& field : kTexts)
    contact.*field.text = replacedNewlines(textOf(card, field.key), ' ');
  contact.street = replacedNewlines(textOf(card, "street"), '\r');
  // A UID of another kind is left out: the library finds people by their address then.
  contact.uid = guidOf(textOf(card, "uid"));
  contact.email = textOf(card, "email");
  std::string nickname = replacedNewlines(textOf(card, "nickname"), ' ');
  std::string fullName = replacedNewlines(textOf(card, "fullName"), ' ');
  // No card is without a name; whoever has none is called by what there is.
  if (fullName == nickname || fullName == contact.email) fullName.clear();
  if (contact.firstName.empty() && contact.lastName.empty()) {
    // A card with a name alone: its last word is the family name.
    const auto blank = fullName.rfind(' ');
    contact.firstName = fullName.substr(0, blank);
    if (blank != std::string::npos) contact.lastName = fullName.substr(blank + 1);
  }
  if (nickname.empty()) nickname = fullName;
  if (nickname.empty()) {
    nickname = contact.firstName + (contact.firstName.empty() ? "" : " ") + contact.lastName;
    nickname.erase(nickname.find_last_not_of(' ') + 1);
  }
  contact.nickname = nickname;
  return contact;
}

/// Raises where a book has as many entries as it may, and another one comes.
void refuseMore(std::size_t count, const char* what) {
  if (count >= kMostBookEntries)
    throw Exception(std::string(exception_name::kInvalidArgument),
                    "it has more than " + std::to_string(kMostBookEntries) + " " + what);
}

/// Where a card names a group for the first time, the group begins.
class Groups {
 public:
  void add(const std::string& name, const ContactPointer& contact) {
    if (name.empty()) return;
    auto& group = byName_[name];
    if (!group) {
      refuseMore(groups_.size(), "groups");
      group = std::make_shared<ContactGroup>(ContactGroup{.name = name, .members = {}});
      groups_.push_back(group);
    }
    // A card may name a category twice.
    if (group->members.empty() || group->members.back() != contact)
      group->members.push_back(contact);
  }
  std::optional<ContactGroups> take() {
    return groups_.empty() ? std::nullopt : std::optional(std::move(groups_));
  }

 private:
  std::map<std::string, ContactGroupPointer> byName_;
  ContactGroups groups_;
};

std::string countedCards(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " card has" : " cards have");
}

PropertyDictionary cardFrom(const Contact& contact) {
  PropertyDictionary card = PropertyDictionary::object();
  const auto put = [&card](const char* key, const std::string& text) {
    if (!text.empty()) card[key] = validUTF8(text);
  };
  for (const auto& field : kTexts)
    put(field.key, contact.*field.text);
  put("street", replacedNewlines(contact.street, '\n'));
  put("uid", contact.uid.value_or(""));
  put("email", contact.email.value_or(""));
  put("nickname", contact.nickname.value_or(""));
  std::string fullName = contact.firstName + " " + contact.lastName;
  if (fullName == " ") fullName = contact.nickname.value_or("");
  if (fullName.empty()) fullName = contact.email.value_or("");
  fullName.erase(0, fullName.find_first_not_of(' '));
  fullName.erase(fullName.find_last_not_of(' ') + 1);
  // No card is without a name (RFC 6350, section 6.2.1).
  card["fullName"] = validUTF8(fullName.empty() ? "?" : fullName);
  return card;
}

constexpr const char* kProgramName = "tarvo-vcard";

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLongestAnswer{30};

/// A file without a name that holds `text`, to be read from its start: a program that is given it
/// need not read while somebody writes.
FileDescriptor unnamedFile(const std::string& text) {
  FileDescriptor file(::memfd_create(kProgramName, MFD_CLOEXEC));
  const bool isWritten = file.isOpen() && writeAll(file.get(), std::as_bytes(std::span(text))) &&
                         ::lseek(file.get(), 0, SEEK_SET) == 0;
  return isWritten ? std::move(file) : FileDescriptor();
}

/// All that comes from a pipe until its other end is closed; none where that is more than the
/// program may say, or takes too long.
std::optional<std::string> answerFrom(int pipe) {
  std::string answer;
  std::vector<char> piece(65536);
  for (const auto end = Clock::now() + kLongestAnswer;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    ::pollfd ready = {.fd = pipe, .events = POLLIN, .revents = 0};
    const int count = left.count() > 0 ? ::poll(&ready, 1, static_cast<int>(left.count())) : 0;
    const ssize_t length = count > 0 ? ::read(pipe, piece.data(), piece.size()) : count;
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 || count == 0 || answer.size() > vcard::kMostBytes) return std::nullopt;
    if (length == 0) return answer;
    answer.append(piece.data(), static_cast<std::size_t>(length));
  }
}

/// What became of a program that has no answer, a clause.
std::string whyItFailed(GSubprocess* child) {
  if (g_subprocess_get_if_signaled(child) != 0 && g_subprocess_get_term_sig(child) == SIGSYS)
    return "the program that reads them was ended, for it tried what it may not do";
  if (g_subprocess_get_if_exited(child) != 0 &&
      g_subprocess_get_exit_status(child) == vcard::kTooMuch)
    return "there are more of them than can be taken (" + std::to_string(vcard::kMostBytes >> 20) +
           " MiB)";
  // A file that costs too much time or memory ends it, too, which is what its limits are for.
  return "the file cannot be read as vCards";
}

/// What the program answers to `input`; `mode` is "read" or "write". Raises a ToolError about
/// `object` where there is none, where it failed, and where it answers with more than it may or too
/// late: then it is ended.
std::string runVCardProgram(const std::string& object, const std::string& mode,
                            const std::string& input) {
  const auto fail = [&](const std::string& why, const char* advice) {
    return ToolError({.object = object, .why = "vCards: " + why, .advice = advice});
  };
  FileDescriptor file = unnamedFile(input);
  if (!file.isOpen()) throw fail(std::strerror(errno), "Use JSON (--format json).");
  // What it says of itself is for nobody's terminal.
  g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(static_cast<GSubprocessFlags>(
      G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE));
  g_subprocess_launcher_take_stdin_fd(launcher, file.release());
  g_autoptr(GError) error = nullptr;
  const char* const named = std::getenv("TARVO_VCARD");
  const std::string path = named && *named != '\0' ? named : ownProgram(kProgramName);
  g_autoptr(GSubprocess) child =
      g_subprocess_launcher_spawn(launcher, &error, path.c_str(), mode.c_str(), nullptr);
  if (!child) throw fail(error->message, "Install tarvo-vcard, or use JSON (--format json).");
  auto answer = answerFrom(
      g_unix_input_stream_get_fd(G_UNIX_INPUT_STREAM(g_subprocess_get_stdout_pipe(child))));
  if (!answer) g_subprocess_force_exit(child);
  g_subprocess_wait(child, nullptr, nullptr);
  if (answer && g_subprocess_get_successful(child) != 0) return *std::move(answer);
  throw fail(whyItFailed(child), "Export it anew from the program that it comes from.");
}

}  // namespace

VCardBook bookFromCards(const PropertyDictionary& cards) {
  VCardBook result;
  auto& contacts = result.book.contacts.emplace();
  Groups groups;
  std::size_t withoutEmail = 0;
  std::size_t withSeveral = 0;
  for (const auto& card : cards) {
    const auto contact = std::make_shared<Contact>(contactFrom(card));
    if (contact->email.value_or("").empty()) {
      ++withoutEmail;
      continue;
    }
    if (int32ForKey(card, "emails").value_or(1) > 1) ++withSeveral;
    refuseMore(contacts.size(), "contacts");
    contacts.push_back(contact);
    if (textOf(card, "nickname").empty()) result.nameless.insert(contact);
    const auto* categories = arrayForKey(card, "categories");
    for (const auto& name : categories ? *categories : PropertyDictionary::array())
      if (name.is_string()) groups.add(name.get<std::string>(), contact);
  }
  result.book.groups = groups.take();
  if (withoutEmail > 0)
    result.notes.push_back(countedCards(withoutEmail) +
                           " no e-mail address and cannot be kept by the device.");
  if (withSeveral > 0)
    result.notes.push_back(countedCards(withSeveral) +
                           " several e-mail addresses; the preferred one, or the first, is taken.");
  return result;
}

PropertyDictionary cardsFromBook(const AddressBook& book) {
  std::map<const Contact*, std::vector<std::string>> categories;
  if (book.groups) {
    for (const auto& group : *book.groups)
      for (const auto& member : group->members)
        categories[member.get()].push_back(validUTF8(group->name));
  }
  auto cards = PropertyDictionary::array();
  if (!book.contacts) return cards;
  for (const auto& contact : *book.contacts) {
    auto card = cardFrom(*contact);
    if (const auto found = categories.find(contact.get()); found != categories.end())
      card["categories"] = found->second;
    cards.push_back(std::move(card));
  }
  return cards;
}

VCardBook bookFromVCards(const std::string& path, const std::string& text) {
  // Out of this process: the parser meets files from anywhere.
  const auto said = runVCardProgram(path, "read", text);
  std::string why = "there is no vCard in it";
  try {
    const auto cards = jsonFromText(said);
    if (cards.is_array() && !cards.empty()) return bookFromCards(cards);
  } catch (const Exception& exception) {
    why = exception.reason();
  }
  throw ToolError(
      {.object = path, .why = why, .advice = "Check the file, or say what it is with --format."});
}

std::string vCardsFromBook(const AddressBook& book) {
  return runVCardProgram("", "write", cardsFromBook(book).dump());
}

}  // namespace tarvo::tools

#include "tools/addressbook/VCard.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "platform/foundation/GlibPtr.h"
#include "tools/output/ToolError.h"
#include "tools/output/Words.h"

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
  const auto found = card.find(key);
  return found != card.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// The GUID in a card's UID, upper case; none for a UID of another kind, which a device cannot
/// keep.
std::optional<std::string> guidOf(std::string text) {
  constexpr std::string_view kPrefix = "urn:uuid:";
  constexpr std::string_view kShape = "00000000-0000-0000-0000-000000000000";
  if (text.starts_with(kPrefix)) text.erase(0, kPrefix.size());
  if (text.size() != kShape.size()) return std::nullopt;
  for (std::size_t index = 0; index < kShape.size(); ++index) {
    const auto letter = static_cast<unsigned char>(text[index]);
    if (kShape[index] == '-' ? letter != '-' : std::isxdigit(letter) == 0) return std::nullopt;
    text[index] = static_cast<char>(std::toupper(letter));
  }
  return text;
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
  // A UID of another kind is left out: planBook() finds people by their address then.
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

/// Where a card names a group for the first time, the group begins.
class Groups {
 public:
  void add(const std::string& name, const ContactPointer& contact) {
    if (name.empty()) return;
    auto& group = byName_[name];
    if (!group) {
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

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + (count == 1 ? one : many);
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
    const auto emails = card.find("emails");
    if (emails != card.end() && emails->is_number() && *emails > 1) ++withSeveral;
    contacts.push_back(contact);
    if (textOf(card, "nickname").empty()) result.nameless.insert(contact);
    const auto categories = card.find("categories");
    if (categories == card.end()) continue;
    for (const auto& name : *categories)
      groups.add(name.get<std::string>(), contact);
  }
  result.book.groups = groups.take();
  if (withoutEmail > 0)
    result.notes.push_back(counted(withoutEmail, " card has", " cards have") +
                           " no e-mail address and cannot be kept by the device.");
  if (withSeveral > 0)
    result.notes.push_back(counted(withSeveral, " card has", " cards have") +
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

VCardBook bookFromVCards(const std::string& operation, const std::string& path,
                         const std::string& text) {
  // Out of this process: the parser meets files from anywhere.
  const auto said = runVCardProgram(operation, path, "read", text);
  auto cards = PropertyDictionary::parse(said, nullptr, false);
  if (!cards.is_array() || cards.empty())
    throw ToolError({.operation = operation,
                     .object = path,
                     .why = "there is no vCard in it",
                     .advice = "Check the file, or say what it is with --format."});
  return bookFromCards(cards);
}

std::string vCardsFromBook(const std::string& operation, const AddressBook& book) {
  return runVCardProgram(operation, "", "write", cardsFromBook(book).dump());
}

namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "tarvo-vcard";

using GBytesPtr = std::unique_ptr<GBytes, GlibRelease<g_bytes_unref>>;

std::string programPath() {
  if (const char* named = std::getenv("TARVO_VCARD"); named && *named != '\0') return named;
  std::error_code error;
  // Beside this program first, so that a build that is not installed uses its own.
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / kName;
  if (!error && fs::exists(beside, error)) return beside.string();
  return std::string(TARVO_LIBEXEC) + "/" + kName;
}

ToolError failure(const std::string& operation, const std::string& object, const std::string& why,
                  const std::string& advice) {
  return ToolError(
      {.operation = operation, .object = object, .why = "vCards: " + why, .advice = advice});
}

}  // namespace

std::string runVCardProgram(const std::string& operation, const std::string& object,
                            const std::string& mode, const std::string& input) {
  const std::string path = programPath();
  GErrorHolder error;
  const GObjectPtr<GSubprocess> child(g_subprocess_new(
      static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE | G_SUBPROCESS_FLAGS_STDOUT_PIPE),
      error.out(), path.c_str(), mode.c_str(), nullptr));
  if (!child)
    throw failure(operation, object, error.message(),
                  "Install tarvo-vcard, or use JSON (--format json).");
  const GBytesPtr given(g_bytes_new(input.data(), input.size()));
  GBytes* said = nullptr;
  const bool communicated =
      // Both ways at once: a program that writes before it has read all would wait for us for ever.
      g_subprocess_communicate(child.get(), given.get(), nullptr, &said, nullptr, error.out()) != 0;
  const GBytesPtr answer(said);
  // A file that costs too much time or memory ends the program, which is what the limits are for.
  if (!communicated || g_subprocess_get_successful(child.get()) == 0)
    throw failure(operation, object, "the file cannot be read as vCards",
                  "Export it anew from the program that it comes from.");
  gsize size = 0;
  const void* bytes = g_bytes_get_data(answer.get(), &size);
  return size == 0 ? std::string() : std::string(static_cast<const char*>(bytes), size);
}

}  // namespace tarvo::tools

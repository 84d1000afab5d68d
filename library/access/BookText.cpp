#include "library/access/BookText.h"

#include <glib.h>

#include <optional>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::library {
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

std::string bookText(const AddressBook& book, const std::string& encoding,
                     std::vector<BookObstacle>& obstacles) {
  std::string text;
  if (!book.contacts) return text;
  for (const auto& contact : *book.contacts) {
    if (contact->action == DataSyncAction::kDelete) continue;
    const std::string nickname = contact->nickname.value_or("");
    const std::string email = contact->email.value_or("");
    const char* reason = misfit(nickname, email);
    const auto line = encoded(lineOf(nickname, email), encoding);
    if (reason || !line) {
      const std::string why =
          reason ? reason
                 : "it has characters that the device's encoding (" + encoding + ") does not have";
      obstacles.push_back({.contact = contact, .why = contactInWords(*contact) + ": " + why});
      continue;
    }
    text += *line;
    text += kLineEnd;
  }
  // Rather than pad the file with a zero byte, as every object of such a size would be.
  if (isModulo64PayloadSize(text.size()) && !text.empty())
    text.erase(text.size() - kLineEnd.size());
  return text;
}

}  // namespace tarvo::library

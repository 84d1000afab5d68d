#include "tools/vcard/CardText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <iterator>
#include <memory>

// The library's own headers use what GLib has deprecated.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <libebook-contacts/libebook-contacts.h>
#pragma GCC diagnostic pop

namespace tarvo::vcard {
namespace {

using nlohmann::json;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
/// In which cards of version 2.1 are written, where they are not in UTF-8: what the systems and
/// telephones of their time had. Others stay as they stand, but for what is no UTF-8.
constexpr std::array kCharsets = {
    "ISO-8859-1",   "ISO-8859-2",   "ISO-8859-5",   "ISO-8859-7",   "ISO-8859-9",   "ISO-8859-15",
    "WINDOWS-1250", "WINDOWS-1251", "WINDOWS-1252", "WINDOWS-1253", "WINDOWS-1254", "WINDOWS-1257",
    "KOI8-R",       "SHIFT_JIS",    "EUC-JP",       "ISO-2022-JP",  "GB2312",       "GBK",
    "BIG5",         "EUC-KR",       "UTF-16",       "UTF-7",        "US-ASCII"};

/// The last values of an address, in the order of RFC 6350, 6.3.1, and the place of the first.
constexpr std::array kAddress = {"street", "city", "state", "zip", "country"};
constexpr std::size_t kStreet = 2;

struct Unref {
  void operator()(EVCard* card) const { g_object_unref(card); }
};
using CardPointer = std::unique_ptr<EVCard, Unref>;

std::string validUTF8(const std::string& text) {
  g_autofree char* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  return valid;
}

/// The values of an attribute as text, decoded (quoted-printable, base64).
std::vector<std::string> valuesOf(EVCardAttribute* attribute) {
  std::vector<std::string> values;
  for (GList* each = e_vcard_attribute_get_values_decoded(attribute); each; each = each->next) {
    const auto* value = static_cast<GString*>(each->data);
    values.push_back(validUTF8(std::string(value->str, value->len)));
  }
  return values;
}

std::string valueAt(const std::vector<std::string>& values, std::size_t index) {
  return index < values.size() ? values[index] : std::string();
}

void put(json& card, const char* key, const std::string& text) {
  if (!text.empty() && !card.contains(key)) card[key] = text;
}

bool isPreferred(EVCardAttribute* attribute) {
  if (e_vcard_attribute_has_type(attribute, "PREF") != 0) return true;
  // vCard 2.1 and 4.0 write it as a parameter of its own.
  for (GList* each = e_vcard_attribute_get_params(attribute); each; each = each->next) {
    auto* parameter = static_cast<EVCardAttributeParam*>(each->data);
    if (g_ascii_strcasecmp(e_vcard_attribute_param_get_name(parameter), "PREF") == 0) return true;
  }
  return false;
}

/// The preferred one of several, else the first.
void putPreferred(json& card, const char* key, EVCardAttribute* attribute) {
  const std::string text = valueAt(valuesOf(attribute), 0);
  if (text.empty()) return;
  const std::string mark = std::string(key) + "IsPreferred";
  if (card.contains(key) && (card.contains(mark) || !isPreferred(attribute))) return;
  card[key] = text;
  if (isPreferred(attribute)) card[mark] = true;
}

/// Of several addresses the first that has anything in it.
void putAddress(json& card, const std::vector<std::string>& values) {
  for (const char* key : kAddress)
    if (card.contains(key)) return;
  std::string street = valueAt(values, kStreet);
  const std::string extension = valueAt(values, kStreet - 1);
  if (!extension.empty()) street += (street.empty() ? "" : "\n") + extension;
  put(card, kAddress.front(), street);
  for (std::size_t index = 1; index < kAddress.size(); ++index)
    put(card, kAddress.at(index), valueAt(values, kStreet + index));
}

void putAttribute(json& card, EVCardAttribute* attribute) {
  const std::string_view name = e_vcard_attribute_get_name(attribute);
  const auto is = [name](const char* other) {
    return g_ascii_strcasecmp(std::string(name).c_str(), other) == 0;
  };
  if (is(EVC_FN)) put(card, "fullName", valueAt(valuesOf(attribute), 0));
  if (is(EVC_NICKNAME)) put(card, "nickname", valueAt(valuesOf(attribute), 0));
  if (is(EVC_UID)) put(card, "uid", valueAt(valuesOf(attribute), 0));
  if (is(EVC_TEL)) putPreferred(card, "phone", attribute);
  if (is(EVC_ADR)) putAddress(card, valuesOf(attribute));
  if (is(EVC_N)) {
    const auto values = valuesOf(attribute);
    put(card, "familyName", valueAt(values, 0));
    put(card, "givenName", valueAt(values, 1));
  }
  if (is(EVC_EMAIL)) {
    putPreferred(card, "email", attribute);
    card["emails"] = card.value("emails", 0) + 1;
  }
  if (is(EVC_CATEGORIES)) {
    for (const auto& category : valuesOf(attribute))
      if (!category.empty()) card["categories"].push_back(category);
  }
}

json cardFrom(const std::string& text) {
  json card = json::object();
  const CardPointer parsed(e_vcard_new_from_string(text.c_str()));
  if (!parsed) return card;
  for (GList* each = e_vcard_get_attributes(parsed.get()); each; each = each->next)
    putAttribute(card, static_cast<EVCardAttribute*>(each->data));
  card.erase("emailIsPreferred");
  card.erase("phoneIsPreferred");
  return card;
}

bool isLine(std::string_view line, const char* text) {
  while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back())) != 0)
    line.remove_suffix(1);
  return g_ascii_strcasecmp(std::string(line).c_str(), text) == 0;
}

void addTexts(EVCard* card, const char* name, const std::vector<std::string>& values) {
  EVCardAttribute* attribute = e_vcard_attribute_new(nullptr, name);
  for (const auto& value : values)
    e_vcard_attribute_add_value(attribute, value.c_str());
  e_vcard_append_attribute(card, attribute);
}

std::string textOf(const json& card, const char* key) {
  return card.value(key, std::string());
}

std::string cardText(const json& card) {
  const CardPointer made(e_vcard_new());
  const auto addOne = [&](const char* name, const char* key) {
    if (card.contains(key)) addTexts(made.get(), name, {textOf(card, key)});
  };
  addOne(EVC_UID, "uid");
  addOne(EVC_FN, "fullName");
  addTexts(made.get(), EVC_N, {textOf(card, "familyName"), textOf(card, "givenName"), "", "", ""});
  addOne(EVC_NICKNAME, "nickname");
  addOne(EVC_EMAIL, "email");
  addOne(EVC_TEL, "phone");
  std::vector<std::string> address(kStreet);
  bool hasAddress = false;
  for (const char* key : kAddress) {
    address.push_back(textOf(card, key));
    hasAddress = hasAddress || !address.back().empty();
  }
  if (hasAddress) addTexts(made.get(), EVC_ADR, address);
  if (card.contains("categories"))
    addTexts(made.get(), EVC_CATEGORIES, card["categories"].get<std::vector<std::string>>());
  g_autofree char* text = e_vcard_to_string(made.get(), EVC_FORMAT_VCARD_30);
  return std::string(text) + "\r\n";
}

}  // namespace

CardLibrary::CardLibrary() {
  // What the library says of a card helps nobody: the cards that it could read tell.
  g_log_set_writer_func(
      [](GLogLevelFlags, const GLogField*, gsize, gpointer) { return G_LOG_WRITER_HANDLED; },
      nullptr, nullptr);
  for (const char* charset : kCharsets)
    conversions_.push_back(g_iconv_open("UTF-8", charset));
}

CardLibrary::~CardLibrary() {
  for (void* const conversion : conversions_)
    if (reinterpret_cast<std::intptr_t>(conversion) != -1)
      g_iconv_close(static_cast<GIConv>(conversion));
}

// The library takes one card at a time. A card in a card (AGENT of vCard 2.1) belongs to the outer
// one; a card that never ends is none.
json cardsFromText(std::string_view text) {
  json cards = json::array();
  std::string card;
  std::size_t depth = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end);
    // At the beginning of a file, which may be one of several in a row.
    if (line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
    if (isLine(line, "BEGIN:VCARD") && depth++ == 0) card.clear();
    if (depth == 0) continue;
    // What is in an inner card is not of interest. A zero would end the text in the middle of a
    // folded line, behind which the library goes on reading.
    if (depth == 1) std::ranges::remove_copy(line, std::back_inserter(card), '\0');
    if (isLine(line, "END:VCARD") && --depth == 0) cards.push_back(cardFrom(card));
  }
  return cards;
}

std::string textFromCards(const json& cards) {
  std::string text;
  for (const auto& card : cards)
    text += cardText(card);
  return text;
}

}  // namespace tarvo::vcard

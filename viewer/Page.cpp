#include "viewer/Page.h"

#include <glib.h>
#include <libxml/HTMLparser.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

#include "Utilities/Printable.h"
#include "platform/foundation/KeyFile.h"
#include "viewer/PageReader.h"

namespace tarvo::viewer {

namespace {

using Kind = PageBlock::Kind;
using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

/// What is said where there is no page to show.
struct Words {
  const char* title;
  const char* text;
  const char* cannotBeShown;
  const char* isEmpty;
};
constexpr Words kEnglish = {
    "Your camera is in use",
    "The wireless utility is transferring pictures. Your camera can be used here once it has "
    "finished.",
    "The page that explains this cannot be shown", "there is nothing to read on it"};
constexpr Words kGerman = {
    "Ihre Kamera wird gerade benutzt",
    "Das Programm für die drahtlose Übertragung überträgt Bilder. Danach können Sie Ihre Kamera "
    "hier benutzen.",
    "Die Seite dazu kann nicht gezeigt werden", "sie enthält keinen Text"};

const Words& wordsIn(const std::vector<std::string>& languages) {
  for (const auto& language : languages) {
    const auto primary = primaryLanguage(language);
    if (primary == "de") return kGerman;
    if (primary == "en" || primary == "c") break;
  }
  return kEnglish;
}

PageBlock block(Kind kind, int level, const std::string& text) {
  char* markup = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
  PageBlock made{kind, level, text, markup, ""};
  g_free(markup);
  return made;
}

Page pageThatSays(const std::string& why, const std::vector<std::string>& languages) {
  const Words& words = wordsIn(languages);
  Page page;
  page.isShown = false;
  page.title = words.title;
  page.blocks = {block(Kind::kHeading, 1, words.title), block(Kind::kText, 0, words.text),
                 block(Kind::kText, 0, printable(std::string(words.cannotBeShown) + ": " + why))};
  return page;
}

const xmlNode* childNamed(const xmlNode* parent, std::string_view name) {
  for (const xmlNode* node = parent ? parent->children : nullptr; node; node = node->next) {
    if (node->type == XML_ELEMENT_NODE && reinterpret_cast<const char*>(node->name) == name)
      return node;
  }
  return nullptr;
}

std::string chosenLanguage(const xmlNode* body, const std::vector<std::string>& wanted) {
  std::vector<std::string> offered;
  for (const xmlNode* node = body ? body->children : nullptr; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    if (const auto tag = attributeOf(node, "lang"); !tag.empty())
      offered.push_back(primaryLanguage(tag));
  }
  for (const auto& language : wanted) {
    const auto found = std::ranges::find(offered, primaryLanguage(language));
    if (found != offered.end()) return *found;
  }
  return offered.empty() ? "" : offered.front();
}

/// What the head calls the page, on one line.
std::string titleOf(const xmlNode* root) {
  const xmlNode* title = childNamed(childNamed(root, "head"), "title");
  const xmlNode* text = title != nullptr ? title->children : nullptr;
  if (text == nullptr || text->content == nullptr) return "";
  constexpr std::size_t kLongest = 200;
  const std::string_view told = reinterpret_cast<const char*>(text->content);
  return printable(trimmedBlanks(told.substr(0, kLongest)));
}

}  // namespace

std::vector<std::string> preferredLanguages() {
  std::vector<std::string> languages;
  for (const char* const* name = g_get_language_names(); *name != nullptr; ++name)
    languages.emplace_back(*name);
  return languages;
}

Page readPage(std::string_view html, const std::vector<std::string>& languages) {
  constexpr int kOptions =
      HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_NONET;
  Page page;
  page.isCut = html.size() > kMostPageBytes;
  html = html.substr(0, kMostPageBytes);
  const auto size = static_cast<int>(html.size());
  // What is UTF-8 is UTF-8, whatever the page says of itself; else it may say.
  const bool isUTF8 = g_utf8_validate(html.data(), size, nullptr) != 0;
  const Document document(
      htmlReadMemory(html.data(), size, nullptr, isUTF8 ? "UTF-8" : nullptr, kOptions), xmlFreeDoc);
  const xmlNode* root = document ? xmlDocGetRootElement(document.get()) : nullptr;
  if (root == nullptr) return page;
  const bool wasCut = std::exchange(page.isCut, false);
  PageReader(page, chosenLanguage(childNamed(root, "body"), languages)).read(root);
  page.isCut = page.isCut || wasCut;
  if (page.isCut) page.blocks.push_back(block(Kind::kText, 0, "\u2026"));
  if (page.title.empty()) page.title = titleOf(root);
  return page;
}

Page loadPage(const std::string& path, const std::vector<std::string>& languages) {
  std::string why;
  const auto content = readWholeFile(path, kMostPageBytes, &why);
  if (!content) return pageThatSays(path + ": " + why, languages);
  Page page = readPage(*content, languages);
  if (page.blocks.empty()) return pageThatSays(path + ": " + wordsIn(languages).isEmpty, languages);
  page.folder = std::filesystem::path(path).parent_path();
  if (page.folder.empty()) page.folder = ".";
  return page;
}

std::string asText(const Page& page) {
  std::string text;
  for (const auto& each : page.blocks) {
    if (!text.empty() && each.kind != Kind::kItem) text += "\n";
    if (each.kind == Kind::kItem)
      text.append(2 * static_cast<std::size_t>(std::max(each.level, 1)), ' ');
    text += each.kind == Kind::kRule ? "----" : printableLines(each.text);
    text += "\n";
  }
  return text;
}

}  // namespace tarvo::viewer

#include "viewer/PageReader.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "Utilities/Printable.h"
#include "platform/foundation/GlibPtr.h"

namespace tarvo::viewer {

namespace {

using Kind = PageBlock::Kind;

struct Inline {
  std::string_view name;
  unsigned style;
};
// Bits of a style, in the order of kSpans.
constexpr unsigned kBold = 1, kItalic = 2, kUnderlined = 4, kMonospaced = 8, kSmall = 16;
constexpr std::array<const char*, 5> kSpans = {"b", "i", "u", "tt", "small"};
constexpr Inline kInlines[] = {
    {"b", kBold},        {"strong", kBold},     {"i", kItalic},       {"em", kItalic},
    {"cite", kItalic},   {"dfn", kItalic},      {"var", kItalic},     {"u", kUnderlined},
    {"a", kUnderlined},  {"code", kMonospaced}, {"kbd", kMonospaced}, {"samp", kMonospaced},
    {"tt", kMonospaced}, {"small", kSmall},
};

// What has lines of its own, beside headings, lists and their items, and "pre".
constexpr std::string_view kBlocks[] = {
    "address", "article", "aside",  "blockquote", "body",   "center",  "dd",     "div",
    "dl",      "dt",      "figure", "figcaption", "footer", "header",  "hgroup", "main",
    "nav",     "p",       "table",  "tbody",      "tfoot",  "section", "thead",  "tr"};

// What is no text of the page, or would have to be fetched, run or filled in.
constexpr std::string_view kLeftOut[] = {
    "applet", "audio", "base",     "button",   "canvas",   "datalist", "embed",
    "form",   "frame", "frameset", "head",     "iframe",   "input",    "link",
    "map",    "math",  "meta",     "noframes", "noscript", "object",   "select",
    "script", "style", "svg",      "template", "textarea", "title",    "video"};

template <typename Names>
bool isAmong(const Names& names, std::string_view name) {
  return std::ranges::find(names, name) != std::end(names);
}

std::string_view nameOf(const xmlNode* node) {
  return reinterpret_cast<const char*>(node->name);
}

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

/// As much of `text` as is whole characters within `room` bytes.
std::string_view cutAt(std::string_view text, std::size_t room) {
  if (text.size() <= room) return text;
  while (room > 0 && (static_cast<unsigned char>(text[room]) & 0xC0) == 0x80)
    --room;
  return text.substr(0, room);
}

std::string asMarkup(const std::string& text, unsigned style) {
  const auto isSet = [&](std::size_t place) { return (style & (1U << place)) != 0; };
  std::string markup;
  for (std::size_t i = 0; i < kSpans.size(); ++i)
    if (isSet(i)) markup.append("<").append(kSpans[i]).append(">");
  markup += takeText(g_markup_escape_text(text.data(), static_cast<gssize>(text.size())));
  for (std::size_t i = kSpans.size(); i-- > 0;)
    if (isSet(i)) markup.append("</").append(kSpans[i]).append(">");
  return markup;
}

/// A file's plain name; empty where the address leads anywhere else than into the page's folder.
std::string plainName(const std::string& address) {
  const GCharPtr name(g_uri_unescape_string(address.c_str(), "/"));
  const std::string_view plain = name ? name.get() : "";
  const bool isPlain = !plain.empty() && plain.size() <= 255 && plain.front() != '.' &&
                       plain.find_first_of("/\\:") == std::string_view::npos;
  return isPlain ? std::string(plain) : std::string();
}

}  // namespace

std::string attributeOf(const xmlNode* element, const char* name) {
  xmlChar* value = xmlGetNoNsProp(element, reinterpret_cast<const xmlChar*>(name));
  std::string text = value != nullptr ? reinterpret_cast<const char*>(value) : "";
  xmlFree(value);
  return text;
}

std::string primaryLanguage(std::string_view tag) {
  std::string language(tag.substr(0, tag.find_first_of("-_.@")));
  for (char& c : language)
    c = g_ascii_tolower(c);
  return language;
}

void PageReader::read(const xmlNode* root) {
  readChildren(root, {});
  finish();
}

void PageReader::readChildren(const xmlNode* parent, Context context) {
  if (++context.depth > kMostPageDepth) {
    page_.isCut = true;
    return;
  }
  for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
    page_.isCut = page_.isCut || isFull();
    if (isFull()) return;
    if (node->type == XML_ELEMENT_NODE && !isInAnotherLanguage(node)) readElement(node, context);
    if (node->type == XML_TEXT_NODE && node->content != nullptr)
      addText(reinterpret_cast<const char*>(node->content), context);
  }
}

void PageReader::readElement(const xmlNode* element, Context context) {
  const std::string_view name = nameOf(element);
  if (isAmong(kLeftOut, name)) return;
  const auto* found = std::ranges::find(kInlines, name, &Inline::name);
  if (found != std::end(kInlines)) context.style |= found->style;
  const bool isHeading = name.size() == 2 && name[0] == 'h' && name[1] >= '1' && name[1] <= '6';
  if (name == "br") {
    breakLine();
  } else if (name == "img") {
    readPicture(element, context);
  } else if (name == "hr") {
    begin(Kind::kRule, 0);
    keep(std::exchange(block_, {}));
  } else if (name == "ul" || name == "ol") {
    readList(element, name == "ol", context);
  } else if (isHeading || name == "li" || name == "pre" || isAmong(kBlocks, name)) {
    readBlock(element, name, context);
  } else {
    if ((name == "td" || name == "th") && waiting_.empty()) waiting_ = " ";
    readChildren(element, context);
  }
}

void PageReader::readBlock(const xmlNode* element, std::string_view name, Context context) {
  if (name == "li") {
    begin(Kind::kItem, std::max(context.listDepth, 1));
    const std::string mark =
        context.counter != nullptr ? std::to_string(++*context.counter) + "." : "\u2022";
    append(mark, 0);
    mark_ = block_.text;
    waiting_ = " ";
  } else if (name == "pre") {
    context.isPreformatted = true;
    context.style |= kMonospaced;
    begin(Kind::kPreformatted, 0);
  } else if (name[0] == 'h' && name.size() == 2) {
    begin(Kind::kHeading, name[1] - '0');
  } else if (block_.kind != Kind::kItem || block_.text != mark_) {
    // A paragraph at the beginning of an item belongs beside its mark.
    begin(Kind::kText, 0);
  }
  readChildren(element, context);
  begin(Kind::kText, 0);
}

void PageReader::readList(const xmlNode* element, bool isOrdered, Context context) {
  int counter = 0;
  ++context.listDepth;
  context.counter = isOrdered ? &counter : nullptr;
  begin(Kind::kText, 0);
  readChildren(element, context);
  begin(Kind::kText, 0);
}

void PageReader::readPicture(const xmlNode* element, const Context& context) {
  const std::string name = plainName(attributeOf(element, "src"));
  const std::string words = attributeOf(element, "alt");
  if (name.empty() || pictures_ == kMostPagePictures) {
    addText(words, context);
    return;
  }
  ++pictures_;
  begin(Kind::kPicture, 0);
  block_.picture = name;
  append(printable(words), 0);
  keep(std::exchange(block_, {}));
}

// A word of another language within a sentence is no reason to leave it out.
bool PageReader::isInAnotherLanguage(const xmlNode* element) const {
  if (element->parent == nullptr || element->parent->type != XML_ELEMENT_NODE ||
      nameOf(element->parent) != "body")
    return false;
  const std::string tag = attributeOf(element, "lang");
  return !tag.empty() && primaryLanguage(tag) != language_;
}

void PageReader::addText(std::string_view text, const Context& context) {
  std::string piece;
  for (const char c : text) {
    if (isBlank(c) && !context.isPreformatted) {
      if (waiting_.empty()) waiting_ = " ";
      continue;
    }
    // Nothing goes before the first character of a block.
    if (!piece.empty() || !block_.text.empty()) piece += waiting_;
    waiting_.clear();
    piece += c;
  }
  append(printableLines(piece), context.style);
}

void PageReader::append(std::string_view text, Style style) {
  const std::string piece(cutAt(text, room_));
  if (piece.size() < text.size()) page_.isCut = true;
  room_ -= piece.size();
  if (piece.empty()) return;
  block_.text += piece;
  block_.markup += asMarkup(piece, style);
}

void PageReader::breakLine() {
  if (waiting_ == " ") waiting_.clear();
  // One empty line at most.
  if (waiting_.size() < 2) waiting_ += '\n';
}

void PageReader::begin(Kind kind, int level) {
  finish();
  block_.kind = kind;
  block_.level = level;
}

void PageReader::finish() {
  waiting_.clear();
  PageBlock block = std::exchange(block_, {});
  const bool isMark = block.kind == Kind::kItem && block.text == mark_;
  if (!isMark && block.text.find_first_not_of(" \n\t\r") != std::string::npos)
    keep(std::move(block));
}

void PageReader::keep(PageBlock block) {
  if (page_.blocks.size() == kMostPageBlocks) {
    page_.isCut = true;
    return;
  }
  if (page_.title.empty() && block.kind == Kind::kHeading) page_.title = block.text;
  page_.blocks.push_back(std::move(block));
}

}  // namespace tarvo::viewer

// From the tree of a parsed page to its blocks.
#pragma once

#include <libxml/tree.h>

#include <string>
#include <string_view>
#include <utility>

#include "viewer/Page.h"

namespace tarvo::viewer {

/// Reads one tree once. The tree must outlive the call of read().
class PageReader {
 public:
  /// Of the body's own elements with a language only those of `language` are read.
  PageReader(Page& page, std::string language) : page_(page), language_(std::move(language)) {}

  /// `root` is the element html.
  void read(const xmlNode* root);

 private:
  /// How text is set, one bit each.
  using Style = unsigned;
  struct Context {
    Style style = 0;
    int depth = 0;
    int listDepth = 0;
    bool isPreformatted = false;
    int* counter = nullptr;  ///< of the ordered list that items are in
  };

  void readChildren(const xmlNode* parent, Context context);
  void readElement(const xmlNode* element, Context context);
  /// A block element: what it holds begins and ends lines of its own.
  void readBlock(const xmlNode* element, std::string_view name, Context context);
  void readList(const xmlNode* element, bool isOrdered, Context context);
  void readPicture(const xmlNode* element, const Context& context);
  bool isInAnotherLanguage(const xmlNode* element) const;

  void addText(std::string_view text, const Context& context);
  /// A piece without surplus blanks, as far as there is room for it.
  void append(std::string_view text, Style style);
  void breakLine();
  /// What follows belongs to a new block of this kind.
  void begin(PageBlock::Kind kind, int level);
  /// Ends the block that is open; one without text is dropped.
  void finish();
  void keep(PageBlock block);
  bool isFull() const { return room_ == 0 || page_.blocks.size() == kMostPageBlocks; }

  Page& page_;
  std::string language_;
  PageBlock block_;
  std::string waiting_;  ///< blank or line ends that go before the next character, if one comes
  std::string mark_;     ///< what the last item begins with
  std::size_t room_ = kMostPageText;
  std::size_t pictures_ = 0;
};

/// Value of an attribute; empty text where there is none.
std::string attributeOf(const xmlNode* element, const char* name);
/// "de" of "de-AT" and "de_AT", in small letters.
std::string primaryLanguage(std::string_view tag);

}  // namespace tarvo::viewer

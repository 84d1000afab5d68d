// Feeds the reader of pages any bytes, which whoever may write into the installed folder, or starts
// the viewer, chooses.
//
// What is shown stays within the bounds, its markup is what Pango takes and says the same as its
// text, and no picture is looked for outside of the page's folder.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "viewer/Page.h"

namespace {

/// Text of markup that is well formed; tags have to close in order.
std::string textOfMarkup(std::string_view markup) {
  std::string text;
  std::vector<std::string_view> open;
  while (!markup.empty()) {
    const char end = markup.front() == '<' ? '>' : markup.front() == '&' ? ';' : markup.front();
    const auto size = markup.find(end) + 1;
    require(size != 0);
    const std::string_view piece = markup.substr(0, size);
    markup.remove_prefix(size);
    if (piece.starts_with("</")) {
      require(!open.empty() && open.back() == piece.substr(2));
      open.pop_back();
    } else if (piece.front() == '<') {
      open.push_back(piece.substr(1));
    } else if (piece.front() == '&') {
      const bool isKnown = piece == "&lt;" || piece == "&gt;" || piece == "&amp;" ||
                           piece == "&quot;" || piece == "&apos;" || piece == "&#39;";
      require(isKnown);
      text += piece == "&lt;"     ? '<'
              : piece == "&gt;"   ? '>'
              : piece == "&amp;"  ? '&'
              : piece == "&quot;" ? '"'
                                  : '\'';
    } else {
      text += piece;
    }
  }
  require(open.empty());
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarvo::viewer;
  const std::vector<char> copy(data, data + size);
  const Page page = readPage({copy.data(), copy.size()}, {"de", "en"});
  require(page.blocks.size() <= kMostPageBlocks + 1);
  std::size_t bytes = 0;
  std::size_t pictures = 0;
  for (const auto& block : page.blocks) {
    bytes += block.text.size();
    require(textOfMarkup(block.markup) == block.text);
    pictures += block.picture.empty() ? 0 : 1;
    require(block.picture.find('/') == std::string::npos && !block.picture.starts_with('.'));
  }
  require(bytes <= kMostPageText + 3 && pictures <= kMostPagePictures);
  (void)asText(page);
  return 0;
}

// A local page of HTML as blocks of text, which a window shows and a terminal can print.
//
//   const Page page = loadPage(path, preferredLanguages());
//   for (const PageBlock& block : page.blocks) show(block.markup);
//
// A page is a stranger's file: scripts, styles, forms and whatever would be fetched are left out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::viewer {

// Bounds of a page; what lies beyond is left out, and a file that is larger is not read.
inline constexpr std::size_t kMostPageBytes = 64 * 1024;
inline constexpr std::size_t kMostPageText = 32 * 1024;  ///< bytes of UTF-8
inline constexpr std::size_t kMostPageBlocks = 500;
inline constexpr int kMostPageDepth = 64;
inline constexpr std::size_t kMostPagePictures = 8;

struct PageBlock {
  enum class Kind { kHeading, kText, kItem, kPreformatted, kRule, kPicture };

  Kind kind = Kind::kText;
  int level = 0;        ///< of a heading from 1, of an item how deep its list lies, from 1
  std::string text;     ///< UTF-8; of a picture what stands for it
  std::string markup;   ///< the same as Pango's markup, always well formed
  std::string picture;  ///< name of a file in the page's folder, which need not be there
};

struct Page {
  std::string title;
  std::string folder;  ///< in which pictures lie; empty where the page came from no file
  std::vector<PageBlock> blocks;
  bool isCut = false;   ///< something lay beyond the bounds
  bool isShown = true;  ///< false: the blocks say why the page could not be shown
};

/// The languages that the user wants to read, the most wanted first ("de_AT", "de").
std::vector<std::string> preferredLanguages();

/// Reads a page. Where the body's own elements are in several languages (attribute `lang`), those
/// of the most wanted one are taken, else of the first. Raises nothing that bytes could cause.
Page readPage(std::string_view html, const std::vector<std::string>& languages);

/// The page at `path`. One that is missing, too large or empty gives a page that says so, and what
/// the viewer is opened for, in words of those languages. Reads the file at once; any thread.
Page loadPage(const std::string& path, const std::vector<std::string>& languages);

/// The page for a terminal, which nothing in it can steer.
std::string asText(const Page& page);

}  // namespace tarvo::viewer

#include "viewer/Page.h"

#include <glib.h>
#include <gmock/gmock.h>

#include "tests/support/TemporaryFolder.h"
#include "viewer/Arguments.h"

namespace tarvo::viewer {
namespace {

using test::TemporaryFolder;
using testing::HasSubstr;
using testing::Not;
using Texts = std::vector<std::string>;

const Texts kEnglish = {"en_GB", "en", "C"};

/// "heading1: text", a block a row.
Texts rowsOf(const Page& page) {
  constexpr const char* kNames[] = {"heading", "text", "item", "pre", "rule", "picture"};
  Texts rows;
  for (const auto& block : page.blocks) {
    std::string row = kNames[static_cast<int>(block.kind)];
    if (block.level > 0) row += std::to_string(block.level);
    rows.push_back(row + ": " + block.text + (block.picture.empty() ? "" : "@" + block.picture));
  }
  return rows;
}

struct PageCase {
  const char* html;
  Texts rows;
};

TEST(PageTest, ShowsWhatThereIsToReadAndNothingElse) {
  const PageCase kCases[] = {
      {"<h1> One </h1>two\n three<p>four<br>five<br><br><br>six<br></p>",
       {"heading1: One", "text: two three", "text: four\nfive\n\nsix"}},
      {"<ul><li><p>a</p><p>b</p><ol><li>x<li><b>y</b></ol><li></ul>end",
       {"item1: \u2022 a", "text: b", "item2: 1. x", "item2: 2. y", "text: end"}},
      {"<pre>a  b\n c</pre><hr><table><tr><td>1<td>2<tr><td>3</table>",
       {"pre: a  b\n c", "rule: ", "text: 1 2", "text: 3"}},
      {"<script>alert(1)</script><style>p{}</style><iframe src=x>f</iframe><form>f</form>"
       "<object>o</object><p onclick=x style='x:y'>only<!-- no --> this</p><noscript>n</noscript>",
       {"text: only this"}},
      {"&lt;b&gt; &amp; &auml; &nbsp;&#0;&#27;\x1b\xc2\x9b[2J &unknown;",
       {"text: <b> & \u00e4 \u00a0\uFFFD[2J &unknown;"}},
      {"<img src='a%20b.png' alt='A dog'><img src='../x.png' alt='up'> <img src='http://h/x.png'"
       " alt='away'> <img src='%2fetc%2fx.png'> <img src='.x.png'>",
       {"picture: A dog@a b.png", "text: up away"}},
      {"<section lang=de>Hallo</section><section lang=EN-gb>Hello <i "
       "lang=fr>salut</i></section>all",
       {"text: Hello salut", "text: all"}},
      {"<p lang=fr>salut</p><p lang=de>Hallo</p>", {"text: salut"}},
      {"", {}},
      {"<", {}},
  };
  for (const auto& row : kCases)
    EXPECT_EQ(rowsOf(readPage(row.html, kEnglish)), row.rows) << row.html;
}

TEST(PageTest, MarkupIsWellFormedWhateverIsNested) {
  const Page page = readPage("<b>bold <i>both</b> <tt>a&lt;b</tt></i><small><a href=x>l</a>", {});
  ASSERT_EQ(page.blocks.size(), 1U);
  EXPECT_EQ(page.blocks[0].markup,
            "<b>bold</b><b><i> both</i></b><tt> a&lt;b</tt><u><small>l</small></u>");
}

TEST(PageTest, NoPageIsLargerThanItsBounds) {
  std::string deep;
  std::string deepInline;
  std::string many;
  for (int i = 0; i < 5000; ++i) {
    deep += "<div>";
    deepInline += "<b>";
    many += "<p>x";
  }
  for (const auto& html :
       {deep + "deep", deepInline + "deep", many, std::string(60000, 'x'),
        "<img alt='" + std::string(60000, 'x') + "' src=a>", std::string(1000000, 'x')}) {
    const Page page = readPage("<p>first</p>" + html, {});
    std::size_t size = 0;
    for (const auto& block : page.blocks)
      size += block.text.size();
    EXPECT_TRUE(page.isCut);
    EXPECT_LE(size, kMostPageText + 8);
    EXPECT_LE(page.blocks.size(), kMostPageBlocks + 1);
    EXPECT_EQ(rowsOf(page).front(), "text: first");
    EXPECT_EQ(rowsOf(page).back(), "text: \u2026");
  }
  EXPECT_FALSE(readPage(deep.substr(0, 250) + "x", {}).isCut);
}

TEST(PageTest, APageThatCannotBeShownSaysSoAndWhatTheWindowIsFor) {
  const TemporaryFolder folder;
  const struct {
    std::string path;
    const char* why;
  } kCases[] = {
      {folder.path("none.htm"), "none.htm"},
      {folder.path(), "directory"},
      {folder.write("empty.htm", "<script>x</script>"), "keinen Text"},
      {folder.write("large.htm", std::string(kMostPageBytes + 1, 'x')), "large.htm"},
  };
  for (const auto& row : kCases) {
    const Page page = loadPage(row.path, {"de_AT", "en"});
    EXPECT_FALSE(page.isShown) << row.path;
    EXPECT_EQ(page.title, "Ihre Kamera wird gerade benutzt");
    EXPECT_THAT(asText(page), HasSubstr(row.why));
  }
}

TEST(PageTest, TheShippedPageIsInTheReadersLanguage) {
  const Page german = loadPage(BUSY_PAGE, {"de", "C"});
  EXPECT_EQ(german.title, "Ihre Kamera ist beschäftigt");
  EXPECT_FALSE(german.isCut);
  EXPECT_THAT(asText(german), Not(HasSubstr("camera")));
  EXPECT_EQ(loadPage(BUSY_PAGE, {"xx", "C"}).title, "Your camera is busy");
}

TEST(ArgumentsTest, AreThoseOfTheAgent) {
  const struct {
    std::vector<const char*> words;
    std::string read;  ///< empty: refused
  } kCases[] = {
      {{"/a b/c.htm", "-h", "400", "-v", "155"}, "/a b/c.htm 400 155"},
      {{"-v", "99999999999", "-h", "-5", "p"}, "p 100 4000"},
      {{"p"}, "p 400 155"},
      {{}, ""},
      {{"p", "q"}, ""},
      {{"p", "-h"}, ""},
      {{"p", "-h", "4x"}, ""},
      {{"p", "-x"}, ""},
  };
  for (const auto& row : kCases) {
    const auto read = parsedArguments(row.words);
    EXPECT_EQ(
        read ? read->page + " " + std::to_string(read->width) + " " + std::to_string(read->height)
             : "",
        row.read);
  }
}

}  // namespace
}  // namespace tarvo::viewer

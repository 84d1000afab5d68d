// The syntax of order markers: what makes an order, what is traced, and in which encodings.
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"

#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/datasets/TextFiles.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecorder.h"

namespace tarvo::test {
namespace {

using Lines = std::vector<std::string>;

/// "RECIPIENT RECIPIENT > IMAGE; ..." of what an e-mail marker gives.
std::string emailOrders(const EmailOrders& orders) {
  std::string text;
  for (const auto& order : orders) {
    for (const auto& address : order.destAddresses)
      text += "[" + address + "]";
    text += ">" + order.assets.at(0) + ";";
    EXPECT_TRUE(!order.record && order.handle == 0 && order.assets.size() == 1);
  }
  return text;
}

std::string emailOrdersOf(std::string_view text) {
  EmailOrders orders;
  appendEmailOrders(orders, text);
  return emailOrders(orders);
}

/// "COPIES*IMAGE;..." of what a print marker gives.
std::string printOrders(const PrintOrders& orders) {
  std::string text;
  for (const auto& order : orders)
    text += std::to_string(order.quantity) + "*" + order.assets.at(0) + ";";
  return text;
}

std::string printOrdersOf(std::string_view text) {
  PrintOrders orders;
  appendPrintOrders(orders, text);
  return printOrders(orders);
}

TEST(MarkerFile, SeparatorsAreCountedUpToEightOrTheEnd) {
  const struct {
    const char* text;
    std::size_t offset;
    std::size_t plain;
    std::size_t quoted;
  } rows[] = {{" = \"a", 0, 3, 4},     {"=\"= ", 0, 1, 4},      {"a =", 0, 0, 0},
              {"          ", 0, 8, 8}, {"          ", 7, 3, 3}, {"\t=", 0, 0, 0},
              {"", 0, 0, 0},           {" =", 2, 0, 0},         {" =", 9, 0, 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(skipSpaceEqual(row.text, row.offset), row.plain) << row.text;
    EXPECT_EQ(skipSpaceEqualQuote(row.text, row.offset), row.quoted) << row.text;
  }
}

TEST(MarkerFile, AnEmailJobHasRecipientsAndOneImage) {
  const std::pair<const char*, const char*> rows[] = {
      {"\n[JOB]\nDST EML = \"a@b.c\"\nIMG SRC = \"../DCIM/1.JPG\"", "[a@b.c]>1.JPG;"},
      {"\n[JOB]\nIMG SRC=\"1\"\nDST EML=\"a\"\nDST EML=\"b\"\nIMG SRC=\"2\"", "[a][b]>1;"},
      {"\n[JOB]\nDST EML \"a\"\nIMG SRC \"1\"\n[JOB]\nDST EMLb\"\nIMG SRC2\"", "[a]>1;[b]>2;"},
      // No order: one of the two is missing, empty, unclosed, or not at the beginning of a line.
      {"\n[JOB]\nDST EML=\"a\"\n", ""},
      {"\n[JOB]\nIMG SRC=\"1\"\n", ""},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"1", ""},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=       \"\"", ""},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"/\"", ""},
      {"\n[JOB] DST EML=\"a\"\nIMG SRC=\"1\"", ""},
      {"\r[JOB]\rDST EML=\"a\"\rIMG SRC=\"1\"", ""},
      {"\n[job]\nDST EML=\"a\"\nIMG SRC=\"1\"", ""},
      {"[JOB]\nDST EML=\"a\"\nIMG SRC=\"1\"\n", ""},
      // What the scanning makes of odd lines.
      {"\n[JOB]\nDST EML=\"\"\nDST EML=\"b\"\nIMG SRC=\"1\"", "[\nDST EML=][b]>1;"},
      {"\n[JOB]\nDST EML=       \"\"\nIMG SRC=\"1\"", "[]>1;"},
      {"\n[JOB]\nDST EML=\"        a\"\nIMG SRC=\"1\"", "[  a]>1;"},
      {"\n[JOB]\nDST EML=\"a\"\nIMG SRC=\"x/..\"", "[a]>..;"},
      {"\n[JOB]\nDST EML=\"\xC3\xA9@\xC3\xA9.c\"\nIMG SRC=\"a/\xC3\xA9.JPG/\"",
       "[\xC3\xA9@\xC3\xA9.c]>\xC3\xA9.JPG;"},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(emailOrdersOf(text), expected) << text;
}

TEST(MarkerFile, APrintJobHasOneImageAndACopyAtLeast) {
  const std::pair<const char*, const char*> quantities[] = {
      {"PRT QTY=   2x\r\n", "2"},
      {"PRT QTY = 0\n", "1"},
      {"PRT QTY = -4\n", "1"},
      {"PRT QTY =\t+4\n", "4"},
      {"PRT QTY =          7\n", "7"},
      {"PRT QTY = 99999999999\n", "2147483647"},
      {"PRT QTY = 1\nPRT QTY = 2\n", "1"},
      {"", "1"}};
  for (const auto& [line, copies] : quantities) {
    EXPECT_EQ(printOrdersOf("\n[JOB]\n" + std::string(line) + "\n<IMG SRC = \"../D/1.JPG\">"),
              std::string(copies) + "*1.JPG;")
        << line;
  }
  const std::pair<const char*, const char*> rows[] = {
      {"\n[JOB]\n<IMG SRC=\"1\">\nPRT QTY=9\n[JOB]\n<IMG SRC=\"2\">", "1*1;1*2;"},
      {"\r\n[JOB]\r\nPRT QTY = 2\r\n<IMG SRC = \"1\">\r\n", "2*1;"},
      {"\n[JOB]\n<IMG SRC=\"a\"/b\">", "1*b;"},
      {"\n[JOB]\n<IMG SRC=\"1\">\n<IMG SRC=\"2\">", "1*1;"},
      {"\n[JOB]\n<IMG SRC=\"1\" >", ""},
      {"\n[JOB]\n<IMG SRC=       \">", ""},
      {"\n[JOB]\n<IMG SRC=       \"\">", "1*\";"},
  };
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(printOrdersOf(text), expected) << text;
}

TEST(MarkerFile, WhatIsFoundIsTraced) {
  TraceRecorder traces;
  emailOrdersOf("\n[JOB]\nDST EML=\"a\"\nDST EML=\"b\"\nIMG SRC=\"x/1\"\n[JOB]\nDST EML=\"c\"\n");
  EXPECT_EQ(traces.take(), (Lines{"recipient: a", "recipient: b", "need image file: x/1",
                                  "_emailOrderList send x/1 to (a, b)", "recipient: c"}));
  printOrdersOf("\n[JOB]\nPRT QTY=0\n<IMG SRC=\"x/1\">\n[JOB]\nPRT QTY=3\n<IMG SRC=\"/\">");
  EXPECT_EQ(traces.take(),
            (Lines{"need quantity: 0", "need image file: x/1", "_printOrderList 1 copies of x/1",
                   "need quantity: 3", "need image file: /"}));
}

TEST(MarkerFile, OverlappingRecipientsHoldNoMoreThanTheFileAndAMegabyteTwice) {
  TraceRecorder traces;
  std::string text = "\n[JOB]";
  for (int i = 0; i < 100000; ++i)
    text += "\nDST EML";
  EXPECT_EQ(emailOrdersOf(text + "\nIMG SRC = 1"), "") << "no quotation mark, no recipient";
  EXPECT_EQ(traces.take(), Lines{});
  EmailOrders orders;
  appendEmailOrders(orders, text + "\"\nIMG SRC = \"1\"\n[JOB]\nDST EML=\"\xC3\xA9\"");
  ASSERT_EQ(orders.size(), 1U);
  std::size_t total = 0;
  for (const auto& recipient : orders[0].destAddresses)
    total += recipient.size();
  EXPECT_LE(total, 2 * text.size() + (1U << 20) + 200);
  EXPECT_GT(total, text.size());
  EXPECT_EQ(traces.log().count("recipients left out: they overlap too often"), 1U);
}

constexpr const char* kLatinJob =
    "\n[JOB]\nDST EML=\"\xE9@b.c\"\nPRT QTY=2\nIMG SRC=\"\xE9.JPG\"\n<IMG SRC=\"\xE9.JPG\">";
constexpr const char* kUTF8Job =
    "\n[JOB]\nDST EML=\"\xC3\xA9@b.c\"\nPRT QTY=2\nIMG SRC=\"\xC3\xA9.JPG\"\n"
    "<IMG SRC=\"\xC3\xA9.JPG\">";

TEST(MarkerFile, FilesAreReadInTheDefaultEncodingAndPrintMarkersByWhatTheyAre) {
  const TemporaryFolder folder;
  const std::string utf16("\xFF\xFE\n\0[\0J\0O\0B\0]\0\n\0<\0I\0M\0G\0 \0S\0R\0C\0\xE9\0\"\0>\0",
                          38);
  const char* const kMarked = "\xEF\xBB\xBF\n[JOB]\n<IMG SRC=\"\xC3\xA9\">\nDST EML\"\nIMG SRC1\"";
  const char* const kEmail = "[\xC3\xA9@b.c]>\xC3\xA9.JPG;";
  const char* const kPrint = "2*\xC3\xA9.JPG;";
  const struct {
    std::string bytes;
    const char* encoding;
    const char* email;
    const char* print;
  } rows[] = {
      {kLatinJob, "ISO-8859-1", kEmail, kPrint},
      {kLatinJob, "UTF-8", "", ""},
      {kUTF8Job, "UTF-8", kEmail, kPrint},
      {kUTF8Job, "ISO-8859-1", "[\xC3\x83\xC2\xA9@b.c]>\xC3\x83\xC2\xA9.JPG;", kPrint},
      {std::string(kUTF8Job).substr(0, 17), "UTF-8", "", ""},
      {utf16, "ISO-8859-1", "", "1*\xC3\xA9;"},
      {kMarked, "UTF-8", "[\nIMG SRC1]>1;", "1*\xC3\xA9;"},
  };
  for (const auto& row : rows) {
    const auto file = folder.write("marker", row.bytes);
    EmailOrders email;
    EXPECT_EQ(fillInEmailOrderList(email, file, row.encoding), status::kOK);
    EXPECT_EQ(emailOrders(email), row.email) << row.encoding << row.bytes;
    PrintOrders print;
    EXPECT_EQ(fillInPrintOrderList(print, file, row.encoding), status::kOK);
    EXPECT_EQ(printOrders(print), row.print) << row.encoding << row.bytes;
  }
}

TEST(MarkerFile, AFileThatCannotBeReadAddsNothingToTheList) {
  const TemporaryFolder folder;
  const auto tooLarge = folder.write("large", kUTF8Job);
  std::filesystem::resize_file(tooLarge, kMostBytesOfTextFile + 1);
  const auto kept = folder.write("marker", kUTF8Job);
  EmailOrders email;
  PrintOrders print;
  for (const auto& file : {kept, std::string(), folder.path(), folder.path("missing"), tooLarge}) {
    EXPECT_EQ(fillInEmailOrderList(email, file, "UTF-8"), status::kOK);
    EXPECT_EQ(fillInPrintOrderList(print, file, "UTF-8"), status::kOK);
    EXPECT_EQ(email.size() * print.size(), 1U) << file;
  }
}

}  // namespace
}  // namespace tarvo::test

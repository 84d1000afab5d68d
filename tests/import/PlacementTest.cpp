#include "import/Placement.h"

#include <gmock/gmock.h>

#include <map>

#include "import/Groups.h"
#include "import/Items.h"
#include "tests/support/Raised.h"

namespace tarvo::test {
namespace {

using importing::CalendarTime;
using importing::PlaceFacts;
using importing::PlacePattern;

TEST(CalendarTimeTest, WhatDevicesAndPicturesWriteIsReadWithoutItsZone) {
  const auto noon = CalendarTime::of({2024, 6, 15, 12, 0, 0});
  ASSERT_TRUE(noon);
  EXPECT_EQ(noon->seconds(), 1'718'452'800);
  EXPECT_EQ(noon->day(), "2024-06-15");
  for (const char* text : {"20240615T120000", "20240615T120000.5+0200", "20240615T120000Z"})
    EXPECT_EQ(CalendarTime::ofPTPDate(text), noon) << text;
  EXPECT_EQ(CalendarTime::ofEXIFDate("2024:06:15 12:00:00"), noon);
  EXPECT_EQ(CalendarTime::ofPTPDate("19800101T000000")->day(), "1980-01-01");
  const auto early = CalendarTime::of({1955, 2, 28, 23, 59, 60})->parts();
  EXPECT_EQ(early.day, 28);
  EXPECT_EQ(early.second, 59);
  for (const char* text :
       {"", "20240615", "20240615T1200", "20240615T1200-1", "20240230T120000", "20240615T240000",
        "00000000T000000", "18991231T000000", "2024:06:15 12:00:00"})
    EXPECT_EQ(CalendarTime::ofPTPDate(text), std::nullopt) << text;
  for (const char* text : {"0000:00:00 00:00:00", "    :  :     :  :  ", "2024-06-15 12:00:00"})
    EXPECT_EQ(CalendarTime::ofEXIFDate(text), std::nullopt) << text;
}

const PlaceFacts kFacts{.device = "Tarvo X1",
                        .serial = "S/9",
                        .taken = CalendarTime::of({2024, 6, 5, 7, 8, 9}),
                        .name = "TARV0042.JPG",
                        .folder = "DCIM/100TARVO"};

std::string placed(std::string_view pattern, const PlaceFacts& facts = kFacts) {
  const auto place = PlacePattern(pattern).placeOf(facts);
  return place ? place->folder + " | " + place->name : "none";
}

TEST(PlacementTest, TheFolderOfOrdersIsNoPlaceThatADeviceChooses) {
  for (const auto& [device, folder] :
       std::map<std::string, std::string>{{"Tarvo X1", "/p/Tarvo X1 orders"},
                                          {"../../etc", "/p/etc orders"},
                                          {".a", "/p/_a orders"}})
    EXPECT_EQ(importing::ordersFolder({.folder = "/p", .device = device}), folder);
}

TEST(PlacementTest, APatternNamesFolderAndFile) {
  const struct {
    const char* pattern;
    const char* place;
  } rows[] = {
      {"{device}/{date}/{name}", "Tarvo X1/2024-06-05 | TARV0042.JPG"},
      {"{year}/{month}/{day}-{time}/{stem}", "2024/06/05-070809 | TARV0042.JPG"},
      {"{name}", " | TARV0042.JPG"},
      {"{serial}/{date}_{number}_{stem}.{extension}", "S_9 | 2024-06-05_0042_TARV0042.JPG"},
      {"{folder}/{name}", "DCIM/100TARVO | TARV0042.JPG"},
      {".pictures/{name}", "_pictures | TARV0042.JPG"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(placed(row.pattern), row.place) << row.pattern;
}

TEST(PlacementTest, NothingThatADeviceSaysLeadsElsewhere) {
  const struct {
    const char* pattern;
    PlaceFacts facts;
    std::string place;
  } rows[] = {
      {"{device}/{date}/{name}", {.name = "A"}, "undated | A"},
      {"{device}/{name}", {.device = "../..", .name = "../../etc/passwd"}, "_._.. | passwd"},
      {"{device}/{name}", {.device = "..", .name = "a\nb"}, "_ | a_b"},
      {"{folder}/{name}", {.name = ".bashrc", .folder = "/../..//./x/"}, "_/_/_/x | _bashrc"},
      {"{device}/{stem}", {.device = "", .name = "README"}, " | README"},
      {"{number}/{stem}.{extension}", {.name = "1234."}, "1234 | 1234"},
      {"{name}", {.name = ".."}, "none"},
      {"{name}", {.name = ""}, "none"},
      {"{date}{stem}",
       {.name = std::string(260, 'x') + ".JPG"},
       " | undated" + std::string(244, 'x') + ".JPG"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(placed(row.pattern, row.facts), row.place) << row.pattern;
}

TEST(PlacementTest, APatternThatCannotBeMeantIsRefusedInWords) {
  const struct {
    const char* pattern;
    const char* why;
  } rows[] = {
      {"", "no empty part"},          {"/{name}", "no empty part"},
      {"a//{name}", "no empty part"}, {"{name}/", "no empty part"},
      {"../{name}", "is . or .."},    {"a/./{name}", "is . or .."},
      {"~/{name}", "not at home"},    {"{name}/{date}", "last part"},
      {"{date}", "last part"},        {"{Name}/{name}", "no {Name}"},
      {"{}/{name}", "no {}"},         {"{date/{name}", "no {date/{name}"},
      {"a}/{name}", "by itself"},     {"{name}{", "by itself"},
  };
  for (const auto& row : rows)
    EXPECT_THAT(raised([&] { PlacePattern pattern(row.pattern); }), testing::HasSubstr(row.why))
        << row.pattern;
}

TEST(GroupsTest, WhatBelongsTogetherIsOneGroupWithItsPictureFirst) {
  const std::vector<std::string> paths{"D/A.CR2", "D/A.JPG",  "E/a.jpg", "D/a.wav",
                                       "D/A.PNG", "D/a.xmp",  "D/M.THM", "D/M.MOV",
                                       "D/A.TXT", "D/.A.JPG", "x.y/A",   "x.y/A.JPG"};
  using Numbers = std::vector<std::size_t>;
  EXPECT_THAT(importing::groupsOf(paths),
              testing::ElementsAre(Numbers{1, 0, 3, 5}, Numbers{2}, Numbers{4}, Numbers{7, 6},
                                   Numbers{8}, Numbers{9}, Numbers{10}, Numbers{11}));
}

}  // namespace
}  // namespace tarvo::test

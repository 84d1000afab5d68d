// The two tables of file-name extensions, and where they differ.
#include <gtest/gtest.h>

#include "NativeServices/PictureDevice/FileTypeTables.h"

namespace tarvo::test {
namespace {

TEST(FileTypeTables, GiveEachExtensionItsTypeAndItsPTPFormat) {
  const struct {
    const char* extension;
    const char* type;
    std::uint16_t format;
  } rows[] = {
      {"jpg", "JPEG", 0x3801},  {"jpeg", "JPEG", 0x3801}, {"jpe", "JPEG", 0x3801},
      {"jfif", "JPEG", 0x3808}, {"jp2", "JPEG", 0x380F},  {"jpx", "JPEG", 0x3810},
      {"tif", "TIFF", 0x3802},  {"tiff", "TIFF", 0x3802}, {"fpx", "FPix", 0x3803},
      {"fpix", "FPix", 0x3000}, {"bmp", "BMPf", 0x3804},  {"gif", "GIFf", 0x3807},
      {"cif", "????", 0x3805},  {"pcd", "????", 0x3809},  {"pict", "PICT", 0x380A},
      {"png", "PNGf", 0x380B},  {"tdc", "TDC ", 0xB804},  {"mov", "MooV", 0x300D},
      {"avi", "VfW ", 0x300A},  {"mpg", "MPEG", 0x300B},  {"mpeg", "MPEG", 0x300B},
      {"asf", "????", 0x300C},  {"aif", "AIFF", 0x3007},  {"aiff", "AIFF", 0x3007},
      {"aifc", "AIFC", 0x3007}, {"wav", "WAVE", 0x3008},  {"wave", "WAVE", 0x3008},
      {"mp3", "????", 0x3009},  {"txt", "TEXT", 0x3004},  {"exe", "????", 0x3003},
      {"htm", "HTML", 0x3005},  {"html", "HTML", 0x3005}, {"fw", "????", 0xB001},
      {"bin", "????", 0xB001},  {"pak", "????", 0xB20C},  {"pof", "????", 0xB004},
      {"lcb", "????", 0xB005},  {"cfa", "????", 0xB801},  {"m3u", "TEXT", 0xB002},
      {"abk", "TEXT", 0xB003},  {"lid", "????", 0xB006},  {"how", "????", 0xB008},
      {"sbx", "????", 0xB00C},  {"JPG", "????", 0x3000},  {"", "????", 0x3000},
      {"jp", "????", 0x3000},   {".jpg", "????", 0x3000},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(fourCharText(fileTypeOfExtension(row.extension)), row.type) << row.extension;
    EXPECT_EQ(ptpFormatOfExtension(row.extension), row.format) << row.extension;
  }
}

}  // namespace
}  // namespace tarvo::test

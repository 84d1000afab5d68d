// The two tables of file-name extensions, and where they differ.
#include <gtest/gtest.h>

#include "platform/files/FileNames.h"

namespace tarvo::test {
namespace {

TEST(FileTypeTables, DifferOnPurposeInWhatTheyKnow) {
  const struct {
    const char* extension;
    const char* type;
    std::uint16_t format;
  } rows[] = {
      {"jpg", "JPEG", 0x3801},  {"jfif", "JPEG", 0x3808}, {"jp2", "JPEG", 0x380F},
      {"jpx", "JPEG", 0x3810},  {"fpx", "FPix", 0x3803},  {"fpix", "FPix", 0x3000},
      {"cif", "????", 0x3805},  {"tdc", "TDC ", 0xB804},  {"avi", "VfW ", 0x300A},
      {"aifc", "AIFC", 0x3007}, {"abk", "TEXT", 0xB003},  {"how", "????", 0xB008},
      {"JPG", "????", 0x3000},  {"", "????", 0x3000},     {".jpg", "????", 0x3000},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(fourCharText(fileTypeOfExtension(row.extension)), row.type) << row.extension;
    EXPECT_EQ(ptpFormatOfExtension(row.extension), row.format) << row.extension;
  }
}

}  // namespace
}  // namespace tarvo::test

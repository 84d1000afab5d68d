#include <gmock/gmock.h>
#include <libexif/exif-data.h>
#include <turbojpeg.h>

#include <cstdlib>
#include <cstring>

#include "import/CaptureDate.h"
#include "import/Thumbnail.h"
#include "simulator/description/Scenery.h"

namespace tarvo::test {
namespace {

using Bytes = std::vector<std::byte>;

/// Red on the left and blue on the right; in the upper half, brighter.
Bytes jpegOf(int width, int height, int flags = 0) {
  std::vector<unsigned char> pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const unsigned char light = y < height / 2 ? 250 : 100;
      const bool isLeft = x < width / 2;
      pixels.insert(pixels.end(), {static_cast<unsigned char>(isLeft ? light : 0), 0,
                                   static_cast<unsigned char>(isLeft ? 0 : light)});
    }
  }
  tjhandle encoder = ::tjInitCompress();
  unsigned char* jpeg = nullptr;
  unsigned long size = 0;
  EXPECT_EQ(::tjCompress2(encoder, pixels.data(), width, 0, height, TJPF_RGB, &jpeg, &size,
                          TJSAMP_420, 90, flags),
            0);
  const auto bytes = std::as_bytes(std::span(jpeg, size));
  Bytes result(bytes.begin(), bytes.end());
  ::tjFree(jpeg);
  ::tjDestroy(encoder);
  return result;
}

void addEntry(ExifData* data, ExifIfd part, ExifTag tag, ExifFormat format, const Bytes& content) {
  ExifEntry* entry = exif_entry_new();
  entry->tag = tag;
  entry->format = format;
  entry->size = static_cast<unsigned>(content.size());
  entry->components = format == EXIF_FORMAT_SHORT ? 1 : content.size();
  entry->data = static_cast<unsigned char*>(std::malloc(content.size()));
  std::memcpy(entry->data, content.data(), content.size());
  exif_content_add_entry(data->ifd[part], entry);
  exif_entry_unref(entry);
}

Bytes bytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

struct Facts {
  const char* original = nullptr;
  const char* digitised = nullptr;
  unsigned char orientation = 0;
  Bytes thumbnail{};
};

/// As it stands in a JPEG file behind its mark: "Exif", two zeroes, and a TIFF file.
Bytes exifOf(const Facts& facts) {
  ExifData* data = exif_data_new();
  exif_data_set_byte_order(data, EXIF_BYTE_ORDER_INTEL);
  const auto addDate = [&](ExifTag tag, const char* text) {
    if (text != nullptr)
      addEntry(data, EXIF_IFD_EXIF, tag, EXIF_FORMAT_ASCII, bytesOf({text, std::strlen(text) + 1}));
  };
  addDate(EXIF_TAG_DATE_TIME_ORIGINAL, facts.original);
  addDate(EXIF_TAG_DATE_TIME_DIGITIZED, facts.digitised);
  if (facts.orientation != 0)
    addEntry(data, EXIF_IFD_0, EXIF_TAG_ORIENTATION, EXIF_FORMAT_SHORT,
             {std::byte{facts.orientation}, std::byte{0}});
  if (!facts.thumbnail.empty()) {
    data->size = static_cast<unsigned>(facts.thumbnail.size());
    data->data = static_cast<unsigned char*>(std::malloc(data->size));
    std::memcpy(data->data, facts.thumbnail.data(), data->size);
  }
  unsigned char* block = nullptr;
  unsigned size = 0;
  exif_data_save_data(data, &block, &size);
  const auto bytes = std::as_bytes(std::span(block, size));
  Bytes result(bytes.begin(), bytes.end());
  std::free(block);
  exif_data_unref(data);
  return result;
}

Bytes withEXIF(Bytes jpeg, const Facts& facts) {
  const Bytes block = exifOf(facts);
  const std::size_t length = block.size() + 2;
  Bytes segment{std::byte{0xFF}, std::byte{0xE1}, static_cast<std::byte>(length >> 8U),
                static_cast<std::byte>(length)};
  segment.insert(segment.end(), block.begin(), block.end());
  jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
  return jpeg;
}

TEST(CaptureDateTest, ThePictureSaysWhenItWasTaken) {
  const struct {
    const char* original;
    const char* digitised;
    const char* day;
  } rows[] = {
      {"2024:06:15 12:00:00", "2024:07:01 12:00:00", "2024-06-15"},
      {nullptr, "2024:07:01 12:00:00", "2024-07-01"},
      {"0000:00:00 00:00:00", "2024:07:01 12:00:00", "2024-07-01"},
      {"2024:06:15", nullptr, "none"},
      {nullptr, nullptr, "none"},
  };
  for (const auto& row : rows) {
    const Facts facts{.original = row.original, .digitised = row.digitised};
    const Bytes raw = exifOf(facts);
    for (const Bytes& bytes :
         {withEXIF(jpegOf(16, 16), facts), Bytes(raw.begin() + 6, raw.end())}) {
      const auto taken = importing::captureDateOf(bytes);
      EXPECT_EQ(taken ? taken->day() : "none", row.day);
    }
  }
  EXPECT_EQ(importing::captureDateOf(jpegOf(16, 16)), std::nullopt);
}

/// "R", "B" and in small letters where it is dark, for the four corners from the upper left one.
std::string cornersOf(const importing::Thumbnail& picture) {
  std::string corners;
  for (const unsigned y : {picture.height / 4, picture.height * 3 / 4}) {
    for (const unsigned x : {picture.width / 4, picture.width * 3 / 4}) {
      const std::byte* pixel = &picture.pixels[3UL * (y * picture.width + x)];
      const bool isRed = pixel[0] > pixel[2];
      const bool isDark = std::max(pixel[0], pixel[2]) < std::byte{180};
      corners += isRed ? (isDark ? 'r' : 'R') : (isDark ? 'b' : 'B');
    }
  }
  return corners;
}

TEST(CaptureDateTest, APictureOfTheSimulatorSaysItToo) {
  const auto jpeg = simulator::sceneryJPEG(300, 200, "TARV0101.JPG", "20260801T091530");
  const auto bytes = std::as_bytes(std::span(jpeg));
  const auto taken = importing::captureDateOf(bytes);
  EXPECT_EQ(taken, CalendarTime::ofPTPDate("20260801T091530"));
  EXPECT_EQ(importing::thumbnailOf(bytes)->width, 256U);
}

TEST(ThumbnailTest, IsAtMostOf256PixelsWithTheShapeAndTheTurnOfThePicture) {
  const struct {
    Bytes jpeg;
    unsigned width, height;
    const char* corners;
  } rows[] = {
      {jpegOf(100, 40), 100, 40, "RBrb"},
      {jpegOf(257, 120), 256, 119, "RBrb"},
      {jpegOf(2000, 1000), 256, 128, "RBrb"},
      {jpegOf(900, 4000, TJFLAG_PROGRESSIVE), 57, 256, "RBrb"},
      {jpegOf(9000, 8), 256, 1, "rbrb"},
  };
  for (const auto& row : rows) {
    const auto picture = importing::thumbnailOf(row.jpeg);
    ASSERT_TRUE(picture) << row.width;
    EXPECT_EQ(picture->width, row.width);
    EXPECT_EQ(picture->height, row.height);
    ASSERT_EQ(picture->pixels.size(), 3UL * row.width * row.height);
    EXPECT_EQ(cornersOf(*picture), row.corners) << row.width;
  }
  const char* turns[] = {"RBrb", "BRbr", "brBR", "rbRB", "RrBb", "rRbB", "bBrR", "BbRr"};
  for (unsigned char i = 1; i <= 8; ++i) {
    const Bytes jpeg = withEXIF(jpegOf(64, 32), {.orientation = i});
    EXPECT_EQ(cornersOf(*importing::thumbnailOf(jpeg)), turns[i - 1]) << int{i};
    EXPECT_EQ(importing::thumbnailOf(jpeg)->width, i < 5 ? 64U : 32U);
  }
}

/// Where the frame of a JPEG file says how high and how wide it is.
void setSize(Bytes& jpeg, unsigned width, unsigned height) {
  const auto isFrame = [](std::byte first, std::byte second) {
    return first == std::byte{0xFF} && (second == std::byte{0xC0} || second == std::byte{0xC2});
  };
  const auto frame = std::ranges::adjacent_find(jpeg, isFrame);
  frame[5] = static_cast<std::byte>(height >> 8U);
  frame[6] = static_cast<std::byte>(height);
  frame[7] = static_cast<std::byte>(width >> 8U);
  frame[8] = static_cast<std::byte>(width);
}

TEST(ThumbnailTest, WhatIsTooLargeOrCutOrNoPictureIsRefusedOrShowsWhatCame) {
  for (const int flags : {0, TJFLAG_PROGRESSIVE}) {
    for (const unsigned side : {0U, 30'000U, 65'501U}) {
      Bytes jpeg = jpegOf(64, 64, flags);
      setSize(jpeg, side, side);
      EXPECT_FALSE(importing::thumbnailOf(jpeg)) << side;
    }
  }
  Bytes padded = jpegOf(64, 64, TJFLAG_PROGRESSIVE);
  setSize(padded, 30'000, 30'000);
  padded.resize(4UL << 20);
  EXPECT_FALSE(importing::thumbnailOf(padded)) << "it would take gigabytes";
  const Bytes small = jpegOf(32, 32);
  const Facts facts{.original = "2024:06:15 12:00:00", .orientation = 6, .thumbnail = small};
  const Bytes whole = withEXIF(jpegOf(64, 64), facts);
  EXPECT_EQ(importing::embeddedThumbnail(whole), small);
  unsigned shown = 0;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    if (const auto picture = importing::thumbnailOf(cut)) ++shown;
    const auto taken = importing::captureDateOf(cut);
    EXPECT_TRUE(!taken || taken->day() == "2024-06-15");
    EXPECT_LE(importing::embeddedThumbnail(cut).size(), small.size());
  }
  EXPECT_GT(shown, 0U);
}

}  // namespace
}  // namespace tarvo::test

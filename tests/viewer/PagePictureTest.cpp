#include "viewer/window/PagePicture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/TemporaryFolder.h"

namespace tarvo::viewer {
namespace {

std::string pictureOf(int width, int height, const char* kind) {
  const GObjectPtr<GdkPixbuf> pixels(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height));
  gdk_pixbuf_fill(pixels.get(), 0x3060A0FF);
  char* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixels.get(), &bytes, &size, kind, nullptr, nullptr);
  std::string content(bytes, size);
  g_free(bytes);
  return content;
}

TEST(PagePicture, IsShownWithinItsBoundsAlone) {
  const test::TemporaryFolder folder;
  const auto small = pictureOf(40, 30, "png");
  const auto path = folder.write("small.png", small);
  std::filesystem::create_symlink(path, folder.path("link.png"));
  ASSERT_EQ(::mkfifo(folder.path("pipe.png").c_str(), 0600), 0);
  auto huge = small;
  huge.replace(16, 8, std::string("\0\0\x75\x30\0\0\x75\x30", 8));  // 30,000 pixels a side
  const struct {
    std::string path;
    int width;  ///< 0: not shown
  } kCases[] = {
      {path, 40},
      {folder.write("large.jpg", pictureOf(2048, 4, "jpeg")), 760},
      {folder.write("too_wide.png", pictureOf(2049, 1, "png")), 0},
      {folder.write("too_high.jpg", pictureOf(1, 2049, "jpeg")), 0},
      {folder.write("huge.png", huge), 0},
      {folder.write("cut.png", small.substr(0, 20)), 0},
      {folder.write("much.png", small + std::string(kMostPictureBytes, '\0')), 0},
      {folder.write("text.png", "no picture"), 0},
      {folder.write("vector.svg", "<svg xmlns='http://www.w3.org/2000/svg'/>"), 0},
      {folder.path("none.png"), 0},
      {folder.path("link.png"), 0},
      {folder.path("pipe.png"), 0},
      {folder.path(), 0},
  };
  for (const auto& row : kCases) {
    const auto texture = loadPicture(row.path);
    EXPECT_EQ(texture ? gdk_texture_get_width(texture.get()) : 0, row.width) << row.path;
  }
}

}  // namespace
}  // namespace tarvo::viewer

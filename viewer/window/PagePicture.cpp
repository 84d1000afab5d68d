#include "viewer/window/PagePicture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "Utilities/FileDescriptor.h"

namespace tarvo::viewer {

namespace {

/// What it is by its first bytes: of all that the library knows, these alone are let near it.
const char* kindOf(std::string_view content) {
  if (content.starts_with("\x89PNG\r\n\x1a\n")) return "png";
  if (content.starts_with("\xff\xd8\xff")) return "jpeg";
  if (content.starts_with("GIF8")) return "gif";
  return nullptr;
}

std::string contentOf(const std::string& path) {
  const FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  if (status.st_size > static_cast<off_t>(kMostPictureBytes)) return "";
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  const auto size = ::read(file.get(), content.data(), content.size());
  content.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return content;
}

/// Runs once the size is known and before there is memory for it.
void prepared(GdkPixbufLoader* loader, int width, int height, gpointer isTooLarge) {
  const int side = std::max(width, height);
  if (side > kMostPictureSide) {
    *static_cast<bool*>(isTooLarge) = true;
    gdk_pixbuf_loader_set_size(loader, 0, 0);
  } else if (side > kMostShownSide) {
    gdk_pixbuf_loader_set_size(loader, std::max(width * kMostShownSide / side, 1),
                               std::max(height * kMostShownSide / side, 1));
  }
}

}  // namespace

GObjectPtr<GdkTexture> loadPicture(const std::string& path) {
  const std::string content = contentOf(path);
  const char* kind = kindOf(content);
  if (kind == nullptr) return {};
  const GObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new_with_type(kind, nullptr));
  if (!loader) return {};
  bool isTooLarge = false;
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(prepared), &isTooLarge);
  const auto* bytes = reinterpret_cast<const guchar*>(content.data());
  bool isWhole = gdk_pixbuf_loader_write(loader.get(), bytes, content.size(), nullptr) != 0;
  // It has to be closed in any case.
  isWhole = gdk_pixbuf_loader_close(loader.get(), nullptr) != 0 && isWhole;
  GdkPixbuf* pixels = isWhole && !isTooLarge ? gdk_pixbuf_loader_get_pixbuf(loader.get()) : nullptr;
  return GObjectPtr<GdkTexture>(pixels != nullptr ? gdk_texture_new_for_pixbuf(pixels) : nullptr);
}

}  // namespace tarvo::viewer

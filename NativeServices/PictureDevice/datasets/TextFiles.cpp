#include "NativeServices/PictureDevice/datasets/TextFiles.h"

#include <algorithm>
#include <utility>

#include "NativeServices/Logging.h"
#include "platform/foundation/GlibPtr.h"
#include "platform/foundation/KeyFile.h"

namespace tarvo {
namespace {

/// Encodings that a file tells by its first bytes (Unicode, "Byte Order Mark").
constexpr std::pair<std::string_view, const char*> kByteOrderMarks[] = {
    {"\xEF\xBB\xBF", "UTF-8"},
    {"\xFF\xFE", "UTF-16LE"},
    {"\xFE\xFF", "UTF-16BE"},
};

}  // namespace

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text, [](unsigned char byte) { return byte < 0x80; });
}

std::optional<std::string> textInEncoding(std::string_view bytes, const std::string& encoding) {
  // GLib takes a null pointer for a mistake of its caller.
  if (bytes.empty()) return std::string();
  gsize length = 0;
  // A sequence that is cut off at the end fails too, since nobody asks how much was read.
  const GCharPtr text(g_convert(bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8",
                                encoding.c_str(), nullptr, &length, nullptr));
  return text ? std::optional(std::string(text.get(), length)) : std::nullopt;
}

std::optional<std::string> plainText(std::string_view bytes, const std::string& encoding) {
  for (const auto& [mark, name] : kByteOrderMarks) {
    // A file that says what it is and is not is damaged: no other encoding is tried.
    if (bytes.starts_with(mark)) return textInEncoding(bytes.substr(mark.size()), name);
  }
  // Text in an 8-bit encoding is hardly ever valid UTF-8 by chance.
  auto text = textInEncoding(bytes, "UTF-8");
  return text ? text : textInEncoding(bytes, encoding);
}

namespace {

std::optional<std::string> contentOf(const std::string& path) {
  std::string reason;
  auto content = readWholeFile(path, kMostBytesOfTextFile, &reason);
  if (!content) TraceLog::trace("text file %s cannot be read: %s", path.c_str(), reason.c_str());
  return content;
}

}  // namespace

std::optional<std::string> textFileInEncoding(const std::string& path,
                                              const std::string& encoding) {
  const auto bytes = contentOf(path);
  return bytes ? textInEncoding(*bytes, encoding) : std::nullopt;
}

std::optional<std::string> plainTextFile(const std::string& path, const std::string& encoding) {
  const auto bytes = contentOf(path);
  return bytes ? plainText(*bytes, encoding) : std::nullopt;
}

}  // namespace tarvo

#include "tools/RecordCommands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Exception.h"
#include "tools/Words.h"

namespace tarvo::tools {
namespace {

/// No data set is larger; what is may be a disk image or a device that never ends.
constexpr std::size_t kLargestFile = 64U << 20;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

Failure unreadable(const std::string& operation, const std::string& path, int error) {
  return {.operation = operation,
          .object = path,
          .status = error == ENOENT ? status::kFileNotFound : status::kIOError,
          .why = std::strerror(error),
          .advice = "Check the name."};
}

/// To the end of the stream. Raises a ToolError.
std::vector<std::byte> contentOf(std::FILE* file, const std::string& operation,
                                 const std::string& path) {
  std::vector<std::byte> content;
  std::array<std::byte, 65536> piece{};
  while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file)) {
    content.insert(content.end(), piece.begin(), piece.begin() + static_cast<long>(length));
    if (content.size() > kLargestFile)
      throw ToolError({.operation = operation, .object = path, .why = "it is larger than 64 MB"});
  }
  if (std::ferror(file) != 0) throw ToolError(unreadable(operation, path, errno));
  return content;
}

std::vector<std::byte> read(const ToolContext& context, const std::string& operation,
                            const std::string& path) {
  if (path == "-") return contentOf(context.input, operation, "standard input");
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
  if (!file) throw ToolError(unreadable(operation, path, errno));
  return contentOf(file.get(), operation, path);
}

const RecordType& typeOf(const std::string& operation, const std::string& name) {
  const RecordType* type = recordType(name);
  if (type) return *type;
  std::string known;
  for (const auto& each : recordTypes())
    known += (known.empty() ? "" : ", ") + std::string(each.name);
  refuseUsage(operation, "'" + name + "' is no type; there are " + known);
}

/// Runs `convert` on what lies in `path`; what it raises is a failure of that file.
template <typename Convert>
auto converted(const ToolContext& context, const std::string& operation, const std::string& path,
               const Convert& convert) {
  const auto content = read(context, operation, path);
  const auto fail = [&](const std::string& why) -> ToolError {
    return ToolError({.operation = operation, .object = path, .why = why});
  };
  try {
    return convert(content);
  } catch (const Exception& exception) {
    throw fail(exception.reason());
  } catch (const PropertyDictionary::exception& exception) {
    throw fail(exception.what());
  }
}

PropertyDictionary decoded(const ToolContext& context, const RecordType& type,
                           const std::string& path) {
  return converted(context, "decode", path,
                   [&](const std::vector<std::byte>& content) { return type.decode(content); });
}

std::vector<std::byte> encoded(const ToolContext& context, const RecordType& type,
                               const std::string& path) {
  return converted(context, "encode", path, [&](const std::vector<std::byte>& content) {
    const auto* text = reinterpret_cast<const char*>(content.data());
    return type.encode(PropertyDictionary::parse(text, text + content.size()));
  });
}

}  // namespace

int runDecode(ToolContext& context, const RecordOptions& options) {
  const RecordType& type = typeOf("decode", options.type);
  if (options.files.size() == 1) {
    context.output.document(decoded(context, type, options.files.front()));
    return kDone;
  }
  int exitCode = kDone;
  auto documents = PropertyDictionary::array();
  for (const auto& path : options.files) {
    try {
      documents.push_back(decoded(context, type, path));
    } catch (const ToolError& error) {
      documents.push_back({{"error", asJSON(error.failure())}});
      context.output.objectError(error.failure());
      exitCode = kFailed;
    }
  }
  context.output.document(documents);
  return exitCode;
}

int runEncode(ToolContext& context, const RecordOptions& options) {
  const RecordType& type = typeOf("encode", options.type);
  std::vector<std::byte> all;
  for (const auto& path : options.files) {
    const auto bytes = encoded(context, type, path);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  context.output.bytes(all);
  return kDone;
}

std::string recordTypeHelp() {
  std::size_t width = 0;
  for (const auto& type : recordTypes())
    width = std::max(width, type.name.size());
  std::string help;
  for (const auto& type : recordTypes())
    help +=
        "  " + padded(std::string(type.name), width) + "  " + std::string(type.description) + "\n";
  return help;
}

}  // namespace tarvo::tools

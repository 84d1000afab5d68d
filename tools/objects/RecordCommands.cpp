#include "tools/objects/RecordCommands.h"

#include <algorithm>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Exception.h"
#include "tools/access/ToolContext.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

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
  const auto content = readInput(context, operation, path);
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

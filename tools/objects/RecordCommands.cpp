// decode and encode: data sets as JSON and back, without a device.
#include <algorithm>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "Utilities/Exception.h"
#include "Utilities/JSONReader.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct RecordOptions {
  std::string type{};  ///< that of a record type
  /// Paths; "-" is standard input. Not empty.
  std::vector<std::string> files{};
};

/// Runs `convert` on what lies in `path`; what it raises is a failure of that file.
template <typename Convert>
auto converted(const std::string& path, const Convert& convert) {
  // Bytes come from anywhere: what the codec raises is a fault of the file and not of the program.
  try {
    return convert();
  } catch (const Exception& exception) {
    throw ToolError({.object = path, .why = exception.reason()});
  }
}

PropertyDictionary decoded(const ToolContext& context, const RecordType& type,
                           const std::string& path) {
  return converted(path, [&] { return type.decode(readInput(context, path)); });
}

std::vector<std::byte> encoded(const ToolContext& context, const RecordType& type,
                               const std::string& path) {
  return converted(path, [&] { return type.encode(jsonFromText(readInputText(context, path))); });
}

/// One file gives its JSON document, several an array of them in their order. What cannot be
/// decoded is an entry with the key "error" in such an array, and makes the exit status kFailed.
int runDecode(ToolContext& context, const RecordOptions& options) {
  const RecordType& type = *recordType(options.type);
  // One document for one file, so that 'decode' and 'encode' are inverses in a pipe.
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
      Failure failure = error.failure();
      failure.operation = context.operation;
      documents.push_back({{"error", asJSON(failure)}});
      context.output.objectError(failure);
      exitCode = kFailed;
    }
  }
  context.output.document(documents);
  return exitCode;
}

/// The bytes of one JSON document a file, one behind the other, in either form of output. Nothing
/// is written unless all of them can be.
void runEncode(ToolContext& context, const RecordOptions& options) {
  const RecordType& type = *recordType(options.type);
  std::vector<std::byte> all;
  // All before the first byte goes out.
  for (const auto& path : options.files) {
    const auto bytes = encoded(context, type, path);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  context.output.text({reinterpret_cast<const char*>(all.data()), all.size()});
}

/// Names and descriptions of all types, one a line, for help texts.
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

}  // namespace

void addRecordCommands(CommandGroup& root) {
  std::vector<std::string> types;
  for (const auto& type : recordTypes())
    types.emplace_back(type.name);
  const auto add = [&](CommandWithOptions<RecordOptions> command) {
    command.words.required("TYPE", command.options.type, "What the bytes are")
        .oneOf(types)
        .required("FILE", command.options.files, "Files; '-' is standard input")
        .more(
            "One file gives one result, several one after the other. A contact is encoded as\n"
            "it would be sent to a device: without its picture and its groups, with two lines\n"
            "of its street, and with a new GUID where it has none.\n\nTypes:\n" +
            recordTypeHelp());
  };
  add(root.command("decode", "Show the bytes of a data set as JSON",
                   "tarvoctl decode objectinfo object.bin", runDecode));
  add(root.command("encode", "Write the bytes of a data set that is given as JSON",
                   "tarvoctl encode objectinfo object.json", runEncode));
}

}  // namespace tarvo::tools

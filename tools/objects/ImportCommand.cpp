// import: what is new on a camera or a card, into folders by date. A program of its own does it:
// what it needs for pictures and its history would be loaded by every command.
#include "tools/objects/ImportCommand.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/access/LocalFiles.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {

namespace {

constexpr const char* kProgram = "tarvo-import";

/// Goes on as the program that does it, which reads the same words.
int importByProgram(ToolContext& context, const ImportCommandOptions& options) {
  if (context.import) return context.import(context, options);
  endIfInterrupted(context);
  const std::string path = ownProgram(kProgram);
  ::execv(path.c_str(), context.arguments);
  throw ToolError({.object = path,
                   .status = status::kIOError,
                   .why = std::strerror(errno),
                   .advice = "Install it anew, with tarvoctl."});
}

}  // namespace

void addImportCommand(CommandGroup& root) {
  auto [command, options] = root.command("import", "Fetch what is new into folders by date",
                                         "tarvoctl import --dry-run", importByProgram);
  command.operand("OBJECT", options.objects, "Names, or patterns such as '*.JPG'; all that is new")
      .flag("--pictures", options.pictures, "Pictures alone, with their sound notes")
      .flag("--films", options.films, "Films alone")
      .flag("--all-files", options.allFiles, "Whatever the kind")
      .option("--since", options.since, "DATE", "Taken on that day or later")
      .option("--output", options.output, "DIR", "In place of your folder for pictures")
      .option("--pattern", options.pattern, "PATTERN",
              "Folders and name below it; {device}/{date}/{name}")
      .flag("--dry-run", options.dryRun, "Say what would be done, and do nothing")
      .flag("--verify", options.verifies, "Read each file back from the disk and compare")
      .flag("--delete", options.deletes, "Delete from the device what was fetched")
      .flag("--yes", options.yes, "Do not ask")
      .needs("--delete")
      .flag("--set-clock", options.setsClock, "Set the camera's clock first")
      .flag("--orders", options.orders, "Fetch and fulfil the orders on the camera, too")
      .option("--progress", options.progress, "FORM",
              "json: a conversation of JSON lines, for other programs")
      .oneOf({"json"})
      .more(
          "New is what was not imported before, by name, size and date, whether it comes\n"
          "by the camera or on its card, and does not lie at its place. What belongs\n"
          "together, as a picture and its raw one, goes together. Nothing is replaced: a\n"
          "name that is taken gets a number. Each file is whole or not there, and is\n"
          "flushed to the disk before it is remembered or deleted from the device;\n"
          "protected objects stay there. The same command goes on where one was ended.\n"
          "A pattern has {device}, {serial}, {date}, {year}, {month}, {day}, {time},\n"
          "{name}, {stem}, {number}, {extension} and {folder}, the one on the device.");
}

}  // namespace tarvo::tools

#include "agent/AgentCommandLine.h"

#include <glib.h>

#include <cstdio>

#include "platform/foundation/GlibPtr.h"

namespace tarvo {
namespace {

using OptionContextPtr = std::unique_ptr<GOptionContext, GlibRelease<g_option_context_free>>;

OptionContextPtr makeContext(const GOptionEntry* entries) {
  OptionContextPtr context(g_option_context_new(nullptr));
  g_option_context_set_summary(context.get(),
                               "Starts the Relay application when a Tarvo device arrives.");
  // GLib's own help would end the process in the middle of the parse.
  g_option_context_set_help_enabled(context.get(), FALSE);
  g_option_context_add_main_entries(context.get(), entries, nullptr);
  return context;
}

AgentCommandLine usageError(const char* reason) {
  std::fprintf(stderr, "tarvo-agent: %s\nTry \"tarvo-agent --help\".\n", reason);
  return {{}, kExitUsage};
}

}  // namespace

AgentCommandLine readAgentCommandLine(int argc, char** argv, const char* version) {
  char* configFile = nullptr;
  gboolean showVersion = FALSE;
  gboolean showHelp = FALSE;
  const GOptionEntry entries[] = {
      {"config", 0, 0, G_OPTION_ARG_FILENAME, &configFile,
       "Read FILE in place of your own preferences", "FILE"},
      {"version", 0, 0, G_OPTION_ARG_NONE, &showVersion, "Print the version and exit", nullptr},
      {"help", 'h', 0, G_OPTION_ARG_NONE, &showHelp, "Print this help and exit", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  const OptionContextPtr context = makeContext(entries);
  GErrorHolder error;
  const bool understood = g_option_context_parse(context.get(), &argc, &argv, error.out());
  const GCharPtr configFileOwner(configFile);  // set also when a later argument was refused
  if (!understood) return usageError(error.message().c_str());
  // GOption takes its options out of argv and leaves what is none.
  if (argc > 1) return usageError(("unexpected argument " + std::string(argv[1])).c_str());
  if (showHelp) {
    std::fputs(takeText(g_option_context_get_help(context.get(), TRUE, nullptr)).c_str(), stdout);
    return {{}, kExitNormal};
  }
  if (showVersion) {
    std::printf("tarvo-agent %s\n", version);
    return {{}, kExitNormal};
  }
  AgentCommandLine commandLine;
  commandLine.options.version = version;
  if (configFile) commandLine.options.configFile = configFile;
  return commandLine;
}

}  // namespace tarvo

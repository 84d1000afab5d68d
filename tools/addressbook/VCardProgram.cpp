#include "tools/addressbook/VCardProgram.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/foundation/GlibPtr.h"
#include "tools/output/ToolError.h"

namespace tarvo::tools {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "tarvo-vcard";

using GBytesPtr = std::unique_ptr<GBytes, GlibRelease<g_bytes_unref>>;

std::string programPath() {
  if (const char* named = std::getenv("TARVO_VCARD"); named && *named != '\0') return named;
  std::error_code error;
  const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / kName;
  if (!error && fs::exists(beside, error)) return beside.string();
  return std::string(TARVO_LIBEXEC) + "/" + kName;
}

ToolError failure(const std::string& operation, const std::string& object, const std::string& why,
                  const std::string& advice) {
  return ToolError(
      {.operation = operation, .object = object, .why = "vCards: " + why, .advice = advice});
}

}  // namespace

std::string runVCardProgram(const std::string& operation, const std::string& object,
                            const std::string& mode, const std::string& input) {
  const std::string path = programPath();
  GErrorHolder error;
  const GObjectPtr<GSubprocess> child(g_subprocess_new(
      static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE | G_SUBPROCESS_FLAGS_STDOUT_PIPE),
      error.out(), path.c_str(), mode.c_str(), nullptr));
  if (!child)
    throw failure(operation, object, error.message(),
                  "Install tarvo-vcard, or use JSON (--format json).");
  const GBytesPtr given(g_bytes_new(input.data(), input.size()));
  GBytes* said = nullptr;
  const bool communicated =
      g_subprocess_communicate(child.get(), given.get(), nullptr, &said, nullptr, error.out()) != 0;
  const GBytesPtr answer(said);
  // A file that costs too much time or memory ends the program, which is what the limits are for.
  if (!communicated || g_subprocess_get_successful(child.get()) == 0)
    throw failure(operation, object, "the file cannot be read as vCards",
                  "Export it anew from the program that it comes from.");
  gsize size = 0;
  const void* bytes = g_bytes_get_data(answer.get(), &size);
  return size == 0 ? std::string() : std::string(static_cast<const char*>(bytes), size);
}

}  // namespace tarvo::tools

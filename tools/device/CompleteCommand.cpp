// complete: what a shell offers of a device, for the completion scripts.
#include <sys/time.h>

#include <csignal>
#include <string>

#include "Utilities/Printable.h"
#include "tools/access/Devices.h"
#include "tools/access/ToolContext.h"
#include "tools/command/CommandGroup.h"
#include "tools/output/Output.h"
#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

struct CompleteOptions {
  std::string kind{};
  std::string begun{};  ///< the word as far as it was typed
};

constexpr suseconds_t kOrderly = 800'000;
constexpr suseconds_t kAfterThat = 150'000;
/// A shell shows no more in any useful way.
constexpr std::size_t kMostOffered = 500;

/// Who presses the tabulator waits for a second at most: what is asked of a device is ended in
/// order as by Ctrl-C, and if that takes too long at once, as by the second one.
class Deadline {
 public:
  Deadline() : before_(std::signal(SIGALRM, [](int) { ::raise(SIGINT); })) {
    set({.it_interval = {.tv_sec = 0, .tv_usec = kAfterThat},
         .it_value = {.tv_sec = 0, .tv_usec = kOrderly}});
  }
  ~Deadline() {
    set({});
    std::signal(SIGALRM, before_);
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  static void set(const itimerval& when) { ::setitimer(ITIMER_REAL, &when, nullptr); }

  using Handler = void (*)(int);
  Handler before_;
};

/// One answer: a word a line, and behind a tabulator what it is.
class Completing {
 public:
  Completing(ToolContext& context, const CompleteOptions& options)
      : context_(context), options_(options) {}

  void run() {
    if (options_.kind == "device") return devices();
    if (options_.kind == "object") return objects();
    Device device = openCamera(context_);
    if (options_.kind == "property") properties(device);
    if (options_.kind == "store") stores(device);
  }

 private:
  void offer(const std::string& word, const std::string& what) {
    // What is no plain text cannot be typed.
    if (word.empty() || word != printable(word) || !word.starts_with(options_.begun)) return;
    ++offered_;
    context_.output.text(word + "\t" + printable(what) + "\n");
  }

  void devices() {
    for (const auto& device : context_.session().devices())
      offer(device.serial().empty() ? locationInHex(device.location()) : device.serial(),
            device.name());
    for (const auto& unit : context_.session().units())
      offer(unit.serial().empty() ? locationInHex(unit.location()) : unit.serial(), unit.name());
  }

  void properties(Device& device) {
    for (const std::uint16_t code : device.facts().properties())
      offer(propertyName(code), "");
  }

  void stores(Device& device) {
    for (const std::uint32_t id : device.storeIDs()) {
      const std::string label = device.store(id).label();
      const bool isWord = !label.empty() && label.find(' ') == std::string::npos;
      offer(isWord ? label : handleText(id), isWord ? handleText(id) : label);
    }
  }

  /// Of a card, too.
  void objects() {
    Device device = openDevice(context_);
    const bool isPath = options_.begun.find('/') != std::string::npos;
    device.visit(ObjectQuery().recursive(),
                 ObjectVisitor([&](const ObjectInfo& object) {
                   offer(isPath ? object.path() : object.name(), formatInWords(object.format()));
                   return offered_ < kMostOffered;
                 }).onUnreadable([](auto, const auto&, const auto&) { return true; }));
  }

  ToolContext& context_;
  const CompleteOptions& options_;
  std::size_t offered_ = 0;
};

/// A shell has no place for messages: what fails offers nothing.
int runComplete(ToolContext& context, const CompleteOptions& options) {
  const Deadline deadline;
  try {
    Completing(context, options).run();
    return kDone;
  } catch (const Error&) {
    return kFailed;
  } catch (const ToolError&) {
    return kFailed;
  }
}

}  // namespace

void addCompleteCommand(CommandGroup& root) {
  auto [command, options] = root.command("complete", "What a shell offers of a device",
                                         "tarvoctl complete device", runComplete);
  command.required("KIND", options.kind, "What is wanted")
      .oneOf({"device", "property", "store", "object"})
      .operand("WORD", options.begun, "As far as it was typed")
      .hidden();
}

}  // namespace tarvo::tools

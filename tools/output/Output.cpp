#include "tools/output/Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/output/Words.h"

namespace tarvo::tools {
namespace {

/// Colours are for a terminal that knows them, and not for who says no (https://no-color.org).
bool wantsColours(std::FILE* stream) {
  const char* refused = std::getenv("NO_COLOR");
  if (refused && *refused != '\0') return false;
  const char* terminal = std::getenv("TERM");
  if (!terminal || std::strcmp(terminal, "dumb") == 0) return false;
  return ::isatty(::fileno(stream)) == 1;
}

bool isTerminal(std::FILE* stream) {
  return ::isatty(::fileno(stream)) == 1;
}

std::string dumped(const PropertyDictionary& json, int indent) {
  // Names of objects come from devices: what is no text must not end the command.
  return json.dump(indent, ' ', false, PropertyDictionary::error_handler_t::replace);
}

}  // namespace

Output::Output(std::FILE* out, std::FILE* err, const GlobalOptions& options)
    : out_(out),
      err_(err),
      json_(options.json),
      quiet_(options.quiet),
      outIsTerminal_(isTerminal(out)),
      outHasColours_(wantsColours(out)),
      errHasColours_(wantsColours(err)),
      errIsTerminal_(isTerminal(err)) {}

std::string Output::bold(const std::string& text) const {
  return outHasColours_ ? "\033[1m" + text + "\033[0m" : text;
}

void Output::stepAside() const {
  if (beforeWriting_) beforeWriting_();
}

void Output::check(bool succeeded) {
  if (succeeded) return;
  if (errno == EPIPE) throw BrokenPipe();
  throw ToolError(
      {.object = "standard output", .status = status::kIOError, .why = std::strerror(errno)});
}

void Output::write(std::string_view data) {
  stepAside();
  check(std::fwrite(data.data(), 1, data.size(), out_) == data.size());
  // At once: what comes next may take a device its time, and who reads is not to wait for it.
  if (!gathers_) flush();
}

void Output::flush() {
  check(std::fflush(out_) == 0);
}

void Output::line(const std::string& text) {
  if (!json_) write(text + "\n");
}

void Output::bytes(std::span<const std::byte> data) {
  text({reinterpret_cast<const char*>(data.data()), data.size()});
}

void Output::text(std::string_view data) {
  hasDocument_ = true;
  write(data);
}

void Output::document(const PropertyDictionary& json) {
  hasDocument_ = true;
  write(dumped(json, 2) + "\n");
}

void Output::beginList() {
  if (!json_) return;
  hasDocument_ = true;
  listIsOpen_ = true;
  listIsEmpty_ = true;
}

void Output::item(const PropertyDictionary& json) {
  if (!json_) return;
  write((listIsEmpty_ ? "[\n  " : ",\n  ") + dumped(json, -1));
  listIsEmpty_ = false;
}

void Output::endList() {
  if (!listIsOpen_) return;
  listIsOpen_ = false;
  write(listIsEmpty_ ? "[]\n" : "\n]\n");
}

void Output::writeError(const std::string& text) {
  stepAside();
  // Where both go to one place, in the order in which they were said.
  if (gathers_) std::fflush(out_);
  beside(text + "\n");
}

void Output::beside(const std::string& text) {
  std::fputs(text.c_str(), err_);
  std::fflush(err_);
}

void Output::message(const std::string& text) {
  if (!quiet_ && !json_) writeError(printable(text));
}

void Output::error(const Failure& failure) {
  if (!json_) {
    objectError(failure);
    return;
  }
  const PropertyDictionary said = {{"error", asJSON(failure)}};
  if (listIsOpen_ && !listIsEmpty_) {
    item(said);
    endList();
  } else if (listIsOpen_) {
    // Nothing of the list has been said, so that the failure is all there is.
    listIsOpen_ = false;
    document(said);
  } else if (!hasDocument_) {
    document(said);
  }
}

void Output::objectError(const Failure& failure) {
  if (json_) return;
  const std::string name = errHasColours_ ? "\033[1;31mtarvoctl:\033[0m " : "tarvoctl: ";
  writeError(name + inWords(failure));
}

}  // namespace tarvo::tools

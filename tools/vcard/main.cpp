// tarvo-vcard: vCards from standard input as JSON on standard output ("read"), or the reverse
// ("write"). tarvoctl starts it for the moment; see tools/addressbook/VCard.h for the JSON.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "Utilities/Exception.h"
#include "Utilities/JSONReader.h"
#include "tools/vcard/CardText.h"
#include "tools/vcard/Lockdown.h"

namespace {

using namespace tarvo::vcard;

/// All of standard input, or one byte more than there may be. By the system's own calls, for
/// streams ask the kernel more.
std::string readInput() {
  std::string input;
  std::array<char, 65536> piece = {};
  while (input.size() <= kMostBytes) {
    const ssize_t length = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw std::system_error(errno, std::generic_category(), "standard input");
    if (length == 0) break;
    input.append(piece.data(), static_cast<std::size_t>(length));
  }
  return input;
}

void writeOutput(std::string_view text) {
  while (!text.empty()) {
    const ssize_t length = ::write(STDOUT_FILENO, text.data(), text.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw std::system_error(errno, std::generic_category(), "standard output");
    text.remove_prefix(static_cast<std::size_t>(length));
  }
}

std::string answerTo(const std::string& input, bool reads) {
  if (!reads) return textFromCards(tarvo::jsonFromText(input));
  return cardsFromText(input).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

int run(bool reads) {
  const CardLibrary library;
#ifdef TARVO_VCARD_LOCKED
  lockDown();
#endif
  const std::string input = readInput();
  if (input.size() > kMostBytes) return kTooMuch;
  const std::string answer = answerTo(input, reads);
  if (answer.size() > kMostBytes) return kTooMuch;
  writeOutput(answer);
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc == 2 ? argv[1] : "";
  if (mode != "read" && mode != "write") {
    std::fputs("usage: tarvo-vcard read|write < input > output\n", stderr);
    return kBadUsage;
  }
  try {
    return run(mode == "read");
  } catch (const tarvo::Exception&) {
    return kTooMuch;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "tarvo-vcard: %s\n", exception.what());
    return kFailed;
  }
}

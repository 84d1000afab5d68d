// A PTP conversation with a device that does whatever the input says: it must end, and nothing may
// be written beyond the room that was given.
#include <cstdlib>

#include "fuzz/RandomConversation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tarvo::test::RandomConversation conversation(std::span(data, size));
  if (!conversation.keptToTheRoom()) std::abort();
  return 0;
}

#include "import/Fingerprint.h"

#include <fcntl.h>
#include <unistd.h>
#include <xxhash.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>

#include "Utilities/Format.h"

namespace tarvo::importing {
namespace {

/// Stays in the processor's cache between the copy and the sum.
constexpr std::size_t kAtOnce = 1UL << 16;

struct StateCloser {
  void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

}  // namespace

std::optional<std::string> fingerprintOf(int descriptor) {
  const std::unique_ptr<XXH3_state_t, StateCloser> state(XXH3_createState());
  if (!state) throw std::bad_alloc();
  XXH3_128bits_reset(state.get());
  (void)::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
  std::array<std::byte, kAtOnce> buffer;
  for (::off_t place = 0;;) {
    const ::ssize_t count = ::pread(descriptor, buffer.data(), buffer.size(), place);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    XXH3_128bits_update(state.get(), buffer.data(), static_cast<std::size_t>(count));
    place += count;
  }
  const XXH128_hash_t hash = XXH3_128bits_digest(state.get());
  return formatted("%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                   static_cast<unsigned long long>(hash.low64));
}

}  // namespace tarvo::importing

#include "import/Fingerprint.h"

#include <fcntl.h>
#include <unistd.h>
#include <xxhash.h>

#include <array>
#include <cerrno>
#include <new>

#include "Utilities/Format.h"

namespace tarvo::importing {
namespace {

/// Stays in the processor's cache between the copy and the sum.
constexpr std::size_t kAtOnce = 1UL << 16;

}  // namespace

void Fingerprint::Closer::operator()(XXH3_state_s* state) const {
  XXH3_freeState(state);
}

Fingerprint::Fingerprint() : state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  XXH3_128bits_reset(state_.get());
}

void Fingerprint::add(std::uint64_t offset, std::span<const std::byte> bytes) {
  isBroken_ = isBroken_ || offset != size_;
  size_ += bytes.size();
  XXH3_128bits_update(state_.get(), bytes.data(), bytes.size());
}

std::optional<std::string> Fingerprint::of(std::uint64_t size) const {
  if (isBroken_ || size != size_) return std::nullopt;
  const XXH128_hash_t hash = XXH3_128bits_digest(state_.get());
  return formatted("%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                   static_cast<unsigned long long>(hash.low64));
}

std::optional<std::string> fingerprintOf(int descriptor) {
  Fingerprint fingerprint;
  (void)::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
  std::array<std::byte, kAtOnce> buffer;
  for (std::uint64_t place = 0;;) {
    const ssize_t count =
        ::pread(descriptor, buffer.data(), buffer.size(), static_cast<off_t>(place));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) return fingerprint.of(place);
    fingerprint.add(place, std::span(buffer).first(static_cast<std::size_t>(count)));
    place += static_cast<std::uint64_t>(count);
  }
}

}  // namespace tarvo::importing

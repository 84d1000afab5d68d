// The least that moving objects over PTP takes: a bare loop on libusb, with nothing checked that
// need not be. The measure for the library's transfers; transfer size and depth are free to choose.
//
//   bare_ptp NODE get HANDLE SIZE [TRANSFER DEPTH]        one GetObject
//   bare_ptp NODE parts HANDLE SIZE CHUNK [TRANSFER DEPTH] GetPartialObject, one for each chunk
//   bare_ptp NODE many FIRST COUNT SIZE [TRANSFER DEPTH]   GetObjectInfo and GetObject, each
//   bare_ptp NODE list FIRST COUNT 0                       GetObjectInfo alone
//   bare_ptp NODE put COUNT SIZE [TRANSFER DEPTH]          SendObjectInfo and SendObject
//
// Prints the seconds from the first command to the last response.
#include <fcntl.h>
#include <libusb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned char kBulkIn = 0x81;
constexpr unsigned char kBulkOut = 0x02;
constexpr std::size_t kHeader = 12;
constexpr unsigned kPatience = 20000;  // ms

[[noreturn]] void fail(const char* what, int code = 0) {
  std::fprintf(stderr, "bare_ptp: %s (%d)\n", what, code);
  std::exit(1);
}

using Bytes = std::vector<unsigned char>;

void put16(Bytes& bytes, unsigned value) {
  bytes.push_back(value & 0xFF);
  bytes.push_back(value >> 8 & 0xFF);
}
void put32(Bytes& bytes, std::uint32_t value) {
  put16(bytes, value & 0xFFFF);
  put16(bytes, value >> 16);
}
std::uint32_t get32(const unsigned char* at) {
  return at[0] | at[1] << 8 | at[2] << 16 | static_cast<std::uint32_t>(at[3]) << 24;
}

class Camera {
 public:
  Camera(const char* node, std::size_t transfer, int depth) : transfer_(transfer), depth_(depth) {
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    if (libusb_init(&context_) != 0) fail("no libusb");
    const int descriptor = open(node, O_RDWR);
    if (descriptor < 0) fail("the node cannot be opened", errno);
    if (const int code = libusb_wrap_sys_device(context_, descriptor, &handle_)) fail("wrap", code);
    if (const int code = libusb_claim_interface(handle_, 0)) fail("claim", code);
    for (int i = 0; i < depth_; ++i)
      rings_.push_back({libusb_alloc_transfer(0), Bytes(transfer_), this, false});
  }

  // Sends the command container and returns the id of its transaction.
  std::uint32_t command(unsigned operation, std::initializer_list<std::uint32_t> parameters) {
    const std::uint32_t id = operation == 0x1002 ? 0 : ++transaction_;
    Bytes bytes;
    put32(bytes, static_cast<std::uint32_t>(kHeader + 4 * parameters.size()));
    put16(bytes, 1);
    put16(bytes, operation);
    put32(bytes, id);
    for (const std::uint32_t parameter : parameters)
      put32(bytes, parameter);
    bulk(kBulkOut, bytes.data(), bytes.size());
    return id;
  }

  // The response behind a data phase that has been moved, or behind none.
  void response() {
    Bytes bytes(512);
    int length = bulk(kBulkIn, bytes.data(), bytes.size());
    if (length == 0) length = bulk(kBulkIn, bytes.data(), bytes.size());
    if (length < 12 || get32(bytes.data() + 4) % 0x10000 != 3) fail("no response", length);
    if ((get32(bytes.data() + 4) >> 16) != 0x2001) fail("refused", get32(bytes.data() + 4) >> 16);
  }

  // Reads a data phase that fits into one read.
  void receiveSmall() {
    Bytes bytes(4096);
    bulk(kBulkIn, bytes.data(), bytes.size());
  }

  // Reads a data phase of `size` payload bytes, with the transfers of the ring in flight.
  void receive(std::uint64_t size) { stream(kBulkIn, kHeader + size); }

  void send(unsigned operation, std::uint32_t id, std::uint64_t size) {
    Bytes header;
    put32(header, static_cast<std::uint32_t>(kHeader + size));
    put16(header, 2);
    put16(header, operation);
    put32(header, id);
    for (Ring& ring : rings_)
      std::fill(ring.buffer.begin(), ring.buffer.end(), 0x5A);
    std::copy(header.begin(), header.end(), rings_[0].buffer.begin());
    stream(kBulkOut, kHeader + size);
  }

  void sendSmall(unsigned operation, std::uint32_t id, const Bytes& payload) {
    Bytes bytes;
    put32(bytes, static_cast<std::uint32_t>(kHeader + payload.size()));
    put16(bytes, 2);
    put16(bytes, operation);
    put32(bytes, id);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    bulk(kBulkOut, bytes.data(), bytes.size());
  }

 private:
  struct Ring {
    libusb_transfer* transfer;
    Bytes buffer;
    Camera* camera;
    bool inFlight;
  };

  int bulk(unsigned char endpoint, unsigned char* data, std::size_t size) {
    int moved = 0;
    const int code =
        libusb_bulk_transfer(handle_, endpoint, data, static_cast<int>(size), &moved, kPatience);
    if (code != 0) fail("transfer", code);
    return moved;
  }

  static void done(libusb_transfer* transfer) {
    auto* ring = static_cast<Ring*>(transfer->user_data);
    ring->inFlight = false;
    Camera& camera = *ring->camera;
    if (transfer->status != LIBUSB_TRANSFER_COMPLETED) fail("stream", transfer->status);
    camera.moved_ += transfer->actual_length;
    camera.submit(*ring);
  }

  void submit(Ring& ring) {
    if (asked_ >= total_) return;
    std::size_t length = std::min<std::uint64_t>(transfer_, total_ - asked_);
    asked_ += length;
    // IN reads are whole packets.
    if (endpoint_ == kBulkIn) length = (length + 511) / 512 * 512;
    libusb_fill_bulk_transfer(ring.transfer, handle_, endpoint_, ring.buffer.data(),
                              static_cast<int>(length), done, &ring, kPatience);
    ring.inFlight = true;
    if (const int code = libusb_submit_transfer(ring.transfer)) fail("submit", code);
  }

  void stream(unsigned char endpoint, std::uint64_t total) {
    endpoint_ = endpoint;
    total_ = total;
    asked_ = moved_ = 0;
    for (Ring& ring : rings_)
      submit(ring);
    while (moved_ < total_)
      libusb_handle_events(context_);
    if (endpoint == kBulkOut && total % 512 == 0) bulk(kBulkOut, nullptr, 0);
  }

  std::size_t transfer_;
  int depth_;
  libusb_context* context_ = nullptr;
  libusb_device_handle* handle_ = nullptr;
  std::vector<Ring> rings_;
  std::uint32_t transaction_ = 0;
  unsigned char endpoint_ = 0;
  std::uint64_t total_ = 0;
  std::uint64_t asked_ = 0;
  std::uint64_t moved_ = 0;
};

Bytes objectInfo(std::uint32_t size, unsigned number) {
  Bytes bytes;
  put32(bytes, 0);
  put16(bytes, 0x3801);
  put16(bytes, 0);
  put32(bytes, size);
  put16(bytes, 0);
  for (int i = 0; i < 7; ++i)
    put32(bytes, 0);
  put16(bytes, 0);
  put32(bytes, 0);
  put32(bytes, 0);
  const std::string name = "B" + std::to_string(number) + ".JPG";
  bytes.push_back(static_cast<unsigned char>(name.size() + 1));
  for (const char unit : name + '\0')
    put16(bytes, static_cast<unsigned char>(unit));
  bytes.insert(bytes.end(), 3, 0);
  if ((bytes.size() + kHeader) % 64 == 0) bytes.push_back(0);
  return bytes;
}

std::uint64_t number(const char* text) {
  return std::strtoull(text, nullptr, 0);
}

void getParts(Camera& camera, std::uint32_t handle, std::uint64_t size, std::uint64_t chunk) {
  for (std::uint64_t offset = 0; offset < size; offset += chunk) {
    const auto length = static_cast<std::uint32_t>(std::min(chunk, size - offset));
    camera.command(0x101B, {handle, static_cast<std::uint32_t>(offset), length});
    camera.receive(length);
    camera.response();
  }
}

void getObjects(Camera& camera, std::uint32_t first, std::uint64_t count, std::uint64_t size,
                bool withData) {
  for (std::uint32_t i = 0; i < count; ++i) {
    camera.command(0x1008, {first + i});
    camera.receiveSmall();
    camera.response();
    if (!withData) continue;
    camera.command(0x1009, {first + i});
    camera.receive(size);
    camera.response();
  }
}

void putObjects(Camera& camera, unsigned count, std::uint32_t size) {
  for (unsigned i = 0; i < count; ++i) {
    camera.sendSmall(0x100C, camera.command(0x100C, {0, 0}), objectInfo(size, i));
    camera.response();
    camera.send(0x100D, camera.command(0x100D, {}), size);
    camera.response();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) fail("see the head of the source for the arguments");
  const std::string what = argv[2];
  const int own = what == "get" || what == "put" ? 5 : 6;
  const std::size_t transfer = argc > own ? number(argv[own]) : std::size_t{1} << 20;
  const int depth = argc > own + 1 ? static_cast<int>(number(argv[own + 1])) : 4;
  Camera camera(argv[1], transfer, depth);
  camera.command(0x1002, {1});
  camera.response();
  const auto began = std::chrono::steady_clock::now();
  const auto first = static_cast<std::uint32_t>(number(argv[3]));
  if (what == "get") {
    camera.command(0x1009, {first});
    camera.receive(number(argv[4]));
    camera.response();
  } else if (what == "parts" && argc > 5) {
    getParts(camera, first, number(argv[4]), number(argv[5]));
  } else if ((what == "many" || what == "list") && argc > 5) {
    getObjects(camera, first, number(argv[4]), number(argv[5]), what == "many");
  } else if (what == "put") {
    putObjects(camera, first, static_cast<std::uint32_t>(number(argv[4])));
  } else {
    fail("unknown measurement");
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - began;
  camera.command(0x1003, {});
  camera.response();
  std::printf("%.6f\n", seconds.count());
}

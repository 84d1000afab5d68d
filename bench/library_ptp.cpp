// The same as bare_ptp, by the library: what its own loops are held against.
//
//   library_ptp get HANDLE SIZE             one streamed GetObject, its bytes given up
//   library_ptp file HANDLE SIZE            the same into a file of the current folder
//   library_ptp parts HANDLE SIZE CHUNK     GetPartialObject, one for each chunk
//   library_ptp many FIRST COUNT            each object into a file of its own
//   library_ptp put COUNT FILE              each a copy of the file
//   library_ptp list                        the information of every object, twice
//   library_ptp none                        nothing: what a session costs by itself
//   library_ptp book                        the address book
//   library_ptp orders                      all e-mail and print orders
//
// Takes the one device that is there. Prints the seconds of the transfers alone.
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/devices/XTImageCapturePTPDevice.h"
#include "NativeServices/PictureDevice/operations/ObjectDownloads.h"
#include "Utilities/PTPCodes.h"
#include "library/access/DeviceState.h"
#include "tarvo/Device.h"

namespace {

using namespace tarvo;
using library::OpenedDevice;

[[noreturn]] void fail(const char* what, Status status) {
  std::fprintf(stderr, "library_ptp: %s: %s\n", what, statusText(status).c_str());
  std::exit(1);
}

void require(Status status, const char* what) {
  if (status != status::kOK) fail(what, status);
}

/// Memory for pieces, made before the clock runs, as the bare loop's is. There is one more than the
/// transport has in flight, as a sink with something to do has them.
class Ring {
 public:
  std::span<std::byte> next(std::size_t length) {
    auto& piece = pieces_[next_++ % pieces_.size()];
    return std::span(piece).first(std::min(length, piece.size()));
  }

 private:
  std::vector<ByteBuffer> pieces_{4, ByteBuffer(std::size_t{1} << 21)};
  std::size_t next_ = 0;
};

/// Gives room and forgets what comes into it.
class Abyss : public ptp::DataSink {
 public:
  Abyss(Ring& ring, std::uint64_t size) : ring_(ring), size_(size) {}
  std::span<std::byte> room(std::uint64_t offset, std::size_t length) override {
    if (offset >= size_) return {};
    return ring_.next(std::min<std::uint64_t>(length, size_ - offset));
  }
  bool received(std::uint64_t, std::size_t) override { return true; }

 private:
  Ring& ring_;
  std::uint64_t size_;
};

std::uint32_t number(const std::string& text) {
  return static_cast<std::uint32_t>(std::strtoull(text.c_str(), nullptr, 0));
}

/// What the public library does not show is measured below it.
OpenedDevice& below(Device& device) {
  return device.state()->camera();
}

/// The measured work, given the device and the arguments behind its name.
using Work = std::function<void(Device&, const std::vector<std::string>&)>;

void get(OpenedDevice& device, const std::vector<std::string>& arguments, Ring& ring) {
  Abyss abyss(ring, number(arguments[1]));
  std::uint64_t received = 0;
  require(device.transactions().downloadEntireObject(number(arguments[0]), number(arguments[1]),
                                                     abyss, received),
          "get");
}

void getParts(OpenedDevice& device, const std::vector<std::string>& arguments, Ring& ring) {
  const std::uint32_t size = number(arguments[1]);
  const std::uint32_t chunk = number(arguments[2]);
  Abyss abyss(ring, chunk);
  for (std::uint32_t offset = 0; offset < size; offset += chunk) {
    std::uint64_t received = 0;
    require(device.transactions().downloadPartialObject(
                number(arguments[0]), offset, std::min(chunk, size - offset), abyss, received),
            "parts");
  }
}

void fetch(Device& device, std::uint32_t first, std::uint32_t count) {
  DownloadRun run(DownloadOptions().existing(Existing::kOverwrite));
  for (std::uint32_t i = 0; i < count; ++i)
    device.download(device.object(first + i), run);
}

void put(Device& device, const std::vector<std::string>& arguments) {
  for (std::uint32_t i = 0; i < number(arguments[0]); ++i)
    device.upload(arguments[1]);
}

void list(Device& device) {
  for (int round = 0; round < 2; ++round)
    device.visit(ObjectQuery().recursive(), [](const ObjectInfo&) { return true; });
}

void readBook(OpenedDevice& device) {
  const auto book = device.device().addressBookDict();
  if (!book || !book->contacts || !book->groups) fail("book", device.transactions().lastOutcome());
  std::fprintf(stderr, "%zu contacts, %zu groups\n", book->contacts->size(), book->groups->size());
}

void readOrders(OpenedDevice& device) {
  const auto emails = device.device().emailOrderList();
  const auto prints = device.device().printOrderList();
  if (!emails || !prints) fail("orders", device.transactions().lastOutcome());
  std::fprintf(stderr, "%zu e-mail orders, %zu print orders\n", emails->size(), prints->size());
}

Work workOf(const std::string& name) {
  const auto ring = std::make_shared<Ring>();
  if (name == "get")
    return [ring](auto& device, const auto& arguments) { get(below(device), arguments, *ring); };
  if (name == "parts")
    return
        [ring](auto& device, const auto& arguments) { getParts(below(device), arguments, *ring); };
  if (name == "file")
    return [](auto& device, const auto& arguments) { fetch(device, number(arguments[0]), 1); };
  if (name == "many")
    return [](auto& device, const auto& arguments) {
      fetch(device, number(arguments[0]), number(arguments[1]));
    };
  if (name == "put") return put;
  if (name == "none") return [](auto&, const auto&) {};
  if (name == "book") return [](auto& device, const auto&) { readBook(below(device)); };
  if (name == "orders") return [](auto& device, const auto&) { readOrders(below(device)); };
  if (name == "list") return [](auto& device, const auto&) { list(device); };
  std::fprintf(stderr, "library_ptp: see the head of the source for the arguments\n");
  std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + std::min(argc, 2), argv + argc);
  const Work work = workOf(argc > 1 ? argv[1] : "");
  Session session;
  auto device = session.openCamera();
  below(device).transactions().storageIDs();  // opens the session
  const auto began = std::chrono::steady_clock::now();
  work(device, arguments);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - began;
  std::printf("%.6f\n", seconds.count());
}

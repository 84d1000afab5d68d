// A plain libusb program for the tests of the testbed: opens a node as the product does, runs a few
// PTP operations and prints what came, one line each.
//
//   ptp_probe NODE COMMAND...    commands: claim, info, num, hold
#include <fcntl.h>
#include <libusb.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kTimeout = 2000;
constexpr unsigned char kIn = 0x81;
constexpr unsigned char kOut = 0x02;

class Probe {
 public:
  explicit Probe(const char* node) {
    libusb_set_option(nullptr, LIBUSB_OPTION_NO_DEVICE_DISCOVERY);
    libusb_init(&context_);
    const int fd = ::open(node, O_RDWR | O_CLOEXEC);
    const int result = libusb_wrap_sys_device(context_, fd, &handle_);
    if (result != 0) {
      std::printf("open %s\n", libusb_error_name(result));
      std::exit(1);
    }
  }

  void claim() { std::printf("claim %s\n", libusb_error_name(libusb_claim_interface(handle_, 0))); }

  /// Sends a command and takes containers until the response has come or something fails.
  void transact(const char* name, std::uint16_t code, const std::vector<std::uint32_t>& with = {}) {
    std::vector<std::uint32_t> command = {static_cast<std::uint32_t>(12 + 4 * with.size()),
                                          1u | (std::uint32_t{code} << 16), transaction_++};
    command.insert(command.end(), with.begin(), with.end());
    int moved = 0;
    int result =
        libusb_bulk_transfer(handle_, kOut, reinterpret_cast<unsigned char*>(command.data()),
                             static_cast<int>(4 * command.size()), &moved, kTimeout);
    std::vector<unsigned char> answer(4096);
    std::uint32_t typeAndCode = 0;
    while (result == 0 && (typeAndCode & 0xFFFF) != 3) {
      result = libusb_bulk_transfer(handle_, kIn, answer.data(), static_cast<int>(answer.size()),
                                    &moved, kTimeout);
      std::memcpy(&typeAndCode, answer.data() + 4, 4);
    }
    std::printf("%s %s response 0x%04X\n", name, libusb_error_name(result), typeAndCode >> 16);
  }

 private:
  libusb_context* context_ = nullptr;
  libusb_device_handle* handle_ = nullptr;
  std::uint32_t transaction_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Probe probe(argv[1]);
  for (int i = 2; i < argc; ++i) {
    const std::string command = argv[i];
    if (command == "claim") probe.claim();
    if (command == "info") probe.transact("info", 0x1001);
    if (command == "num") probe.transact("num", 0x1006, {0xFFFFFFFF});
    if (command == "hold") ::pause();
  }
}

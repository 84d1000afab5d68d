// A plain libusb program for the tests of the testbed: opens a node as the product does, runs a few
// PTP operations and prints what came, one line each.
//
//   ptp_probe NODE COMMAND...    commands: claim, info, session, num, object N, event, hold,
//   control
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

  /// Sends a command and takes data (if any) and response; prints both.
  void transact(const char* name, std::uint16_t code, std::vector<std::uint32_t> parameters) {
    std::vector<std::uint32_t> command = {static_cast<std::uint32_t>(12 + 4 * parameters.size()),
                                          1u | (std::uint32_t{code} << 16), transaction_};
    command.insert(command.end(), parameters.begin(), parameters.end());
    int moved = 0;
    int result =
        libusb_bulk_transfer(handle_, kOut, reinterpret_cast<unsigned char*>(command.data()),
                             static_cast<int>(4 * command.size()), &moved, kTimeout);
    std::vector<unsigned char> answer(1 << 20);
    std::uint64_t bytes = 0;
    std::uint32_t type = 0;
    std::uint32_t response = 0;
    while (result == 0 && type != 3) {
      result = libusb_bulk_transfer(handle_, kIn, answer.data(), static_cast<int>(answer.size()),
                                    &moved, kTimeout);
      std::uint32_t word = 0;
      std::memcpy(&word, answer.data() + 4, 4);
      if (bytes == 0 || moved < 64) type = word & 0xFFFF;
      if (type == 3) {
        response = word >> 16;
        if (moved > 12) std::memcpy(&parameter_, answer.data() + 12, 4);
      } else {
        bytes += static_cast<unsigned>(moved);
      }
    }
    std::printf("%s %s response 0x%04X data %llu parameter %u\n", name, libusb_error_name(result),
                response, static_cast<unsigned long long>(bytes), parameter_);
    ++transaction_;
    if (code == 0x1002) transaction_ = 1;
  }

  void control() {
    unsigned char status[64] = {};
    const int length =
        libusb_control_transfer(handle_, 0xA1, 0x67, 0, 0, status, sizeof status, kTimeout);
    std::printf("status %d code 0x%04X\n", length, status[2] | (status[3] << 8));
  }

  /// Waits for an event of the device, for as long as it takes.
  void event() {
    std::printf("waiting\n");
    unsigned char bytes[64] = {};
    int moved = 0;
    const int result = libusb_interrupt_transfer(handle_, 0x83, bytes, sizeof bytes, &moved, 0);
    std::printf("event %s %d bytes code 0x%04X\n", libusb_error_name(result), moved,
                bytes[6] | (bytes[7] << 8));
  }

  void session() {
    transaction_ = 0;
    transact("session", 0x1002, {1});
  }

 private:
  libusb_context* context_ = nullptr;
  libusb_device_handle* handle_ = nullptr;
  std::uint32_t transaction_ = 0;
  std::uint32_t parameter_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Probe probe(argv[1]);
  for (int i = 2; i < argc; ++i) {
    const std::string command = argv[i];
    if (command == "claim") probe.claim();
    if (command == "info") probe.transact("info", 0x1001, {});
    if (command == "session") probe.session();
    if (command == "num") probe.transact("num", 0x1006, {0xFFFFFFFF});
    if (command == "object") {
      probe.transact("object", 0x1009, {static_cast<std::uint32_t>(std::atoi(argv[++i]))});
    }
    if (command == "control") probe.control();
    if (command == "event") probe.event();
    if (command == "hold") ::pause();
  }
}

// A SCSI unit behind an emulated generic node: it notes what reaches it and answers by a script.
//
//   ScriptedUnit unit(bed.handle(), "/dev/sg1");
//   unit.answers = {{.data = hexBytes("0010 ...")}, {.status = 0x02, .sense = ...}};
#pragma once

#include <gtest/gtest.h>
#include <scsi/sg.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/foundation/GlibPtr.h"
#include "tests/support/HexBytes.h"

namespace tarvo::test {

/// What one command is answered with; a unit without a script answers GOOD and sends nothing.
struct UnitAnswer {
  unsigned char status = 0;
  std::vector<std::byte> data = {};
  std::vector<std::byte> sense = {};
  /// What the data area was not used for, if it is not what the lengths say.
  int residual = -1;
  bool liesAboutResidual = false;
  unsigned short hostStatus = 0;
  unsigned short driverStatus = 0;
  /// What the length of the sense data is said to be; 0: the truth.
  unsigned char senseLength = 0;
  int error = 0;  ///< of the system call
};

/// Touched by the testbed's thread only while a command is under way.
class ScriptedUnit {
 public:
  ScriptedUnit(UMockdevTestbed* bed, const char* node) : handler_(umockdev_ioctl_base_new()) {
    g_signal_connect(handler_.get(), "handle-ioctl", G_CALLBACK(onIoctl), this);
    GErrorHolder error;
    EXPECT_TRUE(umockdev_testbed_attach_ioctl(bed, node, handler_.get(), error.out()));
  }

  std::deque<UnitAnswer> answers;
  /// One line a command: "TIMEOUT CDB" in hexadecimal, with " > DATA" where data came along.
  std::vector<std::string> commands;
  std::function<void()> onCommand;  ///< before it is answered, in the testbed's thread

 private:
  using Memory = GObjectPtr<UMockdevIoctlData>;

  static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, ScriptedUnit* unit) {
    int result = -ENOTTY;
    if (umockdev_ioctl_client_get_request(client) == SG_IO)
      result = unit->command(umockdev_ioctl_client_get_arg(client));
    umockdev_ioctl_client_complete(client, result < 0 ? -1 : 0, result < 0 ? -result : 0);
    return TRUE;
  }

  static Memory area(const Memory& header, std::size_t pointer, std::size_t length) {
    return Memory(length == 0
                      ? nullptr
                      : umockdev_ioctl_data_resolve(header.get(), pointer, length, nullptr));
  }
  static std::string hex(const Memory& memory, std::size_t length) {
    return memory ? hexText({reinterpret_cast<const std::byte*>(memory->data), length}) : "";
  }
  /// At most what the program has room for reaches it, as in the kernel.
  static unsigned fill(const Memory& memory, std::size_t room, std::vector<std::byte>& bytes) {
    const std::size_t count = std::min(room, bytes.size());
    if (memory && count > 0)
      umockdev_ioctl_data_update(memory.get(), 0, reinterpret_cast<guint8*>(bytes.data()),
                                 static_cast<gint>(count));
    return static_cast<unsigned>(count);
  }

  int command(UMockdevIoctlData* argument) {
    const Memory header(umockdev_ioctl_data_resolve(argument, 0, sizeof(sg_io_hdr), nullptr));
    sg_io_hdr io{};
    std::memcpy(&io, header->data, sizeof io);
    const auto block = area(header, offsetof(sg_io_hdr, cmdp), io.cmd_len);
    const auto data = area(header, offsetof(sg_io_hdr, dxferp), io.dxfer_len);
    const auto sense = area(header, offsetof(sg_io_hdr, sbp), io.mx_sb_len);
    std::string line = std::to_string(io.timeout) + " " + hex(block, io.cmd_len);
    if (io.dxfer_direction == SG_DXFER_TO_DEV) line += " > " + hex(data, io.dxfer_len);
    if (io.dxfer_direction == SG_DXFER_FROM_DEV) line += " < " + std::to_string(io.dxfer_len);
    commands.push_back(line);
    if (onCommand) onCommand();

    UnitAnswer answer;
    if (!answers.empty()) {
      answer = answers.front();
      answers.pop_front();
    }
    if (answer.error != 0) return -answer.error;
    unsigned moved = io.dxfer_len;
    if (io.dxfer_direction == SG_DXFER_FROM_DEV) moved = fill(data, io.dxfer_len, answer.data);
    const unsigned senseGiven = fill(sense, io.mx_sb_len, answer.sense);
    io.sb_len_wr = static_cast<unsigned char>(answer.senseLength ? answer.senseLength : senseGiven);
    io.resid = answer.liesAboutResidual ? answer.residual : static_cast<int>(io.dxfer_len - moved);
    io.status = answer.status;
    io.host_status = answer.hostStatus;
    io.driver_status = answer.driverStatus;
    umockdev_ioctl_data_update(header.get(), 0, reinterpret_cast<guint8*>(&io), sizeof io);
    return 0;
  }

  GObjectPtr<UMockdevIoctlBase> handler_;
};

}  // namespace tarvo::test

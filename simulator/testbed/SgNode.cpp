#include "simulator/testbed/SgNode.h"

#include <scsi/scsi.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "simulator/massstorage/MassStorageUnit.h"
#include "simulator/massstorage/ScsiUnit.h"

namespace tarvo::simulator {
namespace {

constexpr int kDriverVersion = 30536;  // of the kernels of these years
constexpr int kReservedSize = 32768;
constexpr unsigned kLongestTransfer = 16 * 1024 * 1024;
constexpr unsigned kShortestBlock = 6;
constexpr unsigned kLongestBlock = 16;

// What the kernel's drivers report beside the SCSI status (linux/scsi).
constexpr unsigned short kHostTimeOut = 3;  // DID_TIME_OUT
constexpr unsigned short kHostError = 7;    // DID_ERROR
constexpr unsigned short kDriverSense = 8;  // DRIVER_SENSE

UnitRequest::Direction directionOf(const sg_io_hdr_t& header) {
  if (header.dxfer_len == 0) return UnitRequest::Direction::kNone;
  switch (header.dxfer_direction) {
    case SG_DXFER_TO_DEV:
      return UnitRequest::Direction::kToUnit;
    case SG_DXFER_FROM_DEV:
    case SG_DXFER_TO_FROM_DEV:
      return UnitRequest::Direction::kFromUnit;
    default:
      return UnitRequest::Direction::kNone;
  }
}

/// Writes what came of a command into the client's record.
void report(sg_io_hdr_t& header, const UnitOutcome& outcome) {
  header.status = outcome.status;
  header.masked_status = outcome.status >> 1 & 0x1F;
  header.msg_status = 0;
  header.host_status = 0;
  if (outcome.delivery == UnitOutcome::Delivery::kTimedOut) header.host_status = kHostTimeOut;
  if (outcome.delivery == UnitOutcome::Delivery::kBroken) header.host_status = kHostError;
  const bool hasSense = outcome.status == kCheckCondition;
  header.driver_status = hasSense ? kDriverSense : 0;
  header.sb_len_wr = hasSense ? static_cast<unsigned char>(
                                    std::min<std::size_t>(outcome.sense.size(), header.mx_sb_len))
                              : 0;
  header.resid = static_cast<int>(outcome.residue);
  const bool isClean = header.status == 0 && header.host_status == 0;
  header.info = isClean ? SG_INFO_OK : SG_INFO_CHECK;
}

}  // namespace

std::shared_ptr<SgNode> SgNode::create(unsigned host, std::shared_ptr<MassStorageUnit> unit,
                                       std::function<void()> vanished) {
  std::shared_ptr<SgNode> node(new SgNode(host, std::move(unit), std::move(vanished)));
  node->worker_ = std::thread([self = node.get()] { self->work(); });
  return node;
}

SgNode::SgNode(unsigned host, std::shared_ptr<MassStorageUnit> unit, std::function<void()> vanished)
    : host_(host), unit_(std::move(unit)), transport_(unit_), vanished_(std::move(vanished)) {}

SgNode::~SgNode() {
  transport_.stop();
  {
    const std::lock_guard guard(mutex_);
    isGone_ = ends_ = true;
    queued_.notify_all();
  }
  worker_.join();
}

GObjectPointer<UMockdevIoctlBase> SgNode::makeHandler() {
  auto handler = GObjectPointer<UMockdevIoctlBase>::adopt(umockdev_ioctl_base_new());
  g_signal_connect_data(handler.get(), "handle-ioctl", G_CALLBACK(onIoctl),
                        new NodeReference<SgNode>{shared_from_this()}, NodeReference<SgNode>::drop,
                        GConnectFlags(0));
  return handler;
}

gboolean SgNode::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
  const auto node = static_cast<NodeReference<SgNode>*>(self)->node;
  const auto result = node->handle(client, umockdev_ioctl_client_get_request(client),
                                   umockdev_ioctl_client_get_arg(client));
  if (result) {
    umockdev_ioctl_client_complete(client, *result < 0 ? -1 : *result,
                                   static_cast<gint>(*result < 0 ? -*result : 0));
  }
  return TRUE;
}

std::optional<long> SgNode::handle(UMockdevIoctlClient* client, unsigned long request,
                                   UMockdevIoctlData* argument) {
  {
    const std::lock_guard guard(mutex_);
    if (isGone_) return -ENODEV;
  }
  switch (request) {
    case SG_IO:
      return queue(client, argument);
    case SG_GET_VERSION_NUM:
      store(resolve(argument, 0, sizeof(int)), kDriverVersion);
      return 0;
    case SG_GET_RESERVED_SIZE:
      store(resolve(argument, 0, sizeof(int)), kReservedSize);
      return 0;
    case SG_GET_SCSI_ID: {
      sg_scsi_id id{};
      id.host_no = static_cast<int>(host_);
      id.scsi_type = static_cast<int>(unit_->type());
      id.h_cmd_per_lun = id.d_queue_depth = 1;
      store(resolve(argument, 0, sizeof id), id);
      return 0;
    }
    case SCSI_IOCTL_GET_IDLUN:
      return unitNumbers(argument);
    case SCSI_IOCTL_GET_BUS_NUMBER:
      store(resolve(argument, 0, sizeof(int)), static_cast<int>(host_));
      return 0;
    case SG_EMULATED_HOST:
      store(resolve(argument, 0, sizeof(int)), 1);
      return 0;
    // Bytes in the seconds of a time-out, reserved memory: taken, and without an effect here.
    case SG_SET_TIMEOUT:
    case SG_SET_RESERVED_SIZE:
    case SG_SET_FORCE_PACK_ID:
    case SG_SET_COMMAND_Q:
      return 0;
    default:
      return -ENOTTY;
  }
}

/// Target, unit, channel and host in the four bytes of a word, then the host's own number.
long SgNode::unitNumbers(UMockdevIoctlData* argument) const {
  const std::uint32_t numbers[2] = {host_ << 24, host_};
  store(resolve(argument, 0, sizeof numbers), numbers);
  return 0;
}

std::optional<long> SgNode::queue(UMockdevIoctlClient* client, UMockdevIoctlData* argument) {
  Command command;
  command.header = resolve(argument, 0, sizeof(sg_io_hdr_t));
  if (!command.header) return -EFAULT;
  const auto header = load<sg_io_hdr_t>(command.header);
  if (header.interface_id != 'S') return -ENOSYS;
  if (header.iovec_count != 0 || header.dxfer_len > kLongestTransfer) return -EINVAL;
  if (header.cmd_len < kShortestBlock || header.cmd_len > kLongestBlock) return -EMSGSIZE;
  auto* record = command.header.get();
  command.block = resolve(record, offsetof(sg_io_hdr_t, cmdp), header.cmd_len);
  command.data = resolve(record, offsetof(sg_io_hdr_t, dxferp), header.dxfer_len);
  command.sense = resolve(record, offsetof(sg_io_hdr_t, sbp), header.mx_sb_len);
  if (!command.block) return -EFAULT;
  g_object_ref(client);
  command.client = GObjectPointer<UMockdevIoctlClient>::adopt(client);
  const std::lock_guard guard(mutex_);
  commands_.push_back(std::move(command));
  queued_.notify_all();
  return std::nullopt;
}

void SgNode::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    queued_.wait(lock, [this] { return ends_ || !commands_.empty(); });
    if (commands_.empty()) return;
    auto& command = commands_.front();
    lock.unlock();
    const auto result = run(command);
    umockdev_ioctl_client_complete(command.client.get(), result < 0 ? -1 : result,
                                   static_cast<gint>(result < 0 ? -result : 0));
    checkVanished();
    lock.lock();
    commands_.pop_front();
    if (commands_.empty()) idle_.notify_all();
  }
}

long SgNode::run(Command& command) {
  auto header = load<sg_io_hdr_t>(command.header);
  const auto direction = directionOf(header);
  UnitRequest request;
  request.block = bytesOf(command.block, header.cmd_len);
  request.direction = direction;
  if (direction != UnitRequest::Direction::kNone) {
    request.data = bytesOf(command.data, header.dxfer_len);
  }
  request.timeout = std::chrono::milliseconds(header.timeout);
  const auto started = std::chrono::steady_clock::now();
  auto outcome = transport_.execute(request);
  if (outcome.delivery == UnitOutcome::Delivery::kGone) return -ENODEV;
  report(header, outcome);
  header.duration = static_cast<unsigned>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              std::chrono::steady_clock::now() - started)
                                              .count());
  if (command.sense && header.sb_len_wr > 0) {
    update(command.sense.get(), 0, std::span(outcome.sense).first(header.sb_len_wr));
  }
  store(command.header, header);
  return 0;
}

void SgNode::checkVanished() {
  std::function<void()> tell;
  {
    const std::lock_guard guard(mutex_);
    if (!unit_->isGone()) return;
    isGone_ = true;
    std::swap(tell, vanished_);
  }
  if (tell) tell();
}

void SgNode::unplug(std::chrono::milliseconds patience) {
  transport_.stop();
  std::unique_lock lock(mutex_);
  isGone_ = true;
  vanished_ = nullptr;
  idle_.wait_for(lock, patience, [this] { return commands_.empty(); });
}

}  // namespace tarvo::simulator

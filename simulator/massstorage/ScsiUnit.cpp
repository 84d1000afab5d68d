#include "simulator/massstorage/ScsiUnit.h"

#include <algorithm>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {
namespace {

/// No more than the host has asked for.
ScsiReply answer(Bytes data, std::uint64_t allocated) {
  data.resize(static_cast<std::size_t>(std::min<std::uint64_t>(data.size(), allocated)));
  ScsiReply reply;
  if (!data.empty()) reply.data = std::make_shared<BytesPayload>(std::move(data));
  return reply;
}

bool isTenBytes(std::span<const std::byte> block) {
  return byteAt(block, 0) == kModeSense10 || byteAt(block, 0) == kModeSelect10;
}

DeviceDescription withoutContent(DeviceDescription description) {
  description.volume.reset();
  description.camera.reset();
  return description;
}

}  // namespace

ScsiUnit::ScsiUnit(const DeviceDescription& description, HostViolations& violations)
    : description_(withoutContent(description)),
      isOptical_(description.scsi.type == kOpticalType),
      canReturn_(description.camera != nullptr && description.modePages.usbMode &&
                 description.modePages.usbMode->autoPowerCycle),
      medium_(Medium::of(description)),
      pages_(description, violations) {}

UnitState ScsiUnit::state() const {
  return {pages_.mode(), pages_.clock(), isTrayOpen_, isLocked_};
}

bool ScsiUnit::returnsAsCamera() const {
  return powersDown_ && canReturn_ && pages_.mode().isCamera();
}

void ScsiUnit::reset() {
  pending_.reset();
  isLocked_ = false;
}

ScsiReply ScsiUnit::fail(Sense sense) {
  sense_ = sense;
  pending_.reset();
  ScsiReply reply;
  reply.isGood = false;
  return reply;
}

std::optional<Sense> ScsiUnit::notReady() {
  if (isTrayOpen_) return sense::kTrayOpen;
  if (!medium_) return sense::kNoMedium;
  if (medium_->blocks() == 0) return sense::kMediumUnreadable;
  return std::nullopt;
}

ScsiReply ScsiUnit::begin(std::span<const std::byte> block, const Faults& faults) {
  pending_.reset();
  powersDown_ = false;
  const auto opcode = byteAt(block, 0);
  if (opcode == kRequestSense) return requestSense(block);
  if (opcode == kInquiry) return inquiry(block);
  sense_ = {};
  if (hasChanged_ && opcode != kGetEventStatusNotification) {
    hasChanged_ = false;
    return fail(sense::kMediumChanged);
  }
  return dispatch(block, faults);
}

ScsiReply ScsiUnit::dispatch(Block block, const Faults& faults) {
  switch (byteAt(block, 0)) {
    case kTestUnitReady:
      // Not asked for its blocks, which may first have to be made.
      if (hasMedium()) return {};
      return fail(isTrayOpen_ ? sense::kTrayOpen : sense::kNoMedium);
    case kModeSense6:
    case kModeSense10:
      return modeSense(block, faults);
    case kModeSelect6:
    case kModeSelect10:
      return modeSelect(block);
    case kPreventAllowMediumRemoval:
      return preventRemoval(block);
    case kStartStopUnit:
      return startStop(block);
    case kReadFormatCapacities:
      return readFormatCapacities(block);
    case kReadCapacity10:
      return readCapacity();
    case kRead10:
    case kWrite10:
      return transferBlocks(block);
    case kSynchronizeCache10:
      return {};
    default:
      return isOptical_ ? optical(block) : fail(sense::kInvalidOpcode);
  }
}

// Every kind of unit.

// In the fixed format (SPC-4, 4.5.3).
ScsiReply ScsiUnit::requestSense(Block block) {
  Bytes data(18);
  data[0] = std::byte{0x70};
  data[2] = std::byte{sense_.key};
  data[7] = std::byte{10};
  data[12] = std::byte{sense_.code};
  data[13] = std::byte{sense_.qualifier};
  sense_ = {};
  return answer(std::move(data), byteAt(block, 4));
}

ScsiReply ScsiUnit::inquiry(Block block) {
  const auto allocated = bigEndian(block, 3, 2);
  if ((byteAt(block, 1) & 1) == 0) {
    if (byteAt(block, 2) != 0) return fail(sense::kInvalidFieldInBlock);
    return answer(inquiryData(description_.scsi), allocated);
  }
  auto page = vitalProductData(byteAt(block, 2), description_);
  return page ? answer(std::move(*page), allocated) : fail(sense::kInvalidFieldInBlock);
}

ScsiReply ScsiUnit::modeSense(Block block, const Faults& faults) {
  const bool ten = isTenBytes(block);
  const auto page = static_cast<std::uint8_t>(byteAt(block, 2) & 0x3F);
  const auto control = static_cast<std::uint8_t>(byteAt(block, 2) >> 6);
  constexpr std::uint8_t kSavedValues = 3;
  if (control == kSavedValues) return fail({0x05, 0x39, 0x00});  // nothing is saved
  auto data = pages_.sense(page, control, ten ? 8 : 4, faults);
  if (!data) return fail(sense::kInvalidFieldInBlock);
  return answer(std::move(*data), ten ? bigEndian(block, 7, 2) : byteAt(block, 4));
}

ScsiReply ScsiUnit::modeSelect(Block block) {
  const auto length = isTenBytes(block) ? bigEndian(block, 7, 2) : byteAt(block, 4);
  if (length == 0) return {};
  pending_.emplace(block.begin(), block.end());
  ScsiReply reply;
  reply.expects = length;
  return reply;
}

ScsiReply ScsiUnit::preventRemoval(Block block) {
  isLocked_ = (byteAt(block, 4) & 3) != 0;
  return {};
}

ScsiReply ScsiUnit::finish(std::span<const std::byte> data) {
  if (!pending_) return fail(sense::kTransferError);
  const auto block = *pending_;
  pending_.reset();
  if (byteAt(block, 0) == kWrite10) {
    const bool written = medium_->write(bigEndian(block, 2, 4), data);
    return written ? ScsiReply{} : fail({0x03, 0x0C, 0x00});
  }
  if (const auto refused = pages_.select(data, isTenBytes(block) ? 8 : 4)) return fail(*refused);
  powersDown_ = pages_.mode().isSelected && pages_.mode().powerDown;
  return {};
}

// Units with blocks.

ScsiReply ScsiUnit::startStop(Block block) {
  constexpr std::uint8_t kLoadOrEject = 2;
  constexpr std::uint8_t kStart = 1;
  const auto action = byteAt(block, 4);
  if ((action & kLoadOrEject) == 0) return {};
  if ((action & kStart) != 0) {
    hasChanged_ = tellsEvent_ = isTrayOpen_ && medium_ != nullptr;
    isTrayOpen_ = false;
    return {};
  }
  if (isLocked_) return fail(sense::kRemovalPrevented);
  isTrayOpen_ = true;
  return {};
}

ScsiReply ScsiUnit::readFormatCapacities(Block block) {
  constexpr std::uint8_t kFormatted = 2;
  constexpr std::uint8_t kNoMedium = 3;
  const bool ready = !notReady();
  Bytes data(12);
  data[3] = std::byte{8};
  putBigEndian(data, 4, 4, ready ? medium_->blocks() : 0);
  putBigEndian(data, 8, 4, medium_ ? medium_->blockSize() : 0);
  data[8] = std::byte{ready ? kFormatted : kNoMedium};
  return answer(std::move(data), bigEndian(block, 7, 2));
}

ScsiReply ScsiUnit::readCapacity() {
  if (const auto why = notReady()) return fail(*why);
  Bytes data(8);
  putBigEndian(data, 0, 4, medium_->blocks() - 1);
  putBigEndian(data, 4, 4, medium_->blockSize());
  return answer(std::move(data), 8);
}

ScsiReply ScsiUnit::transferBlocks(Block block) {
  if (const auto why = notReady()) return fail(*why);
  const auto first = bigEndian(block, 2, 4);
  const auto count = bigEndian(block, 7, 2);
  if (first + count > medium_->blocks()) return fail(sense::kBlockOutOfRange);
  ScsiReply reply;
  if (byteAt(block, 0) == kRead10) {
    if (count > 0) reply.data = medium_->read(first, count);
    return reply;
  }
  if (!medium_->isWritable()) return fail(sense::kWriteProtected);
  if (count > 0) pending_.emplace(block.begin(), block.end());
  reply.expects = count * medium_->blockSize();
  return reply;
}

// Optical units.

ScsiReply ScsiUnit::optical(Block block) {
  switch (byteAt(block, 0)) {
    case kReadTOC:
      return readTOC(block);
    case kGetConfiguration:
      return answer(configurationData(static_cast<std::uint16_t>(bigEndian(block, 2, 2)),
                                      (byteAt(block, 1) & 3) == 2, hasMedium()),
                    bigEndian(block, 7, 2));
    case kGetEventStatusNotification:
      return eventStatus(block);
    case kReadDiscInformation:
      if (!hasMedium()) return fail(isTrayOpen_ ? sense::kTrayOpen : sense::kNoMedium);
      return answer(discInformation(), bigEndian(block, 7, 2));
    default:
      return fail(sense::kInvalidOpcode);
  }
}

ScsiReply ScsiUnit::readTOC(Block block) {
  if (const auto why = notReady()) return fail(*why);
  auto format = static_cast<std::uint8_t>(byteAt(block, 2) & 0x0F);
  // Drives before MMC had it in the last byte, where old drivers still write it.
  if (format == 0) format = byteAt(block, 9) >> 6;
  auto data = tocData(format, (byteAt(block, 1) & 2) != 0, medium_->blocks());
  return data ? answer(std::move(*data), bigEndian(block, 7, 2))
              : fail(sense::kInvalidFieldInBlock);
}

// Events of the class "media", polled (MMC-6, 6.6).
ScsiReply ScsiUnit::eventStatus(Block block) {
  constexpr std::uint8_t kMediaClass = 4;
  constexpr std::uint8_t kNoEvent = 0x80;
  constexpr std::uint8_t kNewMedia = 2;
  if ((byteAt(block, 1) & 1) == 0) return fail(sense::kInvalidFieldInBlock);
  Bytes data(4);
  data[3] = std::byte{1 << kMediaClass};  // the classes that it knows
  if ((byteAt(block, 4) & 1 << kMediaClass) == 0) {
    data[2] = std::byte{kNoEvent};
  } else {
    data[2] = std::byte{kMediaClass};
    data.resize(8);
    data[4] = std::byte{tellsEvent_ ? kNewMedia : std::uint8_t{0}};
    data[5] = static_cast<std::byte>((isTrayOpen_ ? 1 : 0) | (hasMedium() ? 2 : 0));
    tellsEvent_ = false;
  }
  putBigEndian(data, 0, 2, data.size() - 2);
  return answer(std::move(data), bigEndian(block, 7, 2));
}

namespace {

constexpr std::size_t kVendorSize = 8;
constexpr std::size_t kModelSize = 16;
constexpr std::size_t kRevisionSize = 4;

constexpr std::uint16_t kCDROMProfile = 0x0008;

void append(Bytes& bytes, const std::string& text) {
  const auto more = std::as_bytes(std::span(text));
  bytes.insert(bytes.end(), more.begin(), more.end());
}

/// Cut or filled up with blanks.
void appendPadded(Bytes& bytes, std::string text, std::size_t size) {
  text.resize(size, ' ');
  append(bytes, text);
}

/// A track descriptor of a table of contents; the address in blocks or as minute, second, frame.
void appendTrack(Bytes& bytes, std::uint8_t track, bool inMinutes, std::uint64_t address) {
  constexpr std::uint8_t kDataTrack = 0x14;
  Bytes entry(8);
  entry[1] = std::byte{kDataTrack};
  entry[2] = std::byte{track};
  if (inMinutes) {
    const auto frames = address + 150;  // the two seconds before the first block
    entry[5] = static_cast<std::byte>(frames / 75 / 60);
    entry[6] = static_cast<std::byte>(frames / 75 % 60);
    entry[7] = static_cast<std::byte>(frames % 75);
  } else {
    putBigEndian(entry, 4, 4, address);
  }
  bytes.insert(bytes.end(), entry.begin(), entry.end());
}

/// A feature descriptor: code, flags (persistent 2, current 1), length, content.
void appendFeature(Bytes& bytes, std::uint16_t code, std::uint8_t flags, const Bytes& content) {
  Bytes header(4);
  putBigEndian(header, 0, 2, code);
  header[2] = std::byte{flags};
  header[3] = static_cast<std::byte>(content.size());
  bytes.insert(bytes.end(), header.begin(), header.end());
  bytes.insert(bytes.end(), content.begin(), content.end());
}

}  // namespace

Bytes inquiryData(const ScsiDescription& scsi) {
  Bytes data(8);
  data[0] = static_cast<std::byte>(scsi.type);
  data[1] = std::byte{0x80};  // the medium can be removed
  data[2] = std::byte{0x04};  // SPC-2
  data[3] = std::byte{0x02};  // form of this answer
  data[4] = std::byte{kVendorSize + kModelSize + kRevisionSize + 3};
  appendPadded(data, scsi.vendor, kVendorSize);
  appendPadded(data, scsi.model, kModelSize);
  appendPadded(data, scsi.revision, kRevisionSize);
  return data;
}

std::optional<Bytes> vitalProductData(std::uint8_t page, const DeviceDescription& description) {
  Bytes content;
  switch (page) {
    case 0x00:
      content = {std::byte{0x00}, std::byte{0x80}, std::byte{0x83}};
      break;
    case 0x80:
      append(content, description.usb.serial);
      break;
    case 0x83: {
      Bytes name;
      appendPadded(name, description.scsi.vendor, kVendorSize);
      appendPadded(name, description.scsi.model, kModelSize);
      append(name, description.usb.serial);
      name.resize(std::min<std::size_t>(name.size(), 0xF0));
      content = {std::byte{0x02}, std::byte{0x01}, std::byte{0x00},  // text; by the vendor's name
                 static_cast<std::byte>(name.size())};
      content.insert(content.end(), name.begin(), name.end());
      break;
    }
    default:
      return std::nullopt;
  }
  Bytes data(4);
  data[0] = static_cast<std::byte>(description.scsi.type);
  data[1] = std::byte{page};
  putBigEndian(data, 2, 2, content.size());
  data.insert(data.end(), content.begin(), content.end());
  return data;
}

Bytes configurationData(std::uint16_t first, bool only, bool hasMedium) {
  Bytes data(8);
  putBigEndian(data, 6, 2, hasMedium ? kCDROMProfile : 0);
  const auto wanted = [&](std::uint16_t code) { return only ? code == first : code >= first; };
  const auto current = static_cast<std::byte>(hasMedium);
  if (wanted(0x0000)) {  // profiles
    appendFeature(data, 0x0000, 3, {std::byte{0}, std::byte{kCDROMProfile}, current, std::byte{0}});
  }
  if (wanted(0x0001)) {  // core: SCSI, without device busy events
    appendFeature(data, 0x0001, 3 | 2 << 2, {{}, {}, {}, std::byte{1}, {}, {}, {}, {}});
  }
  if (wanted(0x0003)) {  // removable medium: tray that ejects and locks
    appendFeature(data, 0x0003, 3, {std::byte{0x29}, {}, {}, {}});
  }
  if (wanted(0x001E)) {  // CD read
    appendFeature(data, 0x001E, hasMedium ? 1 : 0, {{}, {}, {}, {}});
  }
  putBigEndian(data, 0, 4, data.size() - 4);
  return data;
}

std::optional<Bytes> tocData(std::uint8_t format, bool inMinutes, std::uint64_t blocks) {
  Bytes data = {{}, {}, std::byte{1}, std::byte{1}};
  switch (format) {
    case 0:  // tracks
      appendTrack(data, 1, inMinutes, 0);
      appendTrack(data, 0xAA, inMinutes, blocks);
      break;
    case 1:  // sessions
      appendTrack(data, 1, inMinutes, 0);
      break;
    default:
      return std::nullopt;
  }
  putBigEndian(data, 0, 2, data.size() - 2);
  return data;
}

Bytes discInformation() {
  Bytes data(34);
  putBigEndian(data, 0, 2, data.size() - 2);
  data[2] = std::byte{0x0E};  // disc finished, last session complete
  data[3] = data[4] = data[5] = data[6] = std::byte{1};
  return data;
}

}  // namespace tarvo::simulator

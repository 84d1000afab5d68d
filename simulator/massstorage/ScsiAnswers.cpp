#include "simulator/massstorage/ScsiAnswers.h"

#include <algorithm>

#include "simulator/bytes/BigEndian.h"

namespace tarvo::simulator {
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

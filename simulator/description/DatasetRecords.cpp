#include "simulator/description/DatasetRecords.h"

#include "Utilities/PTPCodes.h"
#include "simulator/bytes/ByteReader.h"

namespace tarvo::simulator {
namespace {

constexpr std::uint32_t kGuidSize = 16;

/// Takes the fields from bytes.
struct Decoding {
  ByteReader reader;
  bool guidFits = true;

  void guid(Bytes& field) {
    guidFits = reader.u32() == kGuidSize;
    field = reader.bytes(kGuidSize);
  }
  void u16(std::uint16_t& field) { field = reader.u16(); }
  void u32(std::uint32_t& field) { field = reader.u32(); }
  void text(std::u16string& field) { field = reader.text(); }
  void handles(Handles& field) { field = reader.u32Array(); }
};

/// Puts them into bytes.
struct Encoding {
  ByteWriter writer;

  void guid(const Bytes& field) {
    writer.u32(static_cast<std::uint32_t>(field.size()));
    writer.raw(field);
  }
  void u16(std::uint16_t field) { writer.u16(field); }
  void u32(std::uint32_t field) { writer.u32(field); }
  void text(const std::u16string& field) { writer.text(field); }
  void handles(const Handles& field) { writer.u32Array(field); }
};

// The fields of each record in the order of the wire, for both directions.

template <typename Coder>
void code(Coder& coder, ContactRecord& record) {
  coder.guid(record.guid);
  for (auto& text : record.texts)
    coder.text(text);
  coder.u32(record.image);
  coder.handles(record.groups);
  coder.u16(record.sharingPreference);
  coder.u16(record.prints);
}

template <typename Coder>
void code(Coder& coder, GroupRecord& record) {
  coder.text(record.name);
  coder.u32(record.image);
  coder.handles(record.members);
}

template <typename Coder>
void code(Coder& coder, EmailOrderRecord& record) {
  coder.guid(record.guid);
  coder.u16(record.serviceType);
  coder.text(record.sender);
  coder.handles(record.recipients);
  coder.text(record.subject);
  coder.text(record.body);
  coder.handles(record.assets);
}

template <typename Coder>
void code(Coder& coder, PrintOrderRecord& record) {
  coder.guid(record.guid);
  coder.text(record.accessCode);
  coder.u16(record.serviceType);
  coder.u16(record.type);
  coder.u16(record.multiUp);
  coder.u32(record.paperSize);
  coder.u16(record.assetsRemaining);
  coder.u16(record.quantity);
  coder.u16(record.enhance);
  coder.text(record.annotation);
  coder.u32(record.date);
  coder.u32(record.assetSize);
  coder.u32(record.asset);
}

template <typename Coder>
void code(Coder& coder, TransferOrderRecord& record) {
  coder.guid(record.guid);
  coder.u16(record.type);
  coder.text(record.sender);
  coder.handles(record.assets);
}

template <typename Coder>
void code(Coder& coder, AlbumRecord& record) {
  for (auto& text : record.texts)
    coder.text(text);
  coder.u32(record.cover);
  coder.handles(record.assets);
}

/// A record of the format with nothing in it.
std::optional<DatasetRecord> emptyRecord(std::uint16_t format) {
  switch (format) {
    case ptp::XTD_ALBUM:
      return AlbumRecord();
    case ptp::XTD_GROUP:
      return GroupRecord();
    case ptp::XTD_CONTACT:
      return ContactRecord();
    case ptp::XTD_EMAIL_ORDER:
    case ptp::XTD_SQUIRT_EMAIL_ORDER:
      return EmailOrderRecord();
    case ptp::XTD_PRINT_ORDER:
    case ptp::XTD_SQUIRT_PRINT_ORDER:
      return PrintOrderRecord();
    case ptp::XTD_TRANSFER_ORDER:
    case ptp::XTD_SQUIRT_TRANSFER_ORDER:
      return TransferOrderRecord();
    default:
      return std::nullopt;
  }
}

}  // namespace

bool isDatasetFormat(std::uint16_t format) {
  return format >= ptp::XTD_ALBUM && format <= ptp::XTD_SQUIRT_TRANSFER_ORDER;
}

bool isOrderFormat(std::uint16_t format) {
  return format >= ptp::XTD_EMAIL_ORDER && format <= ptp::XTD_SQUIRT_TRANSFER_ORDER;
}

std::optional<DatasetRecord> parseDataset(std::uint16_t format, std::span<const std::byte> bytes) {
  auto record = emptyRecord(format);
  if (!record) return std::nullopt;
  Decoding decoding{ByteReader(bytes)};
  std::visit([&](auto& each) { code(decoding, each); }, *record);
  const auto rest = decoding.reader.rest();
  if (decoding.reader.failed() || !decoding.guidFits ||
      !isPadding(rest, bytes.size() - rest.size())) {
    return std::nullopt;
  }
  return record;
}

Bytes datasetBytes(DatasetRecord record) {
  Encoding encoding;
  std::visit([&](auto& each) { code(encoding, each); }, record);
  return encoding.writer.take();
}

Handles assetsOf(const DatasetRecord& record) {
  return std::visit(
      [](const auto& each) {
        if constexpr (requires { each.assets; }) {
          return each.assets;
        } else if constexpr (requires { each.asset; }) {
          return each.asset == 0 ? Handles() : Handles{each.asset};
        } else {
          return Handles();
        }
      },
      record);
}

bool removeAsset(DatasetRecord& order, std::uint32_t asset) {
  return std::visit(
      [asset](auto& each) {
        if constexpr (requires { each.assets; }) {
          return std::erase(each.assets, asset) > 0;
        } else if constexpr (requires { each.asset; }) {
          if (each.asset != asset || asset == 0) return false;
          each.asset = 0;
          return true;
        } else {
          return false;
        }
      },
      order);
}

}  // namespace tarvo::simulator

#include "simulator/description/DatasetDescription.h"

#include <tuple>

#include "Utilities/Format.h"
#include "Utilities/PTPCodes.h"
#include "simulator/bytes/ByteWriter.h"
#include "simulator/bytes/JsonNode.h"
#include "simulator/description/ContentDescription.h"

namespace tarvo::simulator {
namespace {

/// A description may not fill the memory by one number.
constexpr std::uint64_t kMostGenerated = 100'000;

/// Keys of a contact's texts in the order of ContactText.
constexpr std::array<const char*, kContactTexts> kContactKeys = {
    "email", "nickname", "firstName", "lastName", "street", "street2",
    "city",  "state",    "country",   "zip",      "phone"};

void readText(const JsonNode& node, const char* key, std::u16string& field) {
  if (const auto text = node.find(key)) field = readUnits(*text);
}

ObjectReference readReference(const JsonNode& node) {
  if (node.json().is_string()) return node.text();
  return static_cast<std::uint32_t>(node.number(0xFFFFFFFF));
}

void readReferences(const JsonNode& node, const char* key, ObjectReferences& field) {
  node.readList(key, field, readReference);
}

void readOneReference(const JsonNode& node, const char* key, ObjectReferences& field) {
  if (const auto one = node.find(key)) field = {readReference(*one)};
}

Bytes readHex(const JsonNode& node) {
  const auto text = node.text();
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const auto byte = parseNumber("0x" + text.substr(i, 2), 0xFF);
    if (!byte || i + 2 > text.size()) node.fail("pairs of hexadecimal digits are expected");
    bytes.push_back(static_cast<std::byte>(*byte));
  }
  return bytes;
}

/// 16 bytes that tell which data set of the description it was.
Bytes guidOf(std::size_t index) {
  Bytes guid(16, std::byte{0x54});
  for (std::size_t i = 0; i < 4; ++i)
    guid[15 - i] = static_cast<std::byte>(index >> (8 * i));
  return guid;
}

void readGuid(const JsonNode& node, Bytes& field) {
  if (const auto guid = node.find("guid")) field = readHex(*guid);
}

DescribedDataset readContact(const JsonNode& node) {
  node.allowKeys({"guid", "email", "nickname", "firstName", "lastName", "street", "street2", "city",
                  "state", "country", "zip", "phone", "image", "sharingPreference", "prints"});
  DescribedDataset made;
  made.format = ptp::XTD_CONTACT;
  ContactRecord contact;
  readGuid(node, contact.guid);
  for (std::size_t i = 0; i < kContactKeys.size(); ++i)
    readText(node, kContactKeys[i], contact.texts[i]);
  node.read("sharingPreference", contact.sharingPreference);
  node.read("prints", contact.prints);
  readOneReference(node, "image", made.image);
  made.record = contact;
  return made;
}

DescribedDataset readGroup(const JsonNode& node) {
  node.allowKeys({"name", "members", "image"});
  DescribedDataset made;
  made.format = ptp::XTD_GROUP;
  GroupRecord group;
  readText(node, "name", group.name);
  readReferences(node, "members", made.people);
  readOneReference(node, "image", made.image);
  made.record = group;
  return made;
}

/// Orders for wireless transfer have formats of their own.
std::uint16_t orderFormat(const JsonNode& node, std::uint16_t plain, std::uint16_t wireless) {
  bool isWireless = false;
  node.read("wireless", isWireless);
  return isWireless ? wireless : plain;
}

DescribedDataset readEmailOrder(const JsonNode& node) {
  node.allowKeys({"guid", "serviceType", "sender", "to", "subject", "body", "assets", "wireless"});
  DescribedDataset made;
  made.format = orderFormat(node, ptp::XTD_EMAIL_ORDER, ptp::XTD_SQUIRT_EMAIL_ORDER);
  EmailOrderRecord order;
  readGuid(node, order.guid);
  node.read("serviceType", order.serviceType);
  readText(node, "sender", order.sender);
  readText(node, "subject", order.subject);
  readText(node, "body", order.body);
  readReferences(node, "to", made.people);
  readReferences(node, "assets", made.assets);
  made.record = order;
  return made;
}

DescribedDataset readPrintOrder(const JsonNode& node) {
  DescribedDataset made;
  made.format = orderFormat(node, ptp::XTD_PRINT_ORDER, ptp::XTD_SQUIRT_PRINT_ORDER);
  PrintOrderRecord order;
  readGuid(node, order.guid);
  readText(node, "accessCode", order.accessCode);
  node.readAll({"guid", "accessCode", "annotation", "asset", "wireless"},
               Key("serviceType", order.serviceType), Key("type", order.type),
               Key("multiUp", order.multiUp), Key("paperSize", order.paperSize),
               Key("assetsRemaining", order.assetsRemaining), Key("quantity", order.quantity),
               Key("enhance", order.enhance), Key("date", order.date),
               Key("assetSize", order.assetSize));
  readText(node, "annotation", order.annotation);
  readOneReference(node, "asset", made.assets);
  made.record = order;
  return made;
}

DescribedDataset readTransferOrder(const JsonNode& node) {
  node.allowKeys({"guid", "type", "sender", "assets", "wireless"});
  DescribedDataset made;
  made.format = orderFormat(node, ptp::XTD_TRANSFER_ORDER, ptp::XTD_SQUIRT_TRANSFER_ORDER);
  TransferOrderRecord order;
  readGuid(node, order.guid);
  node.read("type", order.type);
  readText(node, "sender", order.sender);
  readReferences(node, "assets", made.assets);
  made.record = order;
  return made;
}

DescribedDataset readAlbum(const JsonNode& node) {
  node.allowKeys({"name", "assets", "cover"});
  DescribedDataset made;
  made.format = ptp::XTD_ALBUM;
  AlbumRecord album;
  readText(node, "name", album.texts[0]);
  readOneReference(node, "cover", made.image);
  readReferences(node, "assets", made.assets);
  made.record = album;
  return made;
}

DescribedDataset readRaw(const JsonNode& node) {
  node.allowKeys({"format", "hex"});
  DescribedDataset made;
  node.at("format").get(made.format);
  if (!isDatasetFormat(made.format)) node.at("format").fail("a data set's format is expected");
  made.raw = readHex(node.at("hex"));
  return made;
}

/// "#" in the texts of a generated data set, and in the names that it refers to, is its number.
nlohmann::json numbered(const nlohmann::json& pattern, std::uint64_t number) {
  auto made = pattern;
  for (auto& value : made) {
    if (value.is_structured()) {
      value = numbered(value, number);
    } else if (value.is_string()) {
      auto text = value.get<std::string>();
      for (auto at = text.find('#'); at != std::string::npos; at = text.find('#', at))
        text.replace(at, 1, std::to_string(number));
      value = text;
    }
  }
  return made;
}

/// Reads a list of data sets; {"generate": COUNT, ...} stands for so many of them.
void readList(const JsonNode& root, const char* key, DescribedDataset (*read)(const JsonNode&),
              std::vector<DescribedDataset>& list) {
  const auto items = root.find(key);
  if (!items) return;
  for (const auto& item : items->items()) {
    const auto generate = item.find("generate");
    if (!generate) {
      list.push_back(read(item));
      continue;
    }
    auto pattern = item.json();
    pattern.erase("generate");
    const auto count = generate->number(kMostGenerated);
    for (std::uint64_t number = 1; number <= count; ++number) {
      const auto json = numbered(pattern, number);
      list.push_back(read(JsonNode(json, std::string("datasets.") + key)));
    }
  }
}

/// Gives a data set that has none its GUID.
void completeGuid(DescribedDataset& dataset, std::size_t index) {
  std::visit(
      [index](auto& record) {
        if constexpr (requires { record.guid; }) {
          if (record.guid.empty()) record.guid = guidOf(index);
        }
      },
      dataset.record);
}

}  // namespace

DatasetsDescription readDatasets(const JsonNode& node) {
  node.allowKeys({"storage", "contacts", "groups", "emailOrders", "printOrders", "transferOrders",
                  "albums", "raw"});
  DatasetsDescription datasets;
  node.read("storage", datasets.storage);
  auto& list = datasets.list;
  readList(node, "contacts", readContact, list);
  readList(node, "groups", readGroup, list);
  readList(node, "emailOrders", readEmailOrder, list);
  readList(node, "printOrders", readPrintOrder, list);
  readList(node, "transferOrders", readTransferOrder, list);
  readList(node, "albums", readAlbum, list);
  readList(node, "raw", readRaw, list);
  for (std::size_t i = 0; i < list.size(); ++i)
    completeGuid(list[i], i + 1);
  return datasets;
}

namespace {

constexpr std::uint32_t kGuidSize = 16;

/// Takes the fields from bytes.
struct Decoding {
  ByteReader reader;
  bool guidFits = true;

  void code(Bytes& guid) {
    guidFits = reader.u32() == kGuidSize;
    guid = reader.bytes(kGuidSize);
  }
  void code(std::uint16_t& field) { field = reader.u16(); }
  void code(std::uint32_t& field) { field = reader.u32(); }
  void code(std::u16string& field) { field = reader.text(); }
  void code(Handles& field) { field = reader.u32Array(); }
};

/// Puts them into bytes.
struct Encoding {
  ByteWriter writer;

  void code(const Bytes& guid) {
    writer.u32(static_cast<std::uint32_t>(guid.size()));
    writer.raw(guid);
  }
  void code(std::uint16_t field) { writer.u16(field); }
  void code(std::uint32_t field) { writer.u32(field); }
  void code(const std::u16string& field) { writer.text(field); }
  void code(const Handles& field) { writer.u32Array(field); }
};

// The fields of each record in the order of the wire, for both directions.

auto fieldsOf(ContactRecord& record) {
  return std::tie(record.guid, record.texts, record.image, record.groups, record.sharingPreference,
                  record.prints);
}

auto fieldsOf(GroupRecord& record) {
  return std::tie(record.name, record.image, record.members);
}

auto fieldsOf(EmailOrderRecord& record) {
  return std::tie(record.guid, record.serviceType, record.sender, record.recipients, record.subject,
                  record.body, record.assets);
}

auto fieldsOf(PrintOrderRecord& record) {
  return std::tie(record.guid, record.accessCode, record.serviceType, record.type, record.multiUp,
                  record.paperSize, record.assetsRemaining, record.quantity, record.enhance,
                  record.annotation, record.date, record.assetSize, record.asset);
}

auto fieldsOf(TransferOrderRecord& record) {
  return std::tie(record.guid, record.type, record.sender, record.assets);
}

auto fieldsOf(AlbumRecord& record) {
  return std::tie(record.texts, record.cover, record.assets);
}

template <typename Coder, std::size_t kCount>
void code(Coder& coder, std::array<std::u16string, kCount>& texts) {
  for (auto& text : texts)
    coder.code(text);
}

template <typename Coder, typename Field>
void code(Coder& coder, Field& field) {
  coder.code(field);
}

template <typename Coder>
void codeRecord(Coder& coder, DatasetRecord& record) {
  const auto all = [&](auto&... fields) { (code(coder, fields), ...); };
  std::visit([&](auto& each) { std::apply(all, fieldsOf(each)); }, record);
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
  codeRecord(decoding, *record);
  const auto rest = decoding.reader.rest();
  if (decoding.reader.failed() || !decoding.guidFits ||
      !isPadding(rest, bytes.size() - rest.size())) {
    return std::nullopt;
  }
  return record;
}

Bytes datasetBytes(DatasetRecord record) {
  Encoding encoding;
  codeRecord(encoding, record);
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

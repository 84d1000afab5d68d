// The vendor data sets that a device keeps, as its JSON description lists them. docs/simulator.md
// has the schema.
//
//   "datasets": {"contacts": [{"nickname": "Anna", "email": "anna@example.org"}],
//                "groups": [{"name": "Family", "members": ["Anna"]}],
//                "printOrders": [{"asset": "TARV0001.JPG", "quantity": 2}]}
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "simulator/bytes/ByteWriter.h"

namespace tarvo::simulator {

class JsonNode;

using Handles = std::vector<std::uint32_t>;

/// Texts of a contact in the order of the wire.
enum ContactText : std::uint8_t {
  kContactEmail,
  kContactNickname,
  kContactFirstName,
  kContactLastName,
  kContactStreet,
  kContactStreet2,
  kContactCity,
  kContactState,
  kContactCountry,
  kContactZip,
  kContactPhone,
  kContactTexts  ///< how many there are
};

struct ContactRecord {
  Bytes guid;
  std::array<std::u16string, kContactTexts> texts;
  std::uint32_t image = 0;
  Handles groups;
  std::uint16_t sharingPreference = 0;
  std::uint16_t prints = 0;
};

struct GroupRecord {
  std::u16string name;
  std::uint32_t image = 0;
  Handles members;
};

struct EmailOrderRecord {
  Bytes guid;
  std::uint16_t serviceType = 0;
  std::u16string sender;
  Handles recipients;
  std::u16string subject;
  std::u16string body;
  Handles assets;
};

struct PrintOrderRecord {
  Bytes guid;
  std::u16string accessCode;
  std::uint16_t serviceType = 0;
  std::uint16_t type = 0;
  std::uint16_t multiUp = 0;
  std::uint32_t paperSize = 0;
  std::uint16_t assetsRemaining = 1;
  std::uint16_t quantity = 1;
  std::uint16_t enhance = 0;
  std::u16string annotation;
  std::uint32_t date = 0;
  std::uint32_t assetSize = 0;
  std::uint32_t asset = 0;
};

struct TransferOrderRecord {
  Bytes guid;
  std::uint16_t type = 0;
  std::u16string sender;
  Handles assets;
};

/// Its layout is the simulator's own: name, three texts, cover, pictures.
struct AlbumRecord {
  std::array<std::u16string, 4> texts;
  std::uint32_t cover = 0;
  Handles assets;
};

using DatasetRecord = std::variant<ContactRecord, GroupRecord, EmailOrderRecord, PrintOrderRecord,
                                   TransferOrderRecord, AlbumRecord>;

/// 0xB201 (album) to 0xB209 (transfer order for wireless transfer).
bool isDatasetFormat(std::uint16_t format);
/// 0xB204 to 0xB209.
bool isOrderFormat(std::uint16_t format);

/// None when the bytes are no such data set to their end, or the format is none of a data set. The
/// byte that pads a host's container may follow.
std::optional<DatasetRecord> parseDataset(std::uint16_t format, std::span<const std::byte> bytes);
Bytes datasetBytes(DatasetRecord record);

/// The pictures of an order or an album; none of another record.
Handles assetsOf(const DatasetRecord& record);
/// Takes a picture out of an order wherever it stands in it; false where it does not.
bool removeAsset(DatasetRecord& order, std::uint32_t asset);

/// Another object by its handle or by its name: a contact's nickname, a file's name.
using ObjectReference = std::variant<std::uint32_t, std::string>;
using ObjectReferences = std::vector<ObjectReference>;

/// A data set whose handles are not known before the device is made.
struct DescribedDataset {
  std::uint16_t format = 0;
  DatasetRecord record;      ///< its lists of handles are empty
  ObjectReferences people;   ///< members of a group, recipients of an e-mail order
  ObjectReferences assets;   ///< pictures of an order or an album
  ObjectReferences image;    ///< at most one: the picture of a contact, group or album
  std::optional<Bytes> raw;  ///< sent as it is, whatever the format asks for
};

struct DatasetsDescription {
  std::uint32_t storage = 0;           ///< id of the store that keeps them; 0: the first one
  std::vector<DescribedDataset> list;  ///< in the order of their handles
};

/// Raises DescriptionError. Names are looked up when the device is made.
DatasetsDescription readDatasets(const JsonNode& node);

}  // namespace tarvo::simulator

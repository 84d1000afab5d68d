// The vendor data sets that a device keeps, as its JSON description lists them. docs/simulator.md
// has the schema.
//
//   "datasets": {"contacts": [{"nickname": "Anna", "email": "anna@example.org"}],
//                "groups": [{"name": "Family", "members": ["Anna"]}],
//                "printOrders": [{"asset": "TARV0001.JPG", "quantity": 2}]}
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "simulator/bytes/JsonNode.h"
#include "simulator/description/DatasetRecords.h"

namespace tarvo::simulator {

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

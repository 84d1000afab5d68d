// Feeds every kind of record what a hostile device could send, and its JSON side what a hostile
// document could say.
//
// The first byte of an input chooses the record and the side (bit 7: a document), the rest is the
// data set or the document. Both sides may raise their own exceptions and nothing else. What was
// read is written and must read back equal, or, a contact, as what is written of it. Behind the
// records stands one more kind, the whole address book, which is a document on either side. With
// TARVO_FUZZ_RECORD every input is of the kind of that name, so that one record gets all
// executions.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/AddressBookJSON.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/RecordFields.h"
#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
#include "NativeServices/PictureDevice/datasets/RecordJSONFields.h"
#include "Utilities/Exception.h"
#include "fuzz/Require.h"

namespace {

using tarvo::PropertyDictionary;
using tarvo::RecordType;
namespace exception_name = tarvo::exception_name;

constexpr std::uint8_t kDocumentBit = 0x80;

/// Texts of 255 units can be read and not written.
bool isTooLong(const tarvo::Exception& exception) {
  return exception.name() == exception_name::kInvalidArgument &&
         exception.reason().find("is too long") != std::string::npos;
}

/// What of a record is written: all of it, but for a contact.
PropertyDictionary writtenOf(const RecordType& type, PropertyDictionary json) {
  if (type.name != "contact") return json;
  json["XTContactImageKey"] = 0;
  json["XTContactAssociatedGroupsKey"] = PropertyDictionary::array();
  const auto street = json["kABAddressStreetKey"].get<std::string>();
  const auto [first, second] = tarvo::firstTwoLines(street);
  json["kABAddressStreetKey"] = tarvo::joinedLines(std::string(first), std::string(second));
  return json;
}

/// A group with the contacts of the first handles as its members, or a failed assertion.
void checkMembers(std::span<const std::byte> bytes, const PropertyDictionary& json) {
  constexpr std::uint32_t kContacts = 64;
  static const tarvo::ContactsByHandle contacts = [] {
    tarvo::ContactsByHandle byHandle;
    for (std::uint32_t handle = 0; handle < kContacts; ++handle)
      byHandle[handle] = std::make_shared<tarvo::Contact>(tarvo::Contact{.handle = handle});
    return byHandle;
  }();
  const PropertyDictionary& handles = json["contactGroupMembersKey"];
  const bool areAllKnown = std::ranges::all_of(
      handles, [](const PropertyDictionary& handle) { return handle < kContacts; });
  try {
    const auto group = tarvo::scanned(bytes, [](tarvo::XTPTPDataSet& dataSet) {
      return tarvo::scanGroupAndAssignContacts(dataSet, contacts);
    });
    require(areAllKnown && tarvo::jsonFromContactGroup(group) == json);
  } catch (const tarvo::Exception& exception) {
    require(!areAllKnown && exception.reason().starts_with("Could not find contacts for all"));
  }
}

void checkBytes(const RecordType& type, std::span<const std::byte> bytes) {
  PropertyDictionary json;
  try {
    json = type.decode(bytes);
  } catch (const tarvo::Exception& exception) {
    require(exception.name() == exception_name::kRange ||
            exception.reason().starts_with("Unexpected "));
    return;
  }
  require(!json.dump().empty());  // raises for text that is no UTF-8
  if (type.name == "group") checkMembers(bytes, json);
  try {
    require(type.decode(type.encode(json)) == writtenOf(type, json));
  } catch (const tarvo::Exception& exception) {
    require(isTooLong(exception));
  }
}

void checkDocument(const RecordType& type, std::span<const std::uint8_t> text) {
  const auto json = PropertyDictionary::parse(text.begin(), text.end(), nullptr, false);
  if (json.is_discarded()) return;
  std::vector<std::byte> bytes;
  try {
    bytes = type.encode(json);
  } catch (const tarvo::Exception& exception) {
    require(exception.name() == exception_name::kInvalidArgument ||
            exception.reason().starts_with("Unexpected datatype "));
    return;
  }
  // Absent keys and dates beyond their bounds come back as what they are read as; from then on
  // nothing changes.
  const auto read = type.decode(bytes);
  require(type.decode(type.encode(read)) == read);
}

/// A book that a user wrote shows what was written, and is then read as the same.
void checkAddressBook(std::span<const std::uint8_t> text) {
  const auto json = PropertyDictionary::parse(text.begin(), text.end(), nullptr, false);
  if (json.is_discarded()) return;
  PropertyDictionary shown;
  try {
    shown = tarvo::jsonFromAddressBook(tarvo::addressBookFromJSON(json));
  } catch (const tarvo::Exception& exception) {
    require(exception.name() == exception_name::kInvalidArgument);
    return;
  }
  require(tarvo::jsonFromAddressBook(tarvo::addressBookFromJSON(shown)) == shown);
}

/// Which kind TARVO_FUZZ_RECORD names, an index as in an input; none when it is not set.
std::optional<std::size_t> onlyKind() {
  const char* name = std::getenv("TARVO_FUZZ_RECORD");
  if (name == nullptr) return std::nullopt;
  const auto types = tarvo::recordTypes();
  const auto kind = std::ranges::find(types, std::string_view(name), &RecordType::name);
  require(kind != types.end() || std::string_view(name) == "addressbook");
  return std::size_t(kind - types.begin());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto types = tarvo::recordTypes();
  static const std::optional<std::size_t> only = onlyKind();
  const std::size_t kind = only.value_or((*data & (kDocumentBit - 1)) % (types.size() + 1));
  // A copy of exact size, so that the sanitizer sees a read beyond it.
  const std::vector<std::uint8_t> rest(data + 1, data + size);
  if (kind == types.size()) {
    checkAddressBook(rest);
    return 0;
  }
  const RecordType& type = types[kind];
  if ((*data & kDocumentBit) != 0) {
    checkDocument(type, rest);
  } else {
    checkBytes(type, std::as_bytes(std::span(rest)));
  }
  return 0;
}

// Feeds every kind of record what a hostile device could send, and its JSON side what a hostile
// document could say.
//
// The first byte of an input chooses the record and the side (bit 7: a document), the rest is the
// data set or the document. Both sides may raise their own exceptions and nothing else. What was
// read is written and must read back equal.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/RecordJSON.h"
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
  try {
    require(type.decode(type.encode(json)) == json);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const auto types = tarvo::recordTypes();
  const RecordType& type = types[(*data & (kDocumentBit - 1)) % types.size()];
  // A copy of exact size, so that the sanitizer sees a read beyond it.
  const std::vector<std::uint8_t> rest(data + 1, data + size);
  if ((*data & kDocumentBit) != 0) {
    checkDocument(type, rest);
  } else {
    checkBytes(type, std::as_bytes(std::span(rest)));
  }
  return 0;
}

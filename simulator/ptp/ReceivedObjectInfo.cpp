#include "simulator/ptp/ReceivedObjectInfo.h"

#include "simulator/bytes/ByteReader.h"

namespace tarvo::simulator {
namespace {

/// Passes over the maker's fields, which a device keeps as they are.
void skipExtension(ByteReader& reader) {
  reader.text();                        // date of creation
  reader.skipArray(1);                  // quick fingerprint
  reader.skipArray(1);                  // full fingerprint
  reader.u16();                         // favourite
  reader.u16();                         // retention
  reader.text();                        // annotation
  for (int list = 0; list < 5; ++list)  // audio, albums, e-mail, print and transfer orders
    reader.skipArray(4);
  reader.u32();         // size of the source picture
  reader.skipArray(1);  // its fingerprints
  reader.skipArray(1);
}

}  // namespace

std::optional<ReceivedObjectInfo> ReceivedObjectInfo::parse(std::span<const std::byte> bytes) {
  ByteReader reader(bytes);
  ReceivedObjectInfo info;
  reader.u32();  // the store stands in the operation's parameters
  info.format = reader.u16();
  info.protection = reader.u16();
  info.size = reader.u32();
  reader.u16();                // format of a thumbnail, which the device makes itself
  for (int i = 0; i < 6; ++i)  // its size, width and height, then the picture's, and its depth
    reader.u32();
  reader.u32();  // the parent stands in the parameters too
  reader.u16();  // association: type, description
  reader.u32();
  reader.u32();  // sequence number
  info.name = reader.text();
  info.captured = reader.text();
  info.modified = reader.text();
  info.keywords = reader.text();
  const auto standard = bytes.size() - reader.rest().size();
  if (reader.failed()) return std::nullopt;
  if (isPadding(reader.rest(), standard)) return info;
  const auto extension = reader.rest();
  skipExtension(reader);
  const auto whole = bytes.size() - reader.rest().size();
  if (reader.failed() || !isPadding(reader.rest(), whole)) return std::nullopt;
  const auto own = extension.first(whole - standard);
  info.extension.assign(own.begin(), own.end());
  return info;
}

}  // namespace tarvo::simulator

// Feeds the reader of object information what a hostile device could send.
//
// The first byte of an input chooses the form (bit 0: extended) and the byte order (bit 1), the
// rest is the data set. The reader may raise NSRangeException and nothing else. What was read is
// written again and must read back equal, replaced dates included.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "fuzz/Require.h"

namespace {

using tarvo::XTExtendedObjectInfo;
using tarvo::XTPTPDataSet;

/// False where a text is so long that its count wraps: a writer that is given it is asked for what
/// cannot be read.
bool canTravel(const XTExtendedObjectInfo& info) {
  constexpr std::size_t kTooLong = 255;
  for (const std::string* text :
       {&info.fileName(), &info.captureDateStr(), &info.modDataStr(), &info.keywordsStr(),
        &info.fileCreationDateStr(), &info.textAnnotation()}) {
    if (tarvo::utf16FromUTF8(*text).size() >= kTooLong) return false;
  }
  return true;
}

void checkRoundTrip(const XTExtendedObjectInfo& info, std::int32_t byteOrder) {
  const auto written = info.dataSetWithByteOrder(byteOrder);
  if (!canTravel(info)) return;
  auto reader = XTPTPDataSet::ptpDataSetWithBytesNoCpy(written.bytes(), byteOrder);
  require(XTExtendedObjectInfo::initWithDataSet(reader, info.isExtended()) == info);
  require(reader.position() == written.length());
}

void checkAccessors(const XTExtendedObjectInfo& info) {
  require(!info.isDirectFavoriteInfo() || (info.isExtended() && !info.bbSourceQFP().empty()));
  require(info.description().starts_with("XTExtendedObjectInfo file:"));
  for (const std::string& digits : {info.quickFingerprint(), info.fullFingerprint()})
    require(digits.empty() || digits.size() == 32);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool extended = (*data & 1) != 0;
  const std::int32_t byteOrder = (*data & 2) != 0 ? 0 : tarvo::kPTPByteOrder;
  // A copy of exact size, so that the sanitizer sees a read beyond it.
  auto set = XTPTPDataSet::initWithData(std::as_bytes(std::span(data, size).subspan(1)));
  set.setByteOrder(byteOrder);
  try {
    const auto info = XTExtendedObjectInfo::initWithDataSet(set, extended);
    require(info.isExtended() == extended);
    checkAccessors(info);
    checkRoundTrip(info, byteOrder);
  } catch (const tarvo::Exception& exception) {
    require(exception.name() == tarvo::exception_name::kRange);
  }
  return 0;
}

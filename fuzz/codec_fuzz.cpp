// Feeds the codec what a hostile device could send.
//
// An input is a script and a data set. Its first byte chooses the byte order (bit 0) and the number
// of script steps (bits 1 to 5); each step is one byte that names a reader and may take further
// ones as its argument; what follows is the data set. Every reader may raise the codec's exceptions
// and nothing else. What was read is stored again and must read back equal; the bytes behind the
// first are also stored as text, as a GUID and as hexadecimal digits.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "Utilities/Exception.h"
#include "Utilities/NSStringUtilsCategory.h"
#include "fuzz/Require.h"

namespace {

using tarvo::XTMutablePTPDataSet;
using tarvo::XTPTPDataSet;

class Script {
 public:
  explicit Script(std::span<const std::uint8_t> input) : rest_(input) {}

  std::uint8_t next() {
    if (rest_.empty()) return 0;
    const std::uint8_t byte = rest_.front();
    rest_ = rest_.subspan(1);
    return byte;
  }
  std::uint32_t nextNumber() {
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i)
      number = number << 8 | next();
    return number;
  }
  std::span<const std::uint8_t> rest() const { return rest_; }

 private:
  std::span<const std::uint8_t> rest_;
};

/// What one step read, stored again at the end of a writer and read back.
class RoundTrip {
 public:
  explicit RoundTrip(std::int32_t byteOrder)
      : byteOrder_(byteOrder), writer_(XTMutablePTPDataSet::dataSetWithByteOrder(byteOrder, 0)) {}

  template <typename Store, typename Scan, typename Value>
  void check(const Value& value, Store store, Scan scan) {
    const std::uint32_t start = writer_.position();
    store(writer_, value);
    auto reader = XTPTPDataSet::ptpDataSetWithBytesNoCpy(writer_.bytes(), byteOrder_);
    reader.setPosition(start);
    require(scan(reader) == value);
    require(reader.position() == writer_.position());
  }

  void checkPadding() {
    const std::uint32_t before = writer_.length();
    const bool padded = writer_.adjustToAvoidModulo64PayloadSize();
    require(padded == ((before + 12) % 64 == 0));
    require(writer_.length() == before + (padded ? 1 : 0));
    require(!tarvo::isModulo64PayloadSize(writer_.length()));
  }

 private:
  std::int32_t byteOrder_;
  XTMutablePTPDataSet writer_;
};

void checkText(RoundTrip& trip, const std::string& text) {
  const std::u16string units = tarvo::utf16FromUTF8(text);
  require(tarvo::utf8FromUTF16(units) == text);
  // The last zero unit ends a string, so a text that itself ends in one comes back the same; only
  // the count byte's wrap loses text.
  if (units.size() >= 255) return;
  trip.check(
      text, [](auto& set, const auto& value) { set.storeString(value); },
      [](auto& set) { return set.scanString(); });
}

void checkGUID(RoundTrip& trip, const std::string& guid) {
  require(guid.size() == 36);
  trip.check(
      guid, [](auto& set, const auto& value) { set.storeGUID(value); },
      [](auto& set) { return set.scanGUID().value(); });
}

void check128(RoundTrip& trip, const tarvo::XTUInt128& value) {
  const std::string digits = tarvo::XTUInt128AsHexString(value);
  tarvo::XTUInt128 back = {};
  require(digits.empty() || (tarvo::XTHexStringAsUInt128(digits, &back) && back == value));
  trip.check(
      value, [](auto& set, const auto& each) { set.storeUInt128ToUInt8Array(each); },
      [](auto& set) {
        tarvo::XTUInt128 read;
        set.scanUInt128FromUInt8Array(read);
        return read;
      });
}

/// The datatypes of the generic reader and some that it does not know.
constexpr std::uint16_t kDataCodes[] = {1,      2,      3,      4,      5,      6,      7,
                                        8,      9,      10,     0x4001, 0x4002, 0x4003, 0x4004,
                                        0x4005, 0x4006, 0x4007, 0x4008, 0x4009, 0xFFFF, 0};

void scanByDatatype(XTPTPDataSet& set, std::uint16_t code) {
  const std::uint32_t start = set.position();
  const tarvo::PropertyDictionary value = set.scan(code);
  require(value.is_number_integer() || value.is_array() || value.is_string());
  if (value.is_array()) require(value.size() <= set.length());
  if (value.is_number()) require(set.position() - start == XTPTPDataSet::sizeForDataCode(code));
}

#define CHECK_ROUND_TRIP(trip, set, Name)                                                      \
  (trip).check((set).scan##Name(), [](auto& to, const auto& value) { to.store##Name(value); }, \
               [](auto& from) { return from.scan##Name(); })

/// One step over the data set. Raises what the codec raises.
void step(Script& script, XTPTPDataSet& set, RoundTrip& trip) {
  switch (script.next() % 24) {
    case 0:
      return CHECK_ROUND_TRIP(trip, set, Byte);
    case 1:
      return CHECK_ROUND_TRIP(trip, set, UInt16);
    case 2:
      return CHECK_ROUND_TRIP(trip, set, SInt16);
    case 3:
      return CHECK_ROUND_TRIP(trip, set, UInt32);
    case 4:
      return CHECK_ROUND_TRIP(trip, set, SInt32);
    case 5:
      return CHECK_ROUND_TRIP(trip, set, ByteArray);
    case 6:
      return CHECK_ROUND_TRIP(trip, set, UInt16Array);
    case 7:
      return CHECK_ROUND_TRIP(trip, set, SInt16Array);
    case 8:
      return CHECK_ROUND_TRIP(trip, set, UInt32Array);
    case 9:
      return CHECK_ROUND_TRIP(trip, set, SInt32Array);
    case 10:
      return checkText(trip, set.scanString());
    case 11:
      return checkGUID(trip, set.scanGUID().value());
    case 12: {
      tarvo::XTUInt128 value;
      set.scanUInt128FromUInt8Array(value);
      return check128(trip, value);
    }
    case 13: {
      tarvo::XTUInt128 value;
      set.scanUInt128(value);
      return check128(trip, value);
    }
    case 14:
      set.scanUInt64();
      return;
    case 15:
      set.scanSInt64();
      return;
    case 16:
      set.scanUInt64Array();
      return;
    case 17:
      set.scanSInt64Array();
      return;
    case 18:
      set.skip(script.next());
      return;
    case 19:
      set.skip(script.nextNumber());
      return;
    case 20:
      set.setPosition(script.nextNumber());
      return;
    case 21: {
      std::uint8_t bytes[256];
      set.scanBytes(bytes, script.next());
      return;
    }
    case 22:
      require(set.data().size() == std::min(set.position(), set.length()));
      return;
    default:
      return scanByDatatype(set, kDataCodes[script.next() % std::size(kDataCodes)]);
  }
}

/// Callers end at the first exception; a few more show that a data set outlives one. Exceptions are
/// what costs most time.
constexpr int kMostExceptions = 3;

void runScript(Script& script, std::span<const std::uint8_t> data, int steps,
               std::int32_t byteOrder) {
  // A copy of exact size, so that the sanitizer sees a read beyond it.
  auto set = XTPTPDataSet::initWithData(std::as_bytes(data));
  set.setByteOrder(byteOrder);
  RoundTrip trip(byteOrder);
  int raised = 0;
  for (int i = 0; i < steps && raised < kMostExceptions; ++i) {
    try {
      step(script, set, trip);
    } catch (const tarvo::Exception& exception) {
      const bool ofTheCodec = exception.name() == tarvo::exception_name::kRange ||
                              exception.reason().starts_with("Unexpected datatype ");
      require(ofTheCodec);
      ++raised;
    }
    trip.checkPadding();
  }
}

/// Any bytes are stored as text, which makes them valid text, and read back as such.
void storeAnything(std::span<const std::uint8_t> data) {
  const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
  RoundTrip trip(tarvo::kPTPByteOrder);
  checkText(trip, tarvo::utf8FromUTF16(tarvo::utf16FromUTF8(bytes)));
  auto writer = XTMutablePTPDataSet::dataSetWithByteOrder(tarvo::kPTPByteOrder, 0);
  writer.storeGUID(bytes);
  require(writer.length() == 4 || writer.length() == 20);
  tarvo::XTUInt128 digest = {};
  require(!tarvo::XTHexStringAsUInt128(bytes, &digest) || bytes.size() == 32);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Script script({data, size});
  const std::uint8_t header = script.next();
  const int steps = (header >> 1) & 0x1F;  // enough, and fast
  const std::int32_t byteOrder = header & 1;
  // The script ends where its longest form would, or half-way: the data set must not shrink to
  // nothing before an input has grown.
  const std::size_t length =
      std::min<std::size_t>(static_cast<std::size_t>(steps) * 2, script.rest().size() / 2);
  Script stepBytes(script.rest().first(length));
  runScript(stepBytes, script.rest().subspan(length), steps, byteOrder);
  storeAnything(script.rest());
  return 0;
}

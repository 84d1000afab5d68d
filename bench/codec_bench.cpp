// The codec's speed for each kind of data set, beside a bare memcpy of the same bytes: the "copy"
// line under each pair of "read" and "write". Compare within one run, where all of them meet the
// same machine; minimum, median and maximum of twenty repetitions:
//
//   codec_bench --benchmark_repetitions=20 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/XTPTPDataSet.h"

namespace tarvo {
namespace {

std::vector<std::uint16_t> codes(std::size_t count, std::uint16_t first) {
  std::vector<std::uint16_t> values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

/// What a camera of the maker answers to GetDeviceInfo.
struct DeviceInfo {
  static void write(XTMutablePTPDataSet& set) {
    static const auto operations = codes(40, 0x1001);
    static const auto events = codes(12, 0x4002);
    static const auto properties = codes(30, 0x5001);
    static const auto captureFormats = codes(2, 0x3801);
    static const auto imageFormats = codes(8, 0x3801);
    set.storeUInt16(100);
    set.storeUInt32(0x5452);
    set.storeUInt16(100);
    set.storeString("tarvo.example: 1.0;");
    set.storeUInt16(0);
    for (const auto* list : {&operations, &events, &properties, &captureFormats, &imageFormats})
      set.storeUInt16Array(*list);
    for (const char* text : {"Tarvo Imaging", "Tarvo Lumo 620", "1.04", "KCXTL00001234"})
      set.storeString(text);
  }
  static void read(XTPTPDataSet& set) {
    benchmark::DoNotOptimize(set.scanUInt16());
    benchmark::DoNotOptimize(set.scanUInt32());
    benchmark::DoNotOptimize(set.scanUInt16());
    benchmark::DoNotOptimize(set.scanString());
    benchmark::DoNotOptimize(set.scanUInt16());
    for (int i = 0; i < 5; ++i)
      benchmark::DoNotOptimize(set.scanUInt16Array());
    for (int i = 0; i < 4; ++i)
      benchmark::DoNotOptimize(set.scanString());
  }
};

/// The object handles of a full card.
struct TenThousandHandles {
  static void write(XTMutablePTPDataSet& set) {
    static const std::vector<std::uint32_t> handles = [] {
      std::vector<std::uint32_t> values(10000);
      std::iota(values.begin(), values.end(), 0x10001U);
      return values;
    }();
    set.storeUInt32Array(handles);
  }
  static void read(XTPTPDataSet& set) { benchmark::DoNotOptimize(set.scanUInt32Array()); }
};

/// A hundred file names of the usual length.
struct HundredStrings {
  static void write(XTMutablePTPDataSet& set) {
    for (int i = 0; i < 100; ++i)
      set.storeString("100_0001.JPG");
  }
  static void read(XTPTPDataSet& set) {
    for (int i = 0; i < 100; ++i)
      benchmark::DoNotOptimize(set.scanString());
  }
};

/// What a camera tells of a picture, with and without the maker's extension.
template <bool kExtended>
struct ObjectInfo {
  static XTExtendedObjectInfo picture() {
    auto info = kExtended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
    info.setStorageID(0x10001);
    info.setObjFmtCode(0x3801);
    info.setCompressedSize(2345678);
    info.setThumbFmtCode(0x3808);
    info.setImagePixWidth(3264);
    info.setImagePixHeight(2448);
    info.setParentObject(0x20003);
    info.setFileName("100_0001.JPG");
    info.setCaptureDateStr("20260301T101112");
    info.setModDataStr("20260301T101112");
    info.setKeywordsStr("a b c");
    info.setFileCreationDateStr("20260301T101112");
    info.setQuickFingerPrint({1, 2, 3});
    info.setFullFingerPrint({4, 5, 6});
    info.setTextAnnotation("At the lake");
    info.setAlbumList({0x30001, 0x30002});
    info.setPrintOrderList({0x40001});
    return info;
  }
  /// As writers of one record do it, not behind what was written before.
  static XTMutablePTPDataSet written(std::int32_t byteOrder) {
    static const XTExtendedObjectInfo info = picture();
    return info.dataSetWithByteOrder(byteOrder);
  }
  static void read(XTPTPDataSet& set) {
    benchmark::DoNotOptimize(XTExtendedObjectInfo::initWithDataSet(set, kExtended));
  }
};

template <typename Record>
XTMutablePTPDataSet written(std::int32_t byteOrder) {
  if constexpr (requires { Record::written(byteOrder); }) {
    return Record::written(byteOrder);
  } else {
    auto set = XTMutablePTPDataSet::dataSetWithByteOrder(byteOrder);
    Record::write(set);
    return set;
  }
}

void countBytes(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["size"] = static_cast<double>(size);
}

template <typename Record, std::int32_t kByteOrder>
void BM_read(benchmark::State& state) {
  const auto set = written<Record>(kByteOrder);
  for (auto _ : state) {
    auto reader = XTPTPDataSet::ptpDataSetWithBytesNoCpy(set.bytes(), kByteOrder);
    Record::read(reader);
  }
  countBytes(state, set.length());
}

template <typename Record, std::int32_t kByteOrder>
void BM_write(benchmark::State& state) {
  std::size_t size = 0;
  for (auto _ : state) {
    const auto set = written<Record>(kByteOrder);
    benchmark::DoNotOptimize(set.buffer());
    size = set.length();
  }
  countBytes(state, size);
}

/// The same bytes into a buffer that is there already: the least that any reader could do.
template <typename Record, std::int32_t kByteOrder>
void BM_copy(benchmark::State& state) {
  const auto set = written<Record>(kByteOrder);
  std::vector<std::byte> target(set.length());
  for (auto _ : state) {
    std::memcpy(target.data(), set.buffer(), set.length());
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  countBytes(state, set.length());
}

double least(const std::vector<double>& values) {
  return std::ranges::min(values);
}
double most(const std::vector<double>& values) {
  return std::ranges::max(values);
}

/// The library adds mean, median and deviation; the noise of a shared machine is seen in the ends.
template <typename Record, std::int32_t kByteOrder>
void measure(const std::string& name) {
  const auto add = [&](const std::string& what, void (*run)(benchmark::State&)) {
    benchmark::RegisterBenchmark((name + "/" + what).c_str(), run)
        ->ComputeStatistics("min", least)
        ->ComputeStatistics("max", most);
  };
  add("read", BM_read<Record, kByteOrder>);
  add("write", BM_write<Record, kByteOrder>);
  add("copy", BM_copy<Record, kByteOrder>);
}

const bool registered = [] {
  measure<DeviceInfo, 1>("DeviceInfo");
  measure<TenThousandHandles, 1>("TenThousandHandles");
  measure<TenThousandHandles, 0>("TenThousandHandlesReversed");
  measure<ObjectInfo<false>, 1>("ObjectInfo");
  measure<ObjectInfo<true>, 1>("ExtendedObjectInfo");
  measure<HundredStrings, 1>("HundredStrings");
  return true;
}();

}  // namespace
}  // namespace tarvo

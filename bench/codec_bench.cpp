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
#include <string>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"
#include "bench/SampleRecords.h"

namespace tarvo::bench {
namespace {

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
}  // namespace tarvo::bench

// How long the text files of devices take: order markers of 1, 2 and 4 MiB, as cameras write them
// and as a hostile one could, and an address book of 10,000 contacts. The time of a marker is in
// proportion to its size: "s_per_MiB" is the same for the three.
//
//   text_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "NativeServices/PictureDevice/datasets/AddressBookFile.h"
#include "NativeServices/PictureDevice/datasets/MarkerFile.h"

namespace tarvo {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr int kContacts = 10000;

/// `part` again and again, up to a size.
std::string repeated(std::string_view part, std::size_t size) {
  std::string text;
  while (text.size() + part.size() <= size)
    text += part;
  return text;
}

constexpr std::string_view kEmailJob =
    "\r\n[JOB]\r\nDST EML = \"ann@example.org\"\r\nDST EML = \"bob@example.org\"\r\n"
    "IMG SRC = \"../DCIM/100TARVO/100_0001.JPG\"\r\n";
constexpr std::string_view kPrintJob =
    "\r\n[JOB]\r\nPRT QTY = 003\r\n<IMG SRC = \"../DCIM/100TARVO/100_0001.JPG\">\r\n";

void countBytes(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["s_per_MiB"] =
      benchmark::Counter(static_cast<double>(state.iterations() * size) / static_cast<double>(kMiB),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

template <typename Read>
void measure(benchmark::State& state, std::size_t size, const Read& read) {
  for (auto _ : state)
    read();
  countBytes(state, size);
}

template <typename Orders>
void readMarker(benchmark::State& state, const std::string& text,
                void (*append)(Orders&, std::string_view)) {
  measure(state, text.size(), [&] {
    Orders orders;
    append(orders, text);
    benchmark::DoNotOptimize(orders.data());
  });
}

std::size_t sizeOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0)) * kMiB;
}

void emailMarker(benchmark::State& state) {
  readMarker(state, repeated(kEmailJob, sizeOf(state)), appendEmailOrders);
}
void printMarker(benchmark::State& state) {
  readMarker(state, repeated(kPrintJob, sizeOf(state)), appendPrintOrders);
}
/// Recipients alone, whose closing quotation mark never comes.
void emailMarkerUnclosed(benchmark::State& state) {
  readMarker(state, "\n[JOB]" + repeated("\nDST EML", sizeOf(state)), appendEmailOrders);
}
/// The same with one quotation mark at the end, which closes all of them.
void emailMarkerClosedLate(benchmark::State& state) {
  readMarker(state, "\n[JOB]" + repeated("\nDST EML", sizeOf(state)) + "\"\nIMG SRC=\"1\"",
             appendEmailOrders);
}
/// Jobs without anything in them.
void printMarkerOfJobs(benchmark::State& state) {
  readMarker(state, repeated("\n[JOB]", sizeOf(state)), appendPrintOrders);
}

BENCHMARK(emailMarker)->Arg(1)->Arg(2)->Arg(4)->ArgName("MiB");
BENCHMARK(printMarker)->Arg(1)->Arg(2)->Arg(4)->ArgName("MiB");
BENCHMARK(emailMarkerUnclosed)->Arg(1)->Arg(2)->Arg(4)->ArgName("MiB");
BENCHMARK(emailMarkerClosedLate)->Arg(1)->Arg(2)->Arg(4)->ArgName("MiB");
BENCHMARK(printMarkerOfJobs)->Arg(1)->Arg(2)->Arg(4)->ArgName("MiB");

void addressBook(benchmark::State& state) {
  std::string text;
  for (int i = 0; i < kContacts; ++i)
    text += "Nick" + std::to_string(i) + " <n" + std::to_string(i) + "@example.org>\r\n";
  measure(state, text.size(), [&] {
    AddressBook book;
    book.limits.maxAddresses = kContacts;
    fillInABDictFromText(book, text);
    benchmark::DoNotOptimize(book.contacts->data());
  });
}
BENCHMARK(addressBook);

}  // namespace
}  // namespace tarvo

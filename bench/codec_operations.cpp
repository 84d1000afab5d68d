// Reads or writes one kind of data set a number of times, for a tool that counts instructions:
//
//   codec_operations read ExtendedObjectInfo 1000
//
// What is to be counted happens in the function measured(), and nothing else does.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/SampleRecords.h"

namespace tarvo::bench {
namespace {

template <typename Record>
void operate(bool reads, int count) {
  const auto set = written<Record>(kPTPByteOrder);
  for (int i = 0; i < count; ++i) {
    if (reads) {
      auto reader = XTPTPDataSet::ptpDataSetWithBytesNoCpy(set.bytes(), kPTPByteOrder);
      Record::read(reader);
    } else {
      keep(written<Record>(kPTPByteOrder).buffer());
    }
  }
}

}  // namespace
}  // namespace tarvo::bench

/// Known to the counting tool by this name.
extern "C" [[gnu::noinline]] bool measured(std::string_view record, bool reads, int count) {
  using namespace tarvo::bench;
  if (record == "DeviceInfo") return operate<DeviceInfo>(reads, count), true;
  if (record == "ObjectInfo") return operate<ObjectInfo<false>>(reads, count), true;
  if (record == "ExtendedObjectInfo") return operate<ObjectInfo<true>>(reads, count), true;
  return false;
}

int main(int argc, char** argv) {
  if (argc == 4 && measured(argv[2], std::string_view(argv[1]) == "read", std::atoi(argv[3]))) {
    return EXIT_SUCCESS;
  }
  std::fputs("usage: codec_operations read|write RECORD COUNT\n", stderr);
  return EXIT_FAILURE;
}

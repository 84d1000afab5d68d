// The commands that have reached a virtual unit, for a test to compare.
#pragma once

#include <string>
#include <vector>

#include "simulator/massstorage/MassStorageUnit.h"
#include "tests/support/HexBytes.h"

namespace tarvo::test {

/// Their blocks in hexadecimal, in the order in which they came.
inline std::vector<std::string> blocksOf(const simulator::MassStorageUnit& unit) {
  std::vector<std::string> list;
  for (const auto& command : unit.commands())
    list.push_back(hexText(command.block));
  return list;
}

}  // namespace tarvo::test

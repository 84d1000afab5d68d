// A described volume as a FAT file system in a file, by the system's own tools.
#pragma once

#include "Utilities/FileDescriptor.h"
#include "simulator/description/UnitDescription.h"

namespace tarvo::simulator {

/// A card has one partition, an optical medium none.
enum class FatLayout { kPartition, kWholeMedium };

/// Makes the file system, with some room left, in a temporary file without a name. `blockSize`: of
/// the medium, in bytes. Waits for mkfs.fat and mcopy; raises std::runtime_error or
/// std::system_error where one of them is missing or fails.
FileDescriptor makeFatImage(const VolumeDescription& volume, unsigned blockSize, FatLayout layout);

}  // namespace tarvo::simulator

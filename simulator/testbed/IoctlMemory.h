// The memory of a program that calls an emulated ioctl.
//
//   const auto record = resolve(argument, 0, sizeof(usbdevfs_connectinfo));
//   store(record, info);
#pragma once

#include <umockdev.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "simulator/testbed/GObjectPointer.h"

namespace tarvo::simulator {

/// A piece of it; what is written there reaches the program when its call completes.
using IoctlMemory = GObjectPointer<UMockdevIoctlData>;

/// `size` bytes behind the pointer at `offset` of `parent`; null when the program's pointer is
/// null.
inline IoctlMemory resolve(UMockdevIoctlData* parent, std::size_t offset, std::size_t size) {
  GErrorSlot error;
  return IoctlMemory::adopt(umockdev_ioctl_data_resolve(parent, offset, size, error.address()));
}

/// Nothing where there is none.
inline std::span<std::byte> bytesOf(const IoctlMemory& memory, std::size_t size) {
  if (!memory) return {};
  return {reinterpret_cast<std::byte*>(memory->data), size};
}

/// Zeros where there is none.
template <typename T>
T load(const IoctlMemory& memory) {
  T value{};
  if (memory) std::memcpy(&value, memory->data, sizeof value);
  return value;
}

inline void update(UMockdevIoctlData* memory, std::size_t offset, std::span<std::byte> bytes) {
  umockdev_ioctl_data_update(memory, offset, reinterpret_cast<guint8*>(bytes.data()),
                             static_cast<gint>(bytes.size()));
}

/// Nothing happens where there is none.
template <typename T>
void store(const IoctlMemory& memory, const T& value) {
  if (!memory) return;
  std::array<std::byte, sizeof(T)> bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  update(memory.get(), 0, bytes);
}

}  // namespace tarvo::simulator

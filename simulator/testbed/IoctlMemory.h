// The memory of a program that calls an emulated ioctl.
//
//   const auto record = resolve(argument, 0, sizeof(usbdevfs_connectinfo));
//   store(record, info);
#pragma once

#include <umockdev.h>

#include <glib-object.h>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

namespace tarvo::simulator {

/// Moves only; drops its reference at the end. Null when made without one.
template <typename T>
class GObjectPointer {
 public:
  GObjectPointer() = default;
  /// Takes over the caller's reference.
  static GObjectPointer adopt(T* object) {
    GObjectPointer pointer;
    pointer.object_ = object;
    return pointer;
  }
  GObjectPointer(GObjectPointer&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)) {}
  GObjectPointer& operator=(GObjectPointer&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  GObjectPointer(const GObjectPointer&) = delete;
  GObjectPointer& operator=(const GObjectPointer&) = delete;
  ~GObjectPointer() {
    if (object_ != nullptr) g_object_unref(object_);
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  T* object_ = nullptr;
};

/// An error out-argument that frees itself.
class GErrorSlot {
 public:
  GErrorSlot() = default;
  GErrorSlot(const GErrorSlot&) = delete;
  GErrorSlot& operator=(const GErrorSlot&) = delete;
  ~GErrorSlot() { g_clear_error(&error_); }
  GError** address() { return &error_; }
  const char* message() const { return error_ != nullptr ? error_->message : "no error"; }

 private:
  GError* error_ = nullptr;
};

/// Keeps a node alive for as long as a client may call into it.
template <typename Node>
struct NodeReference {
  static void drop(gpointer reference, GClosure*) { delete static_cast<NodeReference*>(reference); }

  std::shared_ptr<Node> node;
};

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

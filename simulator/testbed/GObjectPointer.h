// A counted reference to a GObject, and a place for a GError.
//
//   const auto base = GObjectPointer<UMockdevIoctlBase>::adopt(umockdev_ioctl_base_new());
//   GErrorSlot error;
//   if (!umockdev_testbed_attach_ioctl(bed, node, base.get(), error.address()))
//   say(error.message());
#pragma once

#include <glib-object.h>

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

}  // namespace tarvo::simulator

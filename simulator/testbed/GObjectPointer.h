// A counted reference to a GObject.
#pragma once

#include <glib-object.h>

#include <utility>

namespace tarvo::simulator {

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

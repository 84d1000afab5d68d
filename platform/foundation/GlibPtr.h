// Owners for what GLib's C functions hand out, so that no path forgets to give it back.
//
//   GErrorHolder error;
//   GVariantPtr reply(g_dbus_connection_call_finish(connection, result, error.out()));
//   if (!reply) logTo(log, LogLevel::kWarning, error.message());
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>

namespace tarvo {

/// Deleter that calls a GLib function of one pointer argument.
template <auto release>
struct GlibRelease {
  template <typename T>
  void operator()(T* value) const {
    release(value);
  }
};

/// Deleter for every kind of GObject: g_object_unref takes any of them untyped.
struct GObjectRelease {
  void operator()(gpointer object) const { g_object_unref(object); }
};

/// Owns one reference of a GObject.
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectRelease>;

/// Owners of one reference each. A floating variant must be sunk before it is put into a
/// GVariantPtr; what a call returns is not floating.
using GVariantPtr = std::unique_ptr<GVariant, GlibRelease<g_variant_unref>>;
using GMainContextPtr = std::unique_ptr<GMainContext, GlibRelease<g_main_context_unref>>;
using GMainLoopPtr = std::unique_ptr<GMainLoop, GlibRelease<g_main_loop_unref>>;
/// Owns text that is freed by g_free.
using GCharPtr = std::unique_ptr<char, GlibRelease<g_free>>;

/// A reference of its own to `object`, which stays the caller's; null gives null.
template <typename T>
/// For what a signal handler or a getter lends and is wanted for longer.
GObjectPtr<T> retained(T* object) {
  return GObjectPtr<T>(object != nullptr ? static_cast<T*>(g_object_ref(object)) : nullptr);
}

/// `text`, which is freed, as a string; null gives empty text.
/// For the many functions whose result is "transfer full".
inline std::string takeText(char* text) {
  const GCharPtr owner(text);
  return owner ? owner.get() : "";
}

/// Receives a GError and frees it.
/// One holder may serve several calls in a row. Main use: the last argument of a GLib function.
class GErrorHolder {
 public:
  GErrorHolder() = default;
  GErrorHolder(const GErrorHolder&) = delete;
  GErrorHolder& operator=(const GErrorHolder&) = delete;
  ~GErrorHolder() { g_clear_error(&error_); }

  /// Where a GLib function may put its error; an earlier one is dropped.
  GError** out() {
    g_clear_error(&error_);
    return &error_;
  }
  explicit operator bool() const { return error_ != nullptr; }
  /// Valid until the next out() and while the holder lives; null without an error.
  const GError* get() const { return error_; }
  /// Whether it is this error of this domain; false without an error.
  bool matches(GQuark domain, int code) const { return g_error_matches(error_, domain, code); }
  /// The error in words; for a D-Bus error without its prefix of names.
  std::string message() {
    if (error_ == nullptr) return "unknown error";
    if (g_dbus_error_is_remote_error(error_)) g_dbus_error_strip_remote_error(error_);
    return error_->message;
  }

 private:
  GError* error_ = nullptr;
};

/// Owns a main-loop source: it leaves its loop when the owner goes.
class AttachedSource {
 public:
  /// Owns nothing; assign one that does.
  AttachedSource() = default;
  /// Takes over the reference to `source`, which must be attached already.
  explicit AttachedSource(GSource* source) : source_(source) {}
  AttachedSource(AttachedSource&& other) noexcept
      : source_(std::exchange(other.source_, nullptr)) {}
  /// The former source goes with `other`, out of its loop too if that is a temporary.
  AttachedSource& operator=(AttachedSource&& other) noexcept {
    std::swap(source_, other.source_);
    return *this;
  }
  AttachedSource(const AttachedSource&) = delete;
  AttachedSource& operator=(const AttachedSource&) = delete;
  ~AttachedSource() { reset(); }

  /// Takes the source out of its loop now; harmless when there is none. A source may do so from its
  /// own callback.
  void reset() {
    GSource* source = std::exchange(source_, nullptr);
    if (source == nullptr) return;
    g_source_destroy(source);
    g_source_unref(source);
  }
  /// Whether a source is owned, which says nothing of whether it has fired.
  explicit operator bool() const { return source_ != nullptr; }

 private:
  GSource* source_ = nullptr;
};

}  // namespace tarvo

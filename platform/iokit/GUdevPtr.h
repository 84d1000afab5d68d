// Owning pointers to what libgudev hands out.
#pragma once

#include <gudev/gudev.h>

#include <memory>

namespace tarvo {

/// Deleter; every class of libgudev is a GObject.
struct GUdevUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

/// Each owns one reference. What libgudev returns as "transfer full" goes straight into one of
/// these; what it passes to a signal handler is only lent.
using GUdevClientPtr = std::unique_ptr<GUdevClient, GUdevUnref>;
/// A device object is a snapshot: it stays valid, and old, when the device goes.
using GUdevDevicePtr = std::unique_ptr<GUdevDevice, GUdevUnref>;

}  // namespace tarvo

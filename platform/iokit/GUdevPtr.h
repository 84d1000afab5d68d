// Owning pointers to what libgudev hands out.
#pragma once

#include <gudev/gudev.h>

#include <memory>

namespace tarvo {

struct GUdevUnref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

using GUdevClientPtr = std::unique_ptr<GUdevClient, GUdevUnref>;
using GUdevDevicePtr = std::unique_ptr<GUdevDevice, GUdevUnref>;

}  // namespace tarvo

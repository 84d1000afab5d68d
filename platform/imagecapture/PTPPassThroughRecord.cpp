#include <new>
#include <string>

#include "Utilities/Exception.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

PTPPassThroughRecord::PTPPassThroughRecord(std::size_t room, const char* failureReason)
    : room_(room) {
  // Cleared, so that whoever reads beyond what was received reads zeros.
  buffer_.reset(new (std::nothrow) std::byte[allocationSize()]());
  if (!buffer_) throw Exception(std::string(exception_name::kMalloc), failureReason);
  pb().dataSize = static_cast<std::uint32_t>(room);
}

}  // namespace tarvo

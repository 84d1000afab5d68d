#include "Utilities/Exception.h"

#include <utility>

namespace tarvo {

Exception::Exception(std::string name, std::string reason, PropertyDictionary userInfo)
    : name_(std::move(name)),
      reason_(std::move(reason)),
      what_(name_ + ": " + reason_),  // from the members: the arguments are moved from
      userInfo_(std::move(userInfo)) {}

void raiseAssertion(std::string description) {
  throw Exception(std::string(exception_name::kInternalInconsistency), std::move(description));
}

}  // namespace tarvo

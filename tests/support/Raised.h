// What an action raises, as text that a test can compare: raised([] { ... }) is
// "NSRangeException: the reason", or empty when nothing is raised.
#pragma once

#include <string>
#include <utility>

#include "Utilities/Exception.h"

namespace tarvo::test {

template <typename Action>
std::string raised(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const Exception& exception) {
    return exception.name() + ": " + exception.reason();
  }
  return {};
}

}  // namespace tarvo::test

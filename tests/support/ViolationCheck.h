// Fails a test in which a program broke the protocol at a device of the testbed.
//
//   void TearDown() override { expectNoViolations(*testbed_); }
//
// Cameras inside the process check themselves: see simulatedCamera() in SimulatedUSBDevice.h.
#pragma once

#include <gtest/gtest.h>

#include "simulator/testbed/Testbed.h"

namespace tarvo::test {

/// To be called while the devices are still plugged in. A test that breaks the protocol on purpose
/// lets the device forget its violations first.
inline void expectNoViolations(const simulator::Testbed& testbed) {
  for (const auto* device : testbed.devices()) {
    for (const auto& violation : device->device->violations()) {
      ADD_FAILURE() << device->name << ": the host broke the protocol: " << violation;
    }
  }
}

}  // namespace tarvo::test

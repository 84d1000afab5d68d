// Stands in for the Relay application.
#include <cstdlib>
#include <exception>

#include "simulator/standins/Claim.h"
#include "simulator/standins/Standin.h"

int main(int argc, char** argv) {
  try {
    auto report = tarvo::simulator::standinReport(argc, argv);
    // The location id comes as signed decimal.
    if (std::getenv("TARVO_STANDIN_CLAIM") != nullptr && argc > 2) {
      report["claim"] = tarvo::simulator::tryClaim(static_cast<std::uint32_t>(std::atoll(argv[2])));
    }
    tarvo::simulator::writeReport(report);
    tarvo::simulator::stay();
  } catch (const std::exception&) {
    return 1;
  }
  return 0;
}

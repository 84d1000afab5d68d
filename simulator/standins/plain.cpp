// Stands in for the wireless utility and for the viewer.
#include <exception>

#include "simulator/standins/Standin.h"

int main(int argc, char** argv) {
  try {
    tarvo::simulator::writeReport(tarvo::simulator::standinReport(argc, argv));
    tarvo::simulator::stay();
  } catch (const std::exception&) {
    return 1;
  }
  return 0;
}

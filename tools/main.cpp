// tarvoctl: everything that a Tarvo device can do, from a shell.
#include "tools/CommandLine.h"

int main(int argc, char** argv) {
  return tarvo::tools::runProgram(argc, argv);
}

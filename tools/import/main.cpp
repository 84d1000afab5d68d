// tarvo-import: tarvoctl where it imports.
#include "tools/CommandLine.h"
#include "tools/import/Import.h"

int main(int argc, char** argv) {
  return tarvo::tools::runProgram(argc, argv, tarvo::tools::runImport);
}

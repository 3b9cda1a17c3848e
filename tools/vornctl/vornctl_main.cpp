// vornctl: shows what the bridging agent resolved, and why.
#include "CommandLine.h"
#include "Process/Failure.h"

int main(int argc, char** argv) {
   return Process::runTool("vornctl", [&] { return Vornctl::runCommandLine(argc, argv); });
}

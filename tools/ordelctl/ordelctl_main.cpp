// ordelctl: reads, writes, watches and loads the tree of the state database.
#include "CommandLine.h"
#include "Process/Failure.h"

int main(int argc, char** argv) {
   return Process::runTool("ordelctl", [&] { return Ordelctl::runCommandLine(argc, argv); });
}

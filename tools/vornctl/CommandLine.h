// The command line of vornctl: commands, arguments, options and their help.
#pragma once

namespace Vornctl {

// Carries out what the arguments ask for and returns the exit status, for help and version too. Errors are
// raised.
int runCommandLine(int argc, char** argv);

} // namespace Vornctl

// The command line of ordelctl: commands, arguments, options and their help.
#pragma once

namespace Ordelctl {

// Carries out what the arguments ask for and returns the exit status, for help and wrong usage too. Any other
// error is raised.
int runCommandLine(int argc, char** argv);

} // namespace Ordelctl

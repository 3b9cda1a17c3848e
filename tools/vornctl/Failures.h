// Why a command fails: see Process/Failure.h.
#pragma once

#include "Process/Failure.h"

namespace Vornctl {

using Process::Absent;
using Process::Refused;
using Process::Unreachable;
using Process::UsageError;

} // namespace Vornctl

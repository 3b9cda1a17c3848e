// Why a command fails, beside what treejson/Error.h tells: see Process/Failure.h.
#pragma once

#include "Process/Failure.h"

namespace Ordelctl {

using Process::Unreachable;
using Process::UsageError;

} // namespace Ordelctl

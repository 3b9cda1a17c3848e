// Why a command fails, apart from the reasons in treejson/Error.h: see Process/Failure.h.
#pragma once

#include "Process/Failure.h"

namespace Ordelctl {

using Process::Unreachable;
using Process::UsageError;

} // namespace Ordelctl

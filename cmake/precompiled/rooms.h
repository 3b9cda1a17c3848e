// What most sources of the rooms include: the base of the records, and the standard containers.
#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "Kem/Notifiee.h"
#include "Kem/Record.h"
#include "Kem/Trace.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

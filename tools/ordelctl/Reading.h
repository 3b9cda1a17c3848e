// The commands that read: get, ls, dump. Each mounts just what its selector names.
#pragma once

#include "Session.h"
#include "treejson/Writer.h"

#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

// The value as JSON, without a line end. Raises TreeJson::Absent where nothing exists.
void get(Session& session, std::string_view selector, TreeJson::Layout layout,
         TreeJson::Writer::Sink const& sink);

// Entries of a directory, keys of a collection, or attributes of an entity, in natural order. They are
// written so that they can be used in a selector: in quotes where a key needs them.
std::vector<std::string> list(Session& session, std::string_view selector);

// A document that brings back what the selector names.
void dump(Session& session, std::string_view selector, TreeJson::Layout layout,
          TreeJson::Writer::Sink const& sink);

} // namespace Ordelctl

// Selectors: the names of places in the tree, as people and references write them.
//
//    bridging/input/config                                        a directory, or an entity in one
//    bridging/config.vlanConfig[10].intf[Ethernet3/1]             a member of a member
//    bridging/input/config/cli.vlanConfig[10].configuredName      an attribute
//
// The path ends at the first '.'; the root is "/". A key is in its text form (KeyText.h) up to the first
// ']'. One that is empty, begins with '"', or holds ']' or a control character is written in double quotes,
// where \ is before a quote or another \, and \xHH for any byte. Parsing knows no schema; Tree::locate
// gives the parts their meaning.
#pragma once

#include "Kem/Brackets.h"

#include <string>
#include <string_view>
#include <vector>

namespace Ordel {

struct Selector {
   struct Step {
      std::string attribute;
      std::string key;     // text form, quotes taken away
      bool hasKey = false; // only the last step can be without one
      bool operator==(Step const&) const = default;
   };

   std::string path; // "" for the root
   std::vector<Step> steps;

   // False when the text is no selector; `error` then holds "selector: reason" with the place in it.
   static bool parse(std::string_view text, Selector& selector, std::string& error);
   // What parse takes; the same for equal selectors.
   std::string text() const;
   bool operator==(Selector const&) const = default;
};

using Kem::bracketed;

// Why the name can't be that of an entity in a directory, or null: it is 1 to maxNameBytes bytes and has no
// '/', '.', '[', ']' or NUL.
char const* badName(std::string_view name);

} // namespace Ordel

// One VLAN interface that dynamic sources ask for: who they are, by rank, and whose configuration wins. Owned by
// DynVlanIntfReactor, as long as somebody asks for the interface.
#pragma once

#include "DynVlanIntf/SourcePriorityPair.h"
#include "Kem/Ptr.h"
#include "records/Interface/VlanIntfConfig.h"

#include <map>

namespace Vorn {

class DynVlanIntfConfigPrioritySm {
  public:
   using Configs =
       std::map<SourcePriorityPair, Kem::Ptr<Interface::VlanIntfConfig>>; // the winner is the last

   Configs const& configs() const { return configs_; }
   // The name of the source that wins; empty when there is none.
   Kem::String8 winner() const { return configs_.empty() ? Kem::String8() : configs_.rbegin()->first.name; }
   // The record of that source; null when there is none.
   Kem::Ptr<Interface::VlanIntfConfig> config() const {
      return configs_.empty() ? nullptr : configs_.rbegin()->second;
   }

   // The source asks for it with that record, or with another one than before.
   void configIs(SourcePriorityPair const& source, Kem::Ptr<Interface::VlanIntfConfig> const& config) {
      configs_.insert_or_assign(source, config);
   }
   // Nothing when it didn't ask.
   void configDel(SourcePriorityPair const& source) { configs_.erase(source); }

  private:
   Configs configs_;
};

} // namespace Vorn

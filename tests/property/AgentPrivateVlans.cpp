// Private VLANs: which VLANs belong together, and what a secondary VLAN shares with its primary: the filtering
// database and the processor's port.
//
// The library of private VLANs is notified of VLANs that come and go and of their roles, and those who follow
// the library a batch later. Until then its pairs are behind the roles.

#include "AgentModel.h"

#include <utility>

namespace Model {

// --- The library.

// A VLAN has come or gone, or is another one of its number.
void Agent::handleLibraryVlan(unsigned number) {
   auto const known = libraryVlans_.find(number);
   if (!vlans_.contains(number)) {
      if (known != libraryVlans_.end())
         libraryVlans_.erase(known);
      forget({libraryRole, std::to_string(number)});
      handleLibraryRole(number);
      return;
   }
   unsigned const birth = births_.vlans[number];
   if (known != libraryVlans_.end() && known->second == birth)
      return;
   if (known != libraryVlans_.end()) {
      // All its pairs come about once more.
      nameInLibrary(number, 0);
      if (auto const primary = secondaries_.find(number); primary != secondaries_.end())
         for (unsigned const secondary : std::exchange(primary->second, {}))
            tellOfPair(number, secondary);
   }
   libraryVlans_[number] = birth;
   forget({libraryRole, std::to_string(number)});
   handleLibraryRole(number);
}

void Agent::handleLibraryRole(unsigned number) {
   auto const vlan = vlans_.find(number);
   bool const isSecondary = vlan != vlans_.end() && !vlan->second.internal && vlan->second.role.type != 0;
   nameInLibrary(number, isSecondary ? vlan->second.role.primary : 0);
   for (auto const& [secondary, primary] : std::map(named_))
      if (primary == number)
         pairInLibrary(number, secondary);
   if (isSecondary)
      roles_[number] = vlan->second.role;
   else
      syncLibraryRole(number);
}

// The primary that a secondary names; 0 for none.
void Agent::nameInLibrary(unsigned secondary, unsigned primary) {
   auto const named = named_.find(secondary);
   unsigned const before = named == named_.end() ? 0 : named->second;
   if (before == primary)
      return;
   if (primary != 0)
      named_[secondary] = primary;
   else
      named_.erase(secondary);
   if (before != 0)
      pairInLibrary(before, secondary);
   if (primary != 0)
      pairInLibrary(primary, secondary);
}

bool Agent::isPlain(unsigned number) const {
   auto const vlan = vlans_.find(number);
   return vlan != vlans_.end() && !vlan->second.internal && vlan->second.role == Role();
}

// They are a pair while the secondary names the primary and that is a plain VLAN.
void Agent::pairInLibrary(unsigned primary, unsigned secondary) {
   auto const named = named_.find(secondary);
   bool const isPair = named != named_.end() && named->second == primary && isPlain(primary);
   auto found = secondaries_.find(primary);
   if (isPair && found == secondaries_.end()) {
      found = secondaries_.try_emplace(primary).first;
      ++libraryBirths_[primary];
      tell({primaries, ""}, 0, std::to_string(primary));
   }
   if (isPair ? found->second.insert(secondary).second
              : found != secondaries_.end() && found->second.erase(secondary) != 0)
      tellOfPair(primary, secondary);
   syncLibraryRole(primary);
}

void Agent::syncLibraryRole(unsigned number) {
   auto const vlan = vlans_.find(number);
   auto const primary = secondaries_.find(number);
   if (vlan != vlans_.end() && !vlan->second.internal && vlan->second.role.type != 0)
      roles_[number] = vlan->second.role;
   else if (primary != secondaries_.end() && !primary->second.empty())
      roles_[number] = {};
   else
      roles_.erase(number);
}

void Agent::tellOfPair(unsigned primary, unsigned secondary) {
   std::string const name = std::to_string(primary);
   tell({libraryPrimary, name});
   auto const followed = primaries_.find(primary);
   if (followed != primaries_.end() && followed->second.birth == libraryBirths_[primary])
      tell({onePrimary, name}, 0, std::to_string(secondary));
}

// A primary without secondaries goes once those who follow it have been notified.
void Agent::handleLibraryPrimary(unsigned primary) {
   auto const found = secondaries_.find(primary);
   if (found == secondaries_.end() || !found->second.empty())
      return;
   secondaries_.erase(found);
   forget({libraryPrimary, std::to_string(primary)});
   tell({primaries, ""}, 0, std::to_string(primary));
}

// --- Pairs.

// The primary of a VLAN that makes a pair with it, both resolved; 0 for none.
unsigned Agent::primaryOf(unsigned number) const {
   for (auto const& [primary, secondaries] : secondaries_)
      if (secondaries.contains(number) && vlans_.contains(number) && vlans_.contains(primary))
         return primary;
   return 0;
}

// A primary has come, gone, or come again.
void Agent::handlePrimary(unsigned primary) {
   auto const found = secondaries_.find(primary);
   auto const followed = primaries_.find(primary);
   if (found == secondaries_.end()) {
      if (followed == primaries_.end())
         return;
      for (unsigned const secondary : std::set(followed->second.secondaries))
         handleSecondary(primary, secondary);
      forget({onePrimary, std::to_string(primary)});
      primaries_.erase(primary);
      for (auto const& [intf, port] : ports_)
         if (Tags const key{primary, 0}; !port.copy.egress.contains(key))
            resolved_.at(intf).egress.erase(key);
      return;
   }
   unsigned const birth = libraryBirths_[primary];
   if (followed != primaries_.end() && followed->second.birth == birth)
      return;
   forget({onePrimary, std::to_string(primary)});
   auto& state = primaries_[primary];
   state.birth = birth;
   for (unsigned const secondary : std::set(state.secondaries))
      if (!found->second.contains(secondary))
         handleSecondary(primary, secondary);
   for (unsigned const secondary : std::set(found->second))
      handleSecondary(primary, secondary);
}

// A pair has come about or has ceased to be.
void Agent::handleSecondary(unsigned primary, unsigned secondary) {
   auto const found = secondaries_.find(primary);
   bool const isSecondary = found != secondaries_.end() && found->second.contains(secondary);
   auto& known = primaries_.at(primary).secondaries;
   if (isSecondary)
      known.insert(secondary);
   else
      known.erase(secondary);
   copyFid(secondary);
   for (auto& [intf, port] : ports_) {
      if (port.copy.enabled) {
         syncVlan(intf, primary);
         syncVlan(intf, secondary);
      }
      if (vlans_.contains(primary) && mapsPrimaries(port.copy))
         syncPrimaryTranslation(intf, primary, secondary, isSecondary);
   }
}

// --- Filtering databases.

// A pair shares that of its primary; what the command line says comes after that.
void Agent::copyFid(unsigned number) {
   auto const fid = followedSettings_->fids.find(number);
   if (unsigned const primary = primaryOf(number); primary != 0)
      settings_.fids[number] = primary;
   else if (fid != followedSettings_->fids.end() && fid->second != 0)
      settings_.fids[number] = fid->second;
   else
      settings_.fids.erase(number);
}

// --- Mappings of VLAN interfaces.

void Agent::handleSviMappings() {
   for (auto const& [primary, mapping] : std::map(settings_.sviMappings))
      if (!followedSettings_->sviMappings.contains(primary))
         handleSviMapping(primary);
   for (auto const& [primary, mapping] : followedSettings_->sviMappings)
      handleSviMapping(primary);
}

// The mapping of a primary has come or gone, or is another one.
void Agent::handleSviMapping(unsigned primary) {
   auto const in = followedSettings_->sviMappings.find(primary);
   auto& followed = followedMappings_[primary];
   if (in == followedSettings_->sviMappings.end()) {
      forget({oneSviMapping, std::to_string(primary)});
      followedMappings_.erase(primary);
      settings_.sviMappings.erase(primary);
      return;
   }
   auto& out = settings_.sviMappings[primary];
   if (followed == in->second)
      return;
   forget({oneSviMapping, std::to_string(primary)});
   followed = in->second;
   std::set<unsigned> numbers = out.served;
   numbers.insert(in->second->served.begin(), in->second->served.end());
   for (unsigned const number : numbers)
      handleSviServed(primary, number);
   handleSviServesAll(primary);
}

void Agent::handleSviServed(unsigned primary, unsigned secondary) {
   auto& out = settings_.sviMappings.at(primary);
   if (followedMappings_.at(primary)->served.contains(secondary))
      out.served.insert(secondary);
   else
      out.served.erase(secondary);
}

void Agent::handleSviServesAll(unsigned primary) {
   settings_.sviMappings.at(primary).servesAll = followedMappings_.at(primary)->servesAll;
}

// --- Relations without a pair. The members of a VLAN depend on the role, the state and the existence of the
// one that it names and of those that name it, whatever the library makes of them.

void Agent::roleIs(unsigned number, Role const& role) {
   auto& vlan = vlans_.at(number);
   if (vlan.role == role)
      return;
   relatives_.insert(number);
   touchRelatives(number);
   vlan.role = role;
   touchRelatives(number);
   if (auto const known = libraryVlans_.find(number);
       known != libraryVlans_.end() && known->second == births_.vlans[number])
      tell({libraryRole, std::to_string(number)});
}

// The VLAN is to be looked at with all that it is related to; nothing for one without relatives.
void Agent::touchRelatives(unsigned number) {
   std::set<unsigned> related;
   if (auto const vlan = vlans_.find(number); vlan != vlans_.end() && vlan->second.role.primary != 0)
      related.insert(vlan->second.role.primary);
   for (auto const& [other, vlan] : vlans_)
      if (vlan.role.primary == number)
         related.insert(other);
   if (!related.empty()) {
      relatives_.insert(related.begin(), related.end());
      relatives_.insert(number);
   }
   if (!relatives_.empty())
      arm(Stage::relations);
}

void Agent::lookAtRelatives() {
   for (unsigned const number : std::exchange(relatives_, {}))
      for (auto const& [intf, port] : ports_)
         if (port.copy.enabled)
            syncVlan(intf, number);
}

} // namespace Model

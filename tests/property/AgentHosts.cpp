// Static hosts and groups: which input decides each of them, and the merged record of each VLAN.
//
// What an address comes to follows from the inputs at the moment when somebody touches it. A priority that
// changes touches nothing. Of groups the members are followed one by one, of the input that decides the
// group at that moment: a group that passes to another input gets that one's members, and keeps those that it
// has.

#include "AgentModel.h"

namespace Model {

namespace {

bool isMulticast(std::string const& address) {
   return std::stoul(address.substr(0, 2), nullptr, 16) & 1;
}

// The input whose record of the VLAN has the address, as a host or as a group: of equal ranks the last by
// name. Null when nobody has it.
std::shared_ptr<Input> decider(Intent const& intent, unsigned number, std::string const& address) {
   std::shared_ptr<Input> best;
   for (auto const& [name, in] : intent.inputs) {
      auto const fdb = in->fdbs.find(number);
      if (fdb == in->fdbs.end() || (best && best->fdbPriority > in->fdbPriority))
         continue;
      if ((isMulticast(address) && fdb->second->groups.contains(address)) ||
          fdb->second->hosts.contains(address))
         best = in;
   }
   return best;
}

bool isHeld(Intent const& intent, unsigned number) {
   for (auto const& [name, in] : intent.inputs)
      if (in->fdbs.contains(number))
         return true;
   return false;
}

std::string placeOf(unsigned number, std::string const& address) {
   return std::to_string(number) + " " + address;
}

} // namespace

// --- The inputs' records.

// The record of a VLAN has come or gone in an input, or is another one.
void Agent::handleFdb(std::string const& name, unsigned number) {
   auto const in = intent_.inputs.find(name);
   bool const isThere = in != intent_.inputs.end() && in->second->fdbs.contains(number);
   auto const followed = followedFdbs_.find({name, number});
   if (isThere) {
      auto const record = in->second->fdbs.at(number);
      if (followed != followedFdbs_.end() && followed->second == record)
         return;
      followedFdbs_[{name, number}] = record;
      fdbs_[number];
      decideAllAddresses(number);
      std::erase_if(followedGroups_, [&](auto const& entry) {
         return entry.first.first == name && entry.first.second.starts_with(std::to_string(number) + " ") &&
                !record->groups.contains(entry.first.second.substr(entry.first.second.find(' ') + 1));
      });
      for (auto const& [address, members] : record->groups)
         followGroup(name, number, address);
      return;
   }
   if (followed == followedFdbs_.end())
      return;
   followedFdbs_.erase(followed);
   forgetGroups(name, number);
   if (isHeld(intent_, number))
      decideAllAddresses(number);
   else
      fdbs_.erase(number);
}

// An input has come, or has gone with all its records, or is another one.
void Agent::handleFdbs(std::string const& name) {
   forget({inputFdb, name});
   std::set<unsigned> numbers;
   if (auto const in = intent_.inputs.find(name); in != intent_.inputs.end())
      for (auto const& [number, record] : in->second->fdbs)
         numbers.insert(number);
   for (auto const& [place, record] : followedFdbs_)
      if (place.first == name)
         numbers.insert(place.second);
   for (unsigned const number : numbers)
      handleFdb(name, number);
}

// A host of an input's record has come, changed or gone.
void Agent::handleHost(std::string const& name, unsigned number, std::string const& address) {
   auto const record = fdbOf(name, number);
   if (!record)
      return;
   auto const best = decider(intent_, number, address);
   settleKind(number, address, best);
   auto const& merged = fdbs_.at(number);
   if (merged.groups.contains(address))
      return;
   // What another input decides is left as it is, unless this one has let go of the address.
   if (!record->hosts.contains(address) || (best && best->name == name))
      mergedHostIs(number, address, best);
}

// A group of an input's record has come or gone, or is another one.
void Agent::handleGroup(std::string const& name, unsigned number, std::string const& address) {
   auto const record = fdbOf(name, number);
   if (!record)
      return;
   auto const best = decider(intent_, number, address);
   settleKind(number, address, best);
   bool const isHeld = record->groups.contains(address);
   if (!isHeld && !fdbs_.at(number).hosts.contains(address))
      mergedGroupIs(number, address, best);
   if (isHeld)
      followGroup(name, number, address);
   else
      followedGroups_.erase({name, placeOf(number, address)});
}

// --- The merged record.

// Null where the input isn't there, or not the one that is followed.
std::shared_ptr<Fdb> Agent::fdbOf(std::string const& name, unsigned number) const {
   auto const in = intent_.inputs.find(name);
   if (in == intent_.inputs.end() || !in->second->fdbs.contains(number))
      return nullptr;
   auto const followed = followedFdbs_.find({name, number});
   auto const& record = in->second->fdbs.at(number);
   return followed != followedFdbs_.end() && followed->second == record ? record : nullptr;
}

// The one kind, host or group, that the address has in the input that decides it.
void Agent::settleKind(unsigned number, std::string const& address, std::shared_ptr<Input> const& best) {
   if (!best || !isMulticast(address))
      return;
   auto& merged = fdbs_.at(number);
   if (best->fdbs.at(number)->groups.contains(address)) {
      merged.hosts.erase(address);
      if (!merged.groups.contains(address))
         mergedGroupIs(number, address, best);
   } else {
      merged.groups.erase(address);
      if (!merged.hosts.contains(address))
         mergedHostIs(number, address, best);
   }
}

// As the input has it; gone when that is null.
void Agent::mergedHostIs(unsigned number, std::string const& address, std::shared_ptr<Input> const& best) {
   auto& hosts = fdbs_.at(number).hosts;
   if (best)
      hosts[address] = best->fdbs.at(number)->hosts.at(address);
   else
      hosts.erase(address);
}

// There with all members that the input has, besides those that it has already; gone when that is null.
void Agent::mergedGroupIs(unsigned number, std::string const& address, std::shared_ptr<Input> const& best) {
   auto& groups = fdbs_.at(number).groups;
   if (!best) {
      groups.erase(address);
      return;
   }
   auto const& members = *best->fdbs.at(number)->groups.at(address);
   groups[address].insert(members.begin(), members.end());
}

void Agent::decideAllAddresses(unsigned number) {
   std::set<std::string> addresses;
   auto const gather = [&](auto const& fdb) {
      for (auto const& [address, host] : fdb.hosts)
         addresses.insert(address);
      for (auto const& [address, members] : fdb.groups)
         addresses.insert(address);
   };
   gather(fdbs_.at(number));
   for (auto const& [name, in] : intent_.inputs)
      if (auto const fdb = in->fdbs.find(number); fdb != in->fdbs.end())
         gather(*fdb->second);
   for (auto const& address : addresses) {
      auto const best = decider(intent_, number, address);
      settleKind(number, address, best);
      bool const isGroup = fdbs_.at(number).groups.contains(address);
      if (isGroup)
         mergedGroupIs(number, address, best);
      else
         mergedHostIs(number, address, best);
   }
}

// --- Members of groups.

// Follows a group of an input; one that is followed already stays as it is.
void Agent::followGroup(std::string const& name, unsigned number, std::string const& address) {
   auto const& group = intent_.inputs.at(name)->fdbs.at(number)->groups.at(address);
   auto& followed = followedGroups_[{name, placeOf(number, address)}];
   if (followed == group)
      return;
   followed = group;
   std::set<std::string> members = *group;
   if (auto const merged = fdbs_.at(number).groups.find(address); merged != fdbs_.at(number).groups.end())
      members.insert(merged->second.begin(), merged->second.end());
   for (auto const& intf : members)
      handleGroupMember(name, number, address, intf);
}

void Agent::forgetGroups(std::string const& name, unsigned number) {
   std::erase_if(followedGroups_, [&](auto const& entry) {
      return entry.first.first == name && entry.first.second.starts_with(std::to_string(number) + " ");
   });
}

void Agent::handleGroupMember(std::string const& name, unsigned number, std::string const& address,
                              std::string const& intf) {
   auto const best = decider(intent_, number, address);
   if (!fdbOf(name, number) || !best || best->name != name)
      return;
   auto const& groups = best->fdbs.at(number)->groups;
   auto const merged = fdbs_.at(number).groups.find(address);
   auto const group = groups.find(address);
   if (group == groups.end() || merged == fdbs_.at(number).groups.end())
      return;
   if (group->second->contains(intf))
      merged->second.insert(intf);
   else
      merged->second.erase(intf);
}

// --- What comes out.

// The merged record of each VLAN that is resolved, not internal, and uses no other VLAN's filtering database.
std::map<unsigned, MergedFdb> Agent::resolvedFdbs() const {
   std::map<unsigned, MergedFdb> resolved;
   for (auto const& [number, merged] : fdbs_) {
      auto const vlan = vlans_.find(number);
      if (vlan != vlans_.end() && !vlan->second.internal && !settings_.fids.contains(number))
         resolved[number] = merged;
   }
   return resolved;
}

} // namespace Model

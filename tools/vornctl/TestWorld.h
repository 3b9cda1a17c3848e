// A small switch for the tests of vornctl: records made by hand, as the agent and the publishers would
// leave them.
//
// Two inputs exist from the start: "cli", with the priority 100 for the VLANs and 50 for ports, and "eth",
// the agent's own, with 10 for ports.
#pragma once

#include "SwitchState.h"

#include "records/Bridging/EthGroup.h"
#include "records/Bridging/FdbConfig.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/TrunkGroup.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Errdisable/IntfErrdisableStatus.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"

#include <string>
#include <vector>

namespace Vornctl {

using InputMode = Bridging::Input::SwitchportMode;
using Bridging::SwitchportMode;

struct TestWorld {
   TestWorld() {
      // The directories on the way give the inputs their place: "bridging/input/config/cli".
      auto const inputRoot = below(below(root, "bridging"), "input");
      state.inputs = below(inputRoot, "config");
      auto const dynvlan = below(inputRoot, "dynvlan");
      state.dynVlans = below(dynvlan, "vlan");
      state.dynAllowedVlans = below(dynvlan, "allowedvlan");
      state.causes = below(root, "cause");
      state.config = Bridging::Config::make();
      state.chosen = Bridging::SwitchIntfConfigDir::make();
      state.ethIntfConfig = Interface::EthIntfConfigDir::make();
      state.ethIntfStatus = Interface::EthIntfStatusDir::make();
      state.errdisable = Errdisable::Status::make();
      state.agentStatus = Agent::Status::make();
      state.agentStatus->pidIs(77);
      state.agentPid = 77;
      state.now = 1000;
      cli = entity<Bridging::Input::CliConfig>(state.inputs, "cli");
      cli->vlanConfigPriorityIs(100);
      cli->switchIntfConfigPriorityIs(50);
      eth = input("eth", 0, 10);
   }

   template <class T>
   static Kem::Ptr<T> entity(Kem::Ptr<Kem::Dir> const& dir, char const* name) {
      auto const made = T::make();
      made->nameIs(name);
      dir->entityPtrIs(made);
      return made;
   }
   static Kem::Ptr<Kem::Dir> below(Kem::Ptr<Kem::Dir> const& dir, char const* name) {
      auto const made = Kem::Dir::make(name);
      dir->entityPtrIs(made);
      return made;
   }
   Kem::Ptr<Bridging::Input::Config> input(char const* name, uint32_t vlanPriority, uint32_t portPriority) {
      auto const made = entity<Bridging::Input::Config>(state.inputs, name);
      made->vlanConfigPriorityIs(vlanPriority);
      made->switchIntfConfigPriorityIs(portPriority);
      return made;
   }

   // A VLAN that an input holds and the agent has made.
   Kem::Ptr<Bridging::VlanConfig> vlan(uint16_t number, char const* name = "") {
      cli->vlanConfigIs(number);
      auto const made = state.config->vlanConfigIs(number);
      made->configuredNameIs(name);
      made->configSourceIs("cli");
      return made;
   }
   // A dynamic source of VLANs, and one that widens ports.
   Kem::Ptr<Bridging::Input::VlanIdSet> dynVlans(char const* name, char const* vlans, uint32_t priority) {
      auto const made = entity<Bridging::Input::VlanIdSet>(state.dynVlans, name);
      made->vlansIs(vlans);
      made->configPriorityIs(priority);
      return made;
   }
   Kem::Ptr<Bridging::Input::AllowedVlans> dynAllowed(char const* name) {
      return entity<Bridging::Input::AllowedVlans>(state.dynAllowedVlans, name);
   }
   // A VLAN that the agent made for that source.
   Kem::Ptr<Bridging::VlanConfig> dynamicVlan(uint16_t number, char const* source) {
      auto const made = state.config->vlanConfigIs(number);
      made->configuredNameIs("VLAN" + std::string(4 - std::to_string(number).size(), '0') +
                             std::to_string(number));
      made->configSourceIs(source);
      return made;
   }
   Kem::Ptr<Bridging::VlanConfig> internalVlan(uint16_t number, char const* port) {
      auto const made = state.config->vlanConfigIs(number, true);
      made->configuredNameIs(port);
      made->configSourceIs("internal");
      made->intfIs(port, {});
      resolve(port, SwitchportMode::routed_, number);
      return made;
   }
   // A record of an input for a port.
   static Kem::Ptr<Bridging::Input::SwitchIntfConfig> record(Kem::Ptr<Bridging::Input::Config> const& in,
                                                             char const* port, InputMode mode) {
      return in->switchIntfConfigIs(port, mode);
   }
   // That record has won, and this is what the agent made of it.
   void resolve(Kem::Ptr<Bridging::Input::SwitchIntfConfig> const& winner, SwitchportMode mode,
                uint16_t native) {
      state.chosen->switchIntfConfigIs(winner);
      resolve(winner->intfId(), mode, native);
   }
   void resolve(Sulvi::IntfId port, SwitchportMode mode, uint16_t native) {
      state.config->switchIntfConfigIs(port)->switchportModeAndNativeVlanIs(
          {.switchportMode = mode, .nativeVlan = native});
   }
   // Both at once, from the command line.
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> accessPort(char const* port, uint16_t vlanNumber) {
      auto const made = record(cli, port, InputMode::access_);
      made->accessVlanIs(vlanNumber);
      resolve(made, SwitchportMode::access_, vlanNumber);
      return made;
   }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> trunkPort(char const* port, char const* allowed,
                                                         uint16_t native = 1) {
      auto const made = record(cli, port, InputMode::trunk_);
      made->trunkAllowedVlansIs(allowed);
      made->trunkNativeVlanIs(native);
      resolve(made, SwitchportMode::trunk_, native);
      return made;
   }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> routedPort(char const* port, uint16_t internal) {
      auto const made = record(cli, port, InputMode::access_);
      made->enabledIs(false);
      resolve(made, SwitchportMode::routed_, internal);
      return made;
   }
   void member(uint16_t number, char const* port, bool tagged) {
      state.config->vlanConfig(number)->intfIs(port, {.tagged = tagged});
   }

   // A static host or group of an input, and as the agent resolved it.
   static void host(Kem::Ptr<Bridging::Input::Config> const& in, uint16_t number, char const* addr,
                    char const* port, Bridging::EntryType type = Bridging::EntryType::staticMac) {
      Sulvi::EthAddr const key{std::string_view(addr)};
      in->fdbConfigIs(number)->configuredHostIs(key, {.addr = key, .intf = port, .entryType = type});
   }
   static void group(Kem::Ptr<Bridging::Input::Config> const& in, uint16_t number, char const* addr,
                     std::vector<char const*> const& ports) {
      auto const made = in->fdbConfigIs(number)->ethGroupIs(Sulvi::EthAddr(std::string_view(addr)));
      for (char const* const port : ports)
         made->intfIs(port, true);
   }
   void resolveHost(uint16_t number, char const* addr, char const* port,
                    Bridging::EntryType type = Bridging::EntryType::staticMac) {
      Sulvi::EthAddr const key{std::string_view(addr)};
      state.config->fdbConfigIs(Bridging::Fid(number))
          ->configuredHostIs(key, {.addr = key, .intf = port, .entryType = type});
   }
   void resolveGroup(uint16_t number, char const* addr, std::vector<char const*> const& ports) {
      auto const made = state.config->fdbConfigIs(Bridging::Fid(number))
                            ->ethGroupIs(Sulvi::EthAddr(std::string_view(addr)));
      for (char const* const port : ports)
         made->intfIs(port, true);
   }

   Kem::Ptr<Kem::Dir> root = Kem::Dir::make();
   SwitchState state;
   Kem::Ptr<Bridging::Input::CliConfig> cli;
   Kem::Ptr<Bridging::Input::Config> eth;
};

} // namespace Vornctl

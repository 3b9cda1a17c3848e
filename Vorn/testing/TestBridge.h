// The world of the tests of bridging: records of this process, and a BridgingConfigSm and an InputSelectorSm
// that their factories made of them, on one loop with virtual time. No database and no agent.
//
//    TestBridge bridge;                       // inputs "cli" (priorities 100) and "eth" (10), both empty
//    bridge.vlan(10);                         // asked for by the command line
//    bridge.access("Ethernet1", 10);
//    bridge.start();                          // both state machines, settled
//    EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
//    EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
//
//    bridge.intf("Ethernet2");                // an interface; it gets a default record in "eth"
//    bridge.routed("Ethernet3");              // no switchport, and up: takes an internal VLAN
//    bridge.publish("mvrp", 200).vlan(20);    // another publisher, who now wins
//    bridge.input("a").host(10, "00:1c:73:00:00:01", "Ethernet1");
//    EXPECT_EQ(bridge.host(10, "00:1c:73:00:00:01"), "Ethernet1");
//    bridge.dynVlans("overlay", "30-32", 5);  // a dynamic source, with its priority
//    bridge.dynAllowed("overlay")->vlansIs("Ethernet1", "30");
//    bridge.run();                            // until nothing is left to do
//    bridge.advance(10);                      // seconds
//
// All records are public: a test sets them before start() as a previous run would have left them, and changes
// them afterwards to see whether something is worked out again. TestTrace keeps what the state machines
// trace. Nothing here asserts: tests compare what the verbs return. Only one world can exist at a time: it
// owns the clock.
#pragma once

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "PrivateVlanLib/LibSm.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/Selection/InputSelectorConfig.h"
#include "records/Bridging/EthGroup.h"
#include "records/Bridging/FdbConfig.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/TrunkGroup.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/Bridging/SviMappingState.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vorn {

// One publisher, and what it asks for.
struct TestInput {
   Kem::Ptr<Bridging::Input::Config> record;

   Kem::Ptr<Bridging::Input::VlanConfig> vlan(uint16_t vlanId) const { return record->vlanConfigIs(vlanId); }
   void vlanDel(uint16_t vlanId) const { record->vlanConfigDel(vlanId); }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> port(Sulvi::IntfId intfId) const {
      return record->switchIntfConfigIs(intfId);
   }
   void portDel(Sulvi::IntfId intfId) const { record->switchIntfConfigDel(intfId); }
   void prioritiesAre(uint32_t priority) const {
      record->vlanConfigPriorityIs(priority);
      record->switchIntfConfigPriorityIs(priority);
   }
   // Static hosts and groups, which have a priority of their own.
   void fdbPriorityIs(uint32_t priority) const { record->fdbConfigPriorityIs(priority); }
   Kem::Ptr<Bridging::Input::FdbConfig> fdb(uint16_t vlanId) const { return record->fdbConfigIs(vlanId); }
   void fdbDel(uint16_t vlanId) const { record->fdbConfigDel(vlanId); }
   void host(uint16_t vlanId, char const* addr, Sulvi::IntfId intfId) const {
      Sulvi::EthAddr const ethAddr{std::string_view(addr)};
      fdb(vlanId)->configuredHostIs(ethAddr, {.addr = ethAddr, .intf = intfId});
   }
   void hostDel(uint16_t vlanId, char const* addr) const {
      fdb(vlanId)->configuredHostDel(Sulvi::EthAddr(std::string_view(addr)));
   }
   // The group with these members besides those that it has.
   Kem::Ptr<Bridging::EthGroup> group(uint16_t vlanId, char const* addr,
                                      std::vector<Sulvi::IntfId> const& members = {}) const {
      auto const made = fdb(vlanId)->ethGroupIs(Sulvi::EthAddr(std::string_view(addr)));
      for (Sulvi::IntfId const member : members)
         made->intfIs(member, true);
      return made;
   }
   void groupDel(uint16_t vlanId, char const* addr) const {
      fdb(vlanId)->ethGroupDel(Sulvi::EthAddr(std::string_view(addr)));
   }
};

class TestBridge {
  public:
   using Mode = Bridging::Input::SwitchportMode;
   using Policy = Bridging::InternalVlanAllocationPolicy;
   static constexpr auto switchedOn = Interface::EnabledState::enabledStateEnabled;
   static constexpr auto shutDown = Interface::EnabledState::enabledStateShutdown;
   static constexpr auto bridgedModel = Interface::IntfForwardingModel::intfForwardingModelBridged;
   static constexpr auto blockedModel = Interface::IntfForwardingModel::intfForwardingModelBlocked;
   static constexpr auto routedModel = Interface::IntfForwardingModel::intfForwardingModelRouted;
   static constexpr uint32_t cliPriority = 100;
   static constexpr Kem::Seconds startTime = 1000.0;

   TestBridge() {
      place("cli", cli);
      TestInput{cli}.prioritiesAre(cliPriority);
      place("eth", eth);
      eth->switchIntfConfigPriorityIs(10);
   }
   ~TestBridge() { stop(); }

   // --- Life.
   BridgingConfigInputs bridgingInputs() const {
      return {
          .configIn = eth,
          .allSwitchIntfConfigs = allSwitchIntfConfigs,
          .fdbConfigDir = fdbConfigDir,
          .config = config,
          .vlanIntfConfig = vlanIntfConfig,
          .dynVlanIntfList = dynVlanIntfList,
          .ethIntfConfigDir = ethIntfConfigDir,
          .dynAllowedVlanDir = dynAllowedVlanDir,
          .dynVlanDir = dynVlanDir,
          .dynVlanSrcTable = dynVlanSrcTable,
          .noInternalVlanIdCauseStatus = cause,
          .recoveryTimer = Kem::ActivityFacility::clock(),
          .cliConfig = cli,
          .privateVlanLibState = privateVlans,
          .attrLogCheck = attrLogCheck,
          .ethIntfStatusDir = ethIntfStatusDir,
      };
   }
   InputSelectorInputs selectorInputs() const {
      return {
          .inputDir = inputDir,
          .bridgingConfigSm = sm,
          .ethIntfConfigDir = ethIntfConfigDir,
          .bridgingInputEth = eth,
          .allSwitchIntfConfigDir = allSwitchIntfConfigs,
          .fdbConfigDir = fdbConfigDir,
          .bridgingConfig = config,
          .cliConfig = cli,
          .bridgingHwCapabilities = hwCapabilities,
      };
   }
   void start() {
      startBridgingOnly();
      startSelector();
      run();
   }
   // The two halves of start(), for what happens between.
   void startBridgingOnly() {
      if (hasLibrary)
         library = Kem::makePtr<PrivateVlanLib::LibSm>(config, privateVlans);
      sm = bridgingConfigSmFactory(bridgingInputs());
   }
   void startSelector() { selector = inputSelectorSmFactory(selectorInputs()); }
   // The state machines end as they do with their process: what they wrote stays.
   void stop() {
      selector = nullptr;
      sm = nullptr;
      library = nullptr;
      dynVlanSrcTable = Bridging::Input::DynVlanSrcTable::make(); // it is the process's own
   }
   void restart() {
      stop();
      start();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void turn() { Kem::activityManager()->runTurn(); }
   static void advance(Kem::Seconds duration) { Kem::activityManager()->advance(duration); }

   // --- Publishers.
   // The input of that name, made with priorities of 0 where there is none.
   TestInput input(Kem::Name const& name) {
      auto record = inputDir->entity<Bridging::Input::Config>(name);
      if (!record) {
         record = Bridging::Input::Config::make();
         place(name, record);
      }
      return {record};
   }
   // The same, raised to that priority once the selector knows of it.
   TestInput publish(Kem::Name const& name, uint32_t priority) {
      auto const result = input(name);
      run();
      result.prioritiesAre(priority);
      return result;
   }
   void withdraw(Kem::Name const& name) { inputDir->entityPtrDel(name); }
   // Of the command line:
   Kem::Ptr<Bridging::Input::VlanConfig> vlan(uint16_t vlanId) { return TestInput{cli}.vlan(vlanId); }
   void vlanDel(uint16_t vlanId) { TestInput{cli}.vlanDel(vlanId); }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> port(Sulvi::IntfId intfId) {
      return TestInput{cli}.port(intfId);
   }
   void portDel(Sulvi::IntfId intfId) { TestInput{cli}.portDel(intfId); }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> access(Sulvi::IntfId intfId, uint16_t vlanId) {
      auto const record = port(intfId);
      record->switchportModeIs(Mode::access_);
      record->accessVlanIs(vlanId);
      return record;
   }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> trunk(Sulvi::IntfId intfId, char const* allowed = "1-4094",
                                                     uint16_t nativeVlan = 1) {
      auto const record = port(intfId);
      record->switchportModeIs(Mode::trunk_);
      record->trunkAllowedVlansIs(allowed);
      record->trunkNativeVlanIs(nativeVlan);
      return record;
   }
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> routed(Sulvi::IntfId intfId) {
      intf(intfId);
      forwardingModelIs(intfId, routedModel);
      auto const record = port(intfId);
      record->enabledIs(false);
      return record;
   }
   void internalVlansAre(uint16_t min, uint16_t max, Policy policy = Policy::ascending) {
      cli->internalVlanRangeIs({.min = min, .max = max});
      cli->internalVlanAllocationPolicyIs(policy);
   }

   // Dynamic sources: made where there is none of that name.
   Kem::Ptr<Bridging::Input::VlanIdSet> dynVlans(Kem::Name const& name, Kem::String8 const& vlans,
                                                 uint32_t priority = 0) {
      auto const source = dynamicSource<Bridging::Input::VlanIdSet>(dynVlanDir, name);
      source->configPriorityIs(priority);
      source->vlansIs(vlans);
      return source;
   }
   void dynVlansDel(Kem::Name const& name) { dynVlanDir->entityPtrDel(name); }
   Kem::Ptr<Bridging::Input::AllowedVlans> dynAllowed(Kem::Name const& name) {
      return dynamicSource<Bridging::Input::AllowedVlans>(dynAllowedVlanDir, name);
   }
   // A port in a trunk group of the source.
   void dynTrunkGroup(Kem::Name const& name, Kem::String8 const& group, Sulvi::IntfId intfId) {
      dynAllowed(name)->trunkGroupIs(group)->intfListIs(intfId, true);
   }
   void dynAllowedDel(Kem::Name const& name) { dynAllowedVlanDir->entityPtrDel(name); }

   // --- Interfaces.
   Kem::Ptr<Interface::EthIntfConfig> intf(Sulvi::IntfId intfId) {
      return ethIntfConfigDir->intfConfigIs(intfId);
   }
   void enabledStateLocalIs(Sulvi::IntfId intfId, Interface::EnabledState state) {
      intf(intfId)->enabledStateLocalIs(state);
   }
   void forwardingModelIs(Sulvi::IntfId intfId, Interface::IntfForwardingModel model) {
      ethIntfStatusDir->intfStatusIs(intfId)->forwardingModelIs(model);
   }
   Kem::Ptr<Interface::VlanIntfConfig> vlanIntf(uint16_t vlanId) {
      return vlanIntfConfig->intfConfigIs(vlanIntfIdOf(vlanId));
   }
   // The same of a dynamic source.
   Kem::Ptr<Interface::VlanIntfConfig> dynVlanIntf(uint16_t vlanId) {
      auto const record = Interface::VlanIntfConfig::make(vlanIntfIdOf(vlanId));
      dynVlanIntfList->intfConfigIs(record);
      return record;
   }

   // The VLAN of a routed port, as a previous run left it.
   Kem::Ptr<Bridging::VlanConfig> internalVlan(uint16_t vlanId, Sulvi::IntfId intfId) {
      SwitchIntfSms const noPorts;
      ResolvedVlans resolvedVlans(config, noPorts);
      return createRoutedPortVlanConfig(resolvedVlans, vlanId, intfId);
   }

   // --- Private VLANs.
   void roleIs(uint16_t vlanId, Bridging::VlanType type, uint16_t primary) {
      vlan(vlanId)->vlanTypeAndPrimaryVlanIs({.vlanType = type, .primaryVlan = primary});
   }
   // A VLAN that names the primary, which another call makes.
   void secondaryVlan(uint16_t vlanId, uint16_t primary) {
      roleIs(vlanId, Bridging::VlanType::secondary_, primary);
   }
   // Which secondaries the primary's VLAN interface serves.
   Kem::Ptr<Bridging::SviMappingState> sviMapping(uint16_t primary) { return cli->sviMappingIs(primary); }
   // The role in what the command line asks for, and what the library makes of it: for a world without one.
   void primaryVlan(uint16_t primary, std::vector<uint16_t> const& secondaries) {
      vlan(primary);
      auto const state = privateVlans->primaryVlanIs(primary);
      for (auto const secondary : secondaries) {
         Bridging::VlanTypeAndPrimaryVlan const role{.vlanType = Bridging::VlanType::secondary_,
                                                     .primaryVlan = primary};
         vlan(secondary)->vlanTypeAndPrimaryVlanIs(role);
         state->secondaryVlanIs(secondary, true);
         privateVlans->vlanTypeAndPrimaryVlanIs(secondary, role);
      }
   }

   // --- What came out; null or empty when there is nothing.
   Kem::Ptr<Bridging::VlanConfig> resolvedVlan(uint16_t vlanId) const { return config->vlanConfig(vlanId); }
   Kem::Ptr<Bridging::SwitchIntfConfig> resolvedPort(Sulvi::IntfId intfId) const {
      return config->switchIntfConfig(intfId);
   }
   std::vector<uint16_t> resolvedVlans() const {
      std::vector<uint16_t> numbers;
      config->vlanConfig().forEach([&](Bridging::VlanId vlanId, auto const&) { numbers.push_back(vlanId); });
      std::sort(numbers.begin(), numbers.end());
      return numbers;
   }
   // Who the resolved VLAN is from.
   std::string sourceOf(uint16_t vlanId) const {
      auto const vlan = resolvedVlan(vlanId);
      return vlan ? vlan->configSource().str() : "";
   }
   // The dynamic sources that claim the VLAN, in their order.
   std::vector<std::string> claimants(uint16_t vlanId) const {
      std::vector<std::string> names;
      if (auto const source = dynVlanSrcTable->dynVlanSrc(vlanId))
         for (auto const& [name, isClaimed] : source->vlanSource())
            names.push_back(name.str());
      return names;
   }
   // "access 10": mode in effect and native VLAN.
   std::string mode(Sulvi::IntfId intfId) const {
      static constexpr char const* names[] = {"access", "trunk", "dot1qTunnel", "tap", "tool", "routed"};
      auto const port = resolvedPort(intfId);
      if (!port)
         return {};
      auto const resolved = port->switchportModeAndNativeVlan();
      return std::string(names[static_cast<size_t>(resolved.switchportMode)]) + " " +
             std::to_string(resolved.nativeVlan.value());
   }
   // "tagged" or "untagged", and then "mapped", and "rx" or "tx" where it is not both: "untagged mapped tx".
   std::string membership(uint16_t vlanId, Sulvi::IntfId intfId) const {
      static constexpr char const* directions[] = {"", " rx", " tx"};
      auto const vlan = resolvedVlan(vlanId);
      auto const* const member = vlan ? vlan->intf(intfId) : nullptr;
      if (!member)
         return {};
      return std::string(member->tagged ? "tagged" : "untagged") + (member->mappedUntagged ? " mapped" : "") +
             directions[static_cast<size_t>(member->direction)];
   }
   // The VLANs that the port is a member of.
   std::vector<uint16_t> vlansOf(Sulvi::IntfId intfId) const {
      auto numbers = resolvedVlans();
      std::erase_if(numbers, [&](uint16_t n) { return !resolvedVlan(n)->intf(intfId); });
      return numbers;
   }
   // The port of a static host of the VLAN: resolved, and merged from the inputs. Empty when there is none.
   std::string host(uint16_t vlanId, char const* addr) const {
      return hostOf(config->fdbConfig(Bridging::Fid(vlanId)), addr);
   }
   std::string mergedHost(uint16_t vlanId, char const* addr) const {
      return hostOf(fdbConfigDir->fdbConfig(vlanId), addr);
   }
   // The members of a static group in the order of their names, "{Ethernet1 Ethernet2}"; empty when there is no
   // such group.
   std::string group(uint16_t vlanId, char const* addr) const {
      return groupOf(config->fdbConfig(Bridging::Fid(vlanId)), addr);
   }
   std::string mergedGroup(uint16_t vlanId, char const* addr) const {
      return groupOf(fdbConfigDir->fdbConfig(vlanId), addr);
   }
   // The filtering database that the VLAN is mapped onto; 0 for its own.
   uint16_t fid(uint16_t vlanId) const {
      auto const* const found = config->vidToFidMap().find(vlanId);
      return found ? found->value() : uint16_t(0);
   }
   // The translations of leaving frames, by key: "100/0 to 101, 200/7 to 5".
   std::string egress(Sulvi::IntfId intfId) const {
      auto const port = resolvedPort(intfId);
      return port ? translations(port->egressVlanXlate()) : std::string();
   }
   std::string ingress(Sulvi::IntfId intfId) const {
      auto const port = resolvedPort(intfId);
      return port ? translations(port->ingressVlanXlate()) : std::string();
   }
   // Since when the port waits for an internal VLAN.
   std::optional<Kem::Seconds> waitingSince(Sulvi::IntfId intfId) const {
      auto const* const time = cause->intfStatus().find(intfId);
      return time ? std::optional(*time) : std::nullopt;
   }
   // The state machine of the port; null when there is none.
   Kem::Ptr<SwitchIntfSm> portSm(Sulvi::IntfId intfId) const { return sm->switchIntfSm(intfId); }

   void place(Kem::Name const& name, Kem::Ptr<Bridging::Input::Config> const& record) {
      record->nameIs(name);
      inputDir->entityPtrIs(record);
   }

  private:
   template <class Fdb>
   static std::string hostOf(Kem::Ptr<Fdb> const& fdb, char const* addr) {
      auto const* const found = fdb ? fdb->configuredHost(Sulvi::EthAddr(std::string_view(addr))) : nullptr;
      return found ? found->intf.stringValue().str() : std::string();
   }
   template <class Fdb>
   static std::string groupOf(Kem::Ptr<Fdb> const& fdb, char const* addr) {
      auto const found = fdb ? fdb->ethGroup(Sulvi::EthAddr(std::string_view(addr))) : nullptr;
      if (!found)
         return {};
      std::vector<std::string> names;
      for (auto const& [intfId, isMember] : found->intf())
         names.push_back(intfId.stringValue().str());
      std::sort(names.begin(), names.end());
      std::string text;
      for (auto const& name : names)
         text += (text.empty() ? "" : " ") + name;
      return '{' + text + '}';
   }
   template <class Table>
   static std::string translations(Table const& table) {
      std::vector<std::pair<Bridging::VlanXlateKey, Bridging::VlanXlateMapping>> sorted;
      table.forEach([&](auto const& key, auto const& mapping) { sorted.emplace_back(key, mapping); });
      std::sort(sorted.begin(), sorted.end());
      std::string text;
      for (auto const& [key, mapping] : sorted)
         text +=
             (text.empty() ? "" : ", ") + key.text() + " to " + std::to_string(mapping.mappedVlanId.value()) +
             (mapping.mappedInnerVlanId == 0 ? "" : "/" + std::to_string(mapping.mappedInnerVlanId.value()));
      return text;
   }
   template <class T>
   static Kem::Ptr<T> dynamicSource(Kem::Ptr<Kem::Dir> const& dir, Kem::Name const& name) {
      auto standing = dir->entity<T>(name);
      if (!standing) {
         standing = T::make();
         standing->nameIs(name);
         dir->entityPtrIs(standing);
      }
      return standing;
   }

   Kem::VirtualTime time_{startTime};

  public:
   Kem::Ptr<Kem::Dir> inputDir = Kem::Dir::make("config");
   Kem::Ptr<Bridging::Input::CliConfig> cli = Bridging::Input::CliConfig::make();
   Kem::Ptr<Bridging::Input::Config> eth = Bridging::Input::Config::make();
   Kem::Ptr<Bridging::HwCapabilities> hwCapabilities = Bridging::HwCapabilities::make();
   Kem::Ptr<Bridging::SwitchIntfConfigDir> allSwitchIntfConfigs = Bridging::SwitchIntfConfigDir::make();
   Kem::Ptr<Bridging::FdbConfigDir> fdbConfigDir = Bridging::FdbConfigDir::make();
   Kem::Ptr<Bridging::Config> config = Bridging::Config::make();
   Kem::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfig = Interface::VlanIntfConfigDir::make();
   Kem::Ptr<DynVlanIntfList> dynVlanIntfList = DynVlanIntfList::make();
   Kem::Ptr<Interface::EthIntfConfigDir> ethIntfConfigDir = Interface::EthIntfConfigDir::make();
   Kem::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Interface::EthIntfStatusDir::make();
   Kem::Ptr<Kem::Dir> dynAllowedVlanDir = Kem::Dir::make("allowedvlan");
   Kem::Ptr<Kem::Dir> dynVlanDir = Kem::Dir::make("vlan");
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> dynVlanSrcTable = Bridging::Input::DynVlanSrcTable::make();
   Kem::Ptr<Errdisable::CauseStatus> cause = Errdisable::CauseStatus::make();
   Kem::Ptr<PrivateVlanLib::LibState> privateVlans = PrivateVlanLib::LibState::make();
   bool hasLibrary = false;              // the library of private VLANs runs from the next start on
   AttrLogCheck* attrLogCheck = nullptr; // where the deferred stages ask for room; null: there always is

   Kem::Ptr<PrivateVlanLib::LibSm> library;
   Kem::Ptr<BridgingConfigSm> sm;
   Kem::Ptr<InputSelectorSm> selector;
};

// Keeps what the agent's facilities trace, on all levels.
struct TestTrace : Kem::TestTrace {
   TestTrace() : Kem::TestTrace("Vorn*/0-9") {}
};

} // namespace Vorn

// What one decision about membership costs in the agent, in process and without a database: a bridge of 4094
// VLANs and 512 trunk ports on local records.
#include "Kem/Activity.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/Selection/InputSelectorSm.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/Bridging/SwitchIntfConfigDir.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

class Bridge {
  public:
   Bridge(unsigned vlans, unsigned ports) {
      for (unsigned vlan = 1; vlan <= vlans; ++vlan)
         cli->vlanConfigIs(Bridging::VlanId(vlan));
      for (unsigned port = 1; port <= ports; ++port)
         chosen->switchIntfConfigIs(cli->switchIntfConfigIs("Ethernet" + std::to_string(port),
                                                            Bridging::Input::SwitchportMode::trunk_));
      sm = Vorn::bridgingConfigSmFactory({.configIn = cli,
                                          .allSwitchIntfConfigs = chosen,
                                          .fdbConfigDir = nullptr,
                                          .config = config,
                                          .vlanIntfConfig = nullptr,
                                          .dynVlanIntfList = Vorn::DynVlanIntfList::make(),
                                          .ethIntfConfigDir = nullptr,
                                          .dynAllowedVlanDir = dynAllowedVlanDir,
                                          .dynVlanDir = dynVlanDir,
                                          .dynVlanSrcTable = Bridging::Input::DynVlanSrcTable::make(),
                                          .noInternalVlanIdCauseStatus = Errdisable::CauseStatus::make(),
                                          .recoveryTimer = Kem::ActivityFacility::clock(),
                                          .cliConfig = cli,
                                          .privateVlanLibState = PrivateVlanLib::LibState::make(),
                                          .attrLogCheck = nullptr,
                                          .ethIntfStatusDir = nullptr});
      settle();
   }
   // The protocol asks for those VLANs, and for that each port carries them.
   void protocolIs(char const* vlans) {
      auto const allowed = Bridging::Input::AllowedVlans::make();
      allowed->nameIs("mvrp");
      sm->switchIntfSm().forEach([&](Sulvi::IntfId intfId, auto const&) { allowed->vlansIs(intfId, vlans); });
      dynAllowedVlanDir->entityPtrIs(allowed);
      source->nameIs("mvrp");
      source->vlansIs(vlans);
      dynVlanDir->entityPtrIs(source);
      settle();
   }
   void settle() {
      while (sm->vlanConfigCodef()->backlogSize() || sm->switchIntfConfigCodef()->backlogSize())
         Kem::activityManager()->runTurn(0.001);
      while (Kem::activityManager()->runTurn(0))
         ;
   }

   Kem::Ptr<Bridging::Input::CliConfig> const cli = Bridging::Input::CliConfig::make();
   Kem::Ptr<Bridging::SwitchIntfConfigDir> const chosen = Bridging::SwitchIntfConfigDir::make();
   Kem::Ptr<Bridging::Config> const config = Bridging::Config::make();
   Kem::Ptr<Kem::Dir> const dynVlanDir = Kem::Dir::make("vlan");
   Kem::Ptr<Kem::Dir> const dynAllowedVlanDir = Kem::Dir::make("allowedvlan");
   Kem::Ptr<Bridging::Input::VlanIdSet> const source = Bridging::Input::VlanIdSet::make();
   Kem::Ptr<Vorn::BridgingConfigSm> sm;
};

constexpr unsigned vlans = 4094, ports = 512;

Bridge& fullBridge() {
   static Bridge bridge(vlans, ports);
   return bridge;
}

// A whole bridge from nothing, for each membership.
void membershipsFromNothing(benchmark::State& state) {
   for (auto _ : state) {
      Bridge bridge(vlans, ports);
      benchmark::DoNotOptimize(bridge.config->vlanConfig(1)->intf().size());
   }
   state.counters["each"] = benchmark::Counter(double(vlans) * ports * double(state.iterations()),
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(membershipsFromNothing)->Unit(benchmark::kMillisecond)->Iterations(3);

// The rules alone, over all VLANs for one port.
void decision(benchmark::State& state) {
   auto& bridge = fullBridge();
   auto const port = bridge.sm->switchIntfSm("Ethernet7");
   auto const vlan = bridge.config->vlanConfig(100);
   for (auto _ : state)
      benchmark::DoNotOptimize(Vorn::vlanMember(*vlan, *port, 1));
}
BENCHMARK(decision);

// A pass of one port over all VLANs in which nothing changes, for each VLAN.
void passWithoutChange(benchmark::State& state) {
   auto& bridge = fullBridge();
   auto const port = bridge.sm->switchIntfSm("Ethernet7");
   for (auto _ : state)
      port->doSyncAllVlans();
   state.counters["each"] = benchmark::Counter(double(vlans) * double(state.iterations()),
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(passWithoutChange)->Unit(benchmark::kMicrosecond);

// One VLAN taken from a port and given back, through the deferred stage.
void oneVlanOnOnePort(benchmark::State& state) {
   auto& bridge = fullBridge();
   auto const port = bridge.cli->switchIntfConfig("Ethernet7");
   bool isTaken = false;
   for (auto _ : state) {
      isTaken = !isTaken;
      port->trunkAllowedVlansIs(isTaken ? "1-99,101-4094" : "1-4094");
      bridge.settle();
   }
}
BENCHMARK(oneVlanOnOnePort)->Unit(benchmark::kMicrosecond);

// The allowed VLANs of all ports, on which a protocol has asked for VLANs too, for each port.
void allowedVlansOfAllPorts(benchmark::State& state) {
   Bridge bridge(100, ports);
   bridge.protocolIs("1-4094");
   for (auto _ : state)
      bridge.sm->switchIntfSm().forEach(
          [](Sulvi::IntfId, auto const& port) { port->doComputeTrunkAllowedVlans(); });
   state.counters["each"] = benchmark::Counter(double(ports) * double(state.iterations()),
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(allowedVlansOfAllPorts)->Unit(benchmark::kMicrosecond);

// One VLAN that the protocol asks for or gives up, beside all others, on all ports.
void oneVlanOfAProtocol(benchmark::State& state) {
   Bridge bridge(100, ports);
   bridge.protocolIs("1-4094");
   bool isGone = false;
   for (auto _ : state) {
      isGone = !isGone;
      bridge.source->vlansIs(isGone ? "1-4093" : "1-4094");
      bridge.settle();
   }
}
BENCHMARK(oneVlanOfAProtocol)->Unit(benchmark::kMicrosecond);

} // namespace

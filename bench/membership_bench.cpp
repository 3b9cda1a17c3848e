// What one decision about membership costs in the agent, in process and without a database: a bridge of 4094
// VLANs and 512 trunk ports on local records.
#include "Kem/Activity.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/Selection/InputSelectorSm.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
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
                                          .dynAllowedVlanDir = nullptr,
                                          .dynVlanDir = nullptr,
                                          .dynVlanSrcTable = Bridging::Input::DynVlanSrcTable::make(),
                                          .noInternalVlanIdCauseStatus = Errdisable::CauseStatus::make(),
                                          .recoveryTimer = Kem::ActivityFacility::clock(),
                                          .cliConfig = cli,
                                          .privateVlanLibState = PrivateVlanLib::LibState::make(),
                                          .attrLogCheck = nullptr,
                                          .ethIntfStatusDir = nullptr});
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

} // namespace

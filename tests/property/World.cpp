#include "World.h"

#include "Listing.h"
#include "records/Bridging/EthGroup.h"
#include "records/Bridging/FdbConfig.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/SviMappingState.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanConfig.h"

#include <filesystem>
#include <unistd.h>
#include <utility>

namespace Model {

namespace {

constexpr char configPath[] = "bridging/config";
constexpr char mergedPath[] = "bridging/fdbConfigDir";
constexpr char defaultsPath[] = "bridging/input/config/eth";
constexpr char chosenPath[] = "bridging/switchIntfConfig";
constexpr char causePath[] = "interface/errdisable/cause/no-internal-vlan";

ResolvedVlan resolvedOf(Bridging::VlanConfig const& vlan) {
   ResolvedVlan to;
   to.internal = vlan.internal();
   to.isSuspended = vlan.adminState() != Bridging::VlanAdminState::active;
   to.source = vlan.configSource().str();
   to.name = vlan.configuredName().str();
   to.role = {.type = static_cast<unsigned>(vlan.vlanTypeAndPrimaryVlan().vlanType),
              .primary = vlan.vlanTypeAndPrimaryVlan().primaryVlan};
   for (auto const& [group, value] : vlan.trunkGroup())
      to.trunkGroups.insert(group.str() + (value ? "" : " false"));
   for (auto const& [intf, member] : vlan.intf())
      to.members[intf.stringValue().str()] = {member.tagged, member.mappedUntagged,
                                              static_cast<unsigned>(member.direction)};
   return to;
}

template <class Translations>
std::map<Tags, Tags> tagsOf(Translations const& translations) {
   std::map<Tags, Tags> to;
   for (auto const& [key, mapping] : translations)
      to[{key.outerVlanId, key.innerVlanId}] = {mapping.mappedVlanId, mapping.mappedInnerVlanId};
   return to;
}

ResolvedPort resolvedOf(Bridging::SwitchIntfConfig const& port) {
   return {.mode = static_cast<int>(port.switchportModeAndNativeVlan().switchportMode),
           .native = port.switchportModeAndNativeVlan().nativeVlan,
           .learns = port.macLearningEnabled(),
           .floods = port.floodingEnabled(),
           .takesTagged = port.allowTaggedPkts(),
           .isAsym = port.asymVlanEnabled(),
           .filters = port.enableIngressFiltering(),
           .tpid = port.vlanTpid(),
           .ingress = tagsOf(port.ingressVlanXlate()),
           .egress = tagsOf(port.egressVlanXlate()),
           .ingressNative = port.ingressNativeVlanXlate(),
           .egressNative = port.egressNativeVlanXlate()};
}

SviMapping mappingOf(Bridging::SviMappingState const& mapping) {
   SviMapping to{.servesAll = mapping.defaultSviMapping()};
   for (auto const& [vlanId, value] : mapping.secondaryVlan())
      to.served.insert(value ? vlanId + 0u : vlanId + 5000u); // the agent writes no false ones
   return to;
}

template <class FdbRecord>
MergedFdb fdbOf(FdbRecord const& fdb) {
   MergedFdb to;
   for (auto const& [address, host] : fdb.configuredHost())
      to.hosts[address.stringValue().str()] = {host.intf.stringValue().str(),
                                               static_cast<unsigned>(host.entryType)};
   for (auto const& [address, group] : fdb.ethGroup()) {
      auto& members = to.groups[address.stringValue().str()];
      for (auto const& [intf, value] : group->intf())
         members.insert(intf.stringValue().str() + (value ? "" : " false"));
   }
   return to;
}

// In the order of the platform's collections.
PortOrder portOrder() {
   Kem::ValueMap<Sulvi::IntfId, int> table;
   Kem::OrderedValueMap<Sulvi::IntfId, int> ordered;
   for (auto const* const intf : Publishers::ports) {
      table.findOrInsert(intf, [] { return 0; });
      ordered.findOrInsert(intf, [] { return 0; });
   }
   PortOrder order;
   for (auto const& [intf, value] : table)
      order.inTable.emplace(intf.stringValue().str(), order.inTable.size());
   for (auto const& [intf, value] : ordered)
      order.byPort.emplace(intf.stringValue().str(), order.byPort.size());
   return order;
}

} // namespace

World::World(uint64_t seed)
    : namespaceFolder_(testing::TempDir() + "/bridging-netns-" + std::to_string(getpid())),
      portOrder_(portOrder()) {
   kernel_.namespaceFolderIs(namespaceFolder_);
   sw_.holdsLogIs(true);
   publishers_ = std::make_unique<Publishers>(sw_, kernel_, intent_, [this](Change const& change) {
      if (model_)
         model_->changed(change);
   });
   neighbour_ = std::make_unique<Neighbour>(sw_);
   publishers_->begin(Dice(seed));
   config_ = sw_.subscribe<Bridging::Config>(configPath);
   defaults_ = sw_.subscribe<Bridging::Input::Config>(defaultsPath);
   merged_ = sw_.subscribe<Bridging::FdbConfigDir>(mergedPath);
   cause_ = sw_.subscribe<Errdisable::CauseStatus>(causePath);
   subscribeRouting();
   sw_.run();
}

World::~World() {
   stopAgent();
   std::filesystem::remove_all(namespaceFolder_);
}

// --- Lives of the agent.

void World::startAgent() {
   if (model_)
      return;
   sw_.run(); // the subscriber has heard of all edits
   Survivors const left = survivors();
   double const now = Kem::now();
   kernel_.faultsEnd(); // it doesn't start without its own sockets
   hasFaults_ = false;
   records_ = records();
   sw_.startAgent();
   sw_.run();
   model_ = std::make_unique<Agent>(intent_, left, now, portOrder_);
   model_->run(now);
   noteNeedlesslyMade(true);
}

void World::stopAgent() {
   sw_.stopAgent();
   kernel_.descriptorsDel();
   model_ = nullptr;
}

void World::startAndKillAgent(unsigned turns) {
   if (model_)
      return;
   kernel_.faultsEnd();
   sw_.beginStart();
   killAgent(turns);
}

void World::killAgent(unsigned turns) {
   for (unsigned i = 0; i < turns; ++i)
      Kem::activityManager()->runTurn(0);
   stopAgent();
}

void World::startFreshAgent() {
   stopAgent();
   auto const config = sw_.publish<Bridging::Config>(configPath);
   config->vlanConfigDelAll();
   config->switchIntfConfigDelAll();
   config->fdbConfigDelAll();
   config->vidToFidMapDelAll();
   config->sviMappingDelAll();
   config->ieeeReservedForwardingDelAll();
   sw_.publish<Bridging::FdbConfigDir>(mergedPath)->fdbConfigDelAll();
   sw_.publish<Bridging::SwitchIntfConfigDir>(chosenPath)->switchIntfConfigDelAll();
   sw_.publish<Bridging::Input::Config>(defaultsPath)->switchIntfConfigDelAll();
   sw_.publish<Errdisable::CauseStatus>(causePath)->intfStatusDelAll();
   sw_.run();
   startAgent();
}

void World::pass(double seconds) {
   double const end = Kem::now() + seconds;
   run();
   Kem::activityManager()->advanceTo(end);
   run();
}

std::string World::makeKernelFail(Dice dice) {
   if (!model_)
      return "nothing";
   hasFaults_ = true;
   return publishers_->makeKernelFail(dice);
}

void World::endFaults() {
   kernel_.faultsEnd();
   if (std::exchange(hasFaults_, false))
      pass(4);
}

void World::run() {
   sw_.run();
   publishers_->turnIsOver();
   if (model_)
      model_->run(Kem::now());
}

std::string World::edit(Dice dice) {
   return publishers_->hasNewInputs() ? "nothing" : neighbour_->perform(dice, model_.get());
}

// --- What there is.

Outcome World::told() const {
   Outcome all;
   for (auto const& [vlanId, vlan] : config_->vlanConfig())
      all.vlans[vlanId] = resolvedOf(*vlan);
   for (auto const& [intf, port] : config_->switchIntfConfig())
      all.ports[intf.stringValue().str()] = resolvedOf(*port);
   for (auto const& [vlanId, fdb] : merged_->fdbConfig())
      all.merged[vlanId] = fdbOf(*fdb);
   for (auto const& [fid, fdb] : config_->fdbConfig())
      all.fdbs[fid] = fdbOf(*fdb);
   for (auto const& [intf, time] : cause_->intfStatus())
      all.waiting[intf.stringValue().str()] = time;
   for (auto const& [intf, record] : defaults_->switchIntfConfig())
      all.defaults[intf.stringValue().str()] = record->enabled();
   all.chosen = chosenInputs(sw_.server().tree(), chosenPath);
   all.detail = config_->vlanConfigSourceDetail().str();
   all.rangeMin = config_->internalVlanRange().min;
   all.rangeMax = config_->internalVlanRange().max;
   all.allocatesDescending =
       config_->internalVlanAllocationPolicy() != Bridging::InternalVlanAllocationPolicy::ascending;
   all.agingTime = config_->hostAgingTime();
   all.passesPause = config_->pausePassThrough();
   all.forwardingMode = static_cast<unsigned>(config_->forwardingMode());
   for (auto const& [vlan, fid] : config_->vidToFidMap())
      all.fids[vlan] = fid;
   for (auto const& [vlanId, mapping] : config_->sviMapping())
      all.sviMappings[vlanId] = mappingOf(*mapping);
   for (auto const& [address, value] : config_->ieeeReservedForwarding())
      all.reserved.insert(address.stringValue().str() + (value ? "" : " false"));
   return all;
}

Survivors World::survivors() const {
   Survivors left{.outcome = told(), .chosen = {}};
   for (auto const& [intf, name] : left.outcome.chosen) {
      auto& record = left.chosen[intf];
      auto const input = intent_.inputs.find(name);
      if (input == intent_.inputs.end())
         continue;
      if (auto const port = input->second->ports.find(intf); port != input->second->ports.end())
         record = port->second;
   }
   return left;
}

World::Records World::records() const {
   Records all;
   for (auto const& [vlanId, vlan] : config_->vlanConfig())
      all.vlans[vlanId] = vlan;
   for (auto const& [intf, port] : config_->switchIntfConfig())
      all.ports[intf.stringValue().str()] = port;
   return all;
}

// A life that has just begun has made all its records, but the subscriber sees only what differs: for
// it a port that stays, and a VLAN that stays what it was (a routed port's or not), are the same
// records as before.
void World::noteNeedlesslyMade(bool isStart) {
   auto const look = [&](std::string const& what, auto const& before, auto const& after, auto const& births,
                         auto const& birthsBefore, auto&& stays) {
      for (auto const& [key, record] : after) {
         auto const old = before.find(key);
         if (old == before.end() || old->second == record)
            continue;
         auto const birth = births.find(key), birthBefore = birthsBefore.find(key);
         bool const isSame = isStart ? stays(*old->second, *record)
                                     : birth != births.end() && birthBefore != birthsBefore.end() &&
                                           birth->second == birthBefore->second;
         if (isSame)
            needlesslyMade_ += what + record->keyText() + " was removed and made again without need\n";
      }
   };
   auto now = records();
   look("VLAN ", records_.vlans, now.vlans, model_->births().vlans, births_.vlans,
        [](auto const& a, auto const& b) { return a.internal() == b.internal(); });
   look("port ", records_.ports, now.ports, model_->births().ports, births_.ports,
        [](auto const&, auto const&) { return true; });
   records_ = std::move(now);
   births_ = model_->births();
}

std::string World::differences() {
   if (!model_)
      return "";
   // What the kernel refused, such as a VLAN that another device still had, is tried again a second later.
   if (!routingDifferences().empty())
      pass(2);
   Outcome expected = model_->outcome(), actual = told();
   for (auto* const outcome : {&expected, &actual})
      for (auto& [number, vlan] : outcome->vlans)
         if (model_->isCpuPortOpen(number))
            vlan.members.erase("Cpu");
   std::string text = Model::differences(expected, actual);
   noteNeedlesslyMade(false);
   text += std::exchange(needlesslyMade_, {});
   text += routingDifferences();
   auto const& tree = sw_.server().tree();
   for (auto const& [path, record] : {std::pair<char const*, Kem::Entity const*>{configPath, config_.ptr()},
                                      {defaultsPath, defaults_.ptr()},
                                      {mergedPath, merged_.ptr()},
                                      {causePath, cause_.ptr()}})
      if (listing(tree, *tree.find(path)) != listing(*record))
         text += std::string(path) + ": the subscriber has something else than the database\n";
   return text;
}

} // namespace Model

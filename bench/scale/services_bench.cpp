// Dynamic VLANs, static hosts and private VLANs at scale, through real processes: a publisher (this one), the
// state database, the agent and a subscriber. See bench/README.md.
//
//    services_bench              each case at its full size: time, and what the agent used of the processor
//    services_bench --growth     each case at four sizes
//    services_bench CASE...      only these: mvrp, claim, vanish, hosts, private
#include "../database/Relay.h"
#include "Counter.h"
#include "Processes.h"

#include "Kem/Activity.h"
#include "Ordel/client/EntityManager.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/TypeInfo.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

std::string binFolder;

using Mode = Bridging::Input::SwitchportMode;

Sulvi::IntfId portOf(unsigned number) {
   return Sulvi::IntfId("Ethernet" + std::to_string(number));
}

// The list "1-N" of so many VLANs; empty for none.
std::string vlansUpTo(unsigned count) {
   return count == 0 ? "" : "1-" + std::to_string(count);
}

// --- The publishers, all in this process.

class Publisher final : public Ordel::Mounter {
  public:
   explicit Publisher(std::string const& socketPath) : Mounter(Kem::Name("services")) {
      manager_ = Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo, "publisher",
                                                    Ordel::Role::tool);
      if (auto const error = manager_->connect(socketPath, 10); !error.empty()) {
         std::fprintf(stderr, "%s\n", error.c_str());
         std::exit(1);
      }
      auto const group = manager_->getMountGroup(*this);
      group->doMount({"wc", "Bridging::Input::CliConfig", "bridging/input/config/cli"});
      for (char const* const path : otherInputs)
         group->doMount({"wc", "Bridging::Input::Config", path});
      group->doMount({"wc", "Bridging::Input::VlanIdSet", sourcePath});
      group->doMount({"wc", "Bridging::Input::AllowedVlans", allowedPath});
      group->doClose(false, "services", 0.0);
      while (!isComplete_)
         Kem::activityManager()->runTurn(0.01);
      cli = manager_->entity<Bridging::Input::CliConfig>("bridging/input/config/cli");
      inputs = {cli};
      for (char const* const path : otherInputs)
         inputs.push_back(manager_->entity<Bridging::Input::Config>(path));
      source = manager_->entity<Bridging::Input::VlanIdSet>(sourcePath);
      allowed = manager_->entity<Bridging::Input::AllowedVlans>(allowedPath);
   }
   void flush() {
      do
         Kem::activityManager()->runTurn(0);
      while (manager_->attributeLog()->unsentBytes() > 0);
   }

   static constexpr char sourcePath[] = "bridging/input/dynvlan/vlan/mvrp";
   static constexpr char allowedPath[] = "bridging/input/dynvlan/allowedvlan/mvrp";
   Kem::Ptr<Bridging::Input::CliConfig> cli;
   std::vector<Kem::Ptr<Bridging::Input::Config>> inputs; // the command line's and two more
   Kem::Ptr<Bridging::Input::VlanIdSet> source;
   Kem::Ptr<Bridging::Input::AllowedVlans> allowed;

  private:
   static constexpr char const* otherInputs[] = {"bridging/input/config/controller",
                                                 "bridging/input/config/security"};
   void doMountsComplete(Ordel::MountStatus const&, Ordel::EntityManager&) override { isComplete_ = true; }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Publisher", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   Kem::Ptr<Ordel::EntityManager> manager_;
   bool isComplete_ = false;
};

// --- A switch whose ports are trunks.

struct Switch {
   explicit Switch(unsigned portCount)
       : ports(portCount), socketPath("/tmp/services-bench-" + std::to_string(getpid()) + ".sock"),
         database(Bench::startDatabase(binFolder + "/ordeld", socketPath)),
         agent(std::make_unique<Bench::AgentProcess>(binFolder, socketPath, false)), counter(socketPath),
         publisher(Kem::makePtr<Publisher>(socketPath)) {
      settle();
      publisher->cli->vlanConfigPriorityIs(100);
      publisher->cli->switchIntfConfigPriorityIs(100);
      for (unsigned port = 1; port <= ports; ++port)
         publisher->cli->switchIntfConfigIs(portOf(port), Mode::trunk_);
      publisher->flush();
      settle();
   }
   ~Switch() {
      publisher = nullptr;
      agent.reset();
      Bench::stop(database);
      unlink(socketPath.c_str());
   }
   void settle() const { Bench::settle(binFolder, socketPath); }

   // Runs ordelctl; ends the program when that fails.
   void tool(std::string const& arguments) const {
      std::string const command = binFolder + "/ordelctl --socket " + socketPath + " " + arguments;
      if (std::system(command.c_str()) != 0)
         std::exit(1);
   }

   // Seconds until the subscriber has seen that many memberships.
   template <class Change>
   double untilSeen(int64_t memberships, Change const& change) {
      counter.expect(memberships);
      double const start = Kem::now();
      change();
      publisher->flush();
      return counter.waitFor() - start;
   }
   // Seconds until the agent has worked it off, with the few milliseconds that asking takes.
   template <class Change>
   double untilSettled(Change const& change) {
      double const start = Kem::now();
      change();
      publisher->flush();
      settle();
      return Kem::now() - start;
   }
   // The protocol asks for VLANs 1 to `vlans`, on every trunk.
   void protocolIs(unsigned vlans) const {
      for (unsigned port = 1; port <= ports; ++port)
         publisher->allowed->vlansIs(portOf(port), Kem::String8(vlansUpTo(vlans)));
      publisher->source->vlansIs(Kem::String8(vlansUpTo(vlans)));
   }

   unsigned const ports;
   std::string const socketPath;
   pid_t const database;
   std::unique_ptr<Bench::AgentProcess> agent;
   Bench::Counter counter;
   Kem::Ptr<Publisher> publisher;
};

// --- The cases. Each returns seconds.

// What the agent has used of the processor since the last call.
class Usage {
  public:
   explicit Usage(Switch const& aSwitch) : pid_(aSwitch.agent->pid()), before_(Bench::processorTime(pid_)) {}
   double seconds() const { return Bench::processorTime(pid_) - before_; }

  private:
   pid_t const pid_;
   double const before_;
};

struct Figures {
   double time;      // until it is seen or settled
   double processor; // of the agent
};

Figures mvrp(unsigned vlans, unsigned ports) {
   Switch aSwitch(ports);
   Usage const usage(aSwitch);
   double const time = aSwitch.untilSeen(int64_t(vlans) * ports, [&] { aSwitch.protocolIs(vlans); });
   return {time, usage.seconds()};
}

// One VLAN claimed and released, on a tree with all others: the median.
Figures claim(unsigned vlans, unsigned ports) {
   Switch aSwitch(ports);
   aSwitch.untilSeen(int64_t(vlans - 1) * ports, [&] {
      aSwitch.protocolIs(vlans);
      aSwitch.publisher->source->vlansIs(Kem::String8(vlansUpTo(vlans - 1)));
   });
   aSwitch.settle();
   constexpr unsigned count = 200;
   std::vector<double> times;
   Usage const usage(aSwitch);
   for (unsigned i = 0; i < count; ++i) {
      unsigned const wanted = i % 2 ? vlans - 1 : vlans;
      times.push_back(aSwitch.untilSeen(int64_t(wanted) * ports, [&] {
         aSwitch.publisher->source->vlansIs(Kem::String8(vlansUpTo(wanted)));
      }));
      usleep(1000);
   }
   return {Bench::medianOf(times), usage.seconds() / count};
}

// A source that goes, with all of its VLANs. It isn't this process's: what a publisher has mounted, it puts back
// when somebody else deletes it. With the few milliseconds that a tool takes to start.
Figures vanish(unsigned vlans, unsigned ports) {
   Switch aSwitch(ports);
   std::string const source = "bridging/input/dynvlan/vlan/overlay";
   aSwitch.untilSeen(int64_t(vlans) * ports, [&] {
      aSwitch.tool("create " + source + " Bridging::Input::VlanIdSet");
      aSwitch.tool("set " + source + ".vlans '\"" + vlansUpTo(vlans) + "\"'");
   });
   aSwitch.settle();
   Usage const usage(aSwitch);
   double const time = aSwitch.untilSeen(0, [&] { aSwitch.tool("delete " + source); });
   return {time, usage.seconds()};
}

// Hosts in three inputs, spread over 100 VLANs: all in the first, a half in the second, a fifth in the third.
Figures hosts(unsigned count, unsigned ports) {
   constexpr unsigned vlans = 100;
   constexpr unsigned share[] = {1, 2, 5};
   Switch aSwitch(ports);
   aSwitch.untilSeen(int64_t(vlans) * ports, [&] {
      for (unsigned vlan = 1; vlan <= vlans; ++vlan)
         aSwitch.publisher->cli->vlanConfigIs(Bridging::VlanId(vlan));
   });
   aSwitch.settle();
   Usage const usage(aSwitch);
   double const time = aSwitch.untilSettled([&] {
      for (unsigned input = 0; input < 3; ++input) {
         auto const& config = aSwitch.publisher->inputs[input];
         config->fdbConfigPriorityIs(100 + input);
         for (unsigned host = 0; host < count; host += share[input]) {
            Sulvi::EthAddr const address(2, 0, 0, 0, static_cast<uint8_t>(host >> 8),
                                         static_cast<uint8_t>(host));
            config->fdbConfigIs(Bridging::VlanId(1 + host % vlans))
                ->configuredHostIs(address, {.addr = address, .intf = portOf(1 + (host + input) % ports)});
         }
      }
   });
   return {time, usage.seconds()};
}

// Primaries with 20 secondaries each, on trunks that send their traffic under a secondary's number; every fourth
// port is an access port in a primary, mapped to its secondaries.
Figures privateVlans(unsigned primaries, unsigned ports) {
   constexpr unsigned secondaries = 20;
   Switch aSwitch(ports);
   for (unsigned port = 1; port <= ports; ++port) {
      auto const record = aSwitch.publisher->cli->switchIntfConfig(portOf(port));
      record->trunkPrivateVlanMappingIs(true);
      if (port % 4 != 0)
         continue;
      record->switchportModeIs(Mode::access_);
      record->accessVlanIs(Bridging::VlanId(1 + port % primaries * (secondaries + 1)));
      record->defaultPrivateVlanMappingIs(true);
   }
   aSwitch.publisher->flush();
   aSwitch.settle();
   Usage const usage(aSwitch);
   double const time = aSwitch.untilSettled([&] {
      for (unsigned primary = 0; primary < primaries; ++primary)
         for (unsigned i = 0; i <= secondaries; ++i) {
            unsigned const first = 1 + primary * (secondaries + 1);
            auto const vlan = aSwitch.publisher->cli->vlanConfigIs(Bridging::VlanId(first + i));
            if (i > 0)
               vlan->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_,
                                               .primaryVlan = Bridging::VlanIdOrNone(first)});
         }
   });
   return {time, usage.seconds()};
}

struct Case {
   char const* name;
   char const* unit; // of its size
   Figures (*measure)(unsigned size, unsigned ports);
   unsigned sizes[4]; // the last is the full one
   unsigned ports;
};

constexpr Case cases[] = {
    {"mvrp", "VLANs of the protocol", mvrp, {512, 1024, 2048, 4094}, 512},
    {"claim", "VLANs of the protocol, and one more", claim, {512, 1024, 2048, 4094}, 512},
    {"vanish", "VLANs of the source", vanish, {250, 500, 1000, 2000}, 512},
    {"hosts", "static hosts in three inputs", hosts, {2000, 4000, 8000, 16000}, 64},
    {"private", "primaries with 20 secondaries each", privateVlans, {12, 25, 50, 100}, 512},
};

void measure(Case const& one, unsigned size) {
   std::vector<double> times, processors;
   for (int i = 0; i < 3; ++i) {
      auto const [time, processor] = one.measure(size, one.ports);
      times.push_back(time);
      processors.push_back(processor);
   }
   auto const [low, high] = std::minmax_element(times.begin(), times.end());
   std::printf("%-8s %6u %s, %u ports: median %.4f s (%.4f to %.4f), agent %.4f s\n", one.name, size,
               one.unit, one.ports, Bench::medianOf(times), *low, *high, Bench::medianOf(processors));
   std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
   std::string const program = argv[0];
   binFolder = program.substr(0, program.rfind('/') + 1) + "..";
   bool hasGrowth = false;
   std::vector<std::string_view> chosen;
   for (int i = 1; i < argc; ++i) {
      std::string_view const argument = argv[i];
      bool const isCase = std::any_of(std::begin(cases), std::end(cases),
                                      [&](Case const& one) { return argument == one.name; });
      if (argument == "--growth") {
         hasGrowth = true;
      } else if (isCase) {
         chosen.push_back(argument);
      } else {
         std::fprintf(stderr, "Usage: services_bench [--growth] [mvrp|claim|vanish|hosts|private]...\n");
         return 2;
      }
   }
   for (Case const& one : cases) {
      if (!chosen.empty() && std::find(chosen.begin(), chosen.end(), one.name) == chosen.end())
         continue;
      for (unsigned const& size : one.sizes)
         if (hasGrowth || &size == &one.sizes[3])
            measure(one, size);
   }
   return 0;
}

// VLAN interfaces and subinterfaces as devices of a kernel, through real processes: a publisher (this one), the state
// database, the agent and a subscriber. Next to it, in the same run and on the same kernel, the same devices without
// an agent. It needs a kernel with 802.1Q, and the right to make devices; see bench/README.md.
//
//    devices_bench [--repeat N] [SIZE...]    SIZE VLAN interfaces and half as many subinterfaces
//    devices_bench --steps [SIZE...]         what each of the agent's calls costs, without the agent
#include "../database/Relay.h"
#include "../scale/Processes.h"
#include "Links.h"
#include "StatusWatcher.h"

#include "Kem/Activity.h"
#include "Ordel/client/EntityManager.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/VlanStatus.h"
#include "records/Bridging/VlanStatusDir.h"
#include "records/Interface/AllIntfStatusDir.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/Hardware/SubIntfStatusDir.h"
#include "records/Interface/IntfStatus.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocal.h"
#include "records/Interface/SubIntfStatusLocalDir.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Interface/VlanIntfStatus.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/Interface/VlanIntfStatusLocal.h"
#include "records/Interface/VlanIntfStatusLocalDir.h"
#include "records/TypeInfo.h"
#include "tests/network/OwnNetwork.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

std::string binFolder;

constexpr uint32_t baseMtu = 9214;
constexpr uint32_t mtu = 9000;
constexpr Bench::Address bridgeAddress = {0x02, 0, 0x5e, 0, 0, 1};

// --- What is to exist.

struct Size {
   explicit Size(unsigned count) : vlanIntfs(count), subIntfs(count == 4094 ? 2000 : count / 2) {}
   unsigned all() const { return vlanIntfs + subIntfs; }

   unsigned const vlanIntfs;
   unsigned const subIntfs; // of "Ethernet1", with VLANs 1 and up
};

Sulvi::IntfId vlanIntfId(unsigned number) {
   return Sulvi::IntfId("Vlan" + std::to_string(number));
}

Sulvi::IntfId subIntfId(unsigned number) {
   return Sulvi::IntfId("Ethernet1." + std::to_string(number));
}

void makeBases() {
   Bench::makeBase("fabric", baseMtu);
   Bench::makeBase("et1", baseMtu);
}

void deleteBases() {
   Bench::deleteLink("et1");
   Bench::deleteLink("fabric");
}

// Ends the program unless all are there; also a check of what the times are the times of.
void areAllReady(Size const& size, char const* who) {
   auto const found = Bench::countReady(bridgeAddress, mtu);
   if (found == size.all())
      return;
   std::fprintf(stderr, "%s: %zu devices are up with address and MTU, not %u\n", who, found, size.all());
   std::exit(1);
}

// --- Without an agent.

// Calls make(link, base) for each of the devices; seconds that it takes.
template <class Make>
double timeOf(Size const& size, Make const& make) {
   makeBases();
   int const fabric = Bench::indexOf("fabric"), port = Bench::indexOf("et1");
   double const start = Kem::now();
   for (unsigned i = 1; i <= size.vlanIntfs; ++i)
      make({"vlan" + std::to_string(i), fabric, static_cast<uint16_t>(i)}, "fabric");
   for (unsigned i = 1; i <= size.subIntfs; ++i)
      make({"et1." + std::to_string(i), port, static_cast<uint16_t>(i)}, "et1");
   double const time = Kem::now() - start;
   areAllReady(size, "without an agent");
   deleteBases();
   return time;
}

double raw(Size const& size) {
   Bench::LinkMaker maker;
   return timeOf(size,
                 [&](Bench::VlanLink const& link, char const*) { maker.make(link, bridgeAddress, mtu); });
}

// The agent's calls alone, with a listener as it has one, who reads after each 64 devices.
double bySteps(Size const& size, Bench::StepMaker& maker) {
   Bench::LinkNews news;
   unsigned count = 0;
   return timeOf(size, [&](Bench::VlanLink const& link, char const* base) {
      maker.make(link, base, bridgeAddress, mtu);
      if (++count % 64 == 0)
         news.count();
   });
}

// What each of them costs, with the clock.
void tableOfSteps(Size const& size) {
   Bench::StepMaker maker(true);
   bySteps(size, maker);
   std::printf("%u VLAN interfaces, %u subinterfaces, us for each:\n", size.vlanIntfs, size.subIntfs);
   for (auto const& step : maker.steps())
      std::printf("   %-24s %7.1f\n", step.name, step.seconds / size.all() * 1e6);
   std::fflush(stdout);
}

// --- With the agent.

class Publisher final : public Ordel::Mounter {
  public:
   explicit Publisher(std::string const& socketPath) : Mounter(Kem::Name("devices")) {
      manager_ = Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo, "publisher",
                                                    Ordel::Role::tool);
      if (auto const error = manager_->connect(socketPath, 10); !error.empty()) {
         std::fprintf(stderr, "%s\n", error.c_str());
         std::exit(1);
      }
      auto const group = manager_->getMountGroup(*this);
      group->doMount({"w", "Bridging::Config", "bridging/config"});
      group->doMount({"w", "Bridging::Input::CliConfig", "bridging/input/config/cli"});
      group->doMount({"w", "Bridging::VlanStatusDir", "bridging/vlan/status"});
      group->doMount({"w", "Interface::AllIntfStatusDir", "interface/status/all"});
      group->doMount({"w", "Interface::VlanIntfConfigDir", "interface/config/eth/vlan"});
      group->doMount({"w", "Interface::VlanIntfStatusDir", "interface/status/eth/vlan"});
      group->doMount({"wc", "Interface::VlanIntfStatusLocalDir", vlanLocalPath});
      group->doMount({"w", "Interface::SubIntfConfigDir", "interface/config/subintf"});
      group->doMount({"w", "Interface::SubIntfStatusDir", "interface/status/subintf"});
      group->doMount({"wc", "Interface::SubIntfStatusLocalDir", subLocalPath});
      group->doMount({"w", "Interface::Hardware::SubIntfStatusDir", "interface/hardware/status/subintf"});
      group->doClose(false, "devices", 0.0);
      while (!isComplete_)
         Kem::activityManager()->runTurn(0.01);
   }

   // All but the interfaces: the bridge's address, the VLANs with a forwarding port each, the routed port.
   void publishSwitch(Size const& size) {
      get<Bridging::Config>("bridging/config")->bridgeMacAddrIs(Sulvi::EthAddr("02:00:5e:00:00:01"));
      auto const cli = get<Bridging::Input::CliConfig>("bridging/input/config/cli");
      cli->vlanConfigPriorityIs(100);
      auto const forwarding = get<Bridging::VlanStatusDir>("bridging/vlan/status");
      for (unsigned i = 1; i <= size.vlanIntfs; ++i) {
         cli->vlanConfigIs(Bridging::VlanId(i));
         forwarding->vlanStatusIs(Bridging::VlanId(i))->vlanPortStatusIs("Ethernet25", true);
      }
      auto const port = get<Interface::AllIntfStatusDir>("interface/status/all")->intfStatusIs("Ethernet1");
      port->forwardingModelIs(Interface::IntfForwardingModel::intfForwardingModelRouted);
      port->operStatusIs(Interface::IntfOperStatus::intfOperUp);
      flush();
   }
   void publishInterfaces(Size const& size) {
      auto const vlanConfig = get<Interface::VlanIntfConfigDir>("interface/config/eth/vlan");
      auto const vlanStatus = get<Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
      auto const vlanLocal = get<Interface::VlanIntfStatusLocalDir>(vlanLocalPath);
      for (unsigned i = 1; i <= size.vlanIntfs; ++i) {
         vlanConfig->intfConfigIs(vlanIntfId(i))->mtuIs(mtu);
         vlanStatus->intfStatusIs(vlanIntfId(i));
         vlanLocal->intfStatusLocalIs(vlanIntfId(i));
      }
      auto const subConfig = get<Interface::SubIntfConfigDir>("interface/config/subintf");
      auto const subStatus = get<Interface::SubIntfStatusDir>("interface/status/subintf");
      auto const subLocal = get<Interface::SubIntfStatusLocalDir>(subLocalPath);
      auto const hardware = get<Interface::Hardware::SubIntfStatusDir>("interface/hardware/status/subintf");
      for (unsigned i = 1; i <= size.subIntfs; ++i) {
         auto const config = subConfig->intfConfigIs(subIntfId(i));
         config->vlanIdIs(static_cast<uint16_t>(i));
         config->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapDot1q);
         config->mtuIs(mtu);
         subStatus->intfStatusIs(subIntfId(i));
         subLocal->intfStatusLocalIs(subIntfId(i));
         hardware->subIntfStatusIs(subIntfId(i))->hardwareSuccessIs(true);
      }
      flush();
   }

  private:
   static constexpr char vlanLocalPath[] = "cell/1/interface/status/eth/vlan/local";
   static constexpr char subLocalPath[] = "cell/1/interface/status/subintf/local";
   void doMountsComplete(Ordel::MountStatus const& status, Ordel::EntityManager&) override {
      if (status.failed != 0) {
         std::fprintf(stderr, "the publisher can't mount all\n");
         std::exit(1);
      }
      isComplete_ = true;
   }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Publisher", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   template <class T>
   Kem::Ptr<T> get(char const* path) const {
      return manager_->entity<T>(path);
   }
   void flush() {
      do
         Kem::activityManager()->runTurn(0);
      while (manager_->attributeLog()->unsentBytes() > 0);
   }

   Kem::Ptr<Ordel::EntityManager> manager_;
   bool isComplete_ = false;
};

struct Figures {
   double made;                        // from publishing to all devices
   double restart;                     // from the start of the next agent until it has settled
   double agent, database, subscriber; // processor time of `made`
   unsigned changed, deleted;          // news of devices at the restart
};

std::unique_ptr<Bench::AgentProcess> startAgent(std::string const& socketPath) {
   return std::make_unique<Bench::AgentProcess>(binFolder, socketPath, false,
                                                Bench::AgentProcess::Network::ours);
}

Figures withAgent(Size const& size) {
   makeBases();
   std::string const socketPath = "/tmp/devices-bench-" + std::to_string(getpid()) + ".sock";
   pid_t const database = Bench::startDatabase(binFolder + "/ordeld", socketPath);
   auto agent = startAgent(socketPath);
   Kem::makePtr<Publisher>(socketPath)->publishSwitch(size);
   Bench::settle(binFolder, socketPath);
   Bench::StatusWatcher watcher(socketPath, size.all());
   auto publisher = Kem::makePtr<Publisher>(socketPath);

   Figures figures{};
   pid_t const pids[] = {agent->pid(), database, watcher.pid()};
   double before[3];
   std::transform(std::begin(pids), std::end(pids), before, Bench::processorTime);
   double const start = Kem::now();
   publisher->publishInterfaces(size);
   publisher = nullptr; // what others say of the interfaces is for the subscriber
   watcher.waitFor();
   // The records are written before the device is complete, and sent behind the work of their slice.
   double end = Kem::now();
   figures.agent = Bench::processorTime(pids[0]) - before[0];
   figures.database = Bench::processorTime(pids[1]) - before[1];
   figures.subscriber = Bench::processorTime(pids[2]) - before[2];
   while (Bench::countReady(bridgeAddress, mtu) != size.all() && end < start + 600) {
      usleep(10000);
      end = Kem::now();
   }
   figures.made = end - start;
   areAllReady(size, "the agent");

   Bench::settle(binFolder, socketPath);
   Bench::LinkNews news;
   do
      sleep(2); // the kernel settles operational states by itself, once a second
   while (news.count().changed != 0);
   agent->end(SIGKILL);
   double const restart = Kem::now();
   agent = startAgent(socketPath);
   Bench::settle(binFolder, socketPath);
   figures.restart = Kem::now() - restart;
   auto const heard = news.count();
   if (!heard.isWhole)
      std::printf("news of devices were lost\n");
   figures.changed = heard.changed;
   figures.deleted = heard.deleted;
   areAllReady(size, "the agent after its restart");

   agent = nullptr;
   Bench::stop(database);
   unlink(socketPath.c_str());
   deleteBases();
   return figures;
}

// --- The runs.

// Of several runs.
struct Times {
   std::vector<double> all;
   void add(double time) { all.push_back(time); }
   double median() const { return Bench::medianOf(all); }
   double lowest() const { return *std::min_element(all.begin(), all.end()); }
};

void measure(Size const& size, unsigned repeat) {
   Times raws, steps, mades, restarts, agents, databases, subscribers;
   unsigned changed = 0, deleted = 0;
   for (unsigned i = 0; i < repeat; ++i) {
      raws.add(raw(size));
      Bench::StepMaker maker(false);
      steps.add(bySteps(size, maker));
      auto const figures = withAgent(size);
      mades.add(figures.made);
      restarts.add(figures.restart);
      agents.add(figures.agent);
      databases.add(figures.database);
      subscribers.add(figures.subscriber);
      changed += figures.changed;
      deleted += figures.deleted;
   }
   std::printf("%u VLAN interfaces, %u subinterfaces, median (lowest) of %u:\n", size.vlanIntfs,
               size.subIntfs, repeat);
   auto const line = [&](char const* what, Times const& times) {
      std::printf("   %-24s %7.3f s (%7.3f), %5.0f us (%5.0f) each, %.2f (%.2f) times raw\n", what,
                  times.median(), times.lowest(), times.median() / size.all() * 1e6,
                  times.lowest() / size.all() * 1e6, times.median() / raws.median(),
                  times.lowest() / raws.lowest());
   };
   line("raw, one request", raws);
   line("the agent's calls alone", steps);
   line("the agent", mades);
   line("restart until settled", restarts);
   std::printf("   processor time: agent %.2f s, database %.2f s, subscriber %.2f s\n", agents.median(),
               databases.median(), subscribers.median());
   std::printf("   news of devices at the restarts: %u changed, %u deleted\n", changed, deleted);
   std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
   std::string const program = argv[0];
   binFolder = program.substr(0, program.rfind('/') + 1) + "..";
   unsigned repeat = 1;
   bool hasSteps = false;
   std::vector<unsigned> sizes;
   for (int i = 1; i < argc; ++i) {
      if (std::string_view(argv[i]) == "--steps") {
         hasSteps = true;
         continue;
      }
      bool const isRepeat = std::string_view(argv[i]) == "--repeat" && i + 1 < argc;
      unsigned const number = static_cast<unsigned>(std::strtoul(argv[isRepeat ? ++i : i], nullptr, 10));
      if (number < 1 || number > 4094) {
         std::fprintf(stderr, "Usage: devices_bench [--repeat N | --steps] [SIZE...]\n");
         return 2;
      }
      if (isRepeat)
         repeat = number;
      else
         sizes.push_back(number);
   }
   if (sizes.empty())
      sizes = {4094};
   if (!Tests::enterOwnNetwork()) {
      std::perror("devices_bench: no network of its own");
      return 1;
   }
   for (unsigned const size : sizes)
      if (hasSteps)
         tableOfSteps(Size(size));
      else
         measure(Size(size), repeat);
   return 0;
}

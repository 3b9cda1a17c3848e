// The agent at scale, through real processes: a publisher (this one), the state database, the agent and a
// subscriber. See bench/README.md.
//
//    scale_bench [--vlans N] [--ports N] [--repeat N] [--trace-file]   bulk, single changes, memory and
//                                                                      restart at that size
//    scale_bench --bulk [--vlans N] [--ports N] [--repeat N]           the bulk alone, with the processor time of
//                                                                      each process
//    scale_bench --growth                                              time of the bulk at several sizes
#include "../database/Relay.h"
#include "Counter.h"
#include "Processes.h"

#include "Kem/Activity.h"
#include "Ordel/client/EntityManager.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/TypeInfo.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

std::string binFolder;
bool hasTraceFile = false; // of the agent, as it has in service

// --- The publisher.

class Publisher final : public Ordel::Mounter {
  public:
   explicit Publisher(std::string const& socketPath) : Mounter(Kem::Name("scale")) {
      manager_ = Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo, "publisher",
                                                    Ordel::Role::tool);
      if (auto const error = manager_->connect(socketPath, 10); !error.empty()) {
         std::fprintf(stderr, "%s\n", error.c_str());
         std::exit(1);
      }
      auto const group = manager_->getMountGroup(*this);
      group->doMount({"wc", "Bridging::Input::CliConfig", "bridging/input/config/cli"});
      group->doMount({"w", "Interface::EthIntfConfigDir", "interface/config/eth/intf"});
      group->doMount({"w", "Interface::EthIntfStatusDir", "interface/status/eth/intf"});
      group->doClose(false, "scale", 0.0);
      while (!isComplete_)
         Kem::activityManager()->runTurn(0.01);
      cli = manager_->entity<Bridging::Input::CliConfig>("bridging/input/config/cli");
      ethIntfConfig = manager_->entity<Interface::EthIntfConfigDir>("interface/config/eth/intf");
      ethIntfStatus = manager_->entity<Interface::EthIntfStatusDir>("interface/status/eth/intf");
   }
   // Sends what was changed.
   void flush() {
      do
         Kem::activityManager()->runTurn(0);
      while (manager_->attributeLog()->unsentBytes() > 0);
   }

   Kem::Ptr<Bridging::Input::CliConfig> cli;
   Kem::Ptr<Interface::EthIntfConfigDir> ethIntfConfig;
   Kem::Ptr<Interface::EthIntfStatusDir> ethIntfStatus;

  private:
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

Sulvi::IntfId portOf(unsigned number) {
   return Sulvi::IntfId("Ethernet" + std::to_string(number));
}

// --- A switch of one size.

class Switch {
  public:
   Switch(unsigned vlans, unsigned ports)
       : vlans_(vlans), ports_(ports), socketPath_("/tmp/scale-bench-" + std::to_string(getpid()) + ".sock"),
         database_(Bench::startDatabase(binFolder + "/ordeld", socketPath_)),
         agent_(std::make_unique<Bench::AgentProcess>(binFolder, socketPath_, hasTraceFile)),
         counter_(socketPath_), publisher_(Kem::makePtr<Publisher>(socketPath_)) {
      publisher_->cli->vlanConfigPriorityIs(100);
      publisher_->cli->switchIntfConfigPriorityIs(100);
      for (unsigned port = 1; port <= ports_; ++port) {
         publisher_->ethIntfConfig->intfConfigIs(portOf(port));
         publisher_->ethIntfStatus->intfStatusIs(portOf(port));
      }
      publisher_->flush();
      Bench::settle(binFolder, socketPath_);
   }
   ~Switch() {
      publisher_ = nullptr;
      agent_.reset();
      Bench::stop(database_);
      unlink(socketPath_.c_str());
      std::filesystem::remove_all(Bench::AgentProcess::traceFolder(socketPath_));
   }

   // Seconds from publishing all VLANs and trunks until the subscriber has seen the last membership.
   double bulk() {
      counter_.expect(int64_t(vlans_) * ports_);
      double const start = Kem::now();
      for (unsigned vlan = 1; vlan <= vlans_; ++vlan)
         publisher_->cli->vlanConfigIs(Bridging::VlanId(vlan));
      for (unsigned port = 1; port <= ports_; ++port)
         publisher_->cli->switchIntfConfigIs(portOf(port), Bridging::Input::SwitchportMode::trunk_);
      publisher_->flush();
      return counter_.waitFor() - start;
   }

   // The same, and what each process used meanwhile.
   struct Usage {
      double time;
      std::array<double, 4> processors; // agent, database, subscriber, publisher
   };
   Usage bulkUsage() {
      std::array<pid_t, 4> const pids = {agent_->pid(), database_, counter_.pid(), getpid()};
      Usage usage{};
      for (size_t i = 0; i < pids.size(); ++i)
         usage.processors[i] = -Bench::processorTime(pids[i]);
      usage.time = bulk();
      for (size_t i = 0; i < pids.size(); ++i)
         usage.processors[i] += Bench::processorTime(pids[i]);
      return usage;
   }

   // Seconds of each change: VLAN 1 is taken from the last port, or given back to it. During a bulk change
   // the upper half of the VLANs is deleted or made again all the time.
   std::vector<double> singleChanges(unsigned count, bool duringBulk) {
      auto const port = publisher_->cli->switchIntfConfig(portOf(ports_));
      std::vector<double> times;
      bool hasUpperHalf = true;
      for (unsigned i = 0; i < count; ++i) {
         if (duringBulk && !isUpperHalfOnItsWay(hasUpperHalf))
            upperHalfIs(hasUpperHalf = !hasUpperHalf);
         bool const isTaken = i % 2 == 0;
         counter_.expectInVlan1(int64_t(ports_) - isTaken);
         double const start = Kem::now();
         port->trunkAllowedVlansIs(isTaken ? "2-4094" : "1-4094");
         publisher_->flush();
         times.push_back(counter_.waitFor() - start);
         usleep(1000);
      }
      if (!hasUpperHalf)
         upperHalfIs(true);
      Bench::settle(binFolder, socketPath_);
      std::sort(times.begin(), times.end());
      return times;
   }

   // Seconds from the start of a new agent until it has settled; `changes` is what the subscriber saw of it.
   double restart(uint64_t& changes) {
      Bench::settle(binFolder, socketPath_);
      agent_->end(SIGKILL);
      uint64_t const before = counter_.changes();
      double const start = Kem::now();
      agent_ = std::make_unique<Bench::AgentProcess>(binFolder, socketPath_, hasTraceFile);
      Bench::settle(binFolder, socketPath_);
      double const time = Kem::now() - start;
      usleep(200000);
      changes = counter_.changes() - before;
      return time;
   }

   void printMemory() const {
      std::printf("resident memory, MB (peak): agent %zu (%zu), database %zu (%zu), subscriber %zu (%zu)\n",
                  Bench::residentMegabytes(agent_->pid(), "VmRSS"),
                  Bench::residentMegabytes(agent_->pid(), "VmHWM"),
                  Bench::residentMegabytes(database_, "VmRSS"), Bench::residentMegabytes(database_, "VmHWM"),
                  Bench::residentMegabytes(counter_.pid(), "VmRSS"),
                  Bench::residentMegabytes(counter_.pid(), "VmHWM"));
   }

  private:
   // Whether there are changes of the upper half that the subscriber hasn't seen. One membership of VLAN 1
   // may be missing.
   bool isUpperHalfOnItsWay(bool exists) const {
      int64_t const all = int64_t(exists ? vlans_ : vlans_ / 2) * ports_;
      return std::abs(all - counter_.memberships()) > 1;
   }
   void upperHalfIs(bool exists) {
      for (unsigned vlan = vlans_ / 2 + 1; vlan <= vlans_; ++vlan)
         if (exists)
            publisher_->cli->vlanConfigIs(Bridging::VlanId(vlan));
         else
            publisher_->cli->vlanConfigDel(Bridging::VlanId(vlan));
      publisher_->flush();
   }

   unsigned const vlans_, ports_;
   std::string const socketPath_;
   pid_t const database_;
   std::unique_ptr<Bench::AgentProcess> agent_;
   Bench::Counter counter_;
   Kem::Ptr<Publisher> publisher_;
};

double bulkOnce(unsigned vlans, unsigned ports) {
   return Switch(vlans, ports).bulk();
}

void measure(unsigned vlans, unsigned ports, int repeat) {
   std::printf("%u VLANs x %u trunk ports = %u memberships\n", vlans, ports, vlans * ports);
   std::vector<double> bulks;
   for (int i = 1; i < repeat; ++i)
      bulks.push_back(bulkOnce(vlans, ports));
   Switch aSwitch(vlans, ports);
   bulks.push_back(aSwitch.bulk());
   auto const [low, high] = std::minmax_element(bulks.begin(), bulks.end());
   std::printf("published to last membership seen: median %.2f s (%.2f to %.2f), %.0f ns a membership\n",
               Bench::medianOf(bulks), *low, *high, Bench::medianOf(bulks) / (double(vlans) * ports) * 1e9);
   aSwitch.printMemory();
   for (bool const duringBulk : {false, true}) {
      auto const times = aSwitch.singleChanges(1000, duringBulk);
      std::printf("one VLAN on one port, %s: median %.0f us, 99th percentile %.0f us, longest %.0f us\n",
                  duringBulk ? "during a bulk change" : "idle", times[500] * 1e6, times[990] * 1e6,
                  times.back() * 1e6);
   }
   uint64_t changes = 0;
   double const restart = aSwitch.restart(changes);
   std::printf("restart of the agent until settled: %.2f s; the subscriber saw %llu changes\n", restart,
               static_cast<unsigned long long>(changes));
   aSwitch.printMemory();
}

// A line for each run, and their medians.
void measureBulk(unsigned vlans, unsigned ports, int repeat) {
   std::printf("%8s %8s %8s %10s %9s %8s\n", "seen, s", "agent", "database", "subscriber", "publisher",
               "sum");
   auto const line = [](double time, std::array<double, 4> const& used) {
      std::printf("%8.3f %8.3f %8.3f %10.3f %9.3f %8.3f\n", time, used[0], used[1], used[2], used[3],
                  used[0] + used[1] + used[2] + used[3]);
      std::fflush(stdout);
   };
   std::vector<double> times;
   std::array<std::vector<double>, 4> used;
   for (int i = 0; i < repeat; ++i) {
      auto const usage = Switch(vlans, ports).bulkUsage();
      line(usage.time, usage.processors);
      times.push_back(usage.time);
      for (size_t j = 0; j < used.size(); ++j)
         used[j].push_back(usage.processors[j]);
   }
   std::printf("medians\n");
   line(Bench::medianOf(times), {Bench::medianOf(used[0]), Bench::medianOf(used[1]), Bench::medianOf(used[2]),
                                 Bench::medianOf(used[3])});
}

void measureGrowth() {
   std::printf("%8s %8s %10s %12s\n", "VLANs", "ports", "seconds", "ns each");
   auto const line = [](unsigned vlans, unsigned ports) {
      double const time =
          Bench::medianOf({bulkOnce(vlans, ports), bulkOnce(vlans, ports), bulkOnce(vlans, ports)});
      std::printf("%8u %8u %10.3f %12.0f\n", vlans, ports, time, time / (double(vlans) * ports) * 1e9);
      std::fflush(stdout);
   };
   for (unsigned vlans : {512u, 1024u, 2048u, 4094u})
      line(vlans, 256);
   for (unsigned ports : {64u, 256u, 512u, 1024u})
      line(1024, ports);
}

} // namespace

int main(int argc, char** argv) {
   unsigned vlans = 4094, ports = 512;
   int repeat = 3;
   bool growth = false, bulk = false;
   for (int i = 1; i < argc; ++i) {
      std::string_view const option = argv[i];
      if (option == "--growth") {
         growth = true;
      } else if (option == "--bulk") {
         bulk = true;
      } else if (option == "--trace-file") {
         hasTraceFile = true;
      } else if (i + 1 < argc && (option == "--vlans" || option == "--ports" || option == "--repeat")) {
         int const number = std::atoi(argv[++i]);
         if (option == "--vlans")
            vlans = static_cast<unsigned>(std::clamp(number, 1, 4094));
         else if (option == "--ports")
            ports = static_cast<unsigned>(std::clamp(number, 1, 8192));
         else
            repeat = std::max(1, number);
      } else {
         std::fprintf(
             stderr,
             "Usage: scale_bench [--vlans N] [--ports N] [--repeat N] [--trace-file] [--bulk] | --growth\n");
         return 2;
      }
   }
   std::string const program = argv[0];
   binFolder = program.substr(0, program.rfind('/') + 1) + "..";
   if (growth)
      measureGrowth();
   else if (bulk)
      measureBulk(vlans, ports, repeat);
   else
      measure(vlans, ports, repeat);
   return 0;
}

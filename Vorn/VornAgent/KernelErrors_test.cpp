// An error at every kernel call: 50 interfaces start, change and start again, and in each run one call fails,
// once or until the run is through. Once the error is over, kernel and records are as if it had never been, and
// nobody asks the kernel for anything any more.
//
// Each call of a run that goes well is a case with each errno. These are many thousands, so a test takes every
// so many of them. KERNEL_ERRORS in the environment asks for others: "all" of them, those from the one of a
// number on, such as "5", or the one of a text, such as "ioctl 17 ENOMEM lasting".
#include "Vorn/VornAgent/TestRoutedIntfs.h"

#include "Kem/Assert.h"
#include "Sulvi/IntfKind.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <numeric>

namespace Vorn {
namespace {

using OperStatus = Interface::IntfOperStatus;

// --- The interfaces.

class KernelErrorsWorld : public TestRoutedIntfs {
  public:
   static constexpr unsigned intfsOfAKind = 25;
   static constexpr unsigned firstVlan = 10, firstSubIntfVlan = 100;
   static constexpr char const* spaces[] = {"default", "red", "blue"};

   KernelErrorsWorld() {
      subIntfs().port("Ethernet3");
      namespaceIs("red");
      namespaceIs("blue");
      for (unsigned n = 0; n < intfsOfAKind; ++n) {
         vlanIntfIs(firstVlan + n, n);
         subIntfIs(subIntfId(n), firstSubIntfVlan + n, n);
      }
      // Of an earlier run.
      kernel.vlanDeviceIs("vlan98", "fabric", 98, "red");
      kernel.vlanDeviceIs("vlan99", "fabric", 99);
      kernel.vlanDeviceIs("vlan13", "fabric", 213);          // another VLAN id
      kernel.vlanDeviceIs("vlan16", "fabric", 16, "blue");   // in the wrong namespace
      kernel.vlanDeviceIs("et1.103", "et1", 303);            // another VLAN id
      kernel.vlanDeviceIs("et2.77", "et2", 77, "blue");      // nobody wants it
      kernel.vlanDeviceIs("vlan97", "et1", 97);              // somebody else's
      kernel.deviceIs("vlan9", "bridge");                    // somebody else's
      kernel.vlanDeviceIs("eth0.5", "fabric", 4000, "blue"); // somebody else's
   }

   static Sulvi::IntfId subIntfId(unsigned n) {
      return "Ethernet" + std::to_string(1 + n % 3) + "." + std::to_string(firstSubIntfVlan + n);
   }
   static Sulvi::EthAddr anAddr(unsigned n) {
      char text[18];
      snprintf(text, sizeof text, "02:00:00:00:01:%02x", n);
      return addr(text);
   }
   void vlanIntfIs(unsigned vlanId, unsigned n) {
      config->vlanConfigIs(static_cast<uint16_t>(vlanId), false);
      settingsAre(*vlans().vlanIntf(vlanId), n);
      vlans().status(vlanId)->operStatusIs(n % 4 == 3 ? OperStatus::intfOperLowerLayerDown
                                                      : OperStatus::intfOperUp);
   }
   void subIntfIs(Sulvi::IntfId intfId, unsigned vlanId, unsigned n) {
      settingsAre(*subIntfs().subIntf(intfId, vlanId), n);
      subIntfs().programmedIs(intfId, n % 7 != 6);
   }
   void vlanIntfDel(unsigned vlanId) {
      vlans().vlanIntfDel(vlanId);
      vlans().statusDir->intfStatusDel(vlans().id(vlanId));
      vlans().statusLocalDir->intfStatusLocalDel(vlans().id(vlanId));
   }

   // What kernel and records hold, a line each.
   std::string state() {
      std::ostringstream out;
      std::istringstream lines(kernel.describe());
      for (std::string line; std::getline(lines, line);) {
         // What was asked for doesn't show while the device is down, and otherwise in its state.
         out << line.substr(0, line.find(", asked"));
         auto const place = line.substr(0, line.find(':'));
         auto const at = place.find('@');
         auto const* const device =
             kernel.findDevice(place.substr(0, at), at == std::string::npos ? "" : place.substr(at + 1));
         if (device && device->isUp)
            out << ", state " << int(device->operState);
         out << '\n';
      }
      for (auto const& [intfId, status] : vlans().statusDir->intfStatus()) {
         auto const vlanId = Sulvi::VlanIntfId::vlanId(intfId);
         out << intfId << placeOf(vlans().netNsOf(vlanId)) << ", configured "
             << (status->intfConfig() != nullptr) << ", cpu " << vlans().hasCpu(vlanId);
         describeStatus(out, *status);
      }
      for (auto const& [intfId, status] : subIntfs().statusDir->intfStatus()) {
         out << intfId << placeOf(subIntfs().netNsOf(intfId)) << ", " << subIntfs().state(intfId)
             << ", changes " << subIntfs().changes(intfId);
         // Without a VLAN id there is no device, and the record says what the last one had.
         if (subIntfs().configDir->intfConfig(intfId)->vlanId() != 0)
            describeStatus(out, *status);
         else
            out << '\n';
      }
      for (auto const& [name, device] : kernelIntfCollection->interfaceByName())
         out << "seen " << name << ", flags " << device->flags() << ", mtu " << device->mtu() << '\n';
      for (auto const& [name, netNs] : netNsCollection->netNsByName())
         out << "namespace " << name << ", number " << netNs->inode() << '\n';
      if (!agentStatus->kernelProblem().empty())
         out << "problem: " << agentStatus->kernelProblem() << '\n';
      for (auto const& [intfId, problem] : agentStatus->deviceProblem())
         out << "problem of " << intfId << ": " << problem << '\n';
      out << kernel.openDescriptors() << " descriptors, " << kernel.openChannels() << " channels\n";
      for (auto const* const machine : {static_cast<VlanIntfCommon*>(vlans().sm.ptr()),
                                        static_cast<VlanIntfCommon*>(subIntfs().sm.ptr())}) {
         for (auto const& [intfId, isMember] : machine->retryIntfCollection())
            out << intfId << " is retried\n";
         for (auto const* const name : {"red", "blue", "green"})
            out << name << ": " << machine->nsIntfRefcount(name) << " interfaces\n";
         if (machine->retryTime() != Kem::never)
            out << "something is retried\n";
      }
      return sorted(out.str());
   }
   static std::string sorted(std::string const& text) {
      std::multiset<std::string> lines;
      std::istringstream in(text);
      for (std::string line; std::getline(in, line);)
         lines.insert(line + '\n');
      return std::accumulate(lines.begin(), lines.end(), std::string());
   }

  private:
   template <class Config>
   void settingsAre(Config& settings, unsigned n) {
      auto const intfId = settings.intfId();
      if (n % 3 != 0)
         moveTo(intfId, spaces[n % 3]);
      if (n % 4 != 0)
         settings.mtuIs(n % 4 == 1 ? 1400 : n % 4 == 2 ? 9000 : 70000);
      if (n % 5 == 3)
         settings.addrIs(anAddr(n));
      if (n % 6 == 5)
         settings.enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   }
   // An empty name is the default namespace.
   static std::string placeOf(std::string const& netNs) {
      return " in " + (netNs.empty() ? "default" : netNs);
   }
   static void describeStatus(std::ostream& out, Interface::IntfStatus const& status) {
      out << ", device " << status.deviceName() << ", addr " << status.addr() << ", largest mtu "
          << status.maxMtu() << '\n';
   }
};

// --- What happens to them, in this order. The interfaces are told by n, see above: n % 3 is the namespace.

using Step = std::function<void(KernelErrorsWorld&)>;

std::vector<Step> const& kernelErrorsSteps() {
   using W = KernelErrorsWorld;
   using Interface::EnabledState;
   static auto const both = [](W& w, unsigned n, auto const& change) {
      change(*w.vlans().configDir->intfConfig(w.vlans().id(W::firstVlan + n)));
      change(*w.subIntfs().configDir->intfConfig(W::subIntfId(n)));
   };
   static std::vector<Step> const steps = {
       [](W& w) { // from one namespace into another
          for (unsigned const n : {0u, 1u, 2u})
             both(w, n, [&](auto& config) { w.moveTo(config.intfId(), W::spaces[(n + 1) % 3]); });
       },
       [](W& w) { both(w, 4, [](auto& config) { config.mtuIs(1300); }); },
       [](W& w) { both(w, 5, [](auto& config) { config.addrIs(W::anAddr(99)); }); },
       [](W& w) { both(w, 7, [](auto& c) { c.enabledStateLocalIs(EnabledState::enabledStateShutdown); }); },
       [](W& w) { both(w, 11, [](auto& c) { c.enabledStateLocalIs(EnabledState::enabledStateEnabled); }); },
       [](W& w) { // removed, in each of the namespaces
          for (unsigned const n : {8u, 9u, 10u}) {
             w.vlanIntfDel(W::firstVlan + n);
             w.subIntfs().subIntfDel(W::subIntfId(n));
          }
       },
       [](W& w) { // new ones; the last has the VLAN id of one that went
          w.vlanIntfIs(60, 1);
          w.subIntfIs("Ethernet1.160", 160, 2);
          w.subIntfIs("Ethernet1.161", W::firstSubIntfVlan + 9, 0);
       },
       [](W& w) { w.subIntfs().vlanIs(W::subIntfId(12), 212); },
       [](W& w) { w.subIntfs().vlanIs(W::subIntfId(13), 0); },
       [](W& w) { // a namespace that is awaited
          both(w, 14, [&](auto& config) { w.moveTo(config.intfId(), "green"); });
       },
       [](W& w) { w.namespaceIs("green"); },
       [](W& w) { // by somebody else's hand
          w.kernel.deviceDel("vlan25");
          w.kernel.deviceDel("et1.115");
       },
       [](W& w) { // a namespace that is made again
          w.namespaceDel("red");
       },
       [](W& w) { w.namespaceIs("red"); },
       [](W& w) { w.kernel.upIs("fabric", false); },
       [](W& w) { w.kernel.upIs("fabric", true); },
       [](W& w) { w.subIntfs().portStatus("Ethernet2")->operStatusIs(OperStatus::intfOperDown); },
       [](W& w) { w.subIntfs().portStatus("Ethernet2")->operStatusIs(OperStatus::intfOperUp); },
   };
   return steps;
}

// --- Cases.

struct KernelError {
   std::string call;
   int nth;
   int error;
   bool isLasting;

   std::string text() const {
      return call + " " + std::to_string(nth) + " " + strerrorname_np(error) +
             (isLasting ? " lasting" : " once");
   }
};

constexpr char const* kernelErrorCalls[] = {"sendmsg",
                                            "recvmsg",
                                            "ioctl",
                                            "socket",
                                            "setns",
                                            "open",
                                            "receive",
                                            "if_nametoindex",
                                            "RTM_NEWLINK",
                                            "RTM_SETLINK",
                                            "RTM_GETLINK",
                                            "DEL_VLAN_CMD",
                                            "GET_VLAN_VID_CMD",
                                            "GET_VLAN_REALDEV_NAME_CMD",
                                            "SET_VLAN_EGRESS_PRIORITY_CMD",
                                            "SET_VLAN_NAME_TYPE_CMD",
                                            "SIOCGIFFLAGS",
                                            "SIOCSIFFLAGS",
                                            "SIOCGIFHWADDR",
                                            "SIOCSIFHWADDR",
                                            "SIOCSIFMTU",
                                            "SIOCGIFMTU",
                                            "SIOCETHTOOL"};
constexpr int kernelErrorNumbers[] = {ENOBUFS, ENOMEM, EPERM, ENODEV, EEXIST, EINTR, EMFILE};

// All that the calls of a run allow.
std::vector<KernelError> kernelErrorsOf(Netlink::FakeKernel const& kernel) {
   std::vector<KernelError> all;
   for (std::string const call : kernelErrorCalls)
      for (int nth = 1; nth <= kernel.count(call); ++nth)
         for (int const error : kernelErrorNumbers)
            for (bool const isLasting : {false, true})
               // Any other answer to a request for a device is waited on for ever, as is known.
               if (call != "RTM_NEWLINK" || error == ENODEV || error == EEXIST)
                  all.push_back({call, nth, error, isLasting});
   return all;
}

// About that many of each call, evenly; or those that the environment asks for.
std::vector<KernelError> chosen(std::vector<KernelError> const& all, size_t wantedOfACall) {
   char const* const variable = getenv("KERNEL_ERRORS");
   std::string const asked = variable ? variable : "";
   if (asked == "all")
      return all;
   std::vector<KernelError> some;
   if (asked.find(' ') != std::string::npos) {
      std::copy_if(all.begin(), all.end(), std::back_inserter(some),
                   [&](KernelError const& error) { return error.text() == asked; });
      return some;
   }
   for (size_t begin = 0, end = 0; begin < all.size(); begin = end) {
      while (end < all.size() && all[end].call == all[begin].call)
         ++end;
      // A step that comes by all errors, once and lasting.
      size_t step = std::max<size_t>(1, (end - begin) / wantedOfACall);
      while (std::gcd(step, 2 * std::size(kernelErrorNumbers)) != 1)
         ++step;
      for (size_t i = begin + strtoul(asked.c_str(), nullptr, 10) % step; i < end; i += step)
         some.push_back(all[i]);
   }
   return some;
}

// --- A run.

struct AssertionOfTheAgent : std::runtime_error {
   AssertionOfTheAgent() : runtime_error("an assertion fails") {}
};

class KernelErrorsTest : public testing::Test {
  public:
   static constexpr Kem::Seconds lastingFor = 5;   // after the last step
   static constexpr Kem::Seconds settling = 150;   // the longest pause between two tries is 64 s
   static constexpr Kem::Seconds respawnPause = 1; // of the service manager
   static constexpr size_t casesWanted = 30;       // of each call
   static constexpr int maxFailures = 10;          // then the rest is of no interest

   KernelErrorsTest() : errorBuffer_(std::cerr.rdbuf(quiet_.rdbuf())) {}
   ~KernelErrorsTest() override {
      Kem::assertionHookIs(nullptr);
      std::cerr.rdbuf(errorBuffer_);
   }

   // Runs f as the agent's process: when that ends, a new one starts.
   void asAgent(KernelErrorsWorld& world, std::function<void()> f) {
      for (;; f = [&] { world.start(); }) {
         try {
            Kem::assertionHookIs([] { throw AssertionOfTheAgent(); });
            f();
            return;
         } catch (Netlink::FakeKernel::Exited const& end) {
            EXPECT_EQ(end.status, 1) << current_;
            ++ends_;
            world.stop();
            Kem::activityManager()->advance(respawnPause);
            if (ends_ == 20)
               world.kernel.faultsEnd(); // an operator's hand
         }
      }
   }
   void finish(KernelErrorsWorld& world) {
      auto const advance = [](Kem::Seconds time) { return [=] { Kem::activityManager()->advance(time); }; };
      asAgent(world, advance(lastingFor));
      world.kernel.faultsEnd();
      asAgent(world, advance(settling));
      world.kernel.countsReset();
      asAgent(world, advance(settling));
      for (auto const* const call : kernelErrorCalls)
         EXPECT_EQ(world.kernel.count(call), 0) << call << " is still called, " << current_;
   }
   // From nothing: the start and all steps.
   void history(KernelErrorsWorld& world, KernelError const* error) {
      world.openSockets();
      arm(world, error);
      asAgent(world, [&] {
         world.startOn();
         TestInterfaces::run();
      });
      for (auto const& step : kernelErrorsSteps()) {
         asAgent(world, [&] { step(world); });
         asAgent(world, [] { TestInterfaces::run(); });
      }
   }
   void restart(KernelErrorsWorld& world, KernelError const* error) {
      world.stop();
      world.kernel.countsReset();
      world.openSockets();
      arm(world, error);
      asAgent(world, [&] {
         world.startOn();
         TestInterfaces::run();
      });
   }
   void arm(KernelErrorsWorld& world, KernelError const* error) {
      ends_ = 0;
      current_ = error ? error->text() : "no error";
      world.kernel.countsReset();
      if (error)
         world.kernel.fail(error->call, error->error, error->nth, error->isLasting);
   }
   // Whether run() leads to that state, and to an end of the process only where one may come.
   bool isAsIfNothingHadBeen(KernelErrorsWorld& world, KernelError const& error, std::string const& expected,
                             std::function<void()> const& run) {
      std::string state;
      try {
         run();
         finish(world);
         state = world.state();
      } catch (std::exception const& e) {
         state = std::string(e.what()) + '\n';
      }
      bool const isOfFlags =
          error.call == "ioctl" || error.call == "SIOCGIFFLAGS" || error.call == "SIOCSIFFLAGS";
      bool const mayEnd = isOfFlags && error.error != ENODEV;
      EXPECT_TRUE(ends_ == 0 || mayEnd) << "the agent ended " << ends_ << " times, " << error.text();
      totalEnds_ += ends_;
      EXPECT_FALSE(world.kernel.isBlocked()) << error.text();
      if (state == expected)
         return true;
      ADD_FAILURE() << error.text() << ":\n" << difference(expected, state);
      return false;
   }
   // Devices of VLAN interfaces and subinterfaces.
   static long ownDevices(std::string const& state) {
      std::istringstream in(state);
      long count = 0;
      for (std::string line; std::getline(in, line);)
         count += (line.starts_with("vlan") || line.starts_with("et")) &&
                  line.find(": vlan ") != std::string::npos;
      return count;
   }
   static std::string difference(std::string const& expected, std::string const& actual) {
      auto const linesOf = [](std::string const& text) {
         std::multiset<std::string> lines;
         std::istringstream in(text);
         for (std::string line; std::getline(in, line);)
            lines.insert(line);
         return lines;
      };
      auto const before = linesOf(expected), after = linesOf(actual);
      std::string text;
      auto const add = [&](auto const& from, auto const& to, char const* mark) {
         std::vector<std::string> only;
         std::set_difference(from.begin(), from.end(), to.begin(), to.end(), std::back_inserter(only));
         for (auto const& line : only)
            text += mark + line + '\n';
      };
      add(before, after, "- ");
      add(after, before, "+ ");
      return text;
   }

   Kem::TestTrace trace;
   std::string current_;
   int ends_ = 0, totalEnds_ = 0;

  private:
   std::ostringstream quiet_;
   std::streambuf* const errorBuffer_;
};

TEST_F(KernelErrorsTest, startAndChangesAreAsIfAnErrorHadNeverBeen) {
   std::vector<KernelError> errors;
   std::string expected;
   {
      KernelErrorsWorld world;
      history(world, nullptr);
      errors = kernelErrorsOf(world.kernel);
      finish(world);
      expected = world.state();
   }
   for (auto const* const others : {"vlan9: bridge", "vlan97: vlan 97 on et1", "eth0.5@blue: vlan 4000"})
      EXPECT_NE(expected.find(others), std::string::npos) << others << '\n' << expected;
   EXPECT_EQ(ownDevices(expected), 2 * (25 - 3) + 3 - 1 + 2)
       << expected; // three of each kind go, three come, one has no VLAN id; two of others
   auto const some = chosen(errors, casesWanted);
   EXPECT_FALSE(some.empty());
   int failures = 0;
   for (auto const& error : some) {
      KernelErrorsWorld world;
      if (!isAsIfNothingHadBeen(world, error, expected, [&] { history(world, &error); }) &&
          ++failures == maxFailures)
         break;
      trace.clear();
   }
   RecordProperty("cases", static_cast<int>(some.size()));
   std::cout << some.size() << " of " << errors.size() << " cases, the agent ended " << totalEnds_
             << " times\n";
}

TEST_F(KernelErrorsTest, aRestartIsAsIfAnErrorHadNeverBeen) {
   auto world = std::make_unique<KernelErrorsWorld>();
   history(*world, nullptr);
   finish(*world);
   restart(*world, nullptr);
   auto const errors = kernelErrorsOf(world->kernel);
   finish(*world);
   auto const expected = world->state();
   auto const some = chosen(errors, casesWanted);
   EXPECT_FALSE(some.empty());
   int failures = 0;
   for (auto const& error : some) {
      if (!isAsIfNothingHadBeen(*world, error, expected, [&] { restart(*world, &error); })) {
         if (++failures == maxFailures)
            break;
         world = nullptr; // one at a time
         world = std::make_unique<KernelErrorsWorld>();
         history(*world, nullptr);
         finish(*world);
      }
      trace.clear();
   }
   std::cout << some.size() << " of " << errors.size() << " cases, the agent ended " << totalEnds_
             << " times\n";
}

} // namespace
} // namespace Vorn

// The world of the kernel tests: one network for each test, on a kernel that has VLAN devices
// (run-kernel-tests), and what `ip` says of it.
//
//    ┌ the agent's namespace ───────────────┐      ┌ namespace "peer" ────────┐
//    │ vlan10   vlan20   et3.5              │      │ tag10 …                  │
//    │   └────────┴────────┴── fabric ══════╪═veth═╪══ fabric                 │
//    └──────────────────────────────────────┘      └──────────────────────────┘
//
// A network is gone after its test with all that is in it. Nothing of the host is seen in it: no devices, no
// named namespaces.
#pragma once

#include "../scenario/Switch.h"

#include <fcntl.h>
#include <string>
#include <thread>
#include <vector>

namespace KernelTests {

using Scenario::Json;
using Words = std::vector<std::string>;

// A program found in PATH.
inline Scenario::Result command(Words words) {
   words.insert(words.begin(), "/usr/bin/env");
   return Scenario::run(words);
}

class Network {
  public:
   Network() {
      Tests::isInOwnNetwork(); // before the two below: a process that is started doesn't move on then
      for (int& place : back_)
         place = ::open(&place == back_ ? "/proc/thread-self/ns/net" : "/proc/thread-self/ns/mnt",
                        O_RDONLY | O_CLOEXEC);
      isMade_ = Tests::enterOwnNetwork() && ::mount("none", "/run", "tmpfs", 0, "mode=755") == 0 &&
                ::mkdir("/run/netns", 0755) == 0;
      EXPECT_TRUE(isMade_) << "network: " << std::strerror(errno);
      ip({"link", "set", "lo", "up"});
   }
   ~Network() {
      EXPECT_EQ(::setns(back_[0], CLONE_NEWNET), 0);
      EXPECT_EQ(::setns(back_[1], CLONE_NEWNS), 0) << std::strerror(errno);
      ::close(back_[0]);
      ::close(back_[1]);
   }
   Network(Network const&) = delete;
   Network& operator=(Network const&) = delete;

   // ip(8), which must succeed; what it printed.
   std::string ip(Words words) const {
      words.insert(words.begin(), "ip");
      Scenario::Result const result = command(words);
      std::string text;
      for (std::string const& word : words)
         text += word + ' ';
      EXPECT_EQ(result.status, 0) << text << result.errors;
      return result.output;
   }
   std::string ipIn(std::string const& netNs, Words words) const {
      if (!netNs.empty())
         words.insert(words.begin(), {"-n", netNs});
      return ip(words);
   }

   void addNamespace(std::string const& name) const {
      ip({"netns", "add", name});
      ipIn(name, {"link", "set", "lo", "up"});
   }
   // The same at once, without starting a program and without raising its loopback device.
   void addNamespaceFast(std::string const& name) const {
      std::thread([&] {
         std::string const path = "/run/netns/" + name;
         EXPECT_EQ(::close(::open(path.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0)), 0) << path;
         EXPECT_EQ(::unshare(CLONE_NEWNET), 0);
         EXPECT_EQ(::mount("/proc/thread-self/ns/net", path.c_str(), nullptr, MS_BIND, nullptr), 0)
             << std::strerror(errno);
      }).join();
   }
   void deleteNamespaceFast(std::string const& name) const {
      std::string const path = "/run/netns/" + name;
      EXPECT_EQ(::umount2(path.c_str(), MNT_DETACH), 0) << std::strerror(errno);
      EXPECT_EQ(::unlink(path.c_str()), 0) << std::strerror(errno);
   }
   // The figure above without VLAN devices.
   void makeFabric() const {
      addNamespace("peer");
      ip({"link", "add", "fabric", "type", "veth", "peer", "name", "fabric", "netns", "peer"});
      ip({"link", "set", "fabric", "up"});
      ipIn("peer", {"link", "set", "fabric", "up"});
   }
   // A VLAN device of the peer, tag10 for VLAN 10, which answers at the address, such as "10.0.0.2/24". It isn't
   // called as the agent's is, who would take it away.
   void makePeerVlan(unsigned vlan, std::string const& address) const {
      std::string const name = "tag" + std::to_string(vlan);
      ipIn("peer",
           {"link", "add", "link", "fabric", "name", name, "type", "vlan", "id", std::to_string(vlan)});
      ipIn("peer", {"addr", "add", address, "dev", name});
      ipIn("peer", {"link", "set", name, "up"});
   }

   // What `ip -d -j link` says of all devices of a namespace, by their names.
   std::map<std::string, Json> links(std::string const& netNs = "") const {
      std::map<std::string, Json> found;
      Json const list = Json::parse(ipIn(netNs, {"-d", "-j", "link"}), nullptr, false);
      EXPECT_TRUE(list.is_array());
      for (Json const& link : list)
         found[link["ifname"].get<std::string>()] = link;
      return found;
   }
   // Null where there is no such device.
   Json link(std::string const& name, std::string const& netNs = "") const { return links(netNs)[name]; }
   // The names of the devices in natural order of bytes, such as "fabric lo vlan10".
   std::string names(std::string const& netNs = "") const {
      std::string text;
      for (auto const& [name, link] : links(netNs))
         text += (text.empty() ? "" : " ") + name;
      return text;
   }

  private:
   int back_[2] = {-1, -1}; // the network and the mount namespace that the test came from
   bool isMade_ = false;
};

class FabricNetwork : public Network {
  public:
   FabricNetwork() { makeFabric(); }
};

// Whether the device is up, as its administrator wants it.
inline bool isUp(Json const& link) {
   return link.is_object() &&
          std::find(link["flags"].begin(), link["flags"].end(), "UP") != link["flags"].end();
}

} // namespace KernelTests

// A kernel for tests: network namespaces and devices that exist in memory only, and answer requests of
// rtnetlink and ioctls as Linux does, its errors included. In use while the object exists:
//
//    Netlink::FakeKernel kernel;
//    kernel.deviceIs("fabric").isUp = true;
//    ... what is tested makes its requests ...
//    EXPECT_EQ(kernel.describe(), "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:02\n");
//
// A namespace is given by its name, "" for the default one. Each has a loopback device "lo". A name that
// is removed leaves the namespace alive while sockets in it are open, as in Linux.
//
// Descriptors that the fake gave are at least firstDescriptor. A descriptor of the process itself,
// which the code under test opened past the fake, counts as a socket in the default namespace.
#pragma once

#include "Netlink/Kernel.h"

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

namespace Netlink {

class FakeKernel final : public Kernel {
  public:
   static constexpr int firstDescriptor = 100000;
   // Calls of recvmsg that fail for a lasting EINTR or EAGAIN, since code may ask for ever.
   static constexpr int maxInterruptions = 3000;

   // Raised by recvmsg where a real one would wait for ever.
   struct Blocked : std::runtime_error {
      Blocked() : runtime_error("recvmsg waits for what never comes") {}
   };

   // Raised where the process would have ended.
   struct Exited : std::runtime_error {
      explicit Exited(int s) : runtime_error("the process ends"), status(s) {}
      int status;
   };

   struct Device {
      std::string name;
      std::string kind; // "vlan", "dummy", "bridge" ...; empty for the loopback device
      int index = 0;
      uint16_t vlanId = 0;    // of a VLAN device
      Device* base = nullptr; // of a VLAN device, perhaps in another namespace
      std::array<uint8_t, 6> address{};
      unsigned mtu = 1500;
      bool isUp = false;
      uint8_t operState = 6;      // IF_OPER_UP and so on, of a device that is up
      uint8_t operStateAsked = 0; // that of the last request, 0 for none
      bool carriesVlans = true;
      std::map<uint32_t, uint32_t> egress;    // priority of the packet to that of the VLAN tag, without 0
      std::map<uint16_t, Device*> vlans = {}; // that have this one as their base, by VLAN id
      uint64_t netNs = 0;                     // number of its namespace
   };

   FakeKernel();
   ~FakeKernel() override;

   // --- What there is. A change by hand is notified as the kernel does.
   void namespaceIs(std::string const& netNs);
   void namespaceDel(std::string const& netNs);      // the name; see above
   void brokenNamespaceIs(std::string const& netNs); // a name that leads to no namespace
   // Names are files of that folder from now on, as who watches it expects. It is made; the caller removes it.
   void namespaceFolderIs(std::string const& folder);
   // Made where there is none of that name; a change of the fields is notified by deviceChanged only.
   Device& deviceIs(std::string const& name, std::string const& kind = "dummy",
                    std::string const& netNs = {});
   Device& vlanDeviceIs(std::string const& name, std::string const& base, uint16_t vlanId,
                        std::string const& netNs = {}); // the base is in the default namespace
   void deviceDel(std::string const& name, std::string const& netNs = {});
   void deviceChanged(Device const& device);
   void upIs(std::string const& name, bool isUp, std::string const& netNs = {});
   void mtuIs(std::string const& name, unsigned mtu, std::string const& netNs = {}); // any number
   Device* findDevice(std::string const& name, std::string const& netNs = {});
   void rightIs(bool hasRight) { hasRight_ = hasRight; } // CAP_NET_ADMIN
   void has8021q(bool has8021q) { has8021q_ = has8021q; }
   // Runs change(); its notifications are lost, which the channels are told.
   void overrun(std::function<void()> const& change);

   // One line for each device but "lo", ordered by namespace and name; see above. "vlan10@red: ..." in a
   // namespace of another name, "#7 " in front of the state where indexes are wanted.
   std::string describe(bool withIndexes = false) const;

   // --- Calls. Their names are "sendmsg", "recvmsg", "ioctl", "if_nametoindex", "socket", "setns", "open" (of
   // a namespace), "close", "answer" (to a request of a route socket), "receive" (of a channel in which something
   // waits); for counts also those of the ioctls, such as "SIOCSIFMTU" and "DEL_VLAN_CMD", and of requests, such as
   // "RTM_NEWLINK".
   int count(std::string const& call) const;
   // The counts by name, "SIOCGIFFLAGS 2, SIOCSIFMTU 1", without those that count what others count too ("ioctl",
   // "SIOCSIFVLAN", "sendmsg", "recvmsg", "answer") and without "receive", of which the loop makes as many as it likes.
   std::string calls() const;
   void countsReset() { counts_.clear(); }
   // The nth call of that name from now on fails with this errno and has no effect; if lasting, all later ones
   // as well, until faultsEnd. A request whose answer is an error was refused.
   void fail(std::string const& call, int error, int nth = 1, bool isLasting = false);
   void faultsEnd() { faults_.clear(); }
   bool isBlocked() const { return isBlocked_; }                                 // since the fake was made
   int openDescriptors() const { return static_cast<int>(descriptors_.size()); } // that the fake gave
   int openChannels() const { return static_cast<int>(channels_.size()); }
   std::string const& lastRequest() const { return lastRequest_; } // bytes of the last sendmsg

   // The process that opened them has ended.
   void descriptorsDel();

   // A route socket in the default namespace.
   int routeSocket();

   // --- Kernel.
   ssize_t sendmsg(int fd, msghdr const* message, int flags) override;
   ssize_t recvmsg(int fd, msghdr* message, int flags) override;
   int ioctl(int fd, unsigned long request, void* argument) override;
   unsigned ifNametoindex(char const* name, int fd) override;
   int socketAt(int family, int type, int protocol, Sulvi::NamespaceName const& netNs) override;
   int getnsByName(Sulvi::NamespaceName const& netNs, int nsType) override;
   int close(int fd) override;
   uint64_t netNsInode(Sulvi::NamespaceName const& netNs) override;
   std::string namespaceFolder() const override;
   [[noreturn]] void exitProcess(int status) override { throw Exited(status); }
   std::unique_ptr<Channel> channel(Sulvi::NamespaceName const& netNs, uint32_t groups) override;

  private:
   class LinkChannel;
   struct Namespace {
      std::map<std::string, std::unique_ptr<Device>> devices;
      int nextIndex = 1;
   };
   struct Descriptor {
      uint64_t netNs;
      bool isNamespace; // of getnsByName
      std::deque<std::string> answers = {};
   };
   struct Fault {
      int error;
      int callsBefore; // that still succeed
      bool isLasting;
      int failures = 0;
   };
   static constexpr uint64_t defaultNetNs = 4026531840;
   void namespaceFileIs(std::string const& netNs, bool exists) const; // nothing without a folder

   // Counts the call; false with errno where a fault wants it.
   bool enter(std::string const& call);
   int open(std::string const& netNs, uint64_t& number);                     // 0 or an errno
   bool enterNamespace(Sulvi::NamespaceName const& netNs, uint64_t& number); // open and setns
   Descriptor* findDescriptor(int fd);                                       // null with errno
   Device* find(uint64_t netNs, std::string const& name);                    // null where there is none
   Device& made(uint64_t netNs, std::string const& name, std::string const& kind);
   Device& vlanMade(uint64_t netNs, std::string const& name, Device& base, uint16_t vlanId);
   void deleted(Device& device);
   void upOrDown(Device& device, bool isUp);
   void mtuIs(Device& device, unsigned mtu);
   void notify(uint16_t type, Device const& device);
   void reap(uint64_t netNs); // unless something keeps the namespace
   std::string linkMessage(uint16_t type, Device const& device, uint32_t sequence, uint16_t flags) const;
   // The datagrams that answer a request.
   std::vector<std::string> answers(uint64_t netNs, std::string_view request);
   int newLink(uint64_t netNs, std::string_view payload);
   int setLink(uint64_t netNs, std::string_view payload);
   int vlanIoctl(uint64_t netNs, void* argument);
   int deviceIoctl(uint64_t netNs, unsigned long request, void* argument);
   int ethtool(Device const& device, void* data);

   std::string namespaceFolder_;                     // empty for the system's own
   std::map<std::string, uint64_t> namespaceByName_; // 0 for a broken one
   std::map<uint64_t, Namespace> namespaces_;
   uint64_t nextNetNs_ = defaultNetNs + 1;
   std::map<int, Descriptor> descriptors_;
   std::map<int, std::deque<std::string>> foreignAnswers_; // of route sockets that the fake didn't give
   int nextDescriptor_ = firstDescriptor;
   std::vector<LinkChannel*> channels_;
   uint8_t nextAddress_ = 1;
   bool hasRight_ = true;
   bool has8021q_ = true;
   bool isOverrun_ = false;
   bool isBlocked_ = false;
   std::string lastRequest_;
   std::map<std::string, int> counts_;
   std::multimap<std::string, Fault> faults_;
};

} // namespace Netlink

#include "NetlinkTesting/FakeKernelDetail.h"

#include "Netlink/Message.h"
#include "Netlink/TestChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace Netlink {

using namespace FakeDetail;

namespace {

std::string keyOf(Sulvi::NamespaceName const& netNs) {
   return netNs.isDefault() ? std::string() : netNs.stringValue().str();
}

} // namespace

// A channel that the test's code reads; the kernel delivers into it.
class FakeKernel::LinkChannel final : public Channel {
  public:
   LinkChannel(FakeKernel& k, uint64_t n, uint32_t groups)
       : kernel(&k), netNs(n), isSubscribed(groups & RTMGRP_LINK) {
      kernel->channels_.push_back(this);
   }
   ~LinkChannel() override {
      if (!kernel)
         return;
      std::erase(kernel->channels_, this);
      kernel->reap(netNs);
   }
   int descriptor() const override { return inner.descriptor(); }
   int send(std::string_view message) override {
      if (!kernel)
         return ENETDOWN;
      if (!kernel->enter("sendmsg"))
         return errno;
      for (auto& answer : kernel->answers(netNs, message))
         inner.deliver(std::move(answer));
      return 0;
   }
   Received receive() override {
      // Without a count while nothing waits: the loop may ask whenever it likes. What waits isn't lost.
      if (kernel && inner.hasWaiting() && !kernel->enter("receive") && errno != EINTR)
         return {Received::lost, {}, errno};
      return inner.receive();
   }

   FakeKernel* kernel; // null when it is gone
   uint64_t const netNs;
   bool const isSubscribed;
   TestChannel inner;
};

FakeKernel::FakeKernel() {
   namespaceByName_[""] = defaultNetNs;
   made(defaultNetNs, "lo", "");
   kernelIs(this);
}

FakeKernel::~FakeKernel() {
   for (auto* const channel : channels_)
      channel->kernel = nullptr;
   kernelIs(nullptr);
}

// --- What there is.

void FakeKernel::namespaceIs(std::string const& netNs) {
   auto const [at, isNew] = namespaceByName_.try_emplace(netNs, nextNetNs_);
   if (!isNew && at->second != 0)
      return;
   at->second = nextNetNs_;
   made(nextNetNs_++, "lo", "");
   namespaceFileIs(netNs, true);
}

void FakeKernel::namespaceFolderIs(std::string const& folder) {
   namespaceFolder_ = folder;
   std::filesystem::create_directories(folder);
   for (auto const& [name, number] : namespaceByName_)
      namespaceFileIs(name, true);
}

std::string FakeKernel::namespaceFolder() const {
   return namespaceFolder_.empty() ? Kernel::namespaceFolder() : namespaceFolder_;
}

void FakeKernel::namespaceFileIs(std::string const& netNs, bool exists) const {
   if (namespaceFolder_.empty() || netNs.empty())
      return;
   auto const file = namespaceFolder_ + "/" + netNs;
   if (exists)
      std::ofstream(file).close();
   else
      std::filesystem::remove(file);
}

void FakeKernel::brokenNamespaceIs(std::string const& netNs) {
   namespaceDel(netNs);
   namespaceByName_[netNs] = 0;
   namespaceFileIs(netNs, true);
}

void FakeKernel::namespaceDel(std::string const& netNs) {
   auto const at = namespaceByName_.find(netNs);
   if (at == namespaceByName_.end())
      return;
   auto const number = at->second;
   namespaceByName_.erase(at);
   namespaceFileIs(netNs, false);
   reap(number);
}

void FakeKernel::reap(uint64_t netNs) {
   auto const keeps = [&](auto const& entry) { return entry.second == netNs; };
   auto const isIn = [&](auto const& entry) { return entry.second.netNs == netNs; };
   if (std::any_of(namespaceByName_.begin(), namespaceByName_.end(), keeps) ||
       std::any_of(descriptors_.begin(), descriptors_.end(), isIn) ||
       std::any_of(channels_.begin(), channels_.end(), [&](auto* c) { return c->netNs == netNs; }))
      return;
   auto const at = namespaces_.find(netNs);
   if (at == namespaces_.end())
      return;
   while (!at->second.devices.empty())
      deleted(*at->second.devices.begin()->second);
   namespaces_.erase(at);
}

FakeKernel::Device& FakeKernel::deviceIs(std::string const& name, std::string const& kind,
                                         std::string const& netNs) {
   if (auto* const device = findDevice(name, netNs))
      return *device;
   auto& device = made(namespaceByName_.at(netNs), name, kind);
   notify(RTM_NEWLINK, device);
   return device;
}

FakeKernel::Device& FakeKernel::vlanDeviceIs(std::string const& name, std::string const& base,
                                             uint16_t vlanId, std::string const& netNs) {
   return vlanMade(namespaceByName_.at(netNs), name, *findDevice(base), vlanId);
}

void FakeKernel::deviceDel(std::string const& name, std::string const& netNs) {
   if (auto* const device = findDevice(name, netNs))
      deleted(*device);
}

void FakeKernel::deviceChanged(Device const& device) {
   notify(RTM_NEWLINK, device);
}

void FakeKernel::upIs(std::string const& name, bool isUp, std::string const& netNs) {
   if (auto* const device = findDevice(name, netNs))
      upOrDown(*device, isUp);
}

void FakeKernel::mtuIs(std::string const& name, unsigned mtu, std::string const& netNs) {
   if (auto* const device = findDevice(name, netNs))
      mtuIs(*device, mtu);
}

FakeKernel::Device* FakeKernel::findDevice(std::string const& name, std::string const& netNs) {
   auto const at = namespaceByName_.find(netNs);
   return at == namespaceByName_.end() ? nullptr : find(at->second, name);
}

void FakeKernel::overrun(std::function<void()> const& change) {
   isOverrun_ = true;
   change();
   isOverrun_ = false;
   for (auto* const channel : channels_)
      if (channel->isSubscribed)
         channel->inner.lose(ENOBUFS);
}

std::string FakeKernel::describe(bool withIndexes) const {
   std::string text;
   auto const describeNamespace = [&](std::string const& netNs, uint64_t number) {
      auto const at = namespaces_.find(number);
      if (at == namespaces_.end())
         return;
      for (auto const& [name, device] : at->second.devices) {
         if (name == "lo")
            continue;
         text += name + (netNs.empty() ? "" : "@" + netNs) + ": ";
         if (withIndexes)
            text += "#" + std::to_string(device->index) + " ";
         text += device->kind;
         if (device->base)
            text += " " + std::to_string(device->vlanId) + " on " + device->base->name;
         auto const& a = device->address;
         char address[18];
         snprintf(address, sizeof address, "%02x:%02x:%02x:%02x:%02x:%02x", a[0], a[1], a[2], a[3], a[4],
                  a[5]);
         text += ", mtu " + std::to_string(device->mtu) + (device->isUp ? ", up, " : ", down, ") + address;
         for (auto const& [from, to] : device->egress)
            text += ", egress " + std::to_string(from) + ":" + std::to_string(to);
         if (device->operStateAsked)
            text += ", asked to be " + std::string(device->operStateAsked == operUp        ? "up"
                                                   : device->operStateAsked == operTesting ? "testing"
                                                                                           : "dormant");
         text += '\n';
      }
   };
   std::map<uint64_t, std::string> others;
   for (auto const& [number, netNs] : namespaces_)
      others[number] = "(without a name)";
   for (auto const& [name, number] : namespaceByName_) {
      describeNamespace(name, number);
      others.erase(number);
   }
   for (auto const& [number, name] : others)
      describeNamespace(name, number);
   return text;
}

void FakeKernel::descriptorsDel() {
   std::set<uint64_t> netNs;
   for (auto const& [fd, descriptor] : descriptors_)
      netNs.insert(descriptor.netNs);
   descriptors_.clear();
   for (auto const number : netNs)
      reap(number);
}

// --- Devices.

FakeKernel::Device* FakeKernel::find(uint64_t netNs, std::string const& name) {
   auto const at = namespaces_.find(netNs);
   if (at == namespaces_.end())
      return nullptr;
   auto const device = at->second.devices.find(name);
   return device == at->second.devices.end() ? nullptr : device->second.get();
}

FakeKernel::Device& FakeKernel::made(uint64_t netNs, std::string const& name, std::string const& kind) {
   auto& space = namespaces_[netNs];
   auto device = std::make_unique<Device>();
   device->name = name;
   device->kind = kind;
   device->index = space.nextIndex++;
   device->netNs = netNs;
   device->carriesVlans = !kind.empty();
   if (kind.empty())
      device->mtu = 65536;
   else
      device->address = {2, 0, 0, 0, 0, nextAddress_++};
   auto& result = *device;
   space.devices[name] = std::move(device);
   return result;
}

FakeKernel::Device& FakeKernel::vlanMade(uint64_t netNs, std::string const& name, Device& base,
                                         uint16_t vlanId) {
   auto& device = made(netNs, name, "vlan");
   --nextAddress_;
   device.address = base.address;
   device.mtu = base.mtu;
   device.vlanId = vlanId;
   device.base = &base;
   base.vlans[vlanId] = &device;
   notify(RTM_NEWLINK, device);
   return device;
}

void FakeKernel::deleted(Device& device) {
   while (!device.vlans.empty())
      deleted(*device.vlans.begin()->second);
   if (device.base)
      device.base->vlans.erase(device.vlanId);
   notify(RTM_DELLINK, device);
   auto& devices = namespaces_[device.netNs].devices;
   devices.erase(devices.find(device.name));
}

void FakeKernel::upOrDown(Device& device, bool isUp) {
   if (device.isUp == isUp)
      return;
   device.isUp = isUp;
   if (isUp)
      device.operState = operUp;
   notify(RTM_NEWLINK, device);
   // Devices follow what they are on, in both directions.
   for (auto const& [id, vlan] : device.vlans)
      upOrDown(*vlan, isUp);
}

void FakeKernel::mtuIs(Device& device, unsigned mtu) {
   device.mtu = mtu;
   notify(RTM_NEWLINK, device);
   for (auto const& [id, vlan] : device.vlans)
      if (vlan->mtu > mtu)
         mtuIs(*vlan, mtu);
}

void FakeKernel::notify(uint16_t type, Device const& device) {
   if (isOverrun_)
      return;
   for (auto* const channel : channels_)
      if (channel->isSubscribed && channel->netNs == device.netNs)
         channel->inner.deliver(linkMessage(type, device, 0, 0));
}

// --- Calls.

int FakeKernel::count(std::string const& call) const {
   auto const at = counts_.find(call);
   return at == counts_.end() ? 0 : at->second;
}

std::string FakeKernel::calls() const {
   std::string text;
   for (auto const& [call, count] : counts_)
      if (call != "ioctl" && call != "SIOCSIFVLAN" && call != "sendmsg" && call != "recvmsg" &&
          call != "answer" && call != "receive")
         text += (text.empty() ? "" : ", ") + call + " " + std::to_string(count);
   return text;
}

void FakeKernel::fail(std::string const& call, int error, int nth, bool isLasting) {
   faults_.insert({call, Fault{error, nth - 1, isLasting}});
}

bool FakeKernel::enter(std::string const& call) {
   ++counts_[call];
   int error = 0;
   auto const [begin, end] = faults_.equal_range(call);
   for (auto at = begin; at != end;) {
      auto& fault = at->second;
      if (fault.callsBefore > 0) {
         --fault.callsBefore;
         ++at;
         continue;
      }
      error = fault.error;
      bool const isInterruption = call == "recvmsg" && (error == EINTR || error == EAGAIN);
      bool const isOver = !fault.isLasting || (isInterruption && ++fault.failures == maxInterruptions);
      at = isOver ? faults_.erase(at) : std::next(at);
   }
   errno = error ? error : errno;
   return error == 0;
}

int FakeKernel::open(std::string const& netNs, uint64_t& number) {
   if (netNs == "." || netNs == ".." || netNs.find('/') != std::string::npos)
      return EINVAL;
   auto const at = namespaceByName_.find(netNs);
   if (at == namespaceByName_.end())
      return ENOENT;
   number = at->second;
   return number == 0 ? EINVAL : 0;
}

bool FakeKernel::enterNamespace(Sulvi::NamespaceName const& netNs, uint64_t& number) {
   number = defaultNetNs;
   if (netNs.isDefault())
      return true;
   if (!enter("open"))
      return false;
   if (int const error = open(keyOf(netNs), number)) {
      errno = error;
      return false;
   }
   return enter("setns");
}

FakeKernel::Descriptor* FakeKernel::findDescriptor(int fd) {
   auto const at = descriptors_.find(fd);
   if (at != descriptors_.end())
      return &at->second;
   if (fd > 2 && fd < firstDescriptor) {
      static Descriptor foreign{defaultNetNs, false};
      return &foreign;
   }
   errno = fd < 0 || fd >= firstDescriptor ? EBADF : ENOTTY;
   return nullptr;
}

int FakeKernel::routeSocket() {
   descriptors_[nextDescriptor_] = {defaultNetNs, false};
   return nextDescriptor_++;
}

ssize_t FakeKernel::sendmsg(int fd, msghdr const* message, int) {
   if (!enter("sendmsg"))
      return -1;
   auto* const descriptor = findDescriptor(fd);
   if (!descriptor)
      return -1;
   lastRequest_.clear();
   for (size_t i = 0; i < message->msg_iovlen; ++i)
      lastRequest_.append(static_cast<char const*>(message->msg_iov[i].iov_base),
                          message->msg_iov[i].iov_len);
   auto& line = fd < firstDescriptor ? foreignAnswers_[fd] : descriptor->answers;
   for (auto& answer : answers(descriptor->netNs, lastRequest_))
      line.push_back(std::move(answer));
   return static_cast<ssize_t>(lastRequest_.size());
}

ssize_t FakeKernel::recvmsg(int fd, msghdr* message, int flags) {
   if (!enter("recvmsg"))
      return -1;
   auto* const descriptor = findDescriptor(fd);
   if (!descriptor)
      return -1;
   auto& line = fd < firstDescriptor ? foreignAnswers_[fd] : descriptor->answers;
   if (line.empty()) {
      if (flags & MSG_DONTWAIT)
         return failed(EAGAIN);
      isBlocked_ = true;
      throw Blocked();
   }
   auto const datagram = std::move(line.front());
   line.pop_front();
   sockaddr_nl sender{};
   sender.nl_family = AF_NETLINK;
   if (message->msg_name) {
      std::memcpy(message->msg_name, &sender, std::min<size_t>(message->msg_namelen, sizeof sender));
      message->msg_namelen = sizeof sender;
   }
   size_t const bytes = std::min(datagram.size(), message->msg_iov[0].iov_len);
   std::memcpy(message->msg_iov[0].iov_base, datagram.data(), bytes);
   message->msg_flags = bytes < datagram.size() ? MSG_TRUNC : 0;
   return static_cast<ssize_t>(bytes);
}

unsigned FakeKernel::ifNametoindex(char const* name, int fd) {
   if (!enter("if_nametoindex"))
      return 0;
   auto const* const descriptor = findDescriptor(fd);
   if (!descriptor)
      return 0;
   if (auto const* const device = find(descriptor->netNs, name))
      return static_cast<unsigned>(device->index);
   errno = ENODEV;
   return 0;
}

int FakeKernel::socketAt(int, int, int, Sulvi::NamespaceName const& netNs) {
   uint64_t number = 0;
   if (!enterNamespace(netNs, number) || !enter("socket"))
      return -1;
   descriptors_[nextDescriptor_] = {number, false};
   return nextDescriptor_++;
}

int FakeKernel::getnsByName(Sulvi::NamespaceName const& netNs, int) {
   uint64_t number = 0;
   if (!enter("open"))
      return -1;
   if (int const error = open(keyOf(netNs), number))
      return failed(error);
   descriptors_[nextDescriptor_] = {number, true};
   return nextDescriptor_++;
}

int FakeKernel::close(int fd) {
   if (!enter("close"))
      return -1;
   if (fd < firstDescriptor)
      return fd < 0 ? failed(EBADF) : 0; // its owner closes it
   auto const at = descriptors_.find(fd);
   if (at == descriptors_.end())
      return failed(EBADF);
   auto const netNs = at->second.netNs;
   descriptors_.erase(at);
   reap(netNs);
   return 0;
}

uint64_t FakeKernel::netNsInode(Sulvi::NamespaceName const& netNs) {
   uint64_t number = 0;
   return enter("open") && open(keyOf(netNs), number) == 0 ? number : 0;
}

std::unique_ptr<Channel> FakeKernel::channel(Sulvi::NamespaceName const& netNs, uint32_t groups) {
   uint64_t number = 0;
   if (!enterNamespace(netNs, number) || !enter("socket"))
      return nullptr;
   return std::make_unique<LinkChannel>(*this, number, groups);
}

} // namespace Netlink

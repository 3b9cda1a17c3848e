#include "IntfDevice.h"
#include "WhyInterface.h"
#include "Words.h"

#include "Netlink/Kernel.h"
#include "Sulvi/SocketAt.h"
#include "records/Interface/IntfNamespaceConfig.h"

#include <net/if.h>

namespace Vornctl {

namespace {

constexpr size_t maxDeviceNameBytes = IFNAMSIZ - 1;

class DeviceQuestion {
  public:
   DeviceQuestion(Findings& out, SwitchState const& state, KernelView& kernel, RoutedIntf const& intf)
       : out_(out), state_(state), kernel_(kernel), intf_(intf), netNs_(kernel.at(intf.netNs)),
         device_(deviceOf(kernel, intf)), name_(intf.deviceName()) {}

   // In the order in which the agent comes upon them; each returns once the answer is known.
   void explain() {
      records();
      if (!out_.isDecided())
         device_ ? present() : absent();
   }

  private:
   void no(std::string const& rule, std::string const& finding, std::string const& advice) {
      out_.decide(false, rule, finding);
      if (!advice.empty())
         out_.advise(advice);
   }
   void records() {
      if (!intf_.config)
         no("Configuration", "nobody configures the interface, so it has no device", "");
      else if (!intf_.status || !intf_.local)
         no("Records",
            std::string("the interface manager, which makes them with the configuration, has made no ") +
                (intf_.status ? "local status record" : "status record") + " yet",
            "see why the interface manager doesn't make it: " +
                std::string(intf_.status ? localFolder() : statusFolder()) + '[' + id() + ']');
   }
   void absent();
   void present();
   bool explainNamespace();
   bool explainBase();
   void explainUp();

   char const* statusFolder() const {
      return intf_.isVlanIntf() ? "interface/status/eth/vlan.intfStatus"
                                : "interface/status/subintf.intfStatus";
   }
   char const* localFolder() const {
      return intf_.isVlanIntf() ? "cell/1/interface/status/eth/vlan/local.intfStatusLocal"
                                : "cell/1/interface/status/subintf/local.intfStatusLocal";
   }
   std::string id() const { return intf_.intfId.stringValue().str(); }
   std::string where() const { return "the namespace " + netNsText(intf_.netNs); }
   bool isToBeUp() const;

   Findings& out_;
   SwitchState const& state_;
   KernelView& kernel_;
   RoutedIntf const& intf_;
   KernelNamespace const& netNs_;
   KernelDevice const* const device_;
   std::string const name_;
};

// True when a namespace that doesn't exist is what is wrong.
bool DeviceQuestion::explainNamespace() {
   auto const& wanted = intf_.wantedNetNs;
   if (wanted.isDefault() || kernel_.at(wanted).exists)
      return false;
   no("Namespace", "the namespace " + netNsText(wanted) + ", which it is configured into, doesn't exist",
      "make it: ip netns add " + shellWord(netNsText(wanted)) + "; or take the interface out of it: " +
          "cell/1/interface/nsconfig.intfNamespaceConfig[" + id() + ']');
   return true;
}

// True when the device that it is to be on is missing.
bool DeviceQuestion::explainBase() {
   auto const& home = kernel_.at({});
   std::string const base = wantedBase(state_, intf_);
   if (!home.problem.empty() || home.findDevice(base))
      return false;
   if (intf_.isVlanIntf())
      no("Fabric device", "there is no device " + base + ", which all VLAN interfaces are on",
         "see why the platform has not made " + base +
             ", or start the agent with FABRIC_DEVICE_NAME set to the device that it has");
   else
      no("Parent device", "there is no device " + base + ", which it is to be on",
         "see why the platform has not made " + base + " for " + intf_.parent().stringValue().str());
   return true;
}

void DeviceQuestion::absent() {
   if (explainNamespace())
      return;
   if (!netNs_.problem.empty()) {
      out_.note("Device", "nothing can be said of " + name_ + " in " + where() + ": " + netNs_.problem);
      out_.isSo = intf_.deviceProblem.empty();
      return;
   }
   std::string const missing = "there is no device " + name_ + " in " + where() + ": ";
   std::string const& kernelProblem = state_.agentStatus->kernelProblem().str();
   if (!kernelProblem.empty())
      return no("Kernel", missing + kernelProblem,
                "give the switch a kernel that has VLAN devices, and the agent the right CAP_NET_ADMIN");
   if (intf_.isSubIntf() && wantedVlanId(intf_) == 0)
      return no("VLAN", missing + "it has no VLAN number",
                "set interface/config/subintf.intfConfig[" + id() + "].vlanId");
   if (explainBase())
      return;
   if (name_.size() > maxDeviceNameBytes)
      return no("Device",
                missing + "the kernel takes no name of more than " + std::to_string(maxDeviceNameBytes) +
                    " characters",
                "give the subinterface a shorter number");
   if (!intf_.deviceProblem.empty())
      return no("Device", missing + intf_.deviceProblem,
                "the agent tries again by itself once that has changed");
   if (state_.agentPid == 0)
      return no("Agent", missing + "no agent is connected to the database", "start the agent");
   no("Device", missing + "nothing is known to keep it away",
      "see whether the agent has work waiting (vornctl show backlog), and what its trace says of " + name_);
}

void DeviceQuestion::present() {
   out_.note("Device", name_ + ", index " + std::to_string(device_->index) + ", in " + where());
   if (auto const mismatch = mismatchText(state_, kernel_, intf_, *device_); !mismatch.empty())
      return no("Device", mismatch,
                "see what the agent's trace says of " + name_ + "; if nobody else needs it, ip link delete " +
                    shellWord(name_));
   if (!intf_.deviceProblem.empty())
      return no("Device", intf_.deviceProblem, "the agent tries again by itself once that has changed");
   if (explainNamespace())
      return;
   if (netNsText(intf_.netNs) != netNsText(intf_.wantedNetNs))
      return no("Namespace", "it is configured into " + netNsText(intf_.wantedNetNs) + ", and not there yet",
                "see whether the agent is running and has work waiting (vornctl show backlog)");
   explainUp();
}

// Whether the agent is to have its device up. A VLAN interface's doesn't wait for forwarding ports.
bool DeviceQuestion::isToBeUp() const {
   if (!intf_.config->enabled())
      return false;
   return intf_.isVlanIntf()
              ? intf_.verdict && intf_.verdict->operStatus != Interface::IntfOperStatus::intfOperDown
              : isUpByRecord(intf_);
}

void DeviceQuestion::explainUp() {
   if (device_->isUp() || !isToBeUp()) {
      out_.isSo = true;
      if (!device_->isUp())
         out_.note("Device state", "down, as an interface that isn't to be up has it");
      return;
   }
   if (intf_.isVlanIntf()) {
      std::string const base = wantedBase(state_, intf_);
      auto const* const fabric = kernel_.at({}).findDevice(base);
      if (fabric && !fabric->isUp())
         return no("Fabric device", base + " is down, and VLAN interfaces wait for it",
                   "bring it up: ip link set dev " + shellWord(base) + " up");
      if (state_.config->bridgeMacAddr() == Sulvi::EthAddr::ethAddrZero())
         return no("Bridge address",
                   "bridging/config.bridgeMacAddr is not set, and VLAN interfaces wait for it",
                   "have the publisher of the bridge set it");
   }
   no("Device state", "the device is down, and it is to be up",
      state_.agentPid == 0 ? "start the agent: none is connected to the database"
                           : "see what the agent's trace says of " + name_ +
                                 "; somebody may have set it down by "
                                 "hand: ip link set dev " +
                                 shellWord(name_) + " up");
}

} // namespace

Findings explainDevice(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf) {
   Findings out;
   DeviceQuestion(out, state, kernel, intf).explain();
   return out;
}

} // namespace Vornctl

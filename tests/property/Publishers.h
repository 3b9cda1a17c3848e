// The publishers of the property test: what they do at random, each thing in the database and in the intent
// that the model works from.
//
// What an operation does follows from its kind, its seed and the intent of that moment, so that a series can
// be shortened and repeated. One that makes no sense at that moment does nothing.
#pragma once

#include "Intent.h"

#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/testing/TestSwitch.h"
#include "records/Bridging/HwCapabilities.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/Bridging/VlanStatusDir.h"
#include "records/Interface/AllIntfNamespaceConfigDir.h"
#include "records/Interface/AllIntfStatusDir.h"
#include "records/Interface/AllVlanIntfAutoState.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/Interface/Hardware/SubIntfStatusDir.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocalDir.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/Interface/VlanIntfStatusLocalDir.h"

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace Model {

// Numbers that follow from a seed alone.
class Dice {
  public:
   explicit Dice(uint64_t seed) : state_(seed) {}
   unsigned below(unsigned limit) {
      state_ += 0x9e3779b97f4a7c15;
      uint64_t z = state_;
      z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
      z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
      return static_cast<unsigned>((z ^ (z >> 31)) % limit);
   }
   bool chance(unsigned oneIn = 2) { return below(oneIn) == 0; }
   template <class T, size_t n>
   T const& oneOf(T const (&choices)[n]) {
      return choices[below(n)];
   }

  private:
   uint64_t state_;
};

class Publishers {
  public:
   // All ports that they know, of every kind.
   static constexpr char const* ports[] = {"Ethernet1",   "Ethernet2", "Ethernet3",     "Ethernet4/1",
                                           "Ethernet5",   "Ethernet6", "Port-Channel1", "Ethernet65536",
                                           "Ethernet1.5", "Loopback0", "Management1",   "odd name"};
   enum class Kind {
      priority,
      publisher,
      vlan,
      port,
      intf,
      vlanIntf,
      setting,
      host,
      source,
      widener,
      role,        // of a VLAN among private VLANs
      sviMapping,  // of a primary's VLAN interface
      routing,     // subinterfaces, and all that routed interfaces depend on
      translation, // of a port
      privatePort, // what a port makes of private VLANs
      // Steps of chains (Series.cpp). Those about a port take the same one for the same seed.
      plainPort,  // a port has nothing but its interface, which is up
      modelGone,  // its forwarding model isn't known
      modelBack,  // it is the routed one
      othersGone, // the same of all other ports
      othersBack,
      numbersTaken,  // VLANs of the best input take all numbers of internal VLANs
      numbersFreed,  // and leave them
      trunksLook,    // each trunk port looks at its membership in all VLANs
      bestVlan,      // a VLAN of the best input changes
      inputReplaced, // an input of ports goes and comes back in one turn, with less
      // About private VLANs, of the best input of VLANs. They take the same VLANs for the same seed.
      privateVlans,   // a primary with two secondaries, a trunk that maps them, an interface of the primary
      primaryDeleted, // that primary
      primaryMade,    // again, or behind its secondaries
      secondaryMoved, // one of them moves to another primary, or back
      secondaryReplaced, // it is deleted and made again
      secondaryLeaves,   // the other one becomes a plain VLAN, or joins again
      secondaryHeads,    // the other one names the first; then that becomes a primary
      primarySuspended,  // the primary, or it becomes active again
      trunkTranslated,   // the trunk's input gets a translation of the primary VLAN, or loses it
      count
   };

   // `tell` is called after each change.
   Publishers(Vorn::TestSwitch& sw, Netlink::FakeKernel& kernel, Intent& intent,
              std::function<void(Change const&)> tell);

   // Publishes what every series starts with: some interfaces, a small range of internal VLANs.
   void begin(Dice dice);
   // Does one thing, and returns a text that says what.
   std::string perform(Kind kind, Dice dice);
   // The default of ports without configuration changes, which ends a running agent.
   std::string changeDefault();
   // Some call of the kernel fails from now on: once, or until the faults end.
   std::string makeKernelFail(Dice dice);
   bool isRoutedByDefault() const { return intent_.isRoutedByDefault; }
   // After a turn of the loop: new inputs have their numbers by now, and can be written.
   void turnIsOver() { unborn_.clear(); }
   bool hasNewInputs() const { return !unborn_.empty(); }

  private:
   using InputConfig = Bridging::Input::Config;

   Kem::Ptr<InputConfig> record(std::string const& input) const;
   std::string someInput(Dice& dice) const;
   // Null for none, and for one that has just come.
   std::shared_ptr<Input> bestVlanInput() const;
   std::shared_ptr<Input> bestPortInput() const;
   void comes(std::shared_ptr<Input> const& content);
   void goes(std::string const& name);

   std::string changePriority(Dice dice);
   std::string changePublisher(Dice dice);
   std::string changeVlan(Dice dice);
   std::string changePort(Dice dice);
   std::string changePortAttribute(Dice& dice, std::string const& input, std::string const& intf);
   std::string changeIntf(Dice dice);
   std::string changeVlanIntf(Dice dice);
   std::string changeSetting(Dice dice);
   std::string changeHost(Dice dice);
   std::string changeSource(Dice dice);
   std::string changeWidener(Dice dice);
   std::string changeRole(Dice dice);
   std::string changeSviMapping(Dice dice);
   std::string changeTranslation(Dice dice);

   // --- Routed interfaces (PublishersRouting.cpp).
   void beginRouting();
   void bridgeAddrIs(std::string const& addr);
   void baseIs(std::string const& name, BaseDevice const& device); // made where there is none
   void parentIs(std::string const& intf, Parent const& parent);
   void statusIs(std::string const& intf, bool exists);
   void localIs(std::string const& intf, bool exists);
   bool isConfigured(std::string const& intf) const;
   void followConfig(Dice& dice, std::string const& intf);
   std::string changeRouting(Dice dice);
   std::string changeRouted(Dice& dice, RoutedIntf& is, Interface::IntfConfig& record);
   std::string changeSubIntf(Dice dice);
   std::string changeVlanIntfSource(Dice dice);
   std::string changeIntfRecord(Dice dice);
   std::string changeParent(Dice dice);
   std::string changeHardware(Dice dice);
   std::string changeForwarding(Dice dice);
   std::string changeNamespace(Dice dice);
   std::string changeDevice(Dice dice);

   std::string changePrivatePort(Dice dice);
   std::string changePrivateVlans(Kind kind, Dice dice);
   std::string makePrivateVlans(Dice dice);
   std::string makePortPlain(Dice dice);
   std::string changeModel(std::string const& intf, unsigned model);
   std::string changeOtherModels(Dice dice, unsigned model);
   std::string takeNumbers(bool isTaken);
   std::string changeBestVlan(Dice dice);
   std::string haveTrunksLook();
   std::string replaceInput(Dice dice);

   void vlanIs(std::string const& input, unsigned number, Vlan const& vlan);
   void vlanDel(std::string const& input, unsigned number);
   void roleIs(std::string const& input, unsigned number, Role const& role); // the VLAN is made first
   void translationIs(std::string const& input, std::string const& intf, bool isEgress, Tags const& from,
                      Tags const* to); // null takes it away
   void portIs(std::string const& input, std::string const& intf, Port const& port);
   void portDel(std::string const& input, std::string const& intf);
   // Tells of an attribute; of a key in a collection when `member` is given.
   void portChanged(std::string const& input, std::string const& intf, PortAttr attribute,
                    std::string const& member = {});
   void settingChanged(Setting setting);
   Kem::Ptr<Bridging::Input::VlanIdSet> sourceRecord(std::string const& name) const;
   void sourceComes(std::string const& name, Source const& content);
   void sourceGoes(std::string const& name);
   Kem::Ptr<Bridging::Input::AllowedVlans> widenerRecord(std::string const& name) const;
   void widenerComes(std::string const& name, Widener const& content);
   void widenerGoes(std::string const& name);
   void intfComes(std::string const& intf, unsigned forwardingModel);
   void intfGoes(std::string const& intf);
   void rangeIs(unsigned min, unsigned max);

   Netlink::FakeKernel& kernel_;
   Intent& intent_;
   std::function<void(Change const&)> const tell_;
   Kem::Ptr<Kem::Dir> inputDir_, sourceDir_, widenerDir_;
   Kem::Ptr<Bridging::Input::CliConfig> cli_;
   Kem::Ptr<Interface::EthIntfConfigDir> intfConfigs_;
   Kem::Ptr<Interface::EthIntfStatusDir> intfStatuses_;
   Kem::Ptr<Interface::VlanIntfConfigDir> vlanIntfs_;
   Kem::Ptr<Bridging::HwCapabilities> hardware_;
   Kem::Ptr<Bridging::Config> config_;
   Kem::Ptr<Interface::VlanIntfStatusDir> vlanStatuses_;
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> vlanLocals_;
   Kem::Ptr<Interface::SubIntfConfigDir> subConfigs_;
   Kem::Ptr<Interface::SubIntfStatusDir> subStatuses_;
   Kem::Ptr<Interface::SubIntfStatusLocalDir> subLocals_;
   Kem::Ptr<Interface::Hardware::SubIntfStatusDir> hwStatuses_;
   Kem::Ptr<Interface::AllIntfStatusDir> allStatuses_;
   Kem::Ptr<Interface::AllIntfNamespaceConfigDir> nsConfigs_;
   Kem::Ptr<Interface::AllVlanIntfAutoState> autoState_;
   Kem::Ptr<Bridging::VlanStatusDir> vlanStatus_;
   Kem::Ptr<Kem::Dir> vlanIntfSources_;
   std::set<std::string> unborn_; // inputs that were made in this turn
};

} // namespace Model

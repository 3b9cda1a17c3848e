// Internal VLANs: a routed port is no switchport, yet the hardware needs a VLAN for it, so each routed port
// gets one of its own from a configured range.
//
//    no VLAN ──routed, not shut, forwarding model routed, number free──► VLAN held
//    no VLAN ──the same, no number free──► waiting
//    VLAN held ──left routed mode, shut, forwarding model left, record gone──► no VLAN
//    VLAN held ──number claimed by a VLAN or a VLAN interface──► waiting
//    waiting ──10 seconds passed and a number is free──► no VLAN
//    waiting ──evaluated while a number is free──► VLAN held
//    waiting ──left routed mode──► no VLAN
//
// A waiting port is a member of the errdisable cause "no-internal-vlan"; one that holds a VLAN never is. The
// tables and the operations on them are here. SwitchIntfSm decides whether a port may hold a VLAN at the
// moment; BridgingConfigSm, which owns this, decides when the operations run.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Time.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/Config.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/EthIntfConfigDir.h"

namespace Vorn {

class BridgingConfigSm;
class ResolvedVlans;
class VlanInterfaces;

// Ports and VLAN numbers, one to one, kept both ways.
class PortsByVlan {
  public:
   Sulvi::IntfId port(Bridging::VlanId vlanId) const;       // the empty id when there is none
   Bridging::VlanIdOrNone vlan(Sulvi::IntfId intfId) const; // 0 when there is none
   // Pairs the two; what either was paired with before is free.
   void pairIs(Bridging::VlanId vlanId, Sulvi::IntfId intfId);
   void pairDel(Sulvi::IntfId intfId); // nothing when there is none

  private:
   Kem::ValueMap<Bridging::VlanId, Sulvi::IntfId> ports_;
   Kem::ValueMap<Sulvi::IntfId, Bridging::VlanIdOrNone> vlans_;
};

class InternalVlans {
  public:
   // How many seconds a port waits before recovery looks at it.
   static constexpr Kem::Seconds holdOff = 10.0;

   InternalVlans(Kem::Ptr<Bridging::Config> config, ResolvedVlans& resolvedVlans,
                 VlanInterfaces const& vlanInterfaces, Kem::Ptr<Errdisable::CauseStatus> cause)
       : config_(std::move(config)), resolvedVlans_(resolvedVlans), vlanInterfaces_(vlanInterfaces),
         cause_(std::move(cause)) {}

   // --- The tables: `routedPort` and `internalVlanId` by one name, `startupRoutedPort` and
   // `startupInternalVlanId` by the other.
   PortsByVlan const& held() const { return held_; }
   // What the previous run left, until its port takes the VLAN up again.
   PortsByVlan const& startup() const { return startup_; }

   // Finds the internal VLANs of the previous run that have to be kept for their ports. `input` and
   // `ethIntfConfigDir` may be null.
   void handleStartup(Bridging::Input::Config const* input,
                      Interface::EthIntfConfigDir const* ethIntfConfigDir);

   // --- Numbers.
   // The first free number of the range; 0 when there is none. Reserves nothing.
   Bridging::VlanIdOrNone allocate() const;
   // Gives the port a VLAN: the number of the previous run, or a free one where there is none. Returns 0 when
   // none is free, or something took the old number meanwhile; then the port waits.
   Bridging::VlanIdOrNone take(Sulvi::IntfId intfId);
   // The port doesn't take up its VLAN of the previous run: frees the number and deletes the VLAN.
   void startupDel(Sulvi::IntfId intfId);
   // Takes the VLAN away from the port, which stays routed. Asserts "vlanId": it isn't 0.
   void giveUp(Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId);
   // The user's configuration takes the number: the port that holds it gives it up and waits. Nothing when no
   // port holds it.
   void handleInUse(Bridging::VlanId vlanId);

   // --- Waiting.
   // The port waits from now on. One that waits already keeps its time, which is when it failed.
   void waitBegin(Sulvi::IntfId intfId);
   void waitEnd(Sulvi::IntfId intfId) { cause_->intfStatusDel(intfId); }
   // Ends the waiting of ports that have waited long enough, while a number is free. Assigns no number: the
   // port takes its VLAN when it comes up again.
   void recover();

  private:
   Bridging::VlanIdOrNone nextNumber(Sulvi::IntfId intfId);

   Kem::Ptr<Bridging::Config> const config_;
   ResolvedVlans& resolvedVlans_;
   VlanInterfaces const& vlanInterfaces_;
   Kem::Ptr<Errdisable::CauseStatus> const cause_;
   PortsByVlan held_;
   PortsByVlan startup_;
};

// Writes the resolved VLAN of a routed port: internal, active, named after the port, with the CPU port as its
// member.
Kem::Ptr<Bridging::VlanConfig> createRoutedPortVlanConfig(ResolvedVlans& resolvedVlans,
                                                          Bridging::VlanId vlanId, Sulvi::IntfId intfId);
// InternalVlans::giveUp.
void deleteRoutedPortVlanConfig(BridgingConfigSm& sm, Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId);

} // namespace Vorn

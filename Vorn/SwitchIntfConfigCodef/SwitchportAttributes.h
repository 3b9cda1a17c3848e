// The attributes of a switchport (Bridging::Input::SwitchIntfConfig), a line each, in the order in which the
// first copy takes them. What waits has a second line in SwitchIntfConfigEntrySm.cpp: there the order is that
// of the backlog's steps.
//
//    WAITS(Name, attribute, bit)       moves VLAN membership: waits for a slice, under that bit
//    COPIED(Name, attribute)           is copied as it changes
//    ADDED(Name, attribute, Key)       a collection, copied member by member; the first copy only adds
//    REPLACED(Name, attribute, Key)    the same, but the first copy clears it before
//
// That the two ADDED ones aren't cleared, so that members of an older input stay, is meant.
#pragma once

// clang-format off
#define SWITCHPORT_ATTRIBUTES(WAITS, COPIED, ADDED, REPLACED)                        \
   WAITS(SwitchportMode, switchportMode, switchportMode)                            \
   WAITS(Enabled, enabled, switchportEnabled)                                       \
   WAITS(AccessVlan, accessVlan, switchportAccessVlan)                              \
   WAITS(TrunkNativeVlan, trunkNativeVlan, switchportTrunkNativeVlan)               \
   WAITS(TrunkAllowedVlans, trunkAllowedVlans, switchportTrunkAllowedVlans)         \
   WAITS(AsymVlans, asymVlans, switchportAsymVlans)                                 \
   COPIED(TrunkPrivateVlanMapping, trunkPrivateVlanMapping)                         \
   WAITS(TapNativeVlan, tapNativeVlan, switchportTapNativeVlan)                     \
   WAITS(TapAllowedVlans, tapAllowedVlans, switchportTapAllowedVlans)               \
   WAITS(ToolAllowedVlans, toolAllowedVlans, switchportToolAllowedVlans)            \
   COPIED(ToolIdentityTagging, toolIdentityTagging)                                 \
   COPIED(TapIdentificationVlan, tapIdentificationVlan)                             \
   COPIED(TapMplsPop, tapMplsPop)                                                   \
   COPIED(TapTruncationSize, tapTruncationSize)                                     \
   COPIED(ToolTruncationSize, toolTruncationSize)                                   \
   COPIED(ToolDot1qRemoveVlans, toolDot1qRemoveVlans)                               \
   ADDED(TapGroup, tapGroup, Kem::String8 const&)                                   \
   ADDED(TapRawIntf, tapRawIntf, Sulvi::IntfId)                                     \
   REPLACED(ToolGroup, toolGroup, Kem::String8 const&)                              \
   REPLACED(TrunkGroup, trunkGroup, Kem::String8 const&)                            \
   COPIED(DefaultPrivateVlanMapping, defaultPrivateVlanMapping)                     \
   COPIED(BlockUnknownUnicast, blockUnknownUnicast)                                 \
   COPIED(BlockUnknownMulticast, blockUnknownMulticast)                             \
   COPIED(MacLearningEnabled, macLearningEnabled)                                   \
   COPIED(FloodingEnabled, floodingEnabled)                                         \
   REPLACED(PrivateVlanMapping, privateVlanMapping, Bridging::VlanId)               \
   COPIED(EgressNativeVlanXlate, egressNativeVlanXlate)                             \
   COPIED(IngressNativeVlanXlate, ingressNativeVlanXlate)                           \
   REPLACED(EgressVlanXlate, egressVlanXlate, Bridging::VlanXlateKey const&)        \
   REPLACED(IngressVlanXlate, ingressVlanXlate, Bridging::VlanXlateKey const&)      \
   COPIED(VlanTpid, vlanTpid)
// clang-format on

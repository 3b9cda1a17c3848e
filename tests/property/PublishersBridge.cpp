// What the publishers do apart from their inputs: interfaces, VLAN interfaces, and the settings of the whole
// bridge.

#include "PublishersRecords.h"

#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/VlanIntfConfig.h"

#include <utility>

namespace Model {

// --- Interfaces.

void Publishers::intfComes(std::string const& intf, unsigned forwardingModel) {
   if (!intent_.intfConfigs.contains(intf)) {
      intfConfigs_->intfConfigIs(intf);
      intent_.intfConfigs[intf] = std::make_shared<IntfConfig>();
      tell_({.what = Change::intfConfig, .key = intf});
   }
   if (!intent_.intfStatuses.contains(intf)) {
      intfStatuses_->intfStatusIs(intf)->forwardingModelIs(
          static_cast<Interface::IntfForwardingModel>(forwardingModel));
      intent_.intfStatuses[intf] = std::make_shared<IntfStatus>(IntfStatus{forwardingModel});
      tell_({.what = Change::intfStatus, .key = intf});
   }
}

void Publishers::intfGoes(std::string const& intf) {
   if (intent_.intfStatuses.erase(intf)) {
      intfStatuses_->intfStatusDel(intf);
      tell_({.what = Change::intfStatus, .key = intf});
   }
   if (intent_.intfConfigs.erase(intf)) {
      intfConfigs_->intfConfigDel(intf);
      tell_({.what = Change::intfConfig, .key = intf});
   }
}

std::string Publishers::changeIntf(Dice dice) {
   std::string const intf = dice.oneOf(ports);
   auto const config = intent_.intfConfigs.find(intf);
   auto const status = intent_.intfStatuses.find(intf);
   switch (dice.below(8)) {
   case 0:
      if (config != intent_.intfConfigs.end() || status != intent_.intfStatuses.end()) {
         intfGoes(intf);
         return intf + " vanishes";
      }
      intfComes(intf, dice.chance() ? routedModel : 0);
      return intf + " is plugged in";
   case 1:
      if (config != intent_.intfConfigs.end() && status != intent_.intfStatuses.end()) {
         unsigned const model = status->second->forwardingModel;
         intfGoes(intf);
         intfComes(intf, model);
         return intf + " vanishes and is plugged in again";
      }
      return "nothing";
   case 2:
      if (config != intent_.intfConfigs.end()) {
         intfConfigs_->intfConfigDel(intf);
         intent_.intfConfigs.erase(config);
         tell_({.what = Change::intfConfig, .key = intf});
         return intf + " configuration gone";
      }
      intfConfigs_->intfConfigIs(intf);
      intent_.intfConfigs[intf] = std::make_shared<IntfConfig>();
      tell_({.what = Change::intfConfig, .key = intf});
      return intf + " configuration there";
   case 3:
   case 4:
      if (config != intent_.intfConfigs.end()) {
         bool const isShut = config->second->isShut = !config->second->isShut;
         intfConfigs_->intfConfig(intf)->enabledStateLocalIs(
             isShut ? Interface::EnabledState::enabledStateShutdown
                    : Interface::EnabledState::enabledStateEnabled);
         tell_({.what = Change::intfConfigShut, .key = intf});
         return intf + (isShut ? " shut down" : " not shut down");
      }
      return "nothing";
   default: {
      if (status == intent_.intfStatuses.end())
         return "nothing";
      return changeModel(intf, dice.chance() ? routedModel : dice.below(5));
   }
   }
}

std::string Publishers::changeModel(std::string const& intf, unsigned model) {
   auto const status = intent_.intfStatuses.find(intf);
   if (status == intent_.intfStatuses.end())
      return "nothing";
   if (std::exchange(status->second->forwardingModel, model) != model) {
      intfStatuses_->intfStatus(intf)->forwardingModelIs(static_cast<Interface::IntfForwardingModel>(model));
      tell_({.what = Change::intfStatusModel, .key = intf});
   }
   return intf + " forwarding model " + std::to_string(model);
}

std::string Publishers::changeVlanIntf(Dice dice) {
   std::string const intf = "Vlan" + std::to_string(dice.chance()   ? someVlan(dice)
                                                    : dice.chance() ? 20 + dice.below(4)
                                                                    : 1 + dice.below(3));
   auto const found = intent_.vlanIntfs.find(intf);
   if (found == intent_.vlanIntfs.end()) {
      vlanIntfs_->intfConfigIs(intf);
      intent_.vlanIntfs[intf];
      followConfig(dice, intf);
      tell_({.what = Change::vlanIntf, .key = intf});
      return intf + " there";
   }
   auto const record = vlanIntfs_->intfConfig(intf);
   auto& is = found->second;
   switch (dice.below(7)) {
   case 0:
   case 1:
   case 2:
      return intf + " " + changeRouted(dice, is, *record);
   case 3:
      is.autoState = !is.autoState;
      record->autoStateIs(is.autoState);
      return intf + (is.autoState ? " with autostate" : " without autostate");
   default:
      vlanIntfs_->intfConfigDel(intf);
      intent_.vlanIntfs.erase(found);
      followConfig(dice, intf);
      tell_({.what = Change::vlanIntf, .key = intf});
      return intf + " gone";
   }
}

// --- Settings of the whole bridge.

void Publishers::rangeIs(unsigned min, unsigned max) {
   auto& settings = *intent_.settings;
   if (settings.rangeMin == min && settings.rangeMax == max)
      return;
   cli_->internalVlanRangeIs({.min = static_cast<uint16_t>(min), .max = static_cast<uint16_t>(max)});
   settings.rangeMin = min;
   settings.rangeMax = max;
   settingChanged(Setting::range);
}

void Publishers::settingChanged(Setting setting) {
   tell_({.what = Change::setting, .attribute = static_cast<int>(setting)});
}

std::string Publishers::changeSetting(Dice dice) {
   auto& settings = *intent_.settings;
   switch (dice.below(7)) {
   case 0: {
      static constexpr unsigned ranges[][2] = {{20, 23}, {20, 21}, {22, 24}, {24, 20}, {30, 30}, {20, 29}};
      auto const& [min, max] = dice.oneOf(ranges);
      rangeIs(min, max);
      return "internal range " + std::to_string(min) + "-" + std::to_string(max);
   }
   case 1:
      settings.allocatesDescending = !settings.allocatesDescending;
      cli_->internalVlanAllocationPolicyIs(settings.allocatesDescending
                                               ? Bridging::InternalVlanAllocationPolicy::descending
                                               : Bridging::InternalVlanAllocationPolicy::ascending);
      settingChanged(Setting::allocationPolicy);
      return "allocation policy";
   case 2: {
      unsigned const agingTime = dice.below(1000);
      bool const passesPause = dice.chance();
      cli_->hostAgingTimeIs(agingTime);
      if (std::exchange(settings.agingTime, agingTime) != agingTime)
         settingChanged(Setting::agingTime);
      cli_->pausePassThroughIs(passesPause);
      if (std::exchange(settings.passesPause, passesPause) != passesPause)
         settingChanged(Setting::passesPause);
      return "aging time, pause";
   }
   case 3: {
      unsigned const mode = dice.below(4);
      cli_->forwardingModeIs(static_cast<Bridging::SwitchForwardingMode>(mode));
      if (std::exchange(settings.forwardingMode, mode) != mode)
         settingChanged(Setting::forwardingMode);
      return "forwarding mode " + std::to_string(mode);
   }
   case 4: {
      std::vector<unsigned> modes;
      for (unsigned i = 0, n = dice.below(4); i < n; ++i)
         modes.push_back(1 + dice.below(3));
      for (unsigned i = 0; i < modes.size(); ++i)
         hardware_->supportedForwardingModeIs(i, static_cast<Bridging::SwitchForwardingMode>(modes[i]));
      for (size_t i = modes.size(); i < intent_.supportedModes.size(); ++i)
         hardware_->supportedForwardingModeDel(static_cast<uint32_t>(i));
      if (std::exchange(intent_.supportedModes, modes) != modes)
         tell_({.what = Change::hardware});
      return "supported forwarding modes";
   }
   case 5: {
      unsigned const number = someVlan(dice), fid = dice.below(3);
      auto fids = settings.fids;
      if (dice.chance()) {
         cli_->vidToFidMapIs(Bridging::VlanId(number), Bridging::Fid(fid));
         fids[number] = fid;
      } else {
         cli_->vidToFidMapDel(Bridging::VlanId(number));
         fids.erase(number);
      }
      if (std::exchange(settings.fids, fids) != fids)
         tell_({.what = Change::fid, .number = number});
      return "filtering database of " + std::to_string(number);
   }
   default: {
      std::string const address = "01:80:c2:00:00:0" + std::to_string(dice.below(4));
      bool const isForwarded = dice.chance();
      // One that is not forwarded is absent, or in the record with the value false.
      auto const* const before = cli_->ieeeReservedForwarding().find(Sulvi::EthAddr(address));
      bool const isOther = !before || *before != isForwarded;
      cli_->ieeeReservedForwardingIs(Sulvi::EthAddr(address), isForwarded);
      if (isForwarded)
         settings.reserved.insert(address);
      else
         settings.reserved.erase(address);
      if (isOther)
         tell_({.what = Change::reserved, .key = address});
      return "reserved address " + address;
   }
   }
}

} // namespace Model

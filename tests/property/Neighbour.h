// A careless neighbour of the property test: edits at random what the agent resolved, in the database and in
// the model.
//
// While the agent is up, no record is deleted for good, and what its rules assert is left alone: a port's
// mode, a routed port's VLAN, whether a port is asymmetric, and that no port which holds an internal VLAN
// waits for one. While it is down, anything goes: the next life puts all of it right.
#pragma once

#include "AgentModel.h"
#include "Publishers.h"

#include "records/Bridging/Config.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Errdisable/CauseStatus.h"

namespace Model {

class Neighbour {
  public:
   explicit Neighbour(Vorn::TestSwitch& sw);
   // Does one thing; the text says what. `model` is null while the agent is down.
   std::string perform(Dice dice, Agent* model);

  private:
   std::string editMember(Dice& dice, Agent* model);
   std::string editVlan(Dice& dice, Agent* model);
   std::string editPort(Dice& dice, Agent* model);
   std::string editSettings(Dice& dice, Agent* model);
   std::string deleteChoice(Dice& dice, Agent* model);
   std::string editWait(Dice& dice, Agent* model);
   std::string makeOrDeleteVlan(Dice& dice);
   std::string makeOrDeletePort(Dice& dice);
   // One of the VLANs that there are, at random; 0 when there are none.
   unsigned someResolvedVlan(Dice& dice) const;

   Kem::Ptr<Bridging::Config> config_;
   Kem::Ptr<Bridging::SwitchIntfConfigDir> chosen_;
   Kem::Ptr<Errdisable::CauseStatus> cause_;
};

} // namespace Model

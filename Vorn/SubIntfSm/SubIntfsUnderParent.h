// The subinterfaces of one port, and how many of them claim each VLAN id. It lives as long as the port has a
// subinterface; a count that has fallen to 0 stays.
#pragma once

#include "Kem/Collections.h"
#include "Kem/PtrInterface.h"
#include "Sulvi/IntfId.h"

#include <cstdint>

namespace Vorn {

class SubIntfsUnderParent final : public Kem::PtrInterface {
  public:
   explicit SubIntfsUnderParent(Sulvi::IntfId parentIntfId) : parentIntfId_(parentIntfId) {}

   Sulvi::IntfId parentIntfId() const { return parentIntfId_; }
   Kem::OrderedValueMap<Sulvi::IntfId, bool> const& subIntf() const { return subIntf_; }
   void subIntfIs(Sulvi::IntfId intfId, bool value) {
      *subIntf_.findOrInsert(intfId, [&] { return value; }).first = value;
   }
   void subIntfDel(Sulvi::IntfId intfId) { subIntf_.erase(intfId); }

   int16_t vlanIdCount(uint16_t vlanId) const {
      auto const* const found = vlanIdCount_.find(vlanId);
      return found ? *found : int16_t(0);
   }
   void vlanIdCountIs(uint16_t vlanId, int16_t count) {
      *vlanIdCount_.findOrInsert(vlanId, [&] { return count; }).first = count;
   }

  private:
   Sulvi::IntfId const parentIntfId_;
   Kem::OrderedValueMap<Sulvi::IntfId, bool> subIntf_; // the value is always true
   Kem::ValueMap<uint16_t, int16_t> vlanIdCount_;
};

} // namespace Vorn

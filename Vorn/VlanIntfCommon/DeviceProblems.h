// Why interfaces lack their kernel devices as they are configured, in words for operators: what the kernel can't
// do, or what stands in the way of one device. Each problem is traced once, at level 0, when it comes or
// becomes another one, and is in the agent's status record for as long as it lasts.
//
// Shared by the state machines of interfaces; an interface belongs to one of them only.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"
#include "Sulvi/IntfId.h"
#include "records/Agent/Status.h"

#include <array>
#include <string>
#include <string_view>

namespace Vorn {

// What of a device a problem is about; an interface has at most one problem of each.
enum class DeviceAspect : uint8_t { existence, address, mtu };
inline constexpr size_t deviceAspects = 3;

class DeviceProblems final : public Kem::PtrInterface {
  public:
   // Problems of an earlier run leave the record. Null: problems are only traced.
   explicit DeviceProblems(Kem::Ptr<::Agent::Status> status);

   // What no device can be made for; empty for nothing.
   void kernelProblemIs(std::string_view text);
   // Empty: none of that aspect. Nothing is said of a device whose existence is a problem.
   void problemIs(Sulvi::IntfId intfId, DeviceAspect aspect, std::string_view text);
   // Of the device itself. Of one that isn't there, nothing else is said.
   void existenceIs(Sulvi::IntfId intfId, std::string_view text);
   // The interface is gone, or is not to have a device.
   void problemDel(Sulvi::IntfId intfId);
   // All of them, separated by "; "; empty for none.
   std::string problem(Sulvi::IntfId intfId) const;

  private:
   using Texts = std::array<std::string, deviceAspects>;
   void report(Sulvi::IntfId intfId, Texts const& texts);

   Kem::Ptr<::Agent::Status> const status_;
   Kem::ValueMap<Sulvi::IntfId, Texts> problems_; // of interfaces that have one
};

} // namespace Vorn

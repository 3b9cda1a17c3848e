#include "Vorn/VlanIntfCommon/DeviceProblems.h"

#include "Kem/Trace.h"

namespace Vorn {

namespace {
Kem::TraceFacility deviceProblemsTrace("VornDeviceProblems");
}

DeviceProblems::DeviceProblems(Kem::Ptr<::Agent::Status> status)
    : status_(status ? std::move(status) : ::Agent::Status::make()) {
   status_->kernelProblemIs("");
   status_->deviceProblemDelAll();
}

void DeviceProblems::kernelProblemIs(std::string_view text) {
   if (std::string_view(status_->kernelProblem()) == text)
      return;
   if (text.empty())
      KEM_TRACE(deviceProblemsTrace, 0, "the kernel takes VLAN devices");
   else
      KEM_TRACE(deviceProblemsTrace, 0, "the kernel takes no VLAN devices: " << text);
   status_->kernelProblemIs(Kem::String8(text));
}

void DeviceProblems::problemIs(Sulvi::IntfId intfId, DeviceAspect aspect, std::string_view text) {
   auto* const known = problems_.find(intfId);
   if (!known && text.empty())
      return;
   Texts texts = known ? *known : Texts();
   if (aspect != DeviceAspect::existence && !texts[static_cast<size_t>(DeviceAspect::existence)].empty())
      return;
   auto& changed = texts[static_cast<size_t>(aspect)];
   if (changed == text)
      return;
   changed = text;
   report(intfId, texts);
}

void DeviceProblems::existenceIs(Sulvi::IntfId intfId, std::string_view text) {
   auto const* const known = problems_.find(intfId);
   if (text.empty() || !known) {
      problemIs(intfId, DeviceAspect::existence, text);
      return;
   }
   Texts only;
   only[static_cast<size_t>(DeviceAspect::existence)] = text;
   if (only != *known)
      report(intfId, only);
}

void DeviceProblems::problemDel(Sulvi::IntfId intfId) {
   if (problems_.find(intfId))
      report(intfId, {});
}

std::string DeviceProblems::problem(Sulvi::IntfId intfId) const {
   auto const* const known = status_->deviceProblem(intfId);
   return known ? known->str() : std::string();
}

void DeviceProblems::report(Sulvi::IntfId intfId, Texts const& texts) {
   std::string all;
   for (auto const& text : texts)
      if (!text.empty())
         all += (all.empty() ? "" : "; ") + text;
   if (all.empty()) {
      KEM_TRACE(deviceProblemsTrace, 0, "device of " << intfId << ": no problem any more");
      problems_.erase(intfId);
      status_->deviceProblemDel(intfId);
      return;
   }
   KEM_TRACE(deviceProblemsTrace, 0, "device of " << intfId << ": " << all);
   *problems_.findOrInsert(intfId, [] { return Texts(); }).first = texts;
   status_->deviceProblemIs(intfId, Kem::String8(all));
}

} // namespace Vorn

#include "Session.h"

#include "AgentPid.h"
#include "Failures.h"

#include "Kem/Activity.h"
#include "Ordel/client/Cell.h"
#include "records/TypeInfo.h"

#include <functional>
#include <vector>

namespace Vornctl {

namespace {

constexpr Kem::Seconds connectTimeout = 5;
constexpr Kem::Seconds mountTimeout = 60; // a full tree takes two
constexpr uint32_t cell = 1;
constexpr char agentName[] = "Vorn";

} // namespace

class Session::Mounter final : public Ordel::Mounter {
  public:
   Mounter() : Ordel::Mounter(Kem::Name("vornctl")) {}
   void doMountsComplete(Ordel::MountStatus const&, Ordel::EntityManager&) override { isComplete = true; }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Vornctl::Session::Mounter", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   bool isComplete = false;
};

Session::Session(std::string const& socketPath)
    : socketPath_(socketPath), manager_(Kem::makePtr<Ordel::EntityManager>(
                                   Records::schema(), Records::typeInfo, "vornctl", Ordel::Role::tool)) {
   if (auto const error = manager_->connect(socketPath, connectTimeout); !error.empty())
      throw Unreachable(error);
   manager_->closedHookIs([this](std::string const& reason) { failure_ = reason; });
}

Session::~Session() = default;

void Session::wait(Mounter const& mounter) {
   Kem::Seconds const deadline = Kem::now() + mountTimeout;
   while (!mounter.isComplete) {
      if (!failure_.empty())
         throw Unreachable(socketPath_ + ": " + failure_);
      if (Kem::now() >= deadline)
         throw Unreachable(socketPath_ + ": the database doesn't answer");
      Kem::activityManager()->runTurn(0.1);
   }
}

SwitchState Session::fetch(Part parts) {
   SwitchState state;
   auto const mounter = Kem::makePtr<Mounter>();
   auto const group = manager_->getMountGroup(*mounter);
   std::vector<std::function<void()>> takers; // run when all has come
   auto const mount = [&](Part part, auto& record, char const* mode, std::string const& path) {
      if (!contains(parts, part))
         return;
      using Type = std::remove_reference_t<decltype(*record)>;
      group->doMount({mode, Type::typeInfo_.name, path});
      takers.push_back([this, &record, path] {
         record = manager_->entity<Type>(path);
         if (!record)
            throw Refused(path + ": there is no " + Type::typeInfo_.name);
      });
   };
   mount(Part::config, state.config, "r", "bridging/config");
   // Inputs come before what refers to them.
   mount(Part::inputs, state.inputs, "ri", "bridging/input/config");
   mount(Part::chosen, state.chosen, "r", "bridging/switchIntfConfig");
   mount(Part::dynamic, state.dynVlans, "ri", "bridging/input/dynvlan/vlan");
   mount(Part::dynamic, state.dynAllowedVlans, "ri", "bridging/input/dynvlan/allowedvlan");
   mount(Part::interfaces, state.ethIntfConfig, "r", "interface/config/eth/intf");
   mount(Part::interfaces, state.ethIntfStatus, "r", "interface/status/eth/intf");
   // Configurations come before the states that refer to them.
   auto const here = [](char const* path) { return Cell::path(path, cell); };
   mount(Part::routed, state.allIntfConfig, "r", "interface/config/all");
   mount(Part::routed, state.vlanIntfConfig, "r", "interface/config/eth/vlan");
   mount(Part::routed, state.dynVlanIntfs, "ri", "interface/input/dynvlanintf");
   mount(Part::routed, state.subIntfConfig, "r", "interface/config/subintf");
   mount(Part::routed, state.allVlanIntfAutoState, "r", "interface/config/eth/allVlanIntfAutoState");
   mount(Part::routed, state.intfNamespace, "r", here("interface/nsconfig"));
   mount(Part::routed, state.vlanStatus, "r", "bridging/vlan/status");
   mount(Part::routed, state.allIntfStatus, "r", "interface/status/all");
   mount(Part::routed, state.vlanIntfStatus, "r", "interface/status/eth/vlan");
   mount(Part::routed, state.vlanIntfStatusLocal, "r", here("interface/status/eth/vlan/local"));
   mount(Part::routed, state.subIntfStatus, "r", "interface/status/subintf");
   mount(Part::routed, state.subIntfStatusLocal, "r", here("interface/status/subintf/local"));
   mount(Part::routed, state.subIntfHwStatus, "r", "interface/hardware/status/subintf");
   mount(Part::causes, state.causes, "ri", "interface/errdisable/cause");
   mount(Part::causes, state.errdisable, "r", "interface/errdisable/status");
   mount(Part::agentStatus, state.agentStatus, "r",
         Cell::path(std::string("agent/status/") + agentName, cell));
   group->doClose(true, "vornctl", 0.0); // what is missing is reported below
   wait(*mounter);
   for (auto const& take : takers)
      take();
   if (contains(parts, Part::agentPid))
      state.agentPid = agentPid(socketPath_, agentName);
   if (contains(parts, Part::routed) && state.agentPid != 0)
      state.agentProcess = AgentProcess(state.agentPid);
   state.now = Kem::now();
   return state;
}

} // namespace Vornctl

#include "AgentBase/Runner.h"

#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/Trace.h"
#include "Ordel/client/Cell.h"
#include "Process/Failure.h"
#include "Process/ServiceNotify.h"
#include "Process/StopSignals.h"
#include "Process/Watchdog.h"
#include "Zivlog/Zivlog.h"
#include "records/TypeInfo.h"

#include <dlfcn.h>

namespace AgentBase {

namespace {

// The database may be starting too.
constexpr Kem::Seconds connectTimeout = 10.0;
constexpr Kem::Seconds connectRetry = 0.2;
// A start that does not settle is shown to the others all the same.
constexpr Kem::Seconds holdLimit = 30.0;
// Until the agent is warm, its trace says this often what it is waiting for.
constexpr Kem::Seconds warmupReports = 10.0;

void say(std::string const& line) {
   Process::sayWithPid("agent-runner", line);
}

} // namespace

// Mounts what every agent needs before its own mounts, in two groups: the cell's redundancy status, and when
// that is there, the records of the agent's process, which are made in the cell.
class Runner::BaseMounter final : public Ordel::Mounter {
  public:
   BaseMounter(Runner& r, void (Runner::*h)()) : Mounter(Kem::Name("base")), runner(r), handler(h) {}
   void doMountsComplete(Ordel::MountStatus const&, Ordel::EntityManager&) override { (runner.*handler)(); }

   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"AgentBase::Runner::BaseMounter", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   Runner& runner;
   void (Runner::*const handler)();
};

// The trace setting of the running agent, from the state tree.
struct Runner::KemAgentConfig final : Agent::AgentConfig::NotifieeConst {
   KemAgentConfig() : NotifieeConst(this) {}
   void handleInitialized() override {
      // An empty setting leaves what the environment says.
      if (!notifier()->traceSetting().empty())
         handleTraceSetting();
   }
   void onTraceSetting() override { handleTraceSetting(); }
   void handleTraceSetting() { Kem::traceSettingIs(notifier()->traceSetting()); }
};

// Time goes on while the database is looked for.
class Runner::ConnectTimer final : public Kem::Clock::NotifieeConst {
  public:
   explicit ConnectTimer(Runner& r) : NotifieeConst(Kem::ActivityFacility::clock()), runner(r) {}
   void onTime() override { runner.connect(); }
   Runner& runner;
};

// Says "ready" once what the start has written is on its way.
class Runner::Ready final {
  public:
   explicit Ready(Runner& r) : runner(r) {
      Kem::activityManager()->deliveryEndHookAdd(Kem::DeliveryEnd::report, hook());
   }
   ~Ready() { Kem::activityManager()->deliveryEndHookDel(hook()); }
   Kem::FunctionRef<void()> hook() { return Kem::FunctionRef<void()>::of<&Ready::check>(*this); }
   void check() {
      if (isTold || !runner.agent_->startupReady() || runner.entityManager_->attributeLog()->isHeld())
         return;
      isTold = true;
      runner.agent_->warmIs(true);
      say(runner.options_.name + " is ready");
      Process::serviceNotify("READY=1");
   }
   Runner& runner;
   bool isTold = false;
};

Runner::Runner(RunnerOptions options) : options_(std::move(options)) {}

Runner::~Runner() = default;

int Runner::load() {
   void* const module = dlopen(options_.module.c_str(), RTLD_NOW | RTLD_GLOBAL);
   if (!module) {
      say("module " + options_.module + ": " + dlerror());
      return ExitStatus::noModule;
   }
   auto const factory = reinterpret_cast<ModuleFactory>(dlsym(module, moduleFactoryName));
   if (!factory) {
      say("module " + options_.module + ": no function " + moduleFactoryName);
      return ExitStatus::noModule;
   }
   Cell::localIs(options_.cell);
   agent_ = Kem::Ptr<CAgent>::adopt(factory(options_.name.c_str()));
   agent_->cellIdIs(options_.cell);
   agent_->agentOrdelNameIs(options_.clientName());
   agent_->warmupReportingIntervalIs(warmupReports);
   return ExitStatus::stopped;
}

// --- To the database.

// Called again by its timer, until the database has welcomed the agent or the time is over.
void Runner::connect() {
   if (entityManager_ && entityManager_->isConnected()) {
      if (!hasAnswered())
         end(ExitStatus::noDatabase, options_.socketPath + ": no answer");
      return;
   }
   // The one before goes first: both have the same name in the attribute log.
   agent_->entityManagerIs(nullptr);
   entityManager_ = nullptr;
   entityManager_ = Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo,
                                                       agent_->agentOrdelName(), Ordel::Role::agent);
   entityManager_->closedHookIs([this](std::string const& reason) { handleClosed(reason); });
   entityManager_->groupCompleteHookIs(
       [this](Ordel::MountGroup const& group) { handleGroupComplete(group); });
   agent_->entityManagerIs(entityManager_);
   // The loop takes the answer in: it looks at signals too.
   if (std::string const error = entityManager_->connect(options_.socketPath, 0); !error.empty()) {
      connectLater(error);
      return;
   }
   connectTimer_->timeMinIs(giveUpConnecting_);
   mountCell();
}

void Runner::connectLater(std::string const& reason) {
   if (Kem::now() >= giveUpConnecting_) {
      end(ExitStatus::noDatabase, reason);
      return;
   }
   if (!isWaitTold_)
      say(options_.name + ": waiting for the state database: " + reason);
   isWaitTold_ = true;
   connectTimer_->timeMinIs(Kem::now() + connectRetry);
}

void Runner::handleClosed(std::string const& reason) {
   if (hasAnswered())
      end(ExitStatus::lostDatabase, "the connection to the state database has ended: " + reason);
   else if (entityManager_->isRefused())
      end(ExitStatus::noDatabase, options_.socketPath + ": " + reason);
   else
      connectLater(options_.socketPath + ": " + reason); // perhaps it was just ending, and another one starts
}

bool Runner::hasAnswered() const {
   return !entityManager_->systemName().empty();
}

int Runner::run() {
   if (int const status = load())
      return status;
   Process::StopSignals const stopSignals(
       [this](int signal) { end(ExitStatus::stopped, "stopped by signal " + std::to_string(signal)); });
   Process::Watchdog const watchdog;
   giveUpConnecting_ = Kem::now() + connectTimeout;
   connectTimer_ = std::make_unique<ConnectTimer>(*this);
   connect();
   try {
      Kem::activityManager()->run();
   } catch (std::exception const& exception) {
      end(ExitStatus::exception, std::string("uncaught exception: ") + exception.what());
   }
   if (!options_.isRespawning) // otherwise the process that starts it again says so when it doesn't
      Process::serviceNotify("STOPPING=1");
   if (entityManager_)
      entityManager_->attributeLog()->flush();
   Zivlog::close();
   return status_;
}

// --- Mounts.

void Runner::mountCell() {
   cellMounter_ = Kem::makePtr<BaseMounter>(*this, &Runner::handleCellMounted);
   auto const group = entityManager_->getMountGroup(*cellMounter_);
   group->doMount({"r", "Redundancy::RedundancyStatus", Cell::path("redundancy/status", 0)});
   group->doClose(false, "cell", 0.0);
}

void Runner::handleCellMounted() {
   auto const redundancyStatus =
       entityManager_->entity<Redundancy::RedundancyStatus>(Cell::path("redundancy/status", 0));
   if (!redundancyStatus) {
      // Without it the agent would take itself for the active one, beside that of another supervisor.
      end(ExitStatus::noDatabase, "the database has no cell " + std::to_string(options_.cell) +
                                      ": there is no " + Cell::path("redundancy/status", 0));
      return;
   }
   agent_->redundancyStatusIs(redundancyStatus);
   baseMounter_ = Kem::makePtr<BaseMounter>(*this, &Runner::handleBaseMounted);
   auto const group = entityManager_->getMountGroup(*baseMounter_);
   group->doMount({"rc", "Agent::AgentConfig", agent_->agentCfgName()});
   group->doMount({"wf", "Agent::Status", agent_->agentStatusName()});
   group->doClose(false, "base", 0.0);
}

void Runner::handleBaseMounted() {
   if (auto const config = entityManager_->entity<Agent::AgentConfig>(agent_->agentCfgName())) {
      kemAgentConfig_ = std::make_unique<KemAgentConfig>();
      kemAgentConfig_->notifierIs(config);
   }
   agent_->agentStatusIs(entityManager_->entity<Agent::Status>(agent_->agentStatusName()));
   entityManager_->holdLog(holdLimit);
   agent_->doPreInit();
   agent_->doInit();
}

void Runner::handleGroupComplete(Ordel::MountGroup const& group) {
   if (&group.mounter() != agent_.ptr() || agent_->initialized())
      return;
   agent_->initializedIs(true);
   ready_ = std::make_unique<Ready>(*this);
   entityManager_->releaseLogWhenSettled();
}

void Runner::end(int status, std::string const& reason) {
   say(options_.name + ": " + reason);
   status_ = status;
   Kem::activityManager()->stop();
}

} // namespace AgentBase

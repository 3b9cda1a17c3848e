#include "AgentBase/Runner.h"

#include "AgentBase/ServiceNotify.h"
#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/Trace.h"
#include "Ordel/client/Cell.h"
#include "Zivlog/Zivlog.h"
#include "records/TypeInfo.h"

#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <sys/signalfd.h>
#include <unistd.h>

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
   std::fprintf(stderr, "agent-runner[%d]: %s\n", getpid(), line.c_str());
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

class Runner::SignalWatch final : public Kem::FileDescriptorWatch {
  public:
   explicit SignalWatch(Runner& r) : runner(r) {
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, SIGTERM);
      sigaddset(&set, SIGINT);
      sigprocmask(SIG_BLOCK, &set, nullptr);
      fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
      descriptorIs(fd);
   }
   ~SignalWatch() override {
      descriptorIs(-1);
      close(fd);
   }
   void onReadable() override {
      signalfd_siginfo info{};
      if (read(fd, &info, sizeof info) == sizeof info)
         runner.end(ExitStatus::stopped, "stopped by signal " + std::to_string(info.ssi_signo));
   }
   Runner& runner;
   int fd;
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
      serviceNotify("READY=1");
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
   agent_->agentOrdelNameIs(options_.name);
   agent_->warmupReportingIntervalIs(warmupReports);
   return ExitStatus::stopped;
}

int Runner::connect() {
   entityManager_ = Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo,
                                                       agent_->agentOrdelName(), Ordel::Role::agent);
   Kem::Seconds const giveUp = Kem::now() + connectTimeout;
   for (;;) {
      std::string const error = entityManager_->connect(options_.socketPath, connectTimeout);
      if (error.empty())
         break;
      if (entityManager_->isRefused() || Kem::now() > giveUp) {
         say(error);
         return ExitStatus::noDatabase;
      }
      usleep(static_cast<useconds_t>(connectRetry * 1e6));
   }
   entityManager_->closedHookIs([this](std::string const& reason) {
      end(ExitStatus::lostDatabase, "the connection to the state database has ended: " + reason);
   });
   entityManager_->groupCompleteHookIs(
       [this](Ordel::MountGroup const& group) { handleGroupComplete(group); });
   agent_->entityManagerIs(entityManager_);
   return ExitStatus::stopped;
}

int Runner::run() {
   if (int const status = load())
      return status;
   signals_ = std::make_unique<SignalWatch>(*this);
   if (int const status = connect())
      return status;
   cellMounter_ = Kem::makePtr<BaseMounter>(*this, &Runner::handleCellMounted);
   auto const group = entityManager_->getMountGroup(*cellMounter_);
   group->doMount({"r", "Redundancy::RedundancyStatus", Cell::path("redundancy/status", 0)});
   group->doClose(false, "cell", 0.0);
   try {
      Kem::activityManager()->run();
   } catch (std::exception const& exception) {
      end(ExitStatus::exception, std::string("uncaught exception: ") + exception.what());
   }
   serviceNotify("STOPPING=1");
   entityManager_->attributeLog()->flush();
   Zivlog::close();
   return status_;
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

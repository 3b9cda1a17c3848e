#include "StatusWatcher.h"

#include "Ordel/client/Connection.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Operations.h"
#include "records/Interface/types.h"
#include "records/Schema.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

namespace Bench {

class StatusWatcher::Mirror final : public Ordel::Connection {
  public:
   Mirror() : Connection(Records::schema(), "subscriber", Ordel::Role::tool) {}

   unsigned mounted = 0;
   unsigned readyCount = 0;

  private:
   enum : uint8_t { hasDevice = 1, hasAddress = 2, isUp = 4, isReady = 7 };
   struct Kind {
      explicit Kind(char const* name) : type(Records::schema().entity(name)) {}
      bool is(Ordel::Operation const& operation, char const* attribute) const {
         return operation.attribute == type->find(attribute);
      }
      Records::EntityType const* type;
   };

   void onMounted(uint32_t, uint32_t node, uint16_t type, std::string_view path) override {
      if (node)
         tree_.mount(node, Records::schema().entities[type], path);
   }
   void onMountDone(uint32_t) override { ++mounted; }
   void onChanges(uint64_t, std::string_view operations) override {
      Ordel::Applied const& applied = tree_.apply(operations);
      for (auto const& group : applied.groups)
         for (Kind const& kind : kinds_)
            if (&group.entity->type() == kind.type)
               take(kind, std::string(applied.at(group)), applied.operations(group));
   }
   void take(Kind const& kind, std::string const& place, std::string_view operations) {
      auto& state = states_[place];
      bool const wasReady = state == isReady;
      Ordel::OperationReader reader(*kind.type, operations);
      for (Ordel::Operation operation; reader.next(operation);) {
         if (operation.op != Ordel::Op::set)
            continue;
         if (kind.is(operation, "deviceName"))
            state |= hasDevice;
         else if (kind.is(operation, "addr"))
            state |= hasAddress;
         else if (kind.is(operation, "operStatus"))
            state = static_cast<uint8_t>(
                (state & ~isUp) |
                (operation.value[0] == int(Interface::IntfOperStatus::intfOperUp) ? isUp : 0));
      }
      readyCount += state == isReady;
      readyCount -= wasReady;
   }

   Ordel::Tree tree_{Records::schema()};
   Kind const kinds_[2] = {Kind("Interface::VlanIntfStatus"), Kind("Interface::SubIntfStatus")};
   std::unordered_map<std::string, uint8_t> states_; // by the address of the record
};

StatusWatcher::StatusWatcher(std::string const& socketPath, unsigned wanted) {
   int ends[2];
   if (pipe(ends) != 0)
      std::exit(1);
   pid_ = fork();
   if (pid_ == 0) {
      close(ends[0]);
      run(socketPath, wanted, ends[1]);
      _exit(0);
   }
   close(ends[1]);
   pipe_ = ends[0];
   char ready;
   if (read(pipe_, &ready, 1) != 1)
      std::exit(1);
}

StatusWatcher::~StatusWatcher() {
   kill(pid_, SIGKILL);
   waitpid(pid_, nullptr, 0);
   close(pipe_);
}

void StatusWatcher::run(std::string const& socketPath, unsigned wanted, int pipe) {
   Mirror mirror;
   std::string error;
   if (!mirror.connectAndWait(socketPath, 10, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return;
   }
   mirror.mount(1, "interface/status/eth/vlan", "", 0);
   mirror.mount(2, "interface/status/subintf", "", 0);
   char const byte = 0;
   bool isMounted = false, isDone = false;
   while (mirror.isConnected()) {
      mirror.wait(10);
      if (mirror.mounted == 2 && !isMounted)
         isMounted = write(pipe, &byte, 1) == 1;
      if (isMounted && mirror.readyCount == wanted && !isDone)
         isDone = write(pipe, &byte, 1) == 1;
   }
}

void StatusWatcher::waitFor(double limit) {
   pollfd ready = {pipe_, POLLIN, 0};
   char byte;
   if (poll(&ready, 1, static_cast<int>(limit * 1000)) != 1 || read(pipe_, &byte, 1) != 1) {
      std::fprintf(stderr, "the subscriber waited in vain for the interfaces\n");
      std::exit(1);
   }
}

} // namespace Bench

#include "Counter.h"

#include "Kem/Time.h"
#include "Ordel/client/Connection.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Operations.h"
#include "records/Schema.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Bench {

struct Counter::Mirror final : Ordel::Connection {
   explicit Mirror(Seen& seen)
       : Connection(Records::schema(), "subscriber", Ordel::Role::tool), seen_(seen),
         vlanType_(Records::schema().entity("Bridging::VlanConfig")),
         intf_(static_cast<unsigned>(vlanType_->find("intf"))),
         configType_(Records::schema().entity("Bridging::Config")),
         vlanConfig_(static_cast<unsigned>(configType_->find("vlanConfig"))) {}

   bool isMounted = false;

  private:
   void onMounted(uint32_t, uint32_t node, uint16_t type, std::string_view path) override {
      if (node)
         tree_.mount(node, Records::schema().entities[type], path);
   }
   void onMountDone(uint32_t) override { isMounted = true; }
   void onChanges(uint64_t, std::string_view operations) override {
      Ordel::Applied const& applied = tree_.apply(operations);
      int64_t difference = 0;
      for (auto const& group : applied.groups) {
         auto const& type = group.entity->type();
         Ordel::OperationReader reader(type, applied.operations(group));
         Ordel::Operation operation;
         int64_t inGroup = 0;
         size_t at = group.first;
         for (; reader.next(operation); ++at) {
            // The members of a deleted VLAN are deleted with it.
            if (&type == configType_ && operation.attribute == vlanConfig_ &&
                operation.op == Ordel::Op::erase)
               difference -= std::exchange(members_[vlanIn(operation.key)], 0);
            if (&type != vlanType_ || operation.attribute != intf_)
               continue;
            if (operation.op == Ordel::Op::erase)
               --inGroup;
            else if (applied.isNew[at])
               ++inGroup;
         }
         seen_.changes += at - group.first;
         difference += inGroup;
         if (inGroup == 0)
            continue;
         uint16_t const vlan = vlanIn(applied.at(group)); // its number is the last key of the address
         members_[vlan] += inGroup;
         if (vlan == 1)
            seen_.vlan1Memberships += inGroup;
      }
      seen_.memberships += difference;
   }
   static uint16_t vlanIn(std::string_view key) {
      auto const* const bytes = reinterpret_cast<unsigned char const*>(key.data() + key.size() - 2);
      return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
   }

   Ordel::Tree tree_{Records::schema()};
   Seen& seen_;
   Records::EntityType const* const vlanType_;
   unsigned const intf_;
   Records::EntityType const* const configType_;
   unsigned const vlanConfig_;
   std::array<int64_t, 65536> members_{}; // by VLAN
};

Counter::Counter(std::string const& socketPath) {
   void* const shared =
       mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
   seen_ = new (shared) Seen{};
   seen_->target = seen_->vlan1Target = -1;
   int ends[2];
   if (shared == MAP_FAILED || pipe(ends) != 0) {
      std::perror("counter");
      std::exit(1);
   }
   pid_ = fork();
   if (pid_ == 0) {
      ::close(ends[0]);
      run(socketPath, *seen_, ends[1]);
      _exit(0);
   }
   ::close(ends[1]);
   pipe_ = ends[0];
   char ready;
   if (read(pipe_, &ready, 1) != 1)
      std::exit(1);
}

Counter::~Counter() {
   kill(pid_, SIGKILL);
   waitpid(pid_, nullptr, 0);
   ::close(pipe_);
   munmap(seen_, sizeof(Seen));
}

void Counter::run(std::string const& socketPath, Seen& seen, int pipe) {
   Mirror mirror(seen);
   std::string error;
   if (!mirror.connectAndWait(socketPath, 10, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      _exit(1);
   }
   mirror.mount(1, "bridging/config", "", 0);
   char const byte = 0;
   bool isReady = false;
   while (mirror.isConnected()) {
      mirror.wait(isReady ? 0.05 : 1);
      if (mirror.isMounted && !isReady) {
         isReady = true;
         if (write(pipe, &byte, 1) != 1)
            return;
      }
      if (isReady && ((seen.target >= 0 && seen.memberships == seen.target) ||
                      (seen.vlan1Target >= 0 && seen.vlan1Memberships == seen.vlan1Target))) {
         seen.time = Kem::now();
         seen.target = seen.vlan1Target = -1;
         if (write(pipe, &byte, 1) != 1)
            return;
      }
   }
}

double Counter::waitFor(double limit) {
   pollfd ready = {pipe_, POLLIN, 0};
   char byte;
   if (poll(&ready, 1, static_cast<int>(limit * 1000)) != 1 || read(pipe_, &byte, 1) != 1) {
      std::fprintf(stderr, "the subscriber waited in vain: there are %lld memberships, %lld were expected\n",
                   static_cast<long long>(seen_->memberships), static_cast<long long>(seen_->target));
      std::exit(1);
   }
   return seen_->time;
}

} // namespace Bench

// For tests of the client with its real connection: a state database in this process, and the bytes between it
// and each client carried by the test, as many at a time as it wants. All on one loop with virtual time.
//
//    SteppedDatabase database;
//    auto& agent = database.client("agent");            // connected
//    auto config = agent.mount<Bridging::Config>("w", "bridging/config");
//    config->hostAgingTimeIs(17);
//    SteppedDatabase::turn();      // what was written leaves
//    database.toServer(agent);     // and is taken in
//    database.toClient(other);     // what the other client is told of it
//    database.settle();            // everything, until nothing is on its way
#pragma once

#include "Kem/Activity.h"
#include "Ordel/client/EntityManager.h"
#include "Ordel/server/Server.h"
#include "Ordel/store/Walk.h"
#include "records/TypeInfo.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace Ordel {

// Waits for one group of mounts.
class CountingMounter final : public Mounter {
  public:
   CountingMounter() : Mounter(Kem::Name("test")) {}
   void doMountsComplete(MountStatus const& mountStatus, EntityManager&) override {
      status = mountStatus;
      ++completeCount;
   }
   void handleMountStatus(MountStatus const&) override { ++statusCount; }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Ordel::CountingMounter", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

   MountStatus status;
   unsigned completeCount = 0;
   unsigned statusCount = 0;
};

class SteppedDatabase {
  public:
   // Places that tests use.
   static constexpr char configPath[] = "bridging/config";
   static constexpr char inputPath[] = "bridging/input/config";
   static constexpr char chosenPath[] = "bridging/switchIntfConfig";

   class Client {
     public:
      Client(SteppedDatabase& d, std::string const& name) : database(d), manager(make(name)) {
         manager->closedHookIs([this](std::string const& reason) {
            closedReason = reason;
            ++closedCount;
         });
         EXPECT_EQ(manager->connect(d.path_, 0), "");
         socket = accept4(d.listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
         EXPECT_GE(socket, 0);
         atServer = &d.server->connect({});
      }
      ~Client() { hangUp(); }

      // Mounts and waits; null where it failed.
      template <class T>
      Kem::Ptr<T> mount(char const* mode, std::string const& path) {
         auto const mounter = Kem::makePtr<CountingMounter>();
         auto const group = manager->getMountGroup(*mounter);
         group->doMount({mode, T::typeInfo_.name, path});
         group->doClose(true, "test", 0.0);
         database.settle();
         EXPECT_EQ(mounter->completeCount, 1u) << path;
         return manager->template entity<T>(path);
      }
      // The database's end of the connection closes.
      void hangUp() {
         if (socket < 0)
            return;
         database.server->disconnect(*atServer);
         close(std::exchange(socket, -1));
      }

      SteppedDatabase& database;
      Kem::Ptr<EntityManager> manager;
      ServerClient* atServer = nullptr;
      int socket = -1;
      std::string closedReason;
      unsigned closedCount = 0;

     private:
      static Kem::Ptr<EntityManager> make(std::string const& name) {
         return Kem::makePtr<EntityManager>(Records::schema(), Records::typeInfo, name, Role::agent);
      }
   };

   explicit SteppedDatabase(std::unique_ptr<Tree> tree = std::make_unique<Tree>(Records::schema(), 1))
       : server(std::make_unique<Server>(std::move(tree), "switch1")) {
      unlink(path_.c_str());
      listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path_.copy(address.sun_path, sizeof address.sun_path - 1);
      EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
      EXPECT_EQ(listen(listener_, 16), 0);
   }
   ~SteppedDatabase() {
      clients_.clear();
      close(listener_);
      unlink(path_.c_str());
   }

   Client& client(std::string const& name) {
      auto& client = *clients_.emplace_back(std::make_unique<Client>(*this, name));
      settle();
      return client;
   }
   std::vector<std::unique_ptr<Client>> const& clients() const { return clients_; }

   static void turn() { Kem::activityManager()->runTurn(); }
   // At most so many bytes that the client has sent. Returns whether there were any.
   bool toServer(Client& client, size_t bytes = 1 << 20) {
      std::string buffer(bytes, '\0');
      ssize_t const count = client.socket < 0 ? 0 : recv(client.socket, buffer.data(), bytes, 0);
      if (count > 0)
         client.atServer->receive({buffer.data(), static_cast<size_t>(count)});
      return count > 0;
   }
   // At most so many bytes for the client, which takes them in with the next turn.
   bool toClient(Client& client, size_t bytes = 1 << 20) {
      if (client.socket < 0)
         return false;
      client.atServer->fill();
      auto const output = client.atServer->output().substr(0, bytes);
      ssize_t const count =
          output.empty() ? 0 : send(client.socket, output.data(), output.size(), MSG_NOSIGNAL);
      if (count > 0)
         client.atServer->consumed(static_cast<size_t>(count));
      return count > 0;
   }
   // Carries everything until nothing is left to do.
   void settle() {
      for (bool isBusy = true; isBusy;) {
         Kem::activityManager()->runUntilIdle();
         isBusy = false;
         for (auto const& client : clients_) {
            isBusy |= toServer(*client);
            isBusy |= toClient(*client);
         }
      }
   }

   // What the database has at a mounted path, as a record of its own.
   template <class T>
   Kem::Ptr<T> contents(std::string const& path) {
      witness_ = std::make_unique<Witness>();
      auto const* node = server->tree().find(path);
      if (!node)
         return nullptr;
      auto const entity = witness_->tree.mount(node->node(), node->type().id, path, false);
      Wire::Writer out;
      Walk walk(server->tree(), *node, Walk::Extent::deep);
      while (walk.next(out, 1 << 20)) {
      }
      EXPECT_EQ(witness_->tree.apply(out.view()), "");
      return Kem::ptrCast<T>(entity);
   }
   std::unique_ptr<Server> server;

  private:
   struct Witness final : private Kem::NboAttrLog::Link {
      Witness() { tree.logIs(log); }
      ~Witness() { log->linkDel(); }
      int socketFd() const override { return -1; }
      void writeOperations(std::string_view) override {}
      size_t unsentBytes() const override { return 0; }
      TypedTree tree{Records::schema(), Records::typeInfo};
      Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log =
          Kem::makePtr<Kem::NboAttrLog::SocketOutSm>(static_cast<Kem::NboAttrLog::Link&>(*this));
   };

   Kem::VirtualTime time_;
   std::string const path_ = testing::TempDir() + "/ordel-stepped-" + std::to_string(getpid()) + ".sock";
   int listener_ = -1;
   std::vector<std::unique_ptr<Client>> clients_;
   std::unique_ptr<Witness> witness_;
};

// Counts what makes one record into another: nothing where they are equal.
class DifferenceCount final : public Kem::AttributeSink {
  public:
   static std::vector<std::string> between(Kem::Entity const& before, Kem::Entity const& now) {
      DifferenceCount difference;
      now.encodeDifference(before, difference);
      return difference.places_;
   }

  private:
   void scalarChanged(Kem::Entity const& entity, Kem::AttrId id) override { add(entity, id, nullptr); }
   void memberChanged(Kem::Entity const& entity, Kem::AttrId id, void const* key) override {
      add(entity, id, key);
   }
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child) override {
      places_.push_back(parent.fullName() + "." + parent.attributeString(id) + "[" + child.keyText() +
                        "] added");
   }
   void childRemoved(Kem::Entity const& parent, Kem::AttrId id, void const*,
                     Kem::Ptr<Kem::Entity> const& child) override {
      places_.push_back(parent.fullName() + "." + parent.attributeString(id) + "[" + child->keyText() +
                        "] removed");
   }
   void add(Kem::Entity const& entity, Kem::AttrId id, void const* key) {
      places_.push_back(entity.fullName() + "." + entity.attributeString(id) + (key ? "[...]" : ""));
   }
   std::vector<std::string> places_;
};

} // namespace Ordel

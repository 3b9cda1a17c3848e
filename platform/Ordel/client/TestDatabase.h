// For tests of the typed client without sockets: a store with the whole schema, and
// any number of typed trees on it.
//
//    TestDatabase database;
//    auto& agent = database.client();                           // mounts what it is told to
//    auto config = agent.mount<Bridging::Config>("bridging/config", true);
//
// A change that one client writes reaches the store when its log is flushed, and every other client at once.
#pragma once

#include "Ordel/client/NboAttrLog.h"
#include "Ordel/client/TypedTree.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/Walk.h"
#include "Ordel/wire/Selector.h"
#include "records/TypeInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Ordel {

class TestDatabase {
  public:
   class Client final : private Kem::NboAttrLog::Link {
     public:
      explicit Client(TestDatabase& d) : database(d) { tree.logIs(log); }
      ~Client() { log->linkDel(); }

      // The entity with all that is in the database; of a path that the schema has.
      template <class T>
      Kem::Ptr<T> mount(std::string const& path, bool isWritable) {
         auto const* node = database.tree.find(path);
         EXPECT_TRUE(node) << path;
         auto const entity = tree.mount(node->node(), node->type().id, path, isWritable);
         paths.push_back(path);
         EXPECT_EQ(tree.apply(database.contents(path)), "");
         return Kem::ptrCast<T>(entity);
      }
      void flush() { log->flush(); }
      std::vector<std::string> const& blocks() const { return blocks_; } // that were written
      bool covers(std::string const& path) const {
         return std::any_of(paths.begin(), paths.end(), [&](auto const& mounted) {
            return path == mounted || path.starts_with(mounted + '/');
         });
      }
      std::string take(std::string_view operations) { return tree.apply(operations); }

      TestDatabase& database;
      TypedTree tree{Records::schema(), Records::typeInfo};
      Kem::Ptr<Kem::NboAttrLog::SocketOutSm> log =
          Kem::makePtr<Kem::NboAttrLog::SocketOutSm>(static_cast<Kem::NboAttrLog::Link&>(*this));
      std::vector<std::string> paths;

     private:
      int socketFd() const override { return -1; }
      void writeOperations(std::string_view operations) override {
         blocks_.emplace_back(operations);
         database.write(this, operations);
      }
      size_t unsentBytes() const override { return 0; }
      std::vector<std::string> blocks_;
   };

   Client& client() {
      clients_.push_back(std::make_unique<Client>(*this));
      return *clients_.back();
   }
   // Applies a block, which must be good, and passes its effect on to all but the writer.
   void write(Client* writer, std::string_view operations) {
      auto const& applied = tree.apply(operations);
      ASSERT_TRUE(applied.isDone()) << applied.error;
      groupCount += applied.groups.size();
      // The writer of a new entity in a directory learns its number.
      bool const tellsWriter = !applied.nodes.empty();
      for (auto const& client : clients_) {
         if (!tellsWriter && client.get() == writer)
            continue;
         std::string effect;
         for (auto const& group : applied.groups)
            if (client->covers(tree.path(*group.entity)))
               effect.append(applied.at(group)).append(applied.operations(group));
         if (!effect.empty()) {
            EXPECT_EQ(client->take(effect), "");
         }
      }
   }
   // All operations that bring a reader of that path to the present state.
   std::string contents(std::string const& path) const {
      Wire::Writer out;
      Walk walk(tree, *tree.find(path), Walk::Extent::deep);
      while (walk.next(out, 1 << 20)) {
      }
      return std::string(out.view());
   }
   // The value at a selector in wire form; nothing where there is none.
   std::optional<std::string> value(std::string const& text) const {
      Selector selector;
      std::string error;
      EXPECT_TRUE(Selector::parse(text, selector, error)) << error;
      auto const at = tree.locate(selector);
      if (at.status != Status::done || !at.entity)
         return {};
      if (at.attribute < 0)
         return "";
      auto const id = static_cast<unsigned>(at.attribute);
      if (!at.key)
         return std::string(tree.value(*at.entity, id));
      auto const member = tree.member(*at.entity, id, *at.key);
      return member ? std::optional<std::string>(*member) : std::nullopt;
   }

   Tree tree{Records::schema(), 1};
   size_t groupCount = 0; // groups of effective operations since the start

  private:
   std::vector<std::unique_ptr<Client>> clients_;
};

} // namespace Ordel

// A subscriber in the test's own process that mirrors one subtree and counts every operation that arrives.
//
//    Subscriber subscriber(database, "bridging");
//    subscriber.takeAll();           // all that the database has for it by now
//    subscriber.begin();
//    …
//    subscriber.takeAll();
//    EXPECT_EQ(subscriber.bytes(), 0u) << subscriber.seen();
//
// Driven by its calls alone: it reads nothing between them. Waiting gives up after the limit of Processes.h
// and fails the test then.
#pragma once

#include "Ordel/client/Connection.h"
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"
#include "Processes.h"

#include <chrono>
#include <string>
#include <vector>

namespace Scenario {

class Subscriber final : public Ordel::Connection {
  public:
   // Returns when everything that exists has arrived.
   Subscriber(std::string const& socket, std::string place)
       : Connection(Records::schema(), "subscriber", Ordel::Role::tool), place_(std::move(place)) {
      std::string error;
      if (!connectAndWait(socket, limit.count(), error)) {
         ADD_FAILURE() << error;
         return;
      }
      mount(++mounts_, place_, "", 0);
      awaitDone();
      begin();
   }

   // Starts to count from zero.
   void begin() {
      bytes_ = count_ = 0;
      seen_.clear();
   }
   // Takes in all that the database has for it by now.
   void takeAll() {
      // The database answers after what is pending; the answer itself doesn't matter.
      mount(++mounts_, "stage", "", Ordel::mountAwait | Ordel::mountShallow);
      awaitDone();
   }
   // Takes in what arrives until so many operations have been counted.
   void takeUntil(size_t count) {
      auto const giveUp = std::chrono::steady_clock::now() + limit;
      while (isConnected() && count_ < count) {
         wait(1);
         if (std::chrono::steady_clock::now() > giveUp) {
            ADD_FAILURE() << place_ << ": " << count_ << " operations came instead of " << count;
            return;
         }
      }
   }

   // Since begin(): bytes of operations, operations that changed the mirror, and what they were, such as
   // "erase bridging/config.vlanConfig[10].intf[Ethernet1]"; the words are those of the protocol.
   size_t bytes() const { return bytes_; }
   size_t count() const { return count_; }
   std::vector<std::string> const& operations() const { return seen_; }
   std::string seen() const {
      std::string text;
      for (std::string const& line : seen_)
         text += line + "\n";
      return text;
   }
   // The text of operations is kept only when it is wanted: it takes more time than all the rest.
   void isTellingIs(bool isTelling) { isTelling_ = isTelling; }

   Ordel::Tree const& mirror() const { return mirror_; }
   // Every fact of the place, sorted.
   std::string text() const {
      Ordel::Entity const* const entity = mirror_.find(place_);
      return entity ? TestRecords::dump(mirror_, *entity) : "nothing";
   }
   // Members of all resolved VLANs, where the place is "bridging/config" or above it.
   size_t memberships() const {
      Ordel::Entity const* const config = mirror_.find("bridging/config");
      if (!config)
         return 0;
      size_t count = 0;
      for (Ordel::Members vlan(mirror_, *config, attribute(*config, "vlanConfig")); vlan.next();)
         count += mirror_.count(*vlan.entity(), attribute(*vlan.entity(), "intf"));
      return count;
   }

  private:
   static unsigned attribute(Ordel::Entity const& entity, std::string_view name) {
      return static_cast<unsigned>(entity.type().find(name));
   }
   void awaitDone() {
      while (isConnected() && done_ < mounts_)
         if (!wait(limit.count()) && isConnected()) {
            ADD_FAILURE() << place_ << ": the database does not answer";
            return;
         }
   }

   void onMounted(uint32_t number, uint32_t node, uint16_t type, std::string_view path) override {
      if (number == 1)
         mirror_.mount(node, Records::schema().entities[type], path);
   }
   void onMountDone(uint32_t number) override { done_ = number; }
   void onMountFailed(uint32_t, Ordel::Status, std::string_view reason) override { ADD_FAILURE() << reason; }
   void onClosed(std::string_view reason) override { ADD_FAILURE() << reason; }
   void onChanges(uint64_t, std::string_view operations) override {
      bytes_ += operations.size();
      Ordel::Applied const& applied = mirror_.apply(operations);
      if (!applied.isDone())
         ADD_FAILURE() << applied.error;
      for (auto const& group : applied.groups) {
         Ordel::OperationReader reader(group.entity->type(), applied.operations(group));
         for (Ordel::Operation operation; reader.next(operation);) {
            ++count_;
            if (isTelling_)
               seen_.push_back(told(*group.entity, operation));
         }
      }
   }
   std::string told(Ordel::Entity const& entity, Ordel::Operation const& operation) const {
      if (operation.op == Ordel::Op::set)
         return "set " + Ordel::selectorText(mirror_, entity, operation.attribute);
      char const* const word = operation.op == Ordel::Op::put     ? "put "
                               : operation.op == Ordel::Op::erase ? "erase "
                                                                  : "create ";
      return word + Ordel::selectorText(mirror_, entity, operation.attribute, operation.key);
   }

   std::string const place_;
   Ordel::Tree mirror_{Records::schema()};
   uint32_t mounts_ = 0; // the last one asked for
   uint32_t done_ = 0;
   size_t bytes_ = 0;
   size_t count_ = 0;
   bool isTelling_ = true;
   std::vector<std::string> seen_;
};

} // namespace Scenario

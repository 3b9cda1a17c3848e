// The base of a state machine: its life, and the operations that hold for everything below it.
//
//    made ──► handleInitialized ──► initialized: handlers run ──► zombie ──► doPrepareToDie ──► erased
//
//    class VlanConfigSm final : public Kem::StateMachine {
//      ...
//      void forEachPart(Kem::PartVisitor const& visit) override { visit(kemVlanConfigIn_, portSm_); }
//
// A machine names its parts once, in forEachPart: its reactors and clocks, its children, and collections of
// these. From then on delivery is switched on and off for all of them (hasNotificationActiveIs), and they
// become zombies together, children's children too. A part that is left out there still gets notifications.
//
// A machine that loses its last reference makes itself and all below it zombies before anything of it is
// destroyed, so that no child dies with live reactors. An owner removes a child with childDel, which does the
// whole teardown in its order. A zombie runs no handlers: its reactors are not notified, and handlers that
// are called directly begin with isReady().
#pragma once

#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"

#include <utility>

namespace Kem {

// An operation that is passed down a tree of machines: to reactors, to children, and by the children on.
class PartVisitor {
  public:
   enum class Operation : uint8_t { notificationActive, zombie, nondestructing };
   PartVisitor(Operation operation, bool value) : operation_(operation), value_(value) {}

   // A part is a reactor, a clock or a machine; a pointer to one, which may be null; or a collection, by key,
   // of such. What only holds parts takes the visitor by a forEachPart of its own.
   template <class... Parts>
   void operator()(Parts const&... parts) const {
      (pass(const_cast<Parts&>(parts)),
       ...); // a const collection owns parts that can be changed all the same
   }

  private:
   template <class Part>
   void pass(Part& part) const {
      if constexpr (requires { part.kemDoZombieReactors(true); })
         apply(part);
      else if constexpr (requires { part.forEachPart(*this); })
         part.forEachPart(*this);
      else if constexpr (requires { *part; })
         passIf(part);
      else
         for (auto const& [key, member] : part)
            (*this)(member);
   }
   template <class Pointer>
   void passIf(Pointer const& pointer) const {
      if (pointer)
         (*this)(*pointer);
   }
   template <class Part>
   void apply(Part& part) const {
      if (operation_ == Operation::notificationActive)
         part.hasNotificationActiveIs(value_);
      else if (operation_ == Operation::zombie)
         part.kemDoZombieReactors(value_);
      else if constexpr (requires { part.isNondestructingIs(true); })
         part.isNondestructingIs(value_);
   }

   Operation const operation_;
   bool const value_;
};

class StateMachine : public PtrInterface {
  public:
   // Name of the class with its namespace, for traces.
   virtual char const* fwkType() const;

   bool initialized() const { return hasFlag(initializedFlag); }
   virtual void initializedIs(bool initialized);
   // The first full evaluation, once the constructor's inputs are complete: whoever makes the machine calls
   // it, or makeInitialized does. An override sets `initialized` where handlers that it calls may run.
   virtual void handleInitialized() { initializedIs(true); }

   virtual void hasNotificationActiveIs(bool isActive);
   // false revives: the reactors are notified of everything that they follow, as after a new registration.
   virtual void kemDoZombieReactors(bool areZombies);

   // Its owner leaves what it wrote as it is when it ends: tearDown() skips doPrepareToDie.
   bool isNondestructing() const { return hasFlag(nondestructingFlag); }
   virtual void isNondestructingIs(bool isNondestructing);
   // Takes back what the machine wrote, before its owner removes it. Its reactors are zombies by then;
   // children that are to take theirs back are removed by it.
   virtual void doPrepareToDie() {}
   // The teardown up to the point where the owner drops its reference: zombies first, then doPrepareToDie.
   void tearDown();

  protected:
   StateMachine() { flagIs(notificationActiveFlag, true); }
   // visit(part, part...) with each part that the machine owns. Where the base has parts of its own, an
   // override calls that of the base too.
   virtual void forEachPart(PartVisitor const& visit) = 0;
   // For the beginning of a handler that is called directly, or from a reactor before the first evaluation:
   // false in a zombie, and false with a trace before handleInitialized.
   bool isReady() const {
      return (word() & (zombieFlag | initializedFlag)) == initializedFlag || isSkipped();
   }
   void onZeroReferences() override;

  private:
   bool isSkipped() const; // false
};

// Makes a machine and has it evaluate everything for the first time.
template <class Machine, class... Inputs>
Ptr<Machine> makeInitialized(Inputs&&... inputs) {
   auto machine = makePtr<Machine>(std::forward<Inputs>(inputs)...);
   machine->handleInitialized();
   return machine;
}

// Removes a child as its owner: tearDown, and then the entry. Returns whether there was one.
template <class Children, class Key>
bool childDel(Children& children, Key const& key) {
   auto const* const found = children.find(key);
   if (!found)
      return false;
   auto const child = *found; // until the end: the key may be the child's own
   child->tearDown();
   children.erase(key);
   return true;
}
template <class Machine>
void childDel(Ptr<Machine>& child) {
   if (child)
      child->tearDown();
   child = nullptr;
}
template <class Children>
void childDelAll(Children& children) {
   for (auto const& [key, child] : children) {
      auto const gone = key; // doPrepareToDie may change the table
      childDel(children, gone);
   }
}

} // namespace Kem

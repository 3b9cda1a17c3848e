// The base of every reactor: what it follows, what is still to be delivered to it, and
// whether it takes notifications.
//
// A reactor derives from the NotifieeConst of the class that it follows and overrides the onX that it wants:
//
//    struct KemConfigIn final : Bridging::Input::Config::NotifieeConst {
//       explicit KemConfigIn(BridgingSm& sm) : NotifieeConst(this), sm_(sm) {}
//       void handleInitialized() override { sm_.handleVlanConfig(); }
//       void onVlanConfig(Bridging::VlanId vlanId) override { sm_.handleVlanConfig(vlanId); }
//       ...
//    };
//
// Which onX are overridden is known at compile time; the others cost nothing, not even a queue entry.
// A change is recorded here by attribute and key and delivered in a later turn of the loop, so that many
// changes of one thing are one notification, which reads the latest state:
//
//    idle --change of a wanted attribute--> queued --turn of the loop--> onX for each --> idle
//
// Delivery goes by attribute in declared order, and by key in the order of the first change. Of a collection,
// the keyed form comes first, then the un-keyed one, once for all keys. A handler that causes a further
// notification of its own reactor gets it, and what else is pending for that reactor, in a later turn.
//
// While delivery is off, changes wait here, but for a collection whose whole-collection form (kemImmediate)
// is overridden: that form comes once when delivery is on again, and only if the collection changed. A
// reactor that is registered again can't know what it missed: it gets the whole-collection form of each
// collection and onX() of each attribute, where they are overridden. A changed binding drops what was pending
// for the old one.
//
// A zombie takes nothing and delivers nothing. A reactor may be destroyed at any
// time, also inside its own onX.
#pragma once

#include "Kem/Entity.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <type_traits>
#include <vector>

namespace Kem {

class ActivityConfig;
class ActivitySm;

// Keys of one collection that wait for delivery, each once, in the order of arrival.
template <class Key>
class PendingKeys {
  public:
   void add(Key const& key) {
      if (positions_.empty()) {
         // Few keys are searched, many are looked up.
         for (size_t i = next_; i < keys_.size(); ++i)
            if (keys_[i] == key)
               return;
         keys_.push_back(key);
         if (keys_.size() - next_ > 16)
            for (size_t i = next_; i < keys_.size(); ++i)
               positions_.findOrInsert(keys_[i], [&] { return dropped_ + i; });
         return;
      }
      uint64_t const end = dropped_ + keys_.size();
      auto const [position, isNew] = positions_.findOrInsert(key, [&] { return end; });
      if (!isNew) {
         if (*position >= dropped_ + next_)
            return;
         *position = end; // it was taken before
      }
      keys_.push_back(key);
   }
   bool empty() const { return next_ == keys_.size(); }
   Key take() {
      Key key = std::move(keys_[next_++]);
      if (empty()) {
         clear();
      } else if (next_ >= 64 && next_ * 2 > keys_.size()) {
         // A collection that never comes to rest must not grow this list for ever.
         keys_.erase(keys_.begin(), keys_.begin() + static_cast<std::ptrdiff_t>(next_));
         dropped_ += next_;
         next_ = 0;
      }
      return key;
   }
   void clear() {
      keys_ = {};
      positions_.clear();
      dropped_ = next_ = 0;
   }

  private:
   std::vector<Key> keys_;
   size_t next_ = 0;      // those before it have been taken
   uint64_t dropped_ = 0; // taken ones that are no longer in keys_
   // Of many keys: the last place of each, counted from the first key ever; past the taken ones if it waits.
   ValueMap<Key, uint64_t> positions_;
};

// What a reactor overrides: bit n is attribute n.
struct Interests {
   uint64_t keyed = 0;     // onX(key)
   uint64_t plain = 0;     // onX() of a scalar, or the un-keyed form of a collection
   uint64_t immediate = 0; // onXkemImmediate()

   uint64_t all() const { return keyed | plain | immediate; }
};

class Notifiee : public PtrInterface {
  public:
   ~Notifiee() override;

   // Registers it at its notifier, or withdraws it; a withdrawn one keeps its notifier.
   void isRegisteredNotifieeIs(bool isRegistered);
   bool isRegisteredNotifiee() const { return isRegistered_; }

   // Switches delivery on and off. An override passes the value down to nested reactors and children.
   virtual void hasNotificationActiveIs(bool isActive);
   // true makes it a zombie, false revives it. An override passes the value down to nested reactors.
   virtual void kemDoZombieReactors(bool areZombies);

   // The full evaluation: called when a live reactor is bound to an entity,
   // directly and not through the queue.
   virtual void handleInitialized() {}

   // --- Delivery, from the loop to onX.

   // Delivers the next pending thing; nothing when there is none, to a zombie, or while delivery is off.
   // Called by the activity loop.
   virtual void handleNotification(ActivityConfig const& activity);
   // Delivers what is pending of one attribute and clears it: the collection as a whole, or else its next
   // key, or else onX(). Nothing to a zombie.
   virtual void handleDefault(ActivityConfig const& activity, AttrId attributeId, bool isWhole);
   bool hasPending() const { return pending_.all() != 0; }
   // Queues it at `activitySm`, unless it is queued or has nothing that may be delivered now.
   void redispatch(ActivitySm& activitySm);
   // The activity that delivers to it, and the queue of that.
   Ptr<ActivityConfig> activityPtr() const;
   ActivitySm& actsm() const;

   // An exception left a handler: traces where, and hands it to
   // onNotificationException. Called by the activity loop.
   void handleNotificationException(std::exception_ptr exception);
   // An exception of a handler comes here. It goes on to the loop, and from there ends the process.
   virtual void onNotificationException(std::exception_ptr exception);

  protected:
   explicit Notifiee(Interests interests);

   // For the generated notifierIs: false when that entity is the one already bound.
   bool notifierBind(Ptr<Entity const> const& notifier);
   Entity const* boundNotifier() const { return notifier_.ptr(); }
   // Takes the next key of a collection; for the generated onMember.
   template <class Key>
   Key takePending(PendingKeys<Key>& keys, AttrId id) {
      Key key = keys.take();
      if (keys.empty())
         pending_.keyed &= ~(uint64_t(1) << id);
      return key;
   }
   // Takes no more pending things and leaves its notifier; for a destructor that must run first.
   void withdraw();

   // Generated, by attribute: delivers onX(), onX(key) for one key, or onXkemImmediate().
   virtual void onAttribute(AttrId id) = 0;
   virtual void onMember(AttrId id) {}
   virtual void onCollectionNotification(AttrId id) {}
   // Generated: puts the key into the attribute's PendingKeys, or empties it.
   virtual void memberPending(AttrId id, void const* key) {}
   virtual void memberPendingClear(AttrId id) {}

  private:
   friend class Entity;
   friend class ActivitySm;

   void pend(AttrId id, void const* key); // key null for a scalar
   void pendMissed();
   void pendingClear();

   Interests const interests_;
   Interests pending_;
   Ptr<Entity const> notifier_;
   Notifiee* queuePrevious_ = nullptr; // in the queue of the activity
   Notifiee* queueNext_ = nullptr;
   uint32_t queueBatch_ = 0; // the batch in which it was queued
   bool isQueued_ = false;
   bool isRegistered_ = false;
   uint64_t missed_ = 0; // attributes to look at as a whole once delivery is on
};

// --- Which onX a reactor overrides. `&Derived::onX` names the function where it is declared: the class in
// its type is the generated base where nothing overrides it.

template <class C>
C declaringClass(void (C::*)());
template <class Key, class C>
C declaringClassKeyed(void (C::*)(Key));

} // namespace Kem

// Used by generated code only. Base is the NotifieeConst that declares the function.
#define KEM_OVERRIDES(Derived, Base, function)                                                               \
   [] {                                                                                                      \
      if constexpr (requires { Kem::declaringClass(&Derived::function); })                                   \
         return !std::is_same_v<decltype(Kem::declaringClass(&Derived::function)), Base>;                    \
      else                                                                                                   \
         return false;                                                                                       \
   }()
#define KEM_OVERRIDES_KEYED(Derived, Base, function, Key)                                                    \
   [] {                                                                                                      \
      if constexpr (requires { Kem::declaringClassKeyed<Key>(&Derived::function); })                         \
         return !std::is_same_v<decltype(Kem::declaringClassKeyed<Key>(&Derived::function)), Base>;          \
      else                                                                                                   \
         return false;                                                                                       \
   }()
// Whether the names can be reached from the base: a private override would be taken for none.
#define KEM_REACHABLE(Derived, function, Key)                                                                \
   (                                                                                                         \
       requires { Kem::declaringClass(&Derived::function); } ||                                              \
       requires { Kem::declaringClassKeyed<Key>(&Derived::function); })
#define KEM_REACHABLE_PLAIN(Derived, function) (requires { Kem::declaringClass(&Derived::function); })

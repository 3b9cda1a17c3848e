// The base of everything that is counted: a virtual table and one 32-bit word.
//
//    bit 31      zombie: marked for deletion, so the word reads negative
//    bit 30      isNondestructing, of a state machine
//    bit 29      hasNotificationActive: delivery is switched on
//    bit 28      initialized, of a state machine
//    bits 0..27  number of references
//
// A new object starts with one reference, held by the factory that made it, which hands it over (Ptr::adopt).
// The object is deleted when the count reaches zero. Counts are atomic, because threads of the platform may
// drop references; nothing else of an object may be touched from another thread. An object that exists inside
// another one by value is never counted to zero: its one reference is its owner's.
#pragma once

#include <atomic>
#include <cstdint>

namespace Kem {

class PtrInterface {
  public:
   PtrInterface(PtrInterface const&) = delete;
   PtrInterface& operator=(PtrInterface const&) = delete;

   void newRef() const noexcept { word_.fetch_add(1, std::memory_order_relaxed); }
   void deleteRef() const noexcept {
      if ((word_.fetch_sub(1, std::memory_order_acq_rel) & countMask) == 1)
         const_cast<PtrInterface*>(this)->onZeroReferences();
   }
   uint32_t references() const noexcept { return word_.load(std::memory_order_relaxed) & countMask; }

   bool isZombie() const noexcept { return static_cast<int32_t>(word_.load(std::memory_order_relaxed)) < 0; }
   bool hasNotificationActive() const noexcept {
      return word_.load(std::memory_order_relaxed) & notificationActiveFlag;
   }

  protected:
   static constexpr uint32_t zombieFlag = 1u << 31;
   static constexpr uint32_t nondestructingFlag = 1u << 30;
   static constexpr uint32_t notificationActiveFlag = 1u << 29;
   static constexpr uint32_t initializedFlag = 1u << 28;
   static constexpr uint32_t countMask = (1u << 28) - 1;
   static constexpr uint32_t dyingBias = 1u << 27; // added to the count of an object that is being deleted

   PtrInterface() noexcept = default;
   virtual ~PtrInterface();

   // The last reference has gone; deletes the object.
   virtual void onZeroReferences();

   uint32_t word() const noexcept { return word_.load(std::memory_order_relaxed); }
   bool hasFlag(uint32_t flag) const noexcept { return word() & flag; }
   void flagIs(uint32_t flag, bool on) noexcept {
      if (on)
         word_.fetch_or(flag, std::memory_order_relaxed);
      else
         word_.fetch_and(~flag, std::memory_order_relaxed);
   }

  private:
   mutable std::atomic<uint32_t> word_{1};
};

} // namespace Kem

// Strong pointer to a counted object. Ptr<T const> gives read access only. Null is legal; taking a reference
// from a null pointer, with * or ->, raises a range exception with the text "null ValidPtr".
#pragma once

#include "Kem/Exception.h"

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Kem {

[[noreturn]] void throwNullValidPtr();

// A pointer to From converts to a pointer to To.
template <class From, class To>
concept PointsAlsoTo = std::is_convertible_v<From*, To*>;

template <class T>
class Ptr {
  public:
   using Element = T;

   Ptr() noexcept = default;
   Ptr(std::nullptr_t) noexcept {}
   // Takes a further reference of the object.
   explicit Ptr(T* object) noexcept : object_(object) { hold(); }
   Ptr(Ptr const& other) noexcept : object_(other.object_) { hold(); }
   Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
   template <PointsAlsoTo<T> U>
   Ptr(Ptr<U> const& other) noexcept : object_(other.ptr()) {
      hold();
   }
   template <PointsAlsoTo<T> U>
   Ptr(Ptr<U>&& other) noexcept : object_(other.release()) {}
   Ptr& operator=(Ptr other) noexcept {
      std::swap(object_, other.object_);
      return *this;
   }
   ~Ptr() {
      if (object_)
         object_->deleteRef();
   }

   // Takes over the reference that a new object is born with.
   static Ptr adopt(T* object) noexcept {
      Ptr p;
      p.object_ = object;
      return p;
   }
   // Hands the reference to the caller, who must drop it; the pointer is null afterwards.
   T* release() noexcept { return std::exchange(object_, nullptr); }

   T* ptr() const noexcept { return object_; }
   T& operator*() const { return *valid(); }
   T* operator->() const { return valid(); }
   explicit operator bool() const noexcept { return object_ != nullptr; }

   friend bool operator==(Ptr const& a, Ptr const& b) noexcept { return a.object_ == b.object_; }
   friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

  private:
   void hold() noexcept {
      if (object_)
         object_->newRef();
   }
   T* valid() const {
      if (!object_) [[unlikely]]
         throwNullValidPtr();
      return object_;
   }

   T* object_ = nullptr;
};

// Makes a counted object; the one reference it is born with is the caller's.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
   return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

// The object as the other type, or null where it isn't one.
template <class To, class From>
Ptr<To> ptrCast(Ptr<From> const& from) {
   return Ptr<To>(dynamic_cast<To*>(from.ptr()));
}

} // namespace Kem

template <class T>
struct std::hash<Kem::Ptr<T>> {
   size_t operator()(Kem::Ptr<T> const& p) const { return std::hash<T*>()(p.ptr()); }
};

// A reference to something that can be called: two words, no allocation, comparable. It owns nothing.
//
//    void forEachPort(Kem::FunctionRef<void(Port&)> visit);
//    forEachPort([&](Port& port) { ... });                          // called before forEachPort returns
//
//    Kem::FunctionRef<void()>::of<&Listener::flush>(*this)          // kept: for as long as the object lives
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace Kem {

template <class Signature>
class FunctionRef;

template <class Result, class... Args>
class FunctionRef<Result(Args...)> {
  public:
   FunctionRef() = default; // of nothing
   // Of a function object, such as a lambda, which has to outlive this: where one is written in the call
   // itself, the reference is good until that call returns.
   template <class F>
   requires(!std::is_same_v<std::remove_cvref_t<F>, FunctionRef> &&
            std::is_object_v<std::remove_reference_t<F>> && std::is_invocable_r_v<Result, F&, Args...>)
       FunctionRef(F&& f) // NOLINT(bugprone-forwarding-reference-overload): the constraint excludes copies
       : object_(const_cast<void*>(static_cast<void const*>(std::addressof(f)))),
         call_([](void* object, Args... args) -> Result {
            return (*static_cast<std::remove_reference_t<F>*>(object))(std::forward<Args>(args)...);
         }) {}
   // Of a member function of the object. Two of the same object and function are equal.
   template <auto member, class T>
   static FunctionRef of(T& object) {
      FunctionRef ref;
      ref.object_ = &object;
      ref.call_ = [](void* o, Args... args) -> Result {
         return (static_cast<T*>(o)->*member)(std::forward<Args>(args)...);
      };
      return ref;
   }

   explicit operator bool() const { return call_; }
   // Not while it is of nothing.
   Result operator()(Args... args) const { return call_(object_, std::forward<Args>(args)...); }
   bool operator==(FunctionRef const&) const = default;

  private:
   void* object_ = nullptr;
   Result (*call_)(void*, Args...) = nullptr;
};

} // namespace Kem

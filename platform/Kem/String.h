// Counted immutable byte strings: String8, and Name for the short names of entities.
//
// Both are one pointer wide and share their bytes on copy, so that a name can be in many
// records at the price of a pointer each. The empty string is the null pointer. Bytes are not
// interpreted; NULs may occur in the middle.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace Kem {

class String8 {
  public:
   String8() noexcept = default;
   String8(std::string_view text) : rep_(make(text)) {}
   String8(char const* text) : String8(std::string_view(text)) {}
   String8(std::string const& text) : String8(std::string_view(text)) {}
   String8(String8 const& other) noexcept : rep_(other.rep_) { hold(rep_); }
   String8(String8&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
   String8& operator=(String8 other) noexcept {
      std::swap(rep_, other.rep_);
      return *this;
   }
   ~String8() { release(rep_); }

   bool empty() const { return rep_ == nullptr; }
   size_t size() const { return rep_ ? rep_->size : 0; }
   // The bytes with a NUL after them; never null.
   char const* charPtr() const { return rep_ ? rep_->bytes() : ""; }
   std::string_view view() const { return {charPtr(), size()}; }
   std::string str() const { return std::string(view()); }
   operator std::string_view() const { return view(); }
   // FNV-1a of the bytes, 32 bits; the same in every process.
   uint32_t hash() const { return rep_ ? rep_->hash : emptyHash; }

   String8& operator+=(std::string_view tail);
   friend String8 operator+(String8 const& head, std::string_view tail) {
      String8 whole = head;
      whole += tail;
      return whole;
   }
   friend bool operator==(String8 const& a, String8 const& b) {
      return a.rep_ == b.rep_ || (a.hash() == b.hash() && a.view() == b.view());
   }
   friend std::strong_ordering operator<=>(String8 const& a, String8 const& b) {
      return a.view() <=> b.view();
   }

  private:
   static constexpr uint32_t emptyHash = 2166136261u; // the FNV offset basis

   struct Rep {
      std::atomic<uint32_t> references;
      uint32_t size;
      uint32_t hash;
      char const* bytes() const { return reinterpret_cast<char const*>(this + 1); }
      char* bytes() { return reinterpret_cast<char*>(this + 1); }
   };
   static Rep* make(std::string_view text);
   static void destroy(Rep* rep);
   static void hold(Rep* rep) noexcept {
      if (rep)
         rep->references.fetch_add(1, std::memory_order_relaxed);
   }
   static void release(Rep* rep) noexcept {
      if (rep && rep->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
         destroy(rep);
   }

   Rep* rep_ = nullptr;
};

// A short name of an entity, or a member of a collection of names.
class Name {
  public:
   Name() noexcept = default;
   Name(String8 text) noexcept : text_(std::move(text)) {}
   Name(std::string_view text) : text_(text) {}
   Name(char const* text) : text_(text) {}
   Name(std::string const& text) : text_(text) {}

   bool empty() const { return text_.empty(); }
   char const* charPtr() const { return text_.charPtr(); }
   std::string_view view() const { return text_.view(); }
   std::string str() const { return text_.str(); }
   String8 const& stringValue() const { return text_; }
   operator std::string_view() const { return view(); }
   uint32_t hash() const { return text_.hash(); }
   friend bool operator==(Name const&, Name const&) = default;
   friend std::strong_ordering operator<=>(Name const& a, Name const& b) { return a.text_ <=> b.text_; }

  private:
   String8 text_;
};

// The bytes as they are; for trace lines.
std::ostream& operator<<(std::ostream& out, String8 const& text);
std::ostream& operator<<(std::ostream& out, Name const& name);

// Compares as people read: runs of digits by their number ("Ethernet2" before
// "Ethernet10"), other bytes by value.
std::strong_ordering compareNatural(std::string_view a, std::string_view b);

} // namespace Kem

template <>
struct std::hash<Kem::String8> {
   size_t operator()(Kem::String8 const& s) const { return s.hash(); }
};
template <>
struct std::hash<Kem::Name> {
   size_t operator()(Kem::Name const& s) const { return s.hash(); }
};

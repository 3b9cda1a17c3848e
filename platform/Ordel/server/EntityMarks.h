// What of one entity a subscriber still has to be sent: which scalars, which members, and of entities among
// the members what of these. Marks hold no values: those are read from the tree when they are sent, so
// however often something changes, it has one mark.
//
// A member that the subscriber has never been sent and that is erased again loses its mark, so marks are
// never more than what is in the tree and what the subscriber has. About 32 bytes a member.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Ordel {

class EntityMarks {
  public:
   enum class Kind : uint8_t {
      value,    // a member of a map or of references: its value as it is, or that it's gone
      inside,   // an entity that the subscriber has: what `below` tells
      renewed,  // an entity that came, went, or both: told as gone, as made with all that it holds, or both
      announce, // an entity that the subscriber made itself: its creation only, which tells its number
   };
   struct Mark {
      std::unique_ptr<EntityMarks> below; // of `inside`, and of a `renewed` that isn't sent whole
      uint64_t keyWord = 0;               // the key's bytes, or where they stand
      uint32_t epoch = 0;                 // of the owner, when the mark was made
      uint8_t attribute = 0;
      uint8_t keySize = 0; // `isLong` where the bytes stand elsewhere
      Kind kind = Kind::value;
      bool isKnown : 1 = false; // the subscriber has, or may have, a member of this key
      bool isReplaced : 1 =
          false; // of `renewed`: what the subscriber has is another entity than what is there now
      bool isPartial : 1 =
          false;               // of `renewed`: what it holds is not sent as a whole, only what `below` tells
      bool isVoid : 1 = false; // its entity is no longer the one that was marked: nothing is sent
   };

   // Scalars and references, a bit for each attribute.
   void scalarIs(unsigned attribute) { scalars_ |= uint64_t{1} << attribute; }
   uint64_t scalars() const { return scalars_; }

   // Members of collections, in no order; positions are good until a mark is added or removed.
   size_t count() const { return marks_.size(); }
   Mark& mark(size_t position) { return marks_[position]; }
   std::string_view key(Mark const& mark) const;         // wire form
   Mark* find(unsigned attribute, std::string_view key); // null: none
   Mark& findOrAdd(unsigned attribute, std::string_view key, bool& isNew);
   void remove(Mark& mark);

   bool empty() const { return scalars_ == 0 && marks_.empty(); }
   size_t totalCount() const; // marks, those below and scalars included

  private:
   static constexpr uint8_t isLong = 255;
   static constexpr uint32_t free = 0;         // in the index
   static constexpr size_t unindexedCount = 8; // so many are looked through one by one
   static constexpr size_t keptGarbage = 4096;

   static size_t hash(unsigned attribute, std::string_view key);
   bool isOf(Mark const& mark, unsigned attribute, std::string_view key) const;
   size_t placeOf(size_t position) const; // in the index
   void buildIndex();
   void compactKeys();

   uint64_t scalars_ = 0;
   std::vector<Mark> marks_;
   std::vector<uint32_t> index_; // position + 1; a power of two, at most half full; empty while marks are few
   std::string longKeys_;
   size_t longKeyGarbage_ = 0; // bytes of removed marks' keys
};

} // namespace Ordel

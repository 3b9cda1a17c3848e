// The table under every collection that iterates in key order: a red-black tree with the
// interface of HashTable. Its iterators survive any change in the same way, and one can be had
// at or behind a remembered key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace Kem {

template <class Key, class Value>
class OrderedTable {
  public:
   struct Entry {
      Key key;
      Value value;
   };

   OrderedTable() = default;
   OrderedTable(OrderedTable&& other) noexcept : entries_(std::move(other.entries_)) { other.clear(); }
   OrderedTable& operator=(OrderedTable&& other) noexcept {
      [[maybe_unused]] auto const old = std::move(entries_); // destroyed when all is in place
      entries_ = std::move(other.entries_);
      other.clear();
      ++version_;
      return *this;
   }
   ~OrderedTable() { clear(); }

   size_t size() const { return entries_.size(); }
   bool empty() const { return entries_.empty(); }
   uint32_t version() const { return version_; }

   Value* find(Key const& key) {
      auto const at = entries_.find(key);
      return at == entries_.end() ? nullptr : &at->second;
   }
   Value const* find(Key const& key) const { return const_cast<OrderedTable*>(this)->find(key); }

   template <class Make>
   std::pair<Value*, bool> findOrInsert(Key const& key, Make&& make) {
      auto const at = entries_.lower_bound(key);
      if (at != entries_.end() && at->first == key)
         return {&at->second, false};
      // Made before anything moves: `make` may come back here, and `key` may stand in an entry.
      uint32_t const versionBefore = version_;
      std::pair<Key const, Value> made{key, make()};
      size_t const sizeBefore = entries_.size();
      auto const place = version_ == versionBefore ? entries_.insert(at, std::move(made))
                                                   : entries_.insert(std::move(made)).first;
      bool const isNew = entries_.size() != sizeBefore;
      if (isNew)
         ++version_;
      return {&place->second, isNew};
   }

   bool erase(Key const& key) {
      // The entry leaves the table before it is destroyed: its destructor may come back here.
      [[maybe_unused]] auto const removed = entries_.extract(key);
      if (removed.empty())
         return false;
      ++version_;
      return true;
   }

   void clear() {
      [[maybe_unused]] auto const old = std::move(entries_);
      entries_.clear();
      ++version_;
   }

   class Iterator {
     public:
      explicit Iterator(OrderedTable const& table) : table_(&table) { settle(table.entries_.begin()); }
      // Starts at the first entry whose key is not less.
      Iterator(OrderedTable const& table, Key const& from) : table_(&table) {
         settle(table.entries_.lower_bound(from));
      }

      bool valid() const { return entry_.has_value(); }
      explicit operator bool() const { return valid(); }
      Key const& key() const { return entry_->key; }
      Value const& value() const { return entry_->value; }
      void next() {
         if (version_ == table_->version_)
            settle(std::next(at_));
         else
            settle(table_->entries_.upper_bound(key()));
      }

      Entry const& operator*() const { return *entry_; }
      Iterator& operator++() {
         next();
         return *this;
      }
      bool operator==(std::default_sentinel_t) const { return !valid(); }

     private:
      using Place = typename std::map<Key, Value>::const_iterator;
      void settle(Place at) {
         version_ = table_->version_;
         at_ = at;
         // The copy of the last entry goes last: its destructor may change the table.
         [[maybe_unused]] std::optional<Entry> const last = std::move(entry_);
         entry_.reset();
         if (at != table_->entries_.end())
            entry_.emplace(Entry{at->first, at->second});
      }

      OrderedTable const* table_;
      Place at_;
      uint32_t version_ = 0;
      std::optional<Entry> entry_; // a copy: it stays readable when the entry is removed
   };

   Iterator begin() const { return Iterator(*this); }
   Iterator from(Key const& key) const { return Iterator(*this, key); }
   std::default_sentinel_t end() const { return {}; }

   template <class Visit>
   void forEach(Visit&& visit) const {
      for (auto const& [key, value] : entries_)
         visit(key, value);
   }

  private:
   std::map<Key, Value> entries_;
   uint32_t version_ = 0;
};

} // namespace Kem

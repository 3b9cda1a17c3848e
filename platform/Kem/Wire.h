// The values as bytes: on the wire, in snapshots, in the attribute log.
//
// Little endian. Numbers have the width of their type, so that a small record is copied and not parsed;
// strings have a length before them (1 byte up to 254, else 255 and 4 bytes). A Reader never reads outside
// its bytes: the first read that would marks it bad, and from then on it gives zeros and empty strings, so
// that a decoder checks once, at its end. Neither class allocates but for the Writer's growing buffer.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Wire {

static_assert(std::endian::native == std::endian::little, "the wire form is that of little endian machines");

class Writer {
  public:
   Writer() = default;

   void u8(uint8_t v) { fixed(v); }
   void u16(uint16_t v) { fixed(v); }
   void u32(uint32_t v) { fixed(v); }
   void u64(uint64_t v) { fixed(v); }
   void f64(double v) { fixed(v); }
   void boolean(bool v) { u8(v ? 1 : 0); }
   void string(std::string_view v) {
      if (v.size() < 255) {
         u8(static_cast<uint8_t>(v.size()));
      } else {
         u8(255);
         u32(static_cast<uint32_t>(v.size()));
      }
      raw(v.data(), v.size());
   }
   void raw(void const* bytes, size_t count) {
      if (size_ + count > bytes_.size())
         grow(count);
      if (count > 0) // an empty view may have no bytes to point to
         std::memcpy(bytes_.data() + size_, bytes, count);
      size_ += count;
   }

   // Overwrites four bytes that were written before, such as the length of a frame.
   void patchU32(size_t at, uint32_t v) { std::memcpy(bytes_.data() + at, &v, 4); }

   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   char const* data() const { return bytes_.data(); }
   std::string_view view() const { return {bytes_.data(), size_}; }
   void clear() { size_ = 0; }
   // Drops what was written behind `size`.
   void truncate(size_t size) { size_ = size; }
   // Drops the first `count` bytes; what is behind them moves.
   void dropFront(size_t count) {
      std::memmove(bytes_.data(), bytes_.data() + count, size_ - count);
      size_ -= count;
   }
   // Gives back the memory of a buffer that was once large.
   void shrink() {
      bytes_.resize(size_);
      bytes_.shrink_to_fit();
   }
   size_t capacity() const { return bytes_.size(); }

  private:
   // In line, also in code that is optimised for size: millions of operations consist of a few of these.
   template <class T>
   [[gnu::always_inline]] void fixed(T v) {
      if (size_ + sizeof v > bytes_.size()) [[unlikely]]
         grow(sizeof v);
      std::memcpy(bytes_.data() + size_, &v, sizeof v);
      size_ += sizeof v;
   }
   void grow(size_t count) {
      size_t const twice = bytes_.size() * 2;
      bytes_.resize(twice < size_ + count + 64 ? size_ + count + 64 : twice);
   }
   std::string bytes_; // its size is the capacity
   size_t size_ = 0;
};

class Reader {
  public:
   explicit Reader(std::string_view bytes) : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}

   uint8_t u8() { return fixed<uint8_t>(); }
   uint16_t u16() { return fixed<uint16_t>(); }
   uint32_t u32() { return fixed<uint32_t>(); }
   uint64_t u64() { return fixed<uint64_t>(); }
   double f64() { return fixed<double>(); }
   // Any byte but 0 and 1 is malformed.
   bool boolean() {
      uint8_t const v = u8();
      if (v > 1)
         fail();
      return v == 1;
   }
   std::string_view string() {
      size_t size = u8();
      if (size == 255)
         size = u32();
      return raw(size);
   }
   std::string_view raw(size_t count) {
      if (count > remaining()) {
         fail();
         return {};
      }
      std::string_view const bytes(at_, count);
      at_ += count;
      return bytes;
   }

   size_t remaining() const { return static_cast<size_t>(end_ - at_); }
   bool done() const { return at_ == end_; }
   bool good() const { return good_; }
   void fail() {
      good_ = false;
      at_ = end_;
   }
   // Where the next byte is read: two positions give the bytes of what was read between them.
   char const* position() const { return at_; }

  private:
   template <class T>
   T fixed() {
      T v{};
      if (sizeof(T) > remaining()) {
         fail();
         return v;
      }
      std::memcpy(&v, at_, sizeof(T));
      at_ += sizeof(T);
      return v;
   }

   char const* at_;
   char const* end_;
   bool good_ = true;
};

} // namespace Wire

// The frames of the protocol, as both ends of a connection gather and take them: no sockets, no meaning.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/wire/Protocol.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Ordel {

// Frames that wait to be sent. One is written at a time, between begin and end;
// what has been ended can be sent.
class FrameBuffer {
  public:
   // Opens a frame; its payload goes into the writer that comes back.
   Wire::Writer& begin(Frame frame) {
      frameStart_ = bytes_.size();
      bytes_.u32(0);
      bytes_.u8(static_cast<uint8_t>(frame));
      isOpen_ = true;
      return bytes_;
   }
   void end() {
      bytes_.patchU32(frameStart_, static_cast<uint32_t>(bytes_.size() - frameStart_ - sizeof(uint32_t)));
      isOpen_ = false;
   }
   // As if it had not been begun.
   void abandon() {
      bytes_.truncate(frameStart_);
      isOpen_ = false;
   }
   bool isOpen() const { return isOpen_; }
   Wire::Writer& writer() { return bytes_; }
   size_t frameStart() const { return frameStart_; } // good until the next `consumed`

   // Bytes that have not been sent, an open frame's included.
   size_t size() const { return bytes_.size() - sent_; }
   // What can be sent. Not while a frame is open.
   std::string_view view() const { return bytes_.view().substr(sent_); }
   void consumed(size_t count) {
      sent_ += count;
      if (sent_ == bytes_.size()) {
         clear();
      } else if (sent_ > bytes_.size() / 2) { // moving costs less than sending did
         bytes_.dropFront(sent_);
         sent_ = 0;
      }
   }
   void clear() {
      bytes_.clear();
      sent_ = 0;
      isOpen_ = false;
      if (bytes_.capacity() > keptBytes)
         bytes_.shrink();
   }

  private:
   static constexpr size_t keptBytes = 8u << 20; // an empty buffer beyond it gives its memory back

   Wire::Writer bytes_;
   size_t sent_ = 0;
   size_t frameStart_ = 0;
   bool isOpen_ = false;
};

// Cuts what comes in into frames.
class FrameReader {
  public:
   // The largest frame that is taken, its type included.
   void limitIs(size_t bytes) { limit_ = bytes; }

   // Calls `take(Frame, payload)` for each frame that is whole; it returns false when no more are wanted, and
   // what is left is then lost. False when a frame is empty or larger than the limit.
   template <class Take>
   bool read(std::string_view bytes, Take const& take) {
      return read(
          bytes, [] { return true; }, take);
   }
   // The same, but asks `wants()` before each frame. Once it says no, this frame and what follows it are held
   // for the next call, which may come without new bytes.
   template <class Wants, class Take>
   bool read(std::string_view bytes, Wants const& wants, Take const& take) {
      if (isHeld_) {
         std::string const held = std::exchange(partial_, {}).append(bytes);
         isHeld_ = false;
         return cut(held, wants, take);
      }
      while (!partial_.empty()) {
         size_t const wanted = partial_.size() < sizeof(uint32_t) ? frameHeaderBytes : wholeBytes(partial_);
         if (wanted == 0)
            return false;
         if (partial_.size() < wanted && !bytes.empty()) {
            if (partial_.size() > reservedBeyond)
               partial_.reserve(wanted); // once, and memory only as it is filled
            size_t const count = std::min(wanted - partial_.size(), bytes.size());
            partial_.append(bytes.substr(0, count));
            bytes.remove_prefix(count);
            continue;
         }
         if (partial_.size() < wanted)
            return true;
         if (!wants()) {
            partial_.append(bytes);
            isHeld_ = true;
            return true;
         }
         std::string const frame = std::exchange(partial_, {});
         if (!take(type(frame), std::string_view(frame).substr(frameHeaderBytes)))
            return true;
      }
      return cut(bytes, wants, take);
   }
   void clear() {
      partial_ = std::string();
      isHeld_ = false;
   }
   // Whole frames wait because they were not wanted.
   bool isHeld() const { return isHeld_; }
   // Bytes of a frame that hasn't come whole.
   size_t partialBytes() const { return isHeld_ ? 0 : partial_.size(); }

  private:
   static constexpr size_t reservedBeyond = 64u << 10;

   template <class Wants, class Take>
   bool cut(std::string_view bytes, Wants const& wants, Take const& take) {
      while (bytes.size() >= sizeof(uint32_t)) {
         size_t const whole = wholeBytes(bytes);
         if (whole == 0)
            return false;
         if (whole > bytes.size())
            break;
         if (!wants()) {
            isHeld_ = true;
            break;
         }
         std::string_view const frame = bytes.substr(0, whole);
         bytes.remove_prefix(whole);
         if (!take(type(frame), frame.substr(frameHeaderBytes)))
            return true;
      }
      partial_ = bytes;
      return true;
   }
   static Frame type(std::string_view frame) { return static_cast<Frame>(frame[sizeof(uint32_t)]); }
   // Of the frame that begins there; 0 when its size can't be right.
   size_t wholeBytes(std::string_view bytes) const {
      uint32_t size;
      std::memcpy(&size, bytes.data(), sizeof size);
      return size == 0 || size > limit_ ? 0 : size + sizeof size;
   }

   size_t limit_ = maxFrameBytes;
   std::string partial_;
   bool isHeld_ = false; // partial_ has at least one whole frame
};

} // namespace Ordel

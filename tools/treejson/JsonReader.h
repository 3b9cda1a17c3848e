// Reads JSON piece by piece, without building a document of it in memory.
//
// The caller asks for what it expects and knows where in the tree it is, so that a document of two million
// members costs no more than its text, 64-bit numbers stay exact, and every error can name line and column.
// The text is strict RFC 8259 in UTF-8; a byte order mark before it is passed over. At the first fault a call
// raises a SyntaxError. Copies are independent, so a caller can look ahead with one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace TreeJson {

enum class JsonKind : unsigned char { object, array, string, number, boolean, null };

class JsonReader {
  public:
   static constexpr size_t maxDepth = 64;

   // The text must live as long as the reader.
   explicit JsonReader(std::string_view text);

   // Of the value that begins here.
   JsonKind kind();

   // for (reader.beginObject(); reader.nextKey(key);) … one value is read in each turn
   void beginObject();
   bool nextKey(std::string& key);
   // for (reader.beginArray(); reader.nextElement();) …
   void beginArray();
   bool nextElement();

   std::string string();      // bytes, see JsonText.h
   std::string_view number(); // as it is written
   bool boolean();
   void null();
   // Passes one value of any kind, checking it, and returns its text.
   std::string_view skip();
   // Only white space may follow.
   void end();

   bool isAtEnd();
   // "line 3, column 7" of what is read next; columns count characters, both from 1.
   std::string place();

  private:
   [[noreturn]] void fail(std::string const& reason) const { fail(at_, reason); }
   [[noreturn]] void fail(size_t at, std::string const& reason) const;
   std::string placeOf(size_t at) const;
   void skipSpace();
   char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
   void begin(char bracket);
   bool nextOf(char closing);
   void word(std::string_view word);
   void readString(std::string* out);
   uint32_t readEscape();
   uint32_t readHex();

   std::string_view text_;
   size_t at_ = 0;
   std::vector<bool> isFirst_; // of each open bracket: nothing has been read in it yet
};

// "an object", or a number, string and so on as it is written, cut where it is long; for errors.
std::string described(JsonReader reader);

} // namespace TreeJson

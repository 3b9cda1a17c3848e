// Writes what is in a tree as JSON, streaming: of a tree of two million members never more than one piece
// is text in memory.
//
// Keys of every object come in natural order, attributes too, so that two outputs can be compared. An entity
// begins with "$type" where its place doesn't determine its type: in a directory, and for a derived type.
// A directory is an entity like others, with its entries in "entityPtr".
#pragma once

#include "Ordel/store/Tree.h"

#include <functional>
#include <string>
#include <string_view>

namespace TreeJson {

enum class Layout : unsigned char {
   indented, // two spaces a level; records and references stay on one line
   oneLine,
};

class Writer {
  public:
   // Takes the next piece of the text.
   using Sink = std::function<void(std::string_view)>;

   // The tree must not change while anything is written.
   Writer(Ordel::Tree const& tree, Layout layout, Sink sink);
   ~Writer() { flush(); }
   Writer(Writer const&) = delete;
   Writer& operator=(Writer const&) = delete;

   // What a selector led to: an entity, an attribute, or a member. REQUIRES: it exists.
   void located(Ordel::Located const& located);
   void entity(Ordel::Entity const& entity);
   void attribute(Ordel::Entity const& entity, unsigned attribute);
   void member(Ordel::Entity const& entity, unsigned attribute, std::string_view key);

   // A document (Document.h) that restores what is there, with all below it. Only empty directories are
   // named themselves.
   void document(Ordel::Located const& located);

   // Text as it is, such as what exists around a value.
   void text(std::string_view text);
   // Hands on what has been gathered; pieces go out by themselves when they are large.
   void flush();

  private:
   void openObject();
   void key(std::string_view name);
   void closeObject();
   void typeOf(Ordel::Entity const& entity);
   void content(Ordel::Entity const& entity);
   void pathTo(Ordel::Entity const& entity);

   Ordel::Tree const& tree_;
   Layout layout_;
   Sink sink_;
   std::string buffer_;
   unsigned depth_ = 0;
   bool isEmpty_ = true;          // the innermost object, so far
   bool isDirectoryFlat_ = false; // entries of directories are left out: they are under paths of their own
};

// All of it on one line, and indented; for what is known to be small.
std::string oneLine(Ordel::Tree const& tree, Ordel::Located const& located);
std::string indented(Ordel::Tree const& tree, Ordel::Located const& located);

// Keys of a collection in natural order: their text, and what they are on the wire.
struct SortedKey {
   std::string text;
   std::string wire;
};
std::vector<SortedKey> sortedKeys(Ordel::Tree const& tree, Ordel::Entity const& entity, unsigned attribute);

} // namespace TreeJson

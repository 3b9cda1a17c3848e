// What is at some selectors: mounts just them, and keeps a mirror of them up to date while it lives.
//
// A session has one view at a time, since what the database sends isn't marked with the mount that it is sent
// for. Bytes of an earlier view that are still on their way are passed over: nothing counts before the first
// answer to the view's own mounts.
#pragma once

#include "Ordel/store/Tree.h"
#include "Ordel/wire/Selector.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Ordelctl {

class Session;

class View {
  public:
   struct Request {
      Ordel::Selector selector;
      std::string type;  // "" for any
      uint8_t flags = 0; // MountFlags
   };
   struct Mount {
      Ordel::Selector selector;
      uint32_t number = 0;
      uint32_t node = 0;     // 0 while nothing is there
      bool isSynced = false; // all that exists has arrived
      Ordel::Status status = Ordel::Status::done;
      std::string error; // for another status
   };
   // Called while input is taken in, also during the making of the view; must not raise anything.
   class Follower {
     public:
      virtual ~Follower() = default;
      virtual void synced(View const& view, size_t mount) = 0; // once more when it exists again
      virtual void changed(View const& view, Ordel::Applied const& applied) = 0;
      virtual void gone(View const& view, size_t mount) = 0; // what was mounted has been deleted
   };

   // Mounts, into the given mirror or one of its own, and waits until everything that exists has arrived. A
   // selector that the schema has no place for raises TreeJson::Refusal, unless `isLenient`; a selector where
   // nothing exists is reported in its mount.
   View(Session& session, std::vector<Request> const& requests, Ordel::Tree* mirror = nullptr,
        Follower* follower = nullptr, bool isLenient = false);
   ~View() { end(); }
   View(View const&) = delete;
   View& operator=(View const&) = delete;

   Ordel::Tree const& tree() const { return *tree_; }
   std::vector<Mount> const& mounts() const { return mounts_; }
   bool isSynced() const;
   // Raises what went wrong while input was taken in: a mount that was refused, a change that can't
   // be applied.
   void check() const;
   bool isBroken() const;
   // What the mount's selector leads to in the mirror. A mirror doesn't know what is outside of it, so only
   // the database can refuse what isn't possible.
   Ordel::Located locate(size_t mount) const { return tree_->locate(mounts_[mount].selector); }

  private:
   friend class Session;
   void mounted(uint32_t number, uint32_t node, uint16_t type, std::string_view path);
   void mountDone(uint32_t number);
   void mountFailed(uint32_t number, Ordel::Status status, std::string_view reason);
   void unmounted(uint32_t number);
   void changes(std::string_view operations);
   Mount* find(uint32_t number);
   void end();

   Session& session_;
   std::unique_ptr<Ordel::Tree> own_;
   Ordel::Tree* tree_;
   Follower* follower_;
   std::vector<Mount> mounts_;
   bool hasBegun_ = false; // the first answer to a mount of this view has come
   std::string failure_;   // what the database sent can't be applied
};

// The selector, or TreeJson::Refusal. An entry of a directory is named by its path, also where it
// was written dir.entityPtr[name].
Ordel::Selector parseSelector(std::string_view text);

} // namespace Ordelctl

#include "View.h"
#include "Failures.h"
#include "Session.h"
#include "treejson/Error.h"

#include <algorithm>

namespace Ordelctl {

namespace {

constexpr std::string_view entityPtr = "entityPtr"; // the one attribute of a directory

// What is to be mounted for a selector. The entries of a directory come with the directory itself.
std::string mountText(Ordel::Selector const& selector) {
   if (!selector.steps.empty() && selector.steps[0].attribute == entityPtr)
      return Ordel::Selector{selector.path, {}}.text();
   return selector.text();
}

} // namespace

Ordel::Selector parseSelector(std::string_view text) {
   Ordel::Selector selector;
   std::string error;
   if (!Ordel::Selector::parse(text, selector, error))
      throw TreeJson::Refusal(error);
   while (!selector.steps.empty() && selector.steps[0].attribute == entityPtr && selector.steps[0].hasKey) {
      std::string const name = selector.steps[0].key;
      if (char const* reason = Ordel::badName(name))
         throw TreeJson::Refusal(selector.text() + ": " + reason);
      selector.path += (selector.path.empty() ? "" : "/") + name;
      selector.steps.erase(selector.steps.begin());
   }
   return selector;
}

View::View(Session& session, std::vector<Request> const& requests, Ordel::Tree* mirror, Follower* follower,
           bool isLenient)
    : session_(session), own_(mirror ? nullptr : std::make_unique<Ordel::Tree>(Records::schema())),
      tree_(mirror ? mirror : own_.get()), follower_(follower) {
   session_.view_ = this;
   try {
      for (Request const& request : requests) {
         mounts_.push_back({request.selector, ++session_.lastMount_, 0, false, Ordel::Status::done, {}});
         session_.mount(mounts_.back().number, mountText(request.selector), request.type, request.flags);
      }
      session_.waitUntil([this] { return isSynced() || !failure_.empty(); });
      if (!isLenient)
         check();
   } catch (...) {
      end();
      throw;
   }
}

void View::end() {
   for (Mount const& mount : mounts_)
      if (mount.status == Ordel::Status::done)
         session_.unmount(mount.number);
   session_.flush();
   session_.view_ = nullptr;
}

bool View::isBroken() const {
   return !failure_.empty() || std::any_of(mounts_.begin(), mounts_.end(), [](Mount const& mount) {
      return mount.status == Ordel::Status::refused;
   });
}

void View::check() const {
   if (!failure_.empty())
      throw Unreachable("the database sent what can't be applied: " + failure_);
   for (Mount const& mount : mounts_)
      if (mount.status == Ordel::Status::refused)
         throw TreeJson::Refusal(mount.error);
}

bool View::isSynced() const {
   return std::all_of(mounts_.begin(), mounts_.end(), [](Mount const& mount) {
      return mount.isSynced || mount.status != Ordel::Status::done;
   });
}

View::Mount* View::find(uint32_t number) {
   auto const at = std::find_if(mounts_.begin(), mounts_.end(),
                                [&](Mount const& mount) { return mount.number == number; });
   return at == mounts_.end() ? nullptr : &*at;
}

void View::mounted(uint32_t number, uint32_t node, uint16_t type, std::string_view path) {
   Mount* const mount = find(number);
   if (!mount)
      return;
   hasBegun_ = true;
   mount->node = node;
   mount->isSynced = false;
   if (node != 0)
      tree_->mount(node, tree_->schema().entities[type], path);
}

void View::mountDone(uint32_t number) {
   Mount* const mount = find(number);
   if (!mount)
      return;
   mount->isSynced = true;
   if (follower_)
      follower_->synced(*this, static_cast<size_t>(mount - mounts_.data()));
}

void View::mountFailed(uint32_t number, Ordel::Status status, std::string_view reason) {
   Mount* const mount = find(number);
   if (!mount)
      return;
   hasBegun_ = true;
   mount->status = status;
   mount->error = reason;
   mount->isSynced = true;
}

void View::unmounted(uint32_t number) {
   Mount* const mount = find(number);
   if (!mount)
      return;
   tree_->unmount(mount->node);
   mount->node = 0;
   if (follower_)
      follower_->gone(*this, static_cast<size_t>(mount - mounts_.data()));
}

void View::changes(std::string_view operations) {
   if (!hasBegun_ || !failure_.empty())
      return;
   Ordel::Applied const& applied = tree_->apply(operations);
   if (!applied.isDone())
      failure_ = applied.error;
   else if (follower_)
      follower_->changed(*this, applied);
}

} // namespace Ordelctl

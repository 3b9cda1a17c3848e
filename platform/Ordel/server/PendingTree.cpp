#include "Ordel/server/PendingTree.h"

#include "Ordel/wire/OperationWriter.h"

#include <algorithm>
#include <utility>

namespace Ordel {

using MarkKind = EntityMarks::Kind;
using Records::Form;

size_t PendingTree::markCount() const {
   size_t count = 0;
   for (auto const& [ticket, job] : jobs_)
      count += job->marks.totalCount() + (job->isFull ? 1 : 0);
   return count + (current_ ? current_->marks.totalCount() + 1 : 0);
}

bool PendingTree::isSent(uint64_t ticket) const {
   if (current_)
      return current_->ticket > ticket;
   return jobs_.empty() || jobs_.begin()->first > ticket;
}

PendingTree::Job& PendingTree::open(uint32_t node) {
   Job*& job = open_[node];
   if (!job) {
      auto made = std::make_unique<Job>();
      made->node = node;
      made->ticket = ++lastTicket_;
      job = made.get();
      jobs_.emplace(made->ticket, std::move(made));
   }
   return *job;
}

// --- Marking

EntityMarks::Mark& PendingTree::findOrAdd(EntityMarks& marks, unsigned attribute, std::string_view key,
                                          bool& isNew) {
   Mark& mark = marks.findOrAdd(attribute, key, isNew);
   if (isNew) {
      mark.epoch = epoch_;
      if (madeCount_)
         ++*madeCount_;
   }
   return mark;
}

void PendingTree::nodeIs(Entity const& node, bool isFresh) {
   Job& job = open(node.node());
   if (!node.isDirectory()) {
      bool const wasEmpty = job.marks.empty() && !job.isFull;
      job.isFull = true;
      job.isFresh = isFresh && wasEmpty;
      job.epoch = epoch_;
      return;
   }
   for (Members member(tree_, node, 0); member.next();) {
      bool isNew = false;
      Mark& mark = findOrAdd(job.marks, 0, member.key(), isNew);
      if (isNew)
         placeEntity(mark, isNew, false, isFresh);
   }
}

// Marks an entity as to be created at the subscriber, which may have it already from another mount.
void PendingTree::placeEntity(Mark& mark, bool isNew, bool isPartial, bool isFresh) {
   if (isNew) {
      mark.kind = MarkKind::renewed;
      mark.isKnown = !isFresh;
      mark.isPartial = isPartial;
      return;
   }
   if (isPartial || mark.kind == MarkKind::announce || (mark.kind == MarkKind::renewed && !mark.isPartial))
      return;
   // What was marked below is part of the whole, but for what is gone: the
   // subscriber starts over with this one.
   mark.kind = MarkKind::renewed;
   mark.isReplaced |= mark.isKnown;
   mark.isPartial = false;
   mark.below.reset();
}

void PendingTree::placeIs(Entity const& node, std::span<PlaceStep const> way, unsigned attribute,
                          std::string_view const* key, bool isFresh) {
   Job& job = open(node.node());
   if (this->isFresh(job))
      return;
   EntityMarks* marks = &job.marks;
   Entity const* entity = &node;
   bool isNew = false;
   for (PlaceStep const& step : way) {
      entity = tree_.child(*entity, step.attribute, step.key);
      if (!entity)
         return;
      Mark& mark = findOrAdd(*marks, step.attribute, step.key, isNew);
      placeEntity(mark, isNew, true, isFresh);
      if (mark.kind == MarkKind::renewed && !mark.isPartial)
         return; // all below it is sent anyway
      if (!mark.below)
         mark.below = std::make_unique<EntityMarks>();
      marks = mark.below.get();
   }
   Records::Attribute const& declared = entity->type().attributes[attribute];
   bool const isChildren = declared.form == Form::children;
   auto const markMember = [&](std::string_view keyOfMember) {
      Mark& mark = findOrAdd(*marks, attribute, keyOfMember, isNew);
      if (isChildren)
         placeEntity(mark, isNew, false, isFresh);
      else
         mark.isKnown |= !isFresh;
   };
   if (declared.form == Form::scalar || declared.form == Form::reference) {
      marks->scalarIs(attribute);
   } else if (!key) {
      for (Members member(tree_, *entity, attribute); member.next();)
         markMember(member.key());
   } else if (isChildren ? tree_.child(*entity, attribute, *key) != nullptr
                         : tree_.member(*entity, attribute, *key).has_value()) {
      markMember(*key);
   }
}

EntityMarks* PendingTree::marksAt(GroupPlace const& place, bool isOwn) {
   Job& job = open(place.node().node());
   if (isOwn)
      job.isFresh = false;
   if (isFresh(job))
      return nullptr;
   EntityMarks* marks = &job.marks;
   for (PlaceStep const& step : place.steps()) {
      bool isNew = false;
      Mark& mark = findOrAdd(*marks, step.attribute, step.key, isNew);
      if (isNew) {
         mark.kind = MarkKind::inside;
         mark.isKnown = true;
      } else if (mark.kind == MarkKind::renewed && !mark.isPartial) {
         if (isOwn) // it has one of its own there, which may hold what this one doesn't
            mark.isKnown = mark.isReplaced = true;
         return nullptr;
      }
      if (!mark.below)
         mark.below = std::make_unique<EntityMarks>();
      marks = mark.below.get();
   }
   return marks;
}

void PendingTree::operationIs(EntityMarks& marks, GroupPlace const& place, Operation const& operation,
                              bool cameNew, Created created, bool isOwn) {
   bool isNew = false;
   strayCount_ += isOwn;
   switch (operation.op) {
   case Op::set:
      marks.scalarIs(operation.attribute);
      break;
   case Op::put: {
      Mark& mark = findOrAdd(marks, operation.attribute, operation.key, isNew);
      if (isNew)
         mark.isKnown = !cameNew;
      mark.isKnown |= isOwn;
      break;
   }
   case Op::erase:
      erased(marks, place, operation);
      break;
   case Op::create: {
      Mark& mark = findOrAdd(marks, operation.attribute, operation.key, isNew);
      if (isNew && created == Created::announce) {
         mark.kind = MarkKind::announce;
         mark.isKnown = true;
         break;
      }
      mark.kind = MarkKind::renewed;
      mark.isKnown |= isOwn;
      mark.isPartial = created == Created::bare;
      break;
   }
   case Op::at:
      break;
   }
}

void PendingTree::erased(EntityMarks& marks, GroupPlace const& place, Operation const& operation) {
   bool const isEntity = place.entity().type().attributes[operation.attribute].form == Form::children;
   // What is voided there would have told the subscriber what it has, so that is
   // now told by the mark made here.
   bool const isVoided =
       isEntity && current_ && current_->node == place.node().node() && voidInCurrent(place, operation);
   bool isNew = false;
   Mark& mark = findOrAdd(marks, operation.attribute, operation.key, isNew);
   if (isNew || isVoided) {
      mark.isKnown = true;
   } else if (!mark.isKnown && mark.epoch != epoch_) {
      // A piece that went out since the mark was made may have held the member, or
      // the subscriber has put it too.
      mark.isKnown = true;
      ++strayCount_;
   }
   if (!mark.isKnown) {
      marks.remove(mark);
      return;
   }
   if (isEntity) {
      mark.kind = MarkKind::renewed;
      mark.isReplaced = true;
      mark.isPartial = false;
      mark.below.reset();
   }
}

// What is being sent of the entity was marked for one that is gone. False when nothing is.
bool PendingTree::voidInCurrent(GroupPlace const& place, Operation const& operation) {
   EntityMarks* marks = &current_->marks;
   for (PlaceStep const& step : place.steps()) {
      Mark* const mark = marks->find(step.attribute, step.key);
      if (!mark || !mark->below)
         return false;
      marks = mark->below.get();
   }
   Mark* const mark = marks->find(operation.attribute, operation.key);
   if (mark)
      mark->isVoid = true;
   return mark != nullptr;
}

void PendingTree::drop(uint32_t node) {
   if (auto const at = open_.find(node); at != open_.end()) {
      jobs_.erase(at->second->ticket);
      open_.erase(at);
   }
   if (current_ && current_->node == node) {
      walk_.reset();
      levels_.clear();
      current_.reset();
   }
}

// --- Sending

void PendingTree::drain(Wire::Writer& out, size_t maxBytes, std::vector<uint32_t>& drained) {
   size_t const end = out.size() + maxBytes;
   named_ = nullptr;
   ++epoch_;
   findLevels();
   while (out.size() < end) {
      if (walk_) {
         drainWalk(out, end);
      } else if (!levels_.empty()) {
         drainLevel(out, end);
      } else if (current_ && current_->isFull) {
         current_->isFull = false;
         if (Entity const* const node = tree_.node(current_->node))
            walk_.emplace(tree_, *node, Walk::Extent::shallow);
      } else if (current_) {
         drained.push_back(current_->node);
         current_.reset();
      } else if (!jobs_.empty()) {
         std::unique_ptr<Job> job = std::move(jobs_.begin()->second);
         jobs_.erase(jobs_.begin());
         open_.erase(job->node);
         begin(std::move(job));
      } else {
         strayCount_ = 0;
         break;
      }
   }
}

void PendingTree::begin(std::unique_ptr<Job> job) {
   current_ = std::move(job);
   if (!current_->marks.empty()) {
      levels_.push_back({&current_->marks, 0, false, nullptr});
      findLevels();
   }
}

// The entities of the levels, which may have gone since the last piece.
void PendingTree::findLevels() {
   for (size_t i = 0; i < levels_.size(); ++i) {
      Level& level = levels_[i];
      if (i == 0) {
         level.entity = tree_.node(current_->node);
      } else {
         Level const& above = levels_[i - 1];
         Mark const& mark = above.marks->mark(above.position - 1);
         level.entity =
             mark.isVoid ? nullptr : tree_.child(*above.entity, mark.attribute, above.marks->key(mark));
      }
      if (!level.entity) {
         levels_.resize(i);
         return;
      }
   }
}

void PendingTree::drainLevel(Wire::Writer& out, size_t end) {
   Level& level = levels_.back();
   if (!level.areScalarsDone) {
      level.areScalarsDone = true;
      for (unsigned i = 0; i < level.entity->type().attributes.size(); ++i) {
         if (!(level.marks->scalars() >> i & 1))
            continue;
         name(*level.entity, out);
         tree_.encodeAttribute(*level.entity, i, out);
      }
   }
   while (out.size() < end) {
      if (level.position == level.marks->count()) {
         levels_.pop_back();
         return;
      }
      Mark& mark = level.marks->mark(level.position++);
      if (mark.isVoid)
         continue;
      size_t const levelCount = levels_.size();
      drainMark(level, mark, out, end);
      if (walk_ || levels_.size() != levelCount)
         return;
   }
}

void PendingTree::drainMark(Level const& level, Mark& mark, Wire::Writer& out, size_t end) {
   Entity const& entity = *level.entity;
   std::string_view const key = level.marks->key(mark);
   if (mark.kind == MarkKind::value) {
      name(entity, out);
      tree_.encodeMember(entity, mark.attribute, key, out);
      return;
   }
   Entity const* const below = tree_.child(entity, mark.attribute, key);
   // A subscriber that wrote since may have made another entity there, which may hold what this one doesn't.
   bool const isKnown = mark.isKnown || mark.epoch < lastWrote_;
   bool const isReplaced = mark.isReplaced || mark.epoch < lastWrote_;
   if (mark.kind == MarkKind::renewed && isKnown && (isReplaced || !below)) {
      name(entity, out);
      OperationWriter(out).erase(mark.attribute, key);
   }
   if (!below)
      return;
   if (mark.kind != MarkKind::inside)
      create(entity, mark.attribute, key, *below, out);
   if (mark.kind == MarkKind::announce || below->isNode())
      return;
   if (mark.kind == MarkKind::inside || mark.isPartial) {
      if (mark.below)
         levels_.push_back({mark.below.get(), 0, false, below});
      return;
   }
   // At once, because constructor inputs belong to the creation.
   walk_.emplace(tree_, *below, Walk::Extent::deep);
   drainWalk(out, end);
}

void PendingTree::create(Entity const& entity, unsigned attribute, std::string_view key, Entity const& made,
                         Wire::Writer& out) {
   name(entity, out);
   if (!made.isNode()) {
      OperationWriter(out).create(attribute, key, made.type().id);
      return;
   }
   OperationWriter(out).createNode(key, made.type().id, made.node());
   // Its scalars come with it, because constructor inputs are among them; the rest when it is its turn.
   if (auto const at = open_.find(made.node()); at != open_.end() && at->second->isFull) {
      size_t const before = out.size();
      tree_.encodeAt(made, out);
      size_t const named = out.size();
      tree_.encodeScalars(made, out);
      if (out.size() == named)
         out.truncate(before);
      else
         named_ = &made;
   }
}

void PendingTree::drainWalk(Wire::Writer& out, size_t end) {
   size_t const room = end > out.size() ? end - out.size() : 1;
   if (!walk_->next(out, room))
      walk_.reset();
   named_ = nullptr;
}

void PendingTree::name(Entity const& entity, Wire::Writer& out) {
   if (named_ == &entity)
      return;
   named_ = &entity;
   tree_.encodeAt(entity, out);
}

} // namespace Ordel

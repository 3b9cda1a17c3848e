#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"

#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using Kem::Ptr;

struct Probe : Kem::PtrInterface {
   static inline int alive = 0;
   Probe() { ++alive; }
   ~Probe() override { --alive; }
   using PtrInterface::flagIs;
   using PtrInterface::notificationActiveFlag;
   using PtrInterface::zombieFlag;
   // The word behind the virtual table.
   uint32_t word() const {
      uint32_t w = 0;
      std::memcpy(&w, reinterpret_cast<char const*>(static_cast<PtrInterface const*>(this)) + sizeof(void*),
                  sizeof w);
      return w;
   }
   int value = 7;
};
struct Special : Probe {
   Ptr<Probe> next;
};

static_assert(sizeof(Kem::PtrInterface) == 16, "a virtual table and one word");
static_assert(std::is_convertible_v<Ptr<Special>, Ptr<Probe const>>);
static_assert(!std::is_convertible_v<Ptr<Probe const>, Ptr<Probe>>, "read access stays read access");
static_assert(!std::is_convertible_v<Ptr<Probe>, Ptr<Special>>);

class PtrTest : public ::testing::Test {
  protected:
   ~PtrTest() override { EXPECT_EQ(Probe::alive, 0); }
};

TEST_F(PtrTest, newObjectHasOneReferenceThatItsFactoryHandsOver) {
   auto* const object = new Probe;
   EXPECT_EQ(object->references(), 1u);
   auto const p = Ptr<Probe>::adopt(object);
   EXPECT_EQ(object->references(), 1u);
   EXPECT_EQ(Kem::makePtr<Probe>()->references(), 1u);
}

TEST_F(PtrTest, objectIsDeletedWhenTheLastReferenceGoes) {
   auto p = Kem::makePtr<Probe>();
   auto q = p;
   EXPECT_EQ(p->references(), 2u);
   p = nullptr;
   EXPECT_EQ(Probe::alive, 1);
   q = nullptr;
   EXPECT_EQ(Probe::alive, 0);
}

TEST_F(PtrTest, moveTakesTheReferenceAlong) {
   auto p = Kem::makePtr<Special>();
   Ptr<Probe const> q = std::move(p);
   EXPECT_FALSE(p);
   EXPECT_EQ(q->references(), 1u);
}

TEST_F(PtrTest, releaseHandsTheReferenceToTheCaller) {
   auto p = Kem::makePtr<Probe>();
   Probe* const raw = p.release();
   EXPECT_FALSE(p);
   EXPECT_EQ(raw->references(), 1u);
   raw->deleteRef();
   EXPECT_EQ(Probe::alive, 0);
}

TEST_F(PtrTest, pointerMadeOfAPlainOneTakesAFurtherReference) {
   auto const p = Kem::makePtr<Probe>();
   Ptr<Probe> const q(p.ptr());
   EXPECT_EQ(p->references(), 2u);
   EXPECT_EQ(p, q);
}

TEST_F(PtrTest, assignmentToItselfAndFromItsOwnMemberKeepsTheObject) {
   auto p = Kem::makePtr<Special>();
   auto const& alias = p;
   p = alias;
   EXPECT_EQ(p->references(), 1u);

   Ptr<Probe> q = p;
   p->next = Kem::makePtr<Probe>();
   p = nullptr;
   q = static_cast<Special&>(*q).next; // the head goes, and what it held stays
   EXPECT_EQ(Probe::alive, 1);
   EXPECT_EQ(q->value, 7);
}

TEST_F(PtrTest, referenceTakenFromNullRaises) {
   Ptr<Probe> const p;
   for (auto const& take :
        {+[](Ptr<Probe> const& n) { return n->value; }, +[](Ptr<Probe> const& n) { return (*n).value; }}) {
      try {
         take(p);
         FAIL() << "taken from null";
      } catch (Kem::RangeException const& e) {
         EXPECT_STREQ(e.what(), "null ValidPtr");
      }
   }
}

TEST_F(PtrTest, nullComparesEqualToNullOnly) {
   Ptr<Probe> const null, p = Kem::makePtr<Probe>();
   EXPECT_TRUE(null == nullptr);
   EXPECT_FALSE(p == nullptr);
   EXPECT_TRUE(p != null);
   EXPECT_FALSE(null);
}

TEST_F(PtrTest, castToAnotherClassIsNull) {
   Ptr<Probe> const plain = Kem::makePtr<Probe>(), special = Kem::makePtr<Special>();
   EXPECT_FALSE(Kem::ptrCast<Special>(plain));
   EXPECT_EQ(Kem::ptrCast<Special>(special).ptr(), special.ptr());
   EXPECT_EQ(special->references(), 1u);
}

TEST_F(PtrTest, zombieMakesTheWordNegativeAndActiveIsBit29) {
   auto const p = Kem::makePtr<Probe>();
   EXPECT_EQ(p->word(), 1u);
   p->flagIs(Probe::zombieFlag, true);
   EXPECT_LT(static_cast<int32_t>(p->word()), 0);
   EXPECT_TRUE(p->isZombie());
   p->flagIs(Probe::zombieFlag, false);
   p->flagIs(Probe::notificationActiveFlag, true);
   EXPECT_EQ(p->word(), 1u | 1u << 29);
   EXPECT_TRUE(p->hasNotificationActive());
   EXPECT_FALSE(p->isZombie());
}

TEST_F(PtrTest, flagsDoNotDisturbTheCount) {
   auto p = Kem::makePtr<Probe>();
   p->flagIs(Probe::zombieFlag, true);
   p->flagIs(Probe::notificationActiveFlag, true);
   auto q = p;
   EXPECT_EQ(p->references(), 2u);
   p = nullptr;
   EXPECT_EQ(Probe::alive, 1);
   q = nullptr;
   EXPECT_EQ(Probe::alive, 0);
}

TEST_F(PtrTest, threadsMayTakeAndDropReferences) {
   auto const p = Kem::makePtr<Probe>();
   std::vector<std::thread> threads;
   for (int t = 0; t < 4; ++t)
      threads.emplace_back([&p] {
         for (int i = 0; i < 50000; ++i)
            Ptr<Probe> const further(p);
      });
   for (auto& t : threads)
      t.join();
   EXPECT_EQ(p->references(), 1u);
}

TEST_F(PtrTest, destructorMayTakeAndDropReferencesOfTheDyingObject) {
   struct TakesItself final : Probe {
      ~TakesItself() override {
         Ptr<TakesItself> const self(this);
         EXPECT_EQ(self->value, 7);
      }
   };
   Kem::makePtr<TakesItself>();
   EXPECT_EQ(Probe::alive, 0); // and not deleted twice
}

TEST_F(PtrTest, backPointerDoesNotKeepTheParentAlive) {
   struct Child final : Probe {
      explicit Child(Probe* p) : parent(p) {}
      Probe* parent;
   };
   auto parent = Kem::makePtr<Special>();
   parent->next = Kem::makePtr<Child>(parent.ptr());
   parent = nullptr;
   EXPECT_EQ(Probe::alive, 0);
}

} // namespace

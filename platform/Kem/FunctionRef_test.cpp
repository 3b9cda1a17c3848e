#include "Kem/FunctionRef.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Counter {
   void up() { ++count; }
   int add(int n) { return count += n; }
   int count = 0;
};

int applied(Kem::FunctionRef<int(int)> f) {
   return f(20);
}

TEST(FunctionRef, callsALambdaThatIsWrittenInTheCall) {
   int const base = 1;
   EXPECT_EQ(applied([&](int n) { return base + n; }), 21);
}

TEST(FunctionRef, callsAMemberFunctionOfItsObject) {
   Counter counter;
   Kem::FunctionRef<int(int)>::of<&Counter::add>(counter)(3);
   Kem::FunctionRef<void()>::of<&Counter::up>(counter)();
   EXPECT_EQ(counter.count, 4);
}

TEST(FunctionRef, isEqualForTheSameObjectAndFunction) {
   using Ref = Kem::FunctionRef<void()>;
   Counter a, b;
   EXPECT_EQ(Ref::of<&Counter::up>(a), Ref::of<&Counter::up>(a));
   EXPECT_NE(Ref::of<&Counter::up>(a), Ref::of<&Counter::up>(b));
   EXPECT_NE(Ref::of<&Counter::up>(a), Ref());
   EXPECT_FALSE(Ref());
   EXPECT_TRUE(Ref::of<&Counter::up>(a));
}

TEST(FunctionRef, passesReferencesOn) {
   std::string text;
   auto const addX = [](std::string& s) { s += "x"; };
   Kem::FunctionRef<void(std::string&)> const append = addX;
   append(text);
   append(text);
   EXPECT_EQ(text, "xx");
}

} // namespace

#include "Kem/Time.h"

#include <gtest/gtest.h>
#include <optional>

namespace {

TEST(Time, realClockNeverGoesBack) {
   Kem::Seconds last = Kem::now();
   for (int i = 0; i < 1000; ++i) {
      Kem::Seconds const next = Kem::now();
      EXPECT_GE(next, last);
      last = next;
   }
   EXPECT_LT(last, Kem::never);
}

TEST(VirtualTime, standsUntilItIsMoved) {
   std::optional<Kem::VirtualTime> time(50.0);
   EXPECT_TRUE(Kem::isTimeVirtual());
   EXPECT_EQ(Kem::now(), 50.0);
   EXPECT_EQ(Kem::now(), 50.0);
   Kem::VirtualTime::advanceTo(50.25);
   EXPECT_EQ(Kem::now(), 50.25);
   Kem::VirtualTime::advanceTo(50.25);
   time.reset();
   EXPECT_FALSE(Kem::isTimeVirtual());
   EXPECT_NE(Kem::now(), 50.25);
}

TEST(VirtualTimeDeathTest, refusesToGoBackOrToBeTakenTwice) {
   Kem::VirtualTime const time(50.0);
   EXPECT_DEATH(Kem::VirtualTime::advanceTo(49.0), "time >= theVirtualNow");
   EXPECT_DEATH(Kem::VirtualTime(), "!theTimeIsVirtual");
}

TEST(VirtualTimeDeathTest, isNotMovedWhileTheClockIsReal) {
   EXPECT_DEATH(Kem::VirtualTime::advanceTo(1e12), "theTimeIsVirtual");
}

} // namespace

#include "ErrdisableLib/RecoveryTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using ErrdisableLib::recoveryTime;

TEST(RecoveryTime, portComesBackOnlyWhereAGroupSaysSo) {
   auto const group = Errdisable::CauseGroup::make();
   EXPECT_EQ(recoveryTime(100, nullptr), Kem::never);
   EXPECT_EQ(recoveryTime(100, group.ptr()), Kem::never);
   group->recoveryEnabledIs(true);
   EXPECT_EQ(recoveryTime(100, group.ptr()), 400);
   group->recoveryIntervalIs(30);
   EXPECT_EQ(recoveryTime(100, group.ptr()), 130);
}

TEST(RecoveryTime, strangeIntervalsNeitherSpinNorGiveATimeThatIsNone) {
   auto const group = Errdisable::CauseGroup::make();
   group->recoveryEnabledIs(true);
   for (double const interval : {0.0, 0.5, -1.0, -1e308, -std::numeric_limits<double>::infinity()}) {
      group->recoveryIntervalIs(interval);
      EXPECT_EQ(recoveryTime(100, group.ptr()), 101) << interval;
   }
   group->recoveryIntervalIs(std::nan(""));
   EXPECT_EQ(recoveryTime(100, group.ptr()), 400);
   group->recoveryIntervalIs(std::numeric_limits<double>::infinity());
   EXPECT_EQ(recoveryTime(100, group.ptr()), Kem::never);
}

} // namespace

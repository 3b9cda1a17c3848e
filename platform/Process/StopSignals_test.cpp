#include "Process/StopSignals.h"

#include "Kem/Activity.h"

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::ExitedWithCode;

TEST(StopSignals, stopDuringTheStartEndsTheProcessAtOnce) {
   for (int const signal : {SIGTERM, SIGINT})
      EXPECT_EXIT(
          {
             Process::stopEndsProcess();
             raise(signal);
             _exit(7);
          },
          ExitedWithCode(0), "");
}

TEST(StopSignals, stopOfTheRunningProgramIsAnEventOfTheLoop) {
   EXPECT_EXIT(
       {
          Process::stopEndsProcess();
          std::vector<int> heard;
          Process::StopSignals const signals([&](int signal) {
             heard.push_back(signal);
             if (heard.size() == 2)
                Kem::activityManager()->stop();
          });
          raise(SIGTERM); // before the loop runs
          raise(SIGINT);
          Kem::activityManager()->run();
          _exit(heard == std::vector<int>{SIGINT, SIGTERM} || heard == std::vector<int>{SIGTERM, SIGINT} ? 5
                                                                                                         : 6);
       },
       ExitedWithCode(5), "");
}

TEST(StopSignals, signalsStayBlockedWhenTheProgramIsEnding) {
   EXPECT_EXIT(
       {
          {
             Process::StopSignals const signals([](int) {});
          }
          raise(SIGTERM);
          _exit(5);
       },
       ExitedWithCode(5), "");
}

} // namespace

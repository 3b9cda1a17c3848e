// Long random series of what publishers do, with restarts of the agent among them, and after each turn the
// resolved tree against a plain account of what it should be (AgentModel.h): what the database holds, and
// what a subscriber has put together from what it was sent.
//
//    BRIDGING_SEQUENCES=5000 BRIDGING_SEED=17 build/test/bridging_property      longer, or from another seed
//    BRIDGING_STEPS=1000                                                        operations of each series
//
// A failure names its seed and prints the operations, shortened to few, and how to run these alone; they then
// run in this process, so that it can be traced (KEM_TRACE) and debugged.

#include "Series.h"

#include "Kem/Trace.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

unsigned numberFrom(char const* variable, unsigned otherwise) {
   char const* const text = std::getenv(variable);
   return text ? static_cast<unsigned>(std::atoi(text)) : otherwise;
}

void expectGood(Model::Verdict const& verdict) {
   EXPECT_TRUE(verdict.isGood()) << verdict.history << verdict.differences;
}

TEST(BridgingProperty, resolvedTreeIsWhatAPlainAccountOfTheIntentSays) {
   unsigned const sequences = numberFrom("BRIDGING_SEQUENCES", 200), first = numberFrom("BRIDGING_SEED", 1);
   unsigned const steps = numberFrom("BRIDGING_STEPS", 200);
   if (char const* const numbers = std::getenv("BRIDGING_OPERATIONS"))
      return expectGood(Model::run(Model::only(Model::makeSeries(first, steps), numbers)));
   constexpr unsigned runsToShorten = 400;
   Kem::traceToStandardErrorIs(false);
   for (unsigned seed = first; seed < first + sequences; ++seed) {
      auto const series = Model::makeSeries(seed, steps);
      auto const verdict = Model::runApart(series);
      if (verdict.isGood())
         continue;
      auto const shorter = Model::shortened(series, verdict.done, runsToShorten);
      auto const again = Model::runApart(shorter);
      FAIL() << "seed " << seed << ", operation " << verdict.done << " of " << steps << "\n"
             << verdict.differences << "shortened; again with BRIDGING_SEED=" << seed
             << " BRIDGING_STEPS=" << steps << " BRIDGING_OPERATIONS=" << Model::numbersOf(shorter) << "\n"
             << again.history << again.differences;
   }
}

} // namespace

#include "Plaze/TableWatch.h"

#include "Plaze/KeyShadow.h"
#include "Plaze/TestTable.h"

#include <optional>
#include <sys/wait.h>

namespace Plaze {
namespace {

class TableWatchTest : public testing::Test {
  protected:
   void watchIs() {
      reader_.emplace(path_, testShape);
      watch_ = std::make_unique<TableWatch>(path_, [this] {
         ++looks_;
         return shadow_.pass(*reader_, [](std::string_view, KeyShadow::Change) {}).changes > 0;
      });
      Kem::activityManager()->runUntilIdle();
   }
   // Looks that come within this time, the events that are there already included.
   unsigned looksIn(Kem::Seconds time) {
      unsigned const before = looks_;
      Kem::activityManager()->advance(time);
      return looks_ - before;
   }

   Kem::VirtualTime time_;
   TestDirectory directory_;
   std::string path_ = directory_.path("bridging/status");
   std::optional<Reader> reader_;
   KeyShadow shadow_;
   unsigned looks_ = 0;
   std::unique_ptr<TableWatch> watch_;
};

TEST_F(TableWatchTest, LooksTwiceAtTheStartAndThenHardlyEver) {
   Writer writer(path_, testShape);
   watchIs();
   EXPECT_TRUE(watch_->isWatching());
   EXPECT_EQ(looks_, 1u);
   EXPECT_EQ(looksIn(0.01), 1u) << "the follow-up";
   EXPECT_EQ(looksIn(9.99), 0u);
   EXPECT_EQ(looksIn(0.02), 1u) << "the safety look";
   EXPECT_EQ(looksIn(100), 10u);
}

TEST_F(TableWatchTest, WritingRingsAtOnceAndIsFollowedUpOnce) {
   Writer writer(path_, testShape);
   watchIs();
   looksIn(0.01);
   usleep(3000); // the ring of the opening is over ringInterval away
   writer.put("one", "1");
   EXPECT_EQ(looksIn(0), 1u) << "without any time passing";
   EXPECT_EQ(shadow_.slots().count("one"), 1u);
   EXPECT_EQ(looksIn(0.004), 0u);
   EXPECT_EQ(looksIn(0.002), 1u) << "the follow-up";
   EXPECT_EQ(looksIn(0.9), 0u);
}

TEST_F(TableWatchTest, BurstIsSeenWholeByTheFollowUpWithoutAnotherRing) {
   Writer writer(path_, testShape, 4096);
   watchIs();
   usleep(3000);
   writer.put("first", "");
   EXPECT_EQ(looksIn(0), 1u);
   writer.put("second",
              ""); // so soon behind it that it has no ring of its own, unless this process was held up
   looksIn(0.0051);
   EXPECT_EQ(shadow_.slots().count("second"), 1u);
}

// The writer rings when it opens the table, then comes the watch, then entries
// within ringInterval of that ring.
TEST_F(TableWatchTest, WritingsWithoutARingSinceTheWatchBeganAreSeen) {
   Writer writer(path_, testShape, 4096);
   watchIs();
   for (int i = 0; i < 1000; ++i)
      writer.put("key" + std::to_string(i), "");
   looksIn(0.0051);
   EXPECT_EQ(shadow_.slots().size(), 1000u);
}

TEST_F(TableWatchTest, TableThatComesIntoBeingIsSeen) {
   std::filesystem::create_directories(directory_.path("bridging"));
   watchIs();
   EXPECT_TRUE(watch_->isWatching());
   looksIn(0.01);
   Writer writer(path_, testShape);
   writer.put("one", "1");
   EXPECT_GE(looksIn(0), 1u);
   looksIn(0.006);
   EXPECT_EQ(shadow_.slots().count("one"), 1u);
}

TEST_F(TableWatchTest, AbsentDirectoryIsWaitedForWithoutLooking) {
   watchIs();
   EXPECT_TRUE(watch_->isWatching());
   looksIn(0.01);
   EXPECT_EQ(looksIn(9.9), 0u);
   std::filesystem::create_directory(directory_.path("elsewhere"));
   EXPECT_EQ(looksIn(0), 0u) << "what comes beside the way doesn't matter";
   Writer writer(path_, testShape);
   writer.put("one", "1");
   looksIn(0.006);
   EXPECT_EQ(shadow_.slots().count("one"), 1u);
   usleep(3000);
   writer.put("two", "2");
   looksIn(0);
   EXPECT_EQ(shadow_.slots().count("two"), 1u) << "it is the directory that is watched now";
}

TEST_F(TableWatchTest, WayThatComesPieceByPieceIsFollowed) {
   path_ = directory_.path("a/b/c/status");
   watchIs();
   looksIn(0.01);
   std::filesystem::create_directory(directory_.path("a"));
   looksIn(0.01);
   std::filesystem::create_directories(directory_.path("a/b/c"));
   looksIn(0.01);
   std::filesystem::remove(directory_.path("a/b/c"));
   looksIn(0.01);
   Writer writer(path_, testShape);
   writer.put("one", "1");
   looksIn(0.006);
   EXPECT_EQ(shadow_.slots().count("one"), 1u);
}

TEST_F(TableWatchTest, DirectoryFarAboveThatIsReplacedIsNoticedByTheSafetyLook) {
   path_ = directory_.path("a/b/status");
   std::make_unique<Writer>(path_, testShape)->put("one", "1");
   watchIs();
   looksIn(0.01);
   std::filesystem::rename(directory_.path("a"), directory_.path("away"));
   Writer writer(path_, testShape);
   writer.put("two", "2");
   looksIn(TableWatch::safetyInterval + 0.01);
   EXPECT_EQ(shadow_.slots().count("two"), 1u);
   usleep(3000);
   writer.put("three", "3");
   looksIn(0);
   EXPECT_EQ(shadow_.slots().count("three"), 1u);
}

TEST_F(TableWatchTest, DirectoryThatIsReplacedIsFollowed) {
   std::make_unique<Writer>(path_, testShape)->put("one", "1");
   watchIs();
   std::filesystem::remove_all(directory_.path("bridging"));
   looksIn(0.01);
   EXPECT_EQ(shadow_.slots().size(), 0u);
   Writer writer(path_, testShape);
   writer.put("two", "2");
   looksIn(0.11);
   EXPECT_EQ(shadow_.slots().count("two"), 1u);
   EXPECT_TRUE(watch_->isWatching());

   std::filesystem::rename(directory_.path("bridging"), directory_.path("away"));
   looksIn(0.11);
   EXPECT_EQ(shadow_.slots().size(), 0u);
}

TEST_F(TableWatchTest, GrownTableIsFollowed) {
   Writer writer(path_, testShape, 2);
   writer.put("one", "1");
   watchIs();
   writer.put("two", "2");
   writer.put("three", "3");
   EXPECT_GE(looksIn(0), 1u) << "the new file has the name";
   looksIn(0.006);
   EXPECT_EQ(shadow_.slots().size(), 3u);
}

TEST_F(TableWatchTest, OtherTablesInTheDirectoryCauseNoLooks) {
   Writer writer(path_, testShape);
   watchIs();
   looksIn(0.5);
   Writer other(directory_.path("bridging/other"), testShape);
   usleep(3000);
   other.put("one", "1");
   EXPECT_EQ(looksIn(0.1), 0u);
}

TEST_F(TableWatchTest, NothingComesAfterItIsGone) {
   Writer writer(path_, testShape);
   watchIs();
   watch_ = nullptr;
   writer.put("one", "1");
   EXPECT_EQ(looksIn(10), 0u);
}

TEST(TableWatchLatencyTest, WritingOfAnotherProcessWakesTheLoopLongBeforeTheSafetyPoll) {
   TestDirectory directory;
   std::string const path = directory.path("table");
   { Writer writer(path, testShape); }
   Reader reader(path, testShape);
   KeyShadow shadow;
   TableWatch watch(
       path, [&] { return shadow.pass(reader, [](std::string_view, KeyShadow::Change) {}).changes > 0; });
   Kem::activityManager()->runUntilIdle();
   pid_t const child = fork();
   if (child == 0) {
      Writer writer(path, testShape);
      usleep(20000);
      writer.put("one", "1");
      _exit(0);
   }
   Kem::Seconds const start = Kem::now();
   while (shadow.slots().empty() && Kem::now() < start + 0.8)
      Kem::activityManager()->runTurn(0.1);
   EXPECT_EQ(shadow.slots().count("one"), 1u) << "within less than safetyInterval";
   waitpid(child, nullptr, 0);
}

} // namespace
} // namespace Plaze

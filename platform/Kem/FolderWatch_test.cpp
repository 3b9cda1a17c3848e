#include "Kem/FolderWatch.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>

namespace {

namespace fs = std::filesystem;
using Kem::FolderWatch;
using Followed = FolderWatch::Followed;

class FolderWatchTest : public testing::Test {
  protected:
   FolderWatchTest() {
      place_ = testing::TempDir() + "/folder-watch-XXXXXX";
      EXPECT_TRUE(mkdtemp(place_.data()));
   }
   ~FolderWatchTest() override { fs::remove_all(place_); }
   std::string at(std::string const& name) const { return place_ + '/' + name; }
   void put(std::string const& name) const { std::ofstream(at(name)).flush(); }

   std::string place_;
};

TEST_F(FolderWatchTest, hearsEveryNameInItsFolder) {
   fs::create_directory(at("folder"));
   FolderWatch watch(at("folder"), IN_DELETE);
   EXPECT_EQ(watch.follow(), Followed::elsewhere) << "there was none before";
   EXPECT_FALSE(watch.hear());
   put("folder/one");
   EXPECT_TRUE(watch.hear());
   EXPECT_FALSE(watch.hear()) << "it is heard once";
   fs::remove(at("folder/one"));
   EXPECT_TRUE(watch.hear());
   put("beside");
   EXPECT_FALSE(watch.hear());
   EXPECT_EQ(watch.follow(), Followed::asBefore);
}

TEST_F(FolderWatchTest, hearsOneNameWhereThatIsAllThatCounts) {
   fs::create_directory(at("folder"));
   FolderWatch watch(at("folder"), IN_DELETE, "one");
   watch.follow();
   put("folder/two");
   EXPECT_FALSE(watch.hear());
   put("folder/one");
   EXPECT_TRUE(watch.hear());
}

TEST_F(FolderWatchTest, onTheWayOnlyTheNextFolderCounts) {
   FolderWatch watch(at("a/b"), IN_DELETE);
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   EXPECT_TRUE(watch.isWatching());
   put("other");
   fs::create_directory(at("b"));
   EXPECT_FALSE(watch.hear());
   fs::create_directory(at("a"));
   EXPECT_TRUE(watch.hear());
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   put("a/file");
   EXPECT_FALSE(watch.hear());
   fs::create_directory(at("a/b"));
   EXPECT_TRUE(watch.hear());
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   put("a/b/file");
   EXPECT_TRUE(watch.hear());
}

// The process isn't even woken by what a busy folder on the way has besides.
TEST_F(FolderWatchTest, writingOnTheWayWakesNobody) {
   put("busy");
   FolderWatch watch(at("a"), IN_MODIFY | IN_ATTRIB | IN_DELETE);
   watch.follow();
   std::ofstream(at("busy")) << "text";
   fs::remove(at("busy"));
   pollfd state{watch.descriptor(), POLLIN, 0};
   EXPECT_EQ(poll(&state, 1, 0), 0);
}

TEST_F(FolderWatchTest, folderThatGoesIsWaitedForAgain) {
   fs::create_directories(at("a/b"));
   FolderWatch watch(at("a/b"), IN_DELETE);
   watch.follow();
   fs::remove_all(at("a"));
   EXPECT_TRUE(watch.hear());
   EXPECT_FALSE(watch.isWatching());
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   fs::create_directories(at("a/b"));
   EXPECT_TRUE(watch.hear());
   watch.follow();
   fs::rename(at("a/b"), at("away"));
   EXPECT_TRUE(watch.hear());
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   put("away/file");
   EXPECT_FALSE(watch.hear()) << "it is another folder now";
}

TEST_F(FolderWatchTest, fileOnTheWayIsTakenAsAbsent) {
   put("a");
   FolderWatch watch(at("a/b"), IN_DELETE);
   EXPECT_EQ(watch.follow(), Followed::elsewhere);
   fs::remove(at("a"));
   fs::create_directory(at("a"));
   EXPECT_TRUE(watch.hear());
}

TEST_F(FolderWatchTest, placeThatCanNotBeReachedIsAnError) {
   fs::create_symlink("loop", at("loop"));
   FolderWatch watch(at("loop/folder"), IN_DELETE);
   EXPECT_EQ(watch.follow(), Followed::notPossible);
   EXPECT_EQ(errno, ELOOP);
   EXPECT_FALSE(watch.isWatching());
}

} // namespace

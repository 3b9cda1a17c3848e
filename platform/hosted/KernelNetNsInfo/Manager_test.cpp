#include "KernelNetNsInfo/Manager.h"

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "NetlinkTesting/FakeKernel.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using KernelNetNsInfo::Manager;
using Names = std::set<std::string>;

class KernelNetNsInfoManagerTest : public testing::Test {
  protected:
   KernelNetNsInfoManagerTest() {
      std::string pattern = testing::TempDir() + "/netns-XXXXXX";
      place_ = mkdtemp(pattern.data());
      folder_ = place_ + "/run/netns";
   }
   ~KernelNetNsInfoManagerTest() override {
      manager_ = nullptr;
      fs::remove_all(place_);
   }
   void start() { manager_ = Kem::makePtr<Manager>(Kem::activityManager()->config(), root_, folder_); }
   void put(std::string const& name) { std::ofstream(folder_ + "/" + name).flush(); }
   void del(std::string const& name) { fs::remove(folder_ + "/" + name); }
   Names names() const {
      Names found;
      root_->netNsByName().forEach([&](Sulvi::NamespaceName const& name, auto const& netNs) {
         EXPECT_EQ(netNs->netNsName(), name);
         found.insert(name.stringValue().str());
      });
      return found;
   }
   Names settled() {
      Kem::activityManager()->runUntilIdle();
      return names();
   }

   Kem::TestTrace trace_;
   Kem::VirtualTime time_;
   std::string place_, folder_;
   Kem::Ptr<KernelNetNsInfo::Root> root_ = KernelNetNsInfo::Root::make();
   Kem::Ptr<Manager> manager_;
};

TEST_F(KernelNetNsInfoManagerTest, namespacesThatStandAreThereWhenItIsMade) {
   fs::create_directories(folder_);
   put("red");
   put("blue");
   fs::create_directory(folder_ + "/no-namespace");
   root_->netNsByNameIs("stale");
   start();
   EXPECT_EQ(names(), (Names{"red", "blue"}));
}

TEST_F(KernelNetNsInfoManagerTest, folderIsToldAlsoWhereTheListDoesNotSay) {
   fs::create_directories(folder_ + "/below");
   put("red");
   fs::create_symlink("below", folder_ + "/link");
   int const fd = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   using KernelNetNsInfo::isFolder;
   EXPECT_TRUE(isFolder(fd, "below", DT_DIR));
   EXPECT_TRUE(isFolder(fd, "below", DT_UNKNOWN));
   EXPECT_TRUE(isFolder(fd, ".", DT_UNKNOWN));
   EXPECT_FALSE(isFolder(fd, "red", DT_REG));
   EXPECT_FALSE(isFolder(fd, "red", DT_UNKNOWN));
   EXPECT_FALSE(isFolder(fd, "link", DT_UNKNOWN)) << "what it leads to doesn't count, as with DT_LNK";
   EXPECT_FALSE(isFolder(fd, "gone", DT_UNKNOWN));
   close(fd);
}

TEST_F(KernelNetNsInfoManagerTest, namespacesComeAndGo) {
   fs::create_directories(folder_);
   start();
   EXPECT_EQ(names(), Names{});
   put("red");
   fs::create_symlink("/proc/self/ns/net", folder_ + "/link");
   EXPECT_EQ(settled(), (Names{"red", "link"}));
   auto const red = root_->netNsByName("red");
   del("link");
   fs::rename(folder_ + "/red", folder_ + "/green");
   EXPECT_EQ(settled(), Names{"green"});
   fs::rename(folder_ + "/green", folder_ + "/red");
   put("blue");
   EXPECT_EQ(settled(), (Names{"red", "blue"}));
}

TEST_F(KernelNetNsInfoManagerTest, fileThatIsMovedInCounts) {
   fs::create_directories(folder_);
   std::ofstream(place_ + "/red").flush();
   start();
   fs::rename(place_ + "/red", folder_ + "/red");
   EXPECT_EQ(settled(), Names{"red"});
   fs::rename(folder_ + "/red", place_ + "/red");
   EXPECT_EQ(settled(), Names{});
}

TEST_F(KernelNetNsInfoManagerTest, standingEntryIsKeptWhenOthersChange) {
   fs::create_directories(folder_);
   put("red");
   start();
   auto const red = root_->netNsByName("red");
   put("blue");
   settled();
   EXPECT_EQ(root_->netNsByName("red"), red);
}

TEST_F(KernelNetNsInfoManagerTest, folderThatComesLaterIsFound) {
   start();
   EXPECT_EQ(settled(), Names{});
   fs::create_directory(place_ + "/run");
   EXPECT_EQ(settled(), Names{});
   fs::create_directory(folder_);
   put("red");
   EXPECT_EQ(settled(), Names{"red"});
   put("blue");
   EXPECT_EQ(settled(), (Names{"red", "blue"}));
}

TEST_F(KernelNetNsInfoManagerTest, folderThatComesAllAtOnceIsFound) {
   start();
   fs::create_directories(folder_);
   put("red");
   EXPECT_EQ(settled(), Names{"red"});
}

TEST_F(KernelNetNsInfoManagerTest, folderThatGoesTakesItsNamesAndMayComeBack) {
   fs::create_directories(folder_);
   put("red");
   start();
   fs::remove_all(place_ + "/run");
   EXPECT_EQ(settled(), Names{});
   fs::create_directories(folder_);
   put("blue");
   EXPECT_EQ(settled(), Names{"blue"});
   put("red");
   EXPECT_EQ(settled(), (Names{"red", "blue"}));
}

TEST_F(KernelNetNsInfoManagerTest, fileInThePlaceOfTheFolderHoldsNoNamespaces) {
   fs::create_directories(place_ + "/run");
   std::ofstream(folder_).flush();
   start();
   EXPECT_EQ(settled(), Names{});
   fs::remove(folder_);
   fs::create_directory(folder_);
   put("red");
   EXPECT_EQ(settled(), Names{"red"});
}

TEST_F(KernelNetNsInfoManagerTest, folderThatIsReplacedIsFollowedAsTheNewOne) {
   fs::create_directories(folder_);
   put("red");
   start();
   fs::rename(folder_, place_ + "/elsewhere");
   fs::create_directory(folder_);
   put("blue");
   EXPECT_EQ(settled(), Names{"blue"});
   put("green");
   EXPECT_EQ(settled(), (Names{"blue", "green"}));
   std::ofstream(place_ + "/elsewhere/stray").flush();
   EXPECT_EQ(settled(), (Names{"blue", "green"}));
}

TEST_F(KernelNetNsInfoManagerTest, nameThatIsTooLongIsLeftOutAndSaidOnce) {
   fs::create_directories(folder_);
   std::string const longest(150, 'n');
   put(longest);
   put(longest + "x");
   start();
   EXPECT_EQ(names(), Names{longest});
   std::string const said = "namespace " + longest + "x is left out: a name has at most 150 bytes\n";
   EXPECT_EQ(trace_.text(), said);
   put("red");
   EXPECT_EQ(settled(), (Names{longest, "red"}));
   EXPECT_EQ(trace_.text(), said);
   del(longest + "x");
   settled();
   put(longest + "x");
   settled();
   EXPECT_EQ(trace_.text(), said + said) << "it is another file of that name";
}

TEST_F(KernelNetNsInfoManagerTest, looksByItselfWhereWatchingIsNotPossible) {
#ifdef __SANITIZE_ADDRESS__
   GTEST_SKIP() << "the sanitizers need a descriptor themselves, to look at a class";
#endif
   fs::create_directories(folder_);
   // No descriptor left for the watch.
   rlimit before;
   ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
   rlimit none = before;
   none.rlim_cur = 0;
   Kem::activityManager()->runTurn(); // has what it needs
   ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
   start();
   ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
   put("red");
   EXPECT_EQ(settled(), Names{});
   Kem::activityManager()->advance(Manager::pollInterval * 1.1);
   EXPECT_EQ(names(), Names{"red"});
   del("red");
   Kem::activityManager()->advance(Manager::pollInterval * 1.1);
   EXPECT_EQ(names(), Names{});
}

TEST_F(KernelNetNsInfoManagerTest, nothingIsWrittenAfterItHasGone) {
   fs::create_directories(folder_);
   put("red");
   start();
   manager_ = nullptr;
   put("blue");
   EXPECT_EQ(settled(), Names{"red"});
}

// --- Which namespace it is.

struct KernelNetNsInodeTest : KernelNetNsInfoManagerTest {
   KernelNetNsInodeTest() { fs::create_directories(folder_); }
   // As "ip netns" does it: first the file, then what it leads to.
   void namespaceIs(std::string const& name) {
      put(name);
      kernel_.namespaceIs(name);
   }
   uint64_t inode(char const* name) { return root_->netNsByName(name)->inode(); }
   Netlink::FakeKernel kernel_;
};

TEST_F(KernelNetNsInodeTest, numbersAreThereWhenItIsMade) {
   namespaceIs("red");
   namespaceIs("blue");
   start();
   EXPECT_NE(inode("red"), 0u);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));
   EXPECT_EQ(inode("blue"), kernel_.netNsInode("blue"));
   EXPECT_EQ(kernel_.openDescriptors(), 0);
}

TEST_F(KernelNetNsInodeTest, aFileThatLeadsToItsNamespaceLaterIsLookedAtAgain) {
   start();
   put("red");
   settled();
   EXPECT_EQ(inode("red"), 0u);
   Kem::activityManager()->advance(Manager::minReadyInterval * 0.9);
   kernel_.namespaceIs("red");
   settled();
   EXPECT_EQ(inode("red"), 0u);
   Kem::activityManager()->advance(Manager::minReadyInterval * 0.2);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));
   kernel_.countsReset();
   Kem::activityManager()->advance(10);
   EXPECT_EQ(kernel_.count("open"), 0);
}

TEST_F(KernelNetNsInodeTest, aFileThatLeadsNowhereIsLookedAtLessAndLess) {
   put("left-behind");
   start();
   kernel_.countsReset();
   Kem::activityManager()->advance(101);
   EXPECT_EQ(inode("left-behind"), 0u);
   EXPECT_GE(kernel_.count("open"), 100);
   EXPECT_LE(kernel_.count("open"), 105);
   // One that is made meanwhile doesn't wait that long.
   put("red");
   settled();
   kernel_.namespaceIs("red");
   Kem::activityManager()->advance(Manager::minReadyInterval * 1.1);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));
}

TEST_F(KernelNetNsInodeTest, aNamespaceThatIsMadeAgainHasAnotherNumber) {
   namespaceIs("red");
   start();
   auto const before = inode("red");
   kernel_.namespaceDel("red");
   del("red");
   namespaceIs("red");
   EXPECT_EQ(settled(), Names{"red"});
   EXPECT_NE(inode("red"), before);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));

   // The same, seen half way.
   kernel_.namespaceDel("red");
   del("red");
   put("red");
   settled();
   EXPECT_EQ(inode("red"), 0u);
   kernel_.namespaceIs("red");
   Kem::activityManager()->advance(Manager::minReadyInterval * 1.1);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));
}

TEST_F(KernelNetNsInodeTest, aKernelThatCantOpenItNowIsAskedAgain) {
   namespaceIs("red");
   kernel_.fail("open", EMFILE, 1, true);
   start();
   Kem::activityManager()->advance(30);
   EXPECT_EQ(inode("red"), 0u);
   kernel_.faultsEnd();
   Kem::activityManager()->advance(Manager::maxReadyInterval * 1.1);
   EXPECT_EQ(inode("red"), kernel_.netNsInode("red"));
}

} // namespace

// A writer and readers in processes of their own, on one table, without any word between them.
#include "Plaze/KeyShadow.h"
#include "Plaze/TestTable.h"

#include <csignal>
#include <map>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace Plaze {
namespace {

constexpr int keyCount = 40;

std::string keyOf(uint64_t i) {
   return "key" + std::to_string(i);
}

template <class Body>
pid_t inProcess(Body&& body) {
   pid_t const child = fork();
   if (child == 0) {
      body();
      _exit(0);
   }
   return child;
}

volatile std::sig_atomic_t isWriterToEnd = 0;

// Puts and removes keys until SIGTERM, and at last a key that ends the readers. Numbers rise, so that a
// reader can recognise an old value that comes back.
void writeUntilTold(std::string const& path, uint64_t seed) {
   signal(SIGTERM, [](int) { isWriterToEnd = 1; });
   Writer writer(path, testShape, 4);
   std::mt19937_64 random(seed);
   uint64_t number = 0;
   for (int i = 0; i < keyCount; ++i)
      if (auto const value = writer.value(keyOf(i)))
         number = std::max(number, numberOf(*value));
   while (!isWriterToEnd) {
      std::string const key = keyOf(random() % keyCount);
      if (random() % 8 == 0)
         writer.del(key);
      else
         writer.put(key, selfCheckingValue(key, ++number));
   }
   writer.put("end", selfCheckingValue("end", number));
}

// What one reader has seen go wrong; 0 is what it should be.
struct Verdict {
   uint64_t reads = 0, garbage = 0, backwards = 0, notInStep = 0;
   bool isEndSeen = false;
};

// Ends the writer when it has read so many values.
Verdict followUntilEnd(std::string const& path, uint64_t enough = 0, pid_t writer = 0) {
   Verdict verdict;
   Reader reader(path, testShape);
   KeyShadow shadow;
   std::map<std::string, uint64_t> newest;
   while (!verdict.isEndSeen) {
      shadow.pass(reader, [&](std::string_view changed, KeyShadow::Change change) {
         std::string const key(changed);
         if (change == KeyShadow::Change::removed) {
            verdict.notInStep += shadow.slots().count(key);
            return;
         }
         auto const at = shadow.slots().find(key);
         if (at == shadow.slots().end()) {
            ++verdict.notInStep;
            return;
         }
         Entry entry;
         uint64_t sequence;
         if (reader.read(at->second, entry, sequence) != Reader::Result::entry)
            return; // removed or replaced since: the next pass shows it
         ++verdict.reads;
         if (!checksItself(entry.key, entry.value))
            ++verdict.garbage;
         uint64_t& last = newest[entry.key];
         if (numberOf(entry.value) < last)
            ++verdict.backwards;
         last = numberOf(entry.value);
      });
      if (writer > 0 && verdict.reads >= enough)
         kill(std::exchange(writer, 0), SIGTERM);
      verdict.isEndSeen = shadow.slots().count("end") > 0;
   }
   return verdict;
}

TEST(ProcessesTest, ReadersNeverSeeGarbageWhileAWriterRuns) {
   TestDirectory directory;
   std::string const path = directory.path("table");
   pid_t const writer = inProcess([&] { writeUntilTold(path, 1); });
   pid_t const otherReader = inProcess([&] {
      Verdict const verdict = followUntilEnd(path);
      _exit(verdict.garbage + verdict.backwards + verdict.notInStep == 0 ? 0 : 1);
   });
   Verdict const verdict = followUntilEnd(path, 20000, writer);
   EXPECT_EQ(verdict.garbage, 0u);
   EXPECT_EQ(verdict.backwards, 0u);
   EXPECT_EQ(verdict.notInStep, 0u);
   EXPECT_GE(verdict.reads, 20000u);
   int status;
   EXPECT_EQ(waitpid(writer, &status, 0), writer);
   EXPECT_EQ(status, 0);
   EXPECT_EQ(waitpid(otherReader, &status, 0), otherReader);
   EXPECT_EQ(status, 0);
}

TEST(ProcessesTest, WritersKilledAtAnyMomentLeaveNothingThatIsNotWhole) {
   TestDirectory directory;
   std::string const path = directory.path("table");
   pid_t const follower = inProcess([&] {
      Verdict const verdict = followUntilEnd(path);
      _exit(verdict.garbage + verdict.notInStep == 0 ? 0 : 1);
   });
   std::mt19937 random(3);
   size_t repaired = 0;
   for (int round = 0; round < 60; ++round) {
      pid_t const writer = inProcess([&] { writeUntilTold(path, round); });
      usleep(500 + random() % 5000);
      kill(writer, SIGKILL);
      int status;
      ASSERT_EQ(waitpid(writer, &status, 0), writer);
      ASSERT_TRUE(WIFSIGNALED(status));
      if (!std::filesystem::exists(path))
         continue; // killed before it had made the table
      Writer next(path, testShape);
      EXPECT_LE(next.repairedCount(), 1u);
      repaired += next.repairedCount();
      for (int i = 0; i < keyCount; ++i)
         EXPECT_TRUE(checksItself(keyOf(i), next.value(keyOf(i)).value_or(selfCheckingValue(keyOf(i), 0))));
   }
   Writer(path, testShape).put("end", selfCheckingValue("end", 0));
   int status;
   EXPECT_EQ(waitpid(follower, &status, 0), follower);
   EXPECT_EQ(status, 0);
   std::cout << "torn entries repaired: " << repaired << " of 60 kills\n";
}

TEST(ProcessesTest, OneOfManyWritersWins) {
   TestDirectory directory;
   std::string const path = directory.path("table");
   // All begin together, on no file at first, and hold on until the pipe is closed.
   int start[2], done[2];
   ASSERT_EQ(pipe(start), 0);
   ASSERT_EQ(pipe(done), 0);
   std::vector<pid_t> children;
   for (int i = 0; i < 8; ++i)
      children.push_back(inProcess([&] {
         close(start[1]);
         close(done[1]);
         char c;
         (void)!read(start[0], &c, 1);
         bool hasWon = false;
         std::unique_ptr<Writer> writer;
         try {
            writer = std::make_unique<Writer>(path, testShape);
            hasWon = true;
         } catch (Error const& error) {
            if (error.kind() != Error::Kind::refused)
               _exit(2);
         }
         if (hasWon)
            (void)!read(done[0], &c, 1);
         _exit(hasWon ? 1 : 0);
      }));
   close(start[1]);
   // The losers end by themselves; then the winner may.
   int winners = 0, ended = 0, status;
   for (; ended < 7; ++ended) {
      ASSERT_GT(wait(&status), 0);
      ASSERT_TRUE(WIFEXITED(status));
      EXPECT_EQ(WEXITSTATUS(status), 0);
   }
   close(done[1]);
   ASSERT_GT(wait(&status), 0);
   winners += WEXITSTATUS(status) == 1;
   EXPECT_EQ(winners, 1);
   close(start[0]);
   close(done[0]);
}

} // namespace
} // namespace Plaze

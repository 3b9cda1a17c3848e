// Runs zivcat as its users do, on files that the tests trace.
#include "Printer.h"
#include "Zivlog/TraceFile.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace Zivcat {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

uint64_t monotonicNs;
int64_t wallNs;
Zivlog::Clocks const steppedClocks = {[] { return monotonicNs; }, [] { return wallNs; }};
constexpr int64_t nsOfSecond = 1'000'000'000;

struct Outcome {
   int status;
   std::string out;
   std::string err;
   std::vector<std::string> lines() const {
      std::vector<std::string> lines;
      std::istringstream in(out);
      for (std::string line; std::getline(in, line);)
         lines.push_back(line);
      return lines;
   }
};

class ZivcatTool : public ::testing::Test {
  protected:
   ZivcatTool() {
      std::string name = (std::filesystem::temp_directory_path() / "zivcat-XXXXXX").string();
      EXPECT_NE(::mkdtemp(name.data()), nullptr);
      folder_ = name;
      ::setenv("TZ", "UTC", 1);
      monotonicNs = 100 * nsOfSecond;
      wallNs = 1'795'219'200 * nsOfSecond; // 2026-11-21 00:00:00 UTC
   }
   ~ZivcatTool() override { std::filesystem::remove_all(folder_); }

   std::string file(std::string const& name) const { return folder_ + "/" + name; }
   void open(Zivlog::TraceFile& trace, std::string const& name) const {
      ASSERT_EQ(trace.open(file(name), {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}), "");
   }
   static void pass(int64_t ns) {
      monotonicNs += static_cast<uint64_t>(ns);
      wallNs += ns;
   }
   // Traces one line, a second after the one before.
   static void say(Zivlog::TraceFile& trace, unsigned level, char const* facility, std::string const& text) {
      pass(nsOfSecond);
      trace.text(level, facility, "", 0, "", text);
   }
   Outcome run(std::string const& arguments) const {
      std::string const err = file("stderr");
      std::string const command = std::string(TOOL_PATH) + " " + arguments + " 2>" + err;
      FILE* const pipe = ::popen(command.c_str(), "r");
      Outcome outcome;
      std::array<char, 4096> part;
      for (size_t got; (got = std::fread(part.data(), 1, part.size(), pipe)) > 0;)
         outcome.out.append(part.data(), got);
      int const status = ::pclose(pipe);
      outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      std::ifstream in(err);
      outcome.err.assign(std::istreambuf_iterator<char>(in), {});
      return outcome;
   }

   std::string folder_;
};

TEST_F(ZivcatTool, printsALineForEachRecord) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   pass(1'500'000);
   trace.text(0, "VlanSm", "VlanSm.cpp", 12, "handleVlan", "vlan 10 failed");
   pass(nsOfSecond);
   std::string_view const fields[] = {"7", "added"};
   trace.row(5, Zivlog::registerFormat("mac", "%s %s", 2), fields);
   say(trace, 3, "", "no facility");
   Outcome const outcome = run(file("a.zv"));
   EXPECT_EQ(outcome.status, 0);
   EXPECT_EQ(outcome.err, "");
   EXPECT_THAT(outcome.lines(),
               ElementsAre("2026-11-21 00:00:00.001500 0 VlanSm: vlan 10 failed  [VlanSm.cpp:12 handleVlan]",
                           "2026-11-21 00:00:01.001500 5 mac: 7 added",
                           "2026-11-21 00:00:02.001500 3 no facility"));
}

TEST_F(ZivcatTool, timesAreLocalUnlessAskedOtherwise) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "text");
   ::setenv("TZ", "UTC-3", 1); // POSIX: three hours east
   EXPECT_THAT(run(file("a.zv")).out, StartsWith("2026-11-21 03:00:01.000000 0"));
   EXPECT_THAT(run("--utc " + file("a.zv")).out, StartsWith("2026-11-21 00:00:01.000000Z 0"));
}

TEST_F(ZivcatTool, whatCouldSteerATerminalIsEscaped) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F\x1b[2J", "one\ntwo\r\x7f \xff \xc2\x9b C:\\x \xc3\xa4");
   EXPECT_EQ(
       run(file("a.zv")).out,
       "2026-11-21 00:00:01.000000 0 F\\x1b[2J: one\\ntwo\\x0d\\x7f \\xff \\xc2\\x9b C:\\\\x \xc3\xa4\n");
   EXPECT_EQ(escaped("\xc0\x80 \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82"),
             "\\xc0\\x80 \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80 \\xe2\\x82");
   EXPECT_EQ(escaped("\xe2\x82\xac \xf0\x9f\x98\x80"), "\xe2\x82\xac \xf0\x9f\x98\x80");
}

TEST_F(ZivcatTool, whatCouldSteerATerminalIsEscapedInJsonAndInErrorsToo) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F",
       "a\xc2\x9b"
       "31m");
   EXPECT_THAT(run("--json " + file("a.zv")).out, HasSubstr("\"text\":\"a\\u009b31m\""));
   std::string const odd = "\"$(printf 'no\\033[31m\\nfile')\"";
   EXPECT_EQ(run(odd).err, "zivcat: no\\x1b[31m\\nfile: No such file or directory\n");
   EXPECT_EQ(run("x --level " + odd).err.find_first_of("\x1b\n"), run("x --level " + odd).err.size() - 1)
       << "one line";
}

TEST_F(ZivcatTool, outputThatIsNotWrittenIsAFailure) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "text");
   for (char const* option : {"", "--json ", "--info ", "--follow "}) {
      Outcome const outcome = run(option + file("a.zv") + " >/dev/full");
      EXPECT_EQ(outcome.status, 2) << option;
      EXPECT_EQ(outcome.err, "zivcat: standard output: No space left on device\n") << option;
   }
   EXPECT_EQ(run("--help >/dev/full").status, 2);
}

TEST_F(ZivcatTool, selectsByLevelAndFacility) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "VlanSm", "a");
   say(trace, 3, "VlanConfigSm", "b");
   say(trace, 9, "VlanSm", "c");
   say(trace, 3, "SubIntfSm", "d");
   auto const texts = [&](std::string const& options) {
      std::string all;
      for (std::string const& line : run(options + " " + file("a.zv")).lines())
         all += line.back();
      return all;
   };
   EXPECT_EQ(texts(""), "abcd");
   EXPECT_EQ(texts("--level 3"), "abd");
   EXPECT_EQ(texts("--level 0"), "a");
   EXPECT_EQ(texts("--facility Vlan"), "abc");
   EXPECT_EQ(texts("--facility '^VlanSm$'"), "ac");
   EXPECT_EQ(texts("--facility 'Sub|Config' --level 3"), "bd");
   EXPECT_EQ(texts("--tail 2"), "cd");
   EXPECT_EQ(texts("--tail 2 --facility Vlan"), "bc");
   EXPECT_EQ(texts("--tail 100"), "abcd");
}

TEST_F(ZivcatTool, nothingThatMatchesIsANo) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 5, "VlanSm", "a");
   Outcome const outcome = run("--level 4 " + file("a.zv"));
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(ZivcatTool, filesAreMergedByTimeAndNamed) {
   Zivlog::TraceFile first(steppedClocks), second(steppedClocks);
   open(first, "a.zv");
   open(second, "b.zv");
   say(first, 0, "F", "1");
   say(second, 9, "F", "2");
   say(first, 5, "F", "3");
   Outcome const outcome = run(file("b.zv") + " " + file("a.zv"));
   EXPECT_EQ(outcome.status, 0);
   EXPECT_THAT(outcome.lines(), ElementsAre("a.zv: 2026-11-21 00:00:01.000000 0 F: 1",
                                            "b.zv: 2026-11-21 00:00:02.000000 9 F: 2",
                                            "a.zv: 2026-11-21 00:00:03.000000 5 F: 3"));
}

TEST_F(ZivcatTool, aClockThatWasSetBackDoesNotChangeTheOrderWithinAFile) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "before");
   wallNs -= 3600 * nsOfSecond;
   say(trace, 0, "F", "after");
   EXPECT_THAT(run(file("a.zv")).lines(), ElementsAre("2026-11-21 00:00:01.000000 0 F: before",
                                                      "2026-11-20 23:00:02.000000 0 F: after"));
}

TEST_F(ZivcatTool, jsonIsOneObjectALine) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   pass(1'234'567);
   trace.text(0, "VlanSm", "VlanSm.cpp", 12, "handleVlan", "bad byte \xff\n");
   std::string_view const fields[] = {"7", "added"};
   trace.row(5, Zivlog::registerFormat("mac", "%s %s", 2), fields);
   Outcome const outcome = run("--json " + file("a.zv"));
   EXPECT_EQ(outcome.status, 0);
   auto const lines = outcome.lines();
   ASSERT_EQ(lines.size(), 2u);
   EXPECT_EQ(nlohmann::json::parse(lines[0]), (nlohmann::json{{"time", "2026-11-21T00:00:00.001234567Z"},
                                                              {"monotonicNs", 100'001'234'567},
                                                              {"sequence", 1},
                                                              {"level", 0},
                                                              {"facility", "VlanSm"},
                                                              {"text", "bad byte \xef\xbf\xbd\n"},
                                                              {"file", "VlanSm.cpp"},
                                                              {"line", 12},
                                                              {"function", "handleVlan"}}));
   EXPECT_EQ(nlohmann::json::parse(lines[1])["fields"], (nlohmann::json{"7", "added"}));
   EXPECT_EQ(nlohmann::json::parse(lines[1])["facility"], "mac");
}

TEST_F(ZivcatTool, infoShowsHowFarBackEachLevelReaches) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "first");
   for (int i = 0; i < 500; ++i)
      say(trace, 9, "F", "busy");
   Outcome const living = run("--info --json " + file("a.zv"));
   EXPECT_EQ(living.status, 0);
   auto const json = nlohmann::json::parse(living.out);
   EXPECT_EQ(json["pid"], ::getpid());
   EXPECT_EQ(json["program"], "zivcat_test");
   EXPECT_EQ(json["state"], "being written");
   EXPECT_EQ(json["started"], "2026-11-21T00:00:00.000000000Z");
   EXPECT_EQ(json["levels"][0], (nlohmann::json{{"level", 0},
                                                {"bytes", 4096},
                                                {"held", 1},
                                                {"overwritten", 0},
                                                {"oldest", "2026-11-21T00:00:01.000000000Z"}}));
   EXPECT_EQ(json["levels"][1],
             (nlohmann::json{{"level", 1}, {"bytes", 4096}, {"held", 0}, {"overwritten", 0}}));
   unsigned const held = json["levels"][9]["held"];
   EXPECT_EQ(json["levels"][9]["overwritten"], 500 - held);
   EXPECT_GT(held, 50u);
   EXPECT_LT(held, 100u);

   trace.close();
   Outcome const closed = run("--info " + file("a.zv"));
   EXPECT_EQ(closed.status, 0);
   EXPECT_THAT(closed.out, HasSubstr("zivcat_test, pid " + std::to_string(::getpid()) + ", closed\n"));
   EXPECT_THAT(closed.out,
               HasSubstr("started 2026-11-21 00:00:00.000000, closed 2026-11-21 00:08:21.000000\n"));
   EXPECT_THAT(closed.out, HasSubstr("    0         4         1            0  2026-11-21 00:00:01.000000\n"));
   EXPECT_THAT(closed.out, HasSubstr("    1         4         0            0  -\n"));
}

TEST_F(ZivcatTool, infoOfAKilledProcessSaysSo) {
   pid_t const child = ::fork();
   if (child == 0) {
      Zivlog::TraceFile trace;
      if (!trace.open(file("a.zv"), {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}).empty())
         ::_exit(1);
      trace.text(0, "F", "", 0, "", "last words");
      ::kill(::getpid(), SIGKILL);
   }
   ASSERT_EQ(::waitpid(child, nullptr, 0), child);
   EXPECT_THAT(run("--info " + file("a.zv")).out,
               HasSubstr("pid " + std::to_string(child) + ", ended without closing\n"));
   EXPECT_THAT(run(file("a.zv")).out, HasSubstr(" 0 F: last words\n"));
}

TEST_F(ZivcatTool, aFileThatIsNoTraceFileIsNamedAndTheOthersArePrinted) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "good");
   std::ofstream(file("notes")) << "milk, bread";
   Outcome const outcome = run(file("notes") + " " + file("a.zv"));
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "zivcat: " + file("notes") + ": not a trace file\n");
   EXPECT_THAT(outcome.out, HasSubstr("F: good\n"));
}

TEST_F(ZivcatTool, aFileThatIsNotThereIsNamed) {
   Outcome const outcome = run(file("none.zv"));
   EXPECT_EQ(outcome.status, 4);
   EXPECT_EQ(outcome.err, "zivcat: " + file("none.zv") + ": No such file or directory\n");
   EXPECT_EQ(outcome.out, "");
   EXPECT_EQ(run("--info " + file("none.zv")).status, 4);
   EXPECT_EQ(run("--follow " + file("none.zv")).status, 4);
}

TEST_F(ZivcatTool, aFileCutShortGivesWhatIsLeftAndAWarning) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "kept");
   say(trace, 9, "F", "lost");
   trace.close();
   std::filesystem::resize_file(file("a.zv"), std::filesystem::file_size(file("a.zv")) - 4096);
   Outcome const outcome = run(file("a.zv"));
   EXPECT_EQ(outcome.status, 0);
   EXPECT_EQ(outcome.err, "zivcat: " + file("a.zv") + ": cut short, 4096 bytes are missing\n");
   EXPECT_THAT(outcome.lines(), ElementsAre("2026-11-21 00:00:01.000000 0 F: kept"));
}

TEST_F(ZivcatTool, wrongUsageIsTwo) {
   EXPECT_EQ(run("").status, 2);
   EXPECT_EQ(run("--level 10 x").status, 2);
   EXPECT_EQ(run("--level -1 x").status, 2);
   EXPECT_EQ(run("--tail many x").status, 2);
   EXPECT_EQ(run("--no-such x").status, 2);
   EXPECT_EQ(run("--info --follow x").status, 2);
   Outcome const outcome = run("--facility '(' x");
   EXPECT_EQ(outcome.status, 2);
   EXPECT_EQ(outcome.err, "zivcat: --facility: not a regular expression: (\n");
}

TEST_F(ZivcatTool, helpAndVersion) {
   Outcome const help = run("--help");
   EXPECT_EQ(help.status, 0);
   EXPECT_THAT(help.out, HasSubstr("Exit status: 0 done; 1 nothing matched"));
   Outcome const version = run("--version");
   EXPECT_EQ(version.status, 0);
   EXPECT_EQ(version.out, "zivcat " VORN_VERSION "\n");
}

// What zivcat --follow prints, read a line at a time; it is ended with the object.
class Follower {
  public:
   Follower(std::string const& option, std::string const& path) {
      int ends[2];
      EXPECT_EQ(::pipe(ends), 0);
      child_ = ::fork();
      if (child_ == 0) {
         ::dup2(ends[1], STDOUT_FILENO);
         ::execl(TOOL_PATH, "zivcat", "--follow", option.c_str(), path.c_str(), static_cast<char*>(nullptr));
         ::_exit(127);
      }
      ::close(ends[1]);
      out_ = ::fdopen(ends[0], "r");
   }
   Follower(Follower const&) = delete;
   Follower& operator=(Follower const&) = delete;
   ~Follower() {
      ::kill(child_, SIGKILL);
      ::waitpid(child_, nullptr, 0);
      std::fclose(out_);
   }
   // Waits for a line; returns its text behind the facility.
   std::string next() {
      char line[1000];
      if (!std::fgets(line, sizeof(line), out_))
         return "ended";
      std::string const text(line, std::strlen(line) - 1);
      return text.substr(text.find("F: ") + 3);
   }

  private:
   pid_t child_;
   FILE* out_;
};

TEST_F(ZivcatTool, followPrintsWhatIsTracedLaterAlsoByANewProcess) {
   auto trace = std::make_unique<Zivlog::TraceFile>(steppedClocks);
   open(*trace, "a.zv");
   say(*trace, 0, "F", "old");
   say(*trace, 0, "F", "before");
   Follower follower("--tail=1", file("a.zv"));
   EXPECT_EQ(follower.next(), "before");
   say(*trace, 9, "F", "first");
   say(*trace, 0, "F", "second");
   EXPECT_EQ(follower.next(), "first");
   EXPECT_EQ(follower.next(), "second");
   trace = std::make_unique<Zivlog::TraceFile>(steppedClocks);
   open(*trace, "a.zv");
   say(*trace, 0, "F", "of the new file");
   EXPECT_EQ(follower.next(), "of the new file");
}

// The levels of a living file are read one after the other, so the newest records may be caught in part.
// Those that the writer has not yet counted wait, so that none of them is passed over.
TEST_F(ZivcatTool, recordsThatAreNotYetCountedWaitWhileTheFileIsBeingWritten) {
   Zivlog::TraceFile trace(steppedClocks);
   open(trace, "a.zv");
   say(trace, 0, "F", "counted");
   say(trace, 0, "F", "being written");
   uint64_t const counted = 1;
   std::fstream bytes(file("a.zv"), std::ios::in | std::ios::out | std::ios::binary);
   bytes.seekp(static_cast<std::streamoff>(Zivlog::FileLayout::pageBytes));
   bytes.write(reinterpret_cast<char const*>(&counted), sizeof(counted));
   bytes.close();
   EXPECT_THAT(run(file("a.zv")).lines(), ElementsAre("2026-11-21 00:00:01.000000 0 F: counted"));
   trace.close();
   EXPECT_EQ(run(file("a.zv")).lines().size(), 2u);
}

// A follower of a writer that goes on all the time gets every record, once and in order, whatever its level.
TEST_F(ZivcatTool, followMissesNothingThatIsTracedMeanwhile) {
   Zivlog::TraceFile trace;
   ASSERT_EQ(trace.open(file("a.zv"), {4000, 4000, 4000, 4000, 4000, 4000, 4000, 4000, 4000, 4000}), "");
   trace.text(0, "F", "", 0, "", "0");
   Follower follower("--level=9", file("a.zv"));
   ASSERT_EQ(follower.next(), "0");
   // Two microseconds for each, so that zivcat loads the file a few times while it changes.
   constexpr int count = 300'000;
   uint64_t due = Zivlog::systemClocks.monotonicNs();
   for (int i = 1; i <= count; ++i) {
      trace.text(static_cast<unsigned>(i % 10), "F", "", 0, "", std::to_string(i));
      for (due += 2000; Zivlog::systemClocks.monotonicNs() < due;)
         ;
   }
   for (int i = 1; i <= count; ++i)
      ASSERT_EQ(follower.next(), std::to_string(i));
}

} // namespace
} // namespace Zivcat

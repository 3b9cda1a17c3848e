// The tool as users have it: its output, its errors, its exit status.
#include "Plaze/TableType.h"
#include "Plaze/TestTable.h"
#include "Plaze/Writer.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

// The tool in a process of its own, its output in a pipe.
class RunningTool {
  public:
   explicit RunningTool(std::vector<std::string> arguments) {
      int out[2], err[2];
      if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
         abort();
      arguments.insert(arguments.begin(), TOOL_PATH);
      std::vector<char*> argv;
      for (auto& argument : arguments)
         argv.push_back(argument.data());
      argv.push_back(nullptr);
      pid_ = fork();
      if (pid_ == 0) {
         dup2(out[1], 1);
         dup2(err[1], 2);
         execv(TOOL_PATH, argv.data());
         _exit(127);
      }
      close(out[1]);
      close(err[1]);
      out_ = out[0];
      err_ = err[0];
   }
   ~RunningTool() {
      if (pid_ > 0) {
         kill(pid_, SIGKILL);
         waitpid(pid_, nullptr, 0);
      }
      close(out_);
      close(err_);
   }
   // The next line of output; empty when none comes within ten seconds.
   std::string line() {
      for (;;) {
         if (size_t const end = text_.find('\n'); end != text_.npos) {
            std::string const found = text_.substr(0, end);
            text_.erase(0, end + 1);
            return found;
         }
         pollfd ready{out_, POLLIN, 0};
         char bytes[4096];
         ssize_t const got = poll(&ready, 1, 10000) > 0 ? read(out_, bytes, sizeof(bytes)) : 0;
         if (got <= 0)
            return "";
         text_.append(bytes, static_cast<size_t>(got));
      }
   }
   static std::string rest(int fd) {
      std::string all;
      char bytes[4096];
      for (ssize_t got; (got = read(fd, bytes, sizeof(bytes))) > 0;)
         all.append(bytes, static_cast<size_t>(got));
      return all;
   }
   int end() {
      int status = 0;
      waitpid(pid_, &status, 0);
      pid_ = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   }
   int out() const { return out_; }
   int err() const { return err_; }

  private:
   pid_t pid_;
   int out_, err_;
   std::string text_;
};

class PlazectlTest : public testing::Test {
  protected:
   int run(std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(), {"--root", directory_.root(), "--system", "ar"});
      RunningTool tool(std::move(arguments));
      out_ = RunningTool::rest(tool.out());
      err_ = RunningTool::rest(tool.err());
      return tool.end();
   }
   void createHosts() { ASSERT_EQ(run({"create", "bridging/status", "Plaze::Bridging::Status"}), 0) << err_; }

   Plaze::TestDirectory directory_;
   std::string file_ = directory_.root() + "/ar/Plaze/bridging/status";
   std::string out_, err_;
};

TEST_F(PlazectlTest, PutsGetsAndRemovesRows) {
   createHosts();
   EXPECT_EQ(run({"get", "bridging/status"}), 0);
   EXPECT_EQ(out_, "{}\n");
   EXPECT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:01",
                  R"({"addr": "00:1C:73:00:00:01", "intf": "Ethernet3/1", "moves": 2})"}),
             0)
       << err_;
   EXPECT_EQ(out_ + err_, "");
   EXPECT_EQ(run({"put", "bridging/status", "9/00:1c:73:00:00:01", R"({"intf": "Peer Tunnel"})"}), 0) << err_;
   EXPECT_EQ(run({"get", "bridging/status", "10/00:1c:73:00:00:01"}), 0) << err_;
   Json const row = Json::parse(out_);
   EXPECT_EQ(row["addr"], "00:1c:73:00:00:01");
   EXPECT_EQ(row["intf"], "Ethernet3/1");
   EXPECT_EQ(row["moves"], 2);
   EXPECT_EQ(row["entryType"], "learnedMac") << "the default";
   EXPECT_EQ(run({"get", "bridging/status"}), 0);
   Json const rows = Json::parse(out_);
   EXPECT_EQ(rows.size(), 2u);
   EXPECT_EQ(rows["9/00:1c:73:00:00:01"]["intf"], "Peer Tunnel");
   EXPECT_LT(out_.find("\"9/"), out_.find("\"10/")) << "natural order";
   EXPECT_EQ(run({"del", "bridging/status", "10/00:1c:73:00:00:01"}), 0) << err_;
   EXPECT_EQ(run({"get", "bridging/status", "10/00:1c:73:00:00:01"}), 1);
   EXPECT_EQ(err_, "plazectl: " + file_ + ": there is no entry 10/00:1c:73:00:00:01\n");
   EXPECT_EQ(run({"del", "bridging/status", "10/00:1c:73:00:00:01"}), 1);
}

TEST_F(PlazectlTest, CountersHaveTheirOwnKeys) {
   std::string const path = "interface/counter/subintf/current";
   EXPECT_EQ(run({"create", path, "Plaze::Interface::AllIntfCounterDir", "--capacity", "4"}), 0) << err_;
   EXPECT_EQ(run({"put", path, "Ethernet1.10", R"({"inOctets": 18446744073709551615})"}), 0) << err_;
   EXPECT_EQ(run({"get", path, "Ethernet1.10"}), 0) << err_;
   EXPECT_EQ(Json::parse(out_)["inOctets"].get<uint64_t>(), 18446744073709551615u);
   EXPECT_EQ(Json::parse(out_)["outDiscards"], 0);
}

TEST_F(PlazectlTest, ListsAndDescribesTables) {
   EXPECT_EQ(run({"ls"}), 1);
   EXPECT_EQ(err_, "plazectl: " + directory_.root() + "/ar/Plaze: the system has no tables\n");
   createHosts();
   EXPECT_EQ(run({"create", "interface/counter/subintf/current", "Plaze::Interface::AllIntfCounterDir"}), 0);
   Plaze::fileBytesIs(directory_.root() + "/ar/Plaze/bridging/notes", "no table");
   EXPECT_EQ(run({"ls"}), 0);
   EXPECT_EQ(out_, "bridging/notes\nbridging/status\ninterface/counter/subintf/current\n");
   EXPECT_EQ(run({"--json", "ls"}), 0);
   Json const all = Json::parse(out_);
   ASSERT_EQ(all.size(), 3u);
   EXPECT_THAT(all[0]["error"].get<std::string>(), HasSubstr("is no table"));
   EXPECT_EQ(all[1]["type"], "Plaze::Bridging::Status");

   EXPECT_EQ(run({"info", "bridging/status"}), 0);
   EXPECT_THAT(out_, HasSubstr("type                Plaze::Bridging::Status\n"));
   EXPECT_THAT(out_, HasSubstr("capacity            1024\n"));
   EXPECT_EQ(run({"info", "bridging/status", "--json"}), 0);
   Json const info = Json::parse(out_);
   EXPECT_EQ(info["entries"], 0);
   EXPECT_EQ(info["unreadableEntries"], 0);
   EXPECT_EQ(info["generation"], 1);
   EXPECT_EQ(info["isReadable"], true);
   EXPECT_EQ(info["file"], file_);
}

TEST_F(PlazectlTest, ErrorsAreOneLineAndNameThePlace) {
   createHosts();
   auto const fails = [&](int status, std::vector<std::string> arguments) {
      EXPECT_EQ(run(arguments), status) << arguments[0] << ' ' << err_;
      EXPECT_EQ(std::count(err_.begin(), err_.end(), '\n'), 1) << err_;
      EXPECT_THAT(err_, StartsWith("plazectl: "));
      return err_;
   };
   std::string const key = "10/00:1c:73:00:00:01";
   EXPECT_THAT(fails(1, {"get", "bridging/other"}),
               HasSubstr("/bridging/other: there is no table of that name"));
   EXPECT_THAT(fails(1, {"put", "bridging/other", key, "{}"}), HasSubstr("there is no table of that name"));
   EXPECT_THAT(fails(2, {"get", "../status"}), HasSubstr("\"../status\" is no path of a table"));
   EXPECT_THAT(fails(3, {"create", "x", "Plaze::Nothing"}),
               HasSubstr("no type of table is Plaze::Nothing; there are Plaze::Bridging::Status"));
   EXPECT_THAT(fails(3, {"create", "bridging/status", "Plaze::Interface::AllIntfCounterDir"}),
               HasSubstr("holds Plaze::Bridging::Status, not Plaze::Interface::AllIntfCounterDir"));
   EXPECT_THAT(fails(3, {"put", "bridging/status", "ten", "{}"}), HasSubstr("key ten: "));
   EXPECT_THAT(fails(3, {"put", "bridging/status", key, "{"}),
               HasSubstr("bridging/status[" + key + "]: no JSON: "));
   EXPECT_THAT(fails(3, {"put", "bridging/status", key, R"({"moves": -1})"}),
               HasSubstr("bridging/status[" + key + "].moves: "));
   EXPECT_THAT(fails(3, {"put", "bridging/status", key, R"({"port": "Ethernet1"})"}), HasSubstr("port"));
   EXPECT_EQ(run({"get", "bridging/status"}), 0);
   EXPECT_EQ(out_, "{}\n") << "nothing was half done";

   setenv("PLAZE_ROOT", directory_.root().c_str(), 1);
   RunningTool badSystem({"--system", "a/b", "get", "x"}), hostSystem({"ls"});
   unsetenv("PLAZE_ROOT");
   EXPECT_EQ(RunningTool::rest(badSystem.err()), "plazectl: \"a/b\" is no system name\n");
   EXPECT_EQ(badSystem.end(), 2);
   char host[256] = "";
   gethostname(host, sizeof(host) - 1);
   EXPECT_EQ(RunningTool::rest(hostSystem.err()),
             "plazectl: " + directory_.root() + "/" + host + "/Plaze: the system has no tables\n");
   EXPECT_EQ(hostSystem.end(), 1);

   EXPECT_EQ(run({}), 2);
   EXPECT_EQ(run({"put", "bridging/status"}), 2);
   EXPECT_EQ(run({"create", "x", "y", "--capacity", "0"}), 2);
   EXPECT_EQ(run({"--help"}), 0);
   EXPECT_THAT(out_, HasSubstr("Exit status"));
   EXPECT_EQ(run({"--version"}), 0);
   EXPECT_EQ(out_, "plazectl " VORN_VERSION "\n");
}

TEST_F(PlazectlTest, WhatCouldSteerATerminalIsEscaped) {
   createHosts();
   EXPECT_EQ(run({"get", "no\x1b[31m\ntable"}), 1);
   EXPECT_THAT(err_, HasSubstr("/no\\x1b[31m\\ntable: there is no table of that name\n"));
   EXPECT_EQ(run({"put", "bridging/status", "te\x1bn", "{}"}), 3);
   EXPECT_THAT(err_, HasSubstr("key te\\x1bn: "));
   EXPECT_EQ(run({"--no\x1bsuch"}), 2);
   EXPECT_EQ(err_.find('\x1b'), err_.npos);
   // A table that somebody has given such a name.
   Plaze::Writer(directory_.path("ar/Plaze/o\xc2\x9b"
                                 "dd"),
                 Plaze::tableType("Plaze::Bridging::Status")->shape());
   EXPECT_EQ(run({"ls"}), 0);
   EXPECT_EQ(out_, "bridging/status\no\\xc2\\x9bdd\n");
   EXPECT_EQ(run({"--json", "ls"}), 0);
   EXPECT_THAT(out_, HasSubstr("\"path\": \"o\\u009bdd\""));
}

TEST_F(PlazectlTest, OutputThatIsNotWrittenIsAFailure) {
   createHosts();
   std::string const tool = std::string(TOOL_PATH) + " --root " + directory_.root() + " --system ar ";
   std::string const errors = directory_.path("errors");
   for (char const* command :
        {"ls", "info bridging/status", "get bridging/status", "watch bridging/status", "--help"}) {
      // At first there is nothing for watch to print, so it goes on; a row makes it print.
      ASSERT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:01", "{}"}), 0) << err_;
      int const status = std::system((tool + command + " >/dev/full 2>" + errors).c_str());
      EXPECT_EQ(WEXITSTATUS(status), 4) << command;
      EXPECT_EQ(Plaze::fileBytes(errors), "plazectl: standard output: No space left on device\n") << command;
   }
}

TEST_F(PlazectlTest, TableOfAnotherUserIsReportedAsThatTablesError) {
   createHosts();
   std::filesystem::rename(file_, directory_.path("elsewhere"));
   std::filesystem::create_symlink(directory_.path("elsewhere"), file_);
   for (char const* command : {"get", "info"}) {
      EXPECT_EQ(run({command, "bridging/status"}), 3);
      EXPECT_EQ(err_, "plazectl: " + file_ + ": is a symbolic link\n");
   }
   EXPECT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:01", "{}"}), 3);
   EXPECT_EQ(err_, "plazectl: " + file_ + ": is a symbolic link\n");
}

TEST_F(PlazectlTest, TableOfALiveWriterIsReadButNotWritten) {
   Plaze::Writer writer(file_, Plaze::tableType("Plaze::Bridging::Status")->shape());
   EXPECT_EQ(run({"get", "bridging/status"}), 0);
   EXPECT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:01", "{}"}), 3);
   EXPECT_EQ(err_, "plazectl: " + file_ + ": process " + std::to_string(getpid()) + " writes it\n");
}

TEST_F(PlazectlTest, DamagedEntriesAreReportedAndTheOthersPrinted) {
   createHosts();
   EXPECT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:01", "{}"}), 0);
   EXPECT_EQ(run({"put", "bridging/status", "10/00:1c:73:00:00:02", "{}"}), 0);
   std::string bytes = Plaze::fileBytes(file_);
   ASSERT_NE(bytes[4096], 0) << "the sequence of the first slot";
   bytes[4096] = static_cast<char>(bytes[4096] | 1);
   Plaze::fileBytesIs(file_, bytes);
   EXPECT_EQ(run({"get", "bridging/status"}), 3);
   EXPECT_EQ(Json::parse(out_).size(), 1u);
   EXPECT_EQ(err_, "plazectl: " + file_ + ": 1 entries can't be read\n");
   EXPECT_EQ(run({"info", "bridging/status", "--json"}), 0);
   EXPECT_EQ(Json::parse(out_)["unreadableEntries"], 1);
   bytes.resize(5000);
   Plaze::fileBytesIs(file_, bytes);
   EXPECT_EQ(run({"get", "bridging/status"}), 3);
   EXPECT_THAT(err_, HasSubstr("is cut short"));
}

TEST_F(PlazectlTest, WatchPrintsRowsAndThenChanges) {
   createHosts();
   std::string const one = "10/00:1c:73:00:00:01", two = "10/00:1c:73:00:00:02";
   EXPECT_EQ(run({"put", "bridging/status", one, R"({"intf": "Ethernet1"})"}), 0);
   RunningTool watch({"--root", directory_.root(), "--system", "ar", "watch", "bridging/status"});
   auto next = [&] {
      std::string const line = watch.line();
      return line.empty() ? Json() : Json::parse(line);
   };
   Json line = next();
   EXPECT_EQ(line["key"], one);
   EXPECT_EQ(line["value"]["intf"], "Ethernet1");
   EXPECT_EQ(run({"put", "bridging/status", two, R"({"intf": "Ethernet2"})"}), 0);
   line = next();
   EXPECT_EQ(line["key"], two);
   EXPECT_EQ(line["value"]["intf"], "Ethernet2");
   EXPECT_EQ(run({"del", "bridging/status", one}), 0);
   EXPECT_EQ(next(), Json({{"key", one}, {"deleted", true}}));
   std::filesystem::remove(file_);
   EXPECT_EQ(next(), Json({{"key", two}, {"deleted", true}}));
   createHosts();
   EXPECT_EQ(run({"put", "bridging/status", one, R"({"intf": "Ethernet7"})"}), 0);
   EXPECT_EQ(next()["value"]["intf"], "Ethernet7");
}

} // namespace

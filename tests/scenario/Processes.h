// Real processes for scenario tests: each on a private socket in a temporary folder, none left behind.
//
//    Scenario::Database database;                        // ordeld, running and ready
//    auto result = database.ctl({"get", "bridging/config.hostAgingTime"});
//    EXPECT_EQ(result.output, "300\n");
//
// Nothing here sleeps: output is waited for. Waiting has a limit, after which it fails; the limits are long,
// since they are only reached when something is wrong.
//
// The test moves into a network of its own, where it may, before it starts its first process.
#pragma once

#include "tests/network/OwnNetwork.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Scenario {

using Seconds = std::chrono::duration<double>;
inline constexpr Seconds limit{30};

// A folder that is removed at the end with all that is in it.
class TempFolder {
  public:
   TempFolder() {
      char const* const base = std::getenv("TMPDIR");
      path_ = std::string(base && *base ? base : "/tmp") + "/scenario.XXXXXX";
      if (!::mkdtemp(path_.data()))
         ADD_FAILURE() << path_ << ": " << std::strerror(errno);
   }
   ~TempFolder() { std::filesystem::remove_all(path_); }
   TempFolder(TempFolder const&) = delete;
   TempFolder& operator=(TempFolder const&) = delete;

   std::string const& path() const { return path_; }
   std::string file(std::string const& name) const { return path_ + "/" + name; }
   // Writes a file and returns its path.
   std::string fileOf(std::string const& name, std::string_view contents) const {
      std::ofstream(file(name), std::ios::binary) << contents;
      return file(name);
   }

  private:
   std::string path_;
};

// What came out of a pipe so far; a thread reads it, so that the process never has to wait.
class Pipe {
  public:
   explicit Pipe(int descriptor) : thread_([this, descriptor] { read(descriptor); }) {}
   ~Pipe() { thread_.join(); }

   std::string text() {
      std::lock_guard const lock(mutex_);
      return text_;
   }
   // False when it hasn't come before the end of the output or the limit.
   bool waitFor(std::string_view wanted, Seconds timeout) {
      std::unique_lock lock(mutex_);
      auto const isThere = [&] { return text_.find(wanted) != std::string::npos; };
      changed_.wait_for(lock, timeout, [&] { return isAtEnd_ || isThere(); });
      return isThere();
   }
   // The next line, without its end. Nothing at the end of the output or the limit.
   std::optional<std::string> readLine(Seconds timeout) {
      std::unique_lock lock(mutex_);
      size_t end = std::string::npos;
      auto const isWhole = [&] { return (end = text_.find('\n', taken_)) != std::string::npos; };
      changed_.wait_for(lock, timeout, [&] { return isWhole() || isAtEnd_; });
      if (end == std::string::npos)
         return std::nullopt;
      std::string line = text_.substr(taken_, end - taken_);
      taken_ = end + 1;
      return line;
   }
   void waitForEnd() {
      std::unique_lock lock(mutex_);
      changed_.wait_for(lock, limit, [&] { return isAtEnd_; });
   }

  private:
   void read(int descriptor) {
      char piece[4096];
      for (ssize_t count; (count = ::read(descriptor, piece, sizeof piece)) > 0;) {
         std::lock_guard const lock(mutex_);
         text_.append(piece, static_cast<size_t>(count));
         changed_.notify_all();
      }
      ::close(descriptor);
      std::lock_guard const lock(mutex_);
      isAtEnd_ = true;
      changed_.notify_all();
   }

   std::mutex mutex_;
   std::condition_variable changed_;
   std::string text_;
   size_t taken_ = 0; // by readLine
   bool isAtEnd_ = false;
   std::thread thread_; // last, so that it finds the rest made
};

using Environment = std::map<std::string, std::string>;

class Process {
  public:
   // Starts it; `command` begins with the path of the program. What the environment adds is before the rest.
   explicit Process(std::vector<std::string> const& command, Environment const& environment = {}) {
      static_cast<void>(Tests::isInOwnNetwork());
      int in[2], out[2], err[2];
      if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC)) {
         ADD_FAILURE() << "pipe: " << std::strerror(errno);
         return;
      }
      // Everything that allocates is done before the fork.
      std::vector<char*> arguments;
      for (std::string const& argument : command)
         arguments.push_back(const_cast<char*>(argument.c_str()));
      arguments.push_back(nullptr);
      std::vector<std::string> variables;
      for (auto const& [name, value] : environment)
         variables.push_back(name + "=" + value);
      for (char** variable = environ; *variable; ++variable)
         if (!environment.count(std::string(*variable, std::strcspn(*variable, "="))))
            variables.push_back(*variable);
      std::vector<char*> variablePointers;
      for (std::string& variable : variables)
         variablePointers.push_back(variable.data());
      variablePointers.push_back(nullptr);
      pid_ = ::fork();
      if (pid_ == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         ::dup2(in[0], 0);
         ::dup2(out[1], 1);
         ::dup2(err[1], 2);
         ::execve(arguments[0], arguments.data(), variablePointers.data());
         ::_exit(127);
      }
      ::close(in[0]);
      ::close(out[1]);
      ::close(err[1]);
      input_ = in[1];
      output_ = std::make_unique<Pipe>(out[0]);
      errors_ = std::make_unique<Pipe>(err[0]);
   }
   ~Process() {
      closeInput();
      if (isRunning()) {
         ::kill(pid_, SIGKILL);
         wait();
      }
   }
   Process(Process const&) = delete;
   Process& operator=(Process const&) = delete;

   pid_t pid() const { return pid_; }
   // To its standard input.
   void write(std::string_view text) {
      std::signal(SIGPIPE, SIG_IGN);
      while (!text.empty()) {
         ssize_t const count = ::write(input_, text.data(), text.size());
         if (count < 0)
            return; // it has ended; its status shows why
         text.remove_prefix(static_cast<size_t>(count));
      }
   }
   void closeInput() {
      if (input_ >= 0)
         ::close(std::exchange(input_, -1));
   }

   Pipe& output() { return *output_; }
   Pipe& errors() { return *errors_; }
   std::optional<std::string> readLine(Seconds timeout = limit) { return output_->readLine(timeout); }

   void signal(int number) {
      if (!status_)
         ::kill(pid_, number);
   }
   bool isRunning() {
      if (pid_ > 0 && !status_) {
         int status = 0;
         if (::waitpid(pid_, &status, WNOHANG) == pid_)
            statusIs(status);
      }
      return pid_ > 0 && !status_;
   }
   // The exit status, or 128 and the number of the signal that ended it; all output has been read then. A
   // process that doesn't end within the limit is killed, and the test fails.
   int wait() {
      if (pid_ <= 0)
         return -1;
      if (!status_) {
         std::thread killer([this] {
            std::unique_lock lock(endMutex_);
            if (!ended_.wait_for(lock, limit, [this] { return hasEnded_; })) {
               ADD_FAILURE() << "process " << pid_ << " doesn't end";
               ::kill(pid_, SIGKILL);
            }
         });
         int status = 0;
         siginfo_t info;
         ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT); // its number is still taken
         {
            std::lock_guard const lock(endMutex_);
            hasEnded_ = true;
         }
         ended_.notify_all();
         killer.join();
         ::waitpid(pid_, &status, 0);
         statusIs(status);
      }
      output_->waitForEnd();
      errors_->waitForEnd();
      return *status_;
   }

  private:
   void statusIs(int status) { status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status); }

   pid_t pid_ = -1;
   int input_ = -1;
   std::unique_ptr<Pipe> output_;
   std::unique_ptr<Pipe> errors_;
   std::optional<int> status_;
   std::mutex endMutex_;
   std::condition_variable ended_;
   bool hasEnded_ = false;
};

struct Result {
   int status;
   std::string output;
   std::string errors;
};

// Runs a program to its end.
inline Result run(std::vector<std::string> const& command, std::string_view input = {},
                  Environment const& environment = {}) {
   Process process(command, environment);
   process.write(input);
   process.closeInput();
   int const status = process.wait();
   return {status, process.output().text(), process.errors().text()};
}

inline std::string program(std::string const& name) {
   return std::string(PROGRAM_FOLDER) + "/" + name;
}

// A state database on a socket in a folder of its own.
class Database {
  public:
   explicit Database(std::vector<std::string> arguments = {}) : arguments_(std::move(arguments)) { start(); }

   std::string socket() const { return folder_.file("ordel.sock"); }
   TempFolder const& folder() const { return folder_; }
   Process& process() { return *process_; }
   Environment environment() const { return {{"ORDEL_SOCKET", socket()}}; }

   // Returns when it is ready.
   void start() {
      std::vector<std::string> command{program("ordeld"), "--socket", socket()};
      command.insert(command.end(), arguments_.begin(), arguments_.end());
      process_ = std::make_unique<Process>(command);
      if (!process_->errors().waitFor("ready", limit))
         ADD_FAILURE() << "ordeld did not start: " << process_->errors().text();
   }
   // Ends it in good order and returns its exit status.
   int stop() {
      process_->signal(SIGTERM);
      return process_->wait();
   }
   void kill() {
      process_->signal(SIGKILL);
      process_->wait();
   }

   // ordelctl on this database.
   Result ctl(std::vector<std::string> const& arguments, std::string_view input = {}) const {
      return run(ctlCommand(arguments), input, environment());
   }
   std::unique_ptr<Process> startCtl(std::vector<std::string> const& arguments) const {
      return std::make_unique<Process>(ctlCommand(arguments), environment());
   }
   // What `get` prints, on one line and without its end; the error where there is one.
   std::string get(std::string const& selector) const {
      Result const result = ctl({"get", selector});
      std::string text = result.status == 0 ? result.output : result.errors;
      while (!text.empty() && text.back() == '\n')
         text.pop_back();
      return text;
   }

  private:
   static std::vector<std::string> ctlCommand(std::vector<std::string> const& arguments) {
      std::vector<std::string> command{program("ordelctl")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      return command;
   }

   TempFolder folder_;
   std::vector<std::string> arguments_;
   std::unique_ptr<Process> process_;
};

// An agent on a database. The constructor returns when the agent is ready.
class Agent {
  public:
   explicit Agent(Database const& database, std::vector<std::string> const& arguments = {}) {
      std::vector<std::string> command{program("agent-runner"), "--module",
                                       std::string(MODULE_FOLDER) + "/libVorn.so"};
      command.insert(command.end(), arguments.begin(), arguments.end());
      Environment environment = database.environment();
      environment["ZIVLOGDIR"] = database.folder().path();
      process_ = std::make_unique<Process>(command, environment);
      if (!process_->errors().waitFor("ready", limit))
         ADD_FAILURE() << "the agent did not start: " << process_->errors().text();
   }
   Process& process() { return *process_; }

  private:
   std::unique_ptr<Process> process_;
};

} // namespace Scenario

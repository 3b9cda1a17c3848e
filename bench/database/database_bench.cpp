// What the state database costs, next to a bare relay of the same frames, both measured in the same run: on a
// shared machine only the ratio means something. See bench/README.md.
//
//    database_bench [--repeat N] [--records N]
#include "Relay.h"

#include "Kem/Time.h"
#include "Ordel/client/Connection.h"
#include "Ordel/wire/OperationWriter.h"
#include "Sulvi/IntfId.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Bench::connectTo;

constexpr char path[] = "interface/errdisable/cause/link-flap";
constexpr char attributeName[] = "intfStatus"; // by interface, a time: 4 + 8 bytes
constexpr size_t operationBytes = 2 + 4 + 8;

uint8_t attributeNumber() {
   return static_cast<uint8_t>(Records::schema().entity("Errdisable::CauseStatus")->find(attributeName));
}

void putOperation(Wire::Writer& out, uint32_t number, double value) {
   static uint8_t const attribute = attributeNumber();
   Ordel::OperationWriter(out).begin(Ordel::Op::put, attribute);
   out.u32(Sulvi::IntfId("Ethernet" + std::to_string(number)).rep());
   out.f64(value);
}

// The operations of the whole run, made beforehand, so that making them is not measured.
std::vector<std::string> makeBlocks(uint32_t node, uint32_t records, uint32_t recordsPerFrame, double value) {
   std::vector<std::string> blocks;
   for (uint32_t next = 1; next <= records;) {
      Wire::Writer out;
      Ordel::OperationWriter(out).at(node);
      for (uint32_t i = 0; i < recordsPerFrame && next <= records; ++i)
         putOperation(out, next++, value);
      blocks.emplace_back(out.view());
   }
   return blocks;
}

size_t countOperations(std::string_view operations) {
   size_t count = 0;
   for (size_t at = 0; at < operations.size();) {
      if (operations[at] == static_cast<char>(Ordel::Op::at)) {
         at += 6;
      } else {
         at += operationBytes;
         ++count;
      }
   }
   return count;
}

// One end of the path that is measured: sends blocks, or counts the operations that arrive.
class Peer {
  public:
   virtual ~Peer() = default;
   virtual void send(std::string_view operations) = 0;
   virtual void flush() = 0;
   // Waits until so many operations have arrived since the start.
   virtual void waitFor(size_t operations) = 0;
   virtual uint32_t node() const { return 1; }
};

class DatabasePeer final : public Peer, private Ordel::Connection {
  public:
   DatabasePeer(std::string const& socketPath, bool isSubscriber)
       : Connection(Records::schema(), isSubscriber ? "subscriber" : "writer", Ordel::Role::tool) {
      std::string error;
      if (!connectAndWait(socketPath, 10, error)) {
         std::fprintf(stderr, "%s\n", error.c_str());
         std::exit(1);
      }
      mount(1, path, "", isSubscriber ? 0 : Ordel::mountWrite | Ordel::mountShallow);
      Connection::flush();
      while (!isDone_)
         wait(1);
   }
   void send(std::string_view operations) override { write(0, sequence(), 0, operations); }
   void flush() override {
      Connection::flush();
      while (unsentBytes() > 0)
         wait(0.001);
   }
   void waitFor(size_t operations) override {
      while (count_ < operations)
         wait(1);
   }
   uint32_t node() const override { return node_; }

  private:
   void onMounted(uint32_t, uint32_t node, uint16_t, std::string_view) override { node_ = node; }
   void onMountDone(uint32_t) override { isDone_ = true; }
   void onChanges(uint64_t, std::string_view operations) override { count_ += countOperations(operations); }

   bool isDone_ = false;
   uint32_t node_ = 0;
   size_t count_ = 0;
};

class RelayPeer final : public Peer {
  public:
   explicit RelayPeer(std::string const& socketPath) : fd_(connectTo(socketPath)), buffer_(256 << 10) {}
   ~RelayPeer() override { close(fd_); }
   void send(std::string_view operations) override {
      // Header as that of a write: size, type, request, seen, flags.
      char header[18] = {};
      auto const size = static_cast<uint32_t>(operations.size() + sizeof header - 4);
      std::memcpy(header, &size, sizeof size);
      pending_.append(header, sizeof header);
      pending_.append(operations);
      if (pending_.size() > (256 << 10))
         flush();
   }
   void flush() override {
      for (size_t sent = 0; sent < pending_.size();) {
         ssize_t const n = ::send(fd_, pending_.data() + sent, pending_.size() - sent, MSG_NOSIGNAL);
         if (n <= 0)
            std::exit(1);
         sent += static_cast<size_t>(n);
      }
      pending_.clear();
   }
   void waitFor(size_t operations) override {
      while (count_ < operations) {
         ssize_t const n = recv(fd_, buffer_.data() + have_, buffer_.size() - have_, 0);
         if (n <= 0)
            std::exit(1);
         have_ += static_cast<size_t>(n);
         takeFrames();
      }
   }

  private:
   void takeFrames() {
      size_t at = 0;
      for (uint32_t size; at + 4 <= have_; at += 4 + size) {
         std::memcpy(&size, buffer_.data() + at, 4);
         if (at + 4 + size > have_)
            break;
         count_ += countOperations({buffer_.data() + at + 18, size - 14});
      }
      std::memmove(buffer_.data(), buffer_.data() + at, have_ - at);
      have_ -= at;
   }
   int fd_;
   std::string pending_;
   std::vector<char> buffer_;
   size_t have_ = 0, count_ = 0;
};

// One of the two things that are compared, fresh for each measurement.
struct Subject {
   char const* name;
   std::function<pid_t(std::string const&)> start;
   std::function<std::unique_ptr<Peer>(std::string const&, bool isSubscriber)> connect;
};

std::string freshSocketPath() {
   static int count = 0;
   return "/tmp/database_bench." + std::to_string(getpid()) + "." + std::to_string(count++);
}

// Writer and subscriber in processes of their own; operations a second from the first write to the last
// one seen.
double measureStream(Subject const& subject, uint32_t records, uint32_t recordsPerFrame) {
   std::string const socketPath = freshSocketPath();
   pid_t const server = subject.start(socketPath);
   auto writer = subject.connect(socketPath, false);
   int ready[2], done[2];
   if (pipe(ready) != 0 || pipe(done) != 0)
      std::exit(1);
   pid_t const child = fork();
   if (child == 0) {
      auto subscriber = subject.connect(socketPath, true);
      if (write(ready[1], "r", 1) != 1)
         _exit(1);
      subscriber->waitFor(records);
      double const end = Kem::now();
      _exit(write(done[1], &end, sizeof end) == sizeof end ? 0 : 1);
   }
   char byte;
   if (read(ready[0], &byte, 1) != 1)
      std::exit(1);
   auto const blocks = makeBlocks(writer->node(), records, recordsPerFrame, 1.0);
   double const start = Kem::now();
   size_t unflushed = 0;
   for (auto const& block : blocks) {
      writer->send(block);
      if ((unflushed += block.size()) > (128 << 10)) {
         writer->flush();
         unflushed = 0;
      }
   }
   writer->flush();
   double end = 0;
   if (read(done[0], &end, sizeof end) != sizeof end)
      std::exit(1);
   waitpid(child, nullptr, 0);
   for (int fd : {ready[0], ready[1], done[0], done[1]})
      close(fd);
   writer.reset();
   Bench::stop(server);
   unlink(socketPath.c_str());
   return records / (end - start);
}

// One change at a time, each waited for; seconds of each. Both ends in this process, the subject in its own.
std::vector<double> measureRoundTrips(Subject const& subject, uint32_t count, useconds_t idle) {
   std::string const socketPath = freshSocketPath();
   pid_t const server = subject.start(socketPath);
   auto writer = subject.connect(socketPath, false);
   auto subscriber = subject.connect(socketPath, true);
   std::vector<double> times;
   for (uint32_t i = 1; i <= count; ++i) {
      auto const block = makeBlocks(writer->node(), 1, 1, i)[0];
      if (idle)
         usleep(idle);
      double const start = Kem::now();
      writer->send(block);
      writer->flush();
      subscriber->waitFor(i);
      times.push_back(Kem::now() - start);
   }
   writer.reset();
   subscriber.reset();
   Bench::stop(server);
   unlink(socketPath.c_str());
   std::sort(times.begin(), times.end());
   return times;
}

struct Spread {
   double low, median, high;
};

Spread spreadOf(std::vector<double> values) {
   std::sort(values.begin(), values.end());
   return {values.front(), values[values.size() / 2], values.back()};
}

void report(char const* what, char const* unit, std::vector<double> const& relay,
            std::vector<double> const& database, bool isRate) {
   Spread const r = spreadOf(relay), d = spreadOf(database);
   std::vector<double> ratios;
   for (size_t i = 0; i < relay.size(); ++i)
      ratios.push_back(isRate ? relay[i] / database[i] : database[i] / relay[i]);
   Spread const ratio = spreadOf(ratios);
   std::printf("%-44s %12.4g (%.4g..%.4g) %12.4g (%.4g..%.4g) %s  ratio %.2f (%.2f..%.2f)\n", what, d.median,
               d.low, d.high, r.median, r.low, r.high, unit, ratio.median, ratio.low, ratio.high);
   std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
   int repeat = 5;
   uint32_t records = 1000000;
   for (int i = 1; i + 1 < argc; i += 2) {
      if (!std::strcmp(argv[i], "--repeat"))
         repeat = std::max(1, std::atoi(argv[i + 1]));
      else if (!std::strcmp(argv[i], "--records"))
         records = static_cast<uint32_t>(std::max(1000, std::atoi(argv[i + 1])));
      else
         argc = 2; // shows the usage
   }
   if (argc % 2 == 0) {
      std::fprintf(stderr, "Usage: database_bench [--repeat N] [--records N]\n");
      return 2;
   }
   std::string program = argv[0];
   program = program.substr(0, program.rfind('/') + 1) + "../ordeld";

   Subject const database = {"database",
                             [&](std::string const& s) { return Bench::startDatabase(program, s); },
                             [](std::string const& s, bool isSubscriber) -> std::unique_ptr<Peer> {
                                return std::make_unique<DatabasePeer>(s, isSubscriber);
                             }};
   Subject const relay = {
       "relay", Bench::startRelay,
       [](std::string const& s, bool) -> std::unique_ptr<Peer> { return std::make_unique<RelayPeer>(s); }};

   std::printf("%-44s %28s %28s\n", "what (median, lowest..highest of the runs)", "database", "relay");
   auto const stream = [&](char const* what, uint32_t count, uint32_t perFrame) {
      std::vector<double> r, d;
      for (int i = 0; i < repeat; ++i) {
         r.push_back(measureStream(relay, count, perFrame));
         d.push_back(measureStream(database, count, perFrame));
      }
      report(what, "records/s", r, d, true);
   };
   auto const roundTrips = [&](char const* what, uint32_t count, useconds_t idle, bool isRate) {
      std::vector<double> r, d;
      for (int i = 0; i < repeat; ++i) {
         auto const rt = measureRoundTrips(relay, count, idle), dt = measureRoundTrips(database, count, idle);
         double rs = 0, ds = 0;
         for (double t : rt)
            rs += t;
         for (double t : dt)
            ds += t;
         r.push_back(isRate ? count / rs : rt[rt.size() / 2] * 1e6);
         d.push_back(isRate ? count / ds : dt[dt.size() / 2] * 1e6);
      }
      report(what, isRate ? "changes/s" : "us median", r, d, isRate);
   };
   stream("new records in bulk, 1000 to a frame", records, 1000);
   stream("new records in bulk, 1 to a frame", records / 4, 1);
   roundTrips("one at a time, each waited for", 20000, 0, true);
   roundTrips("one change when idle (1 ms between)", 1000, 1000, false);
   return 0;
}

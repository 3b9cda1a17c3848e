// A subscriber that is stopped while others write: what it costs the database, what others notice of it, and
// what it ends up with.
//
// The subscribers are processes of this same program, started with --subscribe. Each mirrors one subtree
// and obeys its standard input: `dump FILE` writes the mirror as text once all that the database had for it
// has come.

#include "Ordel/client/Connection.h"
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "ProcessFacts.h"
#include "RawClient.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <poll.h>
#include <random>
#include <sstream>

namespace {

constexpr char publisher[] = "bridging/input/config/cli";

// --- The subscriber's side

class Subscriber final : public Ordel::Connection {
  public:
   Subscriber() : Connection(Records::schema(), "subscriber", Ordel::Role::tool) {}

   // Waits for that mount to be done. All that was pending before has come then.
   bool awaitDone(uint32_t number) {
      while (isConnected() && done_ < number)
         wait(Scenario::limit.count());
      return done_ == number;
   }
   std::string text() const {
      Ordel::Entity const* const entity = mirror_.find(publisher);
      return entity ? TestRecords::dump(mirror_, *entity) : "nothing";
   }
   size_t operationBytes() const { return operationBytes_; }

  private:
   void onMounted(uint32_t number, uint32_t node, uint16_t type, std::string_view path) override {
      if (number == 1)
         mirror_.mount(node, Records::schema().entities[type], path);
   }
   void onMountDone(uint32_t number) override { done_ = number; }
   void onChanges(uint64_t, std::string_view operations) override {
      operationBytes_ += operations.size();
      if (Ordel::Applied const& applied = mirror_.apply(operations); !applied.isDone())
         std::cerr << "subscriber: " << applied.error << std::endl;
   }
   void onClosed(std::string_view reason) override { std::cerr << "subscriber: " << reason << std::endl; }

   Ordel::Tree mirror_{Records::schema()};
   uint32_t done_ = 0;
   size_t operationBytes_ = 0;
};

int subscribe(std::string const& socket) {
   Subscriber subscriber;
   std::string error;
   if (!subscriber.connectAndWait(socket, Scenario::limit.count(), error)) {
      std::cerr << "subscriber: " << error << std::endl;
      return 1;
   }
   uint32_t mount = 1;
   subscriber.mount(mount, publisher, "", 0);
   if (!subscriber.awaitDone(mount))
      return 1;
   std::cout << "mounted" << std::endl;
   for (;;) {
      pollfd ready[2] = {{0, POLLIN, 0}, {subscriber.descriptor(), POLLIN, 0}};
      ::poll(ready, 2, -1);
      if (ready[1].revents && !subscriber.receive())
         return 1;
      if (!ready[0].revents)
         continue;
      std::string command, file;
      if (!(std::cin >> command >> file))
         return 0;
      // The database answers after what is pending; the answer itself doesn't matter.
      subscriber.mount(++mount, "stage", "", Ordel::mountAwait | Ordel::mountShallow);
      if (!subscriber.awaitDone(mount))
         return 1;
      std::ofstream(file) << subscriber.text();
      std::cout << subscriber.operationBytes() << std::endl;
   }
}

// --- The test's side

using namespace Scenario;

struct Dump {
   std::string text;
   size_t operationBytes; // that came until then
};

class SubscriberProcess {
  public:
   explicit SubscriberProcess(Database const& database)
       : process_({"/proc/self/exe", "--subscribe", database.socket()}) {
      EXPECT_EQ(process_.readLine().value_or(process_.errors().text()), "mounted");
   }
   ~SubscriberProcess() { EXPECT_EQ(process_.errors().text(), ""); }

   void stop() {
      process_.signal(SIGSTOP);
      siginfo_t info;
      ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(process_.pid()), &info, WSTOPPED), 0);
   }
   void goOn() { process_.signal(SIGCONT); }
   Dump dump() {
      std::string const file = folder_.file("dump");
      process_.write("dump " + file + "\n");
      std::string const bytes = process_.readLine().value_or("");
      EXPECT_NE(bytes, "") << process_.errors().text();
      std::ostringstream text;
      text << std::ifstream(file).rdbuf();
      return {text.str(), std::strtoull(bytes.c_str(), nullptr, 10)};
   }

  private:
   TempFolder folder_;
   Process process_;
};

// Writes VLANs of the command line's input, and remembers what must be in the tree in the end.
class Writer {
  public:
   explicit Writer(Database const& database) : client_(database.socket()) {
      client_.welcomed("writer");
      client_.mount(1, publisher);
      auto const mounted = client_.read(Ordel::Frame::mounted);
      if (!mounted) {
         ADD_FAILURE() << "the database has ended";
         return;
      }
      Wire::Reader in(mounted->payload);
      in.u32();
      node_ = in.u32();
      type_ = &Records::schema().entities[in.u16()];
      client_.begin(Ordel::Frame::unmount).u32(1);
      client_.send();
      model_.mount(node_, *type_, publisher);
      vlans_ = static_cast<uint8_t>(type_->find("vlanConfig"));
      vlanType_ = type_->attributes[vlans_].target;
      name_ = static_cast<uint8_t>(vlanType_->find("configuredName"));
   }

   void create(uint16_t vlan) {
      at();
      member(Ordel::Op::create, vlan);
      block_.u16(vlanType_->id);
   }
   void erase(uint16_t vlan) {
      at();
      member(Ordel::Op::erase, vlan);
   }
   void nameIs(uint16_t vlan, std::string_view name) {
      at(vlan);
      block_.u8(static_cast<uint8_t>(Ordel::Op::set));
      block_.u8(name_);
      block_.string(name);
   }
   // Sends what was written since the last time.
   void flush(uint32_t request = 0) {
      if (Ordel::Applied const& applied = model_.apply(block_.view()); !applied.isDone())
         ADD_FAILURE() << applied.error;
      client_.write(request, block_.view());
      block_.clear();
   }
   // The same, and waits until the database has taken in all that was sent.
   void finish() {
      flush(1);
      auto const reply = client_.read(Ordel::Frame::reply);
      ASSERT_TRUE(reply);
      Wire::Reader in(reply->payload);
      in.u32();
      EXPECT_EQ(in.u8(), static_cast<uint8_t>(Ordel::Status::done)) << in.string();
   }
   std::string expected() const { return TestRecords::dump(model_, *model_.find(publisher)); }

  private:
   void at() {
      block_.u8(static_cast<uint8_t>(Ordel::Op::at));
      block_.u32(node_);
      block_.u8(0);
   }
   void at(uint16_t vlan) {
      block_.u8(static_cast<uint8_t>(Ordel::Op::at));
      block_.u32(node_);
      block_.u8(1);
      block_.u8(vlans_);
      block_.u16(vlan);
   }
   void member(Ordel::Op operation, uint16_t vlan) {
      block_.u8(static_cast<uint8_t>(operation));
      block_.u8(vlans_);
      block_.u16(vlan);
   }

   RawClient client_;
   Ordel::Tree model_{Records::schema()};
   Wire::Writer block_;
   uint32_t node_ = 0;
   Records::EntityType const* type_ = nullptr;
   Records::EntityType const* vlanType_ = nullptr;
   uint8_t vlans_ = 0; // attributes
   uint8_t name_ = 0;
};

// A million names of about 200 bytes are some 200 MB, of which 1 MB is in the end.
TEST(SlowClientTest, aStoppedSubscriberCostsLittleAndEndsWithTheTree) {
   constexpr uint16_t vlanCount = 4000;
   constexpr unsigned writeCount = 1'000'000;
   constexpr unsigned writesOfBlock = 20;
   Database database;
   Writer writer(database);
   for (uint16_t vlan = 1; vlan <= vlanCount; ++vlan) {
      writer.create(vlan);
      writer.nameIs(vlan, std::string(200, '-'));
   }
   writer.finish();
   SubscriberProcess stopped(database);
   SubscriberProcess other(database);
   stopped.stop();
   size_t const before = memoryOf(database.process().pid(), "VmRSS");

   std::minstd_rand random(1);
   std::string const tail(190, 'x');
   for (unsigned i = 1; i <= writeCount; ++i) {
      auto const vlan = static_cast<uint16_t>(1 + random() % vlanCount);
      if (i % 50 == 0) { // it comes again
         writer.erase(vlan);
         writer.create(vlan);
      }
      writer.nameIs(vlan, std::to_string(i) + tail);
      if (i % writesOfBlock == 0)
         writer.flush();
   }
   for (uint16_t vlan = vlanCount - 9; vlan <= vlanCount; ++vlan)
      writer.erase(vlan);
   writer.finish();

   size_t const peak = memoryOf(database.process().pid(), "VmHWM");
   std::string const expected = writer.expected();
   Dump const served = other.dump(); // while the first one is stopped
   EXPECT_TRUE(served.text == expected);
   std::cout << "resident memory: " << before << " KiB before, " << peak << " KiB at most; the other took "
             << served.operationBytes << " bytes" << std::endl;
   if (isMemoryMeaningful) { // one that reads may have some 30 MB waiting, twice while the buffer grows
      EXPECT_LT(peak - before, 128u << 10);
   }

   stopped.goOn();
   Dump const late = stopped.dump();
   std::cout << "the stopped one took " << late.operationBytes << " bytes" << std::endl;
   EXPECT_TRUE(late.text == expected);
   EXPECT_LT(late.operationBytes, 16u << 20) << "changes were not folded";
   EXPECT_TRUE(SubscriberProcess(database).dump().text == expected);
}

} // namespace

int main(int argc, char** argv) {
   if (argc == 3 && std::string_view(argv[1]) == "--subscribe")
      return subscribe(argv[2]);
   testing::InitGoogleTest(&argc, argv);
   return RUN_ALL_TESTS();
}

#include "ReaderFdbStatus/ReaderFdbStatusSm.h"

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "Plaze/Mount.h"
#include "Plaze/TestHosts.h"
#include "Plaze/TestTable.h"
#include "Plaze/Writer.h"

#include <gtest/gtest.h>

#include <future>
#include <map>
#include <random>
#include <thread>

namespace {

using Bridging::LearnedHost;
using Plaze::hostAt;
using Plaze::keyOf;
using Plaze::mac;
using Plaze::wire;

// What Bridging::Status holds, "fid/last byte" to port; a filtering database without hosts is "fid/".
using Hosts = std::map<std::string, std::string>;

class ReaderFdbStatusSmTest : public testing::Test {
  protected:
   void put(uint16_t fid, uint8_t last, char const* intf, uint32_t moves = 0) {
      writer_.put(wire(keyOf(fid, last)), wire(hostAt(last, intf, moves)));
   }
   void del(uint16_t fid, uint8_t last) { writer_.del(wire(keyOf(fid, last))); }
   void start() {
      plaze_ = Kem::ptrCast<Plaze::Bridging::Status>(mount_.doMount(
          "bridging/status", "Plaze::Bridging::Status", KemPlaze::MountInfo(KemPlaze::keyShadow)));
      ASSERT_TRUE(plaze_);
      sm_ = Kem::makePtr<Bridging::ReaderFdbStatusSm>(status_, plaze_);
   }
   Hosts hosts() const {
      Hosts found;
      status_->fdbStatus().forEach([&](Bridging::Fid fid, auto const& fdb) {
         if (fdb->learnedHost().empty())
            found[std::to_string(fid) + "/"];
         fdb->learnedHost().forEach([&](Sulvi::EthAddr addr, LearnedHost const& host) {
            EXPECT_EQ(host.addr, addr);
            found[std::to_string(fid) + "/" + std::to_string(addr.bytes()[5])] =
                host.intf.stringValue().str();
         });
      });
      return found;
   }
   // The table looks, and what it says is delivered.
   Hosts settled() {
      plaze_->update();
      Kem::activityManager()->runUntilIdle();
      return hosts();
   }

   Kem::VirtualTime time_;
   Plaze::TestDirectory directory_;
   KemPlaze::Mount mount_{"ar", directory_.root()};
   Plaze::Writer writer_{directory_.root() + "/ar/Plaze/bridging/status",
                         Plaze::tableType("Plaze::Bridging::Status")->shape()};
   Kem::Ptr<Plaze::Bridging::Status> plaze_;
   Kem::Ptr<Bridging::Status> status_ = Bridging::Status::make();
   Kem::Ptr<Bridging::ReaderFdbStatusSm> sm_;
};

TEST_F(ReaderFdbStatusSmTest, hostsThatStandAreThereWhenItIsMade) {
   put(10, 1, "Ethernet1");
   put(10, 2, "Ethernet2");
   put(20, 1, "Ethernet3");
   start();
   EXPECT_EQ(hosts(), (Hosts{{"10/1", "Ethernet1"}, {"10/2", "Ethernet2"}, {"20/1", "Ethernet3"}}));
}

TEST_F(ReaderFdbStatusSmTest, hostsComeMoveAndGo) {
   start();
   EXPECT_EQ(hosts(), Hosts{});
   put(10, 1, "Ethernet1");
   put(10, 2, "Ethernet2");
   EXPECT_EQ(settled(), (Hosts{{"10/1", "Ethernet1"}, {"10/2", "Ethernet2"}}));
   put(10, 1, "Ethernet7", 1);
   EXPECT_EQ(settled(), (Hosts{{"10/1", "Ethernet7"}, {"10/2", "Ethernet2"}}));
   EXPECT_EQ(status_->fdbStatus(10)->learnedHost(mac(1))->moves, 1u);
   del(10, 2);
   EXPECT_EQ(settled(), (Hosts{{"10/1", "Ethernet7"}}));
   del(10, 1);
   EXPECT_EQ(settled(), Hosts{}) << "with its filtering database";
}

TEST_F(ReaderFdbStatusSmTest, rowThatNamesAnotherAddressIsTakenUnderItsKey) {
   LearnedHost host;
   host.addr = mac(99);
   host.intf = "Ethernet1";
   writer_.put(wire(keyOf(10, 1)), wire(host));
   start();
   EXPECT_EQ(hosts(), (Hosts{{"10/1", "Ethernet1"}})) << "another process wrote it; it ends no agent";
}

TEST_F(ReaderFdbStatusSmTest, staleEntriesOfTheStatusGo) {
   status_->fdbStatusIs(30)->learnedHostIs(mac(9), {});
   status_->fdbStatusIs(31);
   put(10, 1, "Ethernet1");
   start();
   EXPECT_EQ(hosts(), (Hosts{{"10/1", "Ethernet1"}}));
}

TEST_F(ReaderFdbStatusSmTest, onlyWhatDiffersIsTold) {
   put(10, 1, "Ethernet1");
   put(10, 2, "Ethernet2");
   start();
   struct KemFdb final : Bridging::FdbStatus::NotifieeConst {
      KemFdb() : NotifieeConst(this) {}
      void onLearnedHost(Sulvi::EthAddr addr) override { log += std::to_string(addr.bytes()[5]) + ";"; }
      std::string log;
   } reactor;
   reactor.notifierIs(status_->fdbStatus(10));
   put(10, 2, "Ethernet3");
   settled();
   EXPECT_EQ(reactor.log, "2;");
   sm_->handlePlazeFdbStatuses();
   settled();
   EXPECT_EQ(reactor.log, "2;");
}

TEST_F(ReaderFdbStatusSmTest, tornRowNeitherChangesNorRemovesItsHost) {
   put(10, 1, "Ethernet1");
   put(10, 2, "Ethernet2");
   start();
   bool isTorn = false;
   writer_.onMidEntryIs([&] {
      // The writer is in the middle of host 2, and the reader runs a pass.
      sm_->handlePlazeFdbStatuses();
      isTorn = plaze_->corruptionDetected();
      EXPECT_EQ(hosts(), (Hosts{{"10/1", "Ethernet1"}, {"10/2", "Ethernet2"}}));
   });
   put(10, 2, "Ethernet3");
   EXPECT_TRUE(isTorn);
   EXPECT_EQ(settled(), (Hosts{{"10/1", "Ethernet1"}, {"10/2", "Ethernet3"}}));
   EXPECT_FALSE(plaze_->corruptionDetected());
}

TEST_F(ReaderFdbStatusSmTest, tornReadIsRepeatedInTheSamePass) {
   put(10, 1, "Ethernet1");
   start();
   // A writer of another thread is in the middle of a row until the reader says that it found it torn.
   static std::promise<void> isMidEntry, mayGoOn;
   static std::thread writing;
   writer_.onMidEntryIs([] {
      isMidEntry.set_value();
      mayGoOn.get_future().wait();
   });
   writing = std::thread([this] { put(10, 1, "Ethernet2"); });
   isMidEntry.get_future().wait();
   Kem::TestTrace trace("ReaderFdbStatus/0-5");
   trace.onLine([](Kem::TestTrace::Line const& line) {
      if (line.text == "read 1 of the table was torn") {
         mayGoOn.set_value();
         writing.join();
      }
   });
   sm_->handlePlazeFdbStatuses();
   ASSERT_FALSE(writing.joinable());
   EXPECT_EQ(hosts(), (Hosts{{"10/1", "Ethernet2"}}));
}

TEST_F(ReaderFdbStatusSmTest, otherHostsAreFollowedWhileOneRowCannotBeRead) {
   put(10, 1, "Ethernet1");
   put(20, 2, "Ethernet2");
   start();
   // A row of host 1 that no reader takes: its value is no host.
   writer_.put(wire(keyOf(10, 1)), "no host");
   put(20, 2, "Ethernet3");
   put(20, 3, "Ethernet4");
   EXPECT_EQ(settled(), (Hosts{{"10/1", "Ethernet1"}, {"20/2", "Ethernet3"}, {"20/3", "Ethernet4"}}));
   del(10, 1);
   EXPECT_EQ(settled(), (Hosts{{"20/2", "Ethernet3"}, {"20/3", "Ethernet4"}}));
}

TEST_F(ReaderFdbStatusSmTest, unreadableRowOfAnUnknownHostMakesNoEntry) {
   writer_.put(wire(keyOf(10, 1)), "no host");
   start();
   EXPECT_EQ(hosts(), Hosts{});
}

TEST_F(ReaderFdbStatusSmTest, tableThatGoesTakesItsHostsAlong) {
   put(10, 1, "Ethernet1");
   start();
   std::filesystem::remove(plaze_->filePath());
   EXPECT_EQ(settled(), Hosts{});
}

TEST_F(ReaderFdbStatusSmTest, worksWithoutATable) {
   status_->fdbStatusIs(30);
   sm_ = Kem::makePtr<Bridging::ReaderFdbStatusSm>(status_, nullptr);
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(hosts(), (Hosts{{"30/", ""}}));
}

TEST_F(ReaderFdbStatusSmTest, anyHistoryOfTheTableEndsWithTheSameHosts) {
   start();
   Hosts model;
   std::mt19937 random(7);
   char const* const ports[] = {"Ethernet1", "Ethernet2", "Port-Channel5"};
   for (int step = 0; step < 2000; ++step) {
      uint16_t const fid = static_cast<uint16_t>(1 + random() % 4);
      uint8_t const last = static_cast<uint8_t>(random() % 20);
      std::string const key = std::to_string(fid) + "/" + std::to_string(last);
      if (random() % 3 == 0) {
         del(fid, last);
         model.erase(key);
      } else {
         char const* const port = ports[random() % 3];
         put(fid, last, port);
         model[key] = port;
      }
      if (random() % 20 == 0) {
         ASSERT_EQ(settled(), model) << "step " << step;
      }
   }
   EXPECT_EQ(settled(), model);
}

} // namespace

#include "Plaze/Mount.h"

#include "Plaze/BridgingStatus.h"
#include "Plaze/InterfaceCounters.h"
#include "Plaze/TestHosts.h"
#include "Plaze/TestTable.h"
#include "Plaze/Writer.h"

#include "Kem/TestTrace.h"
#include <gmock/gmock.h>
#include <map>

namespace Plaze {
namespace {

using ::Bridging::HostKey;
using ::Bridging::LearnedHost;
using testing::HasSubstr;

class MountTest : public testing::Test {
  protected:
   Kem::TestTrace trace_;

   Writer hostWriter() { return Writer(hostsFile_, tableType("Plaze::Bridging::Status")->shape()); }
   Kem::Ptr<Bridging::Status> mountHosts() {
      return Kem::ptrCast<Bridging::Status>(mount_.doMount("bridging/status", "Plaze::Bridging::Status",
                                                           KemPlaze::MountInfo(KemPlaze::keyShadow)));
   }
   // What has been written is delivered. Over the safety look, because rings are limited in real time and not
   // in the virtual one.
   void settle() { Kem::activityManager()->advance(TableWatch::safetyInterval + 0.1); }
   static std::map<std::string, std::string> hostsOf(Bridging::Status const& table) {
      std::map<std::string, std::string> hosts;
      table.forEachLearnedHost([&](HostKey const& key, LearnedHost const& host) {
         hosts[Records::text(key)] = host.intf.stringValue().str();
      });
      return hosts;
   }

   Kem::VirtualTime time_;
   TestDirectory directory_;
   KemPlaze::Mount mount_{"ar", directory_.root()};
   std::string hostsFile_ = directory_.root() + "/ar/Plaze/bridging/status";
};

struct KemHosts final : Bridging::Status::NotifieeConst {
   KemHosts() : NotifieeConst(this) {}
   void handleInitialized() override { log += "initialized;"; }
   void onLearnedHost(HostKey const& key) override {
      auto const host = notifier()->learnedHost(key);
      log += Records::text(key) + "=" + (host ? host->intf.stringValue().str() : "gone") + ";";
   }
   std::string take() { return std::exchange(log, ""); }
   std::string log;
};

TEST_F(MountTest, MountIsCompleteOnReturn) {
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Peer-Tunnel 7"))); // an irregular name travels as text
   auto const hosts = mountHosts();
   ASSERT_TRUE(hosts);
   EXPECT_EQ(hosts->name().str(), "bridging/status");
   EXPECT_EQ(std::string(hosts->typeInfo().name), "Plaze::Bridging::Status");
   EXPECT_EQ(hosts->size(), 2u);
   EXPECT_EQ(hosts->learnedHost(keyOf(10, 1)), hostAt(1, "Ethernet1"));
   EXPECT_EQ(hosts->learnedHost(keyOf(10, 2)), hostAt(2, "Peer-Tunnel 7"));
   EXPECT_EQ(hosts->learnedHost(keyOf(11, 1)), std::nullopt);
   EXPECT_TRUE(hosts->hasLearnedHost(keyOf(10, 1)));
   EXPECT_FALSE(hosts->hasLearnedHost(keyOf(11, 1)));
   EXPECT_FALSE(hosts->corruptionDetected());
   EXPECT_EQ(mount_.getEntity("bridging/status"), Kem::Ptr<Kem::Entity>(hosts));
   EXPECT_EQ(mount_.getEntity("bridging"), nullptr);
}

TEST_F(MountTest, ReactorIsToldOfEachKeyThatChanged) {
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet1")));
   auto const hosts = mountHosts();
   KemHosts reactor;
   reactor.notifierIs(hosts);
   settle();
   EXPECT_EQ(reactor.take(), "initialized;") << "what stood before is no change";
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet2")));
   settle();
   EXPECT_EQ(reactor.take(), "10/00:1c:73:00:00:02=Ethernet2;");
   writer.del(wire(keyOf(10, 1)));
   settle();
   EXPECT_EQ(reactor.take(), "10/00:1c:73:00:00:01=gone;");
   writer.put(wire(keyOf(20, 1)), wire(hostAt(1, "Ethernet3")));
   settle();
   EXPECT_EQ(reactor.take(), "20/00:1c:73:00:00:01=Ethernet3;");
   settle();
   EXPECT_EQ(reactor.take(), "");
   reactor.notifierIs(nullptr);
   writer.delAll();
   settle();
   EXPECT_EQ(reactor.take(), "");
}

TEST_F(MountTest, AbsentTableIsEmptyAndIsPickedUpWhenItsWriterComes) {
   auto const hosts = mountHosts();
   ASSERT_TRUE(hosts);
   EXPECT_FALSE(hosts->isPresent());
   EXPECT_EQ(hosts->size(), 0u);
   KemHosts reactor;
   reactor.notifierIs(hosts);
   settle();
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   settle();
   EXPECT_TRUE(hosts->isPresent());
   EXPECT_EQ(reactor.take(), "initialized;10/00:1c:73:00:00:01=Ethernet1;");
   std::filesystem::remove(hostsFile_);
   settle();
   EXPECT_EQ(reactor.take(), "10/00:1c:73:00:00:01=gone;");
   EXPECT_FALSE(hosts->isPresent());
}

TEST_F(MountTest, UnknownTypesPathsAndModesGiveNullAndATrace) {
   KemPlaze::MountInfo const info(KemPlaze::keyShadow);
   EXPECT_EQ(mount_.doMount("bridging/status", "Plaze::Bridging::Other", info), nullptr);
   EXPECT_THAT(trace_.text(), HasSubstr("mount of bridging/status as Plaze::Bridging::Other refused: "
                                        "there is no such type of table"));
   for (char const* path : {"", "/bridging", "bridging/", "a//b", "../status", "a/../b", ".", "status~"}) {
      trace_.clear();
      EXPECT_EQ(mount_.doMount(path, "Plaze::Bridging::Status", info), nullptr) << path;
      EXPECT_THAT(trace_.text(), HasSubstr("is no path of a table"));
   }
   trace_.clear();
   EXPECT_EQ(mount_.doMount("bridging/status", "Plaze::Bridging::Status", KemPlaze::MountInfo(2)), nullptr);
   EXPECT_THAT(trace_.text(), HasSubstr("no mode 2, only 3"));
   EXPECT_EQ(mount_.getEntity("bridging/status"), nullptr);

   trace_.clear();
   KemPlaze::Mount nameless("", directory_.root());
   EXPECT_EQ(nameless.doMount("bridging/status", "Plaze::Bridging::Status", info), nullptr);
   EXPECT_THAT(trace_.text(), HasSubstr("\"\" is no system name"));
}

TEST_F(MountTest, MountingAgainGivesTheSameEntityAndOnlyAsItsType) {
   auto const hosts = mountHosts();
   EXPECT_EQ(mountHosts(), hosts);
   EXPECT_EQ(mount_.doMount("bridging/status", "Plaze::Interface::AllIntfCounterDir",
                            KemPlaze::MountInfo(KemPlaze::keyShadow)),
             nullptr);
   EXPECT_THAT(trace_.text(), HasSubstr("it is mounted as Plaze::Bridging::Status"));
}

TEST_F(MountTest, EntityLivesOnWithoutItsMount) {
   Kem::Ptr<Bridging::Status> hosts;
   {
      KemPlaze::Mount mount("ar", directory_.root());
      hosts = Kem::ptrCast<Bridging::Status>(mount.doMount("bridging/status", "Plaze::Bridging::Status",
                                                           KemPlaze::MountInfo(KemPlaze::keyShadow)));
   }
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   settle();
   EXPECT_EQ(hosts->size(), 1u);
}

TEST_F(MountTest, SystemNameComesFromTheEntityManager) {
   struct Manager : Kem::PtrInterface {
      std::string const& systemName() const { return name; }
      std::string name = "leaf7";
   };
   setenv("PLAZE_ROOT", directory_.root().c_str(), 1);
   KemPlaze::Mount mount(Kem::makePtr<Manager>());
   unsetenv("PLAZE_ROOT");
   auto const hosts = Kem::ptrCast<Bridging::Status>(
       mount.doMount("bridging/status", "Plaze::Bridging::Status", KemPlaze::MountInfo(3)));
   ASSERT_TRUE(hosts);
   EXPECT_EQ(hosts->filePath(), directory_.root() + "/leaf7/Plaze/bridging/status");
   EXPECT_EQ(publishedPath("leaf7", "interface/counter/subintf/current"),
             "/leaf7/Plaze/interface/counter/subintf/current");
   EXPECT_EQ(defaultRoot(), "/dev/shm");
}

// --- Rows that can't be read.

TEST_F(MountTest, RowTornByAStoppedWriterIsToldAndKeptApartFromARemovedOne) {
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet2")));
   auto const hosts = mountHosts();
   KemHosts reactor;
   reactor.notifierIs(hosts);
   settle();
   reactor.take();
   writer.onMidEntryIs([&] {
      hosts->update();
      EXPECT_FALSE(hosts->corruptionDetected()) << "no row has been asked for";
      EXPECT_EQ(hosts->learnedHost(keyOf(10, 2)), std::nullopt);
      EXPECT_TRUE(hosts->corruptionDetected());
      EXPECT_TRUE(hosts->hasLearnedHost(keyOf(10, 2)));
      hosts->corruptionDetectedIs(false);
      EXPECT_EQ(hosts->learnedHost(keyOf(10, 1)), hostAt(1, "Ethernet1"));
      EXPECT_FALSE(hosts->corruptionDetected());
      EXPECT_EQ(hostsOf(*hosts), (std::map<std::string, std::string>{{"10/00:1c:73:00:00:01", "Ethernet1"}}));
      EXPECT_TRUE(hosts->corruptionDetected());
      settle();
      EXPECT_EQ(reactor.take(), "");
   });
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet3")));
   hosts->corruptionDetectedIs(false);
   settle();
   EXPECT_EQ(reactor.take(), "10/00:1c:73:00:00:02=Ethernet3;");
   EXPECT_FALSE(hosts->corruptionDetected());
}

TEST_F(MountTest, RowThatStaysTornIsSaidOnceWithItsWriter) {
   auto writer = hostWriter();
   auto const hosts = mountHosts();
   settle();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   writer.onMidEntryIs([&] {
      settle();
      EXPECT_THAT(trace_.text(),
                  HasSubstr(hostsFile_ +
                            ": 1 entries can't be read: torn, or damaged. Last written by process " +
                            std::to_string(getpid())));
      trace_.clear();
      Kem::activityManager()->advance(30);
      EXPECT_EQ(trace_.text(), "");
   });
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet2")));
   EXPECT_EQ(hosts->size(), 1u);
   settle();
   EXPECT_EQ(hosts->size(), 2u);
}

TEST_F(MountTest, BytesThatAreNoRowAreNotHandedOn) {
   auto writer = hostWriter();
   writer.put("short", "value");                                 // no key
   writer.put(wire(keyOf(10, 1)), "no host");                    // a key, no value
   writer.put(wire(keyOf(10, 2)), wire(hostAt(2, "Ethernet2"))); // good
   auto const hosts = mountHosts();
   EXPECT_THAT(trace_.text(), HasSubstr("entry 0x73686f7274 is no row of Plaze::Bridging::Status"));
   hosts->corruptionDetectedIs(false);
   EXPECT_EQ(hostsOf(*hosts), (std::map<std::string, std::string>{{"10/00:1c:73:00:00:02", "Ethernet2"}}));
   EXPECT_TRUE(hosts->corruptionDetected());
}

TEST_F(MountTest, FileOfAnotherReleaseIsTakenAsEmptyUntilItIsReplaced) {
   Shape older = tableType("Plaze::Bridging::Status")->shape();
   older.fingerprint++;
   std::make_unique<Writer>(hostsFile_, older)->put("key", "value");
   auto const hosts = mountHosts();
   ASSERT_TRUE(hosts);
   EXPECT_EQ(hosts->size(), 0u);
   EXPECT_THAT(trace_.text(), HasSubstr("holds Plaze::Bridging::Status of another release; taken as empty"));
   auto writer = hostWriter();
   writer.put(wire(keyOf(10, 1)), wire(hostAt(1, "Ethernet1")));
   settle();
   EXPECT_EQ(hosts->size(), 1u);
}

// --- The other table.

TEST_F(MountTest, CountersAreFollowedByInterface) {
   struct KemCounters final : Interface::AllIntfCounterDir::NotifieeConst {
      KemCounters() : NotifieeConst(this) {}
      void onIntfCounter(Sulvi::IntfId intfId) override {
         auto const counters = notifier()->intfCounter(intfId);
         log += intfId.stringValue().str() + "=" + (counters ? std::to_string(counters->inOctets) : "gone") +
                ";";
      }
      void onIntfCounter() override { log += "all;"; }
      std::string log;
   };
   Writer writer(directory_.root() + "/ar/Plaze/interface/counter/subintf/current",
                 tableType("Plaze::Interface::AllIntfCounterDir")->shape());
   auto const counters = Kem::ptrCast<Interface::AllIntfCounterDir>(
       mount_.doMount("interface/counter/subintf/current", "Plaze::Interface::AllIntfCounterDir",
                      KemPlaze::MountInfo(KemPlaze::keyShadow)));
   ASSERT_TRUE(counters);
   KemCounters reactor;
   reactor.notifierIs(counters);
   ::Interface::IntfCounters row;
   row.inOctets = 1500;
   writer.put(wire(Sulvi::IntfId("Ethernet1.10")), wire(row));
   row.inOctets = 3000;
   writer.put(wire(Sulvi::IntfId("Ethernet1.10")), wire(row));
   settle();
   EXPECT_EQ(reactor.log, "Ethernet1.10=3000;all;");
   EXPECT_EQ(counters->intfCounter("Ethernet1.10"), row);
   size_t rows = 0;
   counters->forEachIntfCounter([&](Sulvi::IntfId, ::Interface::IntfCounters const&) { ++rows; });
   EXPECT_EQ(rows, 1u);
}

TEST(TableTypeTest, ShapesHaveRoomForTheLongestRow) {
   Shape const shape = tableType("Plaze::Bridging::Status")->shape();
   EXPECT_EQ(shape.typeName, "Plaze::Bridging::Status");
   EXPECT_EQ(wire(keyOf(1, 1)).size(), shape.keyBytes);
   LearnedHost host;
   host.intf = Sulvi::IntfId(std::string(Sulvi::IntfId::maxBytes, 'x'));
   EXPECT_EQ(wire(host).size(), shape.valueBytes);
   EXPECT_NE(shape.fingerprint, tableType("Plaze::Interface::AllIntfCounterDir")->shape().fingerprint);
   EXPECT_EQ(tableType("Plaze::Bridging"), nullptr);
}

TEST(TableTypeTest, WellFormedIsWhatDecodesWhole) {
   auto const& type = *tableType("Plaze::Bridging::Status");
   std::string const good = wire(hostAt(1, "Ethernet1"));
   EXPECT_TRUE(isWellFormed(*type.value, good));
   EXPECT_FALSE(isWellFormed(*type.value, good + "x"));
   EXPECT_FALSE(isWellFormed(*type.value, good.substr(1)));
   EXPECT_FALSE(isWellFormed(*type.value, ""));
   EXPECT_TRUE(isWellFormed(*type.key, wire(keyOf(1, 1))));
}

} // namespace
} // namespace Plaze

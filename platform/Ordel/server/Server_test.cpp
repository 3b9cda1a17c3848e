#include "Ordel/server/Server.h"

#include "Kem/Activity.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Ordel/server/TestServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace {

using namespace TestRecords;
using Ordel::Frame;
using Ordel::Role;
using Ordel::Server;
using Ordel::ServerClient;
using Ordel::Status;
using Ordel::Tree;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// --- Handshake

struct HandshakeTest : ServerTest {
   TestClient client{server, TestClient::Silent()};

   void verifyRefused(std::string const& reason) {
      client.take();
      EXPECT_EQ(client.refused, reason);
      EXPECT_TRUE(client.link->isRefused());
      EXPECT_FALSE(client.isWelcome);
      EXPECT_FALSE(client.link->wantsReading());
   }
};

TEST_F(HandshakeTest, helloIsWelcome) {
   client.hello("someone");
   client.take();
   EXPECT_TRUE(client.isWelcome);
   EXPECT_EQ(client.refused, "");
   EXPECT_EQ(client.link->name(), "someone");
}

TEST_F(HandshakeTest, anyFrameBeforeHelloIsRefused) {
   client.request(Frame::clients, 1);
   verifyRefused("the first frame has to be a hello");
}

TEST_F(HandshakeTest, otherMagicIsRefused) {
   client.hello("x", Role::tool, 7);
   verifyRefused("this is no client of the state database");
}

TEST_F(HandshakeTest, otherVersionIsRefused) {
   client.hello("x", Role::tool, Ordel::protocolMagic, 9);
   verifyRefused("the client speaks version 9 of the protocol, the database 2");
}

TEST_F(HandshakeTest, otherRecordsAreRefused) {
   client.hello("x", Role::tool, Ordel::protocolMagic, Ordel::protocolVersion, 5);
   verifyRefused("the client was built with other records than the database");
}

TEST_F(HandshakeTest, emptyNameIsRefused) {
   client.hello("");
   verifyRefused("a client's name has 1 to 255 bytes");
}

TEST_F(HandshakeTest, unknownRoleIsRefused) {
   client.hello("x", static_cast<Role>(2));
   verifyRefused("there is no role of number 2");
}

TEST_F(HandshakeTest, frameThatIsTooLargeForHelloIsRefusedBeforeItHasCome) {
   client.sendRaw("\x01\x02\0\0"sv); // 513 bytes
   verifyRefused("a frame is empty or larger than the limit of 512 bytes");
}

TEST_F(HandshakeTest, helloMayComeByteByByte) {
   Ordel::FrameBuffer frames;
   Wire::Writer& out = frames.begin(Frame::hello);
   out.u32(Ordel::protocolMagic);
   out.u16(Ordel::protocolVersion);
   out.u64(schema().fingerprint);
   out.string("slow");
   out.u8(0);
   frames.end();
   for (char const c : frames.view())
      client.sendRaw({&c, 1});
   client.take();
   EXPECT_TRUE(client.isWelcome);
}

TEST_F(HandshakeTest, silenceIsRefusedAfterTenSeconds) {
   Kem::activityManager()->advance(9.9);
   EXPECT_FALSE(client.link->isRefused());
   Kem::activityManager()->advance(0.2);
   verifyRefused("no hello came in time");
   EXPECT_FALSE(client.link->isOver());
   Kem::activityManager()->advance(ServerClient::refusedTimeout);
   EXPECT_TRUE(client.link->isOver());
}

TEST_F(HandshakeTest, welcomeClientMayBeSilent) {
   client.hello("quiet");
   Kem::activityManager()->advance(1000);
   EXPECT_FALSE(client.link->isRefused());
}

TEST_F(ServerTest, clientsBeyondTheLimitAreRefused) {
   std::vector<std::unique_ptr<TestClient>> clients;
   while (clients.size() < Ordel::maxClients)
      clients.push_back(std::make_unique<TestClient>(server, TestClient::Silent()));
   TestClient late(server, TestClient::Silent());
   late.take();
   EXPECT_EQ(late.refused, "there are 1024 clients already");
   clients.pop_back();
   server.disconnect(*std::exchange(late.link, nullptr));
   TestClient next(server);
   EXPECT_TRUE(next.isWelcome);
}

// --- Malformed frames end one connection

struct MalformedTest : ServerTest {
   TestClient bystander{server};
   TestClient client{server};

   void verifyEnded(std::string const& reason) {
      client.take();
      EXPECT_EQ(client.refused, reason);
      EXPECT_TRUE(client.link->isRefused());
      EXPECT_FALSE(bystander.link->isRefused());
   }
   void verifyEndedBy(std::string_view bytes, std::string const& reason) {
      client.sendRaw(bytes);
      verifyEnded(reason);
   }
};

TEST_F(MalformedTest, emptyFrame) {
   verifyEndedBy("\0\0\0\0"sv, "a frame is empty or larger than the limit of 33554432 bytes");
}

TEST_F(MalformedTest, frameOverTheLimit) {
   verifyEndedBy("\x01\0\0\x02"sv, "a frame is empty or larger than the limit of 33554432 bytes");
}

TEST_F(MalformedTest, unknownType) {
   verifyEndedBy("\1\0\0\0\x33"sv, "there is no frame of type 51");
}

TEST_F(MalformedTest, frameOfTheOtherDirection) {
   client.request(Frame::mountDone, 1);
   verifyEnded("there is no frame of type 67");
}

TEST_F(MalformedTest, shortFrame) {
   verifyEndedBy("\3\0\0\0\3\0\0"sv, "a frame of type 3 can't be read");
}

TEST_F(MalformedTest, bytesBehindTheFrame) {
   verifyEndedBy("\6\0\0\0\3\0\0\0\0\0"sv, "a frame of type 3 can't be read");
}

TEST_F(MalformedTest, secondHello) {
   client.hello("again");
   verifyEnded("a second hello");
}

TEST_F(MalformedTest, operationsThatCannotBeRead) {
   client.write("\x7f"sv);
   client.take();
   EXPECT_THAT(client.refused, HasSubstr("a write can't be read: "));
   EXPECT_FALSE(bystander.link->isRefused());
}

TEST_F(MalformedTest, mountNumberInUse) {
   client.mount(1, "config");
   client.mount(1, "input");
   verifyEnded("mount 1 is in use");
}

TEST_F(MalformedTest, whatFollowsIsNotTaken) {
   client.mount(1, "config");
   client.sendRaw("\1\0\0\0\x33\0"sv);
   client.write(putNamed(config, "late", true));
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::named), 0u);
   EXPECT_TRUE(client.link->mounts().empty());
}

// --- Mounts

struct MountTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient client{server, "reader"};

   void verifyFailed(uint32_t number, Status status, std::string const& reason) {
      client.take();
      ASSERT_TRUE(client.failed.count(number));
      EXPECT_EQ(client.failed[number].text, reason);
      EXPECT_EQ(client.failed[number].status, status);
      EXPECT_FALSE(client.mounted.count(number));
      EXPECT_TRUE(client.link->mounts().empty());
   }
};

TEST_F(MountTest, entityComesWithAllThatItHolds) {
   writer.write(Block()
                    .at(config)
                    .set(Config::count, u32Bytes(7))
                    .put(Config::named, stringBytes("a"), "\1"sv)
                    .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
                    .at(config, {vlan(10)})
                    .set(Vlan::internal, "\1"sv)
                    .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 2)));
   client.mount(1, "config");
   client.take();
   EXPECT_EQ(client.mounted[1], config);
   EXPECT_EQ(client.done[1], 1u);
   EXPECT_THAT(standing(server, "config"), HasSubstr("Test::WideVlan"));
   verifyMirrored(client, "config");
}

TEST_F(MountTest, changesFollow) {
   client.mount(1, "config");
   client.take();
   client.changes.clear();
   writer.write(putNamed(config, "a", true));
   writer.write(putNamed(config, "b", false));
   client.take();
   EXPECT_EQ(client.changes.size(), 1u);
   verifyMirrored(client, "config");
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::named), 2u);
}

TEST_F(MountTest, oneAtIsSaidForOperationsThatFollowOneAnother) {
   client.mount(1, "config");
   client.take();
   writer.write(putNamed(config, "a", true));
   writer.write(putNamed(config, "b", false));
   client.take();
   EXPECT_EQ(hex(client.changes.back()), hex(Block()
                                                 .at(config)
                                                 .put(Config::named, stringBytes("a"), "\1"sv)
                                                 .put(Config::named, stringBytes("b"), "\0"sv)));
}

TEST_F(MountTest, directoryComesWithAllBelow) {
   writer.write(Block()
                    .at(dir)
                    .createNode("one", configType)
                    .createNode("sub", dirType)
                    .at(dir, {{0, stringBytes("sub")}})
                    .createNode("two", groupType)
                    .at(dir, {{0, stringBytes("one")}})
                    .set(Config::count, u32Bytes(3)));
   client.mount(1, "input");
   client.take();
   verifyMirrored(client, "input");
   EXPECT_NE(client.mirror.find("input/dir/sub/two"), nullptr);
   writer.write(Block()
                    .at(writer.node("input/dir/sub"))
                    .createNode("three", configType)
                    .at(writer.node("input/dir/sub"), {{0, stringBytes("three")}})
                    .set(Config::name, stringBytes("three"))
                    .set(Config::enabled, "\0"sv));
   client.take();
   verifyMirrored(client, "input");
   EXPECT_NE(client.mirror.find("input/dir/sub/three"), nullptr);
}

TEST_F(MountTest, shallowBringsNamesAndTypesOnly) {
   writer.write(Block()
                    .at(dir)
                    .createNode("one", configType)
                    .createNode("sub", dirType)
                    .at(dir, {{0, stringBytes("sub")}})
                    .createNode("two", groupType)
                    .at(dir, {{0, stringBytes("one")}})
                    .set(Config::count, u32Bytes(3)));
   client.mount(1, "input/dir", Ordel::mountShallow);
   client.take();
   ASSERT_NE(client.mirror.find("input/dir/one"), nullptr);
   EXPECT_EQ(client.mirror.value(*client.mirror.find("input/dir/one"), Config::count), u32Bytes(0));
   EXPECT_NE(client.mirror.find("input/dir/sub"), nullptr);
   EXPECT_EQ(client.mirror.find("input/dir/sub/two"), nullptr);

   size_t const frames = client.changes.size();
   writer.write(Block().at(writer.node("input/dir/one")).set(Config::count, u32Bytes(4)));
   client.take();
   EXPECT_EQ(client.changes.size(), frames);
   writer.write(Block().at(dir).erase(0, stringBytes("one")).createNode("new", groupType));
   client.take();
   EXPECT_EQ(client.mirror.find("input/dir/one"), nullptr);
   EXPECT_NE(client.mirror.find("input/dir/new"), nullptr);
}

TEST_F(MountTest, nothingElseIsSent) {
   client.mount(1, "config");
   client.take();
   size_t const bytes = client.takenBytes;
   writer.write(putNamed(server.tree().find("input/config/cli")->node(), "a", true));
   client.take();
   EXPECT_EQ(client.takenBytes, bytes);
}

TEST_F(MountTest, memberOfAMemberIsFiltered) {
   client.mount(1, "config.vlanConfig[10].intf[Ethernet1]", Ordel::mountAwait);
   client.take();
   EXPECT_EQ(client.mounted[1], config);
   EXPECT_EQ(client.done[1], 1u);
   writer.write(Block()
                    .at(config)
                    .create(Config::vlanConfig, u16Bytes(10), vlanType)
                    .create(Config::vlanConfig, u16Bytes(11), vlanType)
                    .at(config, {vlan(10)})
                    .set(Vlan::configuredName, stringBytes("ten"))
                    .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 2))
                    .put(Vlan::intf, intfBytes("Ethernet2"), portBytes(1, 0, 2)));
   client.take();
   EXPECT_EQ(hex(client.changes.back()),
             hex(Block()
                     .at(config)
                     .create(Config::vlanConfig, u16Bytes(10), vlanType)
                     .at(config, {vlan(10)})
                     .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 2))));
   writer.write(Block().at(config, {vlan(10)}).erase(Vlan::intf, intfBytes("Ethernet1")));
   writer.write(Block().at(config).erase(Config::vlanConfig, u16Bytes(10)));
   client.take();
   EXPECT_EQ(hex(client.changes.back()), hex(Block()
                                                 .at(config, {vlan(10)})
                                                 .erase(Vlan::intf, intfBytes("Ethernet1"))
                                                 .at(config)
                                                 .erase(Config::vlanConfig, u16Bytes(10))));
}

TEST_F(MountTest, filteredMountBringsWhatStands) {
   writer.write(Block()
                    .at(config)
                    .create(Config::vlanConfig, u16Bytes(10), vlanType)
                    .create(Config::vlanConfig, u16Bytes(11), vlanType)
                    .set(Config::count, u32Bytes(9))
                    .at(config, {vlan(10)})
                    .set(Vlan::configuredName, stringBytes("ten"))
                    .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 2)));
   client.mount(1, "config.vlanConfig[10]", 0, "Test::Vlan");
   client.mount(2, "config.count");
   client.mount(3, "input/config/cli.named");
   client.take();
   EXPECT_EQ(client.done.size(), 3u);
   Ordel::Entity const& mirroredConfig = *client.mirror.find("config");
   Ordel::Entity const* const ten = client.mirror.child(mirroredConfig, Config::vlanConfig, u16Bytes(10));
   ASSERT_NE(ten, nullptr);
   EXPECT_EQ(dump(client.mirror, *ten),
             dump(server.tree(),
                  *server.tree().child(*server.tree().find("config"), Config::vlanConfig, u16Bytes(10))));
   EXPECT_EQ(client.mirror.count(mirroredConfig, Config::vlanConfig), 1u);
   EXPECT_EQ(client.mirror.value(mirroredConfig, Config::count), u32Bytes(9));
}

TEST_F(MountTest, wholeMountTakesOverFromAFilteredOne) {
   client.mount(1, "config.named");
   client.take();
   client.mount(2, "config");
   writer.write(putNamed(config, "a", true));
   client.take();
   verifyMirrored(client, "config");
   client.unmount(1);
   writer.write(putNamed(config, "b", true));
   client.take();
   verifyMirrored(client, "config");
}

TEST_F(MountTest, memberThatIsErasedBetweenTwoOverlappingMountsIsTold) {
   writer.write(Block()
                    .at(config)
                    .create(Config::vlanConfig, u16Bytes(10), vlanType)
                    .put(Config::named, stringBytes("a"), "\1"sv));
   client.mount(1, "config.vlanConfig");
   client.mount(2, "config.named");
   client.take();
   client.mount(3, "config");
   writer.write(
       Block().at(config).erase(Config::vlanConfig, u16Bytes(10)).erase(Config::named, stringBytes("a")));
   client.take();
   verifyMirrored(client, "config");
}

TEST_F(MountTest, missingEntityFails) {
   client.mount(1, "input/dir/none");
   verifyFailed(1, Status::absent, "input/dir/none: not there");
}

TEST_F(MountTest, missingMemberFails) {
   client.mount(1, "config.named[a]");
   verifyFailed(1, Status::absent, "config.named[a]: not there");
}

TEST_F(MountTest, unknownAttributeFails) {
   client.mount(1, "config.colour");
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
   EXPECT_THAT(client.failed[1].text, HasSubstr("colour"));
}

TEST_F(MountTest, keyOutsideItsRangeFails) {
   client.mount(1, "config.vlanConfig[5000]", Ordel::mountAwait);
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
   EXPECT_THAT(client.failed[1].text, HasSubstr("VlanId::value < 1 or > 4094 not allowed"));
}

TEST_F(MountTest, selectorThatCannotBeParsedFails) {
   client.mount(1, "config.named[");
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
}

TEST_F(MountTest, otherTypeFails) {
   client.mount(1, "config", 0, "Test::Group");
   verifyFailed(1, Status::refused, "config: is a Test::Config, not a Test::Group");
}

TEST_F(MountTest, unknownTypeFails) {
   client.mount(1, "config", 0, "Test::Car");
   verifyFailed(1, Status::refused, "config: there is no type Test::Car");
}

TEST_F(MountTest, baseTypeIsGood) {
   client.mount(1, "input/config/cli", 0, "Test::Config");
   client.take();
   EXPECT_EQ(client.done[1], 1u);
}

TEST_F(MountTest, creatingMakesTheEntityAndTheDirectoriesOnTheWay) {
   TestClient other(server);
   other.mount(1, "input");
   other.take();
   client.mount(1, "input/dir/a/b/c", Ordel::mountCreate | Ordel::mountWrite, "Test::Config");
   client.take();
   ASSERT_NE(server.tree().find("input/dir/a/b/c"), nullptr);
   EXPECT_EQ(server.tree().find("input/dir/a/b/c")->type().name, "Test::Config");
   EXPECT_EQ(client.mounted[1], client.node("input/dir/a/b/c"));
   EXPECT_EQ(client.done[1], 1u);
   other.take();
   verifyMirrored(other, "input");
}

TEST_F(MountTest, creatingTakesWhatStands) {
   client.mount(1, "config", Ordel::mountCreate, "Test::Config");
   client.take();
   EXPECT_EQ(client.mounted[1], config);
}

TEST_F(MountTest, creatingIsAllOrNothing) {
   std::string const before = standing(server, "");
   std::string const longName(300, 'x');
   client.mount(1, "input/dir/a/b/" + longName, Ordel::mountCreate, "Test::Config");
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
   EXPECT_EQ(standing(server, ""), before);
   client.mount(1, "input/dir/a/b", Ordel::mountCreate);
   client.take();
   EXPECT_EQ(client.failed[1].text, "input/dir/a/b: what is to be created needs a type");
   EXPECT_EQ(standing(server, ""), before);
   client.mount(1, "config/below", Ordel::mountCreate, "Test::Config");
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
   EXPECT_EQ(standing(server, ""), before);
}

TEST_F(MountTest, awaitedEntityIsMountedWheneverItComes) {
   client.mount(1, "input/dir/late", Ordel::mountAwait);
   client.take();
   EXPECT_EQ(client.mounted.at(1), 0u);
   EXPECT_EQ(client.done[1], 1u);
   EXPECT_TRUE(client.failed.empty());

   writer.write(Block()
                    .at(dir)
                    .createNode("late", configType)
                    .at(dir, {{0, stringBytes("late")}})
                    .set(Config::count, u32Bytes(3)));
   client.take();
   EXPECT_EQ(client.mounted[1], client.node("input/dir/late"));
   EXPECT_EQ(client.done[1], 2u);
   verifyMirrored(client, "input/dir/late");

   writer.write(Block().at(dir).erase(0, stringBytes("late")));
   client.take();
   EXPECT_THAT(client.unmounted, ElementsAre(1u));
   EXPECT_EQ(client.mirror.find("input/dir/late"), nullptr);

   writer.write(Block()
                    .at(dir)
                    .createNode("late", configType)
                    .at(dir, {{0, stringBytes("late")}})
                    .set(Config::count, u32Bytes(4)));
   client.take();
   EXPECT_EQ(client.done[1], 3u);
   verifyMirrored(client, "input/dir/late");
}

TEST_F(MountTest, awaitedEntityOfAnotherTypeFails) {
   client.mount(1, "input/dir/late", Ordel::mountAwait, "Test::Config");
   writer.write(Block().at(dir).createNode("late", groupType));
   client.take();
   EXPECT_EQ(client.failed[1].text, "input/dir/late: is a Test::Group, not a Test::Config");
   EXPECT_TRUE(client.link->mounts().empty());
}

TEST_F(MountTest, awaitingWhereNothingCanStandFails) {
   client.mount(1, "config/below", Ordel::mountAwait);
   client.take();
   EXPECT_EQ(client.failed[1].status, Status::refused);
}

TEST_F(MountTest, deletedEntityEndsItsMount) {
   writer.write(Block().at(dir).createNode("one", configType));
   client.mount(1, "input/dir/one");
   client.take();
   writer.write(Block().at(dir).erase(0, stringBytes("one")));
   client.take();
   EXPECT_THAT(client.unmounted, ElementsAre(1u));
   EXPECT_TRUE(client.link->mounts().empty());
   client.mount(1, "config"); // the number is free again
   client.take();
   EXPECT_EQ(client.done[1], 2u);
}

TEST_F(MountTest, overlappingMountsSendOnce) {
   writer.write(Block()
                    .at(dir)
                    .createNode("one", configType)
                    .at(dir, {{0, stringBytes("one")}})
                    .put(Config::named, stringBytes("a"), "\1"sv));
   client.mount(1, "input/dir");
   client.take();
   size_t const bytes = client.changesBytes();
   client.mount(2, "input");
   client.mount(3, "input/dir/one");
   client.mount(4, "input/dir/one.named");
   client.take();
   EXPECT_EQ(client.done.size(), 4u);
   verifyMirrored(client, "input");
   // What was new is `input` itself and the other directory in it, without what the first mount had brought.
   for (size_t i = 1; i < client.changes.size(); ++i)
      EXPECT_THAT(client.changes[i], ::testing::Not(HasSubstr(stringBytes("a"))));
   EXPECT_GT(client.changesBytes(), bytes);

   client.changes.clear();
   writer.write(putNamed(client.node("input/dir/one"), "b", true));
   client.take();
   EXPECT_EQ(hex(client.changes.at(0)),
             hex(Block().at(client.node("input/dir/one")).put(Config::named, stringBytes("b"), "\1"sv)));
   EXPECT_EQ(client.changes.size(), 1u);
}

TEST_F(MountTest, unmountLeavesWhatAnotherMountCovers) {
   writer.write(Block().at(dir).createNode("one", configType));
   client.mount(1, "input");
   client.mount(2, "input/dir/one");
   client.take();
   client.unmount(1);
   client.changes.clear();
   writer.write(putNamed(client.node("input/dir/one"), "b", true));
   writer.write(Block().at(dir).createNode("two", configType));
   client.take();
   EXPECT_EQ(client.changes.size(), 1u);
   verifyMirrored(client, "input/dir/one");
   client.unmount(2);
   writer.write(putNamed(client.node("input/dir/one"), "c", true));
   client.take();
   EXPECT_EQ(client.changes.size(), 1u);
   client.unmount(77); // never was
   EXPECT_FALSE(client.link->isRefused());
}

TEST_F(MountTest, tooManyMountsAreRefused) {
   for (uint32_t i = 0; i < Ordel::maxMountsPerClient; ++i)
      client.mount(i, "config");
   client.mount(9999, "config");
   client.take();
   EXPECT_EQ(client.failed[9999].text, "more than 4096 mounts");
   EXPECT_EQ(client.done.size(), Ordel::maxMountsPerClient);
}

// --- Writes

struct WriteTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient reader{server, "reader"};

   void SetUp() override {
      reader.mount(1, "config");
      reader.mount(2, "input");
      reader.take();
      reader.changes.clear();
   }
};

TEST_F(WriteTest, isAppliedWholeOrNotAtAll) {
   std::string const before = standing(server, "");
   writer.write(
       Block().at(config).put(Config::named, stringBytes("a"), "\1"sv).set(Config::vlan, u16Bytes(5000)), 5);
   writer.take();
   EXPECT_EQ(writer.replies[5].status, Status::refused);
   EXPECT_EQ(writer.replies[5].text, "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_EQ(standing(server, ""), before);
   reader.take();
   EXPECT_THAT(reader.changes, IsEmpty());
   EXPECT_FALSE(writer.link->isRefused());
   writer.write(putNamed(config, "a", true), 6);
   writer.take();
   EXPECT_EQ(writer.replies[6].status, Status::done);
}

TEST_F(WriteTest, refusalIsToldWithoutARequestToo) {
   writer.write(Block().at(config).set(Config::vlan, u16Bytes(0)));
   writer.take();
   EXPECT_EQ(writer.replies.at(0).text, "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_FALSE(writer.link->isRefused());
}

TEST_F(WriteTest, doneIsToldOnRequestOnly) {
   writer.write(putNamed(config, "a", true));
   writer.take();
   EXPECT_TRUE(writer.replies.empty());
}

TEST_F(WriteTest, strictWriteOfWhatIsNotThereIsAbsent) {
   writer.write(Block().at(config).erase(Config::named, stringBytes("a")), 7, Ordel::writeStrict);
   writer.take();
   EXPECT_EQ(writer.replies.at(7).status, Status::absent);
   EXPECT_EQ(writer.replies.at(7).text, "config.named[a]: not there");
}

TEST_F(WriteTest, whatChangesNothingReachesNobody) {
   writer.write(putNamed(config, "a", true));
   reader.take();
   reader.changes.clear();
   writer.write(putNamed(config, "a", true));
   reader.take();
   EXPECT_THAT(reader.changes, IsEmpty());
}

TEST_F(WriteTest, writerDoesNotGetItsOwnOperations) {
   writer.mount(1, "config");
   writer.take();
   writer.changes.clear();
   writer.write(putNamed(config, "a", true));
   writer.take();
   EXPECT_THAT(writer.changes, IsEmpty());
}

TEST_F(WriteTest, writerLearnsTheNumbersOfItsNodes) {
   writer.mount(1, "input/dir");
   writer.take();
   writer.changes.clear();
   writer.write(Block()
                    .at(dir)
                    .createNode("one", configType)
                    .at(dir, {{0, stringBytes("one")}})
                    .set(Config::count, u32Bytes(3)));
   writer.take();
   uint32_t const one = writer.node("input/dir/one");
   ASSERT_EQ(writer.changes.size(), 1u);
   EXPECT_EQ(hex(writer.changes[0]), hex(Block().at(dir).createNode("one", configType, one)));
   // What others write of it comes.
   reader.write(Block().at(one).set(Config::count, u32Bytes(4)));
   writer.take();
   EXPECT_EQ(hex(writer.changes.at(1)), hex(Block().at(one).set(Config::count, u32Bytes(4))));
}

TEST_F(WriteTest, oneFrameOfAWriterComesInOneFrame) {
   Block block;
   block.at(config);
   for (int i = 0; i < 50000; ++i)
      block.put(Config::named, stringBytes("member " + std::to_string(i)), "\1"sv);
   writer.write(block);
   reader.take();
   ASSERT_EQ(reader.changes.size(), 1u);
   EXPECT_EQ(hex(reader.changes[0]), hex(block));
}

// --- Slow subscribers

struct SlowTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient slow{server, "slow"};
   std::mt19937 random{1};

   // Puts so many bytes before the client that the rest is folded.
   void fallBehind(std::string_view path = "config") {
      uint32_t const number = 1000;
      slow.mount(number, path);
      slow.take();
      std::string const large(1'000'000, 'x');
      for (int i = 0; i < 40 && slow.link->pending().empty(); ++i)
         writer.write(Block().at(config).set(Config::text, stringBytes(large + std::to_string(i))));
      ASSERT_FALSE(slow.link->pending().empty());
   }
   size_t held() const { return slow.link->pendingBytes() + slow.link->pending().markCount() * 64; }
};

TEST_F(SlowTest, aMillionWritesCostNoMoreThanTheKeysTheyWentTo) {
   slow.mount(1, "config");
   slow.take();
   size_t most = 0;
   for (int i = 0; i < 10000; ++i) {
      Block block;
      block.at(config);
      for (int k = 0; k < 100; ++k)
         block.put(Config::xlate, u32Bytes(random() % 1000), stringBytes("0123456") + stringBytes("1234567"));
      // Values differ, so that each takes effect.
      std::string bytes(block.view());
      for (int k = 0; k < 100; ++k)
         std::memcpy(bytes.data() + 6 + k * 22 + 6, &i, sizeof i);
      writer.write(bytes);
      slow.link->fill(); // the end of a turn
      most = std::max(most, held());
   }
   EXPECT_GT(server.sequence(), 9000u);
   EXPECT_LE(slow.link->pending().markCount(), 1001u);
   EXPECT_LE(most, ServerClient::changesLimit + 200'000);
   slow.take();
   verifyMirrored(slow, "config");
   EXPECT_TRUE(slow.link->pending().empty());
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::xlate), 1000u);
}

TEST_F(SlowTest, keysThatComeAndGoLeaveNothingBehind) {
   fallBehind();
   for (int i = 0; i < 20000; ++i) {
      writer.write(putNamed(config, "member of a long name " + std::to_string(i), true));
      writer.write(Block().at(config).create(Config::group, stringBytes(std::to_string(i)), groupType));
      writer.write(Block()
                       .at(config)
                       .erase(Config::named, stringBytes("member of a long name " + std::to_string(i)))
                       .erase(Config::group, stringBytes(std::to_string(i))));
   }
   EXPECT_LE(slow.link->pending().markCount(), 2u);
   slow.take();
   verifyMirrored(slow, "config");
}

TEST_F(SlowTest, nodesThatComeAndGoLeaveNothingBehind) {
   fallBehind();
   slow.mount(1, "input");
   for (int i = 0; i < 1000; ++i) {
      writer.write(Block()
                       .at(dir)
                       .createNode("n" + std::to_string(i), configType)
                       .at(dir, {{0, stringBytes("n" + std::to_string(i))}})
                       .set(Config::count, u32Bytes(1)));
      writer.write(Block().at(dir).erase(0, stringBytes("n" + std::to_string(i))));
   }
   EXPECT_LE(slow.link->pending().markCount(), 20u);
   slow.take();
   verifyMirrored(slow, "input");
   verifyMirrored(slow, "config");
}

TEST_F(SlowTest, erasedAndMadeAnewChildIsErasedAndMadeAnew) {
   writer.write(Block()
                    .at(config)
                    .create(Config::vlanConfig, u16Bytes(10), vlanType)
                    .at(config, {vlan(10)})
                    .set(Vlan::internal, "\1"sv)
                    .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 0)));
   fallBehind();
   writer.write(Block().at(config, {vlan(10)}).put(Vlan::intf, intfBytes("Ethernet3"), portBytes(1, 0, 0)));
   writer.write(Block().at(config).erase(Config::vlanConfig, u16Bytes(10)));
   writer.write(Block()
                    .at(config)
                    .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
                    .at(config, {vlan(10)})
                    .put(Vlan::intf, intfBytes("Ethernet2"), portBytes(0, 1, 0)));
   slow.take();
   verifyMirrored(slow, "config");
   EXPECT_THAT(slow.changes.back(), HasSubstr(Block()
                                                  .erase(Config::vlanConfig, u16Bytes(10))
                                                  .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
                                                  .view()));
}

TEST_F(SlowTest, changesInsideChildrenAreFolded) {
   writer.write(Block()
                    .at(config)
                    .create(Config::group, stringBytes("g"), groupType)
                    .at(config, {{Config::group, stringBytes("g")}})
                    .create(Group::group, stringBytes("h"), groupType));
   fallBehind();
   std::vector<Step> const h{{Config::group, stringBytes("g")}, {Group::group, stringBytes("h")}};
   for (int i = 0; i < 1000; ++i)
      writer.write(
          Block().at(config, h).put(Group::member, std::string(1, static_cast<char>(i % 7)), u32Bytes(i)));
   writer.write(Block().at(config, h).erase(Group::member, "\3"sv));
   EXPECT_LE(slow.link->pending().markCount(), 10u);
   slow.take();
   verifyMirrored(slow, "config");
}

TEST_F(SlowTest, erasedNodeIsErased) {
   writer.write(Block().at(dir).createNode("one", configType).createNode("two", configType));
   slow.mount(1, "input");
   slow.take();
   fallBehind();
   writer.write(Block().at(dir).erase(0, stringBytes("one")).erase(0, stringBytes("two")));
   writer.write(Block()
                    .at(dir)
                    .createNode("two", groupType)
                    .at(dir, {{0, stringBytes("two")}})
                    .put(Group::member, "\1"sv, u32Bytes(4)));
   slow.take();
   verifyMirrored(slow, "input");
   EXPECT_EQ(slow.mirror.find("input/dir/one"), nullptr);
}

TEST_F(SlowTest, changesWhileALargeMountIsSentArriveToo) {
   for (int i = 0; i < 200; ++i) {
      Block block;
      block.at(config);
      for (int k = 0; k < 500; ++k)
         block.put(Config::named, stringBytes("member " + std::to_string(i * 500 + k)), "\1"sv);
      writer.write(block);
   }
   slow.mount(1, "config");
   for (int i = 0; slow.done[1] == 0; ++i) {
      slow.take(50'000);
      std::string const name = "member " + std::to_string(random() % 100'000);
      if (i % 2)
         writer.write(Block().at(config).erase(Config::named, stringBytes(name)));
      else
         writer.write(putNamed(config, "new " + name, i % 4));
      ASSERT_LT(i, 1000);
      EXPECT_LE(held(), 1u << 20);
   }
   slow.take();
   verifyMirrored(slow, "config");
}

TEST_F(SlowTest, mountDoneComesThoughTheNodeKeepsChanging) {
   for (int k = 0; k < 100'000; ++k)
      writer.write(putNamed(config, "member " + std::to_string(k), true));
   slow.mount(1, "config");
   int turns = 0;
   for (; slow.done[1] == 0 && turns < 1000; ++turns) {
      slow.take(50'000);
      for (int k = 0; k < 5000; ++k)
         writer.write(putNamed(config, "member " + std::to_string(random() % 100'000), turns % 2));
   }
   EXPECT_EQ(slow.done[1], 1u);
   EXPECT_LT(turns, 200);
}

TEST_F(SlowTest, clientThatKeepsTakingMayLagFurther) {
   slow.mount(1, "config");
   slow.take();
   std::string const large(1'000'000, 'x');
   int count = 0;
   auto const lag = [&](int frames) {
      for (int i = 0; i < frames; ++i)
         writer.write(Block().at(config).set(Config::text, stringBytes(large + std::to_string(++count))));
      return !slow.link->pending().empty();
   };
   EXPECT_FALSE(lag(25));
   EXPECT_TRUE(lag(20));
   EXPECT_LE(slow.link->pendingBytes(), ServerClient::changesLimit + ServerClient::readerBonus + 1'000'100);
   slow.take();
   verifyMirrored(slow, "config");
   // Turns in which it takes nothing.
   lag(3);
   for (int i = 0; i < 100; ++i)
      slow.link->fill();
   EXPECT_TRUE(lag(2));
}

TEST_F(SlowTest, otherClientsAreServedMeanwhile) {
   TestClient quick(server, "quick");
   quick.mount(1, "config");
   quick.take();
   fallBehind();
   quick.take();
   verifyMirrored(quick, "config");
   writer.write(putNamed(config, "a", true));
   quick.take();
   verifyMirrored(quick, "config");
   EXPECT_TRUE(quick.link->pending().empty());
}

TEST_F(SlowTest, clientThatAsksAndDoesNotReadHasToWait) {
   TestClient asking(server, "asking");
   for (int i = 0; i < 1'000'000 && asking.link->wantsReading(); ++i)
      asking.request(Frame::clients, 5);
   EXPECT_FALSE(asking.link->wantsReading());
   EXPECT_LE(asking.link->pendingBytes(),
             ServerClient::changesLimit + ServerClient::readerBonus + ServerClient::answersRoom + 10000);
   asking.take();
   EXPECT_TRUE(asking.link->wantsReading());
}

TEST_F(SlowTest, writerThatDoesNotReadAndConflictsHasToWait) {
   slow.appliesOwn = true;
   fallBehind();
   int i = 0;
   for (; i < 1'000'000 && slow.link->wantsReading(); ++i) {
      slow.write(putNamed(config, std::to_string(i), true));
      slow.write(Block().at(config).erase(Config::named, stringBytes(std::to_string(i))));
   }
   EXPECT_FALSE(slow.link->wantsReading());
   EXPECT_LE(slow.link->pending().markCount(), ServerClient::straysLimit + 10);
   slow.take();
   EXPECT_TRUE(slow.link->wantsReading());
   verifyMirrored(slow, "config");
}

TEST_F(SlowTest, disconnectingWhileBehindIsFine) {
   fallBehind();
   server.disconnect(*std::exchange(slow.link, nullptr));
   writer.write(putNamed(config, "a", true));
   EXPECT_EQ(server.clients().size(), 1u);
}

// --- Other requests

TEST_F(ServerTest, clientsAreReportedAsJson) {
   TestClient client(server, "na\"me\n\xff\xc3\xa9");
   client.mount(1, "config", Ordel::mountWrite | Ordel::mountCreate, "Test::Config");
   client.mount(2, "input/dir/x", Ordel::mountAwait | Ordel::mountShallow);
   client.write(putNamed(config, "a", true));
   client.take();
   client.request(Frame::clients, 3);
   client.take();
   EXPECT_EQ(client.replies[3].status, Status::done);
   EXPECT_THAT(client.replies[3].text,
               testing::StartsWith(
                   "[{\"name\": \"na\\\"me\\u000a\\ufffd\xc3\xa9\", \"pid\": 1000, \"uid\": 0, \"role\": "
                   "\"tool\", \"mounts\": [{\"path\": \"config\", \"type\": \"Test::Config\", \"mode\": "
                   "\"wc\"}, {\"path\": \"input/dir/x\", \"type\": \"\", \"mode\": \"ras\"}], "
                   "\"pendingBytes\": 0, \"pendingMarks\": 0, \"receivedBytes\": "));
   EXPECT_THAT(client.replies[3].text,
               HasSubstr("\"receivedOperations\": 1, \"refusedWrites\": 0, \"sentBytes\": "));
}

TEST_F(ServerTest, snapshotIsWrittenOnRequest) {
   TestClient client(server);
   client.request(Frame::snapshot, 4);
   Kem::activityManager()->advance(2);
   snapshotError = "disk full";
   client.request(Frame::snapshot, 5);
   client.take();
   EXPECT_EQ(snapshotCount, 2);
   EXPECT_EQ(client.replies[4].status, Status::done);
   EXPECT_EQ(client.replies[5].status, Status::refused);
   EXPECT_EQ(client.replies[5].text, "disk full");
}

TEST_F(ServerTest, snapshotWithoutAFileIsRefused) {
   Server bare(std::make_unique<Tree>(schema(), 1), "switch1");
   TestClient client(bare);
   client.request(Frame::snapshot, 4);
   client.take();
   EXPECT_EQ(client.replies[4].text, "the database runs without a snapshot file");
}

} // namespace

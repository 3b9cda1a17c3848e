#include "KernelNetworkInfo/LinkMessages.h"

#include "Netlink/TestChannel.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

namespace {

using namespace KernelNetworkInfo;
using Netlink::doneMessage;
using Netlink::errorMessage;
using Netlink::linkMessage;
using Netlink::MessageBuilder;

// "+1 lo 0x49;" for a device, "-1 lo;" for one that is gone, "end#7;" of a dump; "bad" where something could
// not be read.
std::string eventsOf(std::string_view datagram) {
   std::vector<LinkEvent> events;
   bool const isGood = readLinkEvents(datagram, events);
   std::ostringstream out;
   for (auto const& event : events) {
      if (event.kind == LinkEvent::present)
         out << "+" << event.index << " " << event.name << " 0x" << std::hex << event.flags << std::dec;
      else if (event.kind == LinkEvent::gone)
         out << "-" << event.index << " " << event.name;
      else
         out << "end#" << event.sequence << (event.error ? " " + std::to_string(event.error) : "");
      out << (event.isInterrupted ? "!;" : ";");
   }
   return out.str() + (isGood ? "" : "bad");
}

TEST(LinkMessages, devicesComeAndGo) {
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "lo", 0x49)), "+1 lo 0x49;");
   EXPECT_EQ(eventsOf(linkMessage(RTM_DELLINK, 7, "vlan10")), "-7 vlan10;");
}

TEST(LinkMessages, dumpComesInSeveralParts) {
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "lo", 1, 7, NLM_F_MULTI) +
                      linkMessage(RTM_NEWLINK, 2, "eth0", 0, 7, NLM_F_MULTI)),
             "+1 lo 0x1;+2 eth0 0x0;");
   EXPECT_EQ(eventsOf(doneMessage(7)), "end#7;");
}

TEST(LinkMessages, interruptedAndFailedDumpsSaySo) {
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "lo", 1, 7, NLM_F_MULTI | NLM_F_DUMP_INTR)), "+1 lo 0x1!;");
   EXPECT_EQ(eventsOf(doneMessage(7, 0, NLM_F_DUMP_INTR)), "end#7!;");
   EXPECT_EQ(eventsOf(doneMessage(7, ENOMEM)), "end#7 12;");
   EXPECT_EQ(eventsOf(errorMessage(7, EBUSY)), "end#7 16;");
   EXPECT_EQ(eventsOf(errorMessage(7, 0)), "") << "an acknowledgement";
}

TEST(LinkMessages, portsOfBridgesAreNoDevices) {
   ifinfomsg header{};
   header.ifi_family = AF_BRIDGE;
   header.ifi_index = 7;
   MessageBuilder left(RTM_DELLINK, 0, header);
   left.textAttribute(IFLA_IFNAME, "vlan10");
   EXPECT_EQ(eventsOf(left.bytes()), "");
}

TEST(LinkMessages, otherTypesAreLeftOut) {
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWADDR, 1, "lo")), "");
   EXPECT_EQ(eventsOf(""), "");
}

TEST(LinkMessages, whatTheKernelDroppedIsTold) {
   EXPECT_EQ(eventsOf(MessageBuilder(NLMSG_OVERRUN, 0, 0).bytes()), "bad");
}

TEST(LinkMessages, namesThatAreNoneAreRefused) {
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "")), "bad");
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "../etc")), "bad");
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "sixteen-bytes-ab")), "bad");
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 1, "fifteen-bytes-a")), "+1 fifteen-bytes-a 0x0;");
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, 0, "lo")), "bad");
   EXPECT_EQ(eventsOf(linkMessage(RTM_NEWLINK, -1, "lo")), "bad");
   EXPECT_EQ(eventsOf(MessageBuilder(RTM_NEWLINK, 0, ifinfomsg{}).bytes()), "bad");
}

TEST(LinkMessages, nameWithoutItsZeroEndsWithTheAttribute) {
   ifinfomsg header{};
   header.ifi_index = 3;
   MessageBuilder message(RTM_NEWLINK, 0, header);
   message.attribute(IFLA_IFNAME, "eth0");
   EXPECT_EQ(eventsOf(message.bytes()), "+3 eth0 0x0;");
}

TEST(LinkMessages, everyCutOfADatagramIsReadAsFarAsItGoes) {
   std::string const first = linkMessage(RTM_NEWLINK, 1, "lo", 1);
   std::string const whole = first + linkMessage(RTM_NEWLINK, 2, "eth0", 1);
   for (size_t bytes = 1; bytes < whole.size(); ++bytes) {
      // Behind the first message, and on its own copy, so that a read beyond the cut can be seen.
      std::vector<char> const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
      EXPECT_EQ(eventsOf({cut.data(), cut.size()}),
                std::string(bytes < first.size() ? "" : "+1 lo 0x1;") + (bytes == first.size() ? "" : "bad"))
          << bytes;
   }
}

TEST(LinkMessages, endWithoutAResultIsRefused) {
   std::string done = doneMessage(7);
   uint32_t const length = 16;
   std::memcpy(done.data(), &length, sizeof length);
   done.resize(length);
   EXPECT_EQ(eventsOf(done), "bad");
   EXPECT_EQ(eventsOf(doneMessage(7, -1)), "bad") << "a positive result";
   EXPECT_EQ(eventsOf(errorMessage(7, 4096)), "bad");
}

TEST(LinkMessages, mtuIsReadWhereItIsWhole) {
   ifinfomsg header{};
   header.ifi_index = 2;
   MessageBuilder message(RTM_NEWLINK, 0, header);
   message.textAttribute(IFLA_IFNAME, "eth0");
   auto cut = message;
   uint32_t const mtu = 9000;
   message.attribute(IFLA_MTU, &mtu, sizeof mtu);
   cut.attribute(IFLA_MTU, &mtu, 2);
   std::vector<LinkEvent> events;
   EXPECT_TRUE(readLinkEvents(message.bytes() + cut.bytes() + linkMessage(RTM_NEWLINK, 2, "eth0"), events));
   ASSERT_EQ(events.size(), 3u);
   EXPECT_EQ(events[0].mtu, 9000u);
   EXPECT_EQ(events[1].mtu, 0u);
   EXPECT_EQ(events[2].mtu, 0u);
}

} // namespace

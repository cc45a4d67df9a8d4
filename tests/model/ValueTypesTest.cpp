// The value types: ranges, parsing and printing, order, hashes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>

#include "framework/Moru/Exception.h"
#include "framework/Moru/PtrInterface.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Bridging/VlanId.h"
#include "model/Bridging/VlanIdOrNone.h"
#include "model/L2Rib/CiDest.h"
#include "model/L2Rib/Dest.h"
#include "model/L2Rib/Host.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpGenAddr.h"
#include "model/Vxlan/ReceivedEntry.h"
#include "model/Vxlan/VniExt.h"
#include "model/Vxlan/VniSourcePair.h"
#include "model/VxlanController/MacVtepMultiPathV2.h"
#include "model/VxlanController/MacVtepV2.h"

namespace {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using L2Rib::Dest;
using L2Rib::DestId;
using L2Rib::DestTag;
using testing::ElementsAre;
using Vorn::EthAddr;
using Vorn::IntfId;
using Vorn::Ip6Addr;
using Vorn::IpAddr;
using Vorn::IpGenAddr;
using Vxlan::VniExt;
using Vxlan::VniSourcePair;

template <class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <class T>
void expectBounds(std::int64_t min, std::int64_t max, std::int64_t wraps, const std::string& text) {
  for (const std::int64_t value : {min, max}) EXPECT_EQ(printed(T(value)), std::to_string(value));
  for (const std::int64_t value : {min - 1, max + 1, wraps})
    EXPECT_THAT([value] { T{value}; },
                testing::ThrowsMessage<Moru::RangeException>(testing::StrEq(text)));
}

TEST(RangedNumbers, AcceptTheirRangeAndNothingBesideIt) {
  expectBounds<VlanId>(1, 4094, 65537, "VlanId::value < 1 or > 4094 not allowed");
  expectBounds<VlanIdOrNone>(0, 4094, 65536, "VlanIdOrNone::value > 4094 not allowed");
  expectBounds<VniExt>(0, 4294967294, 4294967296,
                       "VniExt::value < VniExt::min or > VniExt::max not allowed");
  EXPECT_EQ(VlanId(), VlanId(1));
  EXPECT_TRUE(!VlanIdOrNone());
  EXPECT_EQ(VniExt(0), VniExt());
}

TEST(VniSourcePair, IsEmptyOnlyByDefaultAndChecksItsVniWhenAsked) {
  EXPECT_TRUE(!VniSourcePair());
  EXPECT_FALSE(!VniSourcePair(VniExt(0))) << "VNI 0 is a VNI";
  EXPECT_NE(VniSourcePair(VniExt(1)).hash(), VniSourcePair(VniExt(2)).hash());
  EXPECT_EQ(printed(VniSourcePair(VniExt(7))), "7");
  const VniSourcePair raw(4294967295U);
  EXPECT_FALSE(!raw);
  EXPECT_THROW(raw.vni(), Moru::RangeException);
}

template <class T>
void expectParsed(std::initializer_list<std::pair<std::string_view, T>> right,
                  std::initializer_list<std::string_view> wrong) {
  for (const auto& [text, value] : right) EXPECT_EQ(T::parse(text), value) << text;
  for (const auto text : wrong) EXPECT_EQ(T::parse(text), std::nullopt) << text;
}

constexpr auto mac = EthAddr::fromValue(0x02005e1000ff);
constexpr IpAddr four(0x0a000002);
constexpr Ip6Addr six({0x20010db8, 0, 0, 1});

TEST(Addresses, AreParsedAsAWhole) {
  using namespace std::string_view_literals;
  expectParsed<EthAddr>(
      {{"02:00:5e:10:00:fF", mac}, {"2:0:0:0:0:1", EthAddr::fromValue(0x020000000001)}},
      {"", "02:00:00:00:00", "02:00:00:00:00:01:", "02:00:00:00:00:01:02", "02:00:00:00:00:001",
       "02:00::00:00:01", "02:00:00:00:00:0g", "-2:00:00:00:00:01", " 2:00:00:00:00:01"});
  expectParsed<IpAddr>({{"10.0.0.2", four}},
                       {"", "10.0.0", "10.0.0.256", "10.0.0.2 ", "::1", "1.0.0.2\0"sv});
  expectParsed<Ip6Addr>({{"2001:db8::1", six}}, {"2001:db8"});
  expectParsed<IpGenAddr>({{"10.0.0.2", four}, {"2001:db8::1", six}}, {"nowhere"});
}

TEST(Addresses, ArePrintedTracedAndOrderedAsTheirBytes) {
  EXPECT_EQ(printed(mac), "02:00:5e:10:00:ff");
  EXPECT_THAT(traceValue(mac).bytes, ElementsAre(0x02, 0x00, 0x5e, 0x10, 0x00, 0xff));
  EXPECT_LT(EthAddr::fromValue(0x00ff00000000), EthAddr::fromValue(0x010000000000));
  EXPECT_EQ(printed(IpAddr(0xfffefdfc)), "255.254.253.252");
  EXPECT_LT(IpAddr(0x09ffffff), IpAddr(0x0a000000));
  EXPECT_EQ(printed(IpGenAddr(six)), "2001:db8::1");
  EXPECT_THAT(traceValue(IpGenAddr(six)).bytes,
              ElementsAre(0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1));
}

TEST(IpGenAddr, IsOneKindOrTheOther) {
  const IpGenAddr one(IpAddr(1));
  const IpGenAddr sameWords(Ip6Addr({1, 0, 0, 0}));
  EXPECT_NE(one, sameWords);
  EXPECT_EQ(sameWords.ip4(), IpAddr());
  EXPECT_EQ(one.ip6(), Ip6Addr());
  EXPECT_EQ(one.hash(), IpAddr(1).hash());
  EXPECT_NE(one.hash(), sameWords.hash());
  EXPECT_EQ(Ip6Addr({1, 2, 4, 8}).hash(), 15U);
}

TEST(IntfId, IsTheNameAtThePriceOfANumber) {
  EXPECT_NE(IntfId("Vxlan1"), IntfId("Vxlan2"));
  EXPECT_EQ(IntfId(), IntfId(""));
  const IntfId later("IntfB");
  const IntfId earlier("IntfA");
  EXPECT_LT(earlier, later) << "by name, not by first use";
  const auto fill = [] {
    for (int i = 0; i < 2'000; ++i)
      EXPECT_EQ(IntfId("Intf" + std::to_string(i)).stringValue(), "Intf" + std::to_string(i));
  };
  Moru::PtrInterface::threadSafeIs(true);
  std::thread other(fill);
  fill();
  other.join();
  Moru::PtrInterface::threadSafeIs(false);
}

TEST(MacVlanPair, OrdersByMacThenVlanFromItsDefault) {
  const MacVlanPair lowest;
  const MacVlanPair next{EthAddr(), VlanId(2)};
  const MacVlanPair last{EthAddr::fromValue(1), VlanId(1)};
  EXPECT_NE(lowest, next);
  EXPECT_LT((MacVlanPair{EthAddr(), VlanId(4094)}), last);
  EXPECT_TRUE(lowest < next && next < last);
  EXPECT_EQ(traceValue(next).vlan, 2);
}

TEST(Records, AreAbsentByWhatMattersInThem) {
  VxlanController::MacVtepV2 macVtep;
  macVtep.hostKind = static_cast<VxlanController::HostKind>(16);
  EXPECT_EQ(macVtep, VxlanController::MacVtepV2());

  VxlanController::MacVtepMultiPathV2 paths(EthAddr::fromValue(7));
  EXPECT_TRUE(!paths);
  EXPECT_NE(paths, VxlanController::MacVtepMultiPathV2());
  paths.vtepIpList[IpAddr(1)] = false;
  EXPECT_FALSE(!paths) << "the flag does not matter";
  EXPECT_EQ(printed(paths), "00:00:00:00:00:07 vteps 0.0.0.1");
}

// Different numbers, so that none can stand for another.
TEST(Records, PrintTheirFields) {
  const MacVlanPair key{EthAddr::fromValue(1), VlanId(2)};
  EXPECT_EQ(
      printed(VxlanController::MacVtepV2{key.mac, IpAddr(3), 4, VxlanController::HostKind{5}}),
      "00:00:00:00:00:01 vtep 0.0.0.3 moveCount 4 hostKind 5");
  Vxlan::ReceivedEntry entry{key, IntfId("E"), 3, IpAddr(4), 5, 6, 7, true, 8};
  EXPECT_EQ(printed(entry),
            "00:00:00:00:00:01 vlan 2 vti E vtep 0.0.0.4 source 3 moveCount 6 hostKind 7 time 8 "
            "marked for deletion");
  Vxlan::ReceivedEntry withDefaultKey;
  withDefaultKey.source = 1;
  EXPECT_FALSE(!withDefaultKey);
  entry.markedForDel = false;
  EXPECT_THAT(printed(entry), testing::EndsWith("time 8"));
  L2Rib::Host host;
  host.key = key;
  host.moveCount = 3;
  host.kind = 4;
  EXPECT_EQ(host.entryType, 16U);
  host.time = 5;
  host.source = 6;
  host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  host.dest.intfIdIs(IntfId("E"));
  host.dest.vtepAddrIs(1, IpAddr(7));
  host.dest.vtepAddrIs(0, IpAddr(8));  // which leaves the list as long as it was
  EXPECT_EQ(
      printed(host),
      "00:00:00:00:00:01 vlan 2 kind 4 entryType 16 source 6 moveCount 3 time 5 type 1 intf E "
      "vteps 0.0.0.8 0.0.0.7");
  EXPECT_EQ(host.dest.vtepAddr(2), IpGenAddr());
}

TEST(VtepIpList, IsAMapInTheOrderOfTheAddresses) {
  VxlanController::VtepIpList list;
  for (const std::uint32_t vtep : {5, 1, 2}) EXPECT_TRUE(list.insert({IpAddr(vtep), true}).second);
  const auto [present, isNew] = list.insert({IpAddr(2), false});
  EXPECT_TRUE(!isNew && present == list.find(IpAddr(2)) && present->second) << "the flag stays";
  list[IpAddr(1)] = false;
  EXPECT_EQ(list.find(IpAddr(4)), list.end());
  EXPECT_EQ(list.erase(IpAddr(4)), 0U);
  EXPECT_EQ(list.erase(IpAddr(5)), 1U);
  EXPECT_FALSE(list[IpAddr(0)] || list.contains(IpAddr(5)));
  EXPECT_THAT(std::as_const(list),
              ElementsAre(std::pair(IpAddr(0), false), std::pair(IpAddr(1), false),
                          std::pair(IpAddr(2), true)));
}

TEST(CiDest, HoldsTwoVtepsAndRefusesAThird) {
  L2Rib::CiDest dest(L2Rib::DestType::vtep);
  dest.vtepAddrIs(1, IpAddr(5));
  EXPECT_EQ(dest.vtepAddrs(), 2U);
  EXPECT_EQ(dest.vtepAddr(0), IpGenAddr());
  const auto before = dest;
  EXPECT_THAT([&] { dest.vtepAddrIs(2, IpAddr(6)); },
              testing::ThrowsMessage<Moru::SizeException>(
                  testing::StrEq("PodArray::set expected size <= 2, instead got 3")));
  EXPECT_EQ(dest, before);
}

// The hashes are worked out by hand, byte by byte: (h + b) * 1025, then xor with itself shifted
// right by 6. So for the identifier 1: 401 -> 411; 0: 104811 -> 100931; 0: 4034cd31 -> 41341e05; 0:
// 11ac3205 -> 11ea82cd; at the end xor 23d50: 11e8bf9d; times 32769. The name "E", byte 45: 11445
// -> 11014; xor 22: 11036; times 32769. Of words the lowest byte comes first.
TEST(Dest, IsHashedPrintedAndMadeByItsTag) {
  const IntfId intf("E");
  EXPECT_EQ(intf.hash(), 0x881c1036U);
  const Dest vxlan(DestId(0), L2Rib::DestDataVxlan{four});
  const Dest mpls(DestId(0), L2Rib::DestDataMpls{intf, 1});
  const Dest tunnel(DestId(2), L2Rib::DestDataTunnel{3});
  const struct {
    Dest dest;
    std::uint32_t hash;
    std::string text;
  } cases[] = {{Dest(), 0, "tag 4"},
               {Dest(DestId(1), DestTag::other), 0x71b73f9d, "tag 4"},
               {vxlan, 0xe84708eb, "vxlan 10.0.0.2"},
               {Dest(DestId(0), intf), 0xcb9849c0, "intf E"},
               {mpls, 0x7860e430, "mpls E label 1"},
               {tunnel, 0x60861212, "tunnel 3"}};
  for (const auto& [dest, hash, text] : cases) {
    EXPECT_EQ(dest.hash(), hash) << text;
    EXPECT_EQ(printed(dest), text);
    const Dest bare(DestId(7), dest.tag());  // without a payload
    EXPECT_TRUE(bare.id() == DestId(7) && bare.tag() == dest.tag()) << text;
  }
  EXPECT_EQ(Dest(DestId(0), DestTag::other).hash(), 0U) << "four zero bytes leave 0";
  EXPECT_EQ(Dest(DestId(1), DestTag::mpls), Dest(DestId(1), L2Rib::DestDataMpls()));
  EXPECT_TRUE(vxlan.vxlan().vtepAddr == four && mpls.mpls().label == 1 &&
              tunnel.tunnel().tunnel == 3);
  EXPECT_NE(vxlan, Dest(DestId(0), L2Rib::DestDataVxlan{IpAddr(0x0a000003)}));
}

TEST(DestDeathTest, StopsAtATagOutOfRangeAndAtAPayloadThatIsNotThere) {
  EXPECT_DEATH(Dest(DestId(0), DestTag(5)).hash(), "U32 L2Rib::Dest::hash\\(\\) const: tag 5");
  EXPECT_DEATH(Dest().intf(), "tag\\(\\) == DestTag::intf");
  EXPECT_DEATH(Dest().vxlan(), "tag\\(\\) == DestTag::vxlan");
  EXPECT_DEATH(Dest().mpls(), "tag\\(\\) == DestTag::mpls");
  EXPECT_DEATH(Dest().tunnel(), "tag\\(\\) == DestTag::tunnel");
}

}  // namespace

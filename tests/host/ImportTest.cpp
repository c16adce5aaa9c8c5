// What each element that iproute2 prints becomes.
#include <gmock/gmock.h>

#include "tests/host/Imports.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Import : public testing::Test {
 protected:
  ImportPlace place_;
};

std::string label(unsigned label, unsigned bos, unsigned inLif) {
  return R"({"op":"set","table":"MplsIsemHwEm","key":{"mplsLabel":)" + std::to_string(label) +
         R"(,"mplsBos":)" + std::to_string(bos) + R"(},"fields":{"inLif":)" + std::to_string(inLif) + "}}";
}

std::string tagged(unsigned domain, unsigned vlan, unsigned inLif, unsigned fap = 0) {
  return R"({"op":"set","table":"InAcSVlanHwEm","key":{"vlanDomainPerCore":)" + std::to_string(domain) +
         R"(,"sVid":)" + std::to_string(vlan) + R"(},"fields":{"inLif":)" + std::to_string(inLif) +
         R"(},"fap":)" + std::to_string(fap) + "}";
}

std::string untagged(unsigned domain, unsigned inLif, unsigned fap = 0) {
  return R"({"op":"set","table":"InAcUntaggedHwEm","key":{"zeroPadding":0,"vlanDomain":)" +
         std::to_string(domain) + R"(},"fields":{"inLif":)" + std::to_string(inLif) + R"(},"fap":)" +
         std::to_string(fap) + "}";
}

std::string segment(unsigned locator, unsigned function, unsigned inLif) {
  return R"({"op":"set","table":"Srv6LocalSidIsemHwEm","key":{"ipv6DipIdx":)" + std::to_string(locator) +
         R"(,"ipv6Srv6FunctionBits":)" + std::to_string(function) + R"(},"fields":{"inLif":)" +
         std::to_string(inLif) + "}}";
}

std::string tunnel(unsigned address, unsigned vrf, unsigned inLif, unsigned type = 1) {
  return R"({"op":"set","table":"Ip4UdpTtMpIsemHwEm","key":{"udpTunnelType":)" + std::to_string(type) +
         R"(,"ipv4Dip":)" + std::to_string(address) + R"(,"vrf":)" + std::to_string(vrf) +
         R"(},"fields":{"inLif":)" + std::to_string(inLif) + "}}";
}

std::string network(unsigned fodo, unsigned vni, unsigned nameSpace = 1) {
  return R"({"op":"set","table":"VsiToVniEsemHwEm","key":{"esemNameSpace":)" + std::to_string(nameSpace) +
         R"(,"fodo":)" + std::to_string(fodo) + R"(},"fields":{"fwdDomainNwkName":)" + std::to_string(vni) +
         "}}";
}

constexpr unsigned k10001 = 10U << 24 | 1;

std::string vxlan(std::string const& name, std::string const& data, std::string const& more = "") {
  return R"({"ifname":")" + name + R"(","linkinfo":{"info_kind":"vxlan","info_data":{)" + data + "}}" + more +
         "}";
}

TEST_F(Import, LabelThatEndsHereStandsForBothBottomOfStackBits) {
  EXPECT_THAT(place_.rows({{"mpls", R"([{"dst":"100","dev":"vrf10","protocol":"static","flags":[]},)"
                                    R"({"dst":"1048575","dev":"vrf20"},{"dst":"16","dev":"vrf10"}])"}}),
              ElementsAre(label(16, 0, 1), label(16, 1, 1), label(100, 0, 1), label(100, 1, 1),
                          label(1048575, 0, 2), label(1048575, 1, 2)));
}

TEST_F(Import, LabelThatEndsHereAndGoesOnToANeighbourIsThatOfItsInterface) {
  EXPECT_THAT(
      place_.rows({{"mpls", R"([{"dst":"17","via":{"family":"inet","host":"10.1.0.1"},"dev":"swp49"}])"}}),
      ElementsAre(label(17, 0, 1), label(17, 1, 1)));
}

TEST_F(Import, SwapsSeveralNextHopsAndRoutesWithoutInterfaceAreListed) {
  ImportPlace::Inputs const inputs{
      {"mpls", R"([{"dst":"101","to":"200","via":{"family":"inet","host":"10.1.0.1"},"dev":"swp49"},)"
               R"({"dst":"102","nexthops":[{"dev":"swp49"},{"dev":"swp50"}]},{"dst":"103"},)"
               R"({"dst":"104","to":["2","3"]}])"}};
  EXPECT_THAT(place_.rows(inputs), IsEmpty());
  EXPECT_THAT(
      place_.notMapped(inputs),
      ElementsAre("mpls.json: element 1 (101): not mapped: it has an outgoing label, and the table has "
                  "labels that end here",
                  "mpls.json: element 2 (102): not mapped: it has several next hops, and a row has one "
                  "interface",
                  "mpls.json: element 3 (103): not mapped: it has no dev",
                  "mpls.json: element 4 (104): not mapped: it has an outgoing label, and the table has "
                  "labels that end here"));
}

TEST_F(Import, SecondRouteOfALabelIsListedUnlessItSaysTheSame) {
  ImportPlace::Inputs const inputs{
      {"mpls", R"([{"dst":"16","dev":"a"},{"dst":"16","dev":"a"},{"dst":"16","dev":"b"}])"}};
  EXPECT_THAT(place_.rows(inputs), ElementsAre(label(16, 0, 1), label(16, 1, 1)));
  EXPECT_THAT(
      place_.notMapped(inputs),
      ElementsAre(R"(mpls.json: element 3 (16): not mapped: MplsIsemHwEm {"mplsLabel":16,"mplsBos":0} )"
                  "has inLif 1 already",
                  R"(mpls.json: element 3 (16): not mapped: MplsIsemHwEm {"mplsLabel":16,"mplsBos":1} )"
                  "has inLif 1 already"));
}

TEST_F(Import, RangesOfVlansAreExpanded) {
  EXPECT_THAT(place_.rows({{"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":10,"vlanEnd":12},{"vlan":4094}]},)"
                                    R"({"ifname":"swp2","vlans":[{"vlan":10,"vlanEnd":10}]}])"}}),
              ElementsAre(tagged(1, 10, 1), tagged(1, 11, 2), tagged(1, 12, 3), tagged(1, 4094, 4),
                          tagged(2, 10, 5)));
}

TEST_F(Import, PvidIsAlsoWhatComesUntaggedAndEgressFlagsDontCount) {
  EXPECT_THAT(
      place_.rows({{"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":1,"flags":["PVID","Egress Untagged"]},)"
                            R"({"vlan":2,"flags":["Egress Untagged"]},{"vlan":3,"flags":[]}]}])"}}),
      ElementsAre(tagged(1, 1, 1), tagged(1, 2, 2), tagged(1, 3, 3), untagged(1, 1)));
}

TEST_F(Import, Vlans0And4095AreListed) {
  ImportPlace::Inputs const inputs{
      {"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":0,"vlanEnd":1},{"vlan":4094,"vlanEnd":4095}]}])"}};
  EXPECT_THAT(place_.rows(inputs), ElementsAre(tagged(1, 1, 1), tagged(1, 4094, 2)));
  EXPECT_THAT(place_.notMapped(inputs),
              ElementsAre("vlan.json: element 1 (swp1): vlan 0: not mapped: 0 and 4095 are no VLANs",
                          "vlan.json: element 1 (swp1): vlan 4095: not mapped: 0 and 4095 are no VLANs"));
}

TEST_F(Import, BridgesAndVxlanLinksAreNoPortsOnceAnImportHasSeenThem) {
  std::string const vlans =
      R"([{"ifname":"br0","vlans":[{"vlan":1}]},{"ifname":"vxlan5","vlans":[{"vlan":5}]},)"
      R"({"ifname":"swp1","vlans":[{"vlan":5}]}])";
  std::string const links = "[" + vxlan("vxlan5", R"("id":5,"local":"10.0.0.1")", R"(,"master":"br0")") + "]";
  EXPECT_THAT(
      place_.notMapped({{"vlan", vlans}, {"link", links}}),
      ElementsAre("vlan.json: element 1 (br0): not mapped: it is a bridge, no port of the chip",
                  "vlan.json: element 2 (vxlan5): not mapped: it is a VXLAN link, no port of the chip"));
  EXPECT_THAT(place_.rows({{"vlan", vlans}}), ElementsAre(tagged(1, 5, 1)));
  EXPECT_THAT(
      place_.notMapped({{"vlan", vlans}}),
      ElementsAre("vlan.json: element 1 (br0): not mapped: the map says that it is no port of the chip",
                  "vlan.json: element 2 (vxlan5): not mapped: the map says that it is no port of the chip"));
}

TEST_F(Import, SegmentIsALocatorAndTheFunctionAfterIt) {
  EXPECT_THAT(
      place_.rows(
          {{"route6", R"([{"dst":"fc00:0:1:e000::","encap":"seg6local","action":"End.DT4","dev":"vrf10"},)"
                      R"({"dst":"fc00:0:1:1::/64","encap":"seg6local","action":"End","dev":"lo"},)"
                      R"({"dst":"fc00:0:2:e000::/80","encap":"seg6local","action":"End","dev":"lo"}])"}}),
      ElementsAre(segment(0, 1, 2), segment(0, 0xe000, 1), segment(1, 0xe000, 2)));
  EXPECT_THAT(place_.map(), HasSubstr(R"("fc00:0:1::/48": 0)"));
}

TEST_F(Import, LocatorsCanHaveAnyLength) {
  EXPECT_THAT(
      place_.rows({{"route6", R"([{"dst":"2001:db8:1234:5678:9ab0::","encap":"seg6local","dev":"a"}])"}},
                  "--locator-bits 60"),
      ElementsAre(segment(0, 0x89ab, 1)));
  EXPECT_THAT(place_.map(), HasSubstr(R"("2001:db8:1234:5670::/60": 0)"));
  EXPECT_THAT(place_.rows({{"route6", R"([{"dst":"fc00::ffff","encap":"seg6local","dev":"a"}])"}},
                          "--locator-bits 112"),
              ElementsAre(segment(1, 0xffff, 1)));
}

TEST_F(Import, SegmentsThatTheTableCantTellApartAndOtherRoutesAreListed) {
  ImportPlace::Inputs const inputs{
      {"route6",
       R"([{"dst":"fc00:0:1::/48","encap":"seg6local","dev":"a"},{"dst":"fe80::/64","dev":"a"},)"
       R"({"dst":"fc00:0:1:e000::1","encap":"seg6local","dev":"a"},)"
       R"({"dst":"default","encap":"seg6local","dev":"a"},)"
       R"({"dst":"fc00:0:1:2::","nexthops":[{"encap":"seg6local","dev":"a"},{"dev":"b"}]},)"
       R"({"dst":"fc00:0:1:3::","encap":"seg6local"},{"dst":"2001:db8::/32","encap":"seg6","dev":"a"},)"
       R"({"dst":"2001:db8:1::/48","nexthops":[{"dev":"a"},{"dev":"b"}]}])"}};
  EXPECT_THAT(place_.rows(inputs), IsEmpty());
  EXPECT_THAT(
      place_.notMapped(inputs),
      ElementsAre("route6.json: element 1 (fc00:0:1::/48): not mapped: its 48 bits are fewer than the 64 "
                  "of locator and function",
                  "route6.json: element 3 (fc00:0:1:e000::1): not mapped: the table doesn't look at what "
                  "follows locator and function, 64 bits",
                  "route6.json: element 4 (default): not mapped: its 0 bits are fewer than the 64 of "
                  "locator and function",
                  "route6.json: element 5 (fc00:0:1:2::): not mapped: it has several next hops, and a row "
                  "has one interface",
                  "route6.json: element 6 (fc00:0:1:3::): not mapped: it has no dev",
                  "route6.json: not mapped: routes without encap seg6local: 3"));
  EXPECT_THAT(place_.import(inputs).err, HasSubstr("not mapped                  8\n"));
}

TEST_F(Import, LinksOfOneAddressShareTheEndOfTheirTunnels) {
  EXPECT_THAT(place_.rows({{"link", "[" + vxlan("a", R"("id":100,"local":"10.0.0.1","port":4789)") + ",{}," +
                                        vxlan("b", R"("id":16777215,"local":"10.0.0.1","port":4789)") + "," +
                                        vxlan("c", R"("id":0,"local":"255.0.0.1","port":8472)") + "]"}}),
              ElementsAre(tunnel(k10001, 0, 1), tunnel(255U << 24 | 1, 0, 2), network(1, 100),
                          network(2, 16777215), network(3, 0)));
}

TEST_F(Import, ForwardingDomainOfALinkIsItsBridgeVlanAlsoWhereOnlyTheMapTellsIt) {
  std::string const pvid = R"("flags":["PVID","Egress Untagged"])";
  std::string const vlans = R"([{"ifname":"a","vlans":[{"vlan":7,)" + pvid +
                            "}]},"
                            R"({"ifname":"b","vlans":[{"vlan":7,)" +
                            pvid + "}]}]";
  std::string const one = R"("id":100,"local":"10.0.0.1")";
  std::string const links =
      "[" + vxlan("a", one, R"(,"master":"br0")") + "," + vxlan("b", one, R"(,"master":"br0")") + "]";
  EXPECT_THAT(place_.rows({{"vlan", vlans}, {"link", links}}),
              ElementsAre(tunnel(k10001, 0, 1), network(1, 100)));
  EXPECT_THAT(place_.map(), HasSubstr(R"("br0/7": 1)"));
  EXPECT_THAT(place_.rows({{"link", links}}), ElementsAre(tunnel(k10001, 0, 1), network(1, 100)));
  // Nothing is known of it in another bridge.
  EXPECT_THAT(place_.rows({{"link", "[" + vxlan("a", one, R"(,"master":"br1")") + "]"}}),
              ElementsAre(tunnel(k10001, 0, 1), network(2, 100)));
  EXPECT_THAT(place_.map(), HasSubstr(R"("vni:100": 2)"));
}

TEST_F(Import, LinkThatHasLeftItsBridgeVlanHasADomainOfItsOwn) {
  std::string const links = "[" + vxlan("a", R"("id":100,"local":"10.0.0.1")", R"(,"master":"br0")") + "]";
  place_.rows({{"vlan", R"([{"ifname":"a","vlans":[{"vlan":7,"flags":["PVID"]}]}])"}, {"link", links}});
  EXPECT_THAT(place_.rows({{"vlan", "[]"}, {"link", links}}),
              ElementsAre(tunnel(k10001, 0, 1), network(2, 100)));
  EXPECT_THAT(place_.rows({{"link", links}}), ElementsAre(tunnel(k10001, 0, 1), network(2, 100)));
}

TEST_F(Import, VrfThatALinkHasJoinedIsNoBridge) {
  std::string const link = R"([{"ifname":"a","master":"vrf10","linkinfo":{"info_kind":"vxlan",)"
                           R"("info_data":{"id":100,"local":"10.0.0.1"},"info_slave_kind":"vrf"}}])";
  place_.rows({{"vlan", R"([{"ifname":"a","vlans":[{"vlan":7,"flags":["PVID"]}]}])"}, {"link", link}});
  EXPECT_THAT(place_.map(), HasSubstr(R"("vni:100": 1)"));
  EXPECT_THAT(place_.map(), Not(HasSubstr("vrf10")));
}

TEST_F(Import, SecondVniOfABridgeVlanIsListed) {
  std::string const vlans = R"([{"ifname":"a","vlans":[{"vlan":7,"flags":["PVID"]}]},)"
                            R"({"ifname":"b","vlans":[{"vlan":7,"flags":["PVID"]}]}])";
  std::string const links = "[" + vxlan("a", R"("id":100,"local":"10.0.0.1")", R"(,"master":"br0")") + "," +
                            vxlan("b", R"("id":200,"local":"10.0.0.1")", R"(,"master":"br0")") + "]";
  EXPECT_THAT(place_.notMapped({{"vlan", vlans}, {"link", links}}).back(),
              R"(link.json: element 2 (b): not mapped: VsiToVniEsemHwEm {"esemNameSpace":1,"fodo":1} has )"
              "fwdDomainNwkName 100 already");
}

TEST_F(Import, LinksWithoutOneLocalAddressOfIpv4AreListed) {
  ImportPlace::Inputs const inputs{
      {"link", "[" + vxlan("v6", R"("id":1,"local6":"2001:db8::1")") + "," +
                   vxlan("ext", R"("external":true,"id":0,"local":"10.0.0.1")") + "," +
                   vxlan("any", R"("id":2,"remote":"10.0.0.9")") + "," +
                   vxlan("zero", R"("id":3,"local":"0.0.0.0")") + "," +
                   vxlan("gpe", R"("id":4,"local":"10.0.0.1","gpe":true)") +
                   R"(,{"ifname":"eth0"},{"ifname":"br0","linkinfo":{"info_kind":"bridge"}}])"}};
  EXPECT_THAT(place_.rows(inputs), IsEmpty());
  EXPECT_THAT(
      place_.notMapped(inputs),
      ElementsAre(
          "link.json: element 1 (v6): not mapped: its local address 2001:db8::1 is of IPv6, and the table "
          "ends tunnels of IPv4",
          "link.json: element 2 (ext): not mapped: it is external: routes and filters choose its VNIs and "
          "addresses, packet by packet",
          "link.json: element 3 (any): not mapped: it has no local address, so that no packet is known to "
          "end here",
          "link.json: element 4 (zero): not mapped: it has no local address, so that no packet is known "
          "to end here",
          "link.json: element 5 (gpe): not mapped: it is of VXLAN-GPE, another type of tunnel",
          "link.json: not mapped: links that are not told to be of kind vxlan: 2"));
}

TEST_F(Import, MulticastGroupIsListedAndTheLocalAddressMapped) {
  ImportPlace::Inputs const inputs{
      {"link", "[" + vxlan("mc", R"("id":1,"group":"239.1.1.1","local":"10.0.0.1","link":"swp1")") + "]"}};
  EXPECT_THAT(place_.rows(inputs), ElementsAre(tunnel(k10001, 0, 1), network(1, 1)));
  EXPECT_THAT(place_.notMapped(inputs),
              ElementsAre("link.json: element 1 (mc): not mapped: its multicast group "
                          "239.1.1.1 (its local address is mapped)"));
}

TEST_F(Import, NumbersOfTheChipsSetUpAreOptionsAndTheVrfStandsInTheMap) {
  place_.mapIs(R"({"vrfs":{"10.0.0.1":65535}})");
  EXPECT_THAT(place_.rows({{"link", "[" + vxlan("a", R"("id":100,"local":"10.0.0.1")") + "]"}},
                          "--udp-tunnel-type 15 --esem-name-space 511"),
              ElementsAre(tunnel(k10001, 65535, 1, 15), network(1, 100, 511)));
}

TEST_F(Import, NewPortsAreOfTheGivenFapAndEachFapHasVlanDomainsOfItsOwn) {
  EXPECT_THAT(
      place_.rows({{"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":1,"flags":["PVID"]}]}])"}}, "--fap 1"),
      ElementsAre(tagged(1, 1, 1, 1), untagged(1, 1, 1)));
  EXPECT_THAT(place_.rows({{"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":1}]},)"
                                    R"({"ifname":"swp2","vlans":[{"vlan":1}]}])"}}),
              ElementsAre(tagged(1, 1, 2, 0), tagged(1, 1, 1, 1)));
}

TEST_F(Import, CountsTheRowsOfEachTable) {
  Outcome const outcome = place_.import({{"mpls", R"([{"dst":"16","dev":"a"},{"dst":"17"}])"}});
  EXPECT_THAT(outcome.err, testing::EndsWith("TABLE                    ROWS\n"
                                             "MplsIsemHwEm                2\n"
                                             "Srv6LocalSidIsemHwEm        0\n"
                                             "Ip4UdpTtMpIsemHwEm          0\n"
                                             "InAcSVlanHwEm               0\n"
                                             "InAcUntaggedHwEm            0\n"
                                             "VsiToVniEsemHwEm            0\n"
                                             "not mapped                  1\n"
                                             "map.json is extended\n"));
}

TEST_F(Import, EmptyOutputsAreNoError) {
  EXPECT_THAT(place_.rows({{"mpls", "[ ]\n"}, {"vlan", "[]"}, {"route6", "[]"}, {"link", "[{},{}]"}}),
              IsEmpty());
}

}  // namespace

// Wrong input of an import, wrong maps among it: told with file, element, field, value and what is legal.
#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/Imports.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Wrong {
  char const* name;
  char const* option;
  char const* text;
  char const* why;
};

void PrintTo(Wrong const& wrong, std::ostream* out) { *out << wrong.name; }

class WrongImport : public testing::TestWithParam<Wrong> {
 protected:
  ImportPlace place_;
};

TEST_P(WrongImport, IsToldAndNothingIsPrintedOrMapped) {
  ImportPlace::Inputs inputs{{"mpls", R"([{"dst":"16","dev":"good"}])"},
                             {"vlan", R"([{"ifname":"good","vlans":[{"vlan":1}]}])"}};
  inputs[GetParam().option] = GetParam().text;
  Outcome const outcome = place_.import(inputs);
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: " + std::string(GetParam().why) + "\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_FALSE(std::filesystem::exists(place_.file("map.json")));
}

constexpr Wrong kWrong[] = {
    {"empty", "mpls", "", "mpls.json: not JSON: wrong at line 1, column 1"},
    {"noJson", "mpls", "[\n {\"dst\":\n}]", "mpls.json: not JSON: wrong at line 3, column 1"},
    {"cutOff", "vlan", R"([{"ifname":"swp1")", "vlan.json: not JSON: wrong at line 1, column 18"},
    {"noArray", "vlan", R"({"swp1":[{"vlan":1}]})",
     R"(vlan.json: {"swp1":[{"vlan":1}]} is not an array, as iproute2 prints it with -j)"},
    {"noObject", "link", R"([{},5])", "link.json: element 2: 5 is not an object"},
    {"labelOf21Bits", "mpls", R"([{"dst":"16","dev":"a"},{"dst":"1048576","dev":"a"}])",
     R"(mpls.json: element 2: dst: "1048576" is not 0 to 1048575)"},
    {"labelStack", "mpls", R"([{"dst":"16/17","dev":"a"}])",
     R"(mpls.json: element 1: dst: "16/17" is not 0 to 1048575)"},
    {"hugeLabel", "mpls", R"([{"dst":"99999999999999999999999","dev":"a"}])",
     R"(mpls.json: element 1: dst: "99999999999999999999999" is not 0 to 1048575)"},
    {"labelOfAnotherType", "mpls", R"([{"dst":-1,"dev":"a"}])",
     "mpls.json: element 1: dst: -1 is not 0 to 1048575"},
    {"noLabel", "mpls", R"([{"dev":"a"}])", "mpls.json: element 1: dst is missing; legal is 0 to 1048575"},
    {"devOfAnotherType", "mpls", R"([{"dst":"16","dev":7}])",
     "mpls.json: element 1 (16): dev: 7 is not the name of an interface: 1 to 15 characters without / : and "
     "blanks"},
    {"devWithASlash", "mpls", R"([{"dst":"16","dev":"a/1"}])",
     "mpls.json: element 1 (16): dev: \"a/1\" is not the name of an interface: 1 to 15 characters without / "
     ": and "
     "blanks"},
    {"noPortName", "vlan", R"([{"vlans":[]}])",
     "vlan.json: element 1: ifname is missing; legal is the name of an interface: 1 to 15 characters without "
     "/ : "
     "and blanks"},
    {"longPortName", "vlan", R"([{"ifname":"abcdefghijklmnop","vlans":[]}])",
     "vlan.json: element 1: ifname: \"abcdefghijklmnop\" is not the name of an interface: 1 to 15 characters "
     "without / : and blanks"},
    {"noVlans", "vlan", R"([{"ifname":"swp1"}])",
     "vlan.json: element 1 (swp1): vlans is missing; legal is an array"},
    {"vlanOf13Bits", "vlan", R"([{"ifname":"swp1","vlans":[{"vlan":1},{"vlan":4096}]}])",
     "vlan.json: element 1 (swp1): vlans[2]: vlan: 4096 is not 0 to 4095"},
    {"vlanAsText", "vlan", R"([{"ifname":"swp1","vlans":[{"vlan":"1"}]}])",
     R"(vlan.json: element 1 (swp1): vlans[1]: vlan: "1" is not 0 to 4095)"},
    {"rangeThatEndsBeforeItBegins", "vlan", R"([{"ifname":"swp1","vlans":[{"vlan":20,"vlanEnd":10}]}])",
     "vlan.json: element 1 (swp1): vlans[1]: vlanEnd: 10 is not 20 to 4095"},
    {"rangePastTheEnd", "vlan", R"([{"ifname":"swp1","vlans":[{"vlan":20,"vlanEnd":5000}]}])",
     "vlan.json: element 1 (swp1): vlans[1]: vlanEnd: 5000 is not 20 to 4095"},
    {"flagsOfAnotherShape", "vlan", R"([{"ifname":"swp1","vlans":[{"vlan":20,"flags":"PVID"}]}])",
     R"(vlan.json: element 1 (swp1): vlans[1]: flags: "PVID" is not an array of texts)"},
    {"noAddress", "route6", R"([{"dst":"10.0.0.1","encap":"seg6local","dev":"a"}])",
     R"(route6.json: element 1: dst: "10.0.0.1" is not an IPv6 address, or one with / and 0 to 128)"},
    {"longPrefix", "route6", R"([{"dst":"fc00::/129","encap":"seg6local","dev":"a"}])",
     R"(route6.json: element 1: dst: "fc00::/129" is not an IPv6 address, or one with / and 0 to 128)"},
    {"prefixWithoutLength", "route6", R"([{"dst":"fc00::/","encap":"seg6local","dev":"a"}])",
     R"(route6.json: element 1: dst: "fc00::/" is not an IPv6 address, or one with / and 0 to 128)"},
    {"nextHopsOfAnotherShape", "route6", R"([{"dst":"fc00::","nexthops":3}])",
     "route6.json: element 1: nexthops: 3 is not an array"},
    {"vniOf25Bits", "link",
     R"([{"ifname":"v","linkinfo":{"info_kind":"vxlan","info_data":{"id":16777216,"local":"10.0.0.1"}}}])",
     "link.json: element 1 (v): linkinfo: info_data: id: 16777216 is not 0 to 16777215"},
    {"noVni", "link", R"([{"ifname":"v","linkinfo":{"info_kind":"vxlan","info_data":{"local":"10.0.0.1"}}}])",
     "link.json: element 1 (v): linkinfo: info_data: id is missing; legal is 0 to 16777215"},
    {"localThatIsNoAddress", "link",
     R"([{"ifname":"v","linkinfo":{"info_kind":"vxlan","info_data":{"id":1,"local":"10.0.0.300"}}}])",
     R"(link.json: element 1 (v): linkinfo: info_data: local: "10.0.0.300" is )"
     "not an address of IPv4 or IPv6"},
    {"noLinkData", "link", R"([{"ifname":"v","linkinfo":{"info_kind":"vxlan"}}])",
     "link.json: element 1 (v): linkinfo: info_data is missing; legal is an object"},
    {"steersATerminal", "mpls", "[{\"dst\":\"\\u001b[2J\",\"dev\":\"a\"}]",
     R"(mpls.json: element 1: dst: "\u001b[2J" is not 0 to 1048575)"},
};

INSTANTIATE_TEST_SUITE_P(Kinds, WrongImport, testing::ValuesIn(kWrong),
                         [](auto const& one) { return one.param.name; });

struct WrongMap {
  char const* name;
  char const* text;
  char const* why;
};

void PrintTo(WrongMap const& wrong, std::ostream* out) { *out << wrong.name; }

class WrongImportMap : public testing::TestWithParam<WrongMap> {
 protected:
  ImportPlace place_;
};

TEST_P(WrongImportMap, IsToldAndStays) {
  place_.mapIs(GetParam().text);
  Outcome const outcome = place_.import({{"mpls", R"([{"dst":"16","dev":"new"}])"}});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: " + std::string(GetParam().why) + "\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(place_.map(), GetParam().text);
}

constexpr WrongMap kWrongMaps[] = {
    {"noJson", "{\n\"interfaces\": {\n", "map.json: not JSON: wrong at line 3, column 1"},
    {"noObject", "[]",
     "map.json: [] is not an object of bridgeVlans, interfaces, locators, ports, vrfs, vxlanLinks"},
    {"unknownSection", R"({"interface":{}})",
     "map.json: there is no member interface; the nearest: interfaces"},
    {"sectionOfAnotherShape", R"({"interfaces":[1]})", "map.json: interfaces: [1] is not an object"},
    {"nameTwice", R"({"interfaces":{"a":1,"a":2}})", R"(map.json: "a" stands twice)"},
    {"numberTwice", R"({"interfaces":{"a":7,"b":7}})",
     "map.json: interfaces: inLif of b: 7 is that of a already"},
    {"inLif0", R"({"interfaces":{"a":0}})", "map.json: interfaces a: 0 is not 1 to 524287"},
    {"inLifOf20Bits", R"({"interfaces":{"a":524288}})", "map.json: interfaces a: 524288 is not 1 to 524287"},
    {"inLifAsText", R"({"interfaces":{"a":"1"}})", R"(map.json: interfaces a: "1" is not 1 to 524287)"},
    {"locatorOf15Bits", R"({"locators":{"fc00::/48":16384}})",
     "map.json: locators fc00::/48: 16384 is not 0 to 16383"},
    {"fodoOf19Bits", R"({"bridgeVlans":{"br0/1":262144}})",
     "map.json: bridgeVlans br0/1: 262144 is not 1 to 262143"},
    {"vrfOf17Bits", R"({"vrfs":{"10.0.0.1":65536}})", "map.json: vrfs: 10.0.0.1: 65536 is not 0 to 65535"},
    {"linkOfAnotherShape", R"({"vxlanLinks":{"v":1}})", "map.json: vxlanLinks: v: 1 is not a text"},
    {"portOfAnotherShape", R"({"ports":{"swp1":0}})",
     "map.json: ports: swp1: 0 is not an object of fap, vlanDomain"},
    {"portWithoutDomain", R"({"ports":{"swp1":{"fap":0}}})",
     "map.json: ports: swp1: vlanDomain: null is not 1 to 511"},
    {"fapOutOfRange", R"({"ports":{"swp1":{"fap":128,"vlanDomain":1}}})",
     "map.json: ports: swp1: fap: 128 is not 0 to 127"},
    {"unknownPortMember", R"({"ports":{"swp1":{"fap":0,"vlanDomains":1}}})",
     "map.json: ports: swp1: there is no member vlanDomains; the nearest: vlanDomain"},
    {"domainTwice", R"({"ports":{"swp1":{"fap":1,"vlanDomain":4},"swp2":{"fap":1,"vlanDomain":4}}})",
     "map.json: ports: vlanDomain on FAP 1 of swp2: 4 is that of swp1 already"},
};

INSTANTIATE_TEST_SUITE_P(Kinds, WrongImportMap, testing::ValuesIn(kWrongMaps),
                         [](auto const& one) { return one.param.name; });

class ImportInput : public testing::Test {
 protected:
  ImportPlace place_;
};

std::string ports(unsigned count, std::string const& vlans) {
  std::string text = "[";
  for (unsigned port = 1; port <= count; ++port) {
    text += std::string(port == 1 ? "" : ",") + R"({"ifname":"swp)" + std::to_string(port) +
            R"(","vlans":[)" + vlans + "]}";
  }
  return text + "]";
}

TEST_F(ImportInput, VlanDomainsOfAFapCanRunOut) {
  EXPECT_EQ(place_.import({{"vlan", ports(511, R"({"vlan":1})")}}).exitCode, 0);
  std::string const map = place_.map();
  Outcome const outcome = place_.import({{"vlan", ports(512, R"({"vlan":1})")}});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err,
            "hwtables: map.json: ports: vlanDomain on FAP 0 of swp512: none is left, as all of 1 to 511 "
            "are taken\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(place_.map(), map);
  EXPECT_EQ(place_.import({{"vlan", ports(512, R"({"vlan":1})")}}, "--fap 1").exitCode, 0);
}

TEST_F(ImportInput, InterfaceNumbersCanRunOut) {
  Outcome const outcome = place_.import({{"vlan", ports(129, R"({"vlan":1,"vlanEnd":4094})")}});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err,
            "hwtables: map.json: interfaces: inLif of swp129/256: none is left, as all of 1 to 524287 "
            "are taken\n");
  EXPECT_FALSE(std::filesystem::exists(place_.file("map.json")));
}

TEST_F(ImportInput, FilesThatCantBeReadAreTold) {
  Outcome const missing = place_.import({}, "--mpls nowhere.json");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "hwtables: cannot read nowhere.json: No such file or directory\n");
  EXPECT_THAT(place_.import({}, "--vlan .").err, EndsWith("cannot read .: Is a directory\n"));
  EXPECT_EQ(place_.import({}, "--mpls - --map nowhere/map.json <<<'[]'").exitCode, 2);
  Outcome const noDirectory =
      runShell("echo '[]' | HWTABLES import iproute2 --mpls - --map /nowhere/map.json");
  EXPECT_EQ(noDirectory.exitCode, 1);
  EXPECT_EQ(noDirectory.err, "hwtables: cannot open directory /nowhere: No such file or directory\n");
}

TEST_F(ImportInput, OneInputCanBeStandardInput) {
  Outcome const outcome =
      place_.import({{"vlan", "[]"}}, R"(--mpls - <<<'[{"dst":"16","dev":"a"},{"dst":"17"}]')");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, HasSubstr(R"("mplsLabel":16,"mplsBos":1)"));
  EXPECT_THAT(outcome.err, HasSubstr("hwtables: standard input: element 2 (17): not mapped"));
}

TEST_F(ImportInput, UsageErrorsExitWithTwo) {
  EXPECT_EQ(runShell("HWTABLES import").exitCode, 2);
  EXPECT_EQ(runShell("HWTABLES import iproute2 --mpls x").exitCode, 2);
  Outcome const nothing = place_.import({});
  EXPECT_EQ(nothing.exitCode, 2);
  EXPECT_THAT(nothing.err, HasSubstr("one of --mpls, --vlan, --route6 and --link is required"));
  Outcome const both = place_.import({}, "--mpls - --link -");
  EXPECT_EQ(both.exitCode, 2);
  EXPECT_THAT(both.err, HasSubstr("only one input can be standard input"));
  EXPECT_EQ(runShell("echo '[]' | HWTABLES import iproute2 --map - --mpls -").exitCode, 2);
  EXPECT_EQ(place_.import({{"mpls", "[]"}}, "--fap 128").exitCode, 2);
  EXPECT_EQ(place_.import({{"mpls", "[]"}}, "--locator-bits 113").exitCode, 2);
  EXPECT_EQ(place_.import({{"mpls", "[]"}}, "--udp-tunnel-type 16").exitCode, 2);
  EXPECT_EQ(place_.import({{"mpls", "[]"}}, "--esem-name-space 512").exitCode, 2);
  EXPECT_FALSE(std::filesystem::exists(place_.file("map.json")));
}

TEST_F(ImportInput, OutputThatCantBeWrittenIsAnErrorAndTheNumbersAreKept) {
  Outcome const outcome = place_.import({{"mpls", R"([{"dst":"16","dev":"a"}])"}}, ">/dev/full");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output: No space left on device"));
  EXPECT_THAT(place_.map(), HasSubstr(R"("a": 1)"));
}

TEST_F(ImportInput, HelpTellsOfSyncDone) {
  Outcome const outcome = runShell("HWTABLES import iproute2 --help");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, HasSubstr("sync-done"));
}

}  // namespace

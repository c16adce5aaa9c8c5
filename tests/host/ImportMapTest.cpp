// The map of an import: what it keeps, and how its file is read and replaced.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/host/Imports.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

class ImportMapFile : public testing::Test {
 protected:
  std::vector<std::string> fileNames() const {
    std::vector<std::string> names;
    for (std::string const& path : place_.files()) names.push_back(std::filesystem::path(path).filename());
    return names;
  }

  ImportPlace place_;
};

ImportPlace::Inputs const kBefore{
    {"mpls", R"([{"dst":"16","dev":"vrf10"},{"dst":"17","dev":"vrf20"}])"},
    {"vlan",
     R"([{"ifname":"swp1","vlans":[{"vlan":10,"vlanEnd":12}]},{"ifname":"swp2","vlans":[{"vlan":10}]}])"},
    {"route6", R"([{"dst":"fc00:0:1:1::","encap":"seg6local","dev":"lo"},)"
               R"({"dst":"fc00:0:2:1::","encap":"seg6local","dev":"lo"}])"},
    {"link", R"([{"ifname":"v1","linkinfo":{"info_kind":"vxlan","info_data":{"id":1,"local":"10.0.0.1"}}},)"
             R"({"ifname":"v2","linkinfo":{"info_kind":"vxlan","info_data":{"id":2,"local":"10.0.0.2"}}}])"}};

// Without 17, VLAN 11, swp2's VLAN, the first locator and the first link; with others in their places.
ImportPlace::Inputs const kAfter{
    {"mpls", R"([{"dst":"18","dev":"vrf30"},{"dst":"16","dev":"vrf10"}])"},
    {"vlan", R"([{"ifname":"swp3","vlans":[{"vlan":10}]},)"
             R"({"ifname":"swp1","vlans":[{"vlan":10},{"vlan":12,"vlanEnd":13}]}])"},
    {"route6", R"([{"dst":"fc00:0:3:1::","encap":"seg6local","dev":"lo"},)"
               R"({"dst":"fc00:0:2:1::","encap":"seg6local","dev":"lo"}])"},
    {"link", R"([{"ifname":"v3","linkinfo":{"info_kind":"vxlan","info_data":{"id":3,"local":"10.0.0.3"}}},)"
             R"({"ifname":"v2","linkinfo":{"info_kind":"vxlan","info_data":{"id":2,"local":"10.0.0.2"}}}])"}};

std::vector<std::string> inFirstOnly(std::vector<std::string> const& first,
                                     std::vector<std::string> const& second) {
  std::vector<std::string> lines;
  std::ranges::copy_if(first, std::back_inserter(lines),
                       [&](auto const& line) { return std::ranges::count(second, line) == 0; });
  return lines;
}

TEST_F(ImportMapFile, SecondImportDiffersInNothingButWhatChanged) {
  auto const before = place_.rows(kBefore);
  auto const after = place_.rows(kAfter);
  EXPECT_THAT(
      inFirstOnly(before, after),
      ElementsAre(HasSubstr(R"("mplsLabel":17,"mplsBos":0)"), HasSubstr(R"("mplsLabel":17,"mplsBos":1)"),
                  HasSubstr(R"("ipv6DipIdx":0,)"), HasSubstr(R"("ipv4Dip":167772161)"),
                  HasSubstr(R"("vlanDomainPerCore":1,"sVid":11)"),
                  HasSubstr(R"("vlanDomainPerCore":2,"sVid":10)"), HasSubstr(R"("fwdDomainNwkName":1})")));
  EXPECT_THAT(
      inFirstOnly(after, before),
      ElementsAre(HasSubstr(R"("mplsLabel":18,"mplsBos":0)"), HasSubstr(R"("mplsLabel":18,"mplsBos":1)"),
                  HasSubstr(R"("ipv6DipIdx":2,)"), HasSubstr(R"("ipv4Dip":167772163)"),
                  HasSubstr(R"("vlanDomainPerCore":1,"sVid":13)"),
                  HasSubstr(R"("vlanDomainPerCore":3,"sVid":10)"), HasSubstr(R"("fwdDomainNwkName":3})")));
}

TEST_F(ImportMapFile, IsExtendedAndNeverLosesOrRenumbersAName) {
  place_.rows(kBefore);
  auto const before = nlohmann::json::parse(place_.map());
  place_.rows(kAfter);
  auto const after = nlohmann::json::parse(place_.map());
  for (auto const& [section, names] : before.items()) {
    for (auto const& [name, number] : names.items())
      EXPECT_EQ(after[section][name], number) << section << name;
  }
  EXPECT_GT(after["interfaces"].size(), before["interfaces"].size());
  EXPECT_EQ(after["ports"]["swp3"], nlohmann::json({{"fap", 0}, {"vlanDomain", 3}}));
}

TEST_F(ImportMapFile, ImportAfterGoingBackIsTheFirstOneAgain) {
  auto const before = place_.rows(kBefore);
  place_.rows(kAfter);
  EXPECT_EQ(place_.rows(kBefore), before);
}

TEST_F(ImportMapFile, OrderOfTheInputDoesntMatterOnceNumbersAreKnown) {
  auto const before = place_.rows({{"mpls", R"([{"dst":"16","dev":"a"},{"dst":"17","dev":"b"}])"}});
  EXPECT_EQ(place_.rows({{"mpls", R"([{"dst":"17","dev":"b"},{"dst":"16","dev":"a"}])"}}), before);
}

TEST_F(ImportMapFile, IsNotTouchedWhereNothingIsNew) {
  place_.rows(kBefore);
  struct stat before {};
  ASSERT_EQ(::stat(place_.file("map.json").c_str(), &before), 0);
  EXPECT_THAT(place_.import(kBefore).err, testing::EndsWith("map.json is as it was\n"));
  struct stat after {};
  ASSERT_EQ(::stat(place_.file("map.json").c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(ImportMapFile, IsReplacedByAnotherFileOfTheSameRightsAndNothingIsLeftBesideIt) {
  place_.mapIs("{}");
  ASSERT_EQ(::chmod(place_.file("map.json").c_str(), 0640), 0);
  std::filesystem::create_hard_link(place_.file("map.json"), place_.file("former"));
  place_.rows({{"mpls", R"([{"dst":"16","dev":"a"}])"}});
  EXPECT_EQ(TestSupport::contentOf(place_.file("former")), "{}");
  EXPECT_THAT(place_.map(), HasSubstr(R"("a": 1)"));
  struct stat status {};
  ASSERT_EQ(::stat(place_.file("map.json").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_THAT(fileNames(), UnorderedElementsAre("map.json", "former", "mpls.json"));
}

TEST_F(ImportMapFile, LinkToItStaysALink) {
  TestSupport::writeFile(place_.file("real.json"), "{}");
  std::filesystem::create_symlink("real.json", place_.file("map.json"));
  place_.rows({{"mpls", R"([{"dst":"16","dev":"a"}])"}});
  EXPECT_TRUE(std::filesystem::is_symlink(place_.file("map.json")));
  EXPECT_THAT(TestSupport::contentOf(place_.file("real.json")), HasSubstr(R"("a": 1)"));
}

TEST_F(ImportMapFile, WhatAKilledImportLeftIsOverwritten) {
  TestSupport::writeFile(place_.file("map.json.new"), "half of a ma");
  place_.rows({{"mpls", R"([{"dst":"16","dev":"a"}])"}});
  EXPECT_THAT(fileNames(), UnorderedElementsAre("map.json", "mpls.json"));
}

TEST_F(ImportMapFile, FileThatCantBeWrittenEndsTheImportBeforeAnythingIsPrinted) {
  std::filesystem::create_directory(place_.file("map.json.new"));
  Outcome const outcome = place_.import({{"mpls", R"([{"dst":"16","dev":"a"}])"}});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("map.json.new: Is a directory"));
  EXPECT_FALSE(std::filesystem::exists(place_.file("map.json")));
}

TEST_F(ImportMapFile, FileThatGetsFullLeavesTheMapAsItWasAndNothingBesideIt) {
  place_.mapIs("{}");
  TestSupport::writeFile(place_.file("in.json"), R"([{"ifname":"swp1","vlans":[{"vlan":1,"vlanEnd":200}]}])");
  Outcome const outcome =
      runShell("cd " + place_.file("") +
               " && trap '' XFSZ && ulimit -f 1 && HWTABLES import iproute2 --map map.json --vlan in.json");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: cannot write " + place_.file("map.json") + ": File too large\n");
  EXPECT_EQ(place_.map(), "{}");
  EXPECT_THAT(fileNames(), UnorderedElementsAre("map.json", "in.json"));
}

TEST_F(ImportMapFile, TwoImportsAtOnceGiveNoNumberTwice) {
  std::vector<std::thread> imports;
  for (unsigned nth = 0; nth < 8; ++nth) {
    imports.emplace_back([this, nth] {
      std::string const name = "in" + std::to_string(nth);
      TestSupport::writeFile(place_.file(name), R"([{"dst":"16","dev":")" + name + R"("}])");
      EXPECT_EQ(place_.import({}, "--mpls " + name).exitCode, 0);
    });
  }
  for (std::thread& import : imports) import.join();
  std::vector<unsigned> numbers;
  auto const map = nlohmann::json::parse(place_.map());
  for (auto const& [name, number] : map["interfaces"].items()) numbers.push_back(number);
  EXPECT_THAT(numbers, UnorderedElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(ImportMapFile, NumbersThatPeopleWroteStandAndNewOnesGoBetweenThem) {
  place_.mapIs(
      R"({"interfaces":{"a":2,"b":524287},"ports":{"swp1":{"fap":3,"vlanDomain":511},"swp2":null}})");
  EXPECT_THAT(
      place_.rows({{"mpls", R"([{"dst":"1","dev":"c"},{"dst":"2","dev":"d"},{"dst":"3","dev":"b"}])"},
                   {"vlan", R"([{"ifname":"swp1","vlans":[{"vlan":5}]},)"
                            R"({"ifname":"swp2","vlans":[{"vlan":5}]}])"}}),
      testing::AllOf(
          testing::SizeIs(7),
          IsSupersetOf({R"({"op":"set","table":"MplsIsemHwEm","key":{"mplsLabel":1,"mplsBos":0},)"
                        R"("fields":{"inLif":1}})",
                        R"({"op":"set","table":"MplsIsemHwEm","key":{"mplsLabel":2,"mplsBos":0},)"
                        R"("fields":{"inLif":3}})",
                        R"({"op":"set","table":"MplsIsemHwEm","key":{"mplsLabel":3,"mplsBos":0},)"
                        R"("fields":{"inLif":524287}})",
                        R"({"op":"set","table":"InAcSVlanHwEm","key":{"vlanDomainPerCore":511,"sVid":5},)"
                        R"("fields":{"inLif":4},"fap":3})"})));
}

TEST_F(ImportMapFile, IsSortedForPeopleToRead) {
  place_.rows(
      {{"vlan", R"([{"ifname":"swp2","vlans":[{"vlan":2}]},{"ifname":"swp1","vlans":[{"vlan":1}]}])"}});
  EXPECT_EQ(place_.map(), R"({
  "bridgeVlans": {},
  "interfaces": {
    "swp1/1": 2,
    "swp2/2": 1
  },
  "locators": {},
  "ports": {
    "swp1": {
      "fap": 0,
      "vlanDomain": 2
    },
    "swp2": {
      "fap": 0,
      "vlanDomain": 1
    }
  },
  "vrfs": {},
  "vxlanLinks": {}
}
)");
}

}  // namespace

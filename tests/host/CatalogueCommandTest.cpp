#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/host/Program.h"

namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::vector<std::string> linesOf(std::string const& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Json expectedCatalogue() {
  std::ifstream file(HWTABLES_SOURCE_DIR "/tests/LoamSharedHwTables/expected_catalogue.json");
  return Json::parse(file);
}

TEST(CatalogueCommand, TellsEveryTableAsItWasWrittenDownElsewhere) {
  Outcome const outcome = runShell("HWTABLES catalogue --json");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  Json const told = Json::parse(outcome.out);
  Json const expected = expectedCatalogue();
  ASSERT_EQ(told["tables"].size(), 36U);
  for (std::size_t i = 0; i < 36; ++i) {
    EXPECT_EQ(nlohmann::json(told["tables"][i]), nlohmann::json(expected["tables"][i])) << "table " << i;
  }
}

TEST(CatalogueCommand, TellsOneTableAsAnObjectOfTheSameForm) {
  Json const told = Json::parse(runShell("HWTABLES catalogue BigAdsHwMdb --json").out);
  ASSERT_EQ(told["tables"].size(), 1U);
  EXPECT_EQ(told["tables"][0]["name"], "BigAdsHwMdb");
  EXPECT_EQ(told["tables"][0]["mdbTableId"], 2);
  EXPECT_EQ(told["tables"][0]["memories"], Json::array());
  EXPECT_EQ(told.begin().key(), "tables");
}

TEST(CatalogueCommand, ListsTheTablesInCatalogueOrder) {
  auto const lines = linesOf(runShell("HWTABLES catalogue").out);
  ASSERT_EQ(lines.size(), 37U);
  EXPECT_THAT(lines[0], StartsWith("TABLE "));
  Json const expected = expectedCatalogue();
  for (std::size_t i = 0; i < 36; ++i) {
    EXPECT_THAT(lines[i + 1], StartsWith(expected["tables"][i]["name"].get<std::string>() + " "));
  }
}

TEST(CatalogueCommand, ListsKeysByTheirBoundsOrTheirTypes) {
  std::string const list = runShell("HWTABLES catalogue").out;
  EXPECT_THAT(list, HasSubstr(" 24  arrayIndex 0..1, entryIndex 0..4095           MDBK_KAPSA_RPB_COMMAND\n"));
  EXPECT_THAT(list, HasSubstr(" 24  udpTunnelType U4, ipv4Dip 32-bit, vrf 16-bit  IPV4_UDP_TT_MP_EM\n"));
  EXPECT_THAT(list, HasSubstr(" 60  value 0..0                                    XLKAPS2\n"));
}

TEST(CatalogueCommand, FitsTheListToTheTerminal) {
  Outcome const outcome = runShell("script -qec 'stty cols 60; HWTABLES catalogue' /dev/null");
  auto const lines = linesOf(outcome.out);
  ASSERT_EQ(lines.size(), 37U);
  for (std::string const& line : lines) EXPECT_LE(line.size(), 61U) << line;
  EXPECT_THAT(lines[1], HasSubstr("..."));
}

TEST(CatalogueCommand, DrawsTheFieldsOfATableOnTheBitsOfItsRow) {
  EXPECT_EQ(runShell("HWTABLES catalogue VttInPpPortConfig0HwDirect").out,
            R"(bcm88490_a0::VttInPpPortConfig0HwDirect (direct)
  chip name   IPPF_VTT_IN_PP_PORT_CONFIG_0
  row         8 bytes, 64 bits, with parity
  key         value                  32-bit  0..256, 256 names no row
  memory 0    ippfVttInPpPortConfig0 in block 37 at 0x750000
              rows 0..255 of array 0

  fields
     1  portKeyGenVar                              32-bit  [0..31]
     2  defaultPortLif                             U20     [32..51]
     3  ecc                                        U7      [52..58]

      0       .       8       .       16      .       24      .
      1 portKeyGenVar------------------------------------------------|
      32      .       40      .       48      .       56      .
      2 defaultPortLif-----------------------|3 ecc--------|
)");
}

TEST(CatalogueCommand, DrawsOverlappingFieldsBelowEachOther) {
  EXPECT_THAT(runShell("HWTABLES catalogue MplsIsemHwEm").out,
              HasSubstr("      9 command--------|1 mplsLabel----------------------------|2\n"
                        "                        5 key------------------------------------|\n"
                        "                        10 entry------------------------------------->\n"));
}

TEST(CatalogueCommand, DrawsEachViewOfATableOfItsOwn) {
  std::string const text = runShell("HWTABLES catalogue TcamBHwDirect").out;
  EXPECT_THAT(text, HasSubstr("\n  fields of view MdbkKapsbRpbCommandEntry\n"));
  EXPECT_THAT(text, HasSubstr("\n  fields of view MdbkKapsbRpbReadReplyEntry\n"));
  EXPECT_THAT(text, HasSubstr("rows 0..2047 of each of arrays 0..1\n"));
  EXPECT_THAT(text, HasSubstr("presets     cmdBankSel 3\n"));
}

TEST(CatalogueCommand, LeavesBitsWithoutAFieldOutOfTheRuler) {
  std::string const text = runShell("HWTABLES catalogue TcamHwDirect").out;
  auto const reply = text.find("MdbkKapsaRpbCompareReplyEntry");
  std::string const ruler = text.substr(reply, text.find("MdbkKapsaRpbReadReplyEntry") - reply);
  EXPECT_THAT(ruler, HasSubstr("\n      96      .       104 "));
  EXPECT_THAT(ruler, Not(HasSubstr("\n      128 ")));
}

TEST(CatalogueCommand, TellsWhatOnlySomeTablesHave) {
  EXPECT_THAT(runShell("HWTABLES catalogue BigBbXlHwMdb").out, HasSubstr("\n  MDB table   10\n"));
  EXPECT_THAT(runShell("HWTABLES catalogue EsemFodoPortCvidEm").out,
              HasSubstr("MDBK_ESEM in block 282 at 0x14000, physical table 37\n"));
  std::string const tagged = runShell("HWTABLES catalogue MainHdrProfMapHwDirect").out;
  EXPECT_THAT(tagged, HasSubstr("\n  tag         excludeUdpHdrMapTableWriter\n"));
  EXPECT_THAT(tagged, Not(HasSubstr("parity")));
  EXPECT_THAT(runShell("HWTABLES catalogue IpkgvHwDirect").out, Not(HasSubstr("\n  tag ")));
}

TEST(CatalogueCommand, NoLineOfATableIsWiderThanATerminal) {
  Json const expected = expectedCatalogue();
  for (auto const& table : expected["tables"]) {
    for (std::string const& line :
         linesOf(runShell("HWTABLES catalogue " + table["name"].get<std::string>()).out)) {
      EXPECT_TRUE(line.size() <= 80 || line.find("chip name") != std::string::npos) << line;
    }
  }
}

TEST(CatalogueCommand, UnknownTableExitsWithTwoAndNamesTheNearest) {
  Outcome const typo = runShell("HWTABLES catalogue MplsIsenHwEm");
  EXPECT_EQ(typo.exitCode, 2);
  EXPECT_EQ(typo.out, "");
  EXPECT_EQ(typo.err, "hwtables: there is no table MplsIsenHwEm; the nearest: MplsIsemHwEm\n");
  Outcome const part = runShell("HWTABLES catalogue bigads --json");
  EXPECT_EQ(part.exitCode, 2);
  EXPECT_EQ(part.err,
            "hwtables: there is no table bigads; the nearest: BigAdsHwMdb, BigAds1HwMdb, BigAds3HwMdb\n");
}

TEST(CatalogueCommand, BundleThatCannotBeLoadedExitsWithOneAndSaysWhich) {
  Outcome const outcome = runShell("HWTABLES catalogue --bundle /nonexistent.so");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, StartsWith("hwtables: cannot load the table bundle: /nonexistent.so: "));
}

TEST(CatalogueCommand, LibraryWithoutTablesExitsWithOneAndSaysSo) {
  for (std::string const command : {"HWTABLES catalogue", "HWTABLES catalogue MplsIsemHwEm"}) {
    Outcome const outcome = runShell(command + " --bundle " HWTABLES_BIN_DIR "/../lib/libhwtables.so");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::MatchesRegex("hwtables: .*/libhwtables.so holds no tables\n"));
  }
}

}  // namespace

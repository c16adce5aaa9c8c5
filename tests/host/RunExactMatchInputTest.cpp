// What of an exact-match entry an operation may set.
#include <gmock/gmock.h>

#include "tests/host/ExactMatchRows.h"

namespace {

struct Rule {
  std::string field;
  std::string value;
  std::string why;
};

class ExactMatchInput : public testing::TestWithParam<ExactMatchTable> {
 protected:
  ExactMatchTable const& table() const { return GetParam(); }
  std::string set(std::string const& field, std::string const& value) const {
    return table().op("set", 1, ",\"fields\":{\"" + field + "\":" + value + "}");
  }
  // Each of them alone is told with the reason, and nothing is stored.
  void expectRefused(std::vector<Rule> const& rules) const {
    std::vector<std::string> operations;
    std::string told;
    for (Rule const& rule : rules) {
      operations.push_back(set(rule.field, rule.value));
      told += "hwtables: " + place_.file("in.jsonl") + ":" + std::to_string(operations.size()) + ": " +
              table().name + ": field " + rule.field + ": " + rule.why + "\n";
    }
    operations.push_back(table().op("get", 1));
    RunEvents const events = place_.events(operations, "--keep-going");
    EXPECT_EQ(events.exitCode, 1);
    EXPECT_EQ(events.err, told);
    EXPECT_EQ(events.one("get")["stored"], false);
  }
  bool hasSweepBit() const { return table().name != std::string("EsemFodoPortCvidEm"); }
  bool isWide() const { return table().name == std::string("VsiToVniEsemHwEm") || !hasSweepBit(); }
  std::vector<std::string> keyMembers() const {
    std::vector<std::string> names;
    RunJson const key = RunJson::parse(table().key(1));
    for (auto const& [name, value] : key.items()) names.push_back(name);
    return names;
  }

  RunPlace place_;
};

INSTANTIATE_TEST_SUITE_P(Tables, ExactMatchInput, testing::ValuesIn(kExactMatchTables),
                         [](auto const& one) { return std::string(one.param.name); });

TEST_P(ExactMatchInput, KeyStandsApart) {
  std::vector<Rule> rules{{"key", "1", "not to be set: the operation's key gives it"}};
  for (std::string const& name : keyMembers())
    rules.push_back({name, "1", "not to be set: it has bits of key"});
  expectRefused(rules);
}

TEST_P(ExactMatchInput, WhatReconcilingNeedsIsNotToBeSet) {
  std::string const same = "not to be set: all entries of the table have the same";
  std::vector<Rule> rules{{"command", "288", "not to be set: the table's commands give it"},
                          {"vmv", "1", "not to be set: reconciling finds entries by it"},
                          {"entryType", "1", same},
                          {"appId", "1", same},
                          {"tid", "1", same}};
  if (hasSweepBit()) rules.push_back({"sweepBit", "0", "not to be set: reconciling gives it"});
  expectRefused(rules);
}

TEST_P(ExactMatchInput, WholeImageIsNotToBeSet) {
  expectRefused(
      {{"entry", "\"0x0\"",
        hasSweepBit() ? "not to be set: it has bits of sweepBit" : "not to be set: it has bits of key"}});
}

TEST_P(ExactMatchInput, WhatTheChipAnswersIsNotToBeSet) {
  std::vector<Rule> rules;
  for (char const* const name : {"wayIndex", "prefixNum", "address", "hits", "found"})
    rules.push_back({name, "0", "not to be set: the chip gives it"});
  expectRefused(rules);
}

TEST_P(ExactMatchInput, PayloadIsSetWithoutTheSweepBit) {
  auto const value = [](std::string const& number) { return "\"" + number + "\""; };
  RunEvents const events =
      place_.events({set("payload", value("0x2")), table().op("get", 1), table().on("verify")});
  EXPECT_EQ(events.exitCode, 0) << events.err;
  RunJson const payload = events.one("get")["fields"]["payload"];
  EXPECT_EQ(
      payload.is_string() ? payload.get<std::string>().back() : static_cast<char>('0' + payload.get<int>()),
      '2');
  if (hasSweepBit()) {
    expectRefused({{"payload", value("0x3"), "its bit 0 is the sweepBit, which is 0 in what is set"}});
  } else {
    EXPECT_EQ(place_.run({set("payload", value("0x3")), table().on("verify")}).exitCode, 0);
  }
}

TEST_P(ExactMatchInput, ResultIsSetWithinItsRange) {
  std::string const largest = std::string(table().result) == "inLif"          ? "524287"
                              : std::string(table().result) == "vlanEditVid1" ? "4095"
                                                                              : "16777215";
  std::string const past = std::to_string(std::stoul(largest) + 1);
  RunEvents const events =
      place_.events({set(table().result, largest), table().op("get", 1), table().on("verify")});
  EXPECT_EQ(events.exitCode, 0) << events.err;
  EXPECT_EQ(events.one("get")["fields"][table().result].dump(), largest);
  expectRefused({{table().result, past, past + " is not 0 to " + largest},
                 {table().result, "-1", "-1 is not 0 to " + largest},
                 {table().result, "\"x\"", "\"x\" is not 0 to " + largest}});
}

TEST_P(ExactMatchInput, ResultTypeIsSetWhereThereIsOne) {
  RunEvents const events =
      place_.events({set("resultType", "3"), table().op("get", 1), table().on("verify")});
  if (isWide()) {
    EXPECT_EQ(events.exitCode, 0) << events.err;
    EXPECT_EQ(events.one("get")["fields"]["resultType"], 3);
  } else {
    EXPECT_EQ(events.exitCode, 1);
    EXPECT_THAT(events.err, testing::HasSubstr(": there is no field resultType"));
  }
}

TEST_P(ExactMatchInput, ResultAndPayloadMayAgree) {
  std::string const fields = std::string(",\"fields\":{\"payload\":\"0x4\",\"") + table().result + "\":";
  // What the payload says of the result: it begins behind the sweep bit, or further up.
  std::string const agreed = isWide() ? "0" : "2";
  EXPECT_EQ(place_.run({table().op("set", 1, fields + agreed + "}")}).exitCode, 0);
  Outcome const outcome = place_.run({table().op("set", 1, fields + "1}")});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, testing::HasSubstr(std::string(": fields payload and ") + table().result +
                                              " contradict each other: they share bits "));
}

TEST_P(ExactMatchInput, KeyMembersHaveTheirRange) {
  std::string const huge = R"({"op":"set","table":")" + std::string(table().name) + R"(","key":)";
  RunJson key = RunJson::parse(table().key(1));
  for (std::string const& name : keyMembers()) {
    RunJson other = key;
    other[name] = std::uint64_t{1} << 32;
    Outcome const outcome = place_.run({huge + other.dump() + "}"});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.err, testing::ContainsRegex("in.jsonl:1: " + std::string(table().name) + ": key " +
                                                    name + ": 4294967296 is not 0 to [0-9]+\n"));
    key.erase(name);
    EXPECT_THAT(place_.run({huge + key.dump() + "}"}).err,
                testing::HasSubstr(": key " + name + " is missing\n"));
    key = RunJson::parse(table().key(1));
  }
}

}  // namespace

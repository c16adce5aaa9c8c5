// The exact-match tables as operations name them, for tests that go through all of them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tests/host/Runs.h"

struct ExactMatchTable {
  char const* name;
  bool shared;          // by all FAPs
  char const* counted;  // the member of the key by which rows are numbered
  char const* rest;     // the other members
  char const* result;   // a field of the result

  std::string key(unsigned number) const {
    return "{\"" + std::string(counted) + "\":" + std::to_string(number) + "," + rest + "}";
  }
  // `more` stands behind the other members.
  std::string op(std::string const& name_, unsigned number, std::string const& more = "") const {
    return R"({"op":")" + name_ + R"(","table":")" + name + R"(","key":)" + key(number) + more + "}";
  }
  std::string set(unsigned number, unsigned value, std::string const& more = "") const {
    return op("set", number,
              ",\"fields\":{\"" + std::string(result) + "\":" + std::to_string(value) + "}" + more);
  }
  // Rows first to end, end excluded, each with its number as the result.
  std::vector<std::string> rows(unsigned first, unsigned end) const {
    std::vector<std::string> operations;
    for (unsigned number = first; number < end; ++number) operations.push_back(set(number, number));
    return operations;
  }
  std::string on(std::string const& operation) const {
    return R"({"op":")" + operation + R"(","table":")" + name + "\"}";
  }
};

inline void PrintTo(ExactMatchTable const& table, std::ostream* out) { *out << table.name; }

inline constexpr ExactMatchTable kExactMatchTables[] = {
    {"MplsIsemHwEm", true, "mplsLabel", R"("mplsBos":1)", "inLif"},
    {"Srv6LocalSidIsemHwEm", true, "ipv6Srv6FunctionBits", R"("ipv6DipIdx":7)", "inLif"},
    {"Ip4UdpTtMpIsemHwEm", true, "ipv4Dip", R"("udpTunnelType":1,"vrf":9)", "inLif"},
    {"InAcSVlanHwEm", false, "sVid", R"("vlanDomainPerCore":3)", "inLif"},
    {"InAcUntaggedHwEm", false, "vlanDomain", R"("zeroPadding":0)", "inLif"},
    {"VsiToVniEsemHwEm", false, "fodo", R"("esemNameSpace":2)", "fwdDomainNwkName"},
    {"EsemFodoPortCvidEm", false, "cVid", R"("esemNameSpace":2,"fodo":70000)", "vlanEditVid1"},
};
inline constexpr ExactMatchTable const& kMplsTable = kExactMatchTables[0];
inline constexpr ExactMatchTable const& kVsiToVniTable = kExactMatchTables[5];
inline constexpr ExactMatchTable const& kPortCvidTable = kExactMatchTables[6];

// One list of operations out of several.
inline std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> lists) {
  std::vector<std::string> all;
  for (auto const& list : lists) all.insert(all.end(), list.begin(), list.end());
  return all;
}
inline std::vector<std::string> rowsOfAllTables(unsigned first, unsigned end) {
  std::vector<std::string> all;
  for (ExactMatchTable const& table : kExactMatchTables) {
    auto const rows = table.rows(first, end);
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}

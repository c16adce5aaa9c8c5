#include "host/ImportRows.h"

#include <fmt/format.h>

#include <algorithm>

namespace Host {
namespace {

ImportTableNames const& namesOf(ImportTable table) { return importTables()[static_cast<std::size_t>(table)]; }

}  // namespace

std::span<ImportTableNames const> importTables() {
  static std::vector<ImportTableNames> const kTables{
      {"MplsIsemHwEm", {"mplsLabel", "mplsBos"}, "inLif"},
      {"Srv6LocalSidIsemHwEm", {"ipv6DipIdx", "ipv6Srv6FunctionBits"}, "inLif"},
      {"Ip4UdpTtMpIsemHwEm", {"udpTunnelType", "ipv4Dip", "vrf"}, "inLif"},
      {"InAcSVlanHwEm", {"vlanDomainPerCore", "sVid"}, "inLif"},
      {"InAcUntaggedHwEm", {"zeroPadding", "vlanDomain"}, "inLif"},
      {"VsiToVniEsemHwEm", {"esemNameSpace", "fodo"}, "fwdDomainNwkName"},
  };
  return kTables;
}

std::string ImportRows::keyText(Row const& row) {
  auto const& members = namesOf(row.table).key;
  std::string text;
  for (std::size_t at = 0; at < members.size(); ++at)
    text += fmt::format("{}\"{}\":{}", at == 0 ? "" : ",", members[at], row.key[at]);
  return text;
}

std::string ImportRows::operation(Row const& row, std::uint64_t value) {
  auto const& names = namesOf(row.table);
  std::string const fap = row.fap ? fmt::format(R"(,"fap":{})", *row.fap) : "";
  return fmt::format(R"({{"op":"set","table":"{}","key":{{{}}},"fields":{{"{}":{}}}{}}})", names.table,
                     keyText(row), names.field, value, fap);
}

void ImportRows::add(std::string const& where, ImportTable table, std::optional<unsigned> fap, Key const& key,
                     std::uint64_t value) {
  Row const row{table, fap, key};
  std::uint64_t const standing = rows_.try_emplace(row, value).first->second;
  if (standing == value) return;
  auto const& names = namesOf(table);
  notMapped(where,
            fmt::format("{} {{{}}} has {} {} already", names.table, keyText(row), names.field, standing));
}

void ImportRows::notMapped(std::string const& where, std::string const& why, std::size_t elements) {
  notMappedCount_ += elements;
  notMapped_.push_back(fmt::format("{}: not mapped: {}", where, why));
}

std::vector<std::string> ImportRows::operations() const {
  std::vector<std::string> all;
  all.reserve(rows_.size());
  for (auto const& [row, value] : rows_) all.push_back(operation(row, value));
  return all;
}

std::size_t ImportRows::count(ImportTable table) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(rows_, [table](auto const& one) { return one.first.table == table; }));
}

}  // namespace Host

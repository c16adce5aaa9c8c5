// What an import comes to: rows of tables, and what could not be mapped, with the reason. One thread.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

enum class ImportTable : std::uint8_t { mpls, srv6, tunnel, tagged, untagged, vni };

// How a row of a table is written: its key members in their order, and the one field that is set.
struct ImportTableNames {
  std::string_view table;
  std::vector<std::string_view> key;
  std::string_view field;
};
// By the numbers of ImportTable.
std::span<ImportTableNames const> importTables();

class ImportRows {
 public:
  using Key = std::array<std::uint64_t, 3>;

  // Members of the key that the table doesn't have are 0. Without a FAP the row is every FAP's. A row that
  // stands already with another value stays, and the new one counts as not mapped.
  void add(std::string const& where, ImportTable table, std::optional<unsigned> fap, Key const& key,
           std::uint64_t value);
  // `elements` of the input share the reason.
  void notMapped(std::string const& where, std::string const& why, std::size_t elements = 1);

  // In the order of tables, FAPs and keys, so that two imports can be compared: one operation each.
  std::vector<std::string> operations() const;
  std::size_t count(ImportTable table) const;
  // One line a reason.
  std::vector<std::string> const& notMapped() const { return notMapped_; }
  std::size_t notMappedCount() const { return notMappedCount_; }

 private:
  struct Row {
    ImportTable table;
    std::optional<unsigned> fap;
    Key key;
    auto operator<=>(Row const&) const = default;
  };
  static std::string keyText(Row const& row);
  static std::string operation(Row const& row, std::uint64_t value);

  std::map<Row, std::uint64_t> rows_;
  std::vector<std::string> notMapped_;
  std::size_t notMappedCount_ = 0;
};

}  // namespace Host

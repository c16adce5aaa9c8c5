// Draws the fields of a row on a ruler of its bits, for people at a terminal of 80 columns.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// A field to draw: its number in the list beside the ruler, and its bits, both inclusive.
struct RulerField {
  unsigned number;
  std::string_view name;
  unsigned low;
  unsigned high;
};

// Lines of 32 bits, two columns a bit, bit 0 first. Each shows the fields in it by number and, where there is
// room, by name; fields over the same bits stand below each other. A field that goes on in the next line ends
// in '>'. Stretches without fields are left out.
std::vector<std::string> bitRuler(std::span<RulerField const> fields, unsigned bits);

}  // namespace Host

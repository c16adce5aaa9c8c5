// Makes one message readable from its site's description and the bare bytes of its arguments. Neither is
// trusted: the file may be damaged. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include "runtime/FastLog/Layout.h"

namespace FastLog {

struct Site {
  std::string file;
  std::uint32_t line = 0;
  std::string format;
  std::string kinds;
};

using Sites = std::unordered_map<std::uint32_t, Site>;

// The sites that the descriptors of a file name, up to the first that is damaged.
Sites sitesOf(std::span<std::uint64_t const> descriptors);

// The formatted message. Where the arguments don't fit the format: the bare format with the reason.
std::string messageText(Site const& site, std::string_view arguments);

}  // namespace FastLog

// Segments of IPv6 that end here, of what "ip -j -6 route show" prints.
#pragma once

#include "host/ImportMap.h"
#include "host/ImportRows.h"
#include "host/IprouteElement.h"

namespace Host {

// The function of a segment follows its locator, and has this many bits.
constexpr unsigned kSrv6FunctionBits = 16;

// Throws InputError for what is wrong with the input; the rows are of no use then.
void importSrv6(IprouteFile const& file, unsigned locatorBits, ImportMap& map, ImportRows& rows);

}  // namespace Host

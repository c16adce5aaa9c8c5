// Labels that end here, of what "ip -j -f mpls route show" prints.
#pragma once

#include "host/ImportMap.h"
#include "host/ImportRows.h"
#include "host/IprouteElement.h"

namespace Host {

// Throws InputError for what is wrong with the input; the rows are of no use then.
void importMpls(IprouteFile const& file, ImportMap& map, ImportRows& rows);

}  // namespace Host

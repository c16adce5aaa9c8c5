// Stores as text, for people.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Vault/StoreFiles.h"

namespace Host {

// A headline and a line for each store. Paths are told in the form that commands take: those below `root`,
// the root of all stores, from there on.
std::vector<std::string> storeListLines(std::string_view root, std::vector<Vault::StoreFiles> const& stores);

// All about one, which was read as a whole.
std::vector<std::string> storeLines(Vault::StoreFiles const& store);

// "pid 4711", "free" or, where the owner can't be told, "held".
std::string writerText(Vault::StoreFiles const& store);

}  // namespace Host

// Suggestions for a name that was mistyped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host {

// At most three of the names, the likeliest first: those with the fewest letters to change, whatever their
// case; a name that contains the given text is as near as one with a letter or two wrong.
std::vector<std::string_view> nearestNames(std::string_view given,
                                           std::vector<std::string_view> const& names);

// "there is no table Abc; the nearest: Abd, Abe"
std::string unknownText(std::string_view what, std::string_view given,
                        std::vector<std::string_view> const& names);

}  // namespace Host

// Where trace lines and messages to the user go. Nothing here throws, changes errno or ends the process.
// Any thread; each text reaches the kernel in one write(), so lines of threads and processes don't mix.
#pragma once

#include <string>
#include <string_view>

namespace Dovel::Impl {

// Writes the text to a descriptor, also where that is a pipe without a reader or a file at its size limit.
void writeText(int descriptor, std::string_view text) noexcept;

// Writes the text to the file of HWTABLES_TRACE_FILE, or to standard error where there is none.
void writeTrace(std::string_view text) noexcept;

// One line on standard error that tells a person of a mistake in what they configured.
void tellUser(std::string_view message) noexcept;

// "file:line Class::function", with what is missing left out.
std::string placeText(char const* className, char const* file, char const* function, int line);

}  // namespace Dovel::Impl

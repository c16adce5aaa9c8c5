// What an exception tells.
#pragma once

#include <string>

namespace TestSupport {

// The message of the exception that the call throws, or "nothing was thrown".
template <class Exception, class Call>
std::string messageOf(Call call) {
  try {
    call();
  } catch (Exception const& caught) {
    return caught.what();
  }
  return "nothing was thrown";
}

}  // namespace TestSupport

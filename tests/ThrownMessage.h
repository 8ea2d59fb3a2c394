// The message of a standard exception a test expects a call to raise, shared by the tests that
// pin error texts (the temporal noise, the tool's plots and report). Accepts any callable.
#pragma once

#include <string>

namespace testerrors {

// what() of the E the call threw, or "" when it threw nothing; any other exception propagates
// and fails the test.
template <class E, class Call>
std::string ThrownMessage(Call&& call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

}  // namespace testerrors

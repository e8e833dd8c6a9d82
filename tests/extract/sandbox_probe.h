// Attacks a taken-over helper would try, run inside the test build of trovix-extract after
// its sandbox is entered (a request whose path is "probe:ATTACK ARGS..."). Each answers one
// line: "refused: <why>" when the kernel said no, "DONE" when the attack went through. A call
// the filter kills with never answers: the helper dies of SIGSYS.
#pragma once

#include <string>

namespace trovix::testing {

std::string RunProbe(const std::string& command);

}  // namespace trovix::testing

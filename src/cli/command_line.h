#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace lumivesper::cli {

// The whole program behind main: the global options (--help, --version, --verbose), then one
// command with its arguments. Diagnostics go to `err` with --verbose and nowhere without, so that
// `out` carries only results. Never throws: a failure that no command expected ends the run with
// an error message and exitFailure.
int runCommandLine(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

} // namespace lumivesper::cli

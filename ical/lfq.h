// The lfq command as a function, so tests run it in-process.
#pragma once

#include <string>

// argv[0] is the program name; output and problems are appended to out and
// err. Returns 0 when every path was read, 1 when one could not be, 2 for a
// usage error.
int lfqRun(int argc, const char* const* argv, std::string& out, std::string& err);

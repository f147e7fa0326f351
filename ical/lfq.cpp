// lfq: prints what the engine makes of a calendar, one occurrence a line,
// so a user can check a file and tests can compare against other readers.
#include <cstdio>
#include <string>

#include "lfq.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

int main(int argc, char** argv)
{
#ifdef _WIN32
    // Lines end in LF on every platform, so outputs compare byte for byte.
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    std::string out, err;
    int rc = lfqRun(argc, argv, out, err);
    fwrite(err.data(), 1, err.size(), stderr);
    fwrite(out.data(), 1, out.size(), stdout);
    return rc;
}

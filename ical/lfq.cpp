// lfq: prints what the engine makes of a calendar, one occurrence a line,
// so a user can check a file and tests can compare against other readers.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "ical.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace {

void usage()
{
    fputs("usage: lfq [--tz ZONE] FROM TO PATH...\n"
          "  FROM, TO  YYYYMMDD or YYYYMMDDTHHMMSS, wall clock in ZONE; window [FROM, TO)\n"
          "  ZONE      IANA zone name read from zoneinfo ($TZDIR, else the system's); default UTC\n"
          "  PATH      a .ics file or a directory of .ics files\n"
          "prints UID, START, END, ALLDAY, SUMMARY separated by tabs, sorted\n",
          stderr);
}

std::string clean(const std::string& s)
{
    std::string o;
    for (char c : s) {
        switch (c) {
        case '\\': o += "\\\\"; break;
        case '\t': o += "\\t"; break;
        case '\n': o += "\\n"; break;
        case '\r': o += "\\r"; break;
        default: o += c;
        }
    }
    return o;
}

}  // namespace

int main(int argc, char** argv)
{
#ifdef _WIN32
    // Lines end in LF on every platform, so outputs compare byte for byte.
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    std::string tz = "UTC";
    int i = 1;
    if (i < argc && strcmp(argv[i], "--tz") == 0) {
        if (i + 1 >= argc) {
            usage();
            return 2;
        }
        tz = argv[i + 1];
        i += 2;
    }
    if (argc - i < 3) {
        usage();
        return 2;
    }
    int64_t from, to;
    bool d1, d2;
    if (!lfical::parseCivil(argv[i], from, d1) || !lfical::parseCivil(argv[i + 1], to, d2)) {
        fprintf(stderr, "lfq: FROM and TO must be YYYYMMDD or YYYYMMDDTHHMMSS\n");
        return 2;
    }
    lfical::Zone zone;
    std::string err;
    if (!lfical::Zone::fromIana(tz, zone, err)) {
        fprintf(stderr, "lfq: %s\n", err.c_str());
        return 2;
    }
    int rc = 0;
    std::vector<std::string> lines;
    for (int p = i + 2; p < argc; ++p) {
        lfical::Store store;
        std::vector<lfical::Problem> problems;
        if (!store.load(argv[p], &problems))
            rc = 1;
        for (const auto& pr : problems)
            fprintf(stderr, "%s:%d: %s\n", pr.file.c_str(), pr.line, pr.message.c_str());
        lfical::QueryReport report;
        auto occ = store.query(zone, from, to, lfical::Range::HalfOpen, &report);
        for (const std::string& uid : report.cut)
            fprintf(stderr, "%s: the occurrences of %s were cut short (rule too large)\n", argv[p], uid.c_str());
        std::unordered_map<lfical::EventId, std::string> summaries;
        for (const lfical::Occurrence& o : occ) {
            auto it = summaries.find(o.event);
            if (it == summaries.end())
                it = summaries.emplace(o.event, clean(store.info(o.event).summary)).first;
            std::string line = clean(store.uid(o.event));
            line += '\t' + lfical::formatCivil(o.start, o.allDay);
            line += '\t' + lfical::formatCivil(o.end, o.allDay);
            line += o.allDay ? "\t1\t" : "\t0\t";
            line += it->second;
            lines.push_back(std::move(line));
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string out;
    for (const std::string& l : lines) {
        out += l;
        out += '\n';
    }
    fwrite(out.data(), 1, out.size(), stdout);
    return rc;
}

// What lfq prints: every occurrence in the window, one sorted line each.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "ical.h"
#include "lfq.h"

namespace {

const char* kUsage =
    "usage: lfq [--tz ZONE] FROM TO PATH...\n"
    "  FROM, TO  YYYYMMDD or YYYYMMDDTHHMMSS, wall clock in ZONE; window [FROM, TO)\n"
    "  ZONE      IANA zone name read from zoneinfo ($TZDIR, else the system's); default UTC\n"
    "  PATH      a .ics file or a directory of .ics files\n"
    "prints UID, START, END, ALLDAY, SUMMARY separated by tabs, sorted\n";

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

int lfqRun(int argc, const char* const* argv, std::string& out, std::string& err)
{
    std::string tz = "UTC";
    int i = 1;
    if (i < argc && strcmp(argv[i], "--tz") == 0) {
        if (i + 1 >= argc) {
            err += kUsage;
            return 2;
        }
        tz = argv[i + 1];
        i += 2;
    }
    if (argc - i < 3) {
        err += kUsage;
        return 2;
    }
    int64_t from, to;
    bool d1, d2;
    if (!lfical::parseCivil(argv[i], from, d1) || !lfical::parseCivil(argv[i + 1], to, d2)) {
        err += "lfq: FROM and TO must be YYYYMMDD or YYYYMMDDTHHMMSS\n";
        return 2;
    }
    lfical::Zone zone;
    std::string zerr;
    if (!lfical::Zone::fromIana(tz, zone, zerr)) {
        err += "lfq: " + zerr + "\n";
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
            err += pr.file + ":" + std::to_string(pr.line) + ": " + pr.message + "\n";
        lfical::QueryReport report;
        auto occ = store.query(zone, from, to, lfical::Range::HalfOpen, &report);
        for (const std::string& uid : report.cut)
            err += std::string(argv[p]) + ": the occurrences of " + uid + " were cut short (rule too large)\n";
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
    for (const std::string& l : lines) {
        out += l;
        out += '\n';
    }
    return rc;
}

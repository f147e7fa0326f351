// lfbench: times this engine and libical, in the same run, on the same
// generated calendars: load, a month view's three queries, 100 one-day
// queries, and the memory the loaded store holds.
#include <libical/ical.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "generator.h"
#include "ical.h"

namespace {

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

long rssKb()
{
    FILE* f = fopen("/proc/self/status", "r");
    if (!f)
        return 0;
    char line[256];
    long kb = 0;
    while (fgets(line, sizeof line, f))
        if (strncmp(line, "VmRSS:", 6) == 0)
            kb = atol(line + 6);
    fclose(f);
    return kb;
}

struct Window {
    int64_t from, to;  // Berlin wall clock
};

// The month view shows six weeks: the tail of the previous month, the
// month, the head of the next; it asks for each part.
std::vector<Window> monthQueries(int y, int m)
{
    int64_t first = lfical::daysFromCivil(y, m, 1);
    int64_t gridStart = first - lfical::weekdayOfDay(first);
    int64_t next = lfical::daysFromCivil(m == 12 ? y + 1 : y, m == 12 ? 1 : m + 1, 1);
    int64_t gridEnd = gridStart + 42;
    return {{gridStart * lfical::kDay, first * lfical::kDay},
            {first * lfical::kDay, next * lfical::kDay},
            {next * lfical::kDay, gridEnd * lfical::kDay}};
}

std::vector<Window> dayQueries(int n)
{
    std::vector<Window> out;
    int64_t first = lfical::daysFromCivil(2010, 1, 1);
    for (int i = 0; i < n; ++i) {
        int64_t d = first + (int64_t(i) * 7307 / n) + (i * 37) % 13;
        out.push_back({d * lfical::kDay, (d + 1) * lfical::kDay});
    }
    return out;
}

struct LibicalCount {
    size_t n = 0;
};

void countCb(icalcomponent*, struct icaltime_span*, void* data) { ++static_cast<LibicalCount*>(data)->n; }

size_t libicalQuery(icalcomponent* cal, const lfical::Zone& berlin, const Window& w)
{
    // libical has no index: every event is asked for its instances.
    icaltimetype a = icaltime_from_timet_with_zone(berlin.toUtc(w.from), 0, icaltimezone_get_utc_timezone());
    icaltimetype b = icaltime_from_timet_with_zone(berlin.toUtc(w.to), 0, icaltimezone_get_utc_timezone());
    LibicalCount c;
    for (icalcomponent* ev = icalcomponent_get_first_component(cal, ICAL_VEVENT_COMPONENT); ev;
         ev = icalcomponent_get_next_component(cal, ICAL_VEVENT_COMPONENT))
        icalcomponent_foreach_recurrence(ev, a, b, countCb, &c);
    return c.n;
}

// A cold load: this program started afresh (not forked, so no pages are
// shared with a parent that has already loaded other files) loads one file
// and reports its time and the growth of its resident memory.
struct Cold {
    double seconds = -1;
    long rssKb = 0;
};

Cold coldRun(const char* engine, const std::string& path)
{
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0)
        return Cold();
    self[n] = 0;
    std::string cmd = std::string(self) + " --cold " + engine + " '" + path + "'";
    FILE* p = popen(cmd.c_str(), "r");
    Cold c;
    if (!p)
        return c;
    if (fscanf(p, "%lf %ld", &c.seconds, &c.rssKb) != 2)
        c.seconds = -1;
    pclose(p);
    return c;
}

bool readAll(const std::string& path, std::string& out)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (!f)
        return false;
    char buf[1 << 16];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        out.append(buf, n);
    fclose(f);
    return true;
}

}  // namespace

int coldMain(const std::string& engine, const std::string& path)
{
    long r0 = rssKb();
    double t0 = now();
    bool ok;
    lfical::Store* store = nullptr;
    icalcomponent* cal = nullptr;
    if (engine == "ours") {
        store = new lfical::Store;
        ok = store->load(path, nullptr);
    } else {
        std::string text;
        ok = readAll(path, text) && (cal = icalparser_parse_string(text.c_str())) != nullptr;
    }
    double t = now() - t0;
    // Measured while the loaded calendar is still held.
    printf("%.6f %ld\n", ok ? t : -1.0, rssKb() - r0);
    fflush(stdout);
    delete store;
    if (cal)
        icalcomponent_free(cal);
    return ok ? 0 : 1;
}

int main(int argc, char** argv)
{
    if (argc == 4 && !strcmp(argv[1], "--cold"))
        return coldMain(argv[2], argv[3]);
    std::vector<std::string> sizes = {"small", "medium", "large"};
    std::string dir = "/tmp";
    int libicalDays = -1;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--dir") && i + 1 < argc)
            dir = argv[++i];
        else if (!strcmp(argv[i], "--libical-days") && i + 1 < argc)
            libicalDays = atoi(argv[++i]);
        else if (!strcmp(argv[i], "small") || !strcmp(argv[i], "medium") || !strcmp(argv[i], "large")) {
            if (sizes.size() == 3 && i == 1)
                sizes.clear();
            sizes.push_back(argv[i]);
        } else {
            fputs("usage: lfbench [--dir DIR] [--libical-days N] [small] [medium] [large]\n", stderr);
            return 2;
        }
    }
    lfical::Zone berlin;
    std::string err;
    if (!lfical::Zone::fromIana("Europe/Berlin", berlin, err)) {
        fprintf(stderr, "lfbench: %s\n", err.c_str());
        return 1;
    }
#ifdef __SANITIZE_ADDRESS__
    puts("note: built with the sanitizers - these figures say nothing; use a Release build");
#endif
    printf("%-7s %9s %9s | %-28s | %-30s | %-30s | %s\n", "size", "events", "MB", "load ms (ours / libical = x)",
           "month 3 queries ms (x)", "one-day query ms (x)", "RSS of store / file");
    for (const std::string& size : sizes) {
        std::string path = dir + "/lanternfields-bench-" + size + ".ics";
        {
            std::string text = lfgen::generate(lfgen::preset(size));
            FILE* f = fopen(path.c_str(), "wb");
            if (!f || fwrite(text.data(), 1, text.size(), f) != text.size() || fclose(f) != 0) {
                fprintf(stderr, "lfbench: cannot write %s\n", path.c_str());
                return 1;
            }
        }
        long fileBytes = 0;
        if (FILE* f = fopen(path.c_str(), "rb")) {
            fseek(f, 0, SEEK_END);
            fileBytes = ftell(f);
            fclose(f);
        }

        // ---- ours
        // Loads are timed cold, each in a fresh process, best of three: the
        // machine is shared, and the best run is the least disturbed. libical
        // is timed the same way.
        double oursLoad = 1e9, libLoad = 1e9;
        long oursRss = 0;
        for (int rep = 0; rep < 3; ++rep) {
            Cold c = coldRun("ours", path);
            if (c.seconds < 0) {
                fprintf(stderr, "lfbench: our load of %s failed\n", path.c_str());
                return 1;
            }
            oursLoad = std::min(oursLoad, c.seconds);
            oursRss = std::max(oursRss, c.rssKb);
            c = coldRun("libical", path);
            libLoad = std::min(libLoad, c.seconds);
        }
        auto* store = new lfical::Store;
        store->load(path, nullptr);
        double t;
        auto months = monthQueries(2019, 6);
        size_t oursMonthN = 0;
        int reps = 50;
        t = now();
        for (int r = 0; r < reps; ++r)
            for (const Window& w : months)
                oursMonthN += store->query(berlin, w.from, w.to, lfical::Range::HalfOpen).size();
        double oursMonth = (now() - t) / reps;
        oursMonthN /= size_t(reps);
        auto days = dayQueries(100);
        t = now();
        size_t oursDayN = 0;
        double worstDay = 0;
        int64_t worstAt = 0;
        for (const Window& w : days) {
            double t1 = now();
            oursDayN += store->query(berlin, w.from, w.to, lfical::Range::HalfOpen).size();
            if (now() - t1 > worstDay) {
                worstDay = now() - t1;
                worstAt = w.from;
            }
        }
        double oursDay = (now() - t) / double(days.size());
        delete store;

        // ---- libical
        std::string text;
        readAll(path, text);
        icalcomponent* cal = icalparser_parse_string(text.c_str());
        text.clear();
        if (!cal) {
            fprintf(stderr, "lfbench: libical could not parse %s\n", path.c_str());
            return 1;
        }
        t = now();
        size_t libMonthN = 0;
        for (const Window& w : months)
            libMonthN += libicalQuery(cal, berlin, w);
        double libMonth = now() - t;
        int nd = libicalDays > 0 ? libicalDays : (size == "large" ? 10 : 100);
        nd = std::min<int>(nd, int(days.size()));
        t = now();
        size_t libDayN = 0;
        for (int i = 0; i < nd; ++i)
            libDayN += libicalQuery(cal, berlin, days[size_t(i) * days.size() / size_t(nd)]);
        double libDay = (now() - t) / nd;
        icalcomponent_free(cal);

        double rssRatio = double(oursRss) * 1024.0 / double(fileBytes);
        printf("%-7s %9zu %9.1f | %7.1f / %8.1f = %6.1fx | %8.3f / %8.1f = %7.0fx | %7.4f / %7.2f = %6.0fx | %.2f\n",
               size.c_str(), lfgen::preset(size).events, fileBytes / 1e6, oursLoad * 1e3, libLoad * 1e3,
               libLoad / oursLoad, oursMonth * 1e3, libMonth * 1e3, libMonth / oursMonth, oursDay * 1e3,
               libDay * 1e3, libDay / oursDay, rssRatio);
        printf("        occurrences: month ours %zu, libical %zu (no overrides); days ours %zu; "
               "worst one-day query %.4f ms (%s); libical day queries timed: %d\n",
               oursMonthN, libMonthN, oursDayN, worstDay * 1e3, lfical::formatCivil(worstAt, true).c_str(), nd);
        fflush(stdout);
        remove(path.c_str());
    }
    return 0;
}

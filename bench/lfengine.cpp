// lfengine STORE [YEAR [MONTHS [ROUNDS]]] [--monday]
//
// The engine's own figures on a store, natively, for the benchmarks that
// run the program under Wine to be set beside (bench/run-monthpass):
//
//   whole-process load  a fresh process of this tool that loads STORE and
//                       exits, timed from before its start to its exit
//                       (median of ROUNDS processes, at least 5, as a process's
//                       start varies more than a query): what a logon through
//                       the calendar server is compared with
//   month queries       the three spans a month pass asks (the leading
//                       days, the month, the trailing days, each by whole
//                       days), for MONTHS months from January of YEAR,
//                       ROUNDS times each; the median per month
//
// The grid starts its weeks on Sunday, as in the en_US locale the
// benchmarks run in; --monday starts them on Monday. Only the split
// between the three spans changes, not the six weeks asked.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ical.h"

extern char** environ;

namespace {

double nowMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n == 0 ? 0.0 : n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

bool load(lfical::Store& store, const char* path)
{
    std::vector<lfical::Problem> problems;
    return store.load(path, &problems);
}

// A child of this tool that only loads the store; milliseconds from before
// its start to its exit, or -1.
double timeLoadProcess(const char* self, const char* path)
{
    char loadOnly[] = "--load-only";
    char* args[] = {const_cast<char*>(self), loadOnly, const_cast<char*>(path), nullptr};
    double t0 = nowMs();
    pid_t pid;
    if (posix_spawn(&pid, self, nullptr, nullptr, args, environ) != 0)
        return -1;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return nowMs() - t0;
}

// The month's three spans as the grid asks them; the occurrences found.
size_t monthQueries(const lfical::Store& store, int year, int month, bool monday)
{
    const lfical::Zone zone = lfical::Zone::utc();
    int64_t firstDay = lfical::daysFromCivil(year, month, 1);
    int s = lfical::weekdayOfDay(firstDay);  // 0 = Monday
    if (!monday)
        s = (s + 1) % 7;
    int length = lfical::daysInMonth(year, month);
    int64_t first = firstDay * lfical::kDay, last = first + (length - 1) * lfical::kDay;
    const int64_t day = lfical::kDay;
    size_t found = 0;
    if (s)
        found += store.query(zone, first - s * day, first - day, lfical::Range::WholeDays).size();
    found += store.query(zone, first, last, lfical::Range::WholeDays).size();
    found += store.query(zone, last + day, last + (42 - s - length) * day, lfical::Range::WholeDays).size();
    return found;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && !strcmp(argv[1], "--load-only")) {
        lfical::Store store;
        return load(store, argv[2]) ? 0 : 1;
    }
    bool monday = false;
    std::vector<const char*> args;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--monday"))
            monday = true;
        else
            args.push_back(argv[i]);
    }
    if (args.empty() || args.size() > 4) {
        fputs("usage: lfengine STORE [YEAR [MONTHS [ROUNDS]]] [--monday]\n"
              "  YEAR first month's year (default 2020), MONTHS from January (default 12),\n"
              "  ROUNDS loads and queries per month (default 3; load processes at least 5)\n",
              stderr);
        return 2;
    }
    const char* path = args[0];
    int year = args.size() > 1 ? atoi(args[1]) : 2020;
    int months = args.size() > 2 ? atoi(args[2]) : 12;
    int rounds = args.size() > 3 ? atoi(args[3]) : 3;
    if (year < 1601 || year > 9998 || months < 1 || months > 120 || rounds < 1 || rounds > 100) {
        fputs("lfengine: YEAR 1601-9998, MONTHS 1-120, ROUNDS 1-100\n", stderr);
        return 2;
    }

    std::vector<double> processes, loads;
    int processRuns = std::max(rounds, 5);
    for (int i = 0; i < processRuns; ++i) {
        double ms = timeLoadProcess("/proc/self/exe", path);
        if (ms < 0) {
            fprintf(stderr, "lfengine: the engine could not read %s\n", path);
            return 1;
        }
        processes.push_back(ms);
    }
    lfical::Store store;
    for (int i = 0; i < rounds; ++i) {
        lfical::Store fresh;
        double t0 = nowMs();
        load(fresh, path);
        loads.push_back(nowMs() - t0);
    }
    load(store, path);

    monthQueries(store, year, 1, monday);  // what a first query brings in
    std::vector<double> times;
    size_t found = 0;
    for (int round = 0; round < rounds; ++round)
        for (int i = 0; i < months; ++i) {
            double t0 = nowMs();
            size_t n = monthQueries(store, year + i / 12, 1 + i % 12, monday);
            times.push_back(nowMs() - t0);
            if (round == 0)
                found += n;
        }
    printf("engine load as a whole process %.1f ms (median of %d), in-process %.1f ms (median of %d)\n",
           median(processes), processRuns, median(loads), rounds);
    printf("engine month queries %.3f ms median over %d months from %d-01, %d rounds; %.1f occurrences per month\n",
           median(times), months, year, rounds, double(found) / months);
    return 0;
}

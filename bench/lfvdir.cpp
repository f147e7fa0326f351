// lfvdir COUNT DIR: a directory store of COUNT appointments written by the
// program's own engine (Store::add, then one save), as the calendar server
// writes them: a month of working days from 2031 on, one in ten a weekly
// series, one in four with a reminder, categories and locations mixed.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ical.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: lfvdir COUNT DIR\n");
        return 2;
    }
    long count = strtol(argv[1], nullptr, 10);
    std::string dir = argv[2];
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    lfical::Store store;
    std::vector<lfical::Problem> problems;
    if (count <= 0 || !store.load(dir, &problems) || store.eventCount() != 0) {
        fprintf(stderr, "lfvdir: %s must be an empty folder, and COUNT above 0\n", dir.c_str());
        return 1;
    }
    const char* subjects[] = {"Standup", "Design review", "Lunch with Ann", "Dentist", "Planning", "1:1"};
    const char* places[] = {"", "Room 4", "Cafe", "Hall"};
    int64_t day0 = lfical::daysFromCivil(2031, 1, 6);
    for (long i = 0; i < count; ++i) {
        lfical::EventEdit e;
        int64_t day = day0 + i / 4 * 7 / 5;  // about four a working day
        int64_t start = day * 86400 + (8 + i % 4 * 2) * 3600;
        e.start = lfical::Time{start, lfical::TimeKind::Floating, -1};
        e.end = lfical::Time{start + 3600, lfical::TimeKind::Floating, -1};
        e.summary = std::string(subjects[i % 6]) + " " + std::to_string(i);
        e.location = std::string(places[i % 4]);
        e.categories = std::vector<std::string>{i % 3 ? "Business" : "Personal"};
        if (i % 4 == 0)
            e.alarmMinutes = 15;
        if (i % 10 == 0)
            e.rrule = std::string("FREQ=WEEKLY;COUNT=10");
        if (store.add(e) == lfical::kNoEvent) {
            fprintf(stderr, "lfvdir: appointment %ld refused\n", i);
            return 1;
        }
    }
    if (!store.save(&problems)) {
        for (const auto& p : problems)
            fprintf(stderr, "%s: %s\n", p.file.c_str(), p.message.c_str());
        return 1;
    }
    return 0;
}

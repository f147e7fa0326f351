// A month of appointments shared by the store and COM tests: one-off,
// all-day, multi-day and recurring events, with a deleted and a moved
// occurrence, an event crossing the month's end, and properties the server
// does not understand (which must survive every save).
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace monthstore {

inline const char kIcs[] =
    "BEGIN:VCALENDAR\r\n"
    "VERSION:2.0\r\n"
    "PRODID:-//Example//Hand written//EN\r\n"
    "X-WR-CALNAME:Test calendar\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:dentist@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART:20261105T100000\r\n"
    "DTEND:20261105T110000\r\n"
    "SUMMARY:Dentist\r\n"
    "LOCATION:Main St\r\n"
    "X-UNKNOWN-THING;X-PARAM=1:keep me\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:holiday@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART;VALUE=DATE:20261111\r\n"
    "DTEND;VALUE=DATE:20261112\r\n"
    "SUMMARY:Holiday\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:trip@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART:20261120T180000\r\n"
    "DTEND:20261123T090000\r\n"
    "SUMMARY:Trip\r\n"
    "CATEGORIES:Travel,Family\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:standup@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART:20261006T090000\r\n"
    "DTEND:20261006T093000\r\n"
    "RRULE:FREQ=WEEKLY;BYDAY=TU\r\n"
    "EXDATE:20261110T090000\r\n"
    "SUMMARY:Standup\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:standup@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "RECURRENCE-ID:20261117T090000\r\n"
    "DTSTART:20261118T140000\r\n"
    "DTEND:20261118T143000\r\n"
    "SUMMARY:Standup (moved)\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:late@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART:20261130T230000\r\n"
    "DTEND:20261201T010000\r\n"
    "SUMMARY:Late\r\n"
    "END:VEVENT\r\n"
    "BEGIN:VEVENT\r\n"
    "UID:halloween@example.com\r\n"
    "DTSTAMP:20261001T120000Z\r\n"
    "DTSTART:20261031T200000\r\n"
    "DTEND:20261031T220000\r\n"
    "SUMMARY:Halloween\r\n"
    "END:VEVENT\r\n"
    "BEGIN:X-SOMETHING-ELSE\r\n"
    "X-DATA:untouched\r\n"
    "END:X-SOMETHING-ELSE\r\n"
    "END:VCALENDAR\r\n";

struct Day {
    int y, m, d;
};

// A query and the subjects it must return, in start order. Kind: 0 the
// one-day query ("[End] >= %s AND [Start] <= %s" on one day), 1 the
// month's own, 2 the leading days, 3 the trailing days.
struct Query {
    const char* name;
    int kind;
    Day first, second;
    std::vector<std::wstring> subjects;
};

inline const wchar_t* const kTemplates[] = {
    L"[End] >= %s AND [Start] <= %s",
    L"[End] >= %s AND [Start] <= %s",
    L"[End] >= %s AND [Start] <  %s",
    L"[End] >  %s AND [Start] <= %s",
};

inline std::vector<Query> Queries() {
    return {
        {"day 5: one-off", 0, {2026, 11, 5}, {2026, 11, 5}, {L"Dentist"}},
        {"day 10: deleted occurrence", 0, {2026, 11, 10}, {2026, 11, 10}, {}},
        {"day 11: all-day", 0, {2026, 11, 11}, {2026, 11, 11}, {L"Holiday"}},
        {"day 12: all-day ended", 0, {2026, 11, 12}, {2026, 11, 12}, {}},
        {"day 17: occurrence moved away", 0, {2026, 11, 17}, {2026, 11, 17}, {}},
        {"day 18: occurrence moved here", 0, {2026, 11, 18}, {2026, 11, 18}, {L"Standup (moved)"}},
        {"day 21: inside a multi-day", 0, {2026, 11, 21}, {2026, 11, 21}, {L"Trip"}},
        {"day 23: multi-day ends", 0, {2026, 11, 23}, {2026, 11, 23}, {L"Trip"}},
        {"day 24: occurrence", 0, {2026, 11, 24}, {2026, 11, 24}, {L"Standup"}},
        {"day 30: late", 0, {2026, 11, 30}, {2026, 11, 30}, {L"Late"}},
        {"day Dec 1: late and occurrence", 0, {2026, 12, 1}, {2026, 12, 1}, {L"Late", L"Standup"}},
        {"month", 1, {2026, 11, 1}, {2026, 11, 30},
         {L"Standup", L"Dentist", L"Holiday", L"Standup (moved)", L"Trip", L"Standup", L"Late"}},
        {"leading days", 2, {2026, 10, 25}, {2026, 11, 1}, {L"Standup", L"Halloween"}},
        {"trailing days", 3, {2026, 11, 30}, {2026, 12, 5}, {L"Late", L"Standup"}},
    };
}

// The same store as a directory of one file per event (a series and its
// changed occurrences share a file): (file name, contents) pairs.
inline std::vector<std::pair<std::string, std::string>> VdirFiles() {
    std::string ics = kIcs;
    std::string head = ics.substr(0, ics.find("BEGIN:VEVENT"));
    std::vector<std::pair<std::string, std::string>> byUid;
    size_t pos = 0;
    while ((pos = ics.find("BEGIN:VEVENT", pos)) != std::string::npos) {
        size_t end = ics.find("END:VEVENT\r\n", pos) + 12;
        std::string block = ics.substr(pos, end - pos);
        size_t u = block.find("UID:") + 4;
        std::string uid = block.substr(u, block.find("\r\n", u) - u);
        bool added = false;
        for (auto& e : byUid)
            if (e.first == uid) {
                e.second += block;
                added = true;
            }
        if (!added) byUid.push_back({uid, block});
        pos = end;
    }
    for (auto& e : byUid) {
        e.first = e.first.substr(0, e.first.find('@')) + ".ics";
        e.second = head + e.second + "END:VCALENDAR\r\n";
    }
    return byUid;
}

}  // namespace monthstore

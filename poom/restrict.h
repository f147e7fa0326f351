// The object model's restriction language, as taken by Find and Restrict:
//   [Property] op value   with op one of = <> < <= > >=
//   joined by AND / OR, grouped with parentheses.
// Values are quoted strings ("..." or '...'), numbers, TRUE/FALSE, or dates
// written in the system locale's short date form, optionally followed by a
// time. A date without a time compares on whole calendar days, which is what
// makes a one-day query return every appointment touching that day.
//
// Portable (no Win32): the Windows side hands in the short-date picture it
// reads from the locale.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "caltime.h"

namespace lfical {
struct DayGrid;
struct QueryReport;
}  // namespace lfical

namespace poom {

// The short-date picture of a locale, e.g. L"M/d/yyyy" or L"dd.MM.yyyy".
class DatePicture {
public:
    // monthNames: the locale's month names, abbreviated and full (any
    // number of each, January first in every group of twelve), for pictures
    // that spell the month ("dd-MMM-yy").
    explicit DatePicture(const std::wstring& picture = L"M/d/yyyy",
                         std::vector<std::wstring> monthNames = std::vector<std::wstring>());
    // Reads a date (and an optional time after it) from the whole of text.
    bool Parse(const std::wstring& text, LocalSecs& out, bool& hasTime) const;

private:
    enum class Field { Day, Month, MonthName, Year, Literal };
    struct Piece {
        Field field;
        std::wstring literal;
    };
    std::vector<Piece> pieces_;
    std::vector<std::wstring> monthNames_;
};

// The properties an appointment offers to restrictions.
enum class Prop {
    Start, End, Subject, Location, Categories, Body, AllDayEvent, BusyStatus,
    Sensitivity, Duration, IsRecurring, ReminderSet, ReminderMinutesBeforeStart,
    Oid, MeetingStatus
};

// What a restriction is tested against: one appointment or one occurrence.
struct RestrictRecord {
    LocalSecs start = 0, end = 0;
    std::wstring subject, location, categories, body;
    bool allDay = false, isRecurring = false, reminderSet = false;
    long busyStatus = 0, sensitivity = 0, duration = 0, reminderMinutes = 0;
    long oid = 0, meetingStatus = 0;
};

class Restriction {
public:
    Restriction();
    ~Restriction();
    Restriction(Restriction&&) noexcept;
    Restriction& operator=(Restriction&&) noexcept;

    // False (with a reason in *error when given) for any text that is not a
    // well-formed restriction; the restriction is then left empty.
    bool Parse(const std::wstring& text, const DatePicture& picture, std::string* error = nullptr);
    bool Empty() const { return !root_; }
    // An empty restriction matches everything.
    bool Matches(const RestrictRecord& r) const;
    // The span of time an item must touch to possibly match: matching items
    // end at or after lo and start at or before hi. Lets recurring
    // appointments be expanded only over the span asked for.
    void Bounds(LocalSecs& lo, LocalSecs& hi) const;
    // Whether it compares a subject, location, categories or notes (which a
    // query then has to read for every item).
    bool AsksTexts() const;

    // A query may also carry how its reader looks at a day, so that the
    // engine leaves out what the reader could not show of an event that
    // floods a day, and where the engine says which days it thinned. An
    // item collection puts these on an empty restriction of its own.
    const lfical::DayGrid* grid = nullptr;
    lfical::QueryReport* report = nullptr;

    struct Node;

private:
    std::unique_ptr<Node> root_;
};

// The grid and the report the restrictions of a query carry, or null.
const lfical::DayGrid* GridOf(const std::vector<const Restriction*>& rs);
lfical::QueryReport* ReportOf(const std::vector<const Restriction*>& rs);

// The last calendar day an appointment occupies: an end exactly at midnight
// belongs to the day before (an all-day event ends at the next midnight),
// unless the appointment has no length at all.
std::int64_t LastDayOf(LocalSecs start, LocalSecs end);

}  // namespace poom

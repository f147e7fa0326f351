// Calendar generator: singles in three zones, UTC, floating and all-day;
// every kind of recurrence the engine reads, with EXDATEs, RDATEs and
// overrides moved both within and far from their original slot.
#include "generator.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "ical.h"

namespace lfgen {

namespace {

struct Rng {
    uint64_t s;
    uint64_t next()
    {
        uint64_t z = (s += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    int range(int lo, int hi) { return lo + int(next() % uint64_t(hi - lo + 1)); }
    bool chance(int percent) { return int(next() % 100) < percent; }
    template <class T, size_t N>
    const T& pick(const T (&a)[N]) { return a[next() % N]; }
};

const char* kZones =
    "BEGIN:VTIMEZONE\r\nTZID:Europe/Berlin\r\n"
    "BEGIN:DAYLIGHT\r\nTZOFFSETFROM:+0100\r\nTZOFFSETTO:+0200\r\nTZNAME:CEST\r\nDTSTART:19700329T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU\r\nEND:DAYLIGHT\r\n"
    "BEGIN:STANDARD\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0100\r\nTZNAME:CET\r\nDTSTART:19701025T030000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n"
    "BEGIN:VTIMEZONE\r\nTZID:America/New_York\r\n"
    "BEGIN:DAYLIGHT\r\nTZOFFSETFROM:-0500\r\nTZOFFSETTO:-0400\r\nTZNAME:EDT\r\nDTSTART:20070311T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=2SU\r\nEND:DAYLIGHT\r\n"
    "BEGIN:STANDARD\r\nTZOFFSETFROM:-0400\r\nTZOFFSETTO:-0500\r\nTZNAME:EST\r\nDTSTART:20071104T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=11;BYDAY=1SU\r\nEND:STANDARD\r\nEND:VTIMEZONE\r\n"
    "BEGIN:VTIMEZONE\r\nTZID:Australia/Sydney\r\n"
    "BEGIN:STANDARD\r\nTZOFFSETFROM:+1100\r\nTZOFFSETTO:+1000\r\nTZNAME:AEST\r\nDTSTART:20080406T030000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=4;BYDAY=1SU\r\nEND:STANDARD\r\n"
    "BEGIN:DAYLIGHT\r\nTZOFFSETFROM:+1000\r\nTZOFFSETTO:+1100\r\nTZNAME:AEDT\r\nDTSTART:20081005T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=1SU\r\nEND:DAYLIGHT\r\nEND:VTIMEZONE\r\n";

const char* kZoneNames[] = {"Europe/Berlin", "America/New_York", "Australia/Sydney"};

const char* kWords[] = {"Team", "meeting", "Lunch", "with", "Anna", "Review", "budget", "Call", "dentist",
                        "Project", "Lanternfields", "sync", "Planning", "quarterly", "Yoga", "Board",
                        "Coffee", "Ben", "Café", "Zürich", "Müller", "report", "Flight", "to", "Oslo",
                        "Workshop", "design", "Parents'", "evening", "Doctor", "Gym", "Training"};
const char* kPlaces[] = {"Room 4.12", "Main office\\, 3rd floor", "Café Central", "Online", "Home",
                         "Conference room B", "Hauptbahnhof\\; Gleis 7", "Kyoto 京都"};
const char* kCats[] = {"Business", "Personal", "Holiday", "Meeting", "Travel", "Birthday", "Gifts", "Ideas"};

enum Kind { Zoned, Utc, Floating, AllDay };

struct Ev {
    std::string uid;
    Kind kind;
    int zone = 0;
    int64_t start = 0;  // civil
    int64_t len = 0;    // seconds (all-day: multiple of a day)
};

std::string startProp(const char* name, const Ev& e, int64_t civil)
{
    switch (e.kind) {
    case Zoned:
        return std::string(name) + ";TZID=" + kZoneNames[e.zone] + ":" + lfical::formatCivil(civil, false) + "\r\n";
    case Utc: return std::string(name) + ":" + lfical::formatCivil(civil, false) + "Z\r\n";
    case Floating: return std::string(name) + ":" + lfical::formatCivil(civil, false) + "\r\n";
    case AllDay: return std::string(name) + ";VALUE=DATE:" + lfical::formatCivil(civil, true) + "\r\n";
    }
    return std::string();
}

std::string title(Rng& r)
{
    std::string t = r.pick(kWords);
    for (int i = r.range(1, 4); i > 0; --i)
        t += std::string(" ") + r.pick(kWords);
    return t;
}

void body(std::string& out, Rng& r, const Ev& e, bool useDuration, int64_t stamp)
{
    out += "DTSTAMP:" + lfical::formatCivil(stamp, false) + "Z\r\n";
    out += "SUMMARY:" + title(r) + "\r\n";
    if (r.chance(50))
        out += std::string("LOCATION:") + r.pick(kPlaces) + "\r\n";
    if (r.chance(40)) {
        std::string d = "DESCRIPTION:";
        for (int i = r.range(8, 40); i > 0; --i)
            d += std::string(r.pick(kWords)) + (r.chance(10) ? "\\n" : " ");
        out += lfical::foldLine(d);
    }
    if (r.chance(50)) {
        out += std::string("CATEGORIES:") + r.pick(kCats);
        if (r.chance(30))
            out += std::string(",") + r.pick(kCats);
        out += "\r\n";
    }
    if (r.chance(10))
        out += "CLASS:PRIVATE\r\n";
    if (r.chance(20))
        out += "TRANSP:TRANSPARENT\r\n";
    if (r.chance(10))
        out += "X-MICROSOFT-CDO-BUSYSTATUS:TENTATIVE\r\n";
    if (useDuration && e.kind != AllDay)
        out += "DURATION:" + lfical::formatDuration(lfical::Duration{0, e.len}) + "\r\n";
    else if (useDuration)
        out += "DURATION:P" + std::to_string(e.len / lfical::kDay) + "D\r\n";
    else
        out += startProp("DTEND", e, e.start + e.len);
    if (r.chance(30)) {
        static const int minutes[] = {5, 10, 15, 30, 60};
        out += "BEGIN:VALARM\r\nACTION:DISPLAY\r\nDESCRIPTION:Reminder\r\nTRIGGER:-PT" +
               std::to_string(r.pick(minutes)) + "M\r\nEND:VALARM\r\n";
    }
}

Ev makeEvent(Rng& r, const Options& opt, size_t n, bool series)
{
    Ev e;
    char uid[64];
    snprintf(uid, sizeof uid, "%s-%06zu@gen.lanternfields", series ? "series" : "event", n);
    e.uid = uid;
    int roll = r.range(0, 99);
    e.kind = roll < 45 ? Zoned : roll < 65 ? Utc : roll < 75 ? Floating : AllDay;
    e.zone = r.range(0, 2);
    int64_t firstDay = lfical::daysFromCivil(opt.firstYear, 1, 1);
    int64_t day = firstDay + r.range(0, opt.years * 365 - 1);
    if (e.kind == AllDay) {
        e.start = day * lfical::kDay;
        e.len = (r.chance(80) ? 1 : r.range(2, 5)) * lfical::kDay;
    } else {
        e.start = day * lfical::kDay + r.range(7 * 4, 20 * 4) * 900;
        e.len = r.range(1, 12) * 900;
        if (r.chance(3))
            e.len += r.range(1, 2) * lfical::kDay;  // overnight or longer
    }
    return e;
}

}  // namespace

Options preset(const std::string& name)
{
    Options o;
    if (name == "medium") {
        o.events = 20000;
        o.series = 500;
    } else if (name == "large") {
        o.events = 100000;
        o.series = 2000;
    }
    return o;
}

std::string generate(const Options& opt)
{
    Rng r{opt.seed};
    std::string out;
    out.reserve(opt.events * 400 + 4096);
    out += "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Oakfinder//Lanternfields generator//EN\r\nCALSCALE:GREGORIAN\r\n";
    out += "X-WR-CALNAME:Generated\r\n";
    out += kZones;
    int64_t stamp = lfical::civilSeconds(2024, 5, 5, 12, 0, 0);
    size_t written = 0;
    // Series first so their overrides can follow each of them.
    static const char* const patterns[] = {
        "FREQ=DAILY;COUNT=%d",
        "FREQ=DAILY;INTERVAL=2;UNTIL=%U",
        "FREQ=WEEKLY;BYDAY=MO,WE,FR;COUNT=%d",
        "FREQ=WEEKLY;INTERVAL=2;BYDAY=TU,TH;UNTIL=%U",
        "FREQ=WEEKLY",
        "FREQ=MONTHLY;COUNT=%d",
        "FREQ=MONTHLY;BYDAY=2TU;COUNT=%d",
        "FREQ=MONTHLY;BYDAY=-1FR;UNTIL=%U",
        "FREQ=MONTHLY;BYDAY=MO,TU,WE,TH,FR;BYSETPOS=-1;COUNT=%d",
        "FREQ=MONTHLY;BYMONTHDAY=-1;UNTIL=%U",
        "FREQ=YEARLY",
        "FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU;COUNT=%d",
        "FREQ=YEARLY;BYYEARDAY=100,200;UNTIL=%U",
        "FREQ=YEARLY;BYWEEKNO=20;BYDAY=MO;COUNT=%d",
        "FREQ=DAILY;BYDAY=MO,TU,WE,TH,FR;UNTIL=%U",
        "FREQ=HOURLY;INTERVAL=6;COUNT=%d",
        "FREQ=WEEKLY;WKST=SU;INTERVAL=3;BYDAY=SU,SA;COUNT=%d",
        "FREQ=MONTHLY;INTERVAL=2;BYMONTHDAY=15,30;UNTIL=%U",
        "",  // RDATE only
    };
    const size_t npat = sizeof patterns / sizeof patterns[0];
    size_t overrides = 0;
    for (size_t i = 0; i < opt.series && written < opt.events; ++i) {
        Ev e = makeEvent(r, opt, i, true);
        const char* pat = patterns[i % npat];
        if (std::string(pat).find("HOURLY") != std::string::npos && e.kind == AllDay)
            e.kind = Utc;
        if (opt.dstEdgeTimes && e.kind == Zoned && r.chance(4))
            e.start = lfical::floorDiv(e.start, lfical::kDay) * lfical::kDay + 2 * 3600 + 1800;  // 02:30 local
        std::string rule;
        for (const char* p = pat; *p; ++p) {
            if (*p == '%' && p[1] == 'd') {
                rule += std::to_string(r.range(3, 60));
                ++p;
            } else if (*p == '%' && p[1] == 'U') {
                int64_t until = e.start + int64_t(r.range(30, 900)) * lfical::kDay;
                // UNTIL is UTC for zoned and UTC starts, a date for all-day, floating otherwise.
                if (e.kind == AllDay)
                    rule += lfical::formatCivil(until, true);
                else if (e.kind == Floating)
                    rule += lfical::formatCivil(until, false);
                else
                    rule += lfical::formatCivil(until, false) + "Z";
                ++p;
            } else {
                rule += *p;
            }
        }
        std::string ev = "BEGIN:VEVENT\r\nUID:" + e.uid + "\r\n" + startProp("DTSTART", e, e.start);
        // The first instances of the rule give EXDATEs and override slots.
        std::vector<int64_t> inst;
        lfical::Recur rec;
        std::string err;
        if (!rule.empty() && lfical::parseRecur(rule, rec, err)) {
            ev += "RRULE:" + rule + "\r\n";
            int64_t until = INT64_MAX;
            if (rec.hasUntil)
                until = rec.untilIsDate ? rec.until : rec.until + 14 * 3600;  // generous: only picks slots
            lfical::RecurIter it(rec, e.start, e.kind == AllDay, until);
            int64_t t;
            int64_t left = rec.count ? rec.count : 40;
            while (left-- > 0 && it.next(t) && inst.size() < 40)
                if (t != e.start && (!rec.hasUntil || t + 2 * lfical::kDay < rec.until))
                    inst.push_back(t);
        } else {
            std::string rd = "RDATE" + std::string(e.kind == AllDay ? ";VALUE=DATE" : "") +
                             (e.kind == Zoned ? std::string(";TZID=") + kZoneNames[e.zone] : "") + ":";
            for (int k = 1; k <= 6; ++k) {
                int64_t t = e.start + int64_t(k) * r.range(3, 40) * lfical::kDay;
                inst.push_back(t);
                rd += (k > 1 ? "," : "") + lfical::formatCivil(t, e.kind == AllDay) + (e.kind == Utc ? "Z" : "");
            }
            ev += rd + "\r\n";
        }
        std::vector<int64_t> ex;
        if (inst.size() > 4 && r.chance(35)) {
            for (int k = r.range(1, 3); k > 0; --k)
                ex.push_back(inst[size_t(r.range(0, int(inst.size()) / 2))]);
            std::sort(ex.begin(), ex.end());
            ex.erase(std::unique(ex.begin(), ex.end()), ex.end());
            for (int64_t t : ex)
                ev += startProp("EXDATE", e, t);
        }
        body(ev, r, e, r.chance(20), stamp);
        ev += "END:VEVENT\r\n";
        out += ev;
        ++written;
        // Overrides: one moved by hours, one moved weeks away.
        if (inst.size() > 6 && r.chance(30)) {
            for (int k = r.range(1, 2); k > 0 && written < opt.events; --k) {
                int64_t slot = inst[size_t(inst.size() / 2 + size_t(k))];
                if (std::binary_search(ex.begin(), ex.end(), slot))
                    continue;
                Ev o = e;
                o.start = slot + (k == 1 ? (e.kind == AllDay ? lfical::kDay : 2 * 3600) : 45 * lfical::kDay);
                std::string ov = "BEGIN:VEVENT\r\nUID:" + e.uid + "\r\n" + startProp("RECURRENCE-ID", e, slot) +
                                 startProp("DTSTART", o, o.start);
                body(ov, r, o, false, stamp);
                ov += "SEQUENCE:1\r\nEND:VEVENT\r\n";
                out += ov;
                ++written;
                ++overrides;
            }
        }
    }
    for (size_t i = 0; written < opt.events; ++i, ++written) {
        Ev e = makeEvent(r, opt, i, false);
        if (opt.dstEdgeTimes && e.kind == Zoned && r.chance(1))
            e.start = lfical::floorDiv(e.start, lfical::kDay) * lfical::kDay + 2 * 3600 + 1800;
        std::string ev = "BEGIN:VEVENT\r\nUID:" + e.uid + "\r\n" + startProp("DTSTART", e, e.start);
        body(ev, r, e, r.chance(20), stamp);
        ev += "END:VEVENT\r\n";
        out += ev;
    }
    out += "END:VCALENDAR\r\n";
    return out;
}

}  // namespace lfgen

// libFuzzer target: the first line is an RRULE value, the second a DTSTART
// (YYYYMMDD or YYYYMMDDTHHMMSS), the rest picks a window. Expansion must stay
// bounded, ascending, on or after DTSTART and within UNTIL.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ical.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string in(reinterpret_cast<const char*>(data), size);
    size_t nl = in.find('\n');
    std::string rule = in.substr(0, nl);
    std::string rest = nl == std::string::npos ? std::string() : in.substr(nl + 1);
    size_t nl2 = rest.find('\n');
    std::string start = rest.substr(0, nl2);
    std::string window = nl2 == std::string::npos ? std::string() : rest.substr(nl2 + 1);
    lfical::Recur r;
    std::string err;
    if (!lfical::parseRecur(rule, r, err))
        return 0;
    int64_t dtstart;
    bool dateOnly;
    if (!lfical::parseCivil(start, dtstart, dateOnly))
        dtstart = lfical::civilSeconds(2024, 1, 31, 9, 30, 0), dateOnly = false;
    int64_t until = r.hasUntil ? r.until : INT64_MAX;
    lfical::RecurIter it(r, dtstart, dateOnly, until);
    it.budget = 200000;
    int64_t seekTo = dtstart;
    for (unsigned char ch : window)
        seekTo += int64_t(ch) * 86400 * 7;
    if (r.count == 0)
        it.seek(seekTo);
    int64_t t, prev = INT64_MIN;
    for (int i = 0; i < 2000 && it.next(t, seekTo + 400LL * 86400); ++i) {
        if (t <= prev || t < dtstart || t > until)
            abort();
        prev = t;
    }
    // The same rule through the store, where DTSTART and the window meet.
    std::string cal = "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:f\r\nDTSTART" + std::string(dateOnly ? ";VALUE=DATE:" : ":") +
                      lfical::formatCivil(dtstart, dateOnly) + "\r\nRRULE:" + rule + "\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n";
    lfical::Store s;
    s.loadText(cal, "fuzz", nullptr);
    lfical::QueryReport rep;
    auto occ = s.query(lfical::Zone::utc(), seekTo, seekTo + 40LL * 86400, lfical::Range::HalfOpen, &rep);
    for (size_t i = 1; i < occ.size(); ++i)
        if (occ[i].start < occ[i - 1].start)
            abort();
    return 0;
}

// Recurrence patterns of the object model <-> RRULEs of the store.
#include <algorithm>

#include "store_model.h"

namespace poom {

namespace {

// lfical numbers weekdays from Monday (0); the object model's mask has
// Sunday in bit 0.
long MaskBitOfIcalWeekday(int wd) { return 1L << ((wd + 1) % 7); }

const char* const kDayCodes[7] = {"SU", "MO", "TU", "WE", "TH", "FR", "SA"};  // by mask bit

std::string DayList(long mask) {
    std::string out;
    for (int bit = 0; bit < 7; ++bit) {
        if (mask & (1L << bit)) {
            if (!out.empty()) out += ',';
            out += kDayCodes[bit];
        }
    }
    return out;
}

long MaskOfDtstart(LocalSecs dtstart) { return 1L << WeekdayOfDays(DayOf(dtstart)); }

}  // namespace

Pattern PatternFromRecur(const lfical::Recur& r, LocalSecs dtstart) {
    Pattern p;
    p.interval = std::max<long>(1, r.interval);
    int y = 0, m = 0, d = 0;
    CivilFromDays(DayOf(dtstart), y, m, d);

    long plainMask = 0;  // BYDAY days without an ordinal
    int ordinals = 0, ordinal = 0;
    for (const auto& bd : r.byDay) {
        plainMask |= MaskBitOfIcalWeekday(bd.wd);
        if (bd.ord != 0) {
            ++ordinals;
            ordinal = bd.ord;
        }
    }
    bool timeRules = !r.bySecond.empty() || !r.byMinute.empty() || !r.byHour.empty();
    bool otherRules = timeRules || !r.byYearDay.empty() || !r.byWeekNo.empty();
    auto instanceOf = [](int ord) -> long { return ord < 0 ? 5 : std::min(ord, 5); };

    switch (r.freq) {
    case lfical::Freq::Daily:
        if (!r.byDay.empty()) {
            // "Every weekday" is a weekly pattern in the object model.
            p.type = kRecursWeekly;
            p.dayOfWeekMask = plainMask;
            p.exact = r.interval == 1 && ordinals == 0 && r.byMonthDay.empty() && r.byMonth.empty() &&
                      r.bySetPos.empty() && !otherRules;
        } else {
            p.type = kRecursDaily;
            p.exact = r.byMonthDay.empty() && r.byMonth.empty() && r.bySetPos.empty() && !otherRules;
        }
        break;
    case lfical::Freq::Weekly:
        p.type = kRecursWeekly;
        p.dayOfWeekMask = r.byDay.empty() ? MaskOfDtstart(dtstart) : plainMask;
        p.exact = ordinals == 0 && r.byMonthDay.empty() && r.byMonth.empty() && r.bySetPos.empty() && !otherRules;
        break;
    case lfical::Freq::Monthly:
    case lfical::Freq::Yearly: {
        bool yearly = r.freq == lfical::Freq::Yearly;
        bool monthOk = !yearly || r.byMonth.size() <= 1;
        p.monthOfYear = yearly ? (r.byMonth.size() == 1 ? r.byMonth[0] : m) : 0;
        if (!r.byDay.empty()) {
            p.type = yearly ? kRecursYearNth : kRecursMonthNth;
            p.dayOfWeekMask = plainMask;
            if (ordinals == static_cast<int>(r.byDay.size()) && ordinals == 1 && r.bySetPos.empty()) {
                p.instance = instanceOf(ordinal);
                p.exact = monthOk && r.byMonthDay.empty() && !otherRules && ordinal >= -1 && ordinal <= 4;
            } else if (ordinals == 0 && r.bySetPos.size() == 1) {
                p.instance = instanceOf(r.bySetPos[0]);
                p.exact = monthOk && r.byMonthDay.empty() && !otherRules && r.bySetPos[0] >= -1 &&
                          r.bySetPos[0] <= 4 && r.bySetPos[0] != 0;
            } else {
                p.instance = ordinals ? instanceOf(ordinal) : 1;
                p.exact = false;
            }
        } else {
            p.type = yearly ? kRecursYearly : kRecursMonthly;
            p.dayOfMonth = r.byMonthDay.empty() ? d : r.byMonthDay[0];
            p.exact = monthOk && r.byMonthDay.size() <= 1 && r.bySetPos.empty() && !otherRules &&
                      (r.byMonthDay.empty() || r.byMonthDay[0] > 0) && (yearly || r.byMonth.empty());
            if (p.dayOfMonth < 0) p.dayOfMonth = 31;  // "last day": the closest the model has
        }
        break;
    }
    default:
        // Hourly and finer: the closest the model has is daily.
        p.type = kRecursDaily;
        p.exact = false;
        break;
    }
    if (p.dayOfWeekMask == 0 && (p.type == kRecursWeekly || p.type == kRecursMonthNth || p.type == kRecursYearNth))
        p.dayOfWeekMask = MaskOfDtstart(dtstart);
    if (r.count > 0) p.occurrences = static_cast<long>(std::min<int64_t>(r.count, 0x7fffffff));
    if (r.hasUntil) p.patternEnd = DayOf(r.until + 25569LL * kSecsPerDay) * kSecsPerDay;
    return p;
}

std::string RRuleFromPattern(const Pattern& p, LocalSecs dtstart, const std::string& untilValue) {
    int y = 0, m = 0, d = 0;
    CivilFromDays(DayOf(dtstart), y, m, d);
    long mask = p.dayOfWeekMask ? p.dayOfWeekMask & 0x7f : MaskOfDtstart(dtstart);
    long interval = std::max<long>(1, p.interval);
    std::string s;
    auto nth = [&](void) {
        int ord = p.instance >= 5 ? -1 : static_cast<int>(std::max<long>(1, p.instance));
        std::string days = DayList(mask);
        if (days.find(',') == std::string::npos) {
            s += ";BYDAY=" + std::to_string(ord) + days;
        } else {
            s += ";BYDAY=" + days + ";BYSETPOS=" + std::to_string(ord);
        }
    };
    switch (p.type) {
    case kRecursWeekly:
        s = "FREQ=WEEKLY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        s += ";BYDAY=" + DayList(mask);
        break;
    case kRecursMonthly:
        s = "FREQ=MONTHLY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        s += ";BYMONTHDAY=" + std::to_string(p.dayOfMonth > 0 && p.dayOfMonth <= 31 ? p.dayOfMonth : d);
        break;
    case kRecursMonthNth:
        s = "FREQ=MONTHLY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        nth();
        break;
    case kRecursYearly:
        s = "FREQ=YEARLY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        s += ";BYMONTH=" + std::to_string(p.monthOfYear >= 1 && p.monthOfYear <= 12 ? p.monthOfYear : m);
        s += ";BYMONTHDAY=" + std::to_string(p.dayOfMonth > 0 && p.dayOfMonth <= 31 ? p.dayOfMonth : d);
        break;
    case kRecursYearNth:
        s = "FREQ=YEARLY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        s += ";BYMONTH=" + std::to_string(p.monthOfYear >= 1 && p.monthOfYear <= 12 ? p.monthOfYear : m);
        nth();
        break;
    default:
        s = "FREQ=DAILY";
        if (interval > 1) s += ";INTERVAL=" + std::to_string(interval);
        break;
    }
    if (p.occurrences > 0) {
        s += ";COUNT=" + std::to_string(p.occurrences);
    } else if (p.patternEnd != kNoTime && !untilValue.empty()) {
        s += ";UNTIL=" + untilValue;
    }
    return s;
}

}  // namespace poom

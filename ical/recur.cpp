// RRULE expansion. Each period (a year, month, week, day, hour, minute or
// second, stepped by INTERVAL) yields a sorted set of candidate days times a
// sorted set of times of day; BYSETPOS picks positions from that product
// without building it, so even a rule with a year of seconds per period
// costs only the picked instances. seek() jumps straight to the period
// holding a window, so a series started decades ago answers a month's query
// without walking its history.
#include <algorithm>
#include <type_traits>

#include "ical.h"

namespace lfical {

namespace {
const int64_t kMaxYear = 9999;

template <class T>
bool has(const std::vector<T>& v, int64_t x)
{
    for (T e : v)
        if (int64_t(e) == x)
            return true;
    return false;
}

int64_t weekStart(int64_t day, int wkst)
{
    return day - ((weekdayOfDay(day) - wkst + 7) % 7);
}

// First day of week 1 of year y: the week (starting on wkst) holding 4 January.
int64_t week1Start(int64_t y, int wkst) { return weekStart(daysFromCivil(y, 1, 4), wkst); }
}  // namespace

RecurIter::RecurIter(const Recur& rule, int64_t dtstart, bool dateOnly, int64_t untilCivil)
{
    reset(rule, dtstart, dateOnly, untilCivil);
}

void RecurIter::reset(const Recur& rule, int64_t dtstart, bool dateOnly, int64_t untilCivil)
{
    // Everything as a new iterator has it, the lists emptied but keeping
    // their room, unless a rule of many times of day made one large.
    auto empty = [](auto& list) {
        if (list.capacity() > 4096)
            std::remove_reference_t<decltype(list)>().swap(list);
        else
            list.clear();
    };
    budget = kBudget;
    r_ = &rule;
    dtstart_ = dtstart;
    until_ = untilCivil;
    dateOnly_ = dateOnly;
    mi0_ = s0_ = 0;
    unit_ = 0;
    empty(monthDays_);
    empty(byDay_);
    empty(months_);
    ordByMonth_ = false;
    empty(times_);
    empty(days_);
    empty(ptimes_);
    tp_ = &times_;
    empty(sel_);
    useSel_ = false;
    idx_ = n_ = 0;
    period_ = 0;
    done_ = cut_ = loaded_ = false;
    int64_t day = floorDiv(dtstart, kDay);
    int64_t sod = dtstart - day * kDay;
    civilFromDays(day, y0_, m0_, d0_);
    day0_ = day;
    mi0_ = int(sod / 60 % 60);
    s0_ = int(sod % 60);
    week0_ = weekStart(day, r_->wkst);
    if (dateOnly_ && r_->freq < Freq::Daily) {
        // Hours, minutes and seconds make no sense for a date: nothing repeats.
        done_ = true;
        return;
    }
    switch (r_->freq) {
    case Freq::Hourly: unit_ = 3600; t0_ = dtstart - sod % 3600; break;
    case Freq::Minutely: unit_ = 60; t0_ = dtstart - sod % 60; break;
    case Freq::Secondly: unit_ = 1; t0_ = dtstart; break;
    default: t0_ = dtstart; break;
    }

    // What DTSTART supplies when the rule leaves a part open (RFC 5545's
    // table of "expand" and "limit" parts).
    monthDays_.assign(r_->byMonthDay.begin(), r_->byMonthDay.end());
    byDay_.assign(r_->byDay.begin(), r_->byDay.end());
    months_.assign(r_->byMonth.begin(), r_->byMonth.end());
    bool dayParts = !r_->byWeekNo.empty() || !r_->byYearDay.empty() || !r_->byMonthDay.empty() ||
                    !r_->byDay.empty();
    if (r_->freq == Freq::Yearly && !dayParts) {
        if (months_.empty())
            months_.push_back(int8_t(m0_));
        monthDays_.push_back(int16_t(d0_));
    } else if (r_->freq == Freq::Monthly && !dayParts) {
        monthDays_.push_back(int16_t(d0_));
    } else if (r_->freq == Freq::Weekly && !dayParts) {
        byDay_.push_back(ByDay{0, int8_t(weekdayOfDay(day))});
    }
    ordByMonth_ = r_->freq == Freq::Monthly || (r_->freq == Freq::Yearly && !r_->byMonth.empty());
    std::sort(months_.begin(), months_.end());
    months_.erase(std::unique(months_.begin(), months_.end()), months_.end());

    if (dateOnly_) {
        times_.push_back(0);
    } else {
        // Each part the rule leaves open is DTSTART's; walked in place, as a
        // month's query makes an iterator for every series it expands.
        auto each = [](const std::vector<int8_t>& parts, int open, const auto& f) {
            if (parts.empty())
                f(open);
            for (auto p : parts)
                f(int(p));
        };
        each(r_->byHour, int(sod / 3600), [&](int h) {
            each(r_->byMinute, int(sod / 60 % 60), [&](int m) {
                each(r_->bySecond, int(sod % 60), [&](int sec) { times_.push_back(h * 3600 + m * 60 + sec); });
            });
        });
        std::sort(times_.begin(), times_.end());
        times_.erase(std::unique(times_.begin(), times_.end()), times_.end());
    }
}

bool RecurIter::dayMatches(int64_t day, int y, int m, int d) const
{
    if (!r_->byMonth.empty() && !has(r_->byMonth, m))
        return false;
    // Every part must hold; a day whose weekday BYDAY never names fails
    // whatever the rest says, and that is the cheapest part to test.
    const int wd = byDay_.empty() ? 0 : weekdayOfDay(day);
    if (!byDay_.empty()) {
        bool named = false;
        for (const ByDay& b : byDay_)
            named = named || b.wd == wd;
        if (!named)
            return false;
    }
    if (!r_->byWeekNo.empty()) {
        int64_t w1 = week1Start(y, r_->wkst);
        int64_t wy = y;
        if (day < w1) {
            wy = y - 1;
            w1 = week1Start(wy, r_->wkst);
        } else if (day >= week1Start(y + 1, r_->wkst)) {
            wy = y + 1;
            w1 = week1Start(wy, r_->wkst);
        }
        int64_t wn = (day - w1) / 7 + 1;
        int64_t nweeks = (week1Start(wy + 1, r_->wkst) - w1) / 7;
        if (!has(r_->byWeekNo, wn) && !has(r_->byWeekNo, wn - nweeks - 1))
            return false;
    }
    if (!r_->byYearDay.empty()) {
        int64_t yd = day - daysFromCivil(y, 1, 1) + 1;
        int64_t len = isLeap(y) ? 366 : 365;
        if (!has(r_->byYearDay, yd) && !has(r_->byYearDay, yd - len - 1))
            return false;
    }
    if (!monthDays_.empty()) {
        int len = daysInMonth(y, m);
        if (!has(monthDays_, d) && !has(monthDays_, d - len - 1))
            return false;
    }
    if (!byDay_.empty()) {
        bool ordinals = r_->freq == Freq::Monthly ||
                        (r_->freq == Freq::Yearly && r_->byWeekNo.empty());
        bool ok = false;
        for (const ByDay& b : byDay_) {
            if (b.wd != wd)
                continue;
            if (b.ord == 0 || !ordinals) {
                ok = true;
                break;
            }
            int64_t first, last;
            if (ordByMonth_) {
                first = day - (d - 1);
                last = first + daysInMonth(y, m) - 1;
            } else {
                first = daysFromCivil(y, 1, 1);
                last = daysFromCivil(y, 12, 31);
            }
            int64_t nth = (day - first) / 7 + 1, nthBack = -((last - day) / 7 + 1);
            if (b.ord == nth || b.ord == nthBack) {
                ok = true;
                break;
            }
        }
        if (!ok)
            return false;
    }
    return true;
}

int64_t RecurIter::periodStartCivil(int64_t p) const
{
    int64_t step = p * r_->interval;
    switch (r_->freq) {
    case Freq::Yearly: return daysFromCivil(y0_ + step, 1, 1) * kDay;
    case Freq::Monthly: {
        int64_t mi = int64_t(y0_) * 12 + (m0_ - 1) + step;
        return daysFromCivil(floorDiv(mi, 12), int(mi - floorDiv(mi, 12) * 12) + 1, 1) * kDay;
    }
    case Freq::Weekly: return (week0_ + 7 * step) * kDay;
    case Freq::Daily: return (day0_ + step) * kDay;
    default: return t0_ + step * unit_;
    }
}

// How far before its period's start a period's instances may lie. A year's
// weeks by number (BYWEEKNO) begin up to three days before 1 January and
// end up to three days after 31 December: week 1 of 2025 starts on Monday
// 30 December 2024. Both the stop at a bound and the jump to a window's
// year allow for that, or an occurrence in those days is lost.
int64_t RecurIter::reachBack() const
{
    return r_->freq == Freq::Yearly && !r_->byWeekNo.empty() ? 7 * kDay : 0;
}

void RecurIter::seek(int64_t civil)
{
    if (done_ || civil <= dtstart_)
        return;
    int64_t day = floorDiv(civil, kDay);
    int y, m, d;
    civilFromDays(day, y, m, d);
    int64_t p = 0;
    switch (r_->freq) {
    case Freq::Yearly:
        civilFromDays(day - floorDiv(reachBack(), kDay), y, m, d);
        p = floorDiv(y - y0_, r_->interval);
        break;
    case Freq::Monthly:
        p = floorDiv((int64_t(y) * 12 + m - 1) - (int64_t(y0_) * 12 + m0_ - 1), r_->interval);
        break;
    case Freq::Weekly: p = floorDiv(weekStart(day, r_->wkst) - week0_, 7 * int64_t(r_->interval)); break;
    case Freq::Daily: p = floorDiv(day - day0_, r_->interval); break;
    default: p = floorDiv(civil - t0_, unit_ * r_->interval); break;
    }
    if (p > period_) {
        period_ = p;
        loaded_ = false;
    }
}

// Appends the days of month m that pass the rule, looking only at the days
// BYMONTHDAY or BYDAY can name.
void RecurIter::monthDays(int y, int m)
{
    int64_t first = daysFromCivil(y, m, 1);
    int len = daysInMonth(y, m);
    size_t from = days_.size();
    auto consider = [&](int d) {
        --budget;
        if (d >= 1 && d <= len && dayMatches(first + d - 1, y, m, d))
            days_.push_back(first + d - 1);
    };
    if (!monthDays_.empty()) {
        for (int16_t md : monthDays_)
            consider(md > 0 ? md : len + md + 1);
    } else if (!byDay_.empty()) {
        int wdFirst = weekdayOfDay(first);
        for (const ByDay& b : byDay_)
            for (int d = 1 + (b.wd - wdFirst + 7) % 7; d <= len; d += 7)
                consider(d);
    } else {
        for (int d = 1; d <= len; ++d)
            consider(d);
    }
    std::sort(days_.begin() + long(from), days_.end());
    days_.erase(std::unique(days_.begin() + long(from), days_.end()), days_.end());
}

// Builds the candidate days and times of period_. Returns false when the
// period yields nothing (the caller moves on).
bool RecurIter::fill()
{
    days_.clear();
    idx_ = n_ = 0;
    useSel_ = false;
    int64_t step = period_ * int64_t(r_->interval);
    auto addDay = [&](int64_t day) {
        --budget;
        int y, m, d;
        civilFromDays(day, y, m, d);
        if (dayMatches(day, y, m, d))
            days_.push_back(day);
    };
    const std::vector<int32_t>* times = &times_;
    ptimes_.clear();
    switch (r_->freq) {
    case Freq::Yearly: {
        int64_t y = y0_ + step;
        if (y > kMaxYear) {
            done_ = true;
            return false;
        }
        if (!r_->byYearDay.empty() || !r_->byWeekNo.empty()) {
            // Only the named days or weeks can match: build just those.
            int64_t first = daysFromCivil(y, 1, 1), last = daysFromCivil(y, 12, 31);
            std::vector<int64_t> cand;
            if (!r_->byYearDay.empty()) {
                for (int16_t yd : r_->byYearDay)
                    cand.push_back(yd > 0 ? first + yd - 1 : last + yd + 1);
            } else {
                // The weeks of the year by its own numbering: week 1 of 2014
                // begins on Monday 30 December 2013, and the last week of
                // 2026 ends on Sunday 3 January 2027. Those days belong to
                // this year's period, whatever the calendar year.
                int64_t w1 = week1Start(y, r_->wkst);
                int64_t nweeks = (week1Start(y + 1, r_->wkst) - w1) / 7;
                for (int16_t wn : r_->byWeekNo) {
                    int64_t w = wn > 0 ? wn - 1 : nweeks + wn;
                    if (w < 0 || w >= nweeks)
                        continue;
                    for (int d = 0; d < 7; ++d)
                        cand.push_back(w1 + 7 * w + d);
                }
                first = w1;
                last = w1 + 7 * nweeks - 1;
            }
            std::sort(cand.begin(), cand.end());
            cand.erase(std::unique(cand.begin(), cand.end()), cand.end());
            for (int64_t d : cand)
                if (d >= first && d <= last)
                    addDay(d);
        } else if (!months_.empty()) {
            for (int8_t m : months_)
                monthDays(int(y), m);
        } else {
            int64_t first = daysFromCivil(y, 1, 1), last = daysFromCivil(y, 12, 31);
            for (int64_t d = first; d <= last; ++d)
                addDay(d);
        }
        break;
    }
    case Freq::Monthly: {
        int64_t mi = int64_t(y0_) * 12 + (m0_ - 1) + step;
        int64_t y = floorDiv(mi, 12);
        int m = int(mi - y * 12) + 1;
        if (y > kMaxYear) {
            done_ = true;
            return false;
        }
        if (!r_->byMonth.empty() && !has(r_->byMonth, m)) {
            --budget;
            return false;
        }
        monthDays(int(y), m);
        break;
    }
    case Freq::Weekly: {
        int64_t w = week0_ + 7 * step;
        if (w > daysFromCivil(kMaxYear, 12, 31)) {
            done_ = true;
            return false;
        }
        for (int d = 0; d < 7; ++d)
            addDay(w + d);
        break;
    }
    case Freq::Daily: {
        int64_t d = day0_ + step;
        if (d > daysFromCivil(kMaxYear, 12, 31)) {
            done_ = true;
            return false;
        }
        addDay(d);
        break;
    }
    default: {
        int64_t t = t0_ + step * unit_;
        int64_t day = floorDiv(t, kDay);
        if (day > daysFromCivil(kMaxYear, 12, 31)) {
            done_ = true;
            return false;
        }
        int64_t sod = t - day * kDay;
        int h = int(sod / 3600), mi = int(sod / 60 % 60), s = int(sod % 60);
        // A period whose day, hour or minute is excluded skips straight to
        // the first period of the next allowed unit instead of stepping.
        int64_t skipTo = -1;
        addDay(day);
        if (days_.empty())
            skipTo = (day + 1) * kDay;
        else if (!r_->byHour.empty() && !has(r_->byHour, h))
            skipTo = day * kDay + (h + 1) * 3600;
        else if (r_->freq != Freq::Hourly && !r_->byMinute.empty() && !has(r_->byMinute, mi))
            skipTo = day * kDay + h * 3600 + (mi + 1) * 60;
        else if (r_->freq == Freq::Secondly && !r_->bySecond.empty() && !has(r_->bySecond, s))
            skipTo = t + 1;
        if (skipTo >= 0) {
            days_.clear();
            int64_t span = unit_ * r_->interval;
            int64_t p = floorDiv(skipTo - t0_ + span - 1, span);
            period_ = std::max(p, period_ + 1) - 1;  // the caller adds one
            return false;
        }
        days_.clear();
        days_.push_back(day);
        // Minutes and seconds the rule leaves open come from DTSTART.
        if (r_->freq == Freq::Hourly) {
            std::vector<int> ms, ss;
            for (auto v : r_->byMinute) ms.push_back(v);
            for (auto v : r_->bySecond) ss.push_back(v);
            if (ms.empty()) ms.push_back(mi0_);
            if (ss.empty()) ss.push_back(s0_);
            for (int a : ms)
                for (int b : ss)
                    ptimes_.push_back(h * 3600 + a * 60 + b);
            std::sort(ptimes_.begin(), ptimes_.end());
            ptimes_.erase(std::unique(ptimes_.begin(), ptimes_.end()), ptimes_.end());
        } else if (r_->freq == Freq::Minutely) {
            if (r_->bySecond.empty()) {
                ptimes_.push_back(h * 3600 + mi * 60 + s0_);
            } else {
                for (auto v : r_->bySecond)
                    ptimes_.push_back(h * 3600 + mi * 60 + v);
                std::sort(ptimes_.begin(), ptimes_.end());
                ptimes_.erase(std::unique(ptimes_.begin(), ptimes_.end()), ptimes_.end());
            }
        } else {
            ptimes_.push_back(int32_t(sod));
        }
        times = &ptimes_;
        break;
    }
    }
    if (days_.empty())
        return false;
    tp_ = times;
    n_ = days_.size() * tp_->size();
    if (!r_->bySetPos.empty()) {
        sel_.clear();
        for (int32_t sp : r_->bySetPos) {
            int64_t i = sp > 0 ? sp - 1 : int64_t(n_) + sp;
            if (i >= 0 && i < int64_t(n_))
                sel_.push_back(i);
        }
        std::sort(sel_.begin(), sel_.end());
        sel_.erase(std::unique(sel_.begin(), sel_.end()), sel_.end());
        useSel_ = true;
        n_ = sel_.size();
    }
    return n_ > 0;
}

bool RecurIter::next(int64_t& out, int64_t stopAfter)
{
    while (!done_) {
        if (!loaded_) {
            if (budget <= 0) {
                cut_ = done_ = true;
                return false;
            }
            int64_t ps = periodStartCivil(period_) - reachBack();
            // Every candidate lies inside its period, so a period starting
            // after the bound has nothing for the caller.
            if (ps > stopAfter || ps > until_)
                return false;
            loaded_ = true;
            if (!fill()) {
                ++period_;
                loaded_ = false;
                continue;
            }
        }
        while (idx_ < n_) {
            int64_t k = useSel_ ? sel_[idx_] : int64_t(idx_);
            ++idx_;
            const std::vector<int32_t>& tv = *tp_;
            int64_t t = days_[size_t(k) / tv.size()] * kDay + tv[size_t(k) % tv.size()];
            if (t < dtstart_)
                continue;
            if (t > until_) {
                done_ = true;
                return false;
            }
            out = t;
            return true;
        }
        ++period_;
        loaded_ = false;
    }
    return false;
}

}  // namespace lfical

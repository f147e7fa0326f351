// Civil times as text and the scalar value types of iCalendar content.
#include "ical.h"

#include <cstdio>
#include <cstring>

namespace lfical {

std::string formatCivil(int64_t civil, bool dateOnly)
{
    int y, m, d;
    int64_t day = floorDiv(civil, kDay);
    int64_t sod = civil - day * kDay;
    civilFromDays(day, y, m, d);
    char buf[40];
    if (dateOnly)
        snprintf(buf, sizeof buf, "%04d%02d%02d", y, m, d);
    else
        snprintf(buf, sizeof buf, "%04d%02d%02dT%02d%02d%02d", y, m, d, int(sod / 3600),
                 int(sod / 60 % 60), int(sod % 60));
    return buf;
}

static bool digits(std::string_view s, size_t at, size_t n, int& out)
{
    if (at + n > s.size())
        return false;
    int v = 0;
    for (size_t i = at; i < at + n; ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + (s[i] - '0');
    }
    out = v;
    return true;
}

// Read without loops or calls: a large calendar holds several of these per
// event.
bool parseCivil(std::string_view s, int64_t& civil, bool& dateOnly)
{
    const size_t n = s.size();
    if (n != 8 && n != 15)
        return false;
    const char* p = s.data();
    auto dig = [p](size_t i) { return unsigned(static_cast<unsigned char>(p[i])) - unsigned('0'); };
    unsigned bad = 0, v[5] = {0, 0, 0, 0, 0};
    unsigned y0 = dig(0), y1 = dig(1), y2 = dig(2), y3 = dig(3);
    bad |= (y0 > 9) | (y1 > 9) | (y2 > 9) | (y3 > 9);
    static const size_t at[5] = {4, 6, 9, 11, 13};
    const int pairs = n == 8 ? 2 : 5;
    for (int i = 0; i < pairs; ++i) {
        unsigned a = dig(at[i]), b = dig(at[i] + 1);
        bad |= (a > 9) | (b > 9);
        v[i] = a * 10 + b;
    }
    if (bad)
        return false;
    int y = int(y0 * 1000 + y1 * 100 + y2 * 10 + y3), mo = int(v[0]), d = int(v[1]);
    if (mo < 1 || mo > 12 || d < 1 || d > daysInMonth(y, mo))
        return false;
    int h = 0, mi = 0, sec = 0;
    if (n == 8) {
        dateOnly = true;
    } else {
        if (p[8] != 'T' && p[8] != 't')
            return false;
        h = int(v[2]);
        mi = int(v[3]);
        sec = int(v[4]);
        // A leap second (60) is accepted and read as the next minute's start.
        if (h > 23 || mi > 59 || sec > 60)
            return false;
        dateOnly = false;
    }
    civil = civilSeconds(y, mo, d, h, mi, sec);
    return true;
}

bool parseDuration(std::string_view s, Duration& out)
{
    size_t i = 0;
    bool neg = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        neg = s[i++] == '-';
    if (i >= s.size() || (s[i] != 'P' && s[i] != 'p'))
        return false;
    ++i;
    Duration d;
    bool inTime = false, any = false;
    while (i < s.size()) {
        char c = s[i];
        if (c == 'T' || c == 't') {
            if (inTime)
                return false;
            inTime = true;
            ++i;
            continue;
        }
        int64_t v = 0;
        size_t st = i;
        while (i < s.size() && s[i] >= '0' && s[i] <= '9') {
            v = v * 10 + (s[i] - '0');
            if (v > 1000000000)
                return false;
            ++i;
        }
        if (i == st || i >= s.size())
            return false;
        char u = char(s[i++] & ~0x20);
        if (!inTime && u == 'W')
            d.days += 7 * v;
        else if (!inTime && u == 'D')
            d.days += v;
        else if (inTime && u == 'H')
            d.seconds += 3600 * v;
        else if (inTime && u == 'M')
            d.seconds += 60 * v;
        else if (inTime && u == 'S')
            d.seconds += v;
        else
            return false;
        any = true;
    }
    if (!any)
        return false;
    if (neg) {
        d.days = -d.days;
        d.seconds = -d.seconds;
    }
    out = d;
    return true;
}

std::string formatDuration(const Duration& d)
{
    bool neg = d.days < 0 || d.seconds < 0;
    int64_t days = neg ? -d.days : d.days, secs = neg ? -d.seconds : d.seconds;
    std::string s = neg ? "-P" : "P";
    if (days)
        s += std::to_string(days) + "D";
    if (secs || !days) {
        s += "T";
        if (secs / 3600)
            s += std::to_string(secs / 3600) + "H";
        if (secs / 60 % 60)
            s += std::to_string(secs / 60 % 60) + "M";
        if (secs % 60 || secs == 0)
            s += std::to_string(secs % 60) + "S";
    }
    return s;
}

bool parseUtcOffset(std::string_view s, int32_t& out)
{
    if (s.size() != 5 && s.size() != 7)
        return false;
    if (s[0] != '+' && s[0] != '-')
        return false;
    int h, m, sec = 0;
    if (!digits(s, 1, 2, h) || !digits(s, 3, 2, m) || (s.size() == 7 && !digits(s, 5, 2, sec)))
        return false;
    if (h > 23 || m > 59 || sec > 59)
        return false;
    out = (h * 3600 + m * 60 + sec) * (s[0] == '-' ? -1 : 1);
    return true;
}

std::string unescapeText(std::string_view s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        if (c == '\\' && i + 1 < s.size()) {
            char n = s[++i];
            out += (n == 'n' || n == 'N') ? '\n' : n;
        } else {
            out += c;
        }
    }
    return out;
}

std::string escapeText(std::string_view s)
{
    std::string out;
    out.reserve(s.size() + 8);
    for (size_t i = 0; i < s.size(); ++i) {
        char c = s[i];
        switch (c) {
        case '\\': out += "\\\\"; break;
        case ';': out += "\\;"; break;
        case ',': out += "\\,"; break;
        case '\n': out += "\\n"; break;
        case '\r':
            // CRLF inside text becomes one line break
            if (i + 1 < s.size() && s[i + 1] == '\n')
                ++i;
            out += "\\n";
            break;
        default: out += c;
        }
    }
    return out;
}

std::vector<std::string> splitTextList(std::string_view s)
{
    std::vector<std::string> out;
    size_t st = 0;
    for (size_t i = 0; i <= s.size(); ++i) {
        if (i < s.size() && s[i] == '\\') {
            ++i;
            continue;
        }
        if (i == s.size() || s[i] == ',') {
            std::string item = unescapeText(s.substr(st, i - st));
            if (!item.empty())
                out.push_back(std::move(item));
            st = i + 1;
        }
    }
    return out;
}

// ---------------------------------------------------------------- RECUR

static bool eqNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if ((a[i] & ~0x20) != (b[i] & ~0x20))
            return false;
    return true;
}

static int weekdayCode(std::string_view s)
{
    static const char* names[] = {"MO", "TU", "WE", "TH", "FR", "SA", "SU"};
    for (int i = 0; i < 7; ++i)
        if (eqNoCase(s, names[i]))
            return i;
    return -1;
}

static bool parseInt(std::string_view s, int64_t& v)
{
    size_t i = 0;
    bool neg = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-'))
        neg = s[i++] == '-';
    if (i >= s.size())
        return false;
    v = 0;
    for (; i < s.size(); ++i) {
        if (s[i] < '0' || s[i] > '9')
            return false;
        v = v * 10 + (s[i] - '0');
        if (v > 4000000000LL)
            return false;
    }
    if (neg)
        v = -v;
    return true;
}

template <class T>
static bool parseIntList(std::string_view s, std::vector<T>& out, int64_t lo, int64_t hi,
                         bool allowNeg)
{
    size_t st = 0;
    for (size_t i = 0; i <= s.size(); ++i) {
        if (i == s.size() || s[i] == ',') {
            int64_t v;
            if (!parseInt(s.substr(st, i - st), v))
                return false;
            if (v == 0 && lo > 0)
                return false;
            int64_t a = v < 0 ? -v : v;
            if ((v < 0 && !allowNeg) || a < lo || a > hi)
                return false;
            out.push_back(T(v));
            st = i + 1;
        }
    }
    return true;
}

bool parseRecur(std::string_view s, Recur& r, std::string& error)
{
    r = Recur();
    bool haveFreq = false;
    size_t st = 0;
    for (size_t i = 0; i <= s.size(); ++i) {
        if (i != s.size() && s[i] != ';')
            continue;
        std::string_view part = s.substr(st, i - st);
        st = i + 1;
        if (part.empty())
            continue;
        size_t eq = part.find('=');
        if (eq == std::string_view::npos) {
            error = "rule part without '=': " + std::string(part);
            return false;
        }
        std::string_view k = part.substr(0, eq), v = part.substr(eq + 1);
        bool ok = true;
        if (eqNoCase(k, "FREQ")) {
            static const char* f[] = {"SECONDLY", "MINUTELY", "HOURLY", "DAILY",
                                      "WEEKLY",   "MONTHLY",  "YEARLY"};
            ok = false;
            for (int j = 0; j < 7; ++j)
                if (eqNoCase(v, f[j])) {
                    r.freq = Freq(j);
                    ok = haveFreq = true;
                }
        } else if (eqNoCase(k, "INTERVAL")) {
            int64_t n;
            ok = parseInt(v, n) && n >= 1 && n <= 1000000;
            if (ok)
                r.interval = int32_t(n);
        } else if (eqNoCase(k, "COUNT")) {
            int64_t n;
            ok = parseInt(v, n) && n >= 1;
            if (ok)
                r.count = n;
        } else if (eqNoCase(k, "UNTIL")) {
            std::string_view t = v;
            r.untilIsUtc = !t.empty() && (t.back() == 'Z' || t.back() == 'z');
            if (r.untilIsUtc)
                t.remove_suffix(1);
            ok = parseCivil(t, r.until, r.untilIsDate);
            r.hasUntil = ok;
        } else if (eqNoCase(k, "BYSECOND")) {
            ok = parseIntList(v, r.bySecond, 0, 60, false);
        } else if (eqNoCase(k, "BYMINUTE")) {
            ok = parseIntList(v, r.byMinute, 0, 59, false);
        } else if (eqNoCase(k, "BYHOUR")) {
            ok = parseIntList(v, r.byHour, 0, 23, false);
        } else if (eqNoCase(k, "BYMONTH")) {
            ok = parseIntList(v, r.byMonth, 1, 12, false);
        } else if (eqNoCase(k, "BYMONTHDAY")) {
            ok = parseIntList(v, r.byMonthDay, 1, 31, true);
        } else if (eqNoCase(k, "BYYEARDAY")) {
            ok = parseIntList(v, r.byYearDay, 1, 366, true);
        } else if (eqNoCase(k, "BYWEEKNO")) {
            ok = parseIntList(v, r.byWeekNo, 1, 53, true);
        } else if (eqNoCase(k, "BYSETPOS")) {
            ok = parseIntList(v, r.bySetPos, 1, 366 * 86400, true);
        } else if (eqNoCase(k, "WKST")) {
            r.wkst = weekdayCode(v);
            ok = r.wkst >= 0;
        } else if (eqNoCase(k, "BYDAY")) {
            size_t bs = 0;
            for (size_t j = 0; j <= v.size() && ok; ++j) {
                if (j != v.size() && v[j] != ',')
                    continue;
                std::string_view item = v.substr(bs, j - bs);
                bs = j + 1;
                if (item.size() < 2) {
                    ok = false;
                    break;
                }
                ByDay b;
                b.wd = int8_t(weekdayCode(item.substr(item.size() - 2)));
                int64_t ord = 0;
                if (item.size() > 2 && !parseInt(item.substr(0, item.size() - 2), ord))
                    ok = false;
                if (ord < -53 || ord > 53 || b.wd < 0 || (item.size() > 2 && ord == 0))
                    ok = false;
                b.ord = int16_t(ord);
                r.byDay.push_back(b);
            }
        } else {
            continue;  // an unknown rule part (X-NAME): ignored, kept in the text
        }
        if (!ok) {
            error = "bad rule part " + std::string(part);
            return false;
        }
    }
    if (!haveFreq) {
        error = "rule without FREQ";
        return false;
    }
    if (r.count && r.hasUntil) {
        error = "rule has both COUNT and UNTIL";
        return false;
    }
    return true;
}

}  // namespace lfical

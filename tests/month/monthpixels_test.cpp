// The month view's pixels, pass by pass, against the ones recorded in
// data/monthpixels.txt: any change to how the grid, the schedule bars and
// the icons reach the back buffer changes a fingerprint here. The store is
// the demo store written for 12 June 2030 (data/demo-2030-06-12.ics, by
// scripts/demo-store) with a crowded generated March 2032 added to it.
//
// After a deliberate change to what the month view shows, record afresh:
//   LF_PIXELS_RECORD=Z:\path\to\new.txt wine monthpixels_test.exe
// in each locale (the lines are appended), and replace the file.
#include "support/apphost.h"
#include "common/appstate.h"
#include "shell/render.h"
#include "common/draw.h"

#include <gtest/gtest.h>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

static std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

static std::string DataPath(const char *name)
{
    return std::string("Z:") + LF_MONTH_TEST_DATA + "/" + name;
}

// A crowded month from a fixed seed: timed appointments all over the day,
// some across midnight and overlapping, all-day ones over several days,
// free ones, a daily series, and every mix of the categories with icons.
static std::string GeneratedMonth()
{
    uint32_t seed = 20320301;
    auto next = [&seed](uint32_t n) {
        seed = seed * 1664525u + 1013904223u;
        return (seed >> 8) % n;
    };
    static const char *const kCategories[] = {"", "Business", "Personal", "Holiday", "Business, Personal",
                                              "Travel", "Personal,Holiday,Business", "Unknown"};
    std::string ics;
    char line[512];
    for (int i = 0; i < 160; i++) {
        // Late February to early April, so the neighbouring days have some.
        int offset = (int)next(44) - 5; // days from 1 March
        int month = 3, day = 1 + offset;
        if (day < 1) {
            month = 2;
            day += 29;
        } else if (day > 31) {
            month = 4;
            day -= 31;
        }
        const char *cats = kCategories[next(8)];
        std::string extra = cats[0] ? std::string("CATEGORIES:") + cats + "\r\n" : std::string();
        if (next(5) == 0)
            extra += "TRANSP:TRANSPARENT\r\n";
        if (next(9) == 0) {
            int days = 1 + (int)next(4);
            int endDay = day + days, endMonth = month;
            int length = month == 2 ? 29 : month == 3 ? 31 : 30;
            if (endDay > length) {
                endDay -= length;
                endMonth++;
            }
            snprintf(line, sizeof line,
                     "BEGIN:VEVENT\r\nUID:gen-%d\r\nDTSTAMP:20320101T000000Z\r\nDTSTART;VALUE=DATE:2032%02d%02d\r\n"
                     "DTEND;VALUE=DATE:2032%02d%02d\r\nSUMMARY:all day %d\r\n%sEND:VEVENT\r\n",
                     i, month, day, endMonth, endDay, i, extra.c_str());
        } else {
            int start = 10 + (int)next(38);   // half hours from 5:00
            int length = 1 + (int)next(8);    // half hours
            int end = start + length;
            int endDay = day, endMonth = month;
            if (end >= 48) {
                end -= 48;
                endDay++;
                int monthLength = month == 2 ? 29 : month == 3 ? 31 : 30;
                if (endDay > monthLength) {
                    endDay = 1;
                    endMonth++;
                }
            }
            snprintf(line, sizeof line,
                     "BEGIN:VEVENT\r\nUID:gen-%d\r\nDTSTAMP:20320101T000000Z\r\nDTSTART:2032%02d%02dT%02d%02d00\r\n"
                     "DTEND:2032%02d%02dT%02d%02d00\r\nSUMMARY:timed %d\r\n%sEND:VEVENT\r\n",
                     i, month, day, start / 2, start % 2 * 30, endMonth, endDay, end / 2, end % 2 * 30, i,
                     extra.c_str());
        }
        ics += line;
    }
    ics += "BEGIN:VEVENT\r\nUID:gen-daily\r\nDTSTAMP:20320101T000000Z\r\nDTSTART:20320310T073000\r\n"
           "DTEND:20320310T083000\r\nRRULE:FREQ=DAILY;COUNT=12\r\nSUMMARY:daily\r\nCATEGORIES:Travel\r\nEND:VEVENT\r\n";
    return ics;
}

static std::string StoreText()
{
    std::string demo = ReadFile(DataPath("demo-2030-06-12.ics"));
    size_t end = demo.rfind("END:VCALENDAR");
    if (end == std::string::npos)
        return std::string();
    return demo.substr(0, end) + GeneratedMonth() + "END:VCALENDAR\r\n";
}

// FNV-1a over the back buffer's pixels: one bit changed anywhere changes it.
static std::string Fingerprint()
{
    const unsigned char *p = static_cast<const unsigned char *>(g_app.backBits);
    size_t n = (size_t)g_app.backWidth * g_app.backHeight * 4;
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < n; i++) {
        // The unused byte of each pixel is whatever the last drawing left.
        if (i % 4 == 3)
            continue;
        h = (h ^ p[i]) * 1099511628211ull;
    }
    char text[24];
    snprintf(text, sizeof text, "%016llx", (unsigned long long)h);
    return text;
}

static std::string LocaleName()
{
    WCHAR name[LOCALE_NAME_MAX_LENGTH] = L"";
    GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH);
    std::string out;
    for (WCHAR *c = name; *c; c++)
        out += (char)*c;
    return out;
}

// "locale case fingerprint" lines.
static std::map<std::string, std::string> Recorded()
{
    std::map<std::string, std::string> out;
    std::istringstream in(ReadFile(DataPath("monthpixels.txt")));
    std::string locale, name, print;
    while (in >> locale >> name >> print)
        out[locale + " " + name] = print;
    return out;
}

TEST(MonthPixels, EveryPassDrawsAsRecorded)
{
    std::string ics = StoreText();
    ASSERT_FALSE(ics.empty()) << "the demo store in " << DataPath("demo-2030-06-12.ics");
    UseTempStore(ics);
    ASSERT_TRUE(StartProgram());

    AppSettings &s = g_app.settings;
    s.month1color = s.month2color = s.todaycolor = RGB(250, 250, 250); // today shows nothing
    s.alldaycolor = RGB(0, 200, 100);
    s.calendarcolorstyle = 0;
    s.showweeknumber = 1;
    s.showfree = 0;
    s.timeA = 14, s.timeB = 24, s.timeC = 36, s.timeD = 44;
    static const struct {
        const WCHAR *label;
        int icon;
    } kSlots[] = {{L"Business", 0}, {L"Personal", 1}, {L"", 2}, {L"Holiday", 3}, {L"Travel", 12}, {L"(None)", 7}};
    for (int k = 0; k < ICON_SLOTS; k++) {
        s.displayIconString[k][0] = 0;
        s.displayIcon[k] = (DWORD)k;
    }
    for (int k = 0; k < (int)(sizeof kSlots / sizeof kSlots[0]); k++) {
        lstrcpynW(s.displayIconString[k], kSlots[k].label, ICON_LABEL_LEN);
        s.displayIcon[k] = (DWORD)kSlots[k].icon;
    }
    g_app.viewMode = VIEW_MONTH;

    static const struct {
        const char *name;
        int month, year, indicator, icons, days;
    } kCases[] = {
        {"demo-may-bars", 5, 2030, 1, 1, 1},        {"demo-june-bars", 6, 2030, 1, 1, 1},
        {"demo-june-bars-month-only", 6, 2030, 1, 1, 0}, {"demo-june-bars-no-icons", 6, 2030, 1, 0, 1},
        {"demo-june-icons", 6, 2030, 0, 1, 1},      {"demo-july-bars", 7, 2030, 1, 1, 1},
        {"generated-bars", 3, 2032, 1, 1, 1},       {"generated-bars-month-only", 3, 2032, 1, 1, 0},
        {"generated-icons", 3, 2032, 0, 1, 1},      {"generated-icons-month-only", 3, 2032, 0, 1, 0},
        {"generated-grid", 3, 2032, 0, 0, 1},
    };
    std::string locale = LocaleName();
    std::map<std::string, std::string> recorded = Recorded();
    char record[MAX_PATH] = "";
    GetEnvironmentVariableA("LF_PIXELS_RECORD", record, MAX_PATH);
    FILE *out = record[0] ? fopen(record, "ab") : nullptr;
    for (const auto &c : kCases) {
        s.showindicator = c.indicator;
        s.showholiday = c.icons;
        s.showdays = c.days;
        g_app.viewMonth = c.month;
        g_app.viewYear = c.year;
        ASSERT_TRUE(RedrawAndWait()) << c.name;
        std::string print = Fingerprint();
        if (out) {
            fprintf(out, "%s %s %s\n", locale.c_str(), c.name, print.c_str());
            continue;
        }
        auto it = recorded.find(locale + " " + c.name);
        ASSERT_NE(it, recorded.end()) << c.name << " in " << locale << " has no recorded fingerprint";
        if (it->second != print) {
            char path[MAX_PATH];
            GetTempPathA(MAX_PATH, path);
            std::string shot = std::string(path) + "monthpixels-" + locale + "-" + c.name + ".bmp";
            SaveBackBuffer(std::wstring(shot.begin(), shot.end()).c_str());
            ADD_FAILURE() << c.name << " in " << locale << " drew other pixels than recorded; the pass is in "
                          << shot;
        }
    }
    if (out)
        fclose(out);
}

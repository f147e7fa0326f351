// Shared helpers for the engine's tests: calendars built from text.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ical.h"

namespace lftest {

inline std::string readFile(const std::filesystem::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void writeFile(const std::filesystem::path& p, const std::string& s)
{
    std::ofstream out(p, std::ios::binary);
    out << s;
}

// A fresh, empty folder in the temporary directory for one test.
inline std::filesystem::path scratchDir(const char* name)
{
    namespace fs = std::filesystem;
    fs::path d = fs::temp_directory_path() / (std::string("lfical-") + name + "-" + std::to_string(rand()));
    fs::remove_all(d);
    fs::create_directories(d);
    return d;
}

// America/New_York as the RFC 5545 examples define it (rules since 1987/2007).
inline const char* kNewYork =
    "BEGIN:VTIMEZONE\r\n"
    "TZID:America/New_York\r\n"
    "BEGIN:STANDARD\r\n"
    "DTSTART:19671029T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU;UNTIL=20061029T060000Z\r\n"
    "TZOFFSETFROM:-0400\r\nTZOFFSETTO:-0500\r\nTZNAME:EST\r\n"
    "END:STANDARD\r\n"
    "BEGIN:STANDARD\r\n"
    "DTSTART:20071104T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=11;BYDAY=1SU\r\n"
    "TZOFFSETFROM:-0400\r\nTZOFFSETTO:-0500\r\nTZNAME:EST\r\n"
    "END:STANDARD\r\n"
    "BEGIN:DAYLIGHT\r\n"
    "DTSTART:19870405T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=4;BYDAY=1SU;UNTIL=20060402T070000Z\r\n"
    "TZOFFSETFROM:-0500\r\nTZOFFSETTO:-0400\r\nTZNAME:EDT\r\n"
    "END:DAYLIGHT\r\n"
    "BEGIN:DAYLIGHT\r\n"
    "DTSTART:20070311T020000\r\n"
    "RRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=2SU\r\n"
    "TZOFFSETFROM:-0500\r\nTZOFFSETTO:-0400\r\nTZNAME:EDT\r\n"
    "END:DAYLIGHT\r\n"
    "END:VTIMEZONE\r\n";

// A calendar around the given components; bare LF lines become CRLF.
inline std::string calendar(const std::string& body, bool withZone = true)
{
    std::string b;
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\n' && (i == 0 || body[i - 1] != '\r'))
            b += '\r';
        b += body[i];
    }
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//test//EN\r\n" + std::string(withZone ? kNewYork : "") + b +
           "END:VCALENDAR\r\n";
}

inline int64_t at(const char* civil)
{
    int64_t t = 0;
    bool d;
    lfical::parseCivil(civil, t, d);
    return t;
}

// Occurrence starts (wall clock of `zone`) as "YYYYMMDDTHHMMSS" words.
inline std::string starts(const std::vector<lfical::Occurrence>& occ)
{
    std::string s;
    for (const auto& o : occ)
        s += (s.empty() ? "" : " ") + lfical::formatCivil(o.start, o.allDay);
    return s;
}

}  // namespace lftest

// lfq as users and scripts see it: the line format, zones, escaping, the
// exit codes and where problems go.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "helpers.h"
#include "lfq.h"

namespace fs = std::filesystem;

namespace {
struct LfqResult {
    int rc;
    std::string out, err;
};

LfqResult lfq(std::vector<std::string> args)
{
    args.insert(args.begin(), "lfq");
    std::vector<const char*> argv;
    for (auto& a : args)
        argv.push_back(a.c_str());
    LfqResult r;
    r.rc = lfqRun(int(argv.size()), argv.data(), r.out, r.err);
    return r;
}

fs::path writeTemp(const std::string& name, const std::string& text)
{
    fs::path p = fs::temp_directory_path() / ("lfq-test-" + std::to_string(rand()) + "-" + name);
    std::ofstream(p, std::ios::binary) << text;
    return p;
}
}  // namespace

TEST(Lfq, PrintsOccurrencesAsSortedLines)
{
    fs::path f = writeTemp("a.ics", lftest::calendar(
        "BEGIN:VEVENT\nUID:day\nDTSTART;VALUE=DATE:20240505\nSUMMARY:A day\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:ny\nDTSTART;TZID=America/New_York:20240505T090000\nDTEND;TZID=America/New_York:20240505T100000\n"
        "SUMMARY:Tab\there\\, back\\\\slash\\nnew\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:float\nDTSTART:20240505T230000\nDURATION:PT2H\nSUMMARY:Float\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:a\tb\nDTSTART:20240505T120000Z\nSUMMARY:\nEND:VEVENT\n"));
    const struct {
        const char* tz;
        const char* expect;
    } cases[] = {
        {"UTC",
         "a\\tb\t20240505T120000\t20240505T120000\t0\t\n"
         "day\t20240505\t20240506\t1\tA day\n"
         "float\t20240505T230000\t20240506T010000\t0\tFloat\n"
         "ny\t20240505T130000\t20240505T140000\t0\tTab\\there, back\\\\slash\\nnew\n"},
        {"Asia/Tokyo",
         "a\\tb\t20240505T210000\t20240505T210000\t0\t\n"
         "day\t20240505\t20240506\t1\tA day\n"
         "float\t20240505T230000\t20240506T010000\t0\tFloat\n"
         "ny\t20240505T220000\t20240505T230000\t0\tTab\\there, back\\\\slash\\nnew\n"},
    };
    for (const auto& c : cases) {
        LfqResult r = lfq({"--tz", c.tz, "20240505", "20240506", f.string()});
        EXPECT_EQ(0, r.rc) << c.tz << r.err;
        EXPECT_EQ(c.expect, r.out) << c.tz;
        EXPECT_EQ("", r.err) << c.tz;
    }
    // The window is half-open: an occurrence ending at FROM is not in it,
    // one starting at FROM is.
    EXPECT_EQ("", lfq({"20240505T140000", "20240505T150000", f.string()}).out.substr(0, 3).find("ny") == 0 ? "ny" : "");
    EXPECT_EQ(0u, lfq({"20240505T120000", "20240505T120001", f.string()}).out.find("a\\tb"));
    fs::remove(f);
}

TEST(Lfq, ExitCodesAndProblems)
{
    fs::path good = writeTemp("good.ics", lftest::calendar("BEGIN:VEVENT\nUID:1\nDTSTART:20240505\nBAD LINE\nEND:VEVENT\n", false));
    fs::path cut = writeTemp("cut.ics", "BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:2\r\n");
    fs::path dir = fs::temp_directory_path() / ("lfq-vdir-" + std::to_string(rand()));
    fs::create_directories(dir);
    std::ofstream(dir / "e1.ics", std::ios::binary) << lftest::calendar("BEGIN:VEVENT\nUID:v1\nDTSTART:20240505T100000Z\nEND:VEVENT\n", false);
    std::ofstream(dir / "e2.ics", std::ios::binary) << lftest::calendar("BEGIN:VEVENT\nUID:v2\nDTSTART:20240505T110000Z\nEND:VEVENT\n", false);
    const struct {
        const char* name;
        std::vector<std::string> args;
        int rc;
        const char* out;
        const char* errHas;
    } cases[] = {
        {"problem reported with its line", {"20240501", "20240601", good.string()}, 0, "1\t20240505\t20240506\t1\t\n", ":7: not a content line"},
        {"cut short", {"20240501", "20240601", cut.string()}, 1, "", "cut short"},
        {"missing", {"20240501", "20240601", (dir / "none.ics").string()}, 1, "", "cannot read"},
        {"directory", {"20240501", "20240601", dir.string()}, 0,
         "v1\t20240505T100000\t20240505T100000\t0\t\nv2\t20240505T110000\t20240505T110000\t0\t\n", ""},
        {"bad window", {"2024-05-01", "20240601", dir.string()}, 2, "", "YYYYMMDD"},
        {"unknown zone", {"--tz", "Nowhere/Special", "20240501", "20240601", dir.string()}, 2, "", "unknown time zone"},
        {"too few arguments", {"20240501"}, 2, "", "usage"},
    };
    for (const auto& c : cases) {
        LfqResult r = lfq(c.args);
        EXPECT_EQ(c.rc, r.rc) << c.name;
        EXPECT_EQ(c.out, r.out) << c.name;
        EXPECT_NE(std::string::npos, r.err.find(c.errHas)) << c.name << ": " << r.err;
    }
    fs::remove(good);
    fs::remove(cut);
    fs::remove_all(dir);
}

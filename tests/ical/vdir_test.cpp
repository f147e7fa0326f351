// A directory store as vdirsyncer and other vdir tools expect it: one file
// per UID, safe names, atomic writes, files found by UID, other files left
// alone, one event's change touching only its file.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <thread>

#include "helpers.h"

using namespace lfical;
using lftest::at;
using lftest::readFile;
using lftest::scratchDir;
using lftest::writeFile;
namespace fs = std::filesystem;

namespace {

std::set<std::string> fileNames(const fs::path& dir)
{
    std::set<std::string> out;
    for (const auto& e : fs::directory_iterator(dir))
        out.insert(e.path().filename().string());
    return out;
}

std::string event(const std::string& uid, const std::string& start, const std::string& extra = std::string())
{
    return lftest::calendar("BEGIN:VEVENT\nUID:" + uid + "\nDTSTAMP:20240101T000000Z\nDTSTART:" + start +
                                "\nSUMMARY:" + uid + "\n" + extra + "END:VEVENT\n",
                            false);
}

EventEdit at10(const char* day)
{
    EventEdit e;
    e.start = Time{at((std::string(day) + "T100000").c_str()), TimeKind::Floating, -1};
    e.summary = std::string("new");
    return e;
}

bool isUuidName(const std::string& name)
{
    // 8-4-4-4-12 lower-case hex digits, then ".ics"
    if (name.size() != 40 || name.substr(36) != ".ics")
        return false;
    for (size_t i = 0; i < 36; ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? name[i] != '-' : !isxdigit(static_cast<unsigned char>(name[i])))
            return false;
    }
    return true;
}

}  // namespace

TEST(Vdir, NewFilesAreNamedAfterSafeUidsElseAUuid)
{
    struct Case {
        const char* uid;
        bool namedAfterUid;
    } cases[] = {
        {"plain-uid_1.2+3", true},
        {"ABCdef0123456789", true},
        {"with@domain", false},
        {"slash/in/it", false},
        {"colon:star*q?", false},
        {"quote\"lt<gt>pipe|", false},
        {"space in it", false},
        {"umlaut-\xc3\xbc", false},
        {"..", false},
    };
    fs::path dir = scratchDir("vdirnames");
    writeFile(dir / "taken.ics", event("something-else", "20240501T100000"));
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    std::set<std::string> before = fileNames(dir);
    for (const Case& c : cases) {
        std::string error;
        ASSERT_NE(kNoEvent, s.add(at10("20240502"), c.uid, error)) << c.uid << ": " << error;
    }
    // A UID that would name a file another event already has.
    std::string error;
    ASSERT_NE(kNoEvent, s.add(at10("20240503"), "taken", error)) << error;
    // And the program's own UIDs, which carry an "@".
    EventId own = s.add(at10("20240504"));
    ASSERT_NE(kNoEvent, own);
    ASSERT_TRUE(s.save(nullptr));
    std::set<std::string> names = fileNames(dir);
    EXPECT_EQ(before.size() + std::size(cases) + 2, names.size());
    Store again;
    std::vector<Problem> ps;
    ASSERT_TRUE(again.load(dir.string(), &ps));
    for (const std::string& n : names) {
        EXPECT_EQ(std::string::npos, n.find_first_of("/\\:*?\"<>|")) << n;
        EXPECT_EQ(".ics", n.substr(n.size() - 4)) << n;
    }
    for (const Case& c : cases) {
        EventId id = again.findUid(c.uid);
        ASSERT_NE(kNoEvent, id) << c.uid;
        bool named = names.count(std::string(c.uid) + ".ics") != 0;
        EXPECT_EQ(c.namedAfterUid, named) << c.uid;
        EXPECT_EQ(c.namedAfterUid, uidMakesFileName(c.uid)) << c.uid;
    }
    EXPECT_EQ(event("something-else", "20240501T100000"), readFile(dir / "taken.ics")) << "another event's file";
    size_t uuids = 0;
    for (const std::string& n : names)
        uuids += isUuidName(n);
    EXPECT_FALSE(uidMakesFileName("back\\slash"));
    EXPECT_FALSE(uidMakesFileName(""));
    EXPECT_EQ(std::size(cases) - 2 + 2, uuids) << "unsafe UIDs, the taken name and our own UID get a UUID";
    EXPECT_TRUE(ps.empty()) << ps.front().file << ": " << ps.front().message;
    fs::remove_all(dir);
}

TEST(Vdir, ASecondEventWithAnExistingUidIsRefused)
{
    fs::path dir = scratchDir("vdirdup");
    writeFile(dir / "x.ics", event("dup", "20240501T100000"));
    writeFile(dir / "s.ics", event("series", "20240501T090000", "RRULE:FREQ=DAILY;COUNT=3\n") );
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    for (const char* uid : {"dup", "series"}) {
        std::string error;
        EXPECT_EQ(kNoEvent, s.add(at10("20240502"), uid, error)) << uid;
        EXPECT_NE(std::string::npos, error.find(uid)) << "the message names the UID: " << error;
    }
    std::string error;
    EXPECT_EQ(kNoEvent, s.add(at10("20240502"), "", error)) << "an empty UID";
    EXPECT_EQ(kNoEvent, s.add(at10("20240502"), "a\r\nb", error)) << "a UID that breaks the line";
    EXPECT_FALSE(s.dirty());
    ASSERT_TRUE(s.save(nullptr));
    EXPECT_EQ((std::set<std::string>{"s.ics", "x.ics"}), fileNames(dir));
    fs::remove_all(dir);
}

TEST(Vdir, EventsAreFoundByUidAndOtherFilesAreNeverRead)
{
    fs::path dir = scratchDir("vdirread");
    // vdirsyncer names files as the server did; names say nothing of UIDs.
    std::string lf = "BEGIN:VCALENDAR\nVERSION:2.0\nPRODID:-//x//EN\nBEGIN:VEVENT\nUID:lf-ends\n"
                     "DTSTART:20240501T100000\nSUMMARY:LF only\nEND:VEVENT\nEND:VCALENDAR\n";
    writeFile(dir / "0f3c9a.ics", lf);
    writeFile(dir / "uid-of-another.ics", event("crlf-ends", "20240502T100000"));
    writeFile(dir / "readonly.ics", event("read-only", "20240503T100000"));
    fs::permissions(dir / "readonly.ics", fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    // Everything else in a vdir: metadata, temporary files, editor backups.
    // Each would be a broken calendar (or a duplicate) if it were read.
    for (const char* other : {"color", "displayname", "x.ics.tmp", "x.ics~", "x.ics.swp", ".#x.ics#", "x.ics.lf-saving"})
        writeFile(dir / other, std::string(other) == "color" ? "#ff0000" : event("crlf-ends", "20240509T100000"));
    std::vector<Problem> ps;
    Store s;
    ASSERT_TRUE(s.load(dir.string(), &ps));
    EXPECT_TRUE(ps.empty()) << ps.front().file << ": " << ps.front().message;
    EXPECT_EQ(3u, s.eventCount());
    EventId lfId = s.findUid("lf-ends");
    ASSERT_NE(kNoEvent, lfId);
    EXPECT_EQ("LF only", s.info(lfId).summary);
    EXPECT_EQ(at("20240502T100000"), s.info(s.findUid("crlf-ends")).start.civil) << "not the backup's day";
    EXPECT_NE(kNoEvent, s.findUid("read-only"));
    EventEdit e;
    e.summary = std::string("LF edited");
    ASSERT_TRUE(s.edit(lfId, e));
    ASSERT_TRUE(s.save(nullptr));
    EXPECT_NE(std::string::npos, readFile(dir / "0f3c9a.ics").find("SUMMARY:LF edited")) << "written to its own file";
    EXPECT_EQ(std::string::npos, readFile(dir / "0f3c9a.ics").find("\r\n\r\n"));
    EXPECT_EQ(10u, fileNames(dir).size()) << "no file added or lost";
    fs::permissions(dir / "readonly.ics", fs::perms::owner_write, fs::perm_options::add);
    fs::remove_all(dir);
}

TEST(Vdir, AChangeRewritesOnlyItsFileAndKeepsWhatItDoesNotKnow)
{
    fs::path dir = scratchDir("vdironly");
    std::string rich = lftest::calendar(
        "BEGIN:VEVENT\nUID:rich\nDTSTAMP:20240101T000000Z\n"
        "DTSTART;TZID=America/New_York:20240505T100000\nDTEND;TZID=America/New_York:20240505T110000\n"
        "SUMMARY:Rich\nX-OTHER-APP;X-PARAM=\"a;b\":kept value\nATTENDEE;CN=Ann;ROLE=CHAIR:mailto:ann@example.org\n"
        "BEGIN:VALARM\nACTION:DISPLAY\nTRIGGER:-PT15M\nDESCRIPTION:x\nX-ALARM-PROP:1\nEND:VALARM\nEND:VEVENT\n");
    writeFile(dir / "rich.ics", rich);
    for (int i = 0; i < 5; ++i)
        writeFile(dir / ("other" + std::to_string(i) + ".ics"), event("o" + std::to_string(i), "20240506T100000"));
    // Old times, so a rewrite would show even on a coarse clock.
    auto old = fs::file_time_type::clock::now() - std::chrono::hours(48);
    std::map<std::string, fs::file_time_type> times;  // as the file system keeps them
    for (const auto& f : fs::directory_iterator(dir)) {
        fs::last_write_time(f.path(), old);
        times[f.path().string()] = fs::last_write_time(f.path());
    }
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    EventEdit e;
    e.summary = std::string("Rich, edited");
    ASSERT_TRUE(s.edit(s.findUid("rich"), e));
    ASSERT_TRUE(s.save(nullptr));
    for (int i = 0; i < 5; ++i) {
        fs::path p = dir / ("other" + std::to_string(i) + ".ics");
        EXPECT_EQ(event("o" + std::to_string(i), "20240506T100000"), readFile(p)) << p;
        EXPECT_TRUE(times[p.string()] == fs::last_write_time(p)) << p;
    }
    std::string now = readFile(dir / "rich.ics");
    EXPECT_TRUE(times[(dir / "rich.ics").string()] != fs::last_write_time(dir / "rich.ics"));
    for (const char* kept : {"SUMMARY:Rich\\, edited\r\n", "X-OTHER-APP;X-PARAM=\"a;b\":kept value\r\n",
                             "ATTENDEE;CN=Ann;ROLE=CHAIR:mailto:ann@example.org\r\n", "X-ALARM-PROP:1\r\n",
                             "BEGIN:VTIMEZONE\r\nTZID:America/New_York\r\n",
                             "DTSTART;TZID=America/New_York:20240505T100000\r\n"})
        EXPECT_NE(std::string::npos, now.find(kept)) << kept;
    fs::remove_all(dir);
}

TEST(Vdir, FilesWithNoUidOrSeveralAreReportedOnceAndSkipped)
{
    fs::path dir = scratchDir("vdirbad");
    writeFile(dir / "good.ics", event("good", "20240501T100000"));
    writeFile(dir / "nouid.ics", lftest::calendar("BEGIN:VEVENT\nDTSTART:20240502T100000\nSUMMARY:no uid\nEND:VEVENT\n"
                                                  "BEGIN:VEVENT\nDTSTART:20240503T100000\nEND:VEVENT\n",
                                                  false));
    std::string two = lftest::calendar("BEGIN:VEVENT\nUID:one\nDTSTART:20240502T100000\nEND:VEVENT\n"
                                       "BEGIN:VEVENT\nUID:two\nDTSTART:20240503T100000\nEND:VEVENT\n",
                                       false);
    writeFile(dir / "two.ics", two);
    // A series with its override is one UID, and is fine.
    writeFile(dir / "series.ics",
              lftest::calendar("BEGIN:VEVENT\nUID:ser\nDTSTART:20240501T090000\nRRULE:FREQ=DAILY;COUNT=3\nEND:VEVENT\n"
                               "BEGIN:VEVENT\nUID:ser\nRECURRENCE-ID:20240502T090000\nDTSTART:20240502T120000\nEND:VEVENT\n",
                               false));
    std::vector<Problem> ps;
    Store s;
    ASSERT_TRUE(s.load(dir.string(), &ps));
    std::map<std::string, int> perFile;
    for (const Problem& p : ps)
        ++perFile[fs::path(p.file).filename().string()];
    EXPECT_EQ((std::map<std::string, int>{{"nouid.ics", 1}, {"two.ics", 1}}), perFile);
    EXPECT_NE(kNoEvent, s.findUid("good"));
    EXPECT_NE(kNoEvent, s.findUid("ser"));
    EXPECT_EQ(kNoEvent, s.findUid("one"));
    EXPECT_EQ(kNoEvent, s.findUid("two"));
    EXPECT_EQ(3u, s.eventCount()) << "good, and the series with its override";
    // The rest is served and saved; the skipped files stay as they are.
    ASSERT_NE(kNoEvent, s.add(at10("20240505")));
    ASSERT_TRUE(s.save(nullptr));
    EXPECT_EQ(two, readFile(dir / "two.ics"));
    fs::remove_all(dir);
}

TEST(Vdir, AConflictKeepsBothVersions)
{
    fs::path dir = scratchDir("vdirconflict");
    writeFile(dir / "meeting.ics", event("meeting", "20240501T100000"));
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    std::string theirs = readFile(dir / "meeting.ics");
    theirs.replace(theirs.find("SUMMARY:meeting"), 15, "SUMMARY:theirs");
    writeFile(dir / "meeting.ics", theirs);
    EventEdit e;
    e.summary = std::string("mine");
    ASSERT_TRUE(s.edit(s.findUid("meeting"), e));
    std::vector<std::string> conflicts;
    ASSERT_TRUE(s.save(nullptr, &conflicts));
    EXPECT_EQ(std::vector<std::string>{"meeting"}, conflicts);
    EXPECT_EQ(theirs, readFile(dir / "meeting.ics")) << "the other program's version, as it wrote it";
    ASSERT_EQ(2u, fileNames(dir).size());
    Store again;
    ASSERT_TRUE(again.load(dir.string(), nullptr));
    std::set<std::string> summaries;
    for (EventId id : again.events())
        summaries.insert(again.info(id).summary);
    EXPECT_EQ((std::set<std::string>{"mine", "theirs"}), summaries);
    EXPECT_EQ(2u, s.eventCount()) << "the running store shows both as well";
    fs::remove_all(dir);
}

TEST(Vdir, AReaderPollingTheFolderNeverSeesAPartialFile)
{
    fs::path dir = scratchDir("vdirpoll");
    Store s;
    ASSERT_TRUE(s.load(dir.string(), nullptr));
    EventEdit first = at10("20240501");
    // A long event, so a write takes more than one system call.
    first.description = std::string(20000, 'x');
    EventId id = s.add(first);
    ASSERT_NE(kNoEvent, id);
    ASSERT_TRUE(s.save(nullptr));
    std::atomic<bool> done{false};
    std::atomic<int> reads{0}, partial{0};
    std::string bad;
    std::thread reader([&] {
        while (!done) {
            std::error_code ec;
            for (const auto& ent : fs::directory_iterator(dir, ec)) {
                std::string name = ent.path().filename().string();
                if (name.size() < 4 || name.substr(name.size() - 4) != ".ics")
                    continue;
                // A file replaced between listing and opening (Windows
                // refuses the open while a replace is under way) is skipped.
                std::ifstream in(ent.path(), std::ios::binary);
                if (!in.is_open())
                    continue;
                std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
                ++reads;
                bool whole = text.rfind("BEGIN:VCALENDAR\r\n", 0) == 0 && text.size() > 20000 &&
                             text.compare(text.size() - 15, 15, "END:VCALENDAR\r\n") == 0;
                if (!whole && partial++ == 0)
                    bad = text.substr(0, 200);
            }
        }
    });
    // Every save flushes its file to the disk; under Wine that is slower
    // still, and the native run already makes the thousand saves.
#ifdef _WIN32
    const int saves = 100;
#else
    const int saves = 1000;
#endif
    int failedSave = -1;
    for (int i = 0; i < saves && failedSave < 0; ++i) {
        EventEdit e;
        e.summary = "save " + std::to_string(i);
        e.description = std::string(20000 + i % 7 * 1000, char('a' + i % 26));
        std::vector<Problem> ps;
        if (!s.edit(id, e) || !s.save(&ps)) {
            failedSave = i;
            bad = ps.empty() ? std::string() : ps.front().message;
        }
    }
    done = true;
    reader.join();
    EXPECT_EQ(-1, failedSave) << bad;
    EXPECT_EQ(0, partial.load()) << bad;
    EXPECT_GT(reads.load(), saves / 10);
    EXPECT_EQ(1u, fileNames(dir).size());
    fs::remove_all(dir);
}

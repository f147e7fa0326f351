// Beaming: the program hands an appointment to the real server's infrared folder, which writes
// it into the outbox as one calendar file; the file is read back with the iCalendar engine and
// must give the same occurrences as the store it came from.
#include "store_support.h"
#include "common/com.h"
#include "ical.h"

#include <shlobj.h>

using namespace storetest;

static const char kBerlin[] = "BEGIN:VTIMEZONE\r\n"
                              "TZID:Europe/Berlin\r\n"
                              "BEGIN:DAYLIGHT\r\n"
                              "TZOFFSETFROM:+0100\r\nTZOFFSETTO:+0200\r\nTZNAME:CEST\r\n"
                              "DTSTART:19700329T020000\r\nRRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=-1SU\r\n"
                              "END:DAYLIGHT\r\n"
                              "BEGIN:STANDARD\r\n"
                              "TZOFFSETFROM:+0200\r\nTZOFFSETTO:+0100\r\nTZNAME:CET\r\n"
                              "DTSTART:19701025T030000\r\nRRULE:FREQ=YEARLY;BYMONTH=10;BYDAY=-1SU\r\n"
                              "END:STANDARD\r\n"
                              "END:VTIMEZONE\r\n";

// A zone no beamed appointment uses; it stays behind.
static const char kUnused[] = "BEGIN:VTIMEZONE\r\n"
                              "TZID:Atlantic/Unused\r\n"
                              "BEGIN:STANDARD\r\n"
                              "TZOFFSETFROM:-0100\r\nTZOFFSETTO:-0100\r\nTZNAME:XT\r\n"
                              "DTSTART:19700101T000000\r\n"
                              "END:STANDARD\r\n"
                              "END:VTIMEZONE\r\n";

// A weekly review on Mondays in Berlin time, one Monday deleted, one moved to the Tuesday, with
// a property of another program's own; a lunch on its own; and a series in the unused zone's
// file position that nobody beams.
static std::string BeamStore()
{
    return std::string("BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields tests//EN\r\n") + kBerlin +
           kUnused +
           "BEGIN:VEVENT\r\nUID:review-1\r\nDTSTAMP:20300101T000000Z\r\n"
           "DTSTART;TZID=Europe/Berlin:20300107T090000\r\nDTEND;TZID=Europe/Berlin:20300107T100000\r\n"
           "RRULE:FREQ=WEEKLY;BYDAY=MO\r\nEXDATE;TZID=Europe/Berlin:20300114T090000\r\n"
           "SUMMARY:Team review\r\nX-OTHER-APP;X-KEEP=yes:kept as it was written\r\n"
           "END:VEVENT\r\n"
           "BEGIN:VEVENT\r\nUID:review-1\r\nDTSTAMP:20300101T000000Z\r\n"
           "RECURRENCE-ID;TZID=Europe/Berlin:20300121T090000\r\n"
           "DTSTART;TZID=Europe/Berlin:20300122T150000\r\nDTEND;TZID=Europe/Berlin:20300122T160000\r\n"
           "SUMMARY:Team review (moved)\r\n"
           "END:VEVENT\r\n"
           "BEGIN:VEVENT\r\nUID:lunch-1\r\nDTSTAMP:20300101T000000Z\r\n"
           "DTSTART:20300128T120000\r\nDTEND:20300128T130000\r\nSUMMARY:Lunch\r\n"
           "END:VEVENT\r\n"
           "BEGIN:VEVENT\r\nUID:other-1\r\nDTSTAMP:20300101T000000Z\r\n"
           "DTSTART;TZID=Atlantic/Unused:20300128T080000\r\nDTEND;TZID=Atlantic/Unused:20300128T090000\r\n"
           "RRULE:FREQ=DAILY;COUNT=3\r\nSUMMARY:Not beamed\r\n"
           "END:VEVENT\r\n"
           "END:VCALENDAR\r\n";
}

static std::wstring AppDataFolder()
{
    WCHAR appdata[MAX_PATH] = L"";
    SHGetFolderPathW(nullptr, CSIDL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0, appdata);
    return std::wstring(appdata) + L"\\Lanternfields";
}

static std::wstring Outbox()
{
    return AppDataFolder() + L"\\Outbox";
}

// The names of the files in a folder.
static std::set<std::wstring> FilesIn(const std::wstring &dir)
{
    std::set<std::wstring> names;
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((dir + L"\\*").c_str(), &fd);
    if (h == INVALID_HANDLE_VALUE)
        return names;
    do
        if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            names.insert(fd.cFileName);
    while (FindNextFileW(h, &fd));
    FindClose(h);
    return names;
}

static std::vector<std::wstring> NewFiles(const std::set<std::wstring> &before)
{
    std::vector<std::wstring> out;
    for (const std::wstring &name : FilesIn(Outbox()))
        if (!before.count(name))
            out.push_back(name);
    return out;
}

static std::string AnsiPath(const std::wstring &w)
{
    char path[MAX_PATH * 2] = "";
    WideCharToMultiByte(CP_ACP, 0, w.c_str(), -1, path, sizeof path, nullptr, nullptr);
    return path;
}

static size_t CountOf(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        n++;
    return n;
}

// What the engine makes of one UID over 2030: each occurrence's start, end and subject, in UTC.
static std::vector<std::string> YearOf(const std::string &path, const std::string &uid)
{
    lfical::Store store;
    std::vector<lfical::Problem> problems;
    std::vector<std::string> out;
    if (!store.load(path, &problems)) {
        out.push_back("unreadable: " + (problems.empty() ? std::string() : problems[0].message));
        return out;
    }
    int64_t from = 0, to = 0;
    bool dateOnly = false;
    lfical::parseCivil("20300101T000000", from, dateOnly);
    lfical::parseCivil("20310101T000000", to, dateOnly);
    for (const lfical::Occurrence &o : store.query(lfical::Zone::utc(), from, to, lfical::Range::HalfOpen))
        if (store.uid(o.series) == uid)
            out.push_back(lfical::formatCivil(o.start, false) + "-" + lfical::formatCivil(o.end, false) + " " +
                          store.info(o.event).summary);
    return out;
}

class Beam : public ::testing::Test {
  protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(BeamStore());
        ASSERT_TRUE(StartProgram());
        store = UseTempStore(BeamStore());
        SwitchStore(store);
        ASSERT_TRUE(g_app.outlookApp);
    }
    std::wstring store;
};

// A series beamed reaches the outbox as one calendar with its zone, its moved occurrence and
// its deleted one, and whatever another program put in it: read back, it gives the same year.
TEST_F(Beam, SeriesArrivesWholeInTheOutbox)
{
    long review = OidOf(L"Team review", 2030, 1, 28);
    ASSERT_NE(review, 0);
    auto before = FilesIn(Outbox());
    EXPECT_EQ(BeamItem(review), 1);
    auto made = NewFiles(before);
    ASSERT_EQ(made.size(), 1u);
    const std::wstring &name = made[0];
    EXPECT_EQ(name.substr(0, 5), L"beam-");
    EXPECT_EQ(name.substr(name.size() - 4), L".ics");
    std::string text = ReadBytes(Outbox() + L"\\" + name);

    EXPECT_EQ(text.rfind("BEGIN:VCALENDAR\r\n", 0), 0u) << text;
    EXPECT_NE(text.find("\r\nVERSION:2.0\r\n"), std::string::npos);
    EXPECT_NE(text.find("\r\nPRODID:"), std::string::npos);
    EXPECT_EQ(CountOf(text, "BEGIN:VTIMEZONE"), 1u) << "only the zone the series uses";
    EXPECT_NE(text.find("TZID:Europe/Berlin"), std::string::npos);
    EXPECT_EQ(text.find("Atlantic/Unused"), std::string::npos);
    EXPECT_EQ(CountOf(text, "UID:review-1"), 2u) << "the series and its moved occurrence";
    EXPECT_EQ(text.find("UID:lunch-1"), std::string::npos);
    EXPECT_NE(text.find("X-OTHER-APP;X-KEEP=yes:kept as it was written\r\n"), std::string::npos);
    EXPECT_EQ(text.size() - text.rfind("END:VCALENDAR\r\n"), 15u) << "the calendar ends the file";

    auto sent = YearOf(AnsiPath(Outbox() + L"\\" + name), "review-1");
    auto kept = YearOf(AnsiPath(store), "review-1");
    EXPECT_EQ(sent, kept);
    EXPECT_EQ(kept.size(), 51u);
    // In UTC: 08:00 in winter, 07:00 in summer; the moved one on the Tuesday at 14:00.
    EXPECT_EQ(kept.size() > 1 ? kept[1] : "", "20300122T140000-20300122T150000 Team review (moved)");
    bool summer = false;
    for (const std::string &o : kept)
        summer = summer || o.rfind("20300701T070000", 0) == 0;
    EXPECT_TRUE(summer);

    // Nothing but the one file: no temporary left beside it.
    for (const std::wstring &f : FilesIn(Outbox()))
        EXPECT_EQ(f.substr(f.size() - 4), L".ics") << Narrow(f);
    DeleteFileW((Outbox() + L"\\" + name).c_str());
}

// The folder itself: an occurrence brings its series, a series added twice is sent once, and
// everything collected goes in one file; a null item or another kind of item is refused.
TEST_F(Beam, InfraredFolderCollectsThenSendsOneFile)
{
    ComPtr<IFolder> folder;
    ASSERT_EQ(g_app.outlookApp->GetDefaultFolder(olFolderInfrared, &folder), S_OK);
    EXPECT_EQ(folder->AddItemToInfraredFolder(olAppointmentItem, nullptr), E_INVALIDARG);
    ComPtr<IAppointment> lunch(FetchItem(OidOf(L"Lunch", 2030, 1, 28)));
    ASSERT_TRUE(lunch);
    EXPECT_EQ(folder->AddItemToInfraredFolder(olAppointmentItem + 1, lunch.get()), E_INVALIDARG);

    struct Context {
        IFolder *folder;
        int added;
    } context = {folder.get(), 0};
    SYSTEMTIME day = Day(2030, 1, 28), end = Day(2030, 1, 28);
    end.wHour = 24;
    QueryAppointments(day, end, RestrictOverlapClosed, [](IAppointment *item, void *c) {
        auto *ctx = static_cast<Context *>(c);
        VARIANT_BOOL recurring = VARIANT_FALSE;
        item->get_IsRecurring(&recurring);
        BSTR subject = nullptr;
        item->get_Subject(&subject);
        bool review = subject && !wcscmp(subject, L"Team review");
        FreeStoreString(subject);
        if (review && recurring) { // an occurrence, twice
            ctx->added += SUCCEEDED(ctx->folder->AddItemToInfraredFolder(olAppointmentItem, item));
            ctx->added += SUCCEEDED(ctx->folder->AddItemToInfraredFolder(olAppointmentItem, item));
        }
        return 1;
    }, &context);
    EXPECT_EQ(context.added, 2);
    EXPECT_EQ(folder->AddItemToInfraredFolder(olAppointmentItem, lunch.get()), S_OK);

    auto before = FilesIn(Outbox());
    EXPECT_EQ(folder->SendToInfrared(), S_OK);
    auto made = NewFiles(before);
    ASSERT_EQ(made.size(), 1u);
    std::string text = ReadBytes(Outbox() + L"\\" + made[0]);
    EXPECT_EQ(CountOf(text, "UID:review-1"), 2u);
    EXPECT_EQ(CountOf(text, "UID:lunch-1"), 1u);
    EXPECT_EQ(CountOf(text, "BEGIN:VCALENDAR"), 1u);
    EXPECT_EQ(YearOf(AnsiPath(Outbox() + L"\\" + made[0]), "lunch-1"),
              YearOf(AnsiPath(store), "lunch-1"));
    DeleteFileW((Outbox() + L"\\" + made[0]).c_str());

    // Sent, the folder is empty again: a second send makes no file.
    before = FilesIn(Outbox());
    EXPECT_EQ(folder->SendToInfrared(), S_FALSE);
    EXPECT_TRUE(NewFiles(before).empty());

    // The calendar folder does not beam.
    EXPECT_EQ(g_app.calendarFolder->AddItemToInfraredFolder(olAppointmentItem, lunch.get()), E_NOTIMPL);
}

// An appointment the store no longer has, and an outbox that cannot be made (a file where the
// folder belongs): nothing is beamed and no file, whole or partial, is left.
TEST_F(Beam, NothingGoesWhenTheItemOrTheOutboxIsMissing)
{
    auto before = FilesIn(Outbox());
    EXPECT_EQ(BeamItem(12345), 0);
    EXPECT_TRUE(NewFiles(before).empty());
    EXPECT_FALSE(g_app.outlookApp) << "the connection is let go, as after any failed fetch";
    EXPECT_EQ(BeamItem(12345), 0) << "and without one nothing is beamed";
    SwitchStore(store);

    long review = OidOf(L"Team review", 2030, 1, 28);
    ASSERT_NE(review, 0);
    std::wstring kept = AppDataFolder() + L"\\Outbox.kept";
    bool moved = GetFileAttributesW(Outbox().c_str()) != INVALID_FILE_ATTRIBUTES;
    if (moved) {
        ASSERT_TRUE(MoveFileW(Outbox().c_str(), kept.c_str()));
    }
    WriteBytes(Outbox(), "not a folder");
    auto around = FilesIn(AppDataFolder());
    EXPECT_EQ(BeamItem(review), 0);
    EXPECT_EQ(FilesIn(AppDataFolder()), around);
    EXPECT_EQ(ReadBytes(Outbox()), "not a folder");
    EXPECT_TRUE(g_app.outlookApp) << "a failed send keeps the connection";
    DeleteFileW(Outbox().c_str());
    if (moved)
        MoveFileW(kept.c_str(), Outbox().c_str());

    // The outbox made afresh when it is missing.
    RemoveDirectoryW(Outbox().c_str());
    if (GetFileAttributesW(Outbox().c_str()) == INVALID_FILE_ATTRIBUTES) {
        EXPECT_EQ(BeamItem(review), 1);
        auto made = FilesIn(Outbox());
        EXPECT_EQ(made.size(), 1u);
        for (const std::wstring &f : made)
            DeleteFileW((Outbox() + L"\\" + f).c_str());
        RemoveDirectoryW(Outbox().c_str());
    }
}

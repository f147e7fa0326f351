// The delete confirmation, run from the program's own template over the running program and
// its real calendar server, answered from inside its modal loop as the user answers it; and
// what DeleteItem then does to the store file with each answer.
#include "appointment/deleteconfirm.h"
#include "store/store_support.h"
#include "support/drive.h"
#include "support/errorboxes.h"
#include "resource.h"

#include <cstdlib>
#include <functional>
#include <string>

using namespace storetest;

static const std::string kLongSubject =
    "Quarterly planning with the regional leads, the finance team, facilities, and everyone "
    "else who asked to be invited at the last minute";

static std::string Event(const char *uid, const char *start, const char *end, const std::string &summary,
                         const char *extra = "")
{
    return std::string("BEGIN:VEVENT\r\nUID:") + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART:" + start +
           "\r\nDTEND:" + end + "\r\nSUMMARY:" + summary + "\r\n" + extra + "END:VEVENT\r\n";
}

// March 2030: a single appointment, a weekly series on Mondays, and one with a long subject.
static std::string ConfirmStore()
{
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields tests//EN\r\n" +
           Event("dentist-1", "20300312T090000", "20300312T100000", "Dentist") +
           Event("standup-1", "20300304T093000", "20300304T094500", "Standup",
                 "RRULE:FREQ=WEEKLY;COUNT=8\r\n") +
           Event("long-1", "20300313T140000", "20300313T150000", kLongSubject) + "END:VCALENDAR\r\n";
}

class DeleteConfirm : public ::testing::Test {
  protected:
    void SetUp() override
    {
        if (!g_app.hwndMain)
            UseTempStore(ConfirmStore());
        owner = StartProgram();
        ASSERT_TRUE(owner);
        if (!g_app.outlookApp) // a vanished appointment lets the connection go
            SwitchStore(UseTempStore(ConfirmStore()));
        ASSERT_EQ(g_app.storeLoggedOn, 1);
    }
    std::wstring FreshStore()
    {
        std::wstring path = UseTempStore(ConfirmStore());
        SwitchStore(path);
        return path;
    }
    static void ShowDay(int y, int m, int d)
    {
        g_app.shownYear = y;
        g_app.shownMonth = m;
        g_app.shownDay = d;
    }
    HWND owner = nullptr;
};

static const int kButtons[] = {IDC_DELETEOK, IDC_DELETECANCEL, IDC_DELETEONE, IDC_DELETESERIES,
                               IDC_DELETESERIESCANCEL};

static std::wstring TextOf(HWND dlg, int id)
{
    WCHAR text[512] = L"";
    GetDlgItemTextW(dlg, id, text, 512);
    return text;
}

static std::wstring Wide(const std::string &s)
{
    return std::wstring(s.begin(), s.end());
}

// A single appointment offers OK and Cancel, a series its occurrence, itself, or Cancel; each
// button ends the dialog with its answer, and Enter with the keyboard where it starts, on Cancel.
TEST_F(DeleteConfirm, OffersTheButtonsThatFitAndAnswersWithEach)
{
    long dentist = OidOf(L"Dentist", 2030, 3, 12);
    long standup = OidOf(L"Standup", 2030, 3, 11);
    ASSERT_NE(dentist, 0);
    ASSERT_NE(standup, 0);
    struct {
        const char *name;
        long oid;
        const wchar_t *subject, *question;
        bool series;
        int press; // a button, or 0 for the Enter key
        int answer;
    } cases[] = {
        {"single, OK", dentist, L"Dentist", L"Do you want to delete this appointment?", false, IDC_DELETEOK,
         CONFIRM_DELETE},
        {"single, Cancel", dentist, L"Dentist", L"Do you want to delete this appointment?", false,
         IDC_DELETECANCEL, CONFIRM_NOTHING},
        {"single, Enter", dentist, L"Dentist", L"Do you want to delete this appointment?", false, 0,
         CONFIRM_NOTHING},
        {"series, occurrence", standup, L"Standup", L"Do you want to delete this recurring appointment?", true,
         IDC_DELETEONE, CONFIRM_OCCURRENCE},
        {"series, all", standup, L"Standup", L"Do you want to delete this recurring appointment?", true,
         IDC_DELETESERIES, CONFIRM_SERIES},
        {"series, Cancel", standup, L"Standup", L"Do you want to delete this recurring appointment?", true,
         IDC_DELETESERIESCANCEL, CONFIRM_NOTHING},
        {"series, Enter", standup, L"Standup", L"Do you want to delete this recurring appointment?", true, 0,
         CONFIRM_NOTHING},
    };
    for (const auto &c : cases) {
        INT_PTR answer = RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, c.oid); },
                                     [&](HWND dlg) {
                                         for (int id : kButtons) {
                                             bool forSeries = id == IDC_DELETEONE || id == IDC_DELETESERIES ||
                                                              id == IDC_DELETESERIESCANCEL;
                                             EXPECT_EQ(IsWindowVisible(GetDlgItem(dlg, id)) != 0,
                                                       forSeries == c.series)
                                                 << c.name << ": button " << id;
                                         }
                                         EXPECT_EQ(TextOf(dlg, IDC_DELETESUBJECT), c.subject) << c.name;
                                         EXPECT_EQ(TextOf(dlg, IDC_DELETEQUESTION), c.question) << c.name;
                                         if (c.press)
                                             Click(dlg, c.press);
                                         else
                                             Key(GetFocus(), VK_RETURN);
                                     });
        EXPECT_EQ(answer, c.answer) << c.name;
    }
    // The two-line buttons read as the template has them.
    RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, standup); },
                [&](HWND dlg) {
                    EXPECT_EQ(TextOf(dlg, IDC_DELETEONE), L"Single\nOccurance");
                    EXPECT_EQ(TextOf(dlg, IDC_DELETESERIES), L"Entire\nSeries");
                    EXPECT_EQ(GetWindowLongW(GetDlgItem(dlg, IDC_DELETEONE), GWL_STYLE) & BS_MULTILINE,
                              BS_MULTILINE);
                    Click(dlg, IDC_DELETESERIESCANCEL);
                });
}

// A long subject is shown cut to the dialog's 109 characters; the band, its title, the bin and
// the subject's dark red on white are painted where they belong.
TEST_F(DeleteConfirm, PaintsTheBandTheBinAndTheCutSubject)
{
    long longOne = OidOf(Wide(kLongSubject).c_str(), 2030, 3, 13);
    ASSERT_NE(longOne, 0);
    ASSERT_GT(kLongSubject.size(), 109u);
    RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, longOne); }, [&](HWND dlg) {
        EXPECT_EQ(TextOf(dlg, IDC_DELETESUBJECT), Wide(kLongSubject.substr(0, 109)));

        Picture p = PaintClient(dlg);
        ASSERT_GT(p.width, 100);
        const COLORREF blue = 0x960000, white = 0xFFFFFF;
        int bandBlue = 0, bandWhite = 0;
        for (int y = 0; y < 15; y++)
            for (int x = 0; x < p.width; x++) {
                bandBlue += p.At(x, y) == blue;
                bandWhite += p.At(x, y) == white;
            }
        EXPECT_GT(bandBlue, p.width * 15 / 2) << "the band is dark blue";
        EXPECT_GT(bandWhite, 20) << "its title is white";
        for (int x = 0; x < p.width; x += 7) {
            EXPECT_EQ(p.At(x, 0), blue) << x;
            EXPECT_NE(p.At(x, 15), blue) << "the band ends after 15 pixels, at x " << x;
        }
        // The title is centred: as much blue left of its first white pixel as right of its last.
        int first = p.width, last = -1;
        for (int y = 0; y < 15; y++)
            for (int x = 0; x < p.width; x++)
                if (p.At(x, y) == white) {
                    first = x < first ? x : first;
                    last = x > last ? x : last;
                }
        EXPECT_LE(abs(first - (p.width - 1 - last)), 6) << first << " .. " << last;
        // The bin's outline starts at (12, 28) and its transparent corners show the face colour.
        const COLORREF outline = RGB(0x2D, 0x37, 0x40), body = RGB(0x8C, 0x9B, 0xAA);
        int bodyPixels = 0;
        for (int y = 28; y < 52; y++)
            for (int x = 12; x < 36; x++)
                bodyPixels += p.At(x, y) == body;
        EXPECT_GT(bodyPixels, 100);
        EXPECT_EQ(p.At(12 + 2, 28 + 5), outline);
        EXPECT_EQ(p.At(12, 28), GetSysColor(COLOR_BTNFACE));
        EXPECT_EQ(p.Count(RGB(0xFF, 0x00, 0xFF)), 0);

        Picture s = PaintClient(GetDlgItem(dlg, IDC_DELETESUBJECT));
        EXPECT_GT(s.Count(RGB(150, 0, 0)), 50) << "the subject is dark red";
        EXPECT_GT(s.Count(white), s.width * s.height / 2) << "on white";
        Click(dlg, IDC_DELETECANCEL);
    });
}

// An appointment the store no longer has: the dialog says so and ends with "nothing".
TEST_F(DeleteConfirm, VanishedAppointmentSaysSoAndAnswersNothing)
{
    std::wstring text, caption;
    HWND boxOwner = nullptr;
    WCHAR ownerClass[32] = L"";
    bool confirmShown = false;
    INT_PTR answer = RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, 12345); },
                                 [&](HWND box) {
                                     WCHAR title[64] = L"";
                                     GetWindowTextW(box, title, 64);
                                     caption = title;
                                     text = MessageBoxText(box);
                                     boxOwner = GetWindow(box, GW_OWNER);
                                     GetClassNameW(boxOwner, ownerClass, 32);
                                     confirmShown = boxOwner && IsWindowVisible(boxOwner);
                                     Click(box, IDOK);
                                 });
    EXPECT_EQ(answer, CONFIRM_NOTHING);
    EXPECT_EQ(text, L"Error in getting appointment info");
    EXPECT_EQ(caption, L"Error");
    EXPECT_STREQ(ownerClass, L"#32770") << "the box belongs to the confirmation";
    EXPECT_FALSE(confirmShown);
}

// Each answer handed to DeleteItem, on a fresh copy of the store, read back from the file.
TEST_F(DeleteConfirm, DeleteItemDoesWhatTheAnswerSays)
{
    struct {
        const char *name;
        const wchar_t *subject;
        int press;
        const char *gone;       // a UID no longer in the file
        const char *exdate;     // an EXDATE now in the file
        bool unchanged;
    } cases[] = {
        {"single, OK", L"Dentist", IDC_DELETEOK, "UID:dentist-1", nullptr, false},
        {"single, Cancel", L"Dentist", IDC_DELETECANCEL, nullptr, nullptr, true},
        {"series, occurrence", L"Standup", IDC_DELETEONE, nullptr, "EXDATE:20300318T093000", false},
        {"series, all", L"Standup", IDC_DELETESERIES, "UID:standup-1", nullptr, false},
        {"series, Cancel", L"Standup", IDC_DELETESERIESCANCEL, nullptr, nullptr, true},
    };
    for (const auto &c : cases) {
        std::wstring path = FreshStore();
        std::string before = ReadBytes(path);
        ShowDay(2030, 3, c.subject == std::wstring(L"Dentist") ? 12 : 18);
        long oid = OidOf(c.subject, 2030, 3, g_app.shownDay);
        ASSERT_NE(oid, 0) << c.name;
        int answer = (int)RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, oid); },
                                      [&](HWND dlg) { Click(dlg, c.press); });
        if (answer != CONFIRM_NOTHING)
            DeleteItem(oid, answer);
        std::string after = ReadBytes(path);
        if (c.unchanged) {
            EXPECT_EQ(after, before) << c.name;
        }
        if (c.gone) {
            EXPECT_NE(before.find(c.gone), std::string::npos) << c.name;
            EXPECT_EQ(after.find(c.gone), std::string::npos) << c.name;
        }
        if (c.exdate) {
            EXPECT_NE(after.find(c.exdate), std::string::npos) << c.name << ":\n" << after;
            EXPECT_NE(after.find("UID:standup-1"), std::string::npos) << c.name;
            EXPECT_EQ(OidOf(L"Standup", 2030, 3, 18), 0) << c.name;
            EXPECT_EQ(OidOf(L"Standup", 2030, 3, 25), oid) << c.name;
        }
        // The others are untouched.
        for (const char *uid : {"UID:dentist-1", "UID:standup-1", "UID:long-1"})
            if (!c.gone || strcmp(uid, c.gone)) {
                EXPECT_NE(after.find(uid), std::string::npos) << c.name << ": " << uid;
            }
    }
}

// Opened and closed many times, alternately for a single appointment and a series and painted
// each time, the dialog gives back every drawing object it made.
TEST_F(DeleteConfirm, NoDrawingObjectsLostOverManyOpenings)
{
    long dentist = OidOf(L"Dentist", 2030, 3, 12);
    long standup = OidOf(L"Standup", 2030, 3, 11);
    ASSERT_NE(dentist, 0);
    ASSERT_NE(standup, 0);
    auto cycle = [&](int i) {
        bool series = i % 2 != 0;
        RunUnshown([&] { return (INT_PTR)ConfirmDelete(owner, series ? standup : dentist); },
                   [&](HWND dlg) {
                       PaintClient(dlg);
                       PaintClient(GetDlgItem(dlg, IDC_DELETESUBJECT));
                       int cancel = series ? IDC_DELETESERIESCANCEL : IDC_DELETECANCEL;
                       SendMessageW(dlg, WM_COMMAND, MAKEWPARAM(cancel, BN_CLICKED),
                                    (LPARAM)GetDlgItem(dlg, cancel));
                   });
    };
    cycle(0);
    cycle(1);
    int before = CountGdiObjects();
    std::string summary = GdiObjectSummary();
    for (int i = 0; i < 60; i++)
        cycle(i);
    EXPECT_EQ(CountGdiObjects(), before) << "before: " << summary << " after: " << GdiObjectSummary();
}

// ---- screenshots -------------------------------------------------------------------------

// Both layouts, for looking at: run with LF_SHOTS naming a folder (a Windows path); without it
// the test is skipped.
TEST_F(DeleteConfirm, Screenshots)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    struct {
        const char *name;
        const wchar_t *subject;
        int day, cancel;
    } shots[] = {
        {"deleteconfirm-single", L"Dentist", 12, IDC_DELETECANCEL},
        {"deleteconfirm-series", L"Standup", 11, IDC_DELETESERIESCANCEL},
        {"deleteconfirm-long", nullptr, 13, IDC_DELETECANCEL},
    };
    std::wstring longSubject = Wide(kLongSubject);
    for (const auto &s : shots) {
        long oid = OidOf(s.subject ? s.subject : longSubject.c_str(), 2030, 3, s.day);
        ASSERT_NE(oid, 0) << s.name;
        RunScripted([&] { return (INT_PTR)ConfirmDelete(owner, oid); }, [&](HWND dlg) {
            Pump(300);
            EXPECT_TRUE(SaveScreenShot({dlg}, ShotPath(s.name))) << s.name;
            Click(dlg, s.cancel);
        });
    }
}

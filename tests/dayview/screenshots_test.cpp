// Screenshots of the day view and the notes popup, for looking at: run with LF_SHOTS set to a
// folder (a Windows path) and the shots are written there as .bmp, named by the locale.
// Without it the test is skipped.
#include "daystore.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "common/appstate.h"

#include <commctrl.h>
#include <cstdlib>
#include <gtest/gtest.h>

TEST(Screenshots, DayViewAndNotes)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    HWND hwnd = StartOnDayStore();
    ASSERT_TRUE(hwnd);
    RedrawAndWait();
    g_app.settings.showlocation = 1;
    g_app.settings.wrapsubject = 1;
    RunDayView(kBusyDay, [&](HWND dlg, HWND list) {
        // Lunch selected, with its location's row.
        for (int row = 0; row < RowCount(list); row++)
            if (CellText(list, row, 2) == L"Lunch") {
                RECT rc = RowRect(list, row);
                Tap(list, 150, (rc.top + rc.bottom) / 2);
            }
        Pump(300);
        EXPECT_TRUE(SaveScreenShot({dlg}, ShotPath("dayview")));
        // The notes of the appointment with the alarm and the notes.
        for (int row = 0; row < RowCount(list); row++) {
            if (CellText(list, row, 2) != L"Breakfast")
                continue;
            RECT rc = RowRect(list, row);
            int x = ColumnWidth(list, 0) + 5;
            RunScripted(
                [&] {
                    Tap(list, x, (rc.top + rc.bottom) / 2);
                    return (INT_PTR)0;
                },
                [&](HWND notes) {
                    Pump(300);
                    EXPECT_TRUE(SaveScreenShot({dlg, notes}, ShotPath("notes")));
                    Tap(notes, 20, 20);
                });
        }
    });
    ResetDaySettings();
}

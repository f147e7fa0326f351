// The one record of the program's runtime state. Every window, dialog and
// the rendering thread read and write its fields directly; each group of
// fields names the code that owns it.
#pragma once

#include <windows.h>
#include <vector>
#include "calendar/datecalc.h"

struct IPOutlookApp;
struct IFolder;
struct CategoryProps;
struct CategoryName;
struct CategoryLook;

enum { VIEW_MONTH = 0, VIEW_DAY = 1, VIEW_YEAR = 2 };
enum { RENDER_REQUESTED = 100, RENDER_DRAWING = 101, RENDER_SHOWN = 102 };

const int ICON_SLOTS = 48;
const int ICON_LABEL_LEN = 15;
const int BUILTIN_ICONS = 39;

// Display settings, each named by its registry value.
struct AppSettings {
    DWORD cleartype, showdays, colorexpired, showindicator, showfree;
    DWORD showholiday, showlocation, wrapsubject, showweeknumber, coloryearview;
    DWORD timeA, timeB, timeC, timeD;
    DWORD rowcolorindex, calendarcolorstyle;
    COLORREF textcolor, locationcolor, row1color, row2color, month1color;
    COLORREF month2color, todaycolor, alldaycolor, datecolor;
    DWORD alarmflag;
    DWORD displayIcon[ICON_SLOTS];
    WCHAR displayIconString[ICON_SLOTS][ICON_LABEL_LEN];
    SYSTEMTIME defaultStartTime, defaultEndTime;
    double bandA, bandB, bandC, bandD; // timeA..timeD as fractions of a day
};

// The go-to-date popup's state (dayview/gotodate.cpp), which is also its dialog record: the
// calendar control, the date the popup was opened with, packed, and that date decoded. Kept for
// the life of the popup only.
struct GoToDatePopup {
    HWND calendar;
    int packed;
    int year, month, day;
};

struct AppState {
    // Main window and start-up (shell/mainwnd.cpp, shell/startup.cpp). Start-up sets today's
    // date and the shown dates from the local date.
    HINSTANCE hInstance;
    HWND hwndMain;
    HWND hwndMenuBar;
    int clientWidth, clientHeight;
    int viewMode;
    int viewYear, viewMonth, viewDay;
    int savedViewYear, savedViewMonth;
    HWND yearTipLabel;
    WCHAR monthNames[12][20];
    SYSTEMTIME todayStamp;
    int todayYear, todayMonth, todayDay;
    int shownYear, shownMonth, shownDay;    // the day view's date
    int storeOpen;
    HCURSOR waitOldCursor;                  // common/cursor.cpp

    // Rendering thread and back buffer (shell/render.cpp).
    CRITICAL_SECTION renderLock;
    HANDLE hRenderEvent;
    volatile LONG renderState;
    HDC backDC;             // only the rendering thread draws with it
    HBITMAP backBitmap;     // a 32-bit top-down DIB section
    HBITMAP backOldBitmap;
    void *backBits;         // its pixels, which the UI thread copies
    int backWidth, backHeight;
    volatile LONG renderPasses;   // passes begun and ended; the tests and
    volatile LONG renderDone;     // the benchmark wait on these

    // Stylus, keys and timers (shell/input.cpp).
    int tapX, tapY;
    int tapCellX, tapCellY;
    DWORD selectedDate;
    int tapAnimStep;
    int keyReady;

    // Day popup (dayview/daypopup.cpp): its drawing objects, made when it opens and deleted,
    // and cleared, when it goes.
    HBRUSH popupBrush;
    HPEN popupPen;
    HFONT popupListFont;
    HFONT popupTitleFont;
    HBITMAP popupTitleBitmap;
    HRGN popupRegion;       // the balloon's shape; the window holds a copy of its own

    // Store connection (store/).
    IPOutlookApp *outlookApp;
    IFolder *calendarFolder;
    int storeLoggedOn;

    // Settings and what the settings load brings with it (settings/).
    AppSettings settings;
    HBITMAP bmpBackground;  // month strip background
    HBITMAP bmpAlarm;       // day list markers
    HBITMAP bmpNotes;
    HBITMAP bmpIcons;       // built-in category icons
    HBITMAP bmpYearPrev;    // year view arrows and badge
    HBITMAP bmpYearNext;
    HBITMAP bmpBadge;
    HBITMAP userIconsBitmap;
    int userIconsPresent;
    int iconCount;

    // Categories (settings/categoryprops.cpp): the stored colours and icons, the device's
    // category names and, for each name, its look; loaded at start-up and again after the
    // Category page's OK, freed at exit. The day list colours its rows from the merged looks.
    CategoryProps *categoryProps;
    int categoryCount;
    CategoryName *deviceCategories;
    CategoryLook *mergedCategories; // one per device name
    int deviceCategoryCount;

    // Year view (month/yearview.cpp): the days of yearDataYear that hold
    // appointments (bit d - 1 of a month's word for day d) and whether the
    // year holds any. Written by the UI thread under renderLock only.
    int yearDataYear;
    DWORD yearBusyDays[12];
    int yearBadge;

    // Day view (dayview/dayview.cpp): the dialog, its header and the painting of its rows.
    HWND dayList;           // its list control; each row's item data is an OID
    int dayViewParam;       // the day it was opened with, less 100 for a neighbouring month's
    int savedViewMode;      // viewMode as it was on opening; put back on closing
    HFONT dayListFont;
    HBITMAP dayHeaderBitmap;
    int dayViewDirty;          // the store may have changed: the month is redrawn on closing
    WNDPROC dayListPrevProc;   // the list's own procedure, behind the gestures' subclass
    COLORREF lastRowTextColor; // the row painted last; its continuation rows keep its colour
    COLORREF lastRowBackColor;
    LPARAM prevRowItem, curRowItem;
    HFONT savedRowFont; // the list's font while the "No Appointments" row is in bold
    float timeBandMorningEnd, timeBandAfternoonEnd; // timeB, timeC as day fractions

    // Day list rows (dayview/daylist.cpp), rebuilt by every fill, one entry per list row.
    std::vector<OleDate> rowStart; // its appointment's start
    std::vector<DWORD> rowParity;  // 1: row1color when the rows alternate
    std::vector<COLORREF> rowCategoryColor;

    // Day list gestures (dayview/daygestures.cpp).
    int selectedRow;          // -1: none, something to paste; -2: none, nothing to paste
    POINT lastTapPoint;       // the last stylus-down in the list, in its client pixels
    long copiedItem, cutItem; // the day list's clipboard; at most one is non-zero
    int clipMonth, clipDay, clipYear; // the day shown when it was copied or cut
    long editItem; // the appointment the next New command edits; 0: a new one

    // Go-to-date popup (dayview/gotodate.cpp).
    GoToDatePopup goToDate; // while the go-to-date popup is open
};

extern AppState g_app;

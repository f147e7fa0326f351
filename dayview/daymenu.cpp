// The day list's context menu and its commands. The clipboard (an appointment copied or cut,
// with the day it was taken from) outlives the day view, so a copy made on one day can be
// pasted into another opened later.
#include "daymenu.h"
#include "daylist.h"
#include "appointment/deleteconfirm.h"
#include "common/appstate.h"
#include "common/messages.h"
#include "resource.h"
#include "store/store.h"

#include <commctrl.h>

// Where the menu opens when the stylus was held on empty space.
const POINT EMPTY_SPACE_MENU_AT = {100, 100};

void ShowDayListMenu(HWND dlg, POINT at)
{
    HMENU menu = LoadMenuW(g_app.hInstance, MAKEINTRESOURCEW(IDM_DAYLIST));
    if (!menu)
        return;
    HMENU popup = GetSubMenu(menu, 0);
    if (!popup) {
        DestroyMenu(menu);
        return;
    }
    if (g_app.copiedItem || g_app.cutItem)
        EnableMenuItem(popup, IDM_PASTE, MF_BYCOMMAND | MF_ENABLED);
    if (g_app.selectedRow == -1 || g_app.selectedRow == -2) {
        // Nothing selected: only what needs no appointment. Beam stays, and then fails with
        // its message.
        for (UINT id : {IDM_CUT, IDM_COPY, IDM_DELETE, IDM_EDIT})
            EnableMenuItem(popup, id, MF_BYCOMMAND | MF_GRAYED);
        if (g_app.selectedRow == -2)
            EnableMenuItem(popup, IDM_PASTE, MF_BYCOMMAND | MF_GRAYED);
        at = EMPTY_SPACE_MENU_AT;
    }
    // The point is in the list's pixels but placed as the dialog's: the menu opens a little
    // above and to the left of the stylus, clear of the held appointment.
    ClientToScreen(dlg, &at);
    TrackPopupMenuEx(popup, 0, at.x, at.y, dlg, nullptr);
    DestroyMenu(menu);
}

static long SelectedItem()
{
    return (long)DayRowItem(g_app.dayList, g_app.selectedRow);
}

static void TakeToClipboard(long *kept, long *dropped)
{
    *kept = SelectedItem();
    *dropped = 0;
    g_app.clipMonth = g_app.shownMonth;
    g_app.clipDay = g_app.shownDay;
    g_app.clipYear = g_app.shownYear;
}

static void CmdCopy(HWND)
{
    TakeToClipboard(&g_app.copiedItem, &g_app.cutItem);
}

// Nothing goes yet: the appointment moves when it is pasted.
static void CmdCut(HWND)
{
    TakeToClipboard(&g_app.cutItem, &g_app.copiedItem);
}

static void RefreshMain(HWND dlg)
{
    SendMessageW(GetParent(dlg), WM_REFRESH_DAY, 0, 0);
}

// A copied appointment can be pasted into one day after another; a cut one moves once.
static void CmdPaste(HWND dlg)
{
    if (g_app.clipMonth == g_app.shownMonth && g_app.clipDay == g_app.shownDay &&
        g_app.clipYear == g_app.shownYear) {
        MessageBoxW(dlg, L"Cannot copy into same day", L"Error", MB_OK);
        return;
    }
    if (g_app.copiedItem)
        CopyItemToDay(g_app.copiedItem, 0, g_app.shownMonth, g_app.shownDay, g_app.shownYear, g_app.clipMonth,
                      g_app.clipDay, g_app.clipYear);
    if (g_app.cutItem)
        CopyItemToDay(g_app.cutItem, 1, g_app.shownMonth, g_app.shownDay, g_app.shownYear, g_app.clipMonth,
                      g_app.clipDay, g_app.clipYear);
    RefreshMain(dlg);
    g_app.cutItem = 0;
    g_app.dayViewDirty = 1;
}

// The confirmation reads the subject itself, and says so when the appointment has gone from
// the store since the list was filled; nothing is deleted then.
static void CmdDelete(HWND dlg)
{
    long item = SelectedItem();
    int mode = ConfirmDelete(dlg, item);
    if (mode != CONFIRM_NOTHING)
        DeleteItem(item, mode);
    RefreshMain(dlg);
}

static void OpenEditor(HWND dlg, long item)
{
    g_app.editItem = item;
    SendMessageW(GetParent(dlg), WM_COMMAND, IDM_NEW, 0);
}

static void CmdEdit(HWND dlg)
{
    OpenEditor(dlg, SelectedItem());
}

static void CmdNew(HWND dlg)
{
    OpenEditor(dlg, 0);
}

static void CmdBeam(HWND dlg)
{
    if (!BeamItem(SelectedItem()))
        MessageBoxW(dlg, L"Could not beam appointment", L"Error", MB_OK);
}

struct MenuCommand {
    int id;
    void (*run)(HWND dlg);
};

static const MenuCommand kDayListCommands[] = {
    {IDM_COPY, CmdCopy},     {IDM_CUT, CmdCut},   {IDM_PASTE, CmdPaste},   {IDM_DELETE, CmdDelete},
    {IDM_EDIT, CmdEdit},     {IDM_NEWITEM, CmdNew}, {IDM_BEAM, CmdBeam},
};

INT_PTR DayViewCommand(HWND dlg, int id, int, HWND)
{
    for (const MenuCommand &c : kDayListCommands)
        if (c.id == id)
            c.run(dlg);
    return TRUE;
}

// The menu bar as a toolbar along the bottom of the main window. Button
// clicks reach the main window as WM_COMMAND with the button's id, exactly
// as the handheld's menu bar sends them; a button that stands for a popup
// drops its menu and the chosen item's command is sent the same way.
#include "aygshell.h"

#include <commctrl.h>

static const WCHAR kSinkClass[] = L"LanternfieldsMenuBarSink";
static const WCHAR kMenuProp[] = L"LanternfieldsMenuBarMenu";

// The toolbar's notifications go to a hidden window of our own, so the
// program's window never sees toolbar notifications it does not expect;
// the sink turns them into the commands the program does expect.
static LRESULT CALLBACK SinkProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == WM_COMMAND && lp) {
        HWND bar = (HWND)lp;
        return SendMessageW(GetParent(bar), WM_COMMAND, wp, lp);
    }
    if (msg == WM_NOTIFY) {
        NMHDR *hdr = (NMHDR *)lp;
        if (hdr->code == TBN_DROPDOWN) {
            NMTOOLBARW *nm = (NMTOOLBARW *)lp;
            HWND bar = hdr->hwndFrom;
            HMENU popup = MenuBarSubMenu(bar, nm->iItem);
            if (!popup)
                return TBDDRET_NODEFAULT;
            RECT rc;
            SendMessageW(bar, TB_GETRECT, nm->iItem, (LPARAM)&rc);
            MapWindowPoints(bar, HWND_DESKTOP, (POINT *)&rc, 2);
            HWND owner = GetParent(bar);
            UINT cmd = (UINT)TrackPopupMenu(popup, TPM_RETURNCMD | TPM_LEFTALIGN | TPM_BOTTOMALIGN,
                                            rc.left, rc.top, 0, owner, nullptr);
            if (cmd)
                PostMessageW(owner, WM_COMMAND, MAKEWPARAM(cmd, 0), 0);
            return TBDDRET_DEFAULT;
        }
        return 0;
    }
    return DefWindowProcW(hwnd, msg, wp, lp);
}

static HWND MenuBarSink(HINSTANCE inst)
{
    static HWND sink;
    if (sink && IsWindow(sink))
        return sink;
    WNDCLASSW wc = {};
    wc.lpfnWndProc = SinkProc;
    wc.hInstance = inst;
    wc.lpszClassName = kSinkClass;
    RegisterClassW(&wc);
    sink = CreateWindowW(kSinkClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, inst, nullptr);
    return sink;
}

static LRESULT CALLBACK BarSubclass(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR id, DWORD_PTR)
{
    if (msg == WM_NCDESTROY) {
        HMENU menu = (HMENU)RemovePropW(hwnd, kMenuProp);
        if (menu)
            DestroyMenu(menu);
        RemoveWindowSubclass(hwnd, BarSubclass, id);
    }
    return DefSubclassProc(hwnd, msg, wp, lp);
}

HMENU MenuBarSubMenu(HWND bar, UINT command)
{
    HMENU menu = (HMENU)GetPropW(bar, kMenuProp);
    if (!menu)
        return nullptr;
    int count = (int)SendMessageW(bar, TB_BUTTONCOUNT, 0, 0);
    for (int i = 0; i < count; i++) {
        TBBUTTON b = {};
        SendMessageW(bar, TB_GETBUTTON, i, (LPARAM)&b);
        if (b.dwData == 0)
            continue; // buttons the program added itself
        if ((UINT)b.idCommand == command)
            return GetSubMenu(menu, (int)b.dwData - 1);
    }
    return nullptr;
}

// The command ids of the bar's positions, from the RCDATA that shares the
// menu's number: WORD count, then count WORD ids.
static int ReadBarCommands(HINSTANCE inst, UINT id, WORD *ids, int max)
{
    HRSRC res = FindResourceW(inst, MAKEINTRESOURCEW(id), (LPCWSTR)RT_RCDATA);
    if (!res)
        return 0;
    DWORD size = SizeofResource(inst, res);
    const WORD *data = (const WORD *)LockResource(LoadResource(inst, res));
    if (!data || size < 2)
        return 0;
    int n = data[0];
    if (n > max)
        n = max;
    if ((DWORD)(n + 1) * 2 > size)
        n = (int)(size / 2) - 1;
    for (int i = 0; i < n; i++)
        ids[i] = data[i + 1];
    return n;
}

BOOL SHCreateMenuBar(SHMENUBARINFO *info)
{
    if (!info || info->cbSize < sizeof(DWORD) * 4 || !IsWindow(info->hwndParent))
        return FALSE;
    info->hwndMB = nullptr;
    HINSTANCE inst = info->hInstRes;
    HMENU menu = LoadMenuW(inst, MAKEINTRESOURCEW(info->nToolBarId));
    if (!menu)
        return FALSE;
    WORD ids[16];
    int idCount = ReadBarCommands(inst, info->nToolBarId, ids, 16);

    RECT rc;
    GetClientRect(info->hwndParent, &rc);
    HWND bar = CreateWindowExW(0, TOOLBARCLASSNAMEW, L"",
                               WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | TBSTYLE_FLAT | TBSTYLE_LIST |
                                   CCS_NOPARENTALIGN | CCS_NORESIZE | CCS_NODIVIDER,
                               0, rc.bottom - MENUBAR_HEIGHT, rc.right - rc.left, MENUBAR_HEIGHT,
                               info->hwndParent, (HMENU)(INT_PTR)MENUBAR_ID, inst, nullptr);
    if (!bar) {
        DestroyMenu(menu);
        return FALSE;
    }
    SendMessageW(bar, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    SendMessageW(bar, TB_SETPARENT, (WPARAM)MenuBarSink(inst), 0);
    SendMessageW(bar, TB_SETEXTENDEDSTYLE, 0, TBSTYLE_EX_DRAWDDARROWS);
    SendMessageW(bar, TB_SETBITMAPSIZE, 0, MAKELPARAM(MENUBAR_IMAGE_SIZE, MENUBAR_IMAGE_SIZE));
    SetPropW(bar, kMenuProp, menu);
    SetWindowSubclass(bar, BarSubclass, 1, 0);

    if (info->nBmpId && info->cBmpImages > 0) {
        TBADDBITMAP ab = {inst, (UINT_PTR)info->nBmpId};
        SendMessageW(bar, TB_ADDBITMAP, info->cBmpImages, (LPARAM)&ab);
    }

    int items = GetMenuItemCount(menu);
    for (int i = 0; i < items; i++) {
        WCHAR text[64] = L"";
        GetMenuStringW(menu, i, text, 64, MF_BYPOSITION);
        HMENU sub = GetSubMenu(menu, i);
        UINT cmd = i < idCount ? ids[i] : GetMenuItemID(menu, i);
        TBBUTTON b = {};
        b.iBitmap = I_IMAGENONE;
        b.idCommand = (int)cmd;
        b.fsState = TBSTATE_ENABLED;
        b.fsStyle = BTNS_AUTOSIZE | BTNS_SHOWTEXT | (sub ? BTNS_WHOLEDROPDOWN : BTNS_BUTTON);
        b.dwData = (DWORD_PTR)(i + 1); // menu position + 1 marks a button of the resource
        b.iString = (INT_PTR)text;
        SendMessageW(bar, TB_ADDBUTTONSW, 1, (LPARAM)&b);
    }
    SendMessageW(bar, TB_SETBUTTONSIZE, 0, MAKELPARAM(MENUBAR_IMAGE_SIZE + 8, MENUBAR_HEIGHT - 2));
    info->hwndMB = bar;
    return TRUE;
}

// Desktop stand-ins for the handheld shell calls the program uses, with the
// handheld's signatures so the program's code reads as it would there.
#pragma once

#include <windows.h>
#include <commctrl.h>

// Menu bar. On the desktop it is a real toolbar control docked along the
// bottom 24 pixels of its parent's client area.
struct SHMENUBARINFO {
    DWORD cbSize;
    HWND hwndParent;
    DWORD dwFlags;
    UINT nToolBarId;
    HINSTANCE hInstRes;
    int nBmpId;
    int cBmpImages;
    HWND hwndMB;
    COLORREF clrBk;
};

const int MENUBAR_HEIGHT = 24;
const int MENUBAR_ID = 0x7A11;         // child id of the toolbar
const int MENUBAR_IMAGE_SIZE = 16;     // button images are 16 x 16

// The menu-bar resource: a MENU of that number names the buttons and their
// popups; an RCDATA of the same number gives, per top-level position, the
// command id its button sends (a popup's button needs one of its own).
BOOL SHCreateMenuBar(SHMENUBARINFO *info);
// The popup menu dropped by the menu-bar button with that command id.
HMENU MenuBarSubMenu(HWND hwndMB, UINT command);

// The input panel: the desktop has none, so showing or hiding it does nothing and succeeds.
const DWORD SIPF_OFF = 0x00000000;
const DWORD SIPF_ON = 0x00000001;
BOOL SipShowIM(DWORD flags);

struct SHINITDLGINFO {
    DWORD dwMask;
    HWND hDlg;
    DWORD dwFlags;
};
BOOL SHInitDialog(SHINITDLGINFO *info);
// The application area that full-screen dialogs fill.
void AppAreaRect(RECT *rc);

HBITMAP SHLoadDIBitmap(LPCWSTR path);

BOOL TransparentImage(HDC dst, int dx, int dy, int dw, int dh, HANDLE src,
                      int sx, int sy, int sw, int sh, COLORREF transparent);

const DWORD EVENT_SET = 3;
BOOL EventModify(HANDLE event, DWORD action);

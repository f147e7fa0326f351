// The notes popup: a pale balloon whose tail points at the tap that opened it, sized to the
// notes up to a limit, beyond which they scroll. It shows; it does not edit. A tap anywhere on
// it (but its scroll bar), Enter or Escape, or turning to another window closes it. It is
// placed below the tap, or above it when the screen ends first, and never leaves the screen.
//
// The notes are broken into lines once and only the lines in sight are drawn, so notes of any
// length open at once: a text control lays out its whole text again for every change, which
// for long notes takes many seconds.
#include "notes.h"
#include "daylist.h"
#include "common/appstate.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "store/store.h"
#include "resource.h"

#include <string>
#include <vector>

struct NotesLine {
    int start, length;
};

struct NotesData {
    std::wstring text;
    std::vector<NotesLine> lines;
    POINT tip; // the tap, on the screen
    HFONT font;
    HBRUSH fill;
    int width, height; // the window's
    int tipX;          // the tail's tip along the top or bottom edge
    bool tailAbove;    // the balloon hangs below the tap
    int lineHeight, shownLines, firstLine;
};

const int BALLOON_W = 176;
const int TAIL_H = 8, TAIL_HALF = 6, CORNER = 12, MARGIN = 7;
const int MOST_LINES = 12; // longer notes scroll
const int WHEEL_LINES = 3;
const COLORREF NOTES_FILL = 0xE1FFFF; // pale yellow
const COLORREF NOTES_EDGE = 0x505050;
const COLORREF NOTES_TEXT = 0x000000;

// Lines end at the store's line breaks (LF, CR or both) and wrap at the text's width.
static std::vector<NotesLine> BreakNotes(HDC dc, const std::wstring &text, int width)
{
    std::vector<NotesLine> lines;
    int n = (int)text.size(), pos = 0;
    while (pos <= n) {
        int end = pos;
        while (end < n && text[end] != L'\r' && text[end] != L'\n')
            end++;
        if (end == pos)
            lines.push_back({pos, 0});
        for (int at = pos; at < end;) {
            int next = 0;
            int shown = BreakRow(dc, text.c_str() + at, end - at, width, &next);
            lines.push_back({at, shown});
            at += next;
        }
        if (end == n)
            break;
        pos = end + (text[end] == L'\r' && end + 1 < n && text[end + 1] == L'\n' ? 2 : 1);
        if (pos == n) // a final line break ends the last line; it starts no new one
            break;
    }
    return lines;
}

// Tabs and other control characters show as blanks.
static std::wstring ShownText(const std::wstring &notes)
{
    std::wstring s = notes;
    for (WCHAR &c : s)
        if (c < L' ' && c != L'\r' && c != L'\n')
            c = L' ';
    return s;
}

// The body of the balloon, a rounded rectangle, with the tail towards the tap.
static HRGN BalloonRegion(const NotesData *d)
{
    int top = d->tailAbove ? TAIL_H : 0;
    int bottom = d->tailAbove ? d->height : d->height - TAIL_H;
    HRGN body = CreateRoundRectRgn(0, top, d->width + 1, bottom + 1, CORNER, CORNER);
    POINT tail[3];
    if (d->tailAbove) {
        tail[0] = {d->tipX, 0};
        tail[1] = {d->tipX - TAIL_HALF, TAIL_H + 1};
        tail[2] = {d->tipX + TAIL_HALF, TAIL_H + 1};
    } else {
        tail[0] = {d->tipX, d->height};
        tail[1] = {d->tipX - TAIL_HALF, bottom - 1};
        tail[2] = {d->tipX + TAIL_HALF, bottom - 1};
    }
    HRGN point = CreatePolygonRgn(tail, 3, WINDING);
    CombineRgn(body, body, point, RGN_OR);
    DeleteObject(point);
    return body;
}

static RECT WorkAreaAt(POINT at)
{
    MONITORINFO mi = {};
    mi.cbSize = sizeof(mi);
    RECT work = {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
    if (GetMonitorInfoW(MonitorFromPoint(at, MONITOR_DEFAULTTONEAREST), &mi))
        work = mi.rcWork;
    return work;
}

// Breaks the notes at the text's width (narrower by the scroll bar when they need one) and
// counts the lines in sight.
static void BreakToFit(HWND dlg, NotesData *d, int textWidth, int scrollWidth)
{
    HDC dc = GetDC(dlg);
    HGDIOBJ old = SelectObject(dc, d->font);
    TEXTMETRICW tm = {};
    GetTextMetricsW(dc, &tm);
    d->lineHeight = tm.tmHeight > 0 ? tm.tmHeight : 12;
    d->lines = BreakNotes(dc, d->text, textWidth);
    if ((int)d->lines.size() > MOST_LINES)
        d->lines = BreakNotes(dc, d->text, textWidth - scrollWidth);
    SelectObject(dc, old);
    ReleaseDC(dlg, dc);
    d->shownLines = (int)d->lines.size() < MOST_LINES ? (int)d->lines.size() : MOST_LINES;
    if (d->shownLines < 1)
        d->shownLines = 1;
}

// Sizes the balloon to the notes and puts it by the tap, inside the screen's work area.
static void LayOutNotes(HWND dlg, NotesData *d)
{
    HWND text = GetDlgItem(dlg, IDC_NOTESTEXT), bar = GetDlgItem(dlg, IDC_NOTESSCROLL);
    int scrollWidth = GetSystemMetrics(SM_CXVSCROLL);
    int textWidth = BALLOON_W - 2 * MARGIN;
    BreakToFit(dlg, d, textWidth, scrollWidth);
    bool scrolls = (int)d->lines.size() > d->shownLines;

    RECT work = WorkAreaAt(d->tip);
    int textHeight = d->shownLines * d->lineHeight;
    d->width = BALLOON_W;
    d->height = textHeight + 2 * MARGIN + TAIL_H;
    if (d->height > work.bottom - work.top) {
        d->shownLines -= (d->height - (work.bottom - work.top)) / d->lineHeight + 1;
        d->shownLines = d->shownLines < 1 ? 1 : d->shownLines;
        textHeight = d->shownLines * d->lineHeight;
        d->height = textHeight + 2 * MARGIN + TAIL_H;
        scrolls = (int)d->lines.size() > d->shownLines;
    }
    int left = d->tip.x - 2 * CORNER;
    if (left + d->width > work.right)
        left = work.right - d->width;
    if (left < work.left)
        left = work.left;
    d->tailAbove = d->tip.y + d->height <= work.bottom;
    int top = d->tailAbove ? d->tip.y : d->tip.y - d->height;
    if (top < work.top)
        top = work.top;
    int lowest = CORNER / 2 + TAIL_HALF, highest = d->width - CORNER / 2 - TAIL_HALF;
    d->tipX = d->tip.x - left;
    d->tipX = d->tipX < lowest ? lowest : d->tipX > highest ? highest : d->tipX;

    MoveWindow(dlg, left, top, d->width, d->height, FALSE);
    int bodyTop = (d->tailAbove ? TAIL_H : 0) + MARGIN;
    int shownWidth = scrolls ? textWidth - scrollWidth : textWidth;
    MoveWindow(text, MARGIN, bodyTop, shownWidth, textHeight, FALSE);
    if (scrolls) {
        MoveWindow(bar, MARGIN + shownWidth, bodyTop, scrollWidth, textHeight, FALSE);
        SCROLLINFO si = {};
        si.cbSize = sizeof(si);
        si.fMask = SIF_RANGE | SIF_PAGE | SIF_POS;
        si.nMax = (int)d->lines.size() - 1;
        si.nPage = (UINT)d->shownLines;
        SetScrollInfo(bar, SB_CTL, &si, FALSE);
        ShowWindow(bar, SW_SHOWNA);
    }
    HRGN shape = BalloonRegion(d);
    if (!SetWindowRgn(dlg, shape, FALSE))
        DeleteObject(shape);
}

static void ScrollNotesTo(HWND dlg, int line)
{
    NotesData *d = DialogData<NotesData>(dlg);
    int last = (int)d->lines.size() - d->shownLines;
    line = line > last ? last : line;
    line = line < 0 ? 0 : line;
    if (line == d->firstLine)
        return;
    d->firstLine = line;
    SetScrollPos(GetDlgItem(dlg, IDC_NOTESSCROLL), SB_CTL, line, TRUE);
    InvalidateRect(GetDlgItem(dlg, IDC_NOTESTEXT), nullptr, FALSE);
}

// The text is in the popup's one text control too, for whatever reads it (a screen reader).
static INT_PTR NotesInit(HWND dlg, NotesData *d)
{
    d->font = CreateViewFont(12, 0, 0);
    d->fill = CreateSolidBrush(NOTES_FILL);
    SetDlgItemTextW(dlg, IDC_NOTESTEXT, d->text.c_str());
    LayOutNotes(dlg, d);
    SetFocus(dlg);
    return FALSE;
}

static INT_PTR NotesPaint(HWND dlg, UINT, WPARAM, LPARAM)
{
    const NotesData *d = DialogData<NotesData>(dlg);
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(dlg, &ps);
    HRGN shape = BalloonRegion(d);
    FillRgn(dc, shape, d->fill);
    ScopedBrush edge(CreateSolidBrush(NOTES_EDGE));
    FrameRgn(dc, shape, edge, 1, 1);
    DeleteObject(shape);
    EndPaint(dlg, &ps);
    return TRUE;
}

// The paint fills the whole balloon; nothing is to be erased first.
static INT_PTR NotesErase(HWND dlg, UINT, WPARAM, LPARAM)
{
    return DialogReply(dlg, 1);
}

// The lines in sight, from the first the scroll bar shows.
static INT_PTR NotesDrawText(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    const DRAWITEMSTRUCT *di = (const DRAWITEMSTRUCT *)lp;
    if (di->CtlID != IDC_NOTESTEXT)
        return FALSE;
    const NotesData *d = DialogData<NotesData>(dlg);
    HDC dc = di->hDC;
    FillRect(dc, &di->rcItem, d->fill);
    ScopedSelect selectFont(dc, d->font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, NOTES_TEXT);
    int end = d->firstLine + d->shownLines;
    end = end < (int)d->lines.size() ? end : (int)d->lines.size();
    for (int i = d->firstLine; i < end; i++) {
        const NotesLine &line = d->lines[(size_t)i];
        int y = di->rcItem.top + (i - d->firstLine) * d->lineHeight;
        ExtTextOutW(dc, di->rcItem.left, y, ETO_CLIPPED, &di->rcItem, d->text.c_str() + line.start,
                    (UINT)line.length, nullptr);
    }
    return TRUE;
}

static INT_PTR NotesScroll(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    NotesData *d = DialogData<NotesData>(dlg);
    int line = d->firstLine;
    switch (LOWORD(wp)) {
    case SB_LINEUP: line--; break;
    case SB_LINEDOWN: line++; break;
    case SB_PAGEUP: line -= d->shownLines; break;
    case SB_PAGEDOWN: line += d->shownLines; break;
    case SB_TOP: line = 0; break;
    case SB_BOTTOM: line = (int)d->lines.size(); break;
    case SB_THUMBTRACK:
    case SB_THUMBPOSITION: {
        SCROLLINFO si = {};
        si.cbSize = sizeof(si);
        si.fMask = SIF_TRACKPOS;
        GetScrollInfo(GetDlgItem(dlg, IDC_NOTESSCROLL), SB_CTL, &si);
        line = si.nTrackPos;
        break;
    }
    }
    ScrollNotesTo(dlg, line);
    return TRUE;
}

static INT_PTR NotesWheel(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    int notches = GET_WHEEL_DELTA_WPARAM(wp) / WHEEL_DELTA;
    ScrollNotesTo(dlg, DialogData<NotesData>(dlg)->firstLine - notches * WHEEL_LINES);
    return TRUE;
}

// The arrow keys scroll rather than move between controls.
static INT_PTR NotesKeys(HWND dlg, UINT, WPARAM, LPARAM)
{
    return DialogReply(dlg, DLGC_WANTARROWS);
}

static INT_PTR NotesKeyDown(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    static const struct {
        UINT key;
        WORD action;
    } keys[] = {{VK_UP, SB_LINEUP},     {VK_DOWN, SB_LINEDOWN}, {VK_PRIOR, SB_PAGEUP},
                {VK_NEXT, SB_PAGEDOWN}, {VK_HOME, SB_TOP},      {VK_END, SB_BOTTOM}};
    for (auto &k : keys)
        if (k.key == wp)
            return NotesScroll(dlg, WM_VSCROLL, k.action, 0);
    return FALSE;
}

static INT_PTR NotesTap(HWND dlg, UINT, WPARAM, LPARAM)
{
    EndDialog(dlg, 0);
    return TRUE;
}

static INT_PTR NotesCommand(HWND dlg, int id, int, HWND)
{
    if (id != IDOK && id != IDCANCEL)
        return FALSE;
    EndDialog(dlg, 0);
    return TRUE;
}

// EndDialog hides the popup, which takes the activation from it too: a popup already ending
// is hidden by then.
static INT_PTR NotesActivate(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    if (LOWORD(wp) == WA_INACTIVE && IsWindowVisible(dlg))
        EndDialog(dlg, 0);
    return FALSE;
}

static INT_PTR NotesDestroy(HWND dlg, UINT, WPARAM, LPARAM)
{
    NotesData *d = DialogData<NotesData>(dlg);
    DeleteObject(d->font);
    DeleteObject(d->fill);
    d->font = nullptr;
    d->fill = nullptr;
    return FALSE;
}

static const DialogEntry kNotes[] = {
    {WM_INITDIALOG, DialogInit<NotesInit>},
    {WM_PAINT, NotesPaint},
    {WM_ERASEBKGND, NotesErase},
    {WM_DRAWITEM, NotesDrawText},
    {WM_VSCROLL, NotesScroll},
    {WM_MOUSEWHEEL, NotesWheel},
    {WM_GETDLGCODE, NotesKeys},
    {WM_KEYDOWN, NotesKeyDown},
    {WM_LBUTTONDOWN, NotesTap},
    {WM_RBUTTONDOWN, NotesTap},
    {WM_COMMAND, DialogCommand<NotesCommand>},
    {WM_ACTIVATE, NotesActivate},
    {WM_DESTROY, NotesDestroy},
};

static INT_PTR CALLBACK NotesProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kNotes, dlg, msg, wp, lp);
}

void ShowNotes(HWND owner, int row)
{
    NotesData d = {};
    std::wstring notes;
    if (!GetItemNotes((long)DayRowItem(g_app.dayList, row), &notes))
        return;
    d.text = notes.empty() ? std::wstring(L"(No Notes)") : ShownText(notes);
    d.tip = g_app.lastTapPoint;
    if (g_app.dayList)
        ClientToScreen(g_app.dayList, &d.tip);
    RunDialog(owner, IDD_NOTES, NotesProc, &d);
}

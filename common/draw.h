// Drawing shared by every view: guards that pair each select with its
// restore and each create with its delete, the few primitives the views
// are made of, and the view fonts and bitmaps. Painting routines take the
// device context they draw into, so the same code paints the back buffer,
// a screenshot and a test's memory DC.
#pragma once

#include <windows.h>

// ---- guards ---------------------------------------------------------------

// Selects an object into a DC for one drawing step and puts back what was
// there when the step ends.
struct ScopedSelect {
    HDC dc;
    HGDIOBJ old;
    ScopedSelect(HDC dc, HGDIOBJ object) : dc(dc), old(SelectObject(dc, object)) {}
    ~ScopedSelect() { SelectObject(dc, old); }
    ScopedSelect(const ScopedSelect &) = delete;
    ScopedSelect &operator=(const ScopedSelect &) = delete;
};

// A pen, brush, font or bitmap made for one drawing step, deleted when the
// step ends. Declare it before the ScopedSelect that selects it, so it is
// deselected first.
template <class Handle> struct ScopedGdiObject {
    Handle handle;
    explicit ScopedGdiObject(Handle handle) : handle(handle) {}
    ~ScopedGdiObject()
    {
        if (handle)
            DeleteObject(handle);
    }
    operator Handle() const { return handle; }
    ScopedGdiObject(const ScopedGdiObject &) = delete;
    ScopedGdiObject &operator=(const ScopedGdiObject &) = delete;
};
typedef ScopedGdiObject<HPEN> ScopedPen;
typedef ScopedGdiObject<HBRUSH> ScopedBrush;
typedef ScopedGdiObject<HFONT> ScopedFont;
typedef ScopedGdiObject<HBITMAP> ScopedBitmap;

// A memory DC compatible with `dc`, deleted when the step ends.
struct ScopedMemoryDC {
    HDC dc;
    explicit ScopedMemoryDC(HDC compatible) : dc(CreateCompatibleDC(compatible)) {}
    ~ScopedMemoryDC()
    {
        if (dc)
            DeleteDC(dc);
    }
    operator HDC() const { return dc; }
    ScopedMemoryDC(const ScopedMemoryDC &) = delete;
    ScopedMemoryDC &operator=(const ScopedMemoryDC &) = delete;
};

// ---- colours and primitives -----------------------------------------------

// Colours both the month view and the year view use (0x00BBGGRR).
const COLORREF HEADER_FILL = 0xB0C5D9; // weekday header cells
const COLORREF LABEL_TEXT = 0x844100;  // the month view's year labels, the year view's month names

// One line of text in a rectangle, `format` adding the alignment.
void DrawTextIn(HDC dc, const WCHAR *text, int left, int top, int right, int bottom, UINT format);
// A rectangle framed with a 1-pixel pen of `border` around a `fill`.
void DrawCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF border, COLORREF fill);
// A rectangle filled, or only framed, in one colour.
void FillCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF colour);
void FrameCellRect(HDC dc, int left, int top, int right, int bottom, COLORREF colour);

// ---- fonts and bitmaps ----------------------------------------------------

// The one font of every view: Tahoma of `height` pixels, bold or not, with
// ClearType when the cleartype setting asks for it. The caller deletes it.
HFONT CreateViewFont(int height, int strikeOut, int bold);
// The whole bitmap at its natural size.
void DrawBitmapAt(HDC dc, HBITMAP bmp, int x, int y);
// A w x h part of a strip, with `transparent` letting the DC show through;
// FALSE when nothing could be drawn.
BOOL DrawTransparentBitmapAt(HDC dc, HBITMAP bmp, int sx, int sy, int dx, int dy, int w, int h,
                             COLORREF transparent);

// ---- the drawing pass -----------------------------------------------------

// True once a redraw request or a tap has come during the pass being drawn:
// the pass stops where it is and is not shown.
bool PassAbandoned();
// Makes a pass that is drawing stop at its next check, unshown; a pass
// that has finished stays shown.
void AbandonPass();
// What the pass has drawn so far becomes visible: drawPending (when given)
// draws what the pass has kept back, the drawing is flushed into the back
// buffer's pixels and the main window asked to copy them, at once for the
// first appointment of a pass and after that at most every few
// milliseconds.
void ShowPassProgress(void (*drawPending)() = nullptr);
// A pass begins: its first progress is shown at once.
void StartPassProgress();
// Test seam: when set, ShowPassProgress calls it after each appointment a pass draws.
extern void (*g_passProgressHook)();

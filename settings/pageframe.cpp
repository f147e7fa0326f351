// What the settings pages share: the rounded group frames the Times, Color and Icons pages draw
// behind their controls, and the answer to the sheet's notifications.
#include "pages.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "platform/aygshell.h"

#include <commctrl.h>
#include <prsht.h>

static void RoundFrame(HDC dc, int left, int top, int right, int bottom, int corner,
                       COLORREF color)
{
    ScopedPen pen(CreatePen(PS_SOLID, 1, color));
    ScopedSelect use(dc, pen);
    RoundRect(dc, left, top, right, bottom, corner, corner);
}

void DrawDoubleFrame(HDC dc, int left, int top, int right, int bottom, int corner,
                     COLORREF inner, COLORREF outer)
{
    if (outer == FRAME_SINGLE) {
        RoundFrame(dc, left, top, right, bottom, corner, inner);
        return;
    }
    RoundFrame(dc, left, top, right, bottom, corner, outer);
    RoundFrame(dc, left + 1, top + 1, right - 1, bottom - 1, corner, inner);
}

INT_PTR PageNotify(HWND page, NMHDR *hdr, void (*apply)(HWND page))
{
    switch (hdr->code) {
    case PSN_SETACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, 0);
    case PSN_KILLACTIVE:
        SipShowIM(SIPF_OFF);
        return DialogReply(page, FALSE);
    case PSN_APPLY:
        apply(page);
        return DialogReply(page, PSNRET_NOERROR);
    }
    return FALSE;
}

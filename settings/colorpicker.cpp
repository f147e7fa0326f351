// The colour picker: fourteen swatches in two rows, a preview of the colour being chosen and a
// lightness slider. The slider always works from the last swatch tapped (or the starting colour),
// so sliding to black and back up again finds the same hue.
#include "colorpicker.h"
#include "common/dialog.h"
#include "common/draw.h"
#include "resource.h"

#include <commctrl.h>

// The dialog's record. `result` goes back to the caller; it changes only on Ok.
struct PickerData {
    COLORREF result;
    COLORREF current; // shown in the preview
    COLORREF base;    // whose hue and saturation the slider keeps
};

static const COLORREF kSwatches[PICKER_SWATCHES] = {
    0x80FFFF, 0x80FF80, 0xFFFF80, 0xFF8000, 0x0000FF, 0x4080FF, 0x808000,
    0x000080, 0x800000, 0xC08000, 0x008080, 0xFF00FF, 0xFFFFFF, 0x000000,
};

COLORREF PickerSwatchColour(int index)
{
    return kSwatches[index];
}

RECT PickerSwatchRect(int index)
{
    int i = index % PICKER_SWATCH_COLUMNS, j = index / PICKER_SWATCH_COLUMNS;
    RECT rc = {8 + 22 * i, 8 + 22 * j, 25 + 22 * i, 25 + 22 * j};
    return rc;
}

const RECT kPickerPreview = {40, 55, 120, 85};

// ---- hue, saturation and lightness ----------------------------------------------------------

Hsl ColourToHsl(COLORREF colour)
{
    double r = (colour & 0xFF) * (1.0 / 255);
    double g = ((colour >> 8) & 0xFF) * (1.0 / 255);
    double b = ((colour >> 16) & 0xFF) * (1.0 / 255);
    double max = r > g ? (r > b ? r : b) : (g > b ? g : b);
    double min = r < g ? (r < b ? r : b) : (g < b ? g : b);
    Hsl hsl = {0, 0, (max + min) / 2};
    if (max == min)
        return hsl;
    double d = max - min;
    hsl.saturation = hsl.lightness < 0.5 ? d / (max + min) : d / (2 - max - min);
    double hue;
    if (r == max)
        hue = (g - b) / d;
    else if (g == max)
        hue = 2 + (b - r) / d;
    else
        hue = 4 + (r - g) / d;
    hue /= 6;
    if (hue < 0)
        hue += 1;
    hsl.hue = hue;
    return hsl;
}

double HueToChannel(double p, double q, double t)
{
    if (t < 0)
        t += 1;
    if (t > 1)
        t -= 1;
    if (6 * t < 1)
        return p + (q - p) * 6 * t;
    if (2 * t < 1)
        return q;
    if (3 * t < 2)
        return p + (q - p) * (2.0 / 3 - t) * 6;
    return p;
}

// Truncated, never rounded, and only the low byte kept. A channel that comes out a hair below
// zero truncates to 0, as it does on the handheld.
static unsigned ChannelByte(double channel)
{
    return (unsigned)(long long)(channel * 255) & 0xFF;
}

COLORREF HslToColour(double hue, double saturation, double lightness)
{
    double r, g, b;
    if (saturation == 0) {
        r = g = b = lightness;
    } else {
        double q = lightness <= 0.5 ? lightness * (1 + saturation)
                                    : lightness + saturation - lightness * saturation;
        double p = 2 * lightness - q;
        r = HueToChannel(p, q, hue + 1.0 / 3);
        g = HueToChannel(p, q, hue);
        b = HueToChannel(p, q, hue - 1.0 / 3);
    }
    return ChannelByte(r) | ChannelByte(g) << 8 | ChannelByte(b) << 16;
}

// ---- the dialog -----------------------------------------------------------------------------

static int SliderPosition(COLORREF colour)
{
    return (int)(ColourToHsl(colour).lightness * PICKER_SLIDER_MAX);
}

static void ShowLightness(HWND dlg, COLORREF colour)
{
    SendDlgItemMessageW(dlg, IDC_PICKERSLIDER, TBM_SETPOS, TRUE, SliderPosition(colour));
}

static void InvalidatePreview(HWND dlg)
{
    RECT rc = kPickerPreview;
    InflateRect(&rc, 1, 1);
    InvalidateRect(dlg, &rc, TRUE);
}

// Over the window it was opened from (the settings sheet covers the application area), rather
// than in the middle of a desktop screen far from it.
static void CentreOverOwner(HWND dlg)
{
    HWND owner = GetWindow(dlg, GW_OWNER);
    if (!owner)
        return;
    RECT o, r;
    GetWindowRect(owner, &o);
    GetWindowRect(dlg, &r);
    int x = o.left + ((o.right - o.left) - (r.right - r.left)) / 2;
    int y = o.top + ((o.bottom - o.top) - (r.bottom - r.top)) / 2;
    SetWindowPos(dlg, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

static INT_PTR PickerInit(HWND dlg, PickerData *d)
{
    CentreOverOwner(dlg);
    SendDlgItemMessageW(dlg, IDC_PICKERSLIDER, TBM_SETRANGE, TRUE,
                        MAKELPARAM(0, PICKER_SLIDER_MAX));
    d->base = d->current = d->result;
    ShowLightness(dlg, d->current);
    return TRUE;
}

// A swatch or the preview: the colour inside a black frame one pixel outside it.
static void DrawFramedColour(HDC dc, const RECT &rc, COLORREF colour)
{
    DrawCellRect(dc, rc.left - 1, rc.top - 1, rc.right + 1, rc.bottom + 1, 0x000000, colour);
}

static void DrawPicker(HDC dc, const PickerData *d)
{
    for (int k = 0; k < PICKER_SWATCHES; k++)
        DrawFramedColour(dc, PickerSwatchRect(k), kSwatches[k]);
    DrawFramedColour(dc, kPickerPreview, d->current);
}

static INT_PTR PickerPaint(HWND dlg, UINT, WPARAM, LPARAM)
{
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(dlg, &ps);
    DrawPicker(dc, DialogData<PickerData>(dlg));
    EndPaint(dlg, &ps);
    return TRUE;
}

// The background first, as a paint would find it erased.
static INT_PTR PickerPrint(HWND dlg, UINT, WPARAM wp, LPARAM)
{
    HDC dc = (HDC)wp;
    RECT rc;
    GetClientRect(dlg, &rc);
    FillRect(dc, &rc, GetSysColorBrush(COLOR_BTNFACE));
    DrawPicker(dc, DialogData<PickerData>(dlg));
    return TRUE;
}

// A tap anywhere shows the lightness of the colour now chosen; a tap on a swatch first makes
// that swatch the colour and the slider's base.
static INT_PTR PickerTap(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    PickerData *d = DialogData<PickerData>(dlg);
    POINT pt = {(short)LOWORD(lp), (short)HIWORD(lp)};
    for (int k = 0; k < PICKER_SWATCHES; k++) {
        RECT rc = PickerSwatchRect(k);
        if (PtInRect(&rc, pt)) {
            d->base = d->current = kSwatches[k];
            break;
        }
    }
    ShowLightness(dlg, d->current);
    InvalidatePreview(dlg);
    return TRUE;
}

static INT_PTR PickerSlide(HWND dlg, UINT, WPARAM, LPARAM lp)
{
    HWND slider = GetDlgItem(dlg, IDC_PICKERSLIDER);
    if ((HWND)lp != slider)
        return FALSE;
    PickerData *d = DialogData<PickerData>(dlg);
    Hsl hsl = ColourToHsl(d->base);
    int pos = (int)SendMessageW(slider, TBM_GETPOS, 0, 0);
    d->current = HslToColour(hsl.hue, hsl.saturation, pos * (1.0 / PICKER_SLIDER_MAX));
    InvalidatePreview(dlg);
    return TRUE;
}

static INT_PTR PickerCommand(HWND dlg, int id, int, HWND)
{
    PickerData *d = DialogData<PickerData>(dlg);
    switch (id) {
    case IDC_PICKEROK:
        d->result = d->current;
        EndDialog(dlg, IDOK);
        return TRUE;
    case IDC_PICKERCANCEL:
    case IDOK:
    case IDCANCEL:
        EndDialog(dlg, IDCANCEL);
        return TRUE;
    }
    return FALSE;
}

static const DialogEntry kPicker[] = {
    {WM_INITDIALOG, DialogInit<PickerInit>},
    {WM_PAINT, PickerPaint},
    {WM_PRINTCLIENT, PickerPrint},
    {WM_LBUTTONDOWN, PickerTap},
    {WM_HSCROLL, PickerSlide},
    {WM_COMMAND, DialogCommand<PickerCommand>},
};

static INT_PTR CALLBACK PickerProc(HWND dlg, UINT msg, WPARAM wp, LPARAM lp)
{
    return DispatchDialog(kPicker, dlg, msg, wp, lp);
}

// The slider is a common control; the main window registers only the date controls.
COLORREF PickColour(HWND owner, COLORREF initial)
{
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_BAR_CLASSES};
    InitCommonControlsEx(&icc);
    PickerData d = {initial, initial, initial};
    RunDialog(owner, IDD_COLORPICKER, PickerProc, &d);
    return d.result;
}

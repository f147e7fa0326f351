// The colour picker run from the program's own template, driven from inside its modal loop with
// stylus taps and slider keys as the user drives it; and its colour conversions against a
// reference written here from the picker's formulas.
#include "settings/colorpicker.h"
#include "support/drive.h"
#include "resource.h"

#include <commctrl.h>
#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>
#include <functional>

static int Slider(HWND dlg)
{
    return (int)SendDlgItemMessageW(dlg, IDC_PICKERSLIDER, TBM_GETPOS, 0, 0);
}

// The slider moved by the user to `pos`: one step with the keyboard from just beside it, so
// that the slider itself reports the move.
static void SlideTo(HWND dlg, int pos)
{
    HWND slider = GetDlgItem(dlg, IDC_PICKERSLIDER);
    if (pos == 0) {
        Key(slider, VK_HOME);
        return;
    }
    SendMessageW(slider, TBM_SETPOS, TRUE, pos - 1);
    Key(slider, VK_RIGHT);
}

static POINT SwatchCentre(int k)
{
    RECT rc = PickerSwatchRect(k);
    return {(rc.left + rc.right) / 2, (rc.top + rc.bottom) / 2};
}

static void TapSwatch(HWND dlg, int k)
{
    POINT pt = SwatchCentre(k);
    Tap(dlg, pt.x, pt.y);
}

static COLORREF PreviewColour(HWND dlg)
{
    Picture p = PaintClient(dlg);
    return p.At((kPickerPreview.left + kPickerPreview.right) / 2,
                (kPickerPreview.top + kPickerPreview.bottom) / 2);
}

static COLORREF Pick(COLORREF start, const std::function<void(HWND)> &script)
{
    COLORREF picked = CLR_INVALID;
    INT_PTR ended = RunScripted(
        [&] {
            picked = PickColour(nullptr, start);
            return (INT_PTR)0;
        },
        script);
    EXPECT_EQ(ended, 0) << "the picker ended by its own buttons";
    return picked;
}

const int kWhite = 12, kBlack = 13;

// Cancel, the close box and Escape give back the starting colour whatever was tapped and slid;
// Ok gives the colour shown.
TEST(ColourPicker, OnlyOkChangesTheColour)
{
    const COLORREF start = 0x336699;
    struct {
        const char *name;
        std::function<void(HWND)> end;
    } cancels[] = {
        {"Cancel", [](HWND dlg) { Click(dlg, IDC_PICKERCANCEL); }},
        {"close box", [](HWND dlg) { SendMessageW(dlg, WM_COMMAND, IDCANCEL, 0); }},
        {"Escape", [](HWND dlg) { Key(GetDlgItem(dlg, IDC_PICKERSLIDER), VK_ESCAPE); }},
        {"the platform's OK", [](HWND dlg) { SendMessageW(dlg, WM_COMMAND, IDOK, 0); }},
    };
    for (const auto &c : cancels) {
        COLORREF got = Pick(start, [&](HWND dlg) {
            TapSwatch(dlg, 4);
            SlideTo(dlg, 30);
            TapSwatch(dlg, 9);
            SlideTo(dlg, 200);
            EXPECT_NE(PreviewColour(dlg), start) << c.name;
            c.end(dlg);
        });
        EXPECT_EQ(got, start) << c.name;
    }
    COLORREF shown = CLR_INVALID;
    COLORREF got = Pick(start, [&](HWND dlg) {
        TapSwatch(dlg, 4);
        SlideTo(dlg, 60);
        shown = PreviewColour(dlg);
        Click(dlg, IDC_PICKEROK);
    });
    EXPECT_EQ(got, shown);
    EXPECT_EQ(got, HslToColour(ColourToHsl(0x0000FF).hue, 1, 60 / 240.0));
}

// The slider starts at the colour's lightness and follows every swatch tapped: white is at the
// top, black at the bottom; a tap beside the swatches changes nothing.
TEST(ColourPicker, SliderFollowsTheSwatchTapped)
{
    Pick(0x808080, [](HWND dlg) {
        EXPECT_EQ(SendDlgItemMessageW(dlg, IDC_PICKERSLIDER, TBM_GETRANGEMAX, 0, 0), 240);
        EXPECT_EQ(SendDlgItemMessageW(dlg, IDC_PICKERSLIDER, TBM_GETRANGEMIN, 0, 0), 0);
        EXPECT_EQ(Slider(dlg), (int)(128 / 255.0 * 240));
        TapSwatch(dlg, kWhite);
        EXPECT_EQ(Slider(dlg), 240);
        EXPECT_EQ(PreviewColour(dlg), 0xFFFFFFu);
        TapSwatch(dlg, kBlack);
        EXPECT_EQ(Slider(dlg), 0);
        EXPECT_EQ(PreviewColour(dlg), 0x000000u);
        TapSwatch(dlg, 5); // 0x4080FF: lightness (255 + 64) / 2 / 255
        EXPECT_EQ(Slider(dlg), (int)((1.0 + 64 / 255.0) / 2 * 240));
        // Between two swatches, and below them: the colour stays.
        RECT a = PickerSwatchRect(5);
        Tap(dlg, a.right + 2, a.top + 5);
        Tap(dlg, 150, 100);
        EXPECT_EQ(PreviewColour(dlg), 0x4080FFu);
        EXPECT_EQ(Slider(dlg), (int)((1.0 + 64 / 255.0) / 2 * 240));
        Click(dlg, IDC_PICKERCANCEL);
    });
}

// A grey start has no hue: every slider position gives a grey.
TEST(ColourPicker, GreyStartSlidesThroughGreys)
{
    Pick(0x7F7F7F, [](HWND dlg) {
        for (int pos : {0, 1, 37, 119, 120, 121, 200, 239, 240}) {
            SlideTo(dlg, pos);
            EXPECT_EQ(Slider(dlg), pos);
            COLORREF c = PreviewColour(dlg);
            EXPECT_EQ(GetRValue(c), GetGValue(c)) << pos;
            EXPECT_EQ(GetGValue(c), GetBValue(c)) << pos;
            EXPECT_EQ(GetRValue(c), (unsigned)(pos / 240.0 * 255) & 0xFF) << pos;
        }
        Click(dlg, IDC_PICKERCANCEL);
    });
}

// Sliding to black or white loses the hue from the colour shown, but not from the slider's base:
// coming back finds the tapped swatch's hue again.
TEST(ColourPicker, SliderKeepsTheTappedHue)
{
    for (int k : {0, 3, 4, 8, 9}) {
        COLORREF swatch = PickerSwatchColour(k);
        Hsl hsl = ColourToHsl(swatch);
        Pick(0x000000, [&](HWND dlg) {
            TapSwatch(dlg, k);
            SlideTo(dlg, 0);
            EXPECT_EQ(PreviewColour(dlg), 0x000000u) << k;
            SlideTo(dlg, 240);
            EXPECT_EQ(PreviewColour(dlg), 0xFFFFFFu) << k;
            SlideTo(dlg, 100);
            COLORREF back = PreviewColour(dlg);
            EXPECT_EQ(back, HslToColour(hsl.hue, hsl.saturation, 100 / 240.0)) << k;
            Hsl seen = ColourToHsl(back);
            EXPECT_NEAR(seen.hue, hsl.hue, 0.01) << k;
            Click(dlg, IDC_PICKERCANCEL);
        });
    }
}

// The fourteen swatches in their black frames and the preview in the starting colour, at their
// pixels; a tapped swatch fills the preview.
TEST(ColourPicker, PaintsSwatchesAndPreview)
{
    Pick(0x123456, [](HWND dlg) {
        Picture p = PaintClient(dlg);
        ASSERT_GT(p.width, kPickerPreview.right);
        for (int k = 0; k < PICKER_SWATCHES; k++) {
            RECT rc = PickerSwatchRect(k);
            EXPECT_EQ(rc.right - rc.left, 17) << k;
            EXPECT_EQ(rc.left, 8 + 22 * (k % 7)) << k;
            EXPECT_EQ(rc.top, 8 + 22 * (k / 7)) << k;
            for (int y = rc.top; y < rc.bottom; y += 4)
                for (int x = rc.left; x < rc.right; x += 4)
                    ASSERT_EQ(p.At(x, y), PickerSwatchColour(k)) << k << " at " << x << "," << y;
            EXPECT_EQ(p.At(rc.right - 1, rc.bottom - 1), PickerSwatchColour(k)) << k;
            for (int x = rc.left - 1; x <= rc.right; x++) {
                EXPECT_EQ(p.At(x, rc.top - 1), 0u) << k << " top frame at " << x;
                EXPECT_EQ(p.At(x, rc.bottom), 0u) << k << " bottom frame at " << x;
            }
            for (int y = rc.top - 1; y <= rc.bottom; y++) {
                EXPECT_EQ(p.At(rc.left - 1, y), 0u) << k << " left frame at " << y;
                EXPECT_EQ(p.At(rc.right, y), 0u) << k << " right frame at " << y;
            }
            EXPECT_NE(p.At(rc.right + 1, rc.top), 0u) << k << " the gap after the frame";
        }
        const RECT &pv = kPickerPreview;
        EXPECT_EQ(p.At(pv.left, pv.top), 0x123456u);
        EXPECT_EQ(p.At(pv.right - 1, pv.bottom - 1), 0x123456u);
        EXPECT_EQ(p.At(pv.left - 1, pv.top - 1), 0u);
        EXPECT_EQ(p.At(pv.right, pv.bottom), 0u);
        EXPECT_NE(p.At(pv.right + 1, pv.top), 0u);
        TapSwatch(dlg, 1);
        EXPECT_EQ(PreviewColour(dlg), PickerSwatchColour(1));
        if (getenv("LF_SHOTS")) {
            EXPECT_TRUE(SaveScreenShot({dlg}, ShotPath("colorpicker")));
        }
        Click(dlg, IDC_PICKERCANCEL);
    });
}

// ---- conversions ----------------------------------------------------------------------------

// The reference: the formulas as the picker states them, written out once more.
static void RefToHsl(COLORREF c, double *h, double *s, double *l)
{
    double r = (c & 0xFF) * (1.0 / 255), g = ((c >> 8) & 0xFF) * (1.0 / 255),
           b = ((c >> 16) & 0xFF) * (1.0 / 255);
    double mx = std::max(r, std::max(g, b)), mn = std::min(r, std::min(g, b));
    *l = (mx + mn) / 2;
    *h = *s = 0;
    if (mx == mn)
        return;
    double d = mx - mn;
    *s = *l < 0.5 ? d / (mx + mn) : d / (2 - mx - mn);
    *h = r == mx ? (g - b) / d : g == mx ? 2 + (b - r) / d : 4 + (r - g) / d;
    *h /= 6;
    if (*h < 0)
        *h += 1;
}

static double RefChannel(double p, double q, double t)
{
    t = t < 0 ? t + 1 : t > 1 ? t - 1 : t;
    return 6 * t < 1   ? p + (q - p) * 6 * t
           : 2 * t < 1 ? q
           : 3 * t < 2 ? p + (q - p) * (2.0 / 3 - t) * 6
                       : p;
}

static COLORREF RefToColour(double h, double s, double l)
{
    double r = l, g = l, b = l;
    if (s != 0) {
        double q = l <= 0.5 ? l * (1 + s) : l + s - l * s, p = 2 * l - q;
        r = RefChannel(p, q, h + 1.0 / 3);
        g = RefChannel(p, q, h);
        b = RefChannel(p, q, h - 1.0 / 3);
    }
    auto byte = [](double v) { return (COLORREF)((long long)(v * 255) & 0xFF); };
    return byte(r) | byte(g) << 8 | byte(b) << 16;
}

TEST(ColourConversions, CubeOfColoursMatchesTheFormulas)
{
    int roundTrips = 0;
    for (int r = 0; r < 16; r++)
        for (int g = 0; g < 16; g++)
            for (int b = 0; b < 16; b++) {
                COLORREF c = RGB(r * 17, g * 17, b * 17);
                double h, s, l;
                RefToHsl(c, &h, &s, &l);
                Hsl got = ColourToHsl(c);
                ASSERT_EQ(got.hue, h) << std::hex << c;
                ASSERT_EQ(got.saturation, s) << std::hex << c;
                ASSERT_EQ(got.lightness, l) << std::hex << c;
                ASSERT_GE(got.hue, 0) << std::hex << c;
                ASSERT_LT(got.hue, 1) << std::hex << c;
                COLORREF back = HslToColour(h, s, l);
                ASSERT_EQ(back, RefToColour(h, s, l)) << std::hex << c;
                roundTrips += back == c;
                // Each channel off by at most the one that truncation takes.
                ASSERT_LE(abs((int)GetRValue(back) - r * 17), 1) << std::hex << c;
                ASSERT_LE(abs((int)GetGValue(back) - g * 17), 1) << std::hex << c;
                ASSERT_LE(abs((int)GetBValue(back) - b * 17), 1) << std::hex << c;
            }
    EXPECT_GT(roundTrips, 0);
}

TEST(ColourConversions, TruncatesAndNeverRounds)
{
    struct {
        const char *name;
        double h, s, l;
        COLORREF expect;
    } cases[] = {
        {"pure red", 0, 1, 0.5, 0x0000FF},
        {"pure green", 1.0 / 3, 1, 0.5, 0x00FF00},
        {"pure blue", 2.0 / 3, 1, 0.5, 0xFF0000},
        {"white", 0.3, 0.7, 1, 0xFFFFFF},
        {"black", 0.3, 0.7, 0, 0x000000},
        {"grey 0.5 truncates 127.5", 0, 0, 0.5, 0x7F7F7F},
        {"grey 1/240", 0, 0, 1 / 240.0, 0x010101},
    };
    for (const auto &c : cases)
        EXPECT_EQ(HslToColour(c.h, c.s, c.l), c.expect) << c.name;
    EXPECT_DOUBLE_EQ(HueToChannel(0.2, 0.8, -0.9), 0.2 + 0.6 * 6 * 0.1);
    EXPECT_DOUBLE_EQ(HueToChannel(0.2, 0.8, 1.4), 0.8);
    EXPECT_DOUBLE_EQ(HueToChannel(0.2, 0.8, 0.6), 0.2 + 0.6 * (2.0 / 3 - 0.6) * 6);
    EXPECT_DOUBLE_EQ(HueToChannel(0.2, 0.8, 0.9), 0.2);
    EXPECT_DOUBLE_EQ(ColourToHsl(0x00FFFF).hue, 1.0 / 6);
    EXPECT_DOUBLE_EQ(ColourToHsl(0xFF00FF).hue, 5.0 / 6); // magenta: the negative hue wraps
}

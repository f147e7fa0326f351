// The drawing every view shares, read back from a memory DC's pixels.
#include "support/todowine.h"
#include "common/appstate.h"
#include "common/draw.h"

#include <gtest/gtest.h>

// What a line of text in a view font leaves in a 32-bit memory DC: its
// ink, the longest run of it along one row, and whether any is coloured
// (ClearType's edges are); and the face and cell height the DC chose.
struct Ink {
    int pixels, longestRun;
    bool coloured;
    WCHAR face[LF_FACESIZE];
    int cellHeight;
};

static Ink InkOf(int height, int strikeOut, int bold)
{
    const int w = 160, h = 24;
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
    bi.bmiHeader.biWidth = w;
    bi.bmiHeader.biHeight = -h;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    void *bits = nullptr;
    ScopedMemoryDC dc(nullptr);
    ScopedBitmap bmp(CreateDIBSection(dc, &bi, DIB_RGB_COLORS, &bits, nullptr, 0));
    ScopedFont font(CreateViewFont(height, strikeOut, bold));
    ScopedSelect selectBitmap(dc, bmp);
    ScopedSelect selectFont(dc, font);
    PatBlt(dc, 0, 0, w, h, WHITENESS);
    SetBkMode(dc, TRANSPARENT);
    TextOutW(dc, 2, 2, L"Wednesday 28", 12);
    GdiFlush();
    Ink ink = {};
    GetTextFaceW(dc, LF_FACESIZE, ink.face);
    TEXTMETRICW tm = {};
    GetTextMetricsW(dc, &tm);
    ink.cellHeight = tm.tmHeight;
    const DWORD *p = static_cast<const DWORD *>(bits);
    for (int y = 0; y < h; y++) {
        int run = 0;
        for (int x = 0; x < w; x++) {
            DWORD c = p[y * w + x] & 0xFFFFFF;
            BYTE r = c >> 16, g = (c >> 8) & 0xFF, b = c & 0xFF;
            bool inked = c != 0xFFFFFF;
            ink.pixels += inked;
            ink.coloured |= inked && (r != g || g != b);
            run = inked ? run + 1 : 0;
            ink.longestRun = run > ink.longestRun ? run : ink.longestRun;
        }
    }
    return ink;
}

// Every view draws its text in Tahoma of the height asked for, whatever
// face a character set would suggest; bold is heavier and strike-out
// draws its line through the text.
TEST(Draw, ViewFontsDrawTahoma)
{
    for (DWORD cleartype : {0u, 1u}) {
        g_app.settings.cleartype = cleartype;
        for (int height : {11, 12, 14}) {
            Ink regular = InkOf(height, 0, 0), bold = InkOf(height, 0, 1),
                struck = InkOf(height, 1, 0);
            for (const Ink *ink : {&regular, &bold, &struck}) {
                EXPECT_STREQ(ink->face, L"Tahoma")
                    << "height " << height << ", cleartype " << cleartype;
                EXPECT_EQ(ink->cellHeight, height) << "cleartype " << cleartype;
            }
            EXPECT_GT(bold.pixels, regular.pixels)
                << "height " << height << ", cleartype " << cleartype;
            EXPECT_GT(struck.longestRun, regular.longestRun + 30) << "height " << height;
            if (cleartype == 1) {
                TODO_WINE("Wine draws every quality in black and grey, without ClearType's colours")
                EXPECT_TRUE(regular.coloured) << "height " << height;
            }
        }
    }
}

// The icon chooser, run from its real template inside the started program: taps, keys and the
// buttons pick or keep an icon; the user's icons.bmp follows the built-in icons; the icons are
// drawn as the month view draws them.
#include "settings/iconchooser.h"
#include "settings/settings.h"
#include "common/appstate.h"
#include "support/apphost.h"
#include "support/drive.h"
#include "resource.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <string>
#include <vector>

const int CELL = 20; // the chooser's cell, the icon centred in it
const COLORREF kWhite = RGB(255, 255, 255);
const COLORREF kSelectedFill = RGB(0xB0, 0xD8, 0xFF);

static std::wstring IconsPath()
{
    WCHAR dir[MAX_PATH];
    ProgramDirectory(dir, MAX_PATH);
    return std::wstring(dir) + L"\\icons.bmp";
}

// A strip of `icons` user icons, each a magenta frame around a colour of its own.
static COLORREF UserColour(int i)
{
    return RGB(20 + 40 * (i % 5), 200 - 30 * (i % 6), 60 + 50 * (i % 4));
}
static void WriteUserStrip(int icons)
{
    std::vector<BYTE> b = BmpFile24(9 * icons, 9, [](int x, int y) {
        int dx = x % 9;
        bool frame = dx == 0 || dx == 8 || y == 0 || y == 8;
        return frame ? RGB(255, 0, 255) : UserColour(x / 9);
    });
    HANDLE f = CreateFileW(IconsPath().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(f, INVALID_HANDLE_VALUE);
    DWORD done = 0;
    WriteFile(f, b.data(), (DWORD)b.size(), &done, nullptr);
    CloseHandle(f);
}

// A settings reload, as at start-up, with the rendering thread kept out.
static void ReloadSettings()
{
    EnterCriticalSection(&g_app.renderLock);
    FreeSettingsBitmaps();
    LoadSettings();
    LeaveCriticalSection(&g_app.renderLock);
}

// Where icon `icon` lies in the grid as it is scrolled now: its cell's top-left corner.
struct GridPlace {
    int columns, left, topRow;
};
static GridPlace Place(HWND grid)
{
    RECT rc;
    GetClientRect(grid, &rc);
    GridPlace p;
    p.columns = rc.right / CELL;
    p.left = (rc.right - p.columns * CELL) / 2;
    p.topRow = GetScrollPos(grid, SB_VERT);
    return p;
}
static POINT CellOf(HWND grid, int icon)
{
    GridPlace p = Place(grid);
    return {p.left + icon % p.columns * CELL, (icon / p.columns - p.topRow) * CELL};
}
static void TapIcon(HWND dlg, int icon)
{
    HWND grid = GetDlgItem(dlg, IDC_ICONGRID);
    POINT c = CellOf(grid, icon);
    Tap(grid, c.x + CELL / 2, c.y + CELL / 2);
}

// The difference between the icon drawn in the cell and the strip's icon, or "".
static std::string IconDiff(const Picture &pic, POINT cell, HBITMAP strip, int index,
                            COLORREF background)
{
    HDC mem = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(mem, strip);
    std::string diff;
    const int inset = (CELL - 9) / 2;
    for (int dy = 0; dy < 9 && diff.empty(); dy++)
        for (int dx = 0; dx < 9 && diff.empty(); dx++) {
            COLORREF want = GetPixel(mem, 9 * index + dx, dy);
            if (want == RGB(255, 0, 255))
                want = background;
            COLORREF got = pic.At(cell.x + inset + dx, cell.y + inset + dy);
            if (got != want) {
                char text[96];
                snprintf(text, sizeof text, "pixel (%d,%d): got %06lX, want %06lX", dx, dy,
                         (unsigned long)got, (unsigned long)want);
                diff = text;
            }
        }
    SelectObject(mem, old);
    DeleteDC(mem);
    return diff;
}

static std::wstring Text(HWND dlg, int id)
{
    WCHAR text[64] = L"";
    GetDlgItemTextW(dlg, id, text, 64);
    return text;
}

class IconChooser : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(StartProgram());
        DeleteFileW(IconsPath().c_str());
        ReloadSettings();
    }
    void TearDown() override
    {
        DeleteFileW(IconsPath().c_str());
        ReloadSettings();
    }
};

TEST_F(IconChooser, TapsKeysAndButtons)
{
    struct Case {
        const char *name;
        int current;
        std::function<void(HWND)> script;
        int want;
    } cases[] = {
        {"tap then OK", 3, [](HWND d) { TapIcon(d, 17); Click(d, IDOK); }, 17},
        {"tap then Cancel", 3, [](HWND d) { TapIcon(d, 17); Click(d, IDCANCEL); }, 3},
        {"Escape", 8, [](HWND d) { TapIcon(d, 30); Key(d, VK_ESCAPE); }, 8},
        {"double tap", 0,
         [](HWND d) {
             HWND grid = GetDlgItem(d, IDC_ICONGRID);
             POINT c = CellOf(grid, 38);
             DoubleTap(grid, c.x + 10, c.y + 10);
             Pump(0);
         },
         38},
        {"OK keeps the current", 21, [](HWND d) { Click(d, IDOK); }, 21},
        {"arrows then Enter", 12,
         [](HWND d) {
             HWND grid = GetDlgItem(d, IDC_ICONGRID);
             int columns = Place(grid).columns;
             Key(grid, VK_RIGHT);
             Key(grid, VK_RIGHT);
             Key(grid, VK_DOWN);
             Key(grid, VK_LEFT);
             EXPECT_EQ(Text(d, IDC_ICONNUMBER), L"Icon " + std::to_wstring(13 + columns));
             Key(grid, VK_RETURN);
         },
         -1},
        {"Down on the last row stays", 37, [](HWND d) { Key(GetDlgItem(d, IDC_ICONGRID), VK_DOWN); Key(d, VK_RETURN); }, 37},
        {"End", 2, [](HWND d) { Key(GetDlgItem(d, IDC_ICONGRID), VK_END); Click(d, IDOK); }, 38},
        {"a tap beside the icons", 5,
         [](HWND d) {
             HWND grid = GetDlgItem(d, IDC_ICONGRID);
             POINT c = CellOf(grid, 38);
             Tap(grid, c.x + CELL + 5, c.y + 5); // after the last icon
             Click(d, IDOK);
         },
         5},
        {"an unknown current icon", 500, [](HWND d) { Click(d, IDOK); }, 500},
    };
    for (const Case &c : cases) {
        int columns = 0;
        INT_PTR got = RunScripted([&] { return (INT_PTR)ChooseIcon(g_app.hwndMain, c.current); },
                                  [&](HWND d) {
                                      columns = Place(GetDlgItem(d, IDC_ICONGRID)).columns;
                                      c.script(d);
                                  });
        int want = c.want >= 0 ? c.want : 13 + columns;
        EXPECT_EQ(got, want) << c.name;
    }
}

TEST_F(IconChooser, DrawsEveryIconAsTheMonthDoes)
{
    WriteUserStrip(3);
    ReloadSettings();
    ASSERT_EQ(g_app.iconCount, 42);
    RunScripted([] { return (INT_PTR)ChooseIcon(g_app.hwndMain, 40); },
                [](HWND d) {
                    HWND grid = GetDlgItem(d, IDC_ICONGRID);
                    EXPECT_EQ(Text(d, IDC_ICONNUMBER), L"Icon 40 (icons.bmp)");
                    Picture pic = PaintClient(grid);
                    for (int icon : {0, 7, 38})
                        EXPECT_EQ(IconDiff(pic, CellOf(grid, icon), g_app.bmpIcons, icon, kWhite), "")
                            << "built-in icon " << icon;
                    for (int icon : {39, 41})
                        EXPECT_EQ(IconDiff(pic, CellOf(grid, icon), g_app.userIconsBitmap, icon - 39, kWhite),
                                  "")
                            << "user icon " << icon << " after the built-in ones";
                    EXPECT_EQ(IconDiff(pic, CellOf(grid, 40), g_app.userIconsBitmap, 1, kSelectedFill), "")
                        << "the current icon on its selected cell";
                    POINT after = CellOf(grid, 42);
                    if (after.x + CELL <= pic.width) {
                        EXPECT_EQ(pic.At(after.x + 10, after.y + 10), kWhite) << "nothing after icon 41";
                    }
                    TapIcon(d, 41);
                    Click(d, IDOK);
                });
}

// A strip 100,000 pixels wide gives 11,150 icons: the grid scrolls to the current one and
// through all of them without painting more than it shows.
TEST_F(IconChooser, ThousandsOfIconsScroll)
{
    WriteUserStrip(11111);
    ReloadSettings();
    ASSERT_EQ(g_app.iconCount, 39 + 11111);
    const int last = g_app.iconCount - 1;
    INT_PTR got = RunScripted(
        [&] { return (INT_PTR)ChooseIcon(g_app.hwndMain, last); },
        [&](HWND d) {
            HWND grid = GetDlgItem(d, IDC_ICONGRID);
            POINT c = CellOf(grid, last);
            RECT rc;
            GetClientRect(grid, &rc);
            EXPECT_TRUE(c.y >= 0 && c.y + CELL <= rc.bottom) << "the last icon is in view, at " << c.y;
            Picture pic = PaintClient(grid);
            EXPECT_EQ(IconDiff(pic, c, g_app.userIconsBitmap, last - 39, kSelectedFill), "");
            Key(grid, VK_HOME);
            EXPECT_EQ(GetScrollPos(grid, SB_VERT), 0);
            Key(grid, VK_NEXT);
            Key(grid, VK_NEXT);
            int row = GetScrollPos(grid, SB_VERT);
            EXPECT_GT(row, 0) << "Page Down scrolls";
            SendMessageW(grid, WM_VSCROLL, SB_BOTTOM, 0);
            TapIcon(d, last - 1);
            Click(d, IDOK);
        });
    EXPECT_EQ(got, last - 1);
}

// The chooser as the user sees it, with a user strip, when LF_SHOTS names a folder.
TEST_F(IconChooser, Screenshot)
{
    if (!getenv("LF_SHOTS"))
        GTEST_SKIP() << "LF_SHOTS names no folder";
    WriteUserStrip(12);
    ReloadSettings();
    RunScripted([] { return (INT_PTR)ChooseIcon(g_app.hwndMain, 14); },
                [](HWND d) {
                    Pump(200);
                    EXPECT_TRUE(SaveScreenShot({d}, ShotPath("iconchooser")));
                    Click(d, IDCANCEL);
                });
}

// Small desktop stand-ins for handheld shell and kernel calls.
#include "aygshell.h"

#include <vector>

BOOL SipShowIM(DWORD)
{
    return TRUE; // a desktop has a keyboard; there is no input panel to show
}

// The application area is the main window's client area: 240 x 294 on
// the handheld's screen, the menu bar taking its bottom 24 pixels.
void AppAreaRect(RECT *rc)
{
    HWND main = FindWindowW(L"Lanternfields", L"Lanternfields");
    if (main && GetClientRect(main, rc)) {
        MapWindowPoints(main, HWND_DESKTOP, (POINT *)rc, 2);
        return;
    }
    SetRect(rc, 0, 0, 240, 294);
}

BOOL SHInitDialog(SHINITDLGINFO *info)
{
    if (!info || !IsWindow(info->hDlg))
        return FALSE;
    RECT rc;
    AppAreaRect(&rc);
    return SetWindowPos(info->hDlg, nullptr, rc.left, rc.top, rc.right - rc.left, rc.bottom - rc.top,
                        SWP_NOZORDER | SWP_NOACTIVATE);
}

BOOL TransparentImage(HDC dst, int dx, int dy, int dw, int dh, HANDLE src, int sx, int sy, int sw,
                      int sh, COLORREF transparent)
{
    // The handheld call takes a bitmap or a device context as its source.
    if (GetObjectType(src) == OBJ_BITMAP) {
        HDC mem = CreateCompatibleDC(dst);
        HGDIOBJ old = SelectObject(mem, src);
        BOOL ok = TransparentBlt(dst, dx, dy, dw, dh, mem, sx, sy, sw, sh, transparent);
        SelectObject(mem, old);
        DeleteDC(mem);
        return ok;
    }
    return TransparentBlt(dst, dx, dy, dw, dh, (HDC)src, sx, sy, sw, sh, transparent);
}

BOOL EventModify(HANDLE event, DWORD action)
{
    if (action != EVENT_SET) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return SetEvent(event);
}

// Loads a .bmp file as a DIB section. The file is the user's own (the icon
// strip beside the program), so every header field is checked before it is
// trusted: a short, damaged or absurd file gives no bitmap, never a crash.
HBITMAP SHLoadDIBitmap(LPCWSTR path)
{
    HANDLE f = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (f == INVALID_HANDLE_VALUE)
        return nullptr;
    LARGE_INTEGER size;
    const LONGLONG kMaxFile = 64LL << 20;
    if (!GetFileSizeEx(f, &size) || size.QuadPart < 54 || size.QuadPart > kMaxFile) {
        CloseHandle(f);
        return nullptr;
    }
    std::vector<BYTE> data((size_t)size.QuadPart);
    DWORD got = 0;
    BOOL read = ReadFile(f, data.data(), (DWORD)data.size(), &got, nullptr);
    CloseHandle(f);
    if (!read || got != data.size())
        return nullptr;

    const BITMAPFILEHEADER *fh = (const BITMAPFILEHEADER *)data.data();
    if (fh->bfType != 0x4D42)
        return nullptr;
    const BITMAPINFOHEADER *ih = (const BITMAPINFOHEADER *)(data.data() + sizeof(BITMAPFILEHEADER));
    DWORD hdrSize = ih->biSize;
    if (hdrSize < sizeof(BITMAPINFOHEADER) || sizeof(BITMAPFILEHEADER) + hdrSize > data.size())
        return nullptr;
    LONG w = ih->biWidth, h = ih->biHeight;
    WORD bpp = ih->biBitCount;
    if (w <= 0 || h == 0 || h == LONG_MIN || ih->biPlanes != 1)
        return nullptr;
    LONG absH = h < 0 ? -h : h;
    if (w > 1000000 || absH > 100000)
        return nullptr;
    if (ih->biCompression != BI_RGB)
        return nullptr; // compressed strips are not worth the risk
    if (bpp != 1 && bpp != 4 && bpp != 8 && bpp != 16 && bpp != 24 && bpp != 32)
        return nullptr;
    DWORD colors = 0;
    if (bpp <= 8) {
        colors = ih->biClrUsed ? ih->biClrUsed : (1u << bpp);
        if (colors > (1u << bpp))
            return nullptr;
    }
    ULONGLONG stride = (((ULONGLONG)w * bpp + 31) / 32) * 4;
    ULONGLONG pixels = stride * (ULONGLONG)absH;
    ULONGLONG tableEnd = sizeof(BITMAPFILEHEADER) + hdrSize + (ULONGLONG)colors * 4;
    if (tableEnd > data.size() || fh->bfOffBits < sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER) ||
        (ULONGLONG)fh->bfOffBits + pixels > data.size())
        return nullptr;

    std::vector<BYTE> infoBuf(sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD));
    BITMAPINFO *bi = (BITMAPINFO *)infoBuf.data();
    bi->bmiHeader = *ih;
    bi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    bi->bmiHeader.biClrUsed = colors;
    if (colors)
        memcpy(bi->bmiColors, data.data() + sizeof(BITMAPFILEHEADER) + hdrSize, colors * 4);
    void *bits = nullptr;
    HBITMAP bmp = CreateDIBSection(nullptr, bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    if (!bmp || !bits) {
        if (bmp)
            DeleteObject(bmp);
        return nullptr;
    }
    memcpy(bits, data.data() + fh->bfOffBits, (size_t)pixels);
    return bmp;
}

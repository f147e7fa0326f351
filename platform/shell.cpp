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

// A month pass copies icons from the same strips with the same key colour
// over and over. What TransparentBlt works out afresh on every copy (which
// source pixels are the key) is kept here per bitmap and key: a mask that
// is white where the key is, and the bitmap with its key pixels made
// black, so that each copy is an AND of the mask and an OR of the image.
// A kept pair serves only while its bitmap holds the same pixels as when
// it was made, which is checked on every copy: a bitmap freed, reloaded or
// drawn into is never copied from a stale pair. A few pairs are kept, the
// oldest giving way; they live as long as the process.
namespace {

struct KeyedCopy {
    HBITMAP source = nullptr;
    COLORREF key = 0;
    std::vector<BYTE> pixels; // the source's bits when the pair was made
    HDC maskDC = nullptr, imageDC = nullptr;
    HGDIOBJ maskOld = nullptr, imageOld = nullptr;
    HBITMAP mask = nullptr, image = nullptr;
    int width = 0, height = 0;
};

const int KEPT_COPIES = 4;
KeyedCopy g_kept[KEPT_COPIES];
int g_nextKept;
CRITICAL_SECTION g_keptLock;
INIT_ONCE g_keptOnce = INIT_ONCE_STATIC_INIT;

BOOL CALLBACK InitKeptLock(INIT_ONCE *, void *, void **)
{
    InitializeCriticalSection(&g_keptLock);
    return TRUE;
}

void ForgetCopy(KeyedCopy &k)
{
    if (k.maskDC) {
        SelectObject(k.maskDC, k.maskOld);
        DeleteDC(k.maskDC);
    }
    if (k.imageDC) {
        SelectObject(k.imageDC, k.imageOld);
        DeleteDC(k.imageDC);
    }
    if (k.mask)
        DeleteObject(k.mask);
    if (k.image)
        DeleteObject(k.image);
    k = KeyedCopy();
}

// The bitmap's bits as GetBitmapBits gives them; empty when it is no bitmap.
bool SourceBits(HBITMAP bmp, BITMAP &bm, std::vector<BYTE> &bits)
{
    if (GetObjectType(bmp) != OBJ_BITMAP || !GetObjectW(bmp, sizeof bm, &bm) || bm.bmWidth <= 0 ||
        bm.bmHeight <= 0 || bm.bmWidth > 4096 || bm.bmHeight > 4096)
        return false;
    bits.resize((size_t)bm.bmWidthBytes * (size_t)bm.bmHeight);
    return GetBitmapBits(bmp, (LONG)bits.size(), bits.data()) == (LONG)bits.size();
}

// 32-bit pixels, top row first: the form the copies are made and compared in.
BITMAPINFO TopDown32(int width, int height)
{
    BITMAPINFO bi = {};
    bi.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    bi.bmiHeader.biWidth = width;
    bi.bmiHeader.biHeight = -height;
    bi.bmiHeader.biPlanes = 1;
    bi.bmiHeader.biBitCount = 32;
    bi.bmiHeader.biCompression = BI_RGB;
    return bi;
}

HBITMAP NewDib(HDC like, int width, int height, DWORD **bits)
{
    BITMAPINFO bi = TopDown32(width, height);
    return CreateDIBSection(like, &bi, DIB_RGB_COLORS, reinterpret_cast<void **>(bits), nullptr, 0);
}

// Makes the mask and the image of `bmp` for `key` in `k`.
bool MakeCopy(KeyedCopy &k, HDC dst, HBITMAP bmp, COLORREF key, const BITMAP &bm, std::vector<BYTE> &bits)
{
    int w = bm.bmWidth, h = bm.bmHeight;
    // The source's colours as 32-bit pixels, the form the key is compared in.
    std::vector<DWORD> rgb((size_t)w * h);
    BITMAPINFO bi = TopDown32(w, h);
    HDC screen = GetDC(nullptr);
    int lines = GetDIBits(screen, bmp, 0, (UINT)h, rgb.data(), &bi, DIB_RGB_COLORS);
    ReleaseDC(nullptr, screen);
    if (lines != h)
        return false;
    DWORD *maskBits = nullptr, *imageBits = nullptr;
    k.mask = NewDib(dst, w, h, &maskBits);
    k.image = NewDib(dst, w, h, &imageBits);
    k.maskDC = CreateCompatibleDC(dst);
    k.imageDC = CreateCompatibleDC(dst);
    if (!k.mask || !k.image || !k.maskDC || !k.imageDC || !maskBits || !imageBits) {
        ForgetCopy(k);
        return false;
    }
    DWORD keyPixel = ((DWORD)GetRValue(key) << 16) | ((DWORD)GetGValue(key) << 8) | GetBValue(key);
    for (size_t i = 0; i < rgb.size(); i++) {
        bool transparent = (rgb[i] & 0xFFFFFF) == keyPixel;
        maskBits[i] = transparent ? 0xFFFFFFFF : 0;
        imageBits[i] = transparent ? 0 : rgb[i];
    }
    GdiFlush();
    k.maskOld = SelectObject(k.maskDC, k.mask);
    k.imageOld = SelectObject(k.imageDC, k.image);
    k.source = bmp;
    k.key = key;
    k.width = w;
    k.height = h;
    k.pixels.swap(bits);
    return true;
}

// The kept pair for `bmp` and `key`, made when there is none or the
// bitmap has changed since; null when none can be made. Called under the lock.
KeyedCopy *KeptCopy(HDC dst, HBITMAP bmp, COLORREF key)
{
    BITMAP bm = {};
    std::vector<BYTE> bits;
    if (!SourceBits(bmp, bm, bits))
        return nullptr;
    for (KeyedCopy &k : g_kept) {
        if (k.source != bmp || k.key != key)
            continue;
        if (k.width == bm.bmWidth && k.height == bm.bmHeight && k.pixels == bits)
            return &k;
        ForgetCopy(k);
    }
    KeyedCopy &k = g_kept[g_nextKept];
    g_nextKept = (g_nextKept + 1) % KEPT_COPIES;
    ForgetCopy(k);
    return MakeCopy(k, dst, bmp, key, bm, bits) ? &k : nullptr;
}

} // namespace

BOOL TransparentImage(HDC dst, int dx, int dy, int dw, int dh, HANDLE src, int sx, int sy, int sw,
                      int sh, COLORREF transparent)
{
    // The handheld call takes a bitmap or a device context as its source.
    if (GetObjectType(src) != OBJ_BITMAP)
        return TransparentBlt(dst, dx, dy, dw, dh, (HDC)src, sx, sy, sw, sh, transparent);
    HBITMAP bmp = static_cast<HBITMAP>(src);
    // Unstretched copies from inside the bitmap go through its kept pair.
    if (dw == sw && dh == sh && sw > 0 && sh > 0 && sx >= 0 && sy >= 0) {
        InitOnceExecuteOnce(&g_keptOnce, InitKeptLock, nullptr, nullptr);
        EnterCriticalSection(&g_keptLock);
        KeyedCopy *k = KeptCopy(dst, bmp, transparent);
        BOOL done = FALSE;
        if (k && sx + sw <= k->width && sy + sh <= k->height)
            done = BitBlt(dst, dx, dy, dw, dh, k->maskDC, sx, sy, SRCAND) &&
                   BitBlt(dst, dx, dy, dw, dh, k->imageDC, sx, sy, SRCPAINT);
        LeaveCriticalSection(&g_keptLock);
        if (done)
            return TRUE;
    }
    HDC mem = CreateCompatibleDC(dst);
    HGDIOBJ old = SelectObject(mem, src);
    BOOL ok = TransparentBlt(dst, dx, dy, dw, dh, mem, sx, sy, sw, sh, transparent);
    SelectObject(mem, old);
    DeleteDC(mem);
    return ok;
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

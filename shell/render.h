// The rendering thread and the back buffer it draws into. The UI thread
// only requests passes and copies the finished buffer to the screen.
#pragma once

#include <windows.h>

void CreateBackBuffer(int width, int height);
void DestroyBackBuffer();
void BlitBackBuffer(HWND hwnd);
void RequestRedraw();
HFONT CreateViewFont(int height, int strikeOut, int bold);
void DrawBitmapAt(HDC dc, HBITMAP bmp, int x, int y);
void DrawBitmapTransparent(HDC dc, HBITMAP bmp, int sx, int sy, int dx, int dy, int w, int h,
                           COLORREF transparent);
DWORD WINAPI RenderThreadProc(LPVOID);

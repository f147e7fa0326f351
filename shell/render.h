// The rendering thread and the back buffer it draws into. The UI thread
// only requests passes and copies the finished buffer to the screen.
#pragma once

#include <windows.h>

void CreateBackBuffer(int width, int height);
void DestroyBackBuffer();
void BlitBackBuffer(HWND hwnd);
void RequestRedraw();
DWORD WINAPI RenderThreadProc(LPVOID);

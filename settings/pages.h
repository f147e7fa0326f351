// The settings sheet's five pages, in the sheet's order. Each page is a file of its own, named
// after the page, holding its procedure and its table; the sheet (settingssheet.cpp) lists them.
// Every page writes its settings when the user accepts the sheet and nothing when he cancels it.
#pragma once

#include <windows.h>

INT_PTR CALLBACK OptionsPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp);  // optionspage.cpp
INT_PTR CALLBACK TimesPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp);    // timespage.cpp
INT_PTR CALLBACK ColorPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp);    // colorpage.cpp
INT_PTR CALLBACK CategoryPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp); // categorypage.cpp
INT_PTR CALLBACK IconsPageProc(HWND page, UINT msg, WPARAM wp, LPARAM lp);    // iconspage.cpp

// The Options, Times and Color pages' answer to the sheet: the input panel goes away whenever
// the page comes or goes, leaving the page is always allowed, and `apply` writes the page's
// settings when the user accepts the sheet.
INT_PTR PageNotify(HWND page, NMHDR *hdr, void (*apply)(HWND page));

// Marks a call that draws the single frame only.
const COLORREF FRAME_SINGLE = 12345678;

// The pages' group frames: a rounded rectangle in `outer` with a second one in `inner` one pixel
// inside it, both filled with the DC's brush; with `outer` FRAME_SINGLE, the full-size one in
// `inner` alone.
void DrawDoubleFrame(HDC dc, int left, int top, int right, int bottom, int corner,
                     COLORREF inner, COLORREF outer);

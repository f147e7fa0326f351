// A small dialog of the tests' own, built as the program's dialogs are (a template, a record,
// a table of handlers, one entry), for the tests of that pattern and of the dialog harness.
// Its ids lie above every id of the program, whose resources the tests link too.
#pragma once

#include <windows.h>

#define IDD_SAMPLE 9001
#define IDC_SAMPLE_NAME 9002
#define IDC_SAMPLE_LIST 9003
#define IDM_SAMPLE 9010 // the pad's context menu
#define IDM_SAMPLE_COPY 9011
#define IDM_SAMPLE_PASTE 9012 // greyed
#define IDM_SAMPLE_DELETE 9013

const UINT_PTR SAMPLE_HOLD_TIMER = 2;
const int SAMPLE_OK = 7; // OK's result; Cancel's is 0

struct SampleData {
    WCHAR name[32];         // the edit's text: shown at the start, taken back on OK
    COLORREF rowColour = 0; // the list row's background
    int closeOnFocusLoss = 0;
    int menuChoice = 0; // the context-menu command last chosen, 0 for none
    int doubleTaps = 0;
};

INT_PTR ShowSample(HWND owner, SampleData *data);
// A point of the pad, the dialog's empty band between the list and the buttons, where a hold
// opens the context menu and a double tap is counted; in the dialog's client pixels.
POINT SamplePadPoint(HWND dlg);

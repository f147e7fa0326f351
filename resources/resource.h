// Resource and command ids shared by the .rc and the code. The numbers are
// the ones the program has always used; other programs and the settings
// refer to some of them.
#pragma once

// Menu bar.
#define IDM_MENUBAR         103   // menu-bar resource: MENU + RCDATA
#define IDB_MENUBAR         129   // its two button images (16 x 16 each)
#define IDB_MENUBAR_IMAGES  2
#define IDI_IMAGE_MONTH     0     // shown in the year view: back to the month
#define IDI_IMAGE_YEAR      1     // shown in the month view: to the year

// Commands of the main window.
#define IDM_NEW             40001
#define IDM_OPTIONS         40004 // the menu bar's "Options" popup button
#define IDM_EXIT            40008
#define IDM_SETTINGS        40011
#define IDM_TOGGLEYEAR      40026
#define IDM_SEPARATOR       1007  // the separator before the toggle button

// The day list's context menu, a stylus held on the list.
#define IDM_DAYLIST         111
#define IDM_COPY            40015
#define IDM_DELETE          40017
#define IDM_CUT             40018
#define IDM_EDIT            40019
#define IDM_PASTE           40020
#define IDM_NEWITEM         40021
#define IDM_BEAM            40027

// Bitmaps.
#define IDB_BACKGROUND      105   // 240 x 20, behind the month strip
#define IDB_DAYHEADER       106   // 232 x 18, the day view's header strip
#define IDB_ALARM           107   // 8 x 8 alarm marker of the day list
#define IDB_ICONS           117   // 351 x 9: the 39 built-in category icons
#define IDB_POPUPTITLE      126   // 32 x 14, the day popup's title strip (stretched)
#define IDB_YEARNEXT        127   // 6 x 11 year view arrows
#define IDB_YEARPREV        128
#define IDB_BADGE           130   // 5 x 5 year view badge
#define IDB_NOTES           131   // 9 x 8 notes marker of the day list
#define IDB_DELETE          122   // 24 x 24 waste bin of the delete confirmation

// Dialogs.
#define IDD_DAYVIEW         106
#define IDD_NOTES           108
#define IDD_GOTODATE        123
#define IDD_DAYPOPUP        124
#define IDD_DELETE          122

// Controls of the day view and its notes popup.
#define IDC_DAYLIST         222   // the day list, made by the day view's code
#define IDC_NOTESTEXT       1081  // the notes popup's one text
#define IDC_NOTESSCROLL     1082  // and its scroll bar

// Controls of the main window.
#define IDC_YEARTIP         223

// Controls and commands of the day popup.
#define IDC_POPUPLIST       1029
#define IDM_POPUPCLOSE      1000

// Controls of the delete confirmation. The first two buttons are the layout of a single
// appointment, the last three that of a series.
#define IDC_DELETEOK        1000
#define IDC_DELETECANCEL    1001
#define IDC_DELETESUBJECT   1052  // the appointment's subject
#define IDC_DELETEQUESTION  1053
#define IDC_DELETEONE       1054  // only the selected day's occurrence
#define IDC_DELETESERIES    1055  // the whole series
#define IDC_DELETESERIESCANCEL 1029

// The settings sheet and its pages. Each page keeps its controls in its own range: Color
// 1100-1139, Category 1140-1179, Icons 1180-1229, the icon chooser 1230-1259.
#define IDI_SETTINGS        108   // the sheet's icon
#define IDD_COLORPAGE       105
#define IDD_OPTIONSPAGE     107
#define IDD_TIMESPAGE       109
#define IDD_COLORPICKER     115
#define IDD_CATEGORYPAGE    119
#define IDD_ICONSPAGE       121
#define IDD_ICONCHOOSER     125

// Controls of the Icons page: the list of the 48 icon slots, and under it the selected slot's
// icon (a button that opens the icon chooser) and label.
#define IDC_ICONSLOTLIST    1180
#define IDC_ICONSLOTICON    1181
#define IDC_ICONSLOTLABEL   1182
#define IDC_ICONSLOTICONTEXT 1183
#define IDC_ICONSLOTLABELTEXT 1184
#define IDC_ICONSLOTHINT    1185

// Controls of the icon chooser: the grid of icons and the number of the one selected.
#define IDC_ICONGRID        1230
#define IDC_ICONNUMBER      1231

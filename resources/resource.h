// Resource and command ids shared by the .rc and the code. The numbers are
// the ones the program has always used; other programs and the settings
// refer to some of them.
#pragma once

#ifndef IDC_STATIC
#define IDC_STATIC          (-1)  // a label no code reaches
#endif

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

// Controls of the Category page.
#define IDC_CATEGORYHEAD    1140  // "Categories"
#define IDC_CATEGORYLIST    1141  // the device's categories, each with its colour and icon
#define IDC_CATEGORYCOLORL  1142  // "Color:"
#define IDC_CATEGORYCOLOR   1143  // the selected category's colour; opens the colour picker
#define IDC_CATEGORYICONL   1144  // "Icon:"
#define IDC_CATEGORYICON    1145  // the selected category's icon; opens the icon chooser
#define IDC_CATEGORYNOTE    1146  // why the selected category cannot be changed, or why none are listed

// Controls of the Options page, one check box per display flag.
#define IDC_OPTSHOWDAYS       1009
#define IDC_OPTCLEARTYPE      1010
#define IDC_OPTCOLOREXPIRED   1011
#define IDC_OPTSHOWINDICATOR  1016
#define IDC_OPTSHOWFREE       1017
#define IDC_OPTSHOWLOCATION   1018
#define IDC_OPTSHOWHOLIDAY    1019
#define IDC_OPTSHOWWEEKNUMBER 1020
#define IDC_OPTWRAPSUBJECT    1021
#define IDC_OPTCOLORYEARVIEW  1022
#define IDC_OPTALARMFLAG      1023

// Controls of the Times page: the four indicator boundaries, contiguous in timeA ... timeD
// order, the default start and end of a new appointment, and the two group headings.
#define IDC_TIMEA           1012
#define IDC_TIMEB           1013
#define IDC_TIMEC           1014
#define IDC_TIMED           1015
#define IDC_TIMESTART       1016
#define IDC_TIMEEND         1018
#define IDC_TIMESHEADING1   1072
#define IDC_TIMESHEADING2   1073

// Controls of the Color page: a swatch per colour setting, the two colouring choices, and the
// headings of its two groups.
#define IDC_COLORMONTH1     1100
#define IDC_COLORMONTH2     1101
#define IDC_COLORTODAY      1102
#define IDC_COLORDATE       1103
#define IDC_COLORALLDAY     1104
#define IDC_COLORTEXT       1105
#define IDC_COLORLOCATION   1106
#define IDC_COLORROW1       1107
#define IDC_COLORROW2       1108
#define IDC_COLORCELLSTYLE  1110  // calendarcolorstyle
#define IDC_COLORROWSTYLE   1111  // rowcolorindex
#define IDC_COLORHEADMONTH  1120
#define IDC_COLORHEADDAY    1121

// Controls of the colour picker.
#define IDC_PICKEROK        1000
#define IDC_PICKERSLIDER    1027  // lightness, 0 ... 240
#define IDC_PICKERCANCEL    1029

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

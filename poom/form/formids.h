// The calendar server's resources: the appointment form's template, its controls and its
// messages. Shared by form.rc and the code, and used by the tests by name.
#pragma once

#define IDD_APPOINTMENTFORM 100

// The command the program's timer sends to the form's "Appointment" child: show the
// appointment page and put the focus on the subject. Not a control's id.
#define IDM_FORM_SHOWAPPOINTMENT 105

// The appointment group (its frame is the child titled "Appointment").
#define IDC_FORM_APPOINTMENT 1000
#define IDC_FORM_SUBJECT 1001
#define IDC_FORM_LOCATION 1002
#define IDC_FORM_STARTDATE 1003
#define IDC_FORM_STARTTIME 1004
#define IDC_FORM_ENDDATE 1005
#define IDC_FORM_ENDTIME 1006
#define IDC_FORM_ALLDAY 1007
#define IDC_FORM_REMINDER 1008
#define IDC_FORM_BUSY 1009
#define IDC_FORM_SENSITIVITY 1010

// The recurrence group.
#define IDC_FORM_RECURS 1020
#define IDC_FORM_INTERVAL 1021
#define IDC_FORM_INTERVALSPIN 1022
#define IDC_FORM_INTERVALUNIT 1023
// Seven weekday boxes, contiguous: box k shows the k-th day of the locale's week.
#define IDC_FORM_WEEKDAY0 1030
#define IDC_FORM_WEEKDAY6 1036
#define IDC_FORM_ONDAY 1040
#define IDC_FORM_DAYOFMONTH 1041
#define IDC_FORM_ONNTH 1042
#define IDC_FORM_INSTANCE 1043
#define IDC_FORM_NTHWEEKDAY 1044
#define IDC_FORM_MONTH 1045
#define IDC_FORM_ENDNEVER 1050
#define IDC_FORM_ENDAFTER 1051
#define IDC_FORM_COUNT 1052
#define IDC_FORM_ENDUNTIL 1053
#define IDC_FORM_UNTILDATE 1054
#define IDC_FORM_OCCURRENCENOTE 1055

// Categories and notes.
#define IDC_FORM_CATEGORIES 1060
#define IDC_FORM_OTHERCATEGORIES 1061
#define IDC_FORM_NOTES 1062

// Messages (each a clear sentence; the caption is the form's title).
#define IDS_FORM_BADSTARTTIME 2001
#define IDS_FORM_BADENDTIME 2002
#define IDS_FORM_ENDBEFORESTART 2003
#define IDS_FORM_NOWEEKDAY 2004
#define IDS_FORM_BADINTERVAL 2005
#define IDS_FORM_BADCOUNT 2006
#define IDS_FORM_UNTILBEFORESTART 2007
#define IDS_FORM_BADDAYOFMONTH 2008
#define IDS_FORM_SAVEFAILED 2009
#define IDS_FORM_CONFLICT 2010
#define IDS_FORM_DELETEDMEANWHILE 2011

// The colour and icon the user gives each appointment category, kept in the database
// "categoryprops" of the volume "settings.vol" beside the program, and the device's own list of
// categories ("Categories Database" in its object store) merged with them.
#pragma once

#include <windows.h>
#include "platform/cedb.h"

const int CATEGORY_NAME_LEN = 30; // units, terminator included

// One stored category: its name (the key), colour and icon.
struct CategoryProps {
    WCHAR name[CATEGORY_NAME_LEN];
    COLORREF color;
    DWORD icon; // a 16-bit value
};

// One of the device's category names, and whether it was longer than the slot (such a name is
// never saved: its cut form would stand for another category).
struct CategoryName {
    WCHAR name[CATEGORY_NAME_LEN];
    BOOL cut;
};

// A device category's colour and icon, stored or by default.
struct CategoryLook {
    COLORREF color;
    DWORD icon;
};

// The record properties of "categoryprops".
const CEPROPID PROP_CATEGORY_NAME = MAKEPROPID(0x000A, CEVT_LPWSTR);
const CEPROPID PROP_CATEGORY_COLOR = MAKEPROPID(0x000B, CEVT_I4);
const CEPROPID PROP_CATEGORY_ICON = MAKEPROPID(0x000C, CEVT_I2);
// The property of a "Categories Database" record that holds its category's name.
const CEPROPID PROP_DEVICE_CATEGORY = MAKEPROPID(0x0001, CEVT_LPWSTR);

extern const WCHAR kCategoryDbName[];       // "categoryprops"
extern const WCHAR kDeviceCategoryDbName[]; // "Categories Database"
const int DEFAULT_CATEGORY_COLORS = 8;
extern const COLORREF kDefaultCategoryColors[DEFAULT_CATEGORY_COLORS];

// The full path of "settings.vol".
void CategoryVolumePath(WCHAR *path, int length);
// Opens "categoryprops" in the mounted volume, creating it when it is missing, and gives its
// number of records. The invalid handle value, or 0 after "Not enough memory!", on failure.
HANDLE OpenCreateCategoryDb(CEGUID *volume, DWORD *count);
// Every stored category, in name order, in an array freed with FreeCategoryArray. No array and
// a count of 0 when there are none; no array and a count of -1 when the volume or a record
// could not be read (the user has been told where the handheld told him).
CategoryProps *LoadCategoryProps(int *count);
// Gives the category that colour and icon, adding its record when it has none. 1 when both
// were written, 0 when not (the user has been told where the handheld told him).
int SaveCategoryProps(const WCHAR *name, COLORREF color, int icon);
// Deletes "categoryprops" (not reached from the user interface).
void DeleteCategoryDb();
// The device's category names in its order, cut to 29 units; freed with FreeCategoryArray.
// No array and a count of 0 when there are none or they cannot be read; `quiet` leaves the
// messages out.
CategoryName *ReadDeviceCategories(int *count, bool quiet = false);
// The stored properties of the category `name`, if any.
const CategoryProps *StoredCategoryProps(const WCHAR *name, const CategoryProps *props, int count);
// For each device name, the first stored category of that name, or the next colour of the
// default cycle and icon 0. An icon the program does not have reads as icon 0.
CategoryLook *MergeCategoryProps(const CategoryName *names, int nameCount, const CategoryProps *props,
                                 int propCount);
void FreeCategoryArray(void *array);
// How many messages the category routines have shown so far, so that a caller tells the user
// of a failure only when they have not.
int CategoryMessagesShown();

// The program's categories in AppState: the stored properties loaded again, the device's names
// read again and the two merged again (start-up, and the Category page's OK). Stored properties
// that cannot be read keep the ones loaded before.
void ReloadCategories(bool quiet);
// The device's names read again and, when they changed (the calendar server lists a category
// an appointment has just been given, or lists the store's categories after start-up), merged
// again with the stored properties held; quiet.
void RefreshDeviceCategories();
void FreeCategories();
// The colour of the first of an appointment's categories (separated by commas or line feeds,
// each perhaps after blanks) that the device knows; `fallback` when it knows none of them.
COLORREF CategoryColorOf(const WCHAR *categories, COLORREF fallback);

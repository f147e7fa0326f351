// The device's category list: the database "Categories Database" in the device object store,
// which programs read to offer the categories in use. The calendar server keeps it equal to
// the categories of its store.
//
// Layout: type 0, no sort order; one record per category, in the order the list is shown; each
// record holds property 0x0001001F (id 1, CEVT_LPWSTR), the name as written in the store.
// Order: by name in the user's locale, ignoring case; names differing only in case are one
// category, written as first found in the store.
#pragma once

#include <string>
#include <vector>

#include "store_model.h"

namespace poom {

const wchar_t kCategoriesDatabase[] = L"Categories Database";
const unsigned long kCategoryNameProp = 0x0001001F;
// A name is stored whole up to this many characters (the volume takes values of 64 KB); a
// longer one is cut.
const size_t kMaxCategoryChars = 32000;

// The names as the list holds them: each once, in the list's order.
std::vector<std::wstring> DeviceCategoryList(const std::vector<std::wstring>& namesInUse);

// Brings the database to `list`, rewriting only from the first record that differs. False
// when the object store could not be read or written (a damaged file is left as it is); the
// calendar is served all the same.
bool WriteDeviceCategories(const std::vector<std::wstring>& list);

// The store's categories into the database, when they changed.
void SyncDeviceCategories(const Store& store);

}  // namespace poom

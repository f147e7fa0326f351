// The device's category list: the database "Categories Database" in the device object store,
// which programs read to offer the categories in use. The calendar server keeps it equal to
// the categories of its store.
//
// Layout: type 0, no sort order; one record per category, in the order the list is shown; each
// record holds property 0x0001001F (id 1, CEVT_LPWSTR), the name as written in the store.
// Order: by name in the user's locale, ignoring case; names differing only in case are one
// category, spelt as the first of them in ordinal order ("Personal" before "personal"), so the
// spelling does not change with the order appointments are saved in.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "store_model.h"

namespace poom {

const wchar_t kCategoriesDatabase[] = L"Categories Database";
const unsigned long kCategoryNameProp = 0x0001001F;
// What the list holds at most, so that it always fits the object store's volume (16 MB): names
// cut to 512 characters, and the first 10,000 categories in the list's order.
const size_t kMaxCategoryChars = 512;
const size_t kMaxCategories = 10000;

// The names as the list holds them: each once, in the list's order.
std::vector<std::wstring> DeviceCategoryList(const std::vector<std::wstring>& namesInUse);

// Brings the database to `list`, rewriting only from the first record that differs, in one
// write of the object store. False when the object store could not be read or written (a
// damaged file is left as it is); the calendar is served all the same.
bool WriteDeviceCategories(const std::vector<std::wstring>& list);

// Which appointment uses which category, so that a save or delete finds out whether the set
// changed from that one appointment, without reading the whole store again.
struct CategoryIndex {
    std::mutex mu;
    std::map<std::uint32_t, std::vector<std::wstring>> byItem;  // an appointment's names
    std::map<std::wstring, int> uses;                           // a name's appointments
    bool rebuilding = false;
    bool unwritten = false;  // the last list could not be written: it is tried again
    int retriesLeft = 0;     // by the watch, before it waits for the next change
    std::vector<std::uint32_t> touched;  // saved or deleted while the store was being read
};

// The whole store read into the index and the list written (after logon, and after another
// program changed the store). Saves and deletes meanwhile are taken in at its end.
void RebuildDeviceCategories(CategoryIndex& index, const Store& store);
// A rebuild is due but starts later: saves and deletes until then wait for it instead of
// writing a list made from the index's empty start.
void AwaitDeviceCategories(CategoryIndex& index);
// One appointment saved or deleted: the list is written when the set of names changed.
void UpdateDeviceCategories(CategoryIndex& index, const Store& store, std::uint32_t oid);
// The list written again when the last write failed (the object store held by another
// program); the calendar server's watch calls it every half second, for a minute at most, as a
// file that stays refused (made read-only) is not worth opening twice a second for ever: the
// next save or delete tries again.
void RetryDeviceCategories(CategoryIndex& index);

}  // namespace poom

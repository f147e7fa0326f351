// The device's category list that the calendar server keeps in the object store: read back
// with the property database calls, as the program reads it, after logons, saves and deletes
// through the real server.
#include "com_support.h"

#include "cedb.h"

const CEPROPID kNameProp = 0x0001001F;

// A fresh object store file for one test, named as the program names it.
class TempObjectStore {
public:
    TempObjectStore() {
        wchar_t tmp[MAX_PATH];
        GetTempPathW(MAX_PATH, tmp);
        static int counter = 0;
        path_ = std::wstring(tmp) + L"objectstore-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(++counter) + L".vol";
        DeleteFileW(path_.c_str());
        SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", path_.c_str());
    }
    ~TempObjectStore() {
        SetEnvironmentVariableW(L"LANTERNFIELDS_OBJECTSTORE", nullptr);
        DeleteFileW(path_.c_str());
    }
    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
};

struct CategoryList {
    bool found = false;
    DWORD type = 0xFFFFFFFF;
    int sortOrders = -1;
    std::vector<std::wstring> names;
    int recordsWithoutName = 0;
};

// "Categories Database" found by enumerating the object store, as its readers find it.
static CategoryList ReadCategoryList() {
    CategoryList out;
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    HANDLE e = CeFindFirstDatabaseEx(&sys, 0);
    if (e == INVALID_HANDLE_VALUE) return out;
    CEOID oid = 0, found = 0;
    while ((oid = CeFindNextDatabaseEx(e, &sys)) != 0) {
        CEOIDINFO info = {};
        if (CeOidGetInfoEx(&sys, oid, &info) && !lstrcmpW(info.infDatabase.szDbaseName, L"Categories Database")) {
            found = oid;
            out.type = info.infDatabase.dwDbaseType;
            out.sortOrders = info.infDatabase.wNumSortOrder;
        }
    }
    CloseHandle(e);
    if (!found) return out;
    out.found = true;
    HANDLE db = CeOpenDatabaseEx(&sys, &found, nullptr, 0, CEDB_AUTOINCREMENT, nullptr);
    EXPECT_NE(db, INVALID_HANDLE_VALUE);
    if (db == INVALID_HANDLE_VALUE) return out;
    LPBYTE buffer = nullptr;
    DWORD size = 0;
    WORD props = 0;
    while (CeReadRecordProps(db, CEDB_ALLOWREALLOC, &props, nullptr, &buffer, &size)) {
        const CEPROPVAL* v = reinterpret_cast<const CEPROPVAL*>(buffer);
        bool named = false;
        for (WORD i = 0; i < props; i++)
            if (v[i].propid == kNameProp) {
                out.names.push_back(v[i].val.lpwstr);
                named = true;
            }
        if (!named) out.recordsWithoutName++;
    }
    if (buffer) LocalFree(buffer);
    CloseHandle(db);
    return out;
}

static std::string Listed(const std::vector<std::wstring>& names) {
    std::string s;
    for (const auto& n : names) s += (s.empty() ? "" : "|") + Narrow(n);
    return s;
}

// The list as the server writes it after a logon: it reads the store for it in the background,
// so the list is waited for.
static CategoryList ListAfterLogon(const std::string& want) {
    CategoryList list;
    for (int i = 0; i < 500; i++) {
        list = ReadCategoryList();
        if (list.found && Listed(list.names) == want) break;
        Sleep(20);
    }
    return list;
}

static std::string Event(const char* uid, const char* day, const std::string& categories) {
    std::string e = std::string("BEGIN:VEVENT\r\nUID:") + uid + "\r\nDTSTAMP:20300101T000000Z\r\nDTSTART:" + day +
                    "T090000\r\nDTEND:" + day + "T100000\r\nSUMMARY:" + uid + "\r\n";
    if (!categories.empty()) e += "CATEGORIES:" + categories + "\r\n";
    return e + "END:VEVENT\r\n";
}

static std::string Calendar(const std::string& events) {
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Lanternfields//category list tests//EN\r\n" + events +
           "END:VCALENDAR\r\n";
}

static void ItemOf(Server& server, const wchar_t* subject, ComPtr<IAppointment>& appt) {
    IDispatch* d = nullptr;
    EXPECT_EQ(server.app->GetItemFromOid(OidOf(server.calendar.get(), subject), &d), S_OK);
    if (d) {
        AsAppointment(d, appt);
        d->Release();
    }
}

static HRESULT DeleteItem(Server& server, const wchar_t* subject) {
    ComPtr<IAppointment> appt;
    ItemOf(server, subject, appt);
    return appt ? appt->Delete() : E_FAIL;
}

TEST(CategoryList, LogonWritesTheStoresCategoriesInOrder) {
    TempObjectStore objects;
    // Another database of the object store, which the list leaves alone.
    CEGUID sys;
    CREATE_SYSTEMGUID(&sys);
    CEDBASEINFO other = {};
    other.dwFlags = CEDB_VALIDNAME | CEDB_VALIDTYPE;
    lstrcpyW(other.szDbaseName, L"Contacts Database");
    other.dwDbaseType = 7;
    ASSERT_NE(CeCreateDatabaseEx(&sys, &other), 0u);

    TempStore store(Calendar(Event("a", "20300301", "work, personal") + Event("b", "20300302", "Business") +
                             Event("c", "20300303", "Work,\tzebra") + Event("d", "20300304", "\xC3\x84rger") +
                             Event("e", "20300305", "  Travel  ,,") + Event("f", "20300306", "")));
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    CategoryList list = ListAfterLogon("?rger|Business|personal|Travel|Work|zebra");
    ASSERT_TRUE(list.found);
    EXPECT_EQ(list.type, 0u);
    EXPECT_EQ(list.sortOrders, 0);
    EXPECT_EQ(list.recordsWithoutName, 0);
    // By name ignoring case in either locale (an umlaut sorts with its letter); "work" is the
    // same category as "Work", spelt as the ordinal first of the two.
    EXPECT_EQ(Listed(list.names), "?rger|Business|personal|Travel|Work|zebra");
    EXPECT_EQ(list.names[0], L"\u00C4rger");

    bool otherKept = false;
    HANDLE e = CeFindFirstDatabaseEx(&sys, 7);
    if (e != INVALID_HANDLE_VALUE) {
        otherKept = CeFindNextDatabaseEx(e, &sys) != 0;
        CloseHandle(e);
    }
    EXPECT_TRUE(otherKept) << "the object store's other databases stay";
}

TEST(CategoryList, FollowsSavesAndDeletes) {
    TempObjectStore objects;
    TempStore store(Calendar(Event("Meeting", "20300301", "Business") + Event("Lunch", "20300302", "Personal") +
                             Event("Review", "20300303", "Business")));
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    ASSERT_EQ(Listed(ListAfterLogon("Business|Personal").names), "Business|Personal");

    // A save that keeps the set writes nothing.
    std::string before = ReadBytes(objects.path());
    ComPtr<IAppointment> lunch;
    ItemOf(server, L"Lunch", lunch);
    ASSERT_TRUE(lunch);
    ASSERT_EQ(lunch->put_Location(Bstr(L"Canteen")), S_OK);
    ASSERT_EQ(lunch->Save(), S_OK);
    EXPECT_TRUE(ReadBytes(objects.path()) == before) << "the list's file is untouched";

    // A new appointment with a new category adds it in its place.
    IDispatch* d = nullptr;
    ASSERT_EQ(server.app->CreateItem(olAppointmentItem, &d), S_OK);
    ComPtr<IAppointment> trip;
    AsAppointment(d, trip);
    d->Release();
    ASSERT_EQ(trip->put_Subject(Bstr(L"Trip")), S_OK);
    ASSERT_EQ(trip->put_Categories(Bstr(L"Holiday, personal")), S_OK);
    ASSERT_EQ(trip->put_Start(OleDate(server.app.get(), 2030, 3, 10, 9)), S_OK);
    ASSERT_EQ(trip->put_End(OleDate(server.app.get(), 2030, 3, 10, 10)), S_OK);
    ASSERT_EQ(trip->Save(), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Business|Holiday|Personal")
        << "Personal and personal are one, spelt Personal";

    // Deleting one of two Business appointments keeps Business; the last one takes it away.
    ASSERT_EQ(DeleteItem(server, L"Meeting"), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Business|Holiday|Personal");
    ASSERT_EQ(DeleteItem(server, L"Review"), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Holiday|Personal");

    // A category changed on an appointment replaces the old one.
    ComPtr<IAppointment> again;
    ItemOf(server, L"Lunch", again);
    ASSERT_EQ(again->put_Categories(Bstr(L"Family")), S_OK);
    ASSERT_EQ(again->Save(), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Family|Holiday|personal")
        << "Personal went with Lunch; the trip's own spelling is left";
}

// A series counts with its changed occurrences: a category only an occurrence has is listed,
// one given to an occurrence is added, and deleting the series takes them all away.
TEST(CategoryList, SeriesAndTheirChangedOccurrences) {
    TempObjectStore objects;
    TempStore store(Calendar(
        "BEGIN:VEVENT\r\nUID:class\r\nDTSTAMP:20300101T000000Z\r\nDTSTART:20300304T090000\r\n"
        "DTEND:20300304T100000\r\nRRULE:FREQ=WEEKLY;COUNT=6\r\nSUMMARY:Class\r\nCATEGORIES:School\r\n"
        "END:VEVENT\r\n"
        "BEGIN:VEVENT\r\nUID:class\r\nDTSTAMP:20300101T000000Z\r\nRECURRENCE-ID:20300311T090000\r\n"
        "DTSTART:20300311T090000\r\nDTEND:20300311T110000\r\nSUMMARY:Class test\r\nCATEGORIES:Exam\r\n"
        "END:VEVENT\r\n" +
        Event("other", "20300320", "Business")));
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    EXPECT_EQ(Listed(ListAfterLogon("Business|Exam|School").names), "Business|Exam|School");

    long series = OidOf(server.calendar.get(), L"Class");
    ComPtr<IAppointment> occurrence;
    ASSERT_EQ(OccurrenceOn(server.app.get(), series, 2030, 3, 18, occurrence), S_OK);
    ASSERT_EQ(occurrence->put_Categories(Bstr(L"Trip")), S_OK);
    ASSERT_EQ(occurrence->Save(), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Business|Exam|School|Trip");

    ASSERT_EQ(DeleteItem(server, L"Class"), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Business");
}

// A 200-character name is stored whole, a 600-character one cut to 512; 1,000 categories are
// 1,000 records in order.
TEST(CategoryList, LongNamesAndManyCategories) {
    TempObjectStore objects;
    std::string longName(200, 'L'), longer(600, 'M');
    std::string many;
    for (int i = 999; i >= 0; i--) {
        char name[16];
        snprintf(name, sizeof name, "cat%04d", i);
        many += (many.empty() ? "" : ",") + std::string(name);
    }
    TempStore store(Calendar(Event("long", "20300301", longName) + Event("longer", "20300303", longer) +
                             Event("many", "20300302", many)));
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    std::string all;
    for (int i = 0; i < 1000; i++) {
        char name[16];
        snprintf(name, sizeof name, "cat%04d|", i);
        all += name;
    }
    std::string cut = longer.substr(0, 512);
    CategoryList list = ListAfterLogon(all + longName + "|" + cut);
    ASSERT_EQ(list.names.size(), 1002u);
    EXPECT_EQ(Narrow(list.names[0]), "cat0000");
    EXPECT_EQ(Narrow(list.names[999]), "cat0999");
    EXPECT_EQ(Narrow(list.names[1000]), longName) << "the long name whole";
    EXPECT_EQ(Narrow(list.names[1001]), cut) << "the longer one cut";

    // Taking the 1,000 away leaves the two long ones.
    ASSERT_EQ(DeleteItem(server, L"many"), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), longName + "|" + cut);
}

// A damaged object store is neither read nor replaced, and the calendar is served as ever.
TEST(CategoryList, DamagedObjectStoreIsLeftAlone) {
    TempObjectStore objects;
    std::string damaged = "LFDBVOL\x1a" + std::string(100, '\x5a');
    WriteBytes(objects.path(), damaged);
    TempStore store(Calendar(Event("Meeting", "20300301", "Business")));
    Server server;
    ASSERT_EQ(server.logon, S_OK);
    Sleep(300);  // time for the list to be tried
    EXPECT_EQ(OneDay(server.calendar.get(), 2030, 3, 1).size(), 1u);
    ComPtr<IAppointment> meeting;
    ItemOf(server, L"Meeting", meeting);
    ASSERT_TRUE(meeting);
    ASSERT_EQ(meeting->put_Categories(Bstr(L"Other")), S_OK);
    ASSERT_EQ(meeting->Save(), S_OK);
    EXPECT_NE(ReadBytes(store.path()).find("CATEGORIES:Other"), std::string::npos);
    EXPECT_TRUE(ReadBytes(objects.path()) == damaged) << "the damaged file is as it was";
}

// A large store's list is read once the program's first month is drawn: saves and deletes made
// before that are in the list it writes, which holds the whole store's categories, not only
// theirs; a logoff while the read still waits neither writes a list nor hangs.
TEST(CategoryList, LargeStoreIsListedLaterAndWhole) {
    TempObjectStore objects;
    std::string events;
    char uid[32], day[16];
    for (int i = 0; events.size() < (1u << 20) + 4096; i++) {  // past the size read later
        snprintf(uid, sizeof uid, "Filler%05d", i);
        snprintf(day, sizeof day, "2030%02d%02d", 1 + i % 12, 1 + i % 28);
        events += Event(uid, day, i % 2 ? "Business" : "");
    }
    TempStore store(Calendar(events + Event("Lunch", "20300302", "Personal") + Event("Desk", "20300303", "")));
    // What the wait is checked by holds while it lasts: well within its two seconds.
    ULONGLONG started = GetTickCount64();
    {
        Server early;
        ASSERT_EQ(early.logon, S_OK);
    }
    if (GetTickCount64() - started < 1500) {
        EXPECT_FALSE(ReadCategoryList().found) << "a logoff during the wait writes no list";
    }

    Server server;
    started = GetTickCount64();
    ASSERT_EQ(server.logon, S_OK);
    ComPtr<IAppointment> desk;
    ItemOf(server, L"Desk", desk);
    ASSERT_TRUE(desk);
    ASSERT_EQ(desk->put_Categories(Bstr(L"Work")), S_OK);
    ASSERT_EQ(desk->Save(), S_OK);
    ASSERT_EQ(DeleteItem(server, L"Lunch"), S_OK);
    if (GetTickCount64() - started < 1500) {
        EXPECT_FALSE(ReadCategoryList().found) << "the save before the read wrote no list of its own";
    }
    EXPECT_EQ(Listed(ListAfterLogon("Business|Work").names), "Business|Work");

    // From then on the list follows saves at once.
    ASSERT_EQ(desk->put_Categories(Bstr(L"Errands")), S_OK);
    ASSERT_EQ(desk->Save(), S_OK);
    EXPECT_EQ(Listed(ReadCategoryList().names), "Business|Errands");
}

// The category colours and icons in "settings.vol" beside the test, the device's category list
// in an object store of the test's own, and what the program makes of good and bad files.
#include "categorysupport.h"
#include "support/errorboxes.h"
#include "common/appstate.h"
#include "settings/categoryprops.h"
#include "platform/dbvol.h"

#include <gtest/gtest.h>
#include <functional>
#include <string>
#include <vector>

class CategoryProps_ : public ::testing::Test {
protected:
    void SetUp() override
    {
        UseTestObjectStore();
        RemoveVolume();
        g_app.iconCount = BUILTIN_ICONS;
    }
    void TearDown() override { RemoveVolume(); }
};

static int Load(CategoryProps **props)
{
    int count = -2;
    *props = LoadCategoryProps(&count);
    return count;
}

TEST_F(CategoryProps_, NoVolumeIsCreatedEmpty)
{
    ErrorBoxes boxes;
    CategoryProps *props = nullptr;
    EXPECT_EQ(Load(&props), 0);
    EXPECT_EQ(props, nullptr);
    EXPECT_TRUE(FileExists(VolumePath())) << "the volume file is made";
    std::vector<BYTE> made = ReadAll(VolumePath());
    EXPECT_EQ(Load(&props), 0) << "and reads back as an empty database";
    EXPECT_EQ(ReadAll(VolumePath()), made) << "a second load changes nothing";
    EXPECT_TRUE(boxes.Texts().empty());
}

TEST_F(CategoryProps_, SavingTwiceChangesTheOneRecord)
{
    ErrorBoxes boxes;
    EXPECT_EQ(SaveCategoryProps(L"Business", RGB(255, 0, 0), 3), 1);
    EXPECT_EQ(SaveCategoryProps(L"Holiday", RGB(0, 255, 0), 4), 1);
    EXPECT_EQ(SaveCategoryProps(L"Business", RGB(0, 0, 255), 5), 1);
    CategoryProps *props = nullptr;
    ASSERT_EQ(Load(&props), 2);
    // In name order, as the database sorts them.
    EXPECT_STREQ(props[0].name, L"Business");
    EXPECT_EQ(props[0].color, RGB(0, 0, 255));
    EXPECT_EQ(props[0].icon, 5u);
    EXPECT_STREQ(props[1].name, L"Holiday");
    EXPECT_EQ(props[1].color, RGB(0, 255, 0));
    EXPECT_EQ(props[1].icon, 4u);
    FreeCategoryArray(props);
    EXPECT_TRUE(boxes.Texts().empty());
}

// Unstored categories take the default colours in turn, the cycle moving on only for them and
// starting again after eight; stored ones keep theirs; an icon the program lacks reads as 0.
TEST_F(CategoryProps_, MergeGivesTheDefaultCycle)
{
    const wchar_t *device[] = {L"A", L"Stored", L"B", L"C", L"D", L"E", L"F", L"G", L"H", L"I", L"Far icon"};
    std::vector<CategoryName> names(11);
    for (int i = 0; i < 11; i++)
        lstrcpyW(names[i].name, device[i]);
    CategoryProps props[2] = {{L"Stored", RGB(1, 2, 3), 7}, {L"Far icon", RGB(4, 5, 6), 500}};
    CategoryLook *looks = MergeCategoryProps(names.data(), 11, props, 2);
    ASSERT_TRUE(looks);
    struct {
        COLORREF color;
        DWORD icon;
    } expected[] = {
        {0x00FF7777, 0}, {RGB(1, 2, 3), 7}, {0x009FFF9F, 0}, {0x0080FFFF, 0}, {0x008484FF, 0}, {0x00FF80FF, 0},
        {0x0062B0FF, 0}, {0x00CECECE, 0},   {0x00FFFFFF, 0}, {0x00FF7777, 0}, {RGB(4, 5, 6), 0},
    };
    for (int i = 0; i < 11; i++) {
        EXPECT_EQ(looks[i].color, expected[i].color) << "category " << i;
        EXPECT_EQ(looks[i].icon, expected[i].icon) << "category " << i;
    }
    FreeCategoryArray(looks);
    EXPECT_EQ(MergeCategoryProps(nullptr, 0, props, 2), nullptr);
}

// Names are cut to the 29 units and terminator of their slot, from the device and from a
// volume written by another program alike; a cut device name is marked, so it is never saved.
TEST_F(CategoryProps_, NamesAreCutToTheirSlot)
{
    ErrorBoxes boxes;
    std::wstring longName(200, L'x'), exact(29, L'y');
    SetDeviceCategories({longName, exact, L"Personal"});
    int count = 0;
    CategoryName *names = ReadDeviceCategories(&count);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(std::wstring(names[0].name), std::wstring(29, L'x'));
    EXPECT_TRUE(names[0].cut);
    EXPECT_EQ(std::wstring(names[1].name), exact);
    EXPECT_FALSE(names[1].cut);
    EXPECT_STREQ(names[2].name, L"Personal");
    FreeCategoryArray(names);

    WriteVolume({{longName, RGB(9, 9, 9), 1}});
    CategoryProps *props = nullptr;
    ASSERT_EQ(Load(&props), 1);
    EXPECT_EQ(std::wstring(props[0].name), std::wstring(29, L'x'));
    FreeCategoryArray(props);
    EXPECT_TRUE(boxes.Texts().empty());
}

// Without the device's list there are no categories; only the Category page's reading says so.
TEST_F(CategoryProps_, NoDeviceListGivesNoCategories)
{
    RemoveDeviceCategories();
    ErrorBoxes boxes;
    int count = 7;
    EXPECT_EQ(ReadDeviceCategories(&count, true), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(boxes.Texts().empty()) << "start-up reads it quietly";
    EXPECT_EQ(ReadDeviceCategories(&count), nullptr);
    EXPECT_EQ(boxes.Texts(), std::vector<std::wstring>{L"The database doesn't exist"});
    SetDeviceCategories({L"Business"});
    ReloadCategories(true);
    EXPECT_EQ(g_app.deviceCategoryCount, 1);
    RemoveDeviceCategories();
    ReloadCategories(true);
    EXPECT_EQ(g_app.deviceCategoryCount, 0);
    EXPECT_EQ(g_app.mergedCategories, nullptr);
    EXPECT_EQ(CategoryColorOf(L"Business", 5), 5u);
}

// A volume that is not ours, or is damaged, is never changed: the load gives up without a word
// and the program keeps the properties it had, a save changes nothing. An empty file has nothing
// to lose and becomes the volume; a read-only one is read, and a save to it is refused.
TEST_F(CategoryProps_, BadVolumesAreLeftAlone)
{
    SetDeviceCategories({L"Business", L"Holiday"});
    WriteVolume({{L"Business", RGB(10, 20, 30), 2}});
    ReloadCategories(true);
    ASSERT_EQ(g_app.categoryCount, 1);
    std::vector<BYTE> good = ReadAll(VolumePath());
    std::vector<BYTE> truncated(good.begin(), good.begin() + good.size() / 2);
    std::string ics = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nEND:VCALENDAR\r\n";
    std::vector<BYTE> foreign(ics.begin(), ics.end());

    struct Case {
        const char *name;
        std::vector<BYTE> bytes;
        bool readOnly, huge;
        int loaded;                            // the load's count; -1 refused
        int saved;                             // SaveCategoryProps' answer
        std::vector<std::wstring> messages;    // what the save told
    } cases[] = {
        {"empty", {}, false, false, 0, 1, {}},
        {"truncated", truncated, false, false, -1, 0, {}},
        {"another format", foreign, false, false, -1, 0, {}},
        {"1 GB of zeros", {}, false, true, -1, 0, {}},
        {"read-only", good, true, false, 1, 0, {L"Unknown Error"}},
    };
    for (Case &c : cases) {
        WriteAll(VolumePath(), good);
        ReloadCategories(true);
        ASSERT_EQ(g_app.categoryCount, 1) << c.name;
        RemoveVolume();
        if (c.huge)
            MakeSparseZeros(VolumePath(), 1ull << 30);
        else
            WriteAll(VolumePath(), c.bytes);
        if (c.readOnly)
            SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_READONLY);
        FileStamp before = Stamp(VolumePath());
        ErrorBoxes boxes;
        CategoryProps *props = nullptr;
        EXPECT_EQ(Load(&props), c.loaded) << c.name;
        FreeCategoryArray(props);
        ReloadCategories(true);
        EXPECT_EQ(g_app.categoryCount, c.loaded == -1 ? 1 : c.loaded)
            << c.name << ": a refused load keeps what was loaded";
        EXPECT_EQ(g_app.deviceCategoryCount, 2) << c.name;
        EXPECT_TRUE(boxes.Texts().empty()) << c.name << ": loading tells nothing";
        EXPECT_EQ(SaveCategoryProps(L"Holiday", RGB(1, 1, 1), 1), c.saved) << c.name;
        EXPECT_EQ(boxes.Texts(), c.messages) << c.name;
        if (c.saved == 0) {
            EXPECT_TRUE(Stamp(VolumePath()) == before) << c.name << ": the file is unchanged";
            if (!c.huge) {
                EXPECT_EQ(ReadAll(VolumePath()), c.bytes) << c.name;
            }
        }
        SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

// A volume of these databases, none of them holding records: "categoryprops" either with the
// sort order on the name the program asks for or, as another program may have made it, without.
static void WriteVolumeOf(const std::vector<std::u16string> &names, bool nameSorted)
{
    dbvol::Volume v;
    for (const std::u16string &name : names) {
        std::vector<dbvol::SortRule> sorts;
        if (nameSorted)
            sorts.push_back({PROP_CATEGORY_NAME, 0});
        uint32_t oid = 0;
        ASSERT_EQ(dbvol::CreateDatabase(v, name, 0, 0, sorts, 0, oid), dbvol::Status::Ok);
    }
    std::vector<uint8_t> bytes = dbvol::Encode(v);
    WriteAll(VolumePath(), std::vector<BYTE>(bytes.begin(), bytes.end()));
}

// The failures a file can bring about tell the user in their own words, each in an "Error" box
// of no owner, and leave the file as it was.
TEST_F(CategoryProps_, FailuresTellTheirMessages)
{
    std::vector<std::u16string> full;
    for (uint32_t i = 0; i < dbvol::kMaxDatabases; i++) {
        std::u16string name = u"other ";
        for (char c : std::to_string(i))
            name += char16_t(c);
        full.push_back(name);
    }
    struct Case {
        const char *name;
        std::function<void()> make;
        std::function<void()> act;
        std::vector<std::wstring> messages;
    } cases[] = {
        {"\"categoryprops\" without the name's sort order, loaded",
         [] { WriteVolumeOf({u"categoryprops"}, false); },
         [] {
             CategoryProps *props = nullptr;
             EXPECT_EQ(Load(&props), -1);
         },
         {L"Error in call to OpenCreateDB"}},
        {"the same, saved", [] { WriteVolumeOf({u"categoryprops"}, false); },
         [] { EXPECT_EQ(SaveCategoryProps(L"Business", 1, 1), 0); }, {L"Error in call to OpenCreateDB"}},
        {"a volume with no room for another database", [&] { WriteVolumeOf(full, true); },
         [] {
             CategoryProps *props = nullptr;
             EXPECT_EQ(Load(&props), -1);
         },
         {L"Database creation failed", L"Error in call to OpenCreateDB"}},
        {"a read-only volume without \"categoryprops\"",
         [] {
             WriteVolumeOf({u"another"}, false);
             SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_READONLY);
         },
         [] { EXPECT_EQ(SaveCategoryProps(L"Business", 1, 1), 0); },
         {L"Database creation failed", L"Error in call to OpenCreateDB"}},
        {"deleting from a read-only volume",
         [] {
             WriteVolume({{L"Business", 1, 1}});
             SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_READONLY);
         },
         [] { DeleteCategoryDb(); }, {L"Could not delete Database"}},
    };
    for (Case &c : cases) {
        RemoveVolume();
        c.make();
        std::vector<BYTE> before = ReadAll(VolumePath());
        std::vector<ErrorBoxes::Box> seen;
        {
            ErrorBoxes boxes;
            c.act();
            seen = boxes.Seen();
        }
        ASSERT_EQ(seen.size(), c.messages.size()) << c.name;
        for (size_t i = 0; i < seen.size(); i++) {
            EXPECT_EQ(seen[i].text, c.messages[i]) << c.name;
            EXPECT_EQ(seen[i].caption, L"Error") << c.name;
            EXPECT_EQ(seen[i].owner, nullptr) << c.name;
        }
        EXPECT_EQ(ReadAll(VolumePath()), before) << c.name << ": the file is unchanged";
        SetFileAttributesW(VolumePath().c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    // Deleting works on a volume that allows it, and the next load makes the database again.
    WriteVolume({{L"Business", 1, 1}});
    ErrorBoxes boxes;
    DeleteCategoryDb();
    CategoryProps *props = nullptr;
    EXPECT_EQ(Load(&props), 0);
    EXPECT_TRUE(boxes.Texts().empty());
}

// A stored icon past the icons the program has reads as stored and shows as the first icon.
TEST_F(CategoryProps_, IconBeyondTheStripShowsTheFirst)
{
    SetDeviceCategories({L"Travel"});
    WriteVolume({{L"Travel", RGB(1, 2, 3), 300}});
    ReloadCategories(true);
    ASSERT_EQ(g_app.categoryCount, 1);
    EXPECT_EQ(g_app.categoryProps[0].icon, 300u);
    ASSERT_EQ(g_app.deviceCategoryCount, 1);
    EXPECT_EQ(g_app.mergedCategories[0].icon, 0u);
    EXPECT_EQ(g_app.mergedCategories[0].color, RGB(1, 2, 3));
}

// Runs in a process of its own (the device's list is written as a file before the process
// first reads it: a thousand writes one by one would take many seconds).
TEST_F(CategoryProps_, AThousandCategories)
{
    std::vector<StoredCategory> stored;
    std::vector<std::wstring> device;
    for (int i = 0; i < 1000; i++) {
        std::wstring name = L"Category " + std::to_wstring(1000 + i);
        device.push_back(name);
        if (i % 2)
            stored.push_back({name, (COLORREF)i, (DWORD)(i % BUILTIN_ICONS)});
    }
    WriteDeviceStoreFile(device);
    WriteVolume(stored);
    ReloadCategories(true);
    ASSERT_EQ(g_app.categoryCount, 500);
    ASSERT_EQ(g_app.deviceCategoryCount, 1000);
    int unstored = 0;
    for (int i = 0; i < 1000; i++) {
        EXPECT_STREQ(g_app.deviceCategories[i].name, device[i].c_str()) << i << ": in the device's order";
        if (i % 2) {
            EXPECT_EQ(g_app.mergedCategories[i].color, (COLORREF)i) << i;
            EXPECT_EQ(g_app.mergedCategories[i].icon, (DWORD)(i % BUILTIN_ICONS)) << i;
        } else {
            EXPECT_EQ(g_app.mergedCategories[i].color, kDefaultCategoryColors[unstored++ % 8]) << i;
        }
    }
    std::wstring appointment = L"Nothing, " + device[999] + L",\t" + device[1];
    EXPECT_EQ(CategoryColorOf(appointment.c_str(), 77), (COLORREF)999);
    EXPECT_EQ(CategoryColorOf(L"Unknown, none", 77), 77u);
    EXPECT_EQ(CategoryColorOf(L"", 77), 77u);
}

// The handheld's property database calls, on the desktop, over a volume file
// (dbvol.h). Same signatures, same results, same error codes through
// GetLastError, so the program's code reads as it would on the device. The
// types and constants are the handheld's published ones; mingw has none of them.
#pragma once

#include <windows.h>

typedef DWORD CEOID;
typedef CEOID *PCEOID;
typedef DWORD CEPROPID;
typedef CEPROPID *PCEPROPID;

// A mounted volume's identifier. All four words 0xFFFFFFFF is the invalid one.
struct CEGUID {
    DWORD Data1;
    DWORD Data2;
    DWORD Data3;
    DWORD Data4;
};
typedef CEGUID *PCEGUID;
#define CREATE_INVALIDGUID(g) ((g)->Data1 = (g)->Data2 = (g)->Data3 = (g)->Data4 = 0xFFFFFFFF)
// All words 0 names the device's own object store: on the desktop the volume
// file LANTERNFIELDS_OBJECTSTORE names, or objectstore.vol in the user's
// Lanternfields application-data folder; it is mounted on first use.
#define CREATE_SYSTEMGUID(g) ((g)->Data1 = (g)->Data2 = (g)->Data3 = (g)->Data4 = 0)
#define CHECK_SYSTEMGUID(g) (!(g)->Data1 && !(g)->Data2 && !(g)->Data3 && !(g)->Data4)
#define CHECK_INVALIDGUID(g) \
    ((g)->Data1 == 0xFFFFFFFF && (g)->Data2 == 0xFFFFFFFF && (g)->Data3 == 0xFFFFFFFF && (g)->Data4 == 0xFFFFFFFF)

// Value types: the low word of a property identifier.
const WORD CEVT_I2 = 2;
const WORD CEVT_I4 = 3;
const WORD CEVT_R8 = 5;
const WORD CEVT_BOOL = 11;
const WORD CEVT_UI2 = 18;
const WORD CEVT_UI4 = 19;
const WORD CEVT_LPWSTR = 31;
const WORD CEVT_FILETIME = 64;
const WORD CEVT_BLOB = 65;
#define TypeFromPropID(id) LOWORD(id)
#define MAKEPROPID(id, type) MAKELONG(type, id)

struct CEBLOB {
    DWORD dwCount;
    LPBYTE lpb;
};
union CEVALUNION {
    short iVal;
    USHORT uiVal;
    long lVal;
    ULONG ulVal;
    FILETIME filetime;
    LPWSTR lpwstr;
    CEBLOB blob;
    BOOL boolVal;
    double dblVal;
};
struct CEPROPVAL {
    CEPROPID propid;
    WORD wLenData;
    WORD wFlags;
    CEVALUNION val;
};
typedef CEPROPVAL *PCEPROPVAL;
const WORD CEDB_PROPNOTFOUND = 0x0100;   // set on read: the record lacks it
const WORD CEDB_PROPDELETE = 0x0200;     // set on write: remove the property

const DWORD CEDB_SORT_DESCENDING = 0x00000001;
const DWORD CEDB_SORT_CASEINSENSITIVE = 0x00000002;
const DWORD CEDB_SORT_UNKNOWNFIRST = 0x00000004;
const DWORD CEDB_SORT_GENERICORDER = 0x00000008;
struct SORTORDERSPEC {
    CEPROPID propid;
    DWORD dwFlags;
};

const int CEDB_MAXDBASENAMELEN = 32;
const int CEDB_MAXSORTORDER = 4;
const DWORD CEDB_VALIDNAME = 0x0001;
const DWORD CEDB_VALIDTYPE = 0x0002;
const DWORD CEDB_VALIDSORTSPEC = 0x0004;
const DWORD CEDB_VALIDMODTIME = 0x0008;
const DWORD CEDB_VALIDDBFLAGS = 0x0010;
const DWORD CEDB_VALIDCREATE = CEDB_VALIDNAME | CEDB_VALIDTYPE | CEDB_VALIDSORTSPEC | CEDB_VALIDDBFLAGS;
const DWORD CEDB_NOCOMPRESS = 0x00010000;
struct CEDBASEINFO {
    DWORD dwFlags;
    WCHAR szDbaseName[CEDB_MAXDBASENAMELEN];
    DWORD dwDbaseType;
    WORD wNumRecords;
    WORD wNumSortOrder;
    DWORD dwSize;
    FILETIME ftLastModified;
    SORTORDERSPEC rgSortSpecs[CEDB_MAXSORTORDER];
};
typedef CEDBASEINFO *PCEDBASEINFO;

const WORD OBJTYPE_INVALID = 0;
const WORD OBJTYPE_FILE = 1;
const WORD OBJTYPE_DIRECTORY = 2;
const WORD OBJTYPE_DATABASE = 3;
const WORD OBJTYPE_RECORD = 4;
struct CEFILEINFO {
    DWORD dwAttributes;
    CEOID oidParent;
    WCHAR szFileName[MAX_PATH];
    FILETIME ftLastChanged;
    DWORD dwLength;
};
struct CEDIRINFO {
    DWORD dwAttributes;
    CEOID oidParent;
    WCHAR szDirName[MAX_PATH];
};
struct CERECORDINFO {
    CEOID oidParent;
};
struct CEOIDINFO {
    WORD wObjType;
    WORD wPad;
    union {
        CEFILEINFO infFile;
        CEDIRINFO infDirectory;
        CEDBASEINFO infDatabase;
        CERECORDINFO infRecord;
    };
};

// Open flags.
const DWORD CEDB_AUTOINCREMENT = 0x00000001;   // each read moves to the next record
// Read flags.
const DWORD CEDB_ALLOWREALLOC = 0x00000001;
// Seek types.
const DWORD CEDB_SEEK_CEOID = 0x00000001;
const DWORD CEDB_SEEK_BEGINNING = 0x00000002;
const DWORD CEDB_SEEK_END = 0x00000004;
const DWORD CEDB_SEEK_CURRENT = 0x00000008;
const DWORD CEDB_SEEK_VALUESMALLER = 0x00000010;
const DWORD CEDB_SEEK_VALUEFIRSTEQUAL = 0x00000020;
const DWORD CEDB_SEEK_VALUEGREATER = 0x00000040;
const DWORD CEDB_SEEK_VALUENEXTEQUAL = 0x00000080;

// Change notifications are not sent on the desktop; the request is accepted and ignored.
struct CENOTIFYREQUEST {
    DWORD dwSize;
    HWND hwnd;
    DWORD dwFlags;
    HANDLE hHeap;
    DWORD dwParam;
};

// Mounting takes the file dispositions of CreateFile (CREATE_NEW ...
// TRUNCATE_EXISTING). Mounting a mounted volume again gives the same
// identifier; it stays mounted until unmounted as often.
BOOL CeMountDBVol(PCEGUID pceguid, LPWSTR lpszVol, DWORD dwFlags);
BOOL CeUnmountDBVol(PCEGUID pceguid);

HANDLE CeOpenDatabaseEx(PCEGUID pguid, PCEOID poid, LPWSTR lpszName, CEPROPID propid, DWORD dwFlags,
                        CENOTIFYREQUEST *pRequest);
CEOID CeCreateDatabaseEx(PCEGUID pceguid, CEDBASEINFO *pInfo);
BOOL CeDeleteDatabaseEx(PCEGUID pguid, CEOID oid);
BOOL CeOidGetInfoEx(PCEGUID pguid, CEOID oid, CEOIDINFO *oidInfo);
HANDLE CeFindFirstDatabaseEx(PCEGUID pguid, DWORD dwDbaseType);
CEOID CeFindNextDatabaseEx(HANDLE hEnum, PCEGUID pguid);

// The object store's own calls, without a volume: they act on the system volume.
HANDLE CeFindFirstDatabase(DWORD dwDbaseType);
CEOID CeFindNextDatabase(HANDLE hEnum);
BOOL CeOidGetInfo(CEOID oid, CEOIDINFO *oidInfo);
HANDLE CeOpenDatabase(PCEOID poid, LPWSTR lpszName, CEPROPID propid, DWORD dwFlags, HWND hwndNotify);

CEOID CeReadRecordProps(HANDLE hDbase, DWORD dwFlags, LPWORD lpcPropID, CEPROPID *rgPropID, LPBYTE *lplpBuffer,
                        LPDWORD lpcbBuffer);
// hHeap is accepted and ignored: the buffer always comes from LocalAlloc.
CEOID CeReadRecordPropsEx(HANDLE hDbase, DWORD dwFlags, LPWORD lpcPropID, CEPROPID *rgPropID, LPBYTE *lplpBuffer,
                          LPDWORD lpcbBuffer, HANDLE hHeap);
CEOID CeWriteRecordProps(HANDLE hDbase, CEOID oidRecord, WORD cPropID, CEPROPVAL *rgPropVal);
// dwValue is a DWORD on the handheld, where a pointer fits in one; the value
// seeks pass a CEPROPVAL pointer in it, so here it is pointer-sized.
// Positions count in the handle's sort order: BEGINNING n is the n-th record
// (0 the first), END n the n-th before the last (0 the last), CURRENT a signed
// step. The value seeks compare on the handle's sort property (a handle
// opened without one gets 87): FIRSTEQUAL from the start, NEXTEQUAL only the
// next record, SMALLER backward from the current record to the nearest value
// before the given one in the sort's direction, GREATER forward to the
// nearest after it. A position outside the records, or a value not found,
// returns 0 with 259 (a failed value seek leaves the position at the end).
// Reading with CEDB_AUTOINCREMENT moves to the next record; writing and
// deleting leave the position on its record (a deleted one's successor).
CEOID CeSeekDatabase(HANDLE hDatabase, DWORD dwSeekType, DWORD_PTR dwValue, LPDWORD lpdwIndex);
BOOL CeDeleteRecord(HANDLE hDatabase, CEOID oidRecord);

// Desktop only, not the handheld's: every volume change is a write of the whole volume file,
// which for hundreds of records in a row is slow. Changes made to the volume between these two
// stay in memory and are written once, by the end of the outermost batch: with keep TRUE (FALSE
// when that write fails, the volume then as before the batch), or dropped with keep FALSE. The
// handles' positions are not moved back when a batch is dropped.
BOOL DesktopBeginVolumeBatch(PCEGUID pceguid);
BOOL DesktopEndVolumeBatch(PCEGUID pceguid, BOOL keep);

// Database handles and enumeration handles are closed with CloseHandle, as on
// the handheld; this closes our handles and passes any other to the system.
BOOL CeCloseHandle(HANDLE h);
#define CloseHandle CeCloseHandle

// The property database volume: databases of records of typed properties in
// one file. Portable (no Win32), so it is tested and fuzzed natively; the
// handheld's Ce* calls in cedb.cpp sit on top of it.
//
// File format (little-endian throughout):
//   header, 32 bytes:
//     0  magic "LFDBVOL\x1a"
//     8  u32 format version (1)
//    12  u32 payload length in bytes
//    16  u32 CRC-32 of the payload
//    20  u32 next object identifier to hand out
//    24  u32 reserved, 0
//    28  u32 CRC-32 of header bytes 0..27
//   payload:
//     u32 database count
//     per database: u32 oid, u32 type, u32 flags, u64 last change (FILETIME),
//       u16 name length (units) + UTF-16 name, u16 sort-order count +
//       (u32 property id, u32 flags) each, u32 record count, then per record:
//       u32 oid, u16 property count, per property: u32 id, u32 byte length, bytes.
//   A value's bytes by the type in the id's low word: I2/UI2 2, I4/UI4/BOOL 4,
//   FILETIME/R8 8, LPWSTR UTF-16 units without terminator, BLOB any.
//
// Crash safety is copy-on-write of the whole volume: a change serialises the
// volume into "<file>.new", flushes it, and renames it over the file. The
// rename is the commit: until it happens the old file is untouched, after it
// the new one is complete, and the checksums catch any file that is neither.
// A journal was not worth it: the program's volumes hold a few dozen small
// records, so rewriting them is cheaper than the recovery code a journal
// needs on every open, and there is nothing to replay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace dbvol {

enum class Status {
    Ok,
    NotFound,    // no such file, database or record
    Exists,      // creating something that is already there
    Empty,       // the file has no bytes at all
    Foreign,     // not a volume: the magic is wrong
    Damaged,     // a volume, but truncated, altered or inconsistent
    TooLarge,    // file or value beyond the limits below
    Full,        // the change would take the volume beyond its limits
    Invalid,     // a caller's argument breaks a rule
    Io,          // the file could not be read or written
};
const char *StatusName(Status s);

// Limits; a file beyond them is refused before anything is allocated for it.
const uint32_t kMaxFileBytes = 16u * 1024 * 1024;
const uint32_t kMaxDatabases = 256;
const uint32_t kMaxRecords = 65535;        // the handheld counts records in a WORD
const uint32_t kMaxProps = 1024;
const uint32_t kMaxValueBytes = 65535;     // the handheld sizes a value in a WORD
const uint32_t kMaxRecordBytes = 128 * 1024;
const uint32_t kMaxNameUnits = 31;         // 32 with the terminator
const uint32_t kMaxSortOrders = 4;

// Value types, the low word of a property id.
const uint16_t kTypeI2 = 2, kTypeI4 = 3, kTypeR8 = 5, kTypeBool = 11, kTypeUI2 = 18,
               kTypeUI4 = 19, kTypeLpwstr = 31, kTypeFiletime = 64, kTypeBlob = 65;
// Sort flags.
const uint32_t kSortDescending = 1, kSortCaseInsensitive = 2, kSortUnknownFirst = 4;

struct Prop {
    uint32_t id;
    std::vector<uint8_t> data;
};
struct Record {
    uint32_t oid;
    std::vector<Prop> props;
};
struct SortRule {
    uint32_t prop;
    uint32_t flags;
};
struct Database {
    uint32_t oid;
    std::u16string name;
    uint32_t type;
    uint32_t flags;
    uint64_t modified;
    std::vector<SortRule> sorts;
    std::vector<Record> records;   // in creation order
};
// What tells one committed version of the volume file from another without
// reading it: every commit renames a new file over the old, so its identity,
// size, modification time or header (whose payload checksum changes with
// every change) differ from the last version this copy read or wrote.
//
// The size and time come cheaply; the header needs the file opened. Two
// commits of one size can share a modification time only within the file
// system's clock tick, so the header is compared only while the file is
// younger than kSettleSeconds: after that, an unchanged time is an
// unchanged file.
const unsigned kSettleSeconds = 2;
struct Stamp {
    bool present = false;
    uint64_t device = 0, identity = 0;   // 0 where the file system has none
    uint64_t size = 0, modified = 0;
    bool recent = false;                 // modified less than kSettleSeconds ago
    bool hasHeader = false;
    uint8_t header[32] = {};
};
// Whether two stamps are of one version of the file; the header counts when both have it.
bool SameStamp(const Stamp &a, const Stamp &b);
// The stamp of a file's bytes alone, for a file system without identities.
Stamp StampOfBytes(const std::vector<uint8_t> &bytes);

struct Volume {
    std::string path;
    uint32_t nextOid = 1;
    std::vector<Database> dbs;
    Stamp stamp;   // of the file as this copy last read or wrote it
};

// The file system seam: the native tree uses stdio and rename, the Windows
// tree its own calls, and the crash tests a wrapper that stops part-way.
struct Io {
    // Reads the whole file; NotFound, TooLarge (over limit) or Io on failure.
    Status (*readAll)(const std::string &path, uint32_t limit, std::vector<uint8_t> &out);
    // Writes the bytes to a new file at path (replacing any), flushed to disk.
    bool (*writeNew)(const std::string &path, const uint8_t *data, size_t n);
    // Moves from over to, atomically.
    bool (*replace)(const std::string &from, const std::string &to);
    // The file's stamp from its attributes, and its header when asked:
    // NotFound or Io on failure. Optional: without it a reload check reads
    // the whole file.
    Status (*stamp)(const std::string &path, bool header, Stamp &out);
};
const Io &NativeIo();

bool KnownType(uint32_t id);
bool ValidValueLength(uint32_t id, size_t bytes);

// Encoding and decoding; Decode never reads outside the bytes it is given.
std::vector<uint8_t> Encode(const Volume &v);
Status Decode(const uint8_t *data, size_t n, Volume &v);

enum class Disposition { CreateNew, CreateAlways, OpenExisting, OpenAlways, TruncateExisting };
// Opens or creates the volume file. A damaged or foreign file is never
// replaced, whatever the disposition, so nothing stored in it is lost; an
// empty file holds nothing and is taken as a new volume when creation is allowed.
Status Open(const Io &io, const std::string &path, Disposition d, Volume &v);
// Writes the volume as it is in memory: the commit described above. The
// volume's stamp becomes the new file's.
Status Commit(const Io &io, Volume &v);
// Brings the volume up to the file's latest committed contents when another
// writer (another copy of this code, another process) has replaced the file
// since this copy last read or wrote it; `reloaded` tells whether it did. A
// file that is gone leaves the volume as it is (the next commit writes it
// back); one that is no longer a sound volume is reported and not read.
Status Refresh(const Io &io, Volume &v, bool &reloaded);

Database *FindDatabase(Volume &v, uint32_t oid);
Database *FindDatabase(Volume &v, const std::u16string &name);
Record *FindRecord(Database &db, uint32_t oid);
// The database holding a record, or none.
Database *DatabaseOfRecord(Volume &v, uint32_t recordOid);

// Changes in memory only; the caller commits. Each checks its limits.
Status CreateDatabase(Volume &v, const std::u16string &name, uint32_t type, uint32_t flags,
                      const std::vector<SortRule> &sorts, uint64_t now, uint32_t &oid);
Status DeleteDatabase(Volume &v, uint32_t oid);
// Writes props into the record (0: a new one); a property of the same id is
// replaced, a prop with `remove` set is deleted.
struct PropWrite {
    Prop prop;
    bool remove;
};
Status WriteRecord(Volume &v, Database &db, uint32_t oid, const std::vector<PropWrite> &props,
                   uint64_t now, uint32_t &written);
Status DeleteRecord(Volume &v, Database &db, uint32_t oid, uint64_t now);

// Text comparison for sorting; the Windows tree passes the locale's.
typedef int (*TextCompare)(const char16_t *a, size_t na, const char16_t *b, size_t nb, bool ignoreCase);
int OrdinalCompare(const char16_t *a, size_t na, const char16_t *b, size_t nb, bool ignoreCase);
// Compares two values of the type of id (for sorting and value seeks).
int CompareValues(uint32_t id, const std::vector<uint8_t> &a, const std::vector<uint8_t> &b,
                  bool ignoreCase, TextCompare cmp);
const Prop *FindProp(const Record &r, uint32_t id);
// Record indexes of db in the order of the sort on property prop (by
// identifier, type included); prop 0 or one the database has no sort order
// for gives creation order. Records without the property come last, or first
// with the unknown-first flag; ties keep creation order.
std::vector<size_t> SortedOrder(const Database &db, uint32_t prop, TextCompare cmp);
// The database's sort rule on the property, or null when it has none.
const SortRule *FindSortRule(const Database &db, uint32_t prop);

uint32_t Crc32(const uint8_t *data, size_t n);

}  // namespace dbvol

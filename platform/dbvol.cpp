#include "dbvol.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <sys/stat.h>

namespace dbvol {

namespace {

const uint8_t kMagic[8] = {'L', 'F', 'D', 'B', 'V', 'O', 'L', 0x1a};
const uint32_t kVersion = 1;
const size_t kHeaderBytes = 32;

void Put16(std::vector<uint8_t> &o, uint16_t v) {
    o.push_back(uint8_t(v));
    o.push_back(uint8_t(v >> 8));
}
void Put32(std::vector<uint8_t> &o, uint32_t v) {
    Put16(o, uint16_t(v));
    Put16(o, uint16_t(v >> 16));
}
void Put64(std::vector<uint8_t> &o, uint64_t v) {
    Put32(o, uint32_t(v));
    Put32(o, uint32_t(v >> 32));
}
uint32_t Get32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// Reads the payload; every take is checked against what is left, so a lying
// count or length ends in Damaged, never a read past the end.
struct Reader {
    const uint8_t *p;
    size_t left;
    bool ok = true;
    bool Take(void *out, size_t n) {
        if (!ok || n > left) {
            ok = false;
            return false;
        }
        if (n)
            memcpy(out, p, n);
        p += n;
        left -= n;
        return true;
    }
    uint16_t U16() {
        uint8_t b[2] = {0, 0};
        Take(b, 2);
        return uint16_t(b[0] | b[1] << 8);
    }
    uint32_t U32() {
        uint8_t b[4] = {0, 0, 0, 0};
        Take(b, 4);
        return Get32(b);
    }
    uint64_t U64() {
        uint64_t lo = U32();
        return lo | uint64_t(U32()) << 32;
    }
};

size_t RecordBytes(const Record &r) {
    size_t n = 0;
    for (const Prop &p : r.props)
        n += 8 + p.data.size();
    return n;
}

Status NativeRead(const std::string &path, uint32_t limit, std::vector<uint8_t> &out) {
    FILE *f = fopen(path.c_str(), "rb");
    if (!f)
        return Status::NotFound;
    out.clear();
    uint8_t buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        if (out.size() + n > limit) {
            fclose(f);
            return Status::TooLarge;
        }
        out.insert(out.end(), buf, buf + n);
    }
    bool err = ferror(f) != 0;
    fclose(f);
    return err ? Status::Io : Status::Ok;
}

bool NativeWrite(const std::string &path, const uint8_t *data, size_t n) {
    FILE *f = fopen(path.c_str(), "wb");
    if (!f)
        return false;
    bool ok = (n == 0 || fwrite(data, 1, n, f) == n) && fflush(f) == 0;
    return fclose(f) == 0 && ok;
}

bool NativeReplace(const std::string &from, const std::string &to) {
    return rename(from.c_str(), to.c_str()) == 0;
}

Status NativeStamp(const std::string &path, bool header, Stamp &out) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return Status::NotFound;
    out = Stamp();
    out.present = true;
    out.device = uint64_t(st.st_dev);
    out.identity = uint64_t(st.st_ino);
    out.size = uint64_t(st.st_size);
    out.modified = uint64_t(st.st_mtime);
    time_t now = time(nullptr);
    out.recent = st.st_mtime + time_t(kSettleSeconds) > now;
    if (!header)
        return Status::Ok;
    FILE *f = fopen(path.c_str(), "rb");
    if (!f)
        return Status::Io;
    size_t got = fread(out.header, 1, sizeof out.header, f);
    (void)got;   // a shorter file leaves zeros, as its stamp of bytes does
    bool err = ferror(f) != 0;
    fclose(f);
    out.hasHeader = !err;
    return err ? Status::Io : Status::Ok;
}

}  // namespace

const char *StatusName(Status s) {
    switch (s) {
    case Status::Ok: return "ok";
    case Status::NotFound: return "not found";
    case Status::Exists: return "exists";
    case Status::Empty: return "empty file";
    case Status::Foreign: return "not a volume";
    case Status::Damaged: return "damaged volume";
    case Status::TooLarge: return "too large";
    case Status::Full: return "volume full";
    case Status::Invalid: return "invalid argument";
    case Status::Io: return "read or write failed";
    }
    return "?";
}

const Io &NativeIo() {
    static const Io io = {NativeRead, NativeWrite, NativeReplace, NativeStamp};
    return io;
}

bool SameStamp(const Stamp &a, const Stamp &b) {
    return a.present == b.present && a.device == b.device && a.identity == b.identity && a.size == b.size &&
           a.modified == b.modified &&
           (!a.hasHeader || !b.hasHeader || memcmp(a.header, b.header, sizeof a.header) == 0);
}

Stamp StampOfBytes(const std::vector<uint8_t> &bytes) {
    Stamp s;
    s.present = true;
    s.hasHeader = true;
    s.size = bytes.size();
    memcpy(s.header, bytes.data(), std::min(bytes.size(), sizeof s.header));
    return s;
}

uint32_t Crc32(const uint8_t *data, size_t n) {
    static uint32_t table[256];
    static bool made = false;
    if (!made) {
        for (uint32_t i = 0; i < 256; i++) {
            uint32_t c = i;
            for (int k = 0; k < 8; k++)
                c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[i] = c;
        }
        made = true;
    }
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; i++)
        c = table[(c ^ data[i]) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

bool KnownType(uint32_t id) {
    switch (id & 0xFFFF) {
    case kTypeI2: case kTypeUI2: case kTypeI4: case kTypeUI4: case kTypeBool:
    case kTypeR8: case kTypeFiletime: case kTypeLpwstr: case kTypeBlob: return true;
    }
    return false;
}

bool ValidValueLength(uint32_t id, size_t bytes) {
    if (bytes > kMaxValueBytes)
        return false;
    switch (id & 0xFFFF) {
    case kTypeI2:
    case kTypeUI2: return bytes == 2;
    case kTypeI4:
    case kTypeUI4:
    case kTypeBool: return bytes == 4;
    case kTypeR8:
    case kTypeFiletime: return bytes == 8;
    case kTypeLpwstr: return bytes % 2 == 0;
    case kTypeBlob: return true;
    }
    return false;
}

std::vector<uint8_t> Encode(const Volume &v) {
    std::vector<uint8_t> pay;
    Put32(pay, uint32_t(v.dbs.size()));
    for (const Database &db : v.dbs) {
        Put32(pay, db.oid);
        Put32(pay, db.type);
        Put32(pay, db.flags);
        Put64(pay, db.modified);
        Put16(pay, uint16_t(db.name.size()));
        for (char16_t c : db.name)
            Put16(pay, uint16_t(c));
        Put16(pay, uint16_t(db.sorts.size()));
        for (const SortRule &s : db.sorts) {
            Put32(pay, s.prop);
            Put32(pay, s.flags);
        }
        Put32(pay, uint32_t(db.records.size()));
        for (const Record &r : db.records) {
            Put32(pay, r.oid);
            Put16(pay, uint16_t(r.props.size()));
            for (const Prop &p : r.props) {
                Put32(pay, p.id);
                Put32(pay, uint32_t(p.data.size()));
                pay.insert(pay.end(), p.data.begin(), p.data.end());
            }
        }
    }
    std::vector<uint8_t> out(kMagic, kMagic + 8);
    Put32(out, kVersion);
    Put32(out, uint32_t(pay.size()));
    Put32(out, Crc32(pay.data(), pay.size()));
    Put32(out, v.nextOid);
    Put32(out, 0);
    Put32(out, Crc32(out.data(), out.size()));
    out.insert(out.end(), pay.begin(), pay.end());
    return out;
}

Status Decode(const uint8_t *data, size_t n, Volume &v) {
    if (n == 0)
        return Status::Empty;
    if (n > kMaxFileBytes)
        return Status::TooLarge;
    // A file cut inside the magic is still ours if what is left matches it.
    size_t m = std::min<size_t>(n, 8);
    if (memcmp(data, kMagic, m) != 0)
        return Status::Foreign;
    if (n < kHeaderBytes)
        return Status::Damaged;
    if (Crc32(data, 28) != Get32(data + 28))
        return Status::Damaged;
    // A later version, or one that uses the reserved word, is not ours to read.
    if (Get32(data + 8) != kVersion || Get32(data + 24) != 0)
        return Status::Foreign;
    uint32_t len = Get32(data + 12);
    if (len != n - kHeaderBytes || Crc32(data + kHeaderBytes, len) != Get32(data + 16))
        return Status::Damaged;
    Volume out;
    out.path = v.path;
    out.nextOid = Get32(data + 20);
    Reader r{data + kHeaderBytes, len};
    uint32_t ndb = r.U32();
    if (ndb > kMaxDatabases)
        return Status::Damaged;
    std::vector<uint32_t> oids;
    for (uint32_t i = 0; i < ndb && r.ok; i++) {
        Database db;
        db.oid = r.U32();
        db.type = r.U32();
        db.flags = r.U32();
        db.modified = r.U64();
        uint16_t nl = r.U16();
        if (nl > kMaxNameUnits)
            return Status::Damaged;
        for (uint16_t k = 0; k < nl && r.ok; k++)
            db.name.push_back(char16_t(r.U16()));
        uint16_t ns = r.U16();
        if (ns > kMaxSortOrders)
            return Status::Damaged;
        for (uint16_t k = 0; k < ns && r.ok; k++) {
            SortRule s;
            s.prop = r.U32();
            s.flags = r.U32();
            db.sorts.push_back(s);
        }
        uint32_t nr = r.U32();
        if (nr > kMaxRecords)
            return Status::Damaged;
        for (uint32_t k = 0; k < nr && r.ok; k++) {
            Record rec;
            rec.oid = r.U32();
            uint16_t np = r.U16();
            if (np > kMaxProps)
                return Status::Damaged;
            size_t total = 0;
            for (uint16_t j = 0; j < np && r.ok; j++) {
                Prop p;
                p.id = r.U32();
                uint32_t pl = r.U32();
                // The length is checked against what is left before the allocation.
                if (!r.ok || pl > r.left || !ValidValueLength(p.id, pl))
                    return Status::Damaged;
                p.data.resize(pl);
                r.Take(p.data.data(), pl);
                total += 8 + pl;
                rec.props.push_back(std::move(p));
            }
            if (total > kMaxRecordBytes)
                return Status::Damaged;
            oids.push_back(rec.oid);
            db.records.push_back(std::move(rec));
        }
        oids.push_back(db.oid);
        out.dbs.push_back(std::move(db));
    }
    if (!r.ok || r.left != 0)
        return Status::Damaged;
    // Identifiers are unique, non-zero and below the next one handed out.
    std::sort(oids.begin(), oids.end());
    for (size_t i = 0; i < oids.size(); i++)
        if (oids[i] == 0 || oids[i] >= out.nextOid || (i && oids[i] == oids[i - 1]))
            return Status::Damaged;
    v = std::move(out);
    return Status::Ok;
}

Status Open(const Io &io, const std::string &path, Disposition d, Volume &v) {
    // The stamp is taken before the bytes are read: a file replaced in
    // between then differs from it, and is read again on the next refresh.
    Stamp stamp;
    if (io.stamp && io.stamp(path, true, stamp) != Status::Ok)
        stamp = Stamp();
    std::vector<uint8_t> bytes;
    Status s = io.readAll(path, kMaxFileBytes, bytes);
    if (s == Status::TooLarge || s == Status::Io)
        return s;
    bool exists = s == Status::Ok;
    Volume fresh;
    fresh.path = path;
    if (!exists) {
        if (d == Disposition::OpenExisting || d == Disposition::TruncateExisting)
            return Status::NotFound;
        v = fresh;
        return Commit(io, v);
    }
    if (d == Disposition::CreateNew)
        return Status::Exists;
    Volume read;
    read.path = path;
    s = Decode(bytes.data(), bytes.size(), read);
    if (s == Status::Empty && d != Disposition::OpenExisting) {
        v = fresh;
        return Commit(io, v);
    }
    if (s != Status::Ok)
        return s;
    if (d == Disposition::CreateAlways || d == Disposition::TruncateExisting) {
        v = fresh;
        return Commit(io, v);
    }
    read.stamp = io.stamp ? stamp : StampOfBytes(bytes);
    v = std::move(read);
    return Status::Ok;
}

Status Commit(const Io &io, Volume &v) {
    std::vector<uint8_t> bytes = Encode(v);
    if (bytes.size() > kMaxFileBytes)
        return Status::Full;
    std::string tmp = v.path + ".new";
    if (!io.writeNew(tmp, bytes.data(), bytes.size()))
        return Status::Io;
    // The new file is stamped before the rename, which keeps its identity
    // and time: stamped after, another writer's file renamed in between
    // would be taken for this one and never read.
    Stamp stamp = StampOfBytes(bytes);
    if (io.stamp && io.stamp(tmp, true, stamp) != Status::Ok)
        stamp = Stamp();
    if (!io.replace(tmp, v.path))
        return Status::Io;
    v.stamp = stamp;
    return Status::Ok;
}

Status Refresh(const Io &io, Volume &v, bool &reloaded) {
    reloaded = false;
    Stamp now;
    if (io.stamp) {
        // The cheap look first; the header only while the time could hide a change.
        Status s = io.stamp(v.path, false, now);
        if (s == Status::Ok && !now.recent && SameStamp(now, v.stamp))
            return Status::Ok;
        // Stamped with the header before reading, so the stamp kept is
        // never newer than the bytes read.
        if (s == Status::Ok)
            s = io.stamp(v.path, true, now);
        if (s == Status::NotFound)
            return Status::Ok;
        if (s != Status::Ok)
            return s;
        if (SameStamp(now, v.stamp))
            return Status::Ok;
    }
    std::vector<uint8_t> bytes;
    Status s = io.readAll(v.path, kMaxFileBytes, bytes);
    if (s == Status::NotFound)
        return Status::Ok;
    if (s != Status::Ok)
        return s;
    if (!io.stamp) {
        now = StampOfBytes(bytes);
        if (SameStamp(now, v.stamp))
            return Status::Ok;
    }
    Volume read;
    read.path = v.path;
    s = Decode(bytes.data(), bytes.size(), read);
    if (s == Status::Empty)
        s = Status::Damaged;   // a volume emptied by someone else is no volume to read
    if (s != Status::Ok)
        return s;
    read.stamp = now;
    v = std::move(read);
    reloaded = true;
    return Status::Ok;
}

Database *FindDatabase(Volume &v, uint32_t oid) {
    for (Database &db : v.dbs)
        if (db.oid == oid)
            return &db;
    return nullptr;
}

Database *FindDatabase(Volume &v, const std::u16string &name) {
    // Database names match without regard to ASCII case, as on the handheld.
    for (Database &db : v.dbs)
        if (OrdinalCompare(db.name.data(), db.name.size(), name.data(), name.size(), true) == 0)
            return &db;
    return nullptr;
}

Record *FindRecord(Database &db, uint32_t oid) {
    for (Record &r : db.records)
        if (r.oid == oid)
            return &r;
    return nullptr;
}

Database *DatabaseOfRecord(Volume &v, uint32_t recordOid) {
    for (Database &db : v.dbs)
        if (FindRecord(db, recordOid))
            return &db;
    return nullptr;
}

namespace {
Status NewOid(Volume &v, uint32_t &oid) {
    if (v.nextOid == 0 || v.nextOid == 0xFFFFFFFFu)
        return Status::Full;
    oid = v.nextOid++;
    return Status::Ok;
}
}  // namespace

Status CreateDatabase(Volume &v, const std::u16string &name, uint32_t type, uint32_t flags,
                      const std::vector<SortRule> &sorts, uint64_t now, uint32_t &oid) {
    if (name.empty() || name.size() > kMaxNameUnits || sorts.size() > kMaxSortOrders)
        return Status::Invalid;
    for (const SortRule &s : sorts)
        if (!KnownType(s.prop))
            return Status::Invalid;
    if (FindDatabase(v, name))
        return Status::Exists;
    if (v.dbs.size() >= kMaxDatabases)
        return Status::Full;
    Database db;
    Status s = NewOid(v, db.oid);
    if (s != Status::Ok)
        return s;
    db.name = name;
    db.type = type;
    db.flags = flags;
    db.modified = now;
    db.sorts = sorts;
    v.dbs.push_back(std::move(db));
    oid = v.dbs.back().oid;
    return Status::Ok;
}

Status DeleteDatabase(Volume &v, uint32_t oid) {
    for (size_t i = 0; i < v.dbs.size(); i++)
        if (v.dbs[i].oid == oid) {
            v.dbs.erase(v.dbs.begin() + i);
            return Status::Ok;
        }
    return Status::NotFound;
}

Status WriteRecord(Volume &v, Database &db, uint32_t oid, const std::vector<PropWrite> &props,
                   uint64_t now, uint32_t &written) {
    for (const PropWrite &w : props)
        if (!w.remove && !ValidValueLength(w.prop.id, w.prop.data.size()))
            return Status::Invalid;
    Record rec;
    Record *target = nullptr;
    if (oid != 0) {
        target = FindRecord(db, oid);
        if (!target)
            return Status::NotFound;
        rec = *target;
    } else if (db.records.size() >= kMaxRecords) {
        return Status::Full;
    }
    for (const PropWrite &w : props) {
        auto it = std::find_if(rec.props.begin(), rec.props.end(),
                               [&](const Prop &p) { return p.id == w.prop.id; });
        if (w.remove) {
            if (it != rec.props.end())
                rec.props.erase(it);
        } else if (it != rec.props.end()) {
            it->data = w.prop.data;
        } else {
            rec.props.push_back(w.prop);
        }
    }
    if (rec.props.size() > kMaxProps || RecordBytes(rec) > kMaxRecordBytes)
        return Status::Full;
    if (!target) {
        Status s = NewOid(v, rec.oid);
        if (s != Status::Ok)
            return s;
        db.records.push_back(std::move(rec));
        written = db.records.back().oid;
    } else {
        *target = std::move(rec);
        written = oid;
    }
    db.modified = now;
    return Status::Ok;
}

Status DeleteRecord(Volume &, Database &db, uint32_t oid, uint64_t now) {
    for (size_t i = 0; i < db.records.size(); i++)
        if (db.records[i].oid == oid) {
            db.records.erase(db.records.begin() + i);
            db.modified = now;
            return Status::Ok;
        }
    return Status::NotFound;
}

int OrdinalCompare(const char16_t *a, size_t na, const char16_t *b, size_t nb, bool ignoreCase) {
    size_t n = std::min(na, nb);
    for (size_t i = 0; i < n; i++) {
        char16_t x = a[i], y = b[i];
        if (ignoreCase) {
            if (x >= u'a' && x <= u'z')
                x = char16_t(x - 32);
            if (y >= u'a' && y <= u'z')
                y = char16_t(y - 32);
        }
        if (x != y)
            return x < y ? -1 : 1;
    }
    return na < nb ? -1 : na > nb ? 1 : 0;
}

int CompareValues(uint32_t id, const std::vector<uint8_t> &a, const std::vector<uint8_t> &b,
                  bool ignoreCase, TextCompare cmp) {
    auto le = [](const std::vector<uint8_t> &d, size_t n) {
        uint64_t v = 0;
        for (size_t i = 0; i < n && i < d.size(); i++)
            v |= uint64_t(d[i]) << (8 * i);
        return v;
    };
    auto sign = [](auto x, auto y) { return x < y ? -1 : x > y ? 1 : 0; };
    switch (id & 0xFFFF) {
    case kTypeI2: return sign(int16_t(le(a, 2)), int16_t(le(b, 2)));
    case kTypeUI2: return sign(uint16_t(le(a, 2)), uint16_t(le(b, 2)));
    case kTypeI4:
    case kTypeBool: return sign(int32_t(le(a, 4)), int32_t(le(b, 4)));
    case kTypeUI4: return sign(uint32_t(le(a, 4)), uint32_t(le(b, 4)));
    case kTypeFiletime: return sign(le(a, 8), le(b, 8));
    case kTypeR8: {
        double x = 0, y = 0;
        if (a.size() == 8)
            memcpy(&x, a.data(), 8);
        if (b.size() == 8)
            memcpy(&y, b.data(), 8);
        return sign(x, y);
    }
    case kTypeLpwstr: {
        std::u16string x(a.size() / 2, u'\0'), y(b.size() / 2, u'\0');
        if (!x.empty())
            memcpy(&x[0], a.data(), x.size() * 2);
        if (!y.empty())
            memcpy(&y[0], b.data(), y.size() * 2);
        return (cmp ? cmp : OrdinalCompare)(x.data(), x.size(), y.data(), y.size(), ignoreCase);
    }
    default: {
        size_t n = std::min(a.size(), b.size());
        int c = n ? memcmp(a.data(), b.data(), n) : 0;
        return c ? (c < 0 ? -1 : 1) : sign(a.size(), b.size());
    }
    }
}

const Prop *FindProp(const Record &r, uint32_t id) {
    for (const Prop &p : r.props)
        if (p.id == id)
            return &p;
    return nullptr;
}

const SortRule *FindSortRule(const Database &db, uint32_t prop) {
    const SortRule *found = nullptr;
    for (const SortRule &s : db.sorts)
        if (prop != 0 && s.prop == prop)
            found = &s;
    return found;
}

std::vector<size_t> SortedOrder(const Database &db, uint32_t prop, TextCompare cmp) {
    std::vector<size_t> order(db.records.size());
    for (size_t i = 0; i < order.size(); i++)
        order[i] = i;
    const SortRule *rule = FindSortRule(db, prop);
    if (!rule)
        return order;
    bool desc = rule->flags & kSortDescending, fold = rule->flags & kSortCaseInsensitive,
         unknownFirst = rule->flags & kSortUnknownFirst;
    std::stable_sort(order.begin(), order.end(), [&](size_t i, size_t j) {
        const Prop *a = FindProp(db.records[i], prop), *b = FindProp(db.records[j], prop);
        if (!a || !b) {
            if (!a && !b)
                return false;
            return unknownFirst ? !a : !b;
        }
        int c = CompareValues(prop, a->data, b->data, fold, cmp);
        return desc ? c > 0 : c < 0;
    });
    return order;
}

}  // namespace dbvol

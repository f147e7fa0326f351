#!/usr/bin/env python3
"""Builds the engine's embedded zone table from the system's tzdata.

    zonetable.py ZONEINFO_DIR WINDOWS_ZONES_XML OUT.cpp

Reads every zone and link named in ZONEINFO_DIR/tzdata.zi, takes each zone's
offsets from its compiled TZif file, and maps Windows zone names to zones
through CLDR's windowsZones.xml (the "001" row of each Windows name). The
table holds, per zone, the offsets it ever used, its transitions as varint
deltas, and the TZ rule that continues them. Transitions the rule reproduces
are left out: zic writes them out to 2037, and they are most of the bytes.
Zones with the same data (links, and zones that merely share history) share
one record.
"""
import os
import re
import struct
import sys

LAST_YEAR = 2037  # how far the table must agree with the TZif data, inclusive
DAY = 86400


def days_from_civil(y, m, d):
    y -= m <= 2
    era = (y if y >= 0 else y - 399) // 400
    yoe = y - era * 400
    doy = (153 * (m + (-3 if m > 2 else 9)) + 2) // 5 + d - 1
    doe = yoe * 365 + yoe // 4 - yoe // 100 + doy
    return era * 146097 + doe - 719468


def year_of(utc):
    z = utc // DAY + 719468
    era = (z if z >= 0 else z - 146096) // 146097
    doe = z - era * 146097
    yoe = (doe - doe // 1460 + doe // 36524 - doe // 146096) // 365
    y = yoe + era * 400
    doy = doe - (365 * yoe + yoe // 4 - yoe // 100)
    mp = (5 * doy + 2) // 153
    m = mp + 3 if mp < 10 else mp - 9
    return y + (m <= 2)


def is_leap(y):
    return y % 4 == 0 and (y % 100 != 0 or y % 400 == 0)


def month_days(y, m):
    return [31, 29 if is_leap(y) else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31][m - 1]


# ---- the TZ rule of a TZif footer, read as the engine reads it (zone.cpp)
class Posix:
    def __init__(self, s):
        self.s, self.i = s, 0

    def name(self):
        s = self.s
        if self.i < len(s) and s[self.i] == '<':
            self.i = s.index('>', self.i) + 1
            return
        st = self.i
        while self.i < len(s) and s[self.i].isalpha():
            self.i += 1
        if self.i - st < 3:
            raise ValueError('bad name in ' + s)

    def time(self):
        m = re.compile(r'([+-]?)(\d{1,3})(?::(\d{1,2}))?(?::(\d{1,2}))?').match(self.s, self.i)
        if not m:
            raise ValueError('bad time in ' + self.s)
        self.i = m.end()
        v = int(m.group(2)) * 3600 + int(m.group(3) or 0) * 60 + int(m.group(4) or 0)
        return -v if m.group(1) == '-' else v

    def rule(self):
        m = re.compile(r'M(\d+)\.(\d)\.(\d)|J(\d+)|(\d+)').match(self.s, self.i)
        if not m:
            raise ValueError('bad rule in ' + self.s)
        self.i = m.end()
        t = 7200
        if self.i < len(self.s) and self.s[self.i] == '/':
            self.i += 1
            t = self.time()
        if m.group(1):
            return ('M', int(m.group(1)), int(m.group(2)), int(m.group(3)), t)
        if m.group(4):
            return ('J', int(m.group(4)), 0, 0, t)
        return ('n', int(m.group(5)), 0, 0, t)


def nth_weekday(y, m, week, dow):
    first = days_from_civil(y, m, 1)
    wd_first = (first + 4) % 7  # 0 = Sunday; 1970-01-01 was a Thursday
    d = first + (dow - wd_first) % 7 + 7 * (max(week, 1) - 1)
    last = first + month_days(y, m) - 1
    while d > last:
        d -= 7
    return d


def onset(r, y):
    kind, a, b, c, t = r
    if kind == 'M':
        day = nth_weekday(y, a, b, c)
    elif kind == 'J':
        day = days_from_civil(y, 1, 1) + a - 1 + (1 if is_leap(y) and a >= 60 else 0)
    else:
        day = days_from_civil(y, 1, 1) + a
    return day * DAY + t


def posix_transitions(tz, from_year, to_year):
    """(std offset, [(utc, offset)]) of a TZ rule for the years given."""
    p = Posix(tz)
    p.name()
    std = -p.time()
    if p.i >= len(tz):
        return std, []
    p.name()
    dst = std + 3600
    if p.i < len(tz) and tz[p.i] != ',':
        dst = -p.time()
    if p.i >= len(tz):
        start, end = ('M', 3, 2, 0, 7200), ('M', 11, 1, 0, 7200)
    else:
        p.i += 1
        start = p.rule()
        p.i += 1
        end = p.rule()
    out = []
    for y in range(from_year, to_year + 1):
        out.append((onset(start, y) - std, dst))
        out.append((onset(end, y) - dst, std))
    out.sort(key=lambda t: t[0])
    return std, out


# ---- TZif
def read_tzif(path):
    with open(path, 'rb') as f:
        b = f.read()
    if b[:4] != b'TZif':
        raise ValueError(path + ': not TZif')
    version = b[4]

    def header(pos):
        return struct.unpack('>6l', b[pos + 20:pos + 44])

    isut, isstd, leap, timecnt, typecnt, charcnt = header(0)
    pos = 44 + timecnt * 5 + typecnt * 6 + charcnt + leap * 8 + isstd + isut
    if version < ord('2'):
        raise ValueError(path + ': version 1 TZif')
    isut, isstd, leap, timecnt, typecnt, charcnt = header(pos)
    pos += 44
    times = struct.unpack('>%dq' % timecnt, b[pos:pos + 8 * timecnt])
    pos += 8 * timecnt
    idx = b[pos:pos + timecnt]
    pos += timecnt
    types = [struct.unpack('>lBB', b[pos + 6 * i:pos + 6 * i + 6])[:2] for i in range(typecnt)]
    pos += 6 * typecnt + charcnt + leap * 12 + isstd + isut
    footer = b[pos:].split(b'\n')[1].decode('ascii') if b[pos:pos + 1] == b'\n' else ''
    return types, [(times[i], idx[i]) for i in range(timecnt)], footer


def effective(initial, trans, limit):
    """The offset function as (utc, offset) changes before `limit`."""
    out, prev = [], initial
    for utc, off in trans:
        if utc >= limit:
            break
        if off != prev:
            out.append((utc, off))
            prev = off
    return out


def decoded(initial, kept, footer):
    """What the engine makes of the kept transitions and the footer."""
    if not footer:
        return initial, list(kept)
    if not kept:
        std, rules = posix_transitions(footer, 1900, LAST_YEAR)
        return std, rules
    last = kept[-1][0]
    _, rules = posix_transitions(footer, year_of(last), LAST_YEAR + 1)
    return initial, list(kept) + [t for t in rules if t[0] > last]


def zone_record(path):
    types, trans, footer = read_tzif(path)
    initial_type = 0
    initial = types[0][0]
    full = [(utc, types[t][0], t) for utc, t in trans]
    limit = days_from_civil(LAST_YEAR + 1, 1, 1) * DAY
    want = effective(*decoded(initial, [(u, o) for u, o, _ in full], footer), limit)
    # Leave out the transitions that change nothing, then the tail the rule reproduces.
    kept, prev = [], initial
    for u, o, t in full:
        if o != prev:
            kept.append((u, o, t))
            prev = o
    cut = len(kept)
    for k in range(len(kept) - 1, 0, -1):
        if effective(*decoded(initial, [(u, o) for u, o, _ in kept[:k]], footer), limit) != want:
            break
        cut = k
    kept = kept[:cut]
    if effective(*decoded(initial, [(u, o) for u, o, _ in kept], footer), limit) != want:
        raise ValueError(path + ': the compact form does not reproduce the zone')
    used = sorted({t for _, _, t in kept} | {initial_type})
    remap = {t: i for i, t in enumerate(used)}
    rec = bytearray()
    rec += varint(len(used))
    for t in used:
        rec += varint(zigzag(types[t][0]))
        rec.append(types[t][1])
    rec += varint(remap[initial_type])
    rec += varint(len(kept))
    prev_utc = None
    for u, _, t in kept:
        rec += varint(zigzag(u) if prev_utc is None else u - prev_utc)
        rec += varint(remap[t])
        prev_utc = u
    fb = footer.encode('ascii')
    rec += varint(len(fb)) + fb
    return bytes(rec)


def zigzag(v):
    return (v << 1) ^ (v >> 63)


def varint(v):
    out = bytearray()
    while True:
        b = v & 0x7f
        v >>= 7
        if v:
            out.append(b | 0x80)
        else:
            out.append(b)
            return out


def main():
    zoneinfo, windows_xml, out_path = sys.argv[1:4]
    version = '?'
    zones, links = [], {}
    with open(os.path.join(zoneinfo, 'tzdata.zi'), encoding='utf-8') as f:
        for line in f:
            if line.startswith('# version '):
                version = line.split()[2]
            elif line.startswith('Z '):
                zones.append(line.split()[1])
            elif line.startswith('L '):
                _, target, alias = line.split()
                links[alias] = target
    data = bytearray()
    record_at = {}
    zone_data = {}
    for name in sorted(zones):
        rec = zone_record(os.path.join(zoneinfo, name))
        if rec not in record_at:
            record_at[rec] = len(data)
            data += rec
        zone_data[name] = record_at[rec]
    for alias, target in links.items():
        while target in links:
            target = links[target]
        zone_data[alias] = zone_data[target]
    windows = {}
    with open(windows_xml, encoding='utf-8') as f:
        for m in re.finditer(r'<mapZone\s+other="([^"]+)"\s+territory="001"\s+type="([^"]+)"', f.read()):
            iana = m.group(2).split()[0]
            if iana in zone_data:
                windows[m.group(1)] = iana

    names = bytearray()

    def entries(table):
        rows = []
        for n in sorted(table, key=lambda s: s.lower()):
            rows.append('{%d, %d}' % (len(names), table[n]))
            names.extend(n.encode('ascii') + b'\0')
        return rows

    zone_rows = entries(zone_data)
    zone_order = sorted(zone_data, key=lambda s: s.lower())
    win_rows = entries({w: zone_data[iana] for w, iana in windows.items()})
    win_targets = [str(zone_order.index(windows[w])) for w in sorted(windows, key=lambda s: s.lower())]

    def byte_lines(b):
        return ',\n'.join(','.join(str(x) for x in b[i:i + 24]) for i in range(0, len(b), 24))

    with open(out_path + '.tmp', 'w', encoding='ascii') as o:
        o.write('// Made by ical/zonetable.py from tzdata %s and CLDR windowsZones.xml at build time.\n'
                '#include "zonetable.h"\n\nnamespace lfical {\nnamespace zonetable {\n\n' % version)
        o.write('const char kVersion[] = "%s";\n\n' % version)
        o.write('const unsigned char kData[] = {\n%s};\nconst size_t kDataSize = sizeof kData;\n\n' % byte_lines(data))
        o.write('const char kNames[] = {\n%s};\n\n' % byte_lines(names))
        o.write('const Entry kZones[] = {\n%s};\nconst size_t kZoneCount = %d;\n\n' % (',\n'.join(zone_rows), len(zone_rows)))
        o.write('const Entry kWindows[] = {\n%s};\nconst size_t kWindowsCount = %d;\n\n' % (',\n'.join(win_rows), len(win_rows)))
        o.write('const uint16_t kWindowsZone[] = {\n%s};\n\n' % ',\n'.join(win_targets))
        o.write('}  // namespace zonetable\n}  // namespace lfical\n')
    os.replace(out_path + '.tmp', out_path)
    print('zone table: tzdata %s, %d zones and links, %d Windows names, %d distinct records, '
          '%d bytes of zone data + %d bytes of names + %d bytes of index' %
          (version, len(zone_rows), len(win_rows), len(record_at), len(data), len(names),
           8 * (len(zone_rows) + len(win_rows)) + 2 * len(win_rows)))


if __name__ == '__main__':
    main()

// The zone table that ical/zonetable.py builds from tzdata at build time:
// the same zones on every system, Windows included, where no zoneinfo
// folder exists. Read it through Zone::fromBuiltIn.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lfical {
namespace zonetable {

// A name (offset of its NUL-terminated text in kNames) and the offset of
// its zone's record in kData. Rows are sorted by name, ASCII case ignored.
struct Entry {
    uint32_t name;
    uint32_t data;
};

extern const char kVersion[];
extern const unsigned char kData[];
extern const size_t kDataSize;
extern const char kNames[];
extern const Entry kZones[];  // IANA zones and their links
extern const size_t kZoneCount;
extern const Entry kWindows[];  // Windows zone names, each with its zone's record
extern const size_t kWindowsCount;
extern const uint16_t kWindowsZone[];  // the row of kZones each Windows name maps to

}  // namespace zonetable
}  // namespace lfical

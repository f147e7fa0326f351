// Any bytes as a volume file: the reader must answer with a status, never
// crash or allocate without bound; what it accepts must write back to the
// same bytes and sort without trouble.
#include "dbvol.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dbvol::Volume v;
    if (dbvol::Decode(data, size, v) != dbvol::Status::Ok)
        return 0;
    std::vector<uint8_t> again = dbvol::Encode(v);
    if (again.size() != size || !std::equal(again.begin(), again.end(), data))
        abort();
    for (const dbvol::Database &db : v.dbs)
        for (const dbvol::SortRule &s : db.sorts)
            if (dbvol::SortedOrder(db, s.prop, nullptr).size() != db.records.size())
                abort();
    return 0;
}

// libFuzzer target: any bytes as a calendar file. The store must read them
// without crashing, report what it cannot use, give back the same bytes
// when nothing changed, answer queries, and survive an edit and a change to
// one occurrence.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ical.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    lfical::Store store;
    std::vector<lfical::Problem> problems;
    store.loadText(text, "fuzz", &problems);
    auto texts = store.texts();
    if (texts.empty() || texts[0].second != text)
        abort();  // an unchanged store must give back its bytes exactly
    lfical::Zone zone = lfical::Zone::fixed(3600, "fuzz");
    lfical::QueryReport report;
    auto occ = store.query(zone, lfical::civilSeconds(1997, 6, 1), lfical::civilSeconds(1998, 6, 1),
                           lfical::Range::HalfOpen, &report);
    for (size_t i = 1; i < occ.size(); ++i)
        if (occ[i].start < occ[i - 1].start)
            abort();  // sorted by start
    auto ids = store.events();
    for (size_t i = 0; i < ids.size() && i < 4; ++i)
        (void)store.info(ids[i]);
    if (!ids.empty()) {
        lfical::EventEdit edit;
        edit.summary = std::string("fuzzed, edited; \\ done");
        if (store.edit(ids[0], edit)) {
            lfical::Store again;
            again.loadText(store.texts()[0].second, "again", nullptr);
            (void)again.query(zone, lfical::civilSeconds(2000, 1, 1), lfical::civilSeconds(2001, 1, 1),
                              lfical::Range::Closed);
        }
    }
    // One occurrence of a series changed on its own must read back.
    for (const auto& o : occ) {
        if (!o.recurring || o.event != o.series)
            continue;
        lfical::EventEdit edit;
        edit.location = std::string("moved, here");
        if (store.addOverride(o.series, o.recurrenceId, edit) != lfical::kNoEvent) {
            lfical::Store again;
            again.loadText(store.texts()[0].second, "again", nullptr);
        }
        break;
    }
    lfical::Component c;
    if (lfical::parseComponent(text, c, nullptr))
        (void)lfical::writeComponent(c);
    return 0;
}

// One field of an event read from its text alone, for passes over the whole
// store that need nothing else: decoding every event whole (all its texts,
// dates and alarms) for one property costs ten times the reading.
#include <string>
#include <vector>

#include "internal.h"
#include "storeimpl.h"

namespace lfical {

namespace {
// Components nested deeper than the component reader follows are lines to it.
const int kMaxDepth = 32;
}  // namespace

std::vector<std::string> Store::categories(EventId id) const
{
    std::vector<std::string> out;
    if (id >= d_->evs.size())
        return out;
    const Ev& e = d_->evs[id];
    const Source& s = d_->sources[e.source];
    std::string bytes = d_->itemBytes(s, s.items[e.item]);
    // As the component reader takes it: the lines from the first BEGIN to
    // the END that closes it; an END that closes nothing open is a line, and
    // the lines of a component inside (an alarm) are its own.
    std::vector<std::string> open;
    LineReader lr(bytes);
    LineView lv;
    while (lr.next(lv)) {
        LineParts lp;
        if (lv.text.empty() || !splitLine(lv.text, lp))
            continue;
        if (eqUpper(lp.name, "BEGIN") && int(open.size()) < kMaxDepth) {
            open.push_back(toUpper(lp.value));
            continue;
        }
        if (open.empty())
            continue;
        if (eqUpper(lp.name, "END") && toUpper(lp.value) == open.back()) {
            open.pop_back();
            if (open.empty())
                break;
            continue;
        }
        if (open.size() == 1 && eqUpper(lp.name, "CATEGORIES"))
            for (std::string& name : splitTextList(lp.value))
                out.push_back(std::move(name));
    }
    return out;
}

}  // namespace lfical

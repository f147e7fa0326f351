// Deterministic realistic calendars for the benchmark and the comparison
// with libical: the same options always give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lfgen {

struct Options {
    size_t events = 2000;  // VEVENTs in all: singles, series masters and overrides
    size_t series = 50;    // of which recurring masters
    uint64_t seed = 20240505;
    int firstYear = 2010;
    int years = 20;
    bool dstEdgeTimes = true;  // a few times inside spring-forward gaps and fall-back overlaps
};

Options preset(const std::string& name);  // "small", "medium", "large"
std::string generate(const Options& opt);

}  // namespace lfgen

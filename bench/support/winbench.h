// What the benchmarks run under Wine share: a millisecond clock, medians, and starting the
// real program on a store in the benchmark's own process.
#pragma once

#include <windows.h>

#include <vector>

// Milliseconds from the performance counter.
double NowMs();
double Median(std::vector<double> v);
double Sum(const std::vector<double> &v);

// Starts the program on the store at `path` (its window, rendering thread and calendar
// server) and waits for start-up's first month pass to end. Prints the reason and returns
// false when the store is missing, the server is not registered or the program did not start.
bool StartProgramOn(const wchar_t *tool, const wchar_t *path);

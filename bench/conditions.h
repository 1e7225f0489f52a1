// Under which conditions figures are taken. Main thread, before the run.
#ifndef BENCH_CONDITIONS_H_
#define BENCH_CONDITIONS_H_

#include <cstdio>

namespace bench {

// True when this program and the libraries built with it are optimised and not instrumented; else says on
// standard error why figures would mean nothing.
bool FitToMeasure();

// Machine, load, compiler, build type and the sizes that the rows work with.
void PrintConditions(std::FILE* out);

}  // namespace bench

#endif  // BENCH_CONDITIONS_H_

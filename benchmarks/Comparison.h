#pragma once

// Runs the registered benchmarks, whose names end in "/<who>", several times each and by turns, and
// prints for every case how the time of each who compares with that of the first one registered.
// Returns main's result. Takes the arguments of Google Benchmark.
int runComparison(int argc, char** argv);

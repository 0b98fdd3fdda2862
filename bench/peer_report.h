// Benchmarks that stand beside a peer. Absolute times mean nothing from one machine to the next; what counts
// is how a case compares with its peer in the same run.
//
// A pair of benchmarks is named "SUBJECT/ours" and "SUBJECT/PEER"; every other name beside an "ours" is a
// peer of it. Several may stand beside the same peers: "SUBJECT/ours, VARIANT". Runs are repeated and
// interleaved at random, and the fastest of each counts: noise only ever adds time.
//
// Times are those of an iteration, or of an item where a benchmark says how many it processes; such a
// benchmark uses real time.
#pragma once

namespace bench {

// Runs the registered benchmarks and prints for each pair both times, their ratio and their difference.
// Returns the exit code: 1 when nothing ran.
int run_beside_peers(int argc, char** argv);

// After a run: the fastest time of a benchmark in nanoseconds, 0 for one that did not run.
double fastest(const char* name);
// The least processor time of an iteration, of all threads where the benchmark measures the whole process.
double least_processor_time(const char* name);

} // namespace bench

// Timing helpers shared by the benchmarks. Every figure is a ratio against a baseline measured
// in the same run, interleaved with it, so that it holds from one machine to the next; the
// machine's own speed shows only in the baseline.
//
// U is one uncontended pthread_mutex_lock plus pthread_mutex_unlock.
//
// Google Benchmark runs each row once (registerRow): a row measures its subject and baseline
// itself, interleaved repetition by repetition, which one benchmark per measure run one after
// the other could not do; the row's text becomes the run's label, and scripts/bench collects the
// labels from the JSON output into one table.
#pragma once

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace quorvane::bench {

inline uint64_t nowNs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

// Nanoseconds per call of `operation`, over `iterations` calls.
template <class F>
double nsPerCall(F&& operation, uint64_t iterations) {
    const uint64_t start = nowNs();
    for (uint64_t i = 0; i < iterations; ++i) operation();
    return static_cast<double>(nowNs() - start) / static_cast<double>(iterations);
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// Nanoseconds of one uncontended lock and unlock of a default pthread mutex.
inline double measureUnitOnce(uint64_t iterations) {
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    return nsPerCall(
        [] {
            pthread_mutex_lock(&mutex);
            asm volatile("" ::: "memory");
            pthread_mutex_unlock(&mutex);
        },
        iterations);
}

// What one repetition measured: U, the baseline and the subject, all in nanoseconds.
struct Sample {
    double unit;
    double baseline;
    double subject;
};

// Runs U, the baseline and the subject one after the other in each repetition, so that a
// slower phase of a shared machine touches all three alike.
template <class Baseline, class Subject>
std::vector<Sample> sampleInterleaved(Baseline&& baseline, Subject&& subject, uint64_t iterations, int repetitions) {
    std::vector<Sample> samples;
    for (int r = 0; r < repetitions; ++r) {
        samples.push_back(
            {measureUnitOnce(iterations), nsPerCall(baseline, iterations), nsPerCall(subject, iterations)});
    }
    return samples;
}

// Median over the repetitions of (subject - baseline) / U.
inline double medianAddedUnits(const std::vector<Sample>& samples) {
    std::vector<double> added;
    for (const Sample& s : samples) added.push_back((s.subject - s.baseline) / s.unit);
    return median(added);
}

// Median over the repetitions of subject / baseline.
inline double medianRatio(const std::vector<Sample>& samples) {
    std::vector<double> ratios;
    for (const Sample& s : samples) ratios.push_back(s.subject / s.baseline);
    return median(ratios);
}

// Median over the repetitions of one field of the samples (&Sample::unit, ...).
inline double medianOf(const std::vector<Sample>& samples, double Sample::*field) {
    std::vector<double> values;
    for (const Sample& s : samples) values.push_back(s.*field);
    return median(values);
}

// The row the running benchmark measured last.
inline std::string& lastRow() {
    static std::string row;
    return row;
}

// One row of the table that scripts/bench prints.
inline void printRow(const char* measure, const char* reached, const char* goal, const char* detail) {
    lastRow() = std::string("| ") + measure + " | " + reached + " | " + goal + " | " + detail + " |";
}

// Registers `row` (which calls printRow) as a benchmark run once under `name`.
template <class Row>
void registerRow(const char* name, Row row) {
    benchmark::RegisterBenchmark(name,
                                 [row](benchmark::State& state) {
                                     for (auto _ : state) row();
                                     state.SetLabel(lastRow());
                                 })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
}

// Runs the registered rows; the command line takes Google Benchmark's options.
inline int runRows(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace quorvane::bench

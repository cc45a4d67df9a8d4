// Measuring a work beside its yardstick: the two in turn, so that a machine that is busy with other
// things slows both, and the ratio of each pair counted.
#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <vector>

namespace Bench {

template <class Work>
double secondsOf(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// One run of the benchmark case; UseManualTime() belongs to it. Each of `work` and `yardstick` does
// `operations` operations a call; `prepare` comes before each pair, unmeasured. Reported are the
// median ns per operation of both, and the median of the ratios of work to yardstick.
template <class Work, class Yardstick, class Prepare>
void compare(benchmark::State& state, double operations, Work&& work, Yardstick&& yardstick,
             Prepare&& prepare) {
  std::vector<double> works;
  std::vector<double> yardsticks;
  std::vector<double> ratios;
  for (auto _ : state) {
    prepare();
    works.push_back(secondsOf(work));
    yardsticks.push_back(secondsOf(yardstick));
    ratios.push_back(works.back() / yardsticks.back());
    state.SetIterationTime(works.back());
  }
  constexpr double nanoseconds = 1e9;
  state.counters["ns"] = median(works) * nanoseconds / operations;
  state.counters["yardstick_ns"] = median(yardsticks) * nanoseconds / operations;
  state.counters["ratio"] = median(ratios);
}

template <class Work, class Yardstick>
void compare(benchmark::State& state, double operations, Work&& work, Yardstick&& yardstick) {
  compare(state, operations, work, yardstick, [] {});
}

}  // namespace Bench

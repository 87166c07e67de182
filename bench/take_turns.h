// Two sides of one comparison, by turns.
#ifndef CERTKERN_BENCH_TAKE_TURNS_H
#define CERTKERN_BENCH_TAKE_TURNS_H

#include <benchmark/benchmark.h>

#include <ctime>
#include <functional>

namespace certkern::bench {

// Processor time of this thread, so that a busy machine does not show in a ratio.
inline double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

inline double SecondsOf(const std::function<void()>& work, int times) {
  const double start = Now();
  for (int i = 0; i < times; ++i) work();
  return Now() - start;
}

// batch: calls between two looks at the clock, so that a call of some hundred nanoseconds can be told, and so that what
// the other side's release left for the allocator to tidy up is not charged to a single call. A first call right after
// OpenSSL has freed a list of a thousand entries takes three times as long as the next.
inline void TakeTurns(benchmark::State& state, int batch, size_t items, const std::function<void()>& ours,
                      const std::function<void()>& theirs) {
  double ourTime = 0;
  double theirTime = 0;
  ours();  // what each side sets up once is not part of the comparison
  theirs();
  for (auto _ : state) {
    const double time = SecondsOf(ours, batch);
    state.SetIterationTime(time / batch);
    ourTime += time;
    theirTime += SecondsOf(theirs, batch);
  }
  const double calls = static_cast<double>(state.iterations()) * batch;
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(items));
  state.counters["openssl"] = benchmark::Counter(theirTime / calls);
  state.counters["ratio"] = benchmark::Counter(theirTime / ourTime);
}

}  // namespace certkern::bench

#endif

// Two ways of doing one thing, measured in turns so that whatever else the machine does meets both alike.
#ifndef BENCH_ROUNDS_H
#define BENCH_ROUNDS_H

#include <algorithm>
#include <ctime>
#include <vector>

namespace rounds {

// Seconds of CPU that the calling thread spends in run: the machine may be shared.
template <typename Run>
double Seconds(Run run) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  const double start = now();
  run();
  return now() - start;
}

inline double Median(std::vector<double> values) {
  const auto half = static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), values.begin() + half, values.end());
  return values[values.size() / 2];
}

// The times of both, one of each a round.
class Pair {
 public:
  template <typename Ours, typename Floor>
  void Round(Ours ours, Floor floor) {
    floor_.push_back(Seconds(floor));
    ours_.push_back(Seconds(ours));
  }
  double Ours() const { return Median(ours_); }
  double Floor() const { return Median(floor_); }
  // Of the medians.
  double Ratio() const { return Ours() / Floor(); }
  // Of the best rounds: less moved by what else the machine does.
  double BestRatio() const {
    return *std::min_element(ours_.begin(), ours_.end()) / *std::min_element(floor_.begin(), floor_.end());
  }

 private:
  std::vector<double> ours_;
  std::vector<double> floor_;
};

}  // namespace rounds

#endif

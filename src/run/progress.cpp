#include "run/progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace ictvcf {

// A progress line on standard error for long runs, when standard error is a terminal: time
// points done, rate and time left, redrawn at most four times a second and erased at the end.
Progress terminal_progress() {
  if (!isatty(STDERR_FILENO)) return {};
  struct State {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now(), last;
    bool shown = false;
  };
  auto state = std::make_shared<State>();
  return [state](std::int64_t done, std::int64_t total) {
    using namespace std::chrono;
    const auto now = steady_clock::now();
    if (done >= total) {
      if (state->shown) std::fprintf(stderr, "\r%*s\r", 72, "");
      return;
    }
    if (now - state->last < milliseconds(250) || now - state->start < milliseconds(500)) return;
    state->last = now;
    state->shown = true;
    const double secs = duration<double>(now - state->start).count();
    const double rate = done / std::max(secs, 1e-9);
    const double left = (total - done) / std::max(rate, 1e-9);
    std::fprintf(stderr, "\rictvcf: %lld/%lld time points, %.1f per second, %.0f s left   ",
                 static_cast<long long>(done), static_cast<long long>(total), rate, left);
    std::fflush(stderr);
  };
}

}  // namespace ictvcf

#include "qrt_toolkit/bench/bench.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <utility>

#include "qrt_toolkit/bench/lane.h"

namespace marlo::toolkit {
namespace {

// On several threads a slice is so long that starting it costs nothing beside it.
constexpr double kSliceMs = 20.0;

/// A thread that does one piece of work at a time.
class Worker {
 public:
  explicit Worker(const std::optional<int>& cpu) : thread_([this, cpu] { serve(cpu); }) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  /// Begins a piece of work; the last one must have been waited for.
  void begin(std::function<void()> work) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      work_ = std::move(work);
    }
    changed_.notify_all();
  }

  /// Waits until it is done, and returns what it threw.
  std::exception_ptr wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return work_ == nullptr; });
    return std::exchange(failure_, nullptr);
  }

 private:
  void serve(const std::optional<int>& cpu) {
    std::exception_ptr refusal;
    try {
      if (cpu) stay_on_cpu(*cpu);
    } catch (...) {
      refusal = std::current_exception();
    }
    for (;;) {
      std::unique_lock<std::mutex> lock(mutex_);
      changed_.wait(lock, [this] { return ended_ || work_ != nullptr; });
      if (work_ == nullptr) return;
      const std::function<void()> work = work_;
      lock.unlock();
      std::exception_ptr failure = refusal;
      try {
        if (failure == nullptr) work();
      } catch (...) {
        failure = std::current_exception();
      }
      lock.lock();
      failure_ = failure;
      work_ = nullptr;
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<void()> work_;  // null while there is nothing to do
  std::exception_ptr failure_;
  bool ended_ = false;
  std::thread thread_;  // last, as it uses all the others
};

/// All networks of one thread, made and run on it.
struct ThreadLanes {
  std::vector<std::unique_ptr<Lane>> lanes;  // by subject
  std::vector<std::vector<Times>> passes;    // by subject
};

/// What is known of a subject beside its passes.
struct Course {
  uint64_t grown = 0;  // of the process, in bytes
  size_t batch = 1;    // passes of a thread in a sample
  WarmUp warm;
  uint64_t pool_bytes = 0;   // when it was steady
  uint64_t allocations = 0;  // the same
};

/// Networks on their threads, and what is measured of them.
class Measurement {
 public:
  Measurement(const std::vector<BenchSubject>& subjects, const BenchOptions& options)
      : subjects_(subjects),
        options_(options),
        courses_(subjects.size()),
        threads_(options.threads) {
    for (unsigned i = 0; i < options.threads; ++i) {
      threads_[i].lanes.resize(subjects.size());
      threads_[i].passes.resize(subjects.size());
      workers_.push_back(std::make_unique<Worker>(
          options.cpu ? std::optional<int>(*options.cpu + static_cast<int>(i)) : std::nullopt));
    }
  }
  Measurement(const Measurement&) = delete;
  Measurement& operator=(const Measurement&) = delete;

  // Networks go where they were made.
  ~Measurement() {
    for (size_t i = 0; i < workers_.size(); ++i) {
      workers_[i]->begin([this, i] { threads_[i].lanes.clear(); });
      workers_[i]->wait();
    }
  }

  BenchResult run() {
    for (size_t subject = 0; subject < subjects_.size(); ++subject) open(subject);
    std::vector<std::vector<double>> samples;
    if (threads_.size() == 1) {
      // All on the one thread: none of its passes begins with another thread's waking it.
      on_all([&](size_t) { samples = sample(); });
    } else {
      samples = sample();
    }
    return result(samples);
  }

 private:
  // Runs `work` with the number of each thread, on it; then throws what one of them threw.
  void on_all(const std::function<void(size_t)>& work) {
    for (size_t i = 0; i < workers_.size(); ++i) workers_[i]->begin([&work, i] { work(i); });
    std::exception_ptr failure;
    for (const auto& worker : workers_) {
      const std::exception_ptr own = worker->wait();
      if (failure == nullptr) failure = own;
    }
    if (failure != nullptr) std::rethrow_exception(failure);
  }

  // Runs `work` on one thread; then throws what it threw.
  void on(size_t thread, const std::function<void()>& work) {
    workers_[thread]->begin(work);
    const std::exception_ptr failure = workers_[thread]->wait();
    if (failure != nullptr) std::rethrow_exception(failure);
  }

  void open(size_t subject) {
    const uint64_t before = process_memory().resident;
    // One after another: a model may be cloned while no pass of it runs.
    for (size_t i = 0; i < threads_.size(); ++i) {
      const Lane* const first = i != 0 ? threads_[0].lanes[subject].get() : nullptr;
      on(i, [&, i] {
        threads_[i].lanes[subject] = std::make_unique<Lane>(subjects_[subject], options_, first);
      });
    }
    const uint64_t after = process_memory().resident;
    courses_[subject].grown = after > before ? after - before : 0;
  }

  Lane& lane(size_t subject) { return *threads_[0].lanes[subject]; }
  const Lane& lane(size_t subject) const { return *threads_[0].lanes[subject]; }

  static uint64_t pool_bytes(const Lane& lane) {
    return lane.static_pool_bytes() + lane.dynamic_pool_bytes();
  }

  // The time of a pass, or of a slice of passes on several threads.
  double one_sample(size_t subject) {
    if (options_.before_sample) options_.before_sample();
    if (threads_.size() == 1) {
      threads_[0].passes[subject].push_back(lane(subject).pass());
      return threads_[0].passes[subject].back().wall_ms;
    }
    const Stopwatch watch;
    on_all([&](size_t i) {
      for (size_t n = 0; n < courses_[subject].batch; ++n) {
        threads_[i].passes[subject].push_back(threads_[i].lanes[subject]->pass());
      }
    });
    return watch.times().wall_ms;
  }

  std::vector<std::vector<double>> sample() {
    for (size_t subject = 0; subject < subjects_.size(); ++subject) {
      Course& course = courses_[subject];
      course.warm = warm_up([&] { return one_sample(subject); }, options_.sampling);
      if (threads_.size() > 1) {
        const double ms = std::max(1e-3, median(course.warm.samples));
        course.batch = static_cast<size_t>(std::ceil(kSliceMs / ms));
      }
      course.pool_bytes = pool_bytes(lane(subject));
      course.allocations = lane(subject).allocations();
      for (ThreadLanes& thread : threads_) thread.passes[subject].clear();
    }
    return take_samples(
        subjects_.size(), [&](size_t subject) { return one_sample(subject); }, options_.sampling);
  }

  BenchResult result(std::vector<std::vector<double>>& samples) const;
  BenchedNetwork network_result(size_t subject, const std::vector<double>& samples) const;

  const std::vector<BenchSubject>& subjects_;
  const BenchOptions& options_;
  std::vector<Course> courses_;
  std::vector<ThreadLanes> threads_;
  std::vector<std::unique_ptr<Worker>> workers_;
};

BenchedNetwork Measurement::network_result(size_t subject,
                                           const std::vector<double>& samples) const {
  const Course& course = courses_[subject];
  const Lane& first = lane(subject);
  BenchedNetwork network;
  network.name = subjects_[subject].name;
  network.network = first.network();
  network.load_ms = first.load_ms();
  network.first_pass_ms = first.first_pass_ms();
  network.is_steady = course.warm.is_steady;
  network.warm_passes = 1 + course.warm.samples.size();
  network.warm_ms = std::accumulate(course.warm.samples.begin(), course.warm.samples.end(),
                                    first.first_pass_ms());
  std::vector<double> latencies;
  for (const ThreadLanes& thread : threads_) {
    for (const Times& pass : thread.passes[subject]) {
      network.passes.push_back(pass);
      latencies.push_back(pass.wall_ms);
    }
  }
  network.latency = summarise(latencies);
  network.median = median_interval(latencies);
  const double sum = std::accumulate(samples.begin(), samples.end(), 0.0);
  network.passes_a_second = 1000.0 * static_cast<double>(latencies.size()) / std::max(sum, 1e-6);
  network.resident_bytes = course.grown;
  network.static_pool_bytes = first.static_pool_bytes();
  network.dynamic_pool_bytes = first.dynamic_pool_bytes();
  network.pool_growth_bytes = pool_bytes(first) - course.pool_bytes;
  if (options_.allocations) {
    network.allocations_a_pass = static_cast<double>(first.allocations() - course.allocations) /
                                 static_cast<double>(threads_[0].passes[subject].size());
  }
  return network;
}

BenchResult Measurement::result(std::vector<std::vector<double>>& samples) const {
  BenchResult result;
  result.threads = options_.threads;
  for (size_t subject = 0; subject < subjects_.size(); ++subject) {
    result.networks.push_back(network_result(subject, samples[subject]));
    for (double& sample : samples[subject]) sample /= static_cast<double>(courses_[subject].batch);
  }
  for (size_t subject = 1; subject < subjects_.size(); ++subject) {
    result.ratios.push_back({0, subject, ratio_interval(samples[0], samples[subject])});
  }
  const ProcessMemory memory = process_memory();
  result.resident_bytes = memory.resident;
  result.peak_resident_bytes = memory.peak;
  return result;
}

}  // namespace

BenchResult bench(const std::vector<BenchSubject>& subjects, const BenchOptions& options) {
  if (subjects.empty()) throw std::invalid_argument("there is no network to be measured");
  if (options.threads == 0) throw std::invalid_argument("a measurement needs a thread");
  return Measurement(subjects, options).run();
}

}  // namespace marlo::toolkit

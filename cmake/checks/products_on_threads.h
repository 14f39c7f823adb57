#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

// Whether a product of matrices is right while other threads, with matrices of their own, call it
// too. Plain C++17 without the library, because CMake runs it on a BLAS before there is one.
namespace marlo::test {

/// C = A * B for row-major matrices [m, k] and [k, n] without gaps.
using Product = void (*)(int m, int k, int n, const float* a, const float* b, float* c);

/// How many of `passes` products on each of `threads` threads differ from the sums. Matrices are
/// small, where implementations have kernels of their own, and hold small integers, so that every
/// order of a sum is exact.
inline long wrong_products(Product product, int threads, int passes) {
  struct Work {
    int m, k, n;
    std::vector<float> a, b, expected;
    long wrong = 0;
  };
  std::vector<Work> works;
  for (int t = 0; t < threads; ++t) {
    Work work{t % 2 == 0 ? 28 : 40, 5 + t, 1 + t % 3, {}, {}, {}};
    const auto size = [](int rows, int columns) {
      return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
    };
    for (std::size_t i = 0; i < size(work.m, work.k); ++i) {
      work.a.push_back(static_cast<float>((i * 7 + static_cast<std::size_t>(t)) % 13) - 6);
    }
    for (std::size_t i = 0; i < size(work.k, work.n); ++i) {
      work.b.push_back(static_cast<float>((i * 5 + static_cast<std::size_t>(t)) % 11) - 5);
    }
    for (int row = 0; row < work.m; ++row) {
      for (int column = 0; column < work.n; ++column) {
        float sum = 0;
        for (int i = 0; i < work.k; ++i) {
          sum += work.a[size(row, work.k) + static_cast<std::size_t>(i)] *
                 work.b[size(i, work.n) + static_cast<std::size_t>(column)];
        }
        work.expected.push_back(sum);
      }
    }
    works.push_back(work);
  }
  std::vector<std::thread> running;
  for (Work& work : works) {
    running.emplace_back([&work, product, passes] {
      std::vector<float> result(work.expected.size());
      for (int pass = 0; pass < passes; ++pass) {
        product(work.m, work.k, work.n, work.a.data(), work.b.data(), result.data());
        if (result != work.expected) ++work.wrong;
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  long sum = 0;
  for (const Work& work : works) sum += work.wrong;
  return sum;
}

/// A BLAS picks its kernels by the processor; these variables make it pick others.
struct KernelChoice {
  const char* variable;
  const char* value;
};

/// Every choice of BLIS (its numbers differ between versions) and of OpenBLAS on x86-64, and first
/// that of its own.
inline constexpr KernelChoice kKernelChoices[] = {
    {nullptr, nullptr},
    {"BLIS_ARCH_TYPE", "0"},
    {"BLIS_ARCH_TYPE", "1"},
    {"BLIS_ARCH_TYPE", "2"},
    {"BLIS_ARCH_TYPE", "3"},
    {"BLIS_ARCH_TYPE", "4"},
    {"BLIS_ARCH_TYPE", "5"},
    {"BLIS_ARCH_TYPE", "6"},
    {"BLIS_ARCH_TYPE", "7"},
    {"BLIS_ARCH_TYPE", "8"},
    {"BLIS_ARCH_TYPE", "9"},
    {"BLIS_ARCH_TYPE", "10"},
    {"BLIS_ARCH_TYPE", "11"},
    {"BLIS_ARCH_TYPE", "12"},
    {"BLIS_ARCH_TYPE", "25"},
    {"OPENBLAS_CORETYPE", "Prescott"},
    {"OPENBLAS_CORETYPE", "Nehalem"},
    {"OPENBLAS_CORETYPE", "Sandybridge"},
    {"OPENBLAS_CORETYPE", "Haswell"},
    {"OPENBLAS_CORETYPE", "Zen"},
    {"OPENBLAS_CORETYPE", "SkylakeX"},
    {"OPENBLAS_CORETYPE", "Cooperlake"},
    {"OPENBLAS_CORETYPE", "SapphireRapids"},
};

/// Runs a program with that choice, without its output. True if it ended with 0.
inline bool succeeds(const std::vector<std::string>& command, const KernelChoice& choice) {
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    if (choice.variable != nullptr) setenv(choice.variable, choice.value, 1);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(words[0], words.data());
    _exit(127);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

/// The choices with which `alone` succeeds and `on_threads` does not. Where one thread fails too,
/// the processor lacks the instructions or the BLAS has no such choice, except for its own one.
inline std::vector<std::string> unsafe_choices(const std::vector<std::string>& alone,
                                               const std::vector<std::string>& on_threads) {
  std::vector<std::string> unsafe;
  for (const KernelChoice& choice : kKernelChoices) {
    const bool is_own = choice.variable == nullptr;
    if (!is_own && !succeeds(alone, choice)) continue;
    if (succeeds(on_threads, choice)) continue;
    unsafe.push_back(is_own ? std::string("the processor's own kernels")
                            : std::string(choice.variable) + "=" + choice.value);
  }
  return unsafe;
}

}  // namespace marlo::test

#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "qrt_core/utility/export.h"

namespace marlo::toolkit {

/// How long samples are taken.
struct SamplingOptions {
  /// So many milliseconds for each subject once it is steady. Without it, until the medians are
  /// known to within `precision`, within the bounds below.
  std::optional<double> exact_ms;
  double precision = 0.005;      ///< half the interval of a median, as a share of it
  double least_ms = 500.0;       ///< of samples, for each subject
  double most_ms = 10000.0;      ///< of samples, for each subject
  double most_warm_ms = 3000.0;  ///< before that, for each subject
  size_t least_rounds = 10;      ///< however long they take
  size_t most_rounds = 20000;    ///< however short they are; also of a warm-up
  size_t warm_window = 5;        ///< as `steady_from` takes it
  double warm_tolerance = 0.02;  ///< the same
};

/// The samples before a subject was steady.
struct WarmUp {
  std::vector<double> samples;  ///< in their order; they are of no use but this
  bool is_steady = false;       ///< whether it settled in the time that it was given
};

/// Takes samples until their medians stop falling.
/// @param sample runs once and says how long it took, in milliseconds; what it throws goes on
QRT_API WarmUp warm_up(const std::function<double()>& sample, const SamplingOptions& options = {});

/// Takes samples of several subjects, all of which have one in each round, so that what disturbs
/// the machine meets all alike. Every second round goes through them in the other order.
/// @param subjects how many there are
/// @param sample runs one and says how long it took, in milliseconds; what it throws goes on
/// @return by subject, one sample for each round
QRT_API std::vector<std::vector<double>> take_samples(
    size_t subjects, const std::function<double(size_t subject)>& sample,
    const SamplingOptions& options = {});

}  // namespace marlo::toolkit

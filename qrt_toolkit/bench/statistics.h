#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "qrt_core/utility/export.h"

// What samples say. Nothing here looks at a clock: equal samples give equal results.

namespace marlo::toolkit {

/// The middle of the samples, or the mean of the two in the middle; 0 without samples.
QRT_API double median(std::vector<double> samples);

/// The value below which a share of the samples lies, between two of them in proportion (Hyndman
/// and Fan's seventh definition, the one of most programs); 0 without samples.
/// @param share 0 for the least of them, 0.5 for the median, 1 for the largest
QRT_API double quantile(std::vector<double> samples, double share);

/// What is to know about samples of one kind, in their unit.
struct Summary {
  size_t count = 0;      ///< of samples
  double minimum = 0.0;  ///< the least of them
  double median = 0.0;   ///< as many are below as above
  double mean = 0.0;     ///< their sum over their count
  double p90 = 0.0;      ///< nine of ten are below
  double p99 = 0.0;      ///< 99 of 100 are below
  double maximum = 0.0;  ///< the largest of them
  /// The width of the middle half (from the first quartile to the third) as a share of the median:
  /// 0.01 says that half of the samples lie within about one percent.
  double spread = 0.0;
};

/// All of a summary is 0 without samples.
QRT_API Summary summarise(const std::vector<double>& samples);

/// An estimate with the bounds between which the true value lies, at the confidence asked for.
struct Interval {
  double estimate = 0.0;  ///< the most likely value
  double low = 0.0;       ///< the lower bound
  double high = 0.0;      ///< the upper bound
};

/// The confidence of intervals where none is given.
constexpr double kConfidence = 0.95;

/// The median with its interval from the order of the samples alone, whatever their distribution
/// (Conover, Practical Nonparametric Statistics, 3rd edition, section 3.2, in its normal
/// approximation). Up to 5 samples give all that lies between the smallest and the largest.
QRT_API Interval median_interval(const std::vector<double>& samples,
                                 double confidence = kConfidence);

/// The ratio of the medians, `second` over `first`, with its percentile interval from a moving
/// block bootstrap of the rounds (Efron and Tibshirani, An Introduction to the Bootstrap, chapters
/// 8 and 13; Kuensch, Annals of Statistics 17, 1989). A round's samples stay together, so that what
/// disturbed both of them cancels out, and neighbours stay neighbours, so that slow drifts widen the
/// interval as they should. The same samples give the same interval.
/// @param first at least one sample, each above 0, in the order in which they were taken
/// @param second as many, each from the same round as that of `first`
/// @throws std::invalid_argument for other samples
QRT_API Interval ratio_interval(const std::vector<double>& first, const std::vector<double>& second,
                                double confidence = kConfidence);

/// From which sample on a series is steady: the first window whose median differs by at most
/// `tolerance` of it from the median of the window behind it. Nothing where it never is.
/// @param samples in the order in which they were taken
/// @param window samples in a window, at least 1
/// @param tolerance a share, such as 0.02
QRT_API std::optional<size_t> steady_from(const std::vector<double>& samples, size_t window,
                                          double tolerance);

}  // namespace marlo::toolkit

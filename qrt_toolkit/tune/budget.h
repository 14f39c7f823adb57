#pragma once

#include <chrono>
#include <functional>
#include <utility>

namespace marlo::toolkit {

/// The time that measurements have, and who may end them. What has ended stays so.
class Budget {
 public:
  /// @param seconds from now on
  /// @param go_on asked each time; false ends it. May be empty
  Budget(double seconds, std::function<bool()> go_on)
      : seconds_(seconds), go_on_(std::move(go_on)) {}

  /// Seconds since the beginning.
  double spent() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

  /// Whether there is time for another measurement.
  bool lasts() {
    is_over_ = is_over_ || spent() > seconds_ || !goes_on();
    return !is_over_;
  }

  /// The same for what takes hardly any time: whether nobody has ended it.
  bool goes_on() {
    asked_ = Clock::now();
    if (!is_ended_ && go_on_) is_ended_ = !go_on_();
    is_over_ = is_over_ || is_ended_;
    return !is_ended_;
  }

  /// The same for what asks all the time: an answer that may be some milliseconds old.
  bool still_goes_on() {
    constexpr std::chrono::milliseconds kSeldom(20);
    return Clock::now() - asked_ < kSeldom ? !is_ended_ : goes_on();
  }

  /// Whether it has ended before everything was done, as far as anybody asked.
  bool is_over() const { return is_over_; }

 private:
  using Clock = std::chrono::steady_clock;

  double seconds_;
  std::function<bool()> go_on_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point asked_;
  bool is_ended_ = false;
  bool is_over_ = false;
};

}  // namespace marlo::toolkit

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "qrt_core/kernel/image/byte_vectors_internal.h"
#include "qrt_core/kernel/image/resize_cores.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel::image {
namespace {

constexpr float kWeightOne = 2048.0f;

// Rounds half away from zero, and keeps to 16 bits.
int16_t fixed_weight(float weight) {
  const float scaled = kWeightOne * weight;
  const auto rounded = static_cast<int>(scaled + (scaled < 0.0f ? -0.5f : 0.5f));
  return static_cast<int16_t>(std::clamp<int>(rounded, std::numeric_limits<int16_t>::min(),
                                              std::numeric_limits<int16_t>::max()));
}

// The byte at the left and the one at the right of an output element, side by side, and their
// weights likewise: what one instruction multiplies and adds.
void weigh_pairs(const uint8_t* __restrict pairs, const int16_t* __restrict weights, size_t count,
                 int16_t* __restrict scaled) noexcept {
#if QRT_WITH_SSE
  const size_t done = weigh_pairs_sse(pairs, weights, count, scaled);
#else
  const size_t done = 0;
#endif
  for (size_t i = done; i < count; ++i) {
    const int sum = pairs[2 * i] * weights[2 * i] + pairs[2 * i + 1] * weights[2 * i + 1];
    scaled[i] = static_cast<int16_t>(sum >> 4);
  }
}

// The horizontal pass over a picture's columns: gathers pairs, and weighs them. Pixels of three and
// four bytes go by a core where there is one.
class RowScaler {
 public:
  RowScaler(const BytePicture& from, const BytePicture& to)
      : axis_(static_cast<uint32_t>(from.width), static_cast<uint32_t>(to.width)),
        channels_(from.channels),
        width_(to.width),
        step_(axis_.step * from.channels),
        offsets_(to.width),
        pairs_(2 * to.width * from.channels + kSpare),
        weights_(2 * to.width * from.channels + kSpare) {
    for (size_t i = 0; i < width_ * channels_; ++i) {
      weights_[2 * i] = axis_.weights0[i / channels_];
      weights_[2 * i + 1] = axis_.weights1[i / channels_];
    }
    for (size_t x = 0; x < width_; ++x) offsets_[x] = axis_.first[x] * channels_;
    // Four bytes are read for a pixel of fewer, up to the last column that four bytes fit behind.
    const size_t row_bytes = from.width * channels_;
    wide_ = width_;
    while (wide_ > 0 && offsets_[wide_ - 1] + step_ + kWord > row_bytes) {
      --wide_;
    }
  }

  /// @param scaled with room for `kSpare` numbers behind the row
  void scale(const uint8_t* row, int16_t* scaled) noexcept {
    size_t done = 0;
#if QRT_WITH_SSE
    done =
        scale_columns_sse(row, channels_, {offsets_.data(), weights_.data(), step_, wide_}, scaled);
#endif
    switch (channels_) {
      case 1:
        gather<1>(row, done);
        break;
      case 2:
        gather<2>(row, done);
        break;
      case 3:
        gather<3>(row, done);
        break;
      default:
        gather<4>(row, done);
    }
    const size_t begin = done * channels_;
    weigh_pairs(pairs_.data() + 2 * begin, weights_.data() + 2 * begin, width_ * channels_ - begin,
                scaled + begin);
  }

  static constexpr size_t kSpare = 8;

 private:
  static constexpr size_t kWord = 4;

  static Bytes four_bytes(const uint8_t* from) noexcept {
    uint32_t word;
    std::memcpy(&word, from, kWord);
    return std::bit_cast<Bytes>(Doublewords{word});
  }

  template <size_t channels>
  void gather(const uint8_t* __restrict row, size_t i) noexcept {
    uint8_t* __restrict pairs = pairs_.data();
    const size_t* const offsets = offsets_.data();
    const size_t step = step_;
    if constexpr (channels > 1) {
      for (; i < wide_; ++i) {
        const uint8_t* const pixel = row + offsets[i];
        // What four bytes are too much is overwritten by the column that follows.
        const Bytes merged = merge_low(four_bytes(pixel), four_bytes(pixel + step));
        const uint64_t low = std::bit_cast<Quadwords>(merged)[0];
        std::memcpy(pairs + 2 * channels * i, &low, sizeof low);
      }
    }
    for (; i < width_; ++i) {
      const uint8_t* const pixel = row + offsets[i];
      for (size_t c = 0; c < channels; ++c) {
        pairs[2 * (channels * i + c)] = pixel[c];
        pairs[2 * (channels * i + c) + 1] = pixel[c + step];
      }
    }
  }

  BilinearAxis axis_;
  size_t channels_;
  size_t width_;
  size_t step_;                  // from the left pixel to the right one, in bytes
  std::vector<size_t> offsets_;  // of each column's left pixel, in bytes
  size_t wide_;                  // columns that are gathered by whole words
  std::vector<uint8_t> pairs_;
  std::vector<int16_t> weights_;
};

void mix_rows(const int16_t* __restrict upper, const int16_t* __restrict lower,
              int16_t upper_weight, int16_t lower_weight, size_t count,
              uint8_t* __restrict output) noexcept {
  for (size_t i = 0; i < count; ++i) {
    const int sum = ((upper[i] * upper_weight) >> 16) + ((lower[i] * lower_weight) >> 16);
    output[i] = static_cast<uint8_t>((sum + 2) >> 2);
  }
}

template <size_t pixel_bytes>
void copy_row(const uint8_t* __restrict input, const uint32_t* __restrict columns, size_t count,
              uint8_t* __restrict output) noexcept {
  for (size_t x = 0; x < count; ++x) {
    std::memcpy(output + x * pixel_bytes, input + columns[x] * size_t{pixel_bytes}, pixel_bytes);
  }
}

void copy_row(const uint8_t* input, const uint32_t* columns, size_t count, size_t pixel_bytes,
              uint8_t* output) noexcept {
  switch (pixel_bytes) {
    case 1:
      return copy_row<1>(input, columns, count, output);
    case 2:
      return copy_row<2>(input, columns, count, output);
    case 3:
      return copy_row<3>(input, columns, count, output);
    default:
      return copy_row<4>(input, columns, count, output);
  }
}

}  // namespace

BilinearAxis::BilinearAxis(uint32_t in, uint32_t out)
    : first(out), weights0(out), weights1(out), step(in > 1 ? 1 : 0) {
  const double scale = static_cast<double>(in) / out;
  for (uint32_t i = 0; i < out; ++i) {
    const auto place = static_cast<float>((i + 0.5) * scale - 0.5);
    auto whole = static_cast<int64_t>(std::floor(place));
    float fraction = place - static_cast<float>(whole);
    if (whole < 0) {
      whole = 0;
      fraction = 0.0f;
    }
    if (whole >= int64_t{in} - 1) {
      whole = in > 1 ? int64_t{in} - 2 : 0;
      fraction = 1.0f;
    }
    first[i] = static_cast<uint32_t>(whole);
    weights0[i] = fixed_weight(1.0f - fraction);
    weights1[i] = fixed_weight(fraction);
  }
}

void resize_bilinear(const uint8_t* input, const BytePicture& from, uint8_t* output,
                     const BytePicture& to) {
  const BilinearAxis rows(static_cast<uint32_t>(from.height), static_cast<uint32_t>(to.height));
  RowScaler scaler(from, to);
  const size_t in_row = from.width * from.channels;
  const size_t out_row = to.width * to.channels;
  std::vector<int16_t> upper(out_row + RowScaler::kSpare);
  std::vector<int16_t> lower(out_row + RowScaler::kSpare);
  int64_t last = -2;  // the input row in `upper`; the one below it is in `lower`
  for (size_t y = 0; y < to.height; ++y) {
    const int64_t row = rows.first[y];
    if (row != last) {
      if (row == last + 1) {
        upper.swap(lower);
      } else {
        scaler.scale(input + static_cast<size_t>(row) * in_row, upper.data());
      }
      scaler.scale(input + (static_cast<size_t>(row) + rows.step) * in_row, lower.data());
      last = row;
    }
    mix_rows(upper.data(), lower.data(), rows.weights0[y], rows.weights1[y], out_row,
             output + y * out_row);
  }
}

std::vector<uint32_t> nearest_places(uint32_t in, uint32_t out) {
  std::vector<uint32_t> places(out);
  const float scale = static_cast<float>(in) / static_cast<float>(out);
  for (uint32_t i = 0; i < out; ++i) {
    const auto place = static_cast<float>((i + 0.5) * static_cast<double>(scale) - 0.5);
    auto whole = static_cast<int64_t>(place);
    const float fraction = place - static_cast<float>(whole);
    if (whole < 0) {
      whole = 0;
    } else if (whole >= int64_t{in} - 1) {
      whole = int64_t{in} - 1;
    } else if (fraction >= 0.5f) {
      ++whole;
    }
    places[i] = static_cast<uint32_t>(whole);
  }
  return places;
}

std::vector<uint32_t> accumulated_places(uint32_t in, uint32_t out) {
  std::vector<uint32_t> places(out);
  const float scale = static_cast<float>(in) / static_cast<float>(out);
  float place = 0.0f;
  for (uint32_t& here : places) {
    // The rounding of a very long sum may lead past the end.
    here = static_cast<uint32_t>(std::min(static_cast<int64_t>(place), int64_t{in} - 1));
    place += scale;
  }
  return places;
}

void copy_places(const uint8_t* input, size_t input_stride, const uint32_t* rows, size_t row_count,
                 const uint32_t* columns, size_t column_count, size_t pixel_bytes, uint8_t* output,
                 size_t output_stride) noexcept {
  const size_t row_bytes = column_count * pixel_bytes;
  for (size_t y = 0; y < row_count; ++y) {
    uint8_t* const to = output + y * output_stride;
    if (y > 0 && rows[y] == rows[y - 1]) {
      std::memcpy(to, to - output_stride, row_bytes);
    } else {
      copy_row(input + rows[y] * input_stride, columns, column_count, pixel_bytes, to);
    }
  }
}

}  // namespace marlo::kernel::image

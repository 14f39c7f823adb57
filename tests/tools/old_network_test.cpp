#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_core/utility/build_options.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/legacy_writer.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/plane_math.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_context.h"
#include "tools/qrt/files.h"
#include "tools/qrt/old_network.h"

// One network of the earlier generation with every kind of record: loaded, made ready, run, and
// compared with the same network made directly, and with its layers in double precision. Weights of
// the layers over planes are small integers, so that their sums are exact in any order.

namespace marlo::test {
namespace {

using runtime::LayerInfo;
using runtime::QRModelInfo;

constexpr uint32_t kHeight = 8;
constexpr uint32_t kWidth = 6;
constexpr uint16_t kSteps = 5;

/// The numbers of the network, in today's order.
struct Numbers {
  explicit Numbers(uint16_t conv_groups) : groups(conv_groups) {
    Random random(91);
    const auto integers = [&random](size_t count) {
      std::vector<float> numbers(count);
      for (float& number : numbers) number = static_cast<float>(random.integer(-3, 3));
      return numbers;
    };
    picture = integers(4 * kHeight * kWidth);
    conv = integers(size_t{6} * 4 / groups * 9);
    conv_bias = integers(6);
    depthwise = integers(6 * 9);
    depthwise_bias = integers(6);
    transposed = integers(2 * 12 * 9);
    transposed_bias = integers(2);
    full = integers(5 * 72);
    full_bias = integers(5);
    for (size_t i = 0; i < 12; ++i) {
      scale.push_back(0.5f * static_cast<float>(random.integer(1, 5)));
      shift.push_back(static_cast<float>(random.integer(-4, 4)));
      variance.push_back(0.25f * static_cast<float>(random.integer(1, 9)));
      mean.push_back(static_cast<float>(random.integer(-4, 4)));
    }
    words.network = Network::lstm;
    words.ins = 3;
    words.hidden = 4;
    words.steps = kSteps;
    words.layers = 2;
    words.bidirectional = true;
    words.fill(92);
    for (CellData& cell : words.cells) {
      for (auto* list : {&cell.weight_ih, &cell.weight_hh, &cell.bias_ih, &cell.bias_hh}) {
        for (float& number : *list) number = half_float::half(number);
      }
    }
  }

  uint16_t groups;
  std::vector<float> picture;
  std::vector<float> conv, conv_bias;              // [6, 4 / groups, 3, 3]
  std::vector<float> depthwise, depthwise_bias;    // [6, 1, 3, 3]
  std::vector<float> transposed, transposed_bias;  // [2, 12, 3, 3]: out, in
  std::vector<float> full, full_bias;              // [5, 72]
  std::vector<float> scale, shift, variance, mean;
  RecurrentCase words;
};

// [rows][columns][length] as [rows][length][columns]: channels go inwards, as old files hold them.
std::vector<float> channels_inside(const std::vector<float>& numbers, size_t rows, size_t columns,
                                   size_t length) {
  std::vector<float> moved;
  for (size_t row = 0; row < rows; ++row) {
    for (size_t i = 0; i < length; ++i) {
      for (size_t column = 0; column < columns; ++column) {
        moved.push_back(numbers[(row * columns + column) * length + i]);
      }
    }
  }
  return moved;
}

std::vector<float> joined(std::initializer_list<std::vector<float>> lists) {
  std::vector<float> all;
  for (const auto& list : lists) all.insert(all.end(), list.begin(), list.end());
  return all;
}

LegacyConvolution old_convolution(uint16_t code, uint16_t id, uint16_t input, uint16_t ins,
                                  uint16_t outs) {
  LegacyConvolution layer;
  layer.code = code;
  layer.id = id;
  layer.input = input;
  layer.in = {1, ins};
  layer.out = {1, outs};
  layer.kernel_x = layer.kernel_y = 3;
  layer.padding_x = layer.padding_y = 1;
  return layer;
}

LegacyLSTM old_lstm(uint16_t id, uint16_t input, const RecurrentCase& words) {
  LegacyLSTM layer;
  layer.id = id;
  layer.input = input;
  layer.in_size = static_cast<uint16_t>(words.ins);
  layer.hidden_size = static_cast<uint16_t>(words.hidden);
  layer.num_layers = static_cast<uint16_t>(words.layers);
  layer.bidirectional = 1;
  for (size_t direction = 0; direction < 2; ++direction) {
    for (size_t stacked = 0; stacked < words.layers; ++stacked) {
      const CellData& cell = words.cells[2 * stacked + direction];
      for (const auto& list : {cell.weight_ih, cell.weight_hh, cell.bias_ih, cell.bias_hh}) {
        layer.arrays.push_back(list);
      }
    }
  }
  return layer;
}

/// The file: a picture through layers 1 to 16, and words through 18 to 20.
LegacyWriter old_file(uint32_t version, const Numbers& numbers) {
  LegacyConvolution conv = old_convolution(1, 1, 0, 4, 6);
  conv.groups = numbers.groups;
  conv.activation = 2;
  conv.weights = channels_inside(numbers.conv, 6, 4u / numbers.groups, 9);
  conv.biases = numbers.conv_bias;
  LegacyConvolution depthwise = old_convolution(3, 2, 1, 6, 6);
  depthwise.activation = 2;
  depthwise.weights = numbers.depthwise;
  depthwise.biases = numbers.depthwise_bias;
  LegacyConvolution transposed = old_convolution(2, 8, 6, 12, 2);
  transposed.stride_x = transposed.stride_y = 2;
  transposed.weights = channels_inside(numbers.transposed, 2, 12, 9);
  transposed.biases = numbers.transposed_bias;
  LegacyPooling largest;
  largest.id = 4;
  largest.input = 3;
  largest.in = {1, 6};
  largest.out = {0.5f, 6};
  LegacyPooling mean = largest;
  mean.id = 5;
  mean.kind = 0;
  return LegacyWriter(version, kHeight, kWidth)
      .input(0, 1, {1, 4})
      .convolution(conv)
      .convolution(depthwise)
      .element_wise(3, {1, 2}, 1, 2)
      .pooling(largest)
      .pooling(mean)
      .concatenate(6, {4, 5}, 0)
      .batch_normalization(7, 6, 12,
                           joined({numbers.scale, numbers.shift, numbers.variance, numbers.mean}))
      .convolution(transposed)
      .activation(9, 8, 6, 0.5f, 0)
      .pixel_shuffle(10, 6, 2)
      .upsampling(11, 10, 2, 2, 0, 0)
      .concatenate(12, {11, 11}, 1)
      .tensor_reshape(13, 5, {1, 0xFFFF})
      .full_connection(14, 13, 72, 5, 1, numbers.full, numbers.full_bias)
      .tensor_squeeze(15, 14, 0)
      .tensor_activation(16, 15, 2, 1, 0)
      .tensor_input(17, 1)
      .lstm(old_lstm(18, 17, numbers.words))
      .tensor_transpose(19, 18, {1, 0})
      .tensor_activation(20, 18, 3, 1, 0);
}

/// Layers whose results the network returns: those that nobody reads.
const std::vector<std::string>& output_ids() {
  static const std::vector<std::string> ids = {"layer-7",  "layer-9",  "layer-12",
                                               "layer-16", "layer-19", "layer-20"};
  return ids;
}

template <typename Info>
std::shared_ptr<Info> described(const std::function<void(Info&)>& fill) {
  auto info = std::make_shared<Info>();
  fill(*info);
  return info;
}

template <typename Info>
void set_window(Info& info, uint16_t ins, uint16_t outs) {
  info.in_channels = ins;
  info.out_channels = outs;
  info.kernel_x = info.kernel_y = 3;
  info.stride_x = info.stride_y = info.dilation_x = info.dilation_y = info.groups = 1;
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  info.if_bias = true;
}

template <typename Info>
std::shared_ptr<Info> pooling_description() {
  return described<Info>([](Info& info) {
    info.kernel_x = info.kernel_y = info.stride_x = info.stride_y = 2;
    info.padding_l = info.padding_r = info.padding_t = info.padding_b = 0;
    info.ceil_mode = true;
    if constexpr (std::is_same_v<Info, runtime::MaxPool2dInfo>) {
      info.dilation_x = info.dilation_y = 1;
    } else {
      info.count_include_pad = true;
    }
  });
}

// The batch normalisation as a convolution of 1x1 with one channel a group.
runtime::Conv2dInfo normalization(const Numbers& numbers) {
  std::vector<float> weights;
  std::vector<float> biases;
  for (size_t i = 0; i < 12; ++i) {
    const double factor = numbers.scale[i] / std::sqrt(double{numbers.variance[i]} + 1e-5f);
    weights.push_back(static_cast<float>(factor));
    biases.push_back(static_cast<float>(numbers.shift[i] - numbers.mean[i] * factor));
  }
  runtime::Conv2dInfo info = plane_convolution(12, 12, 1, weights, biases);
  info.groups = 12;
  return info;
}

// [12 in, 2 out, 3, 3], and for an input of 4 x 3 a result of 7 x 5: of the 9 x 7 that the filters
// cover, one row or column is cut off on each side.
std::shared_ptr<runtime::ConvTranspose2dInfo> transposed_description(const Numbers& numbers) {
  return described<runtime::ConvTranspose2dInfo>([&](runtime::ConvTranspose2dInfo& info) {
    set_window(info, 12, 2);
    info.stride_x = info.stride_y = 2;
    info.padding_r = info.padding_b = 0;  // and one less for what the stride leaves behind
    std::vector<float> weights(numbers.transposed.size());
    for (size_t out = 0; out < 2; ++out) {
      for (size_t in = 0; in < 12; ++in) {
        for (size_t tap = 0; tap < 9; ++tap) {
          weights[(in * 2 + out) * 9 + tap] = numbers.transposed[(out * 12 + in) * 9 + tap];
        }
      }
    }
    info.weight = weight_text(weights);
    info.bias = weight_text(numbers.transposed_bias);
  });
}

/// The same network written for today's portable kernels.
ModelBuilder direct_network(const Numbers& numbers) {
  using namespace runtime;
  runtime::Conv2dInfo conv;
  set_window(conv, 4, 6);
  conv.groups = numbers.groups;
  conv.weight = weight_text(numbers.conv);
  conv.bias = weight_text(numbers.conv_bias);
  runtime::Conv2dInfo depthwise;
  set_window(depthwise, 6, 6);
  depthwise.groups = 6;
  depthwise.weight = weight_text(numbers.depthwise);
  depthwise.bias = weight_text(numbers.depthwise_bias);
  const std::string relu = "ReLU_Fallback_Float_M1";
  ModelBuilder model;
  model.input("0").conv2d("1!", "0", conv).activation("1", "1!", relu);
  model.conv2d("2!", "1", depthwise).activation("2", "2!", relu);
  model.layer("3!", {"1", "2"},
              described<ElementWiseOperatorInfo>([](auto& info) { info.op_type = 1; }),
              "Elementwise_Fallback_Float_M1");
  model.activation("3", "3!", relu);
  model.layer("4", {"3"}, pooling_description<MaxPool2dInfo>(), "Pooling2D_Max_Fallback_Float_M1");
  model.layer("5", {"3"}, pooling_description<AvgPool2dInfo>(), "Pooling2D_Avg_Fallback_Float_M1");
  model.layer("6", {"4", "5"}, described<ConcatenateInfo>([](auto& info) { info.dim = 1; }),
              "Concatenate_C_Fallback_CnHWn_M1");
  model.conv2d("layer-7", "6", normalization(numbers));
  model.layer("8", {"6"}, transposed_description(numbers),
              "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  model.activation("layer-9", "8", "Leaky_Fallback_Float_M1", 0.5f);
  model.layer("10", {"6"}, described<PixelShuffleInfo>([](auto& info) { info.upscale_factor = 2; }),
              "Pixelshuffle_Fallback_CHW_Float_M1");
  model.layer("11", {"10"}, described<Upsample2dInfo>([](auto& info) {
                info.scale_factor_x = info.scale_factor_y = 2;
                info.align_corner = false;
                info.unsample_type = 0;
              }),
              "Upsampling2D_Fallback_CHW_Float_M1");
  // This kernel counts no batch: rows are axis 1.
  model.layer("layer-12", {"11", "11"},
              described<ConcatenateInfo>([](auto& info) { info.dim = 1; }),
              "Concatenate_MainMemory_Fallback");
  model.layer("13", {"5"}, described<TensorReshapeInfo>([](auto& info) {
                info.new_shape = {1, 72};
              }),
              "Reshape_Fallback_CnHWn_To_C_M1");
  model.layer("14", {"13"}, described<FullConnectionInfo>([&](auto& info) {
                info.in_features = 72;
                info.out_features = 5;
                info.if_bias = true;
                info.weight = weight_text(numbers.full);
                info.bias = weight_text(numbers.full_bias);
              }),
              "FullConnection_Fallback_C_Float_M1");
  model.activation("layer-16", "14", relu).input("17");
  model.layer("18", {"17"}, sequence_description(numbers.words), "LSTM_Fallback_SC_F32_M1");
  model.layer("layer-19", {"18"}, described<TensorTransposeInfo>([](auto& info) {
                info.axes = {1, 0};
              }),
              "Transform_MainMemory_Permute_Fallback");
  model.activation("layer-20", "18", "TanH_Fallback_Float_M1");
  model.outputs(output_ids());
  return model;
}

/// The results by their definitions.
struct Expected {
  std::vector<Approximate> normalized;
  Planes grown;
  Planes stacked;
  Planes scores;
  std::vector<Approximate> words;  ///< [steps, 2 * hidden]
};

Planes transposed_planes(const Planes& input, const Numbers& numbers) {
  Planes full(2, 2 * input.height + 1, 2 * input.width + 1);
  for (uint32_t o = 0; o < 2; ++o) {
    for (uint32_t i = 0; i < input.channels; ++i) {
      for (uint32_t y = 0; y < input.height; ++y) {
        for (uint32_t x = 0; x < input.width; ++x) {
          for (uint32_t tap = 0; tap < 9; ++tap) {
            full.at(o, 2 * y + tap / 3, 2 * x + tap % 3) +=
                input.at(i, y, x) * numbers.transposed[(size_t{o} * 12 + i) * 9 + tap];
          }
        }
      }
    }
  }
  Planes result(2, full.height - 2, full.width - 2);
  for (uint32_t o = 0; o < 2; ++o) {
    for (uint32_t y = 0; y < result.height; ++y) {
      for (uint32_t x = 0; x < result.width; ++x) {
        result.at(o, y, x) = full.at(o, y + 1, x + 1) + numbers.transposed_bias[o];
      }
    }
  }
  return result;
}

// Each pixel four times, and below that the same again.
Planes doubled_and_stacked(const Planes& input) {
  Planes result(input.channels, 4 * input.height, 2 * input.width);
  for (uint32_t c = 0; c < result.channels; ++c) {
    for (uint32_t y = 0; y < result.height; ++y) {
      for (uint32_t x = 0; x < result.width; ++x) {
        result.at(c, y, x) = input.at(c, y % (2 * input.height) / 2, x / 2);
      }
    }
  }
  return result;
}

Expected expected_results(const Numbers& numbers) {
  const auto relu = [](double x) { return std::max(x, 0.0); };
  Planes picture(4, kHeight, kWidth);
  picture.values.assign(numbers.picture.begin(), numbers.picture.end());
  const Planes first = mapped(
      convolved(picture, {6, 3, 1, 1, numbers.groups, numbers.conv, numbers.conv_bias}), relu);
  const Planes second =
      mapped(convolved(first, {6, 3, 1, 1, 6, numbers.depthwise, numbers.depthwise_bias}), relu);
  const Planes third = mapped(sum_of(first, mapped(second, [](double x) { return -x; })), relu);
  const Planes fifth = mean_in(third, 2);
  const Planes sixth = behind_each_other(largest_in(third, 2), fifth);
  Expected expected;
  for (uint32_t i = 0; i < sixth.values.size(); ++i) {
    const uint32_t c = i / (sixth.height * sixth.width);
    const double factor = numbers.scale[c] / std::sqrt(double{numbers.variance[c]} + 1e-5f);
    const double product = sixth.values[i] * factor;
    const double offset = numbers.shift[c] - numbers.mean[c] * factor;
    // Factor, offset, product and sum are rounded.
    const double error = 2 * kEpsilon * (std::fabs(product) + std::fabs(offset));
    expected.normalized.push_back({product + offset, error});
  }
  expected.grown =
      mapped(transposed_planes(sixth, numbers), [](double x) { return x < 0 ? x * 0.5 : x; });
  expected.stacked = doubled_and_stacked(shuffled_to_pixels(sixth));
  expected.scores = mapped(connected(fifth, 5, numbers.full, numbers.full_bias), relu);
  expected.words = RecurrentOracle(numbers.words).run(numbers.words.input);
  return expected;
}

using Results = std::map<std::string, std::shared_ptr<runtime::Tensor>>;

Results results_of(const QRModelInfo& info, const runtime::Net& net, TestContext& context,
                   const Numbers& numbers) {
  std::vector<unsigned int> outputs;
  std::vector<unsigned int> inputs;
  for (unsigned int i = 0; i < info.squential_ids.size(); ++i) {
    const std::string& id = info.squential_ids[i];
    if (info.squential_types[i] == 0) inputs.push_back(i);
    const auto& all = info.squential_output_ids;
    if (std::find(all.begin(), all.end(), id) != all.end()) outputs.push_back(i);
  }
  const auto picture =
      context.floats({4, kHeight, kWidth}, runtime::LayoutType::CHW, numbers.picture);
  const auto words =
      context.floats({kSteps, numbers.words.ins}, runtime::LayoutType::SC, numbers.words.input);
  const auto found = net.Forward({{inputs.at(0), picture}, {inputs.at(1), words}}, outputs, context,
                                 nullptr, nullptr);
  Results results;
  for (const unsigned int output : outputs) {
    results[info.squential_ids[output]] = found.at(output).at(0);
  }
  context.pool().check();
  return results;
}

std::string rules_file(const TemporaryFolder& folder) {
  std::string path = folder.file("rules.txt");
  qrt_tool::write_file(path, "TensorSqueeze = Straight_Through_Fallback_M1\n");
  return path;
}

struct Way {
  uint32_t version;
  qrt_tool::OldKernelSet set;
};

std::string text_of(const Way& way) {
  return std::to_string(way.version) +
         (way.set == qrt_tool::OldKernelSet::sse ? "_sse" : "_portable");
}

void PrintTo(const Way& way, std::ostream* out) { *out << text_of(way); }

class OldNetwork : public ::testing::TestWithParam<Way> {
 protected:
  OldNetwork() : numbers_(GetParam().version == 10000 ? 1 : 2) {
    library_.context = context_;
    info_ = qrt_tool::read_old_network(
        old_file(GetParam().version, numbers_).save(folder_.file("old.qrm")));
    config_ = qrt_tool::configure_old_network(
        *info_, "old.qrm", qrt_tool::KernelRules(rules_file(folder_)), GetParam().set, library_);
    net_ = runtime::CreateNet(info_, config_, library_.kernels, library_.context);
  }

  Results run() { return results_of(*info_, *net_, context_, numbers_); }

  TestContext context_{32};
  TemporaryFolder folder_;
  qrt_tool::Library library_;
  Numbers numbers_;
  std::shared_ptr<QRModelInfo> info_;
  std::shared_ptr<runtime::QRModelCfg> config_;
  std::shared_ptr<runtime::Net> net_;
};

std::vector<Way> ways() {
  std::vector<Way> all = {{10001, qrt_tool::OldKernelSet::portable},
                          {10000, qrt_tool::OldKernelSet::portable}};
#if QRT_WITH_SSE
  all.push_back({10001, qrt_tool::OldKernelSet::sse});
#endif
  return all;
}

INSTANTIATE_TEST_SUITE_P(All, OldNetwork, ::testing::ValuesIn(ways()),
                         [](const auto& test) { return text_of(test.param); });

std::vector<float> floats_of(const std::vector<double>& values) {
  std::vector<float> floats;
  for (const double value : values) floats.push_back(static_cast<float>(value));
  return floats;
}

TEST_P(OldNetwork, ComputesItsLayers) {
  EXPECT_EQ(info_->squential_output_ids, output_ids());
  const Results found = run();
  for (const auto& [id, tensor] : found) {
    const std::vector<float> values = values_of(*tensor);
    const auto zeros = std::count(values.begin(), values.end(), 0.0f);
    EXPECT_LT(zeros, static_cast<std::ptrdiff_t>(values.size())) << id << " says nothing";
  }
  const Expected expected = expected_results(numbers_);
  EXPECT_TRUE(same_bits(values_of(*found.at("layer-9")), floats_of(expected.grown.values)));
  EXPECT_TRUE(same_bits(values_of(*found.at("layer-12")), floats_of(expected.stacked.values)));
  EXPECT_EQ(found.at("layer-12")->shape.dims, (std::vector<uint32_t>{3, 32, 12}));
  EXPECT_TRUE(same_bits(values_of(*found.at("layer-16")), floats_of(expected.scores.values)));

  EXPECT_EQ(first_beyond(values_of(*found.at("layer-7")), expected.normalized), "");

  const std::vector<float> words = values_of(*found.at("layer-20"));
  std::vector<Approximate> bounded;
  for (const Approximate& number : expected.words) {
    bounded.push_back({std::tanh(number.value), number.error + 4 * kEpsilon});
  }
  EXPECT_EQ(first_beyond(words, bounded), "");
  // The same words, transposed: [2 * hidden, steps].
  const std::vector<float> columns = values_of(*found.at("layer-19"));
  ASSERT_EQ(found.at("layer-19")->shape.dims, (std::vector<uint32_t>{8, kSteps}));
  std::vector<float> rows;
  for (size_t step = 0; step < kSteps; ++step) {
    for (size_t i = 0; i < 8; ++i) rows.push_back(columns[i * kSteps + step]);
  }
  EXPECT_EQ(first_beyond(rows, expected.words), "");
}

TEST_P(OldNetwork, IsTheSameAsOneMadeDirectly) {
  const Results found = run();
  ModelBuilder direct = direct_network(numbers_);
  const auto net =
      runtime::CreateNet(direct.info(), direct.configuration(), library_.kernels, library_.context);
  const Results expected = results_of(*direct.info(), *net, context_, numbers_);
  ASSERT_EQ(found.size(), expected.size());
  for (const auto& [id, tensor] : expected) {
    EXPECT_EQ(found.at(id)->shape, tensor->shape) << id;
    // Sums that round may be in another order there.
    const bool rounds = id == "layer-7" || id == "layer-19" || id == "layer-20";
    if (rounds && GetParam().set == qrt_tool::OldKernelSet::sse) continue;
    EXPECT_TRUE(same_bits(values_of(*found.at(id)), values_of(*tensor))) << id;
  }
}

}  // namespace
}  // namespace marlo::test

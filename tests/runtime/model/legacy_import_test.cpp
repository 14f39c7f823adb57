#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/kernels.h"
#include "tests/support/legacy_writer.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

// Files of the earlier generation: what each record becomes, and what is refused.

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kLoadingFailed[] = "[QRT]: Loading qrmdel1 fail.\n";
constexpr char kNotImplemented[] = "[QRT]: Not Implemented.\n";

class LegacyImport : public ::testing::Test {
 protected:
  QRModelInfo load(const LegacyWriter& file) {
    QRModelInfo network;
    network.LoadFromQRModel1(file.save(folder_.file("old.qrm")).c_str());
    return network;
  }

  // The text of the exception for a file of these bytes.
  std::string refusal(const std::string& bytes) {
    const std::string path = folder_.file("bad.qrm");
    std::ofstream(path, std::ios::binary) << bytes;
    return failure_of([&path] { QRModelInfo().LoadFromQRModel1(path.c_str()); });
  }
  std::string refusal(const LegacyWriter& file) { return refusal(file.text()); }

  test::TemporaryFolder folder_;
  LogCapture log_;  // keeps the texts of expected failures out of the report
};

template <typename Info>
const Info& layer(const QRModelInfo& network, const std::string& id) {
  return dynamic_cast<const Info&>(*network.layers.at(id));
}

LegacyWriter one_input() { return LegacyWriter().input(0); }

TEST_F(LegacyImport, TranslatesTheHeader) {
  const QRModelInfo network = load(LegacyWriter(10001, 8, 6));
  const NetExtraInfo& info = network.extra_info;
  EXPECT_EQ(info.version, 0u);
  EXPECT_EQ(info.app_type, 7u);
  EXPECT_EQ(info.model_id, 9u);
  EXPECT_EQ(info.model_base_w, 6u) << "the width stands before the height";
  EXPECT_EQ(info.model_base_h, 8u);
  EXPECT_EQ(info.fmlas, 0u);
  EXPECT_EQ(info.device, "cpu");
  EXPECT_EQ(info.time.year, 2019u);
  EXPECT_EQ(info.time.moon, 5u);
  EXPECT_EQ(info.time.day, 28u);
  EXPECT_EQ(info.time.hour + info.time.min + info.time.sec, 0u);
  EXPECT_THAT(network.squential_ids, IsEmpty());
}

TEST_F(LegacyImport, RefusesFilesThatArentOfThisKind) {
  EXPECT_EQ(failure_of([] { QRModelInfo().LoadFromQRModel1("/no/such/file"); }), kLoadingFailed);
  EXPECT_EQ(failure_of([] { QRModelInfo().LoadFromQRModel1(nullptr); }), kLoadingFailed);
  EXPECT_EQ(failure_of([this] { QRModelInfo().LoadFromQRModel1(folder_.file("").c_str()); }),
            kLoadingFailed);
  const std::string whole = LegacyWriter().text();
  EXPECT_EQ(refusal(""), kLoadingFailed);
  EXPECT_EQ(refusal(whole.substr(0, 999)), kLoadingFailed);
  EXPECT_EQ(refusal(whole), "");
  for (const size_t magic : {size_t{0}, size_t{996}}) {
    std::string other = whole;
    other[magic] = '\1';
    EXPECT_EQ(refusal(other), kLoadingFailed);
  }
}

TEST_F(LegacyImport, ReadsNoLayersOfAnEarlierVersion) {
  const QRModelInfo network = load(LegacyWriter(9999).input(0));
  EXPECT_THAT(network.squential_ids, IsEmpty());
  EXPECT_EQ(network.extra_info.app_type, 7u);
}

TEST_F(LegacyImport, KeepsWhatAnObjectHeldWhenItRefuses) {
  QRModelInfo network = load(one_input());
  const std::string path = LegacyWriter().input(5).record(6).save(folder_.file("refused.qrm"));
  EXPECT_EQ(failure_of([&] { network.LoadFromQRModel1(path.c_str()); }), kNotImplemented);
  EXPECT_THAT(network.squential_ids, ElementsAre("layer-0"));
}

TEST_F(LegacyImport, NamesLayersAndCountsTheirReaders) {
  const QRModelInfo network = load(one_input()
                                       .element_wise(12, {0, 0}, 0)
                                       .activation(13, 12, 2, 1, 0)
                                       .activation(14, 12, 2, 1, 0));
  EXPECT_THAT(network.squential_ids, ElementsAre("layer-0", "layer-12", "layer-13", "layer-14"));
  EXPECT_THAT(network.squential_types, ElementsAre(0, 11, 1, 1));
  EXPECT_THAT(network.squential_output_ids, ElementsAre("layer-13", "layer-14"));
  EXPECT_EQ(network.layers.at("layer-0")->read_count, 2);
  EXPECT_EQ(network.layers.at("layer-12")->read_count, 2);
  EXPECT_EQ(network.layers.at("layer-14")->read_count, 0);
  EXPECT_EQ(network.layers.at("layer-12")->id, "layer-12");
  EXPECT_THAT(network.layers.at("layer-12")->input_ids, ElementsAre("layer-0", "layer-0"));
  EXPECT_THAT(network.layers.at("layer-0")->input_ids, IsEmpty());
}

TEST_F(LegacyImport, TranslatesInputs) {
  const QRModelInfo network = load(LegacyWriter().input(3, 2).tensor_input(4, 5));
  EXPECT_EQ(layer<InputInfo>(network, "layer-3").location, 2);
  EXPECT_EQ(layer<InputInfo>(network, "layer-4").location, 5);
  EXPECT_THAT(network.layers.at("layer-4")->input_ids, IsEmpty());
  EXPECT_THAT(network.squential_types, ElementsAre(0, 0));
}

LegacyConvolution grouped_convolution() {
  LegacyConvolution convolution;
  convolution.in = {1, 4};
  convolution.out = {0.5f, 6};
  convolution.kernel_x = 3;
  convolution.kernel_y = 2;
  convolution.padding_x = 1;
  convolution.padding_y = 4;
  convolution.stride_x = 2;
  convolution.stride_y = 5;
  convolution.dilation_x = 6;
  convolution.dilation_y = 7;
  convolution.groups = 2;
  convolution.weights = ramp(6 * 2 * 2 * 3);
  convolution.biases = ramp(6, 0.5f);
  return convolution;
}

TEST_F(LegacyImport, TranslatesConvolutions) {
  const LegacyConvolution source = grouped_convolution();
  const QRModelInfo network = load(one_input().convolution(source));
  const auto& info = layer<Conv2dInfo>(network, "layer-1");
  EXPECT_EQ(info.in_channels, 4);
  EXPECT_EQ(info.out_channels, 6);
  EXPECT_EQ(info.kernel_x, 3);
  EXPECT_EQ(info.kernel_y, 2);
  EXPECT_EQ(info.padding_l, 1);
  EXPECT_EQ(info.padding_r, 1);
  EXPECT_EQ(info.padding_t, 4);
  EXPECT_EQ(info.padding_b, 4);
  EXPECT_EQ(info.stride_x, 2);
  EXPECT_EQ(info.stride_y, 5);
  EXPECT_EQ(info.dilation_x, 6);
  EXPECT_EQ(info.dilation_y, 7);
  EXPECT_EQ(info.groups, 2);
  EXPECT_TRUE(info.if_bias);
  EXPECT_EQ(info.bias, weight_text(source.biases));

  // The index formula of the target, in the order of the source.
  std::vector<float> expected(source.weights.size());
  size_t next = 0;
  for (uint32_t g = 0; g < 2; ++g) {
    for (uint32_t o = 0; o < 3; ++o) {
      for (uint32_t y = 0; y < 2; ++y) {
        for (uint32_t x = 0; x < 3; ++x) {
          for (uint32_t i = 0; i < 2; ++i) {
            const uint32_t n = (4 * o) / 2 + i + ((6 * g / 2) * 4) / 2;
            expected[(n * 2 + y) * 3 + x] = source.weights[next++];
          }
        }
      }
    }
  }
  EXPECT_EQ(info.weight, weight_text(expected));
}

TEST_F(LegacyImport, ReadsBiasesThatArentUsed) {
  LegacyConvolution source = grouped_convolution();
  source.has_bias = 0;
  const QRModelInfo network = load(one_input().convolution(source).activation(2, 1, 1, 1, 0));
  EXPECT_FALSE(layer<Conv2dInfo>(network, "layer-1").if_bias);
  EXPECT_EQ(network.squential_ids.size(), 3u);
}

TEST_F(LegacyImport, TranslatesDepthwiseConvolutions) {
  LegacyConvolution source;
  source.code = 3;
  source.in = source.out = {1, 5};
  source.kernel_x = source.kernel_y = 3;
  source.weights = ramp(45);
  source.biases = ramp(5);
  const QRModelInfo network = load(one_input().convolution(source));
  const auto& info = layer<Conv2dInfo>(network, "layer-1");
  EXPECT_EQ(info.groups, 5);
  EXPECT_EQ(info.in_channels, 5);
  EXPECT_TRUE(info.if_bias);
  EXPECT_EQ(info.weight, weight_text(source.weights));

  source.in.channels = 10;
  const std::string text = refusal(one_input().convolution(source));
  EXPECT_NE(text, kLoadingFailed);
  EXPECT_NE(text, kNotImplemented);
}

TEST_F(LegacyImport, TranslatesTransposedConvolutions) {
  LegacyConvolution source = grouped_convolution();
  source.code = 2;
  source.groups = 1;
  source.weights = ramp(6 * 4 * 2 * 3);
  const QRModelInfo network = load(one_input().convolution(source));
  const auto& info = layer<ConvTranspose2dInfo>(network, "layer-1");
  EXPECT_EQ(info.type, 3);
  EXPECT_EQ(info.out_channels, 6);
  EXPECT_EQ(info.padding_l, 1);
  EXPECT_EQ(info.padding_b, 4);
  EXPECT_EQ(info.groups, 1);
  EXPECT_EQ(info.bias, weight_text(source.biases));
}

TEST_F(LegacyImport, ReadsTheFirstVersion) {
  LegacyConvolution source = grouped_convolution();
  source.groups = 1;
  source.weights = ramp(6 * 4 * 2 * 3);
  LegacyConvolution transposed = source;
  transposed.code = 2;
  transposed.id = 2;
  LegacyConvolution depthwise;
  depthwise.code = 3;
  depthwise.id = 3;
  depthwise.weights = {0.25f};
  depthwise.biases = {2};
  const QRModelInfo network = load(LegacyWriter(10000)
                                       .input(0)
                                       .convolution(source)
                                       .convolution(transposed)
                                       .convolution(depthwise));
  EXPECT_EQ(network.squential_ids.size(), 4u);
  EXPECT_EQ(layer<Conv2dInfo>(network, "layer-1").groups, 1);
  EXPECT_EQ(layer<Conv2dInfo>(network, "layer-1").bias, weight_text(source.biases));
  EXPECT_EQ(layer<Conv2dInfo>(network, "layer-3").weight, weight_text({0.25f}));
}

TEST_F(LegacyImport, SplitsFusedActivations) {
  LegacyConvolution source;
  source.id = 12;
  source.activation = 2;
  source.weights = {1};
  source.biases = {0};
  const QRModelInfo network = load(one_input().convolution(source).element_wise(13, {12, 0}, 2, 6));
  EXPECT_THAT(network.squential_ids,
              ElementsAre("layer-0", "layer-12!", "layer-12", "layer-13!", "layer-13"));
  EXPECT_THAT(network.squential_types, ElementsAre(0, 2, 1, 11, 1));
  EXPECT_THAT(network.squential_output_ids, ElementsAre("layer-13"));
  const LayerInfo& operation = *network.layers.at("layer-12!");
  EXPECT_EQ(operation.read_count, 1);
  EXPECT_EQ(operation.id, "layer-12!");
  EXPECT_THAT(operation.input_ids, ElementsAre("layer-0"));
  const auto& relu = layer<ActivationInfo>(network, "layer-12");
  EXPECT_EQ(relu.read_count, 1);
  EXPECT_THAT(relu.input_ids, ElementsAre("layer-12!"));
  EXPECT_EQ(relu.activation_type, 2);
  EXPECT_EQ(static_cast<float>(relu.activation_alpha), 1.0f);
  EXPECT_EQ(static_cast<float>(relu.activation_beta), 0.0f);
  const auto& leaky = layer<ActivationInfo>(network, "layer-13");
  EXPECT_EQ(leaky.activation_type, 4);
  EXPECT_EQ(static_cast<float>(leaky.activation_alpha),
            static_cast<float>(half_float::half(0.01f)));
  EXPECT_THAT(network.layers.at("layer-13!")->input_ids, ElementsAre("layer-12", "layer-0"));
}

TEST_F(LegacyImport, MapsActivationCodes) {
  const int types[] = {0, 1, 2, 5, 6, 7, 4, -1, 3, -1};
  for (uint16_t code = 0; code < 10; ++code) {
    const LegacyWriter file = one_input().activation(1, 0, code, 0.5f, -2.0f);
    const LegacyWriter tensor = one_input().tensor_activation(1, 0, code, 0.5f, -2.0f);
    if (types[code] < 0) {
      EXPECT_EQ(refusal(file), kNotImplemented);
      EXPECT_EQ(refusal(tensor), kNotImplemented);
      EXPECT_EQ(refusal(one_input().element_wise(1, {0}, 0, code)), kNotImplemented);
      continue;
    }
    for (const LegacyWriter& writer : {file, tensor}) {
      const QRModelInfo network = load(writer);
      const auto& info = layer<ActivationInfo>(network, "layer-1");
      EXPECT_EQ(info.activation_type, types[code]);
      EXPECT_EQ(static_cast<float>(info.activation_alpha), 0.5f);
      EXPECT_EQ(static_cast<float>(info.activation_beta), -2.0f);
    }
  }
  EXPECT_EQ(refusal(one_input().activation(1, 0, 65535, 0, 0)), kNotImplemented);
}

TEST_F(LegacyImport, TranslatesPooling) {
  LegacyPooling source;
  source.kernel_x = 3;
  source.kernel_y = 5;
  source.stride_x = 1;
  source.padding_x = 1;
  source.padding_y = 2;
  const QRModelInfo maximum = load(one_input().pooling(source));
  const auto& max = layer<MaxPool2dInfo>(maximum, "layer-1");
  EXPECT_EQ(max.kernel_x, 3);
  EXPECT_EQ(max.kernel_y, 5);
  EXPECT_EQ(max.stride_x, 1);
  EXPECT_EQ(max.stride_y, 2);
  EXPECT_EQ(max.padding_l, 1);
  EXPECT_EQ(max.padding_r, 1);
  EXPECT_EQ(max.padding_t, 2);
  EXPECT_EQ(max.padding_b, 2);
  EXPECT_EQ(max.dilation_x, 1);
  EXPECT_EQ(max.dilation_y, 1);
  source.kind = 0;
  const QRModelInfo average = load(one_input().pooling(source));
  EXPECT_TRUE(layer<AvgPool2dInfo>(average, "layer-1").count_include_pad);
  EXPECT_EQ(layer<AvgPool2dInfo>(average, "layer-1").kernel_y, 5);
  source.kind = 2;
  EXPECT_EQ(refusal(one_input().pooling(source)), kNotImplemented);
}

// Heights of 8 rows: 7 rows give 3 with a stride of 2 when the division floors and 4 when it
// doesn't.
TEST_F(LegacyImport, FindsTheRoundingFromTheHeights) {
  LegacyPooling source;
  source.in = {7.0f / 8, 1};
  for (const int rows : {3, 4}) {
    source.out = {static_cast<float>(rows) / 8, 1};
    const QRModelInfo network = load(one_input().pooling(source));
    EXPECT_EQ(layer<MaxPool2dInfo>(network, "layer-1").ceil_mode, rows == 4);
  }
  // Both roundings agree: the test for the larger one holds.
  source.in = {1, 1};
  source.out = {0.5f, 1};
  EXPECT_TRUE(layer<MaxPool2dInfo>(load(one_input().pooling(source)), "layer-1").ceil_mode);
}

TEST_F(LegacyImport, TranslatesOperatorsAndMoves) {
  for (uint16_t operation = 0; operation < 5; ++operation) {
    const LegacyWriter file = one_input().element_wise(1, {0, 0}, operation);
    if (operation == 4) {
      EXPECT_EQ(refusal(file), kNotImplemented);
    } else {
      EXPECT_EQ(layer<ElementWiseOperatorInfo>(load(file), "layer-1").op_type, operation);
    }
  }
  for (uint16_t axis = 0; axis < 4; ++axis) {
    const LegacyWriter file = one_input().concatenate(1, {0, 0, 0}, axis);
    if (axis == 3) {
      EXPECT_EQ(refusal(file), kNotImplemented);
    } else {
      EXPECT_EQ(layer<ConcatenateInfo>(load(file), "layer-1").dim, axis + 1);
    }
  }
  const QRModelInfo network = load(one_input()
                                       .pixel_shuffle(1, 0, 3)
                                       .tensor_reshape(2, 0, {4, 0xFFFF, 2})
                                       .tensor_transpose(3, 0, {2, 0, 1})
                                       .tensor_squeeze(4, 0, 0xFFFE));
  EXPECT_EQ(layer<PixelShuffleInfo>(network, "layer-1").upscale_factor, 3.0f);
  EXPECT_THAT(layer<TensorReshapeInfo>(network, "layer-2").new_shape, ElementsAre(4, -1, 2));
  EXPECT_THAT(layer<TensorTransposeInfo>(network, "layer-3").axes, ElementsAre(2, 0, 1));
  EXPECT_EQ(layer<TensorSqueezeInfo>(network, "layer-4").dim, -2);
}

TEST_F(LegacyImport, TranslatesUpsampling) {
  for (uint16_t kind = 0; kind < 4; ++kind) {
    const LegacyWriter file = one_input().upsampling(1, 0, 2, 3, kind, kind);
    if (kind == 3) {
      EXPECT_EQ(refusal(file), kNotImplemented);
      continue;
    }
    const QRModelInfo network = load(file);
    const auto& info = layer<Upsample2dInfo>(network, "layer-1");
    EXPECT_EQ(info.scale_factor_x, 2.0f);
    EXPECT_EQ(info.scale_factor_y, 3.0f);
    EXPECT_EQ(info.align_corner, kind > 0);
    EXPECT_EQ(info.unsample_type, kind);
  }
}

TEST_F(LegacyImport, TranslatesBatchNormalization) {
  const QRModelInfo network = load(one_input().batch_normalization(1, 0, 2, ramp(8)));
  const auto& info = layer<BatchNorm2dInfo>(network, "layer-1");
  EXPECT_EQ(info.num_features, 2);
  EXPECT_EQ(info.eps, 1e-5f);
  EXPECT_TRUE(info.if_affine);
  EXPECT_EQ(info.scale, weight_text({1, 2}));
  EXPECT_EQ(info.shift, weight_text({3, 4}));
  EXPECT_EQ(info.variance, weight_text({5, 6}));
  EXPECT_EQ(info.mean, weight_text({7, 8}));
}

TEST_F(LegacyImport, TranslatesFullConnections) {
  const QRModelInfo network =
      load(one_input().full_connection(1, 0, 3, 2, 1, ramp(6), {0.5f, 0.25f}));
  const auto& info = layer<FullConnectionInfo>(network, "layer-1");
  EXPECT_EQ(info.in_features, 3);
  EXPECT_EQ(info.out_features, 2);
  EXPECT_TRUE(info.if_bias);
  EXPECT_EQ(info.weight, weight_text(ramp(6)));
  EXPECT_EQ(info.bias, weight_text({0.5f, 0.25f}));
}

// Two stacked layers in two directions; the second reads both directions of the first unless the
// complex type is set.
TEST_F(LegacyImport, TranslatesLSTM) {
  for (const uint16_t complex_type : std::vector<uint16_t>{0, 1}) {
    LegacyLSTM source;
    source.in_size = 3;
    source.hidden_size = 2;
    source.num_layers = 2;
    source.bidirectional = 1;
    source.complex_rnn_type = complex_type;
    const size_t between = complex_type == 0 ? 4 : 2;
    float start = 0;
    for (int direction = 0; direction < 2; ++direction) {
      for (int stacked = 0; stacked < 2; ++stacked) {
        for (const size_t size :
             {8 * (stacked == 0 ? size_t{3} : between), size_t{16}, size_t{8}, size_t{8}}) {
          source.arrays.push_back(ramp(size, start));
          start += 1;
        }
      }
    }
    const QRModelInfo network = load(one_input().lstm(source));
    const auto& info = layer<LSTMInfo>(network, "layer-1");
    EXPECT_EQ(info.in_size, 3);
    EXPECT_EQ(info.hidden_size, 2);
    EXPECT_EQ(info.num_layers, 2);
    EXPECT_TRUE(info.if_bias);
    EXPECT_TRUE(info.bidirectional);
    EXPECT_EQ(info.complex_rnn_type, complex_type);
    const auto text = [&source](size_t i) { return weight_text(source.arrays[i]); };
    EXPECT_THAT(info.weight_ih_forward, ElementsAre(text(0), text(4)));
    EXPECT_THAT(info.weight_hh_forward, ElementsAre(text(1), text(5)));
    EXPECT_THAT(info.bias_ih_forward, ElementsAre(text(2), text(6)));
    EXPECT_THAT(info.bias_hh_forward, ElementsAre(text(3), text(7)));
    EXPECT_THAT(info.weight_ih_reverse, ElementsAre(text(8), text(12)));
    EXPECT_THAT(info.weight_hh_reverse, ElementsAre(text(9), text(13)));
    EXPECT_THAT(info.bias_ih_reverse, ElementsAre(text(10), text(14)));
    EXPECT_THAT(info.bias_hh_reverse, ElementsAre(text(11), text(15)));
  }
}

TEST_F(LegacyImport, RefusesLayersWithoutACounterpart) {
  for (const uint16_t code : std::vector<uint16_t>{6, 9, 15, 16}) {
    EXPECT_EQ(refusal(one_input().record(code).bytes(40)), kNotImplemented) << code;
  }
}

TEST_F(LegacyImport, PassesOverUnknownCodesWithAMessage) {
  ::testing::internal::CaptureStdout();
  const QRModelInfo network = load(one_input().record(27).record(999).activation(1, 0, 2, 1, 0));
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "\n\n\nError, Unsupport Layer Type 27.\n\n\n\nError, Unsupport Layer Type 999.\n");
  EXPECT_THAT(network.squential_ids, ElementsAre("layer-0", "layer-1"));
}

TEST_F(LegacyImport, RefusesAFileOfUnknownCodes) {
  ::testing::internal::CaptureStdout();
  const std::string text = refusal(LegacyWriter().bytes(4 << 20));
  std::fflush(stdout);
  EXPECT_LT(::testing::internal::GetCapturedStdout().size(), 100000u);
  EXPECT_EQ(text, kLoadingFailed);
}

TEST_F(LegacyImport, EndsWhereNoPairOfWordsFollows) {
  const std::string whole = one_input().text();
  for (const std::string rest : {"x", "xy", "xyz"}) {
    EXPECT_EQ(refusal(whole + rest), "") << rest;
  }
}

TEST_F(LegacyImport, RefusesEveryShorterFile) {
  LegacyConvolution convolution = grouped_convolution();
  LegacyLSTM lstm;
  lstm.id = 9;
  lstm.arrays = {ramp(4), ramp(4), ramp(4), ramp(4)};
  const std::vector<LegacyWriter> records = {
      LegacyWriter().input(0),
      one_input().convolution(convolution),
      one_input().pooling(LegacyPooling()),
      one_input().batch_normalization(1, 0, 2, ramp(8)),
      one_input().element_wise(1, {0}, 0),
      one_input().concatenate(1, {0}, 0),
      one_input().upsampling(1, 0, 2, 2, 0, 0),
      one_input().tensor_reshape(1, 0, {2}),
      one_input().tensor_transpose(1, 0, {0}),
      one_input().tensor_squeeze(1, 0, 0),
      one_input().full_connection(1, 0, 2, 2, 1, ramp(4), ramp(2)),
      one_input().lstm(lstm),
      one_input().tensor_activation(1, 0, 2, 1, 0)};
  for (const LegacyWriter& record : records) {
    const std::string whole = record.text();
    const size_t before = &record == &records[0] ? 1000 : one_input().text().size();
    EXPECT_EQ(refusal(whole), "");
    for (size_t size = before + 4; size < whole.size(); ++size) {
      ASSERT_EQ(refusal(whole.substr(0, size)), kLoadingFailed) << size << " of " << whole.size();
    }
  }
}

TEST_F(LegacyImport, RefusesContradictions) {
  EXPECT_EQ(refusal(one_input().activation(1, 7, 2, 1, 0)), kLoadingFailed) << "an unknown id";
  EXPECT_EQ(refusal(one_input().input(0)), kLoadingFailed) << "an id twice";
  EXPECT_EQ(refusal(one_input().element_wise(1, {}, 0)), kLoadingFailed) << "no input";
  EXPECT_EQ(refusal(one_input().record(10).words({1, 11}).bytes(100)), kLoadingFailed);
  EXPECT_EQ(refusal(one_input().full_connection(1, 0, 0, 5, 0, {}, ramp(5))), kLoadingFailed);
  EXPECT_EQ(refusal(one_input().tensor_transpose(1, 0, std::vector<uint16_t>(11, 0))),
            kLoadingFailed);
  using Change = std::function<void(LegacyConvolution&)>;
  const Change changes[] = {
      [](auto& c) { c.groups = 0; },
      [](auto& c) { c.groups = 5; },
      [](auto& c) { c.kernel_x = 0; },
      [](auto& c) { c.kernel_y = 0; },
      [](auto& c) { c.stride_x = 0; },
      [](auto& c) { c.stride_y = 0; },
      [](auto& c) { c.dilation_x = 0; },
      [](auto& c) { c.dilation_y = 0; },
      [](auto& c) { c.in.channels = 0; },
      [](auto& c) { c.out.channels = 0; },
      [](auto& c) { c.kernel_x = c.kernel_y = c.in.channels = c.out.channels = 65535; }};
  for (const Change& change : changes) {
    LegacyConvolution convolution = grouped_convolution();
    convolution.groups = 1;
    change(convolution);
    EXPECT_EQ(refusal(one_input().convolution(convolution)), kLoadingFailed);
  }
  for (const int zero : {0, 1, 2, 3}) {
    LegacyPooling pooling;
    (zero == 0   ? pooling.kernel_x
     : zero == 1 ? pooling.kernel_y
     : zero == 2 ? pooling.stride_x
                 : pooling.stride_y) = 0;
    EXPECT_EQ(refusal(one_input().pooling(pooling)), kLoadingFailed);
  }
  LegacyLSTM lstm;
  lstm.num_layers = 65535;
  lstm.hidden_size = 65535;
  EXPECT_EQ(refusal(one_input().lstm(lstm)), kLoadingFailed);
  lstm.num_layers = 0;
  EXPECT_EQ(refusal(one_input().lstm(lstm)), kLoadingFailed);
}

}  // namespace
}  // namespace marlo::test

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/network_writer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_context.h"

// Whole networks in every layout, from both kinds of model file.

namespace marlo::test {
namespace {

using Build = std::function<void(NetworkWriter&)>;

Planes picture(uint32_t channels, uint32_t height, uint32_t width) {
  Planes planes(channels, height, width);
  Random random(3);
  for (double& value : planes.values) value = random.unit();
  return planes;
}

// Ten layers with weights or windows between a picture and ten probabilities, two of them bridged.
void residual_classifier(NetworkWriter& net) {
  const std::string stem = net.relu(net.conv("input", 16, 3));
  const std::string first = net.conv(net.relu(net.conv(stem, 16, 3)), 16, 3);
  const std::string bridge = net.relu(net.add(stem, first));
  const std::string narrow = net.max2(bridge);
  const std::string wide = net.relu(net.conv(narrow, 32, 3));
  const std::string second = net.conv(net.relu(net.conv(wide, 32, 3)), 32, 3);
  const std::string last = net.mean4(net.relu(net.add(wide, second)));
  net.output(net.softmax(net.full_connection(net.flat(last), 10)));
}

// Three levels down and up again; what was seen on the way down is joined on the way up.
void encoder_decoder(NetworkWriter& net) {
  const std::string top = net.relu(net.conv("input", 8, 3));
  const std::string middle = net.relu(net.conv(net.max2(top), 16, 3));
  const std::string bottom = net.relu(net.conv(net.max2(middle), 32, 3));
  const std::string up = net.concatenate(net.upsample(bottom), middle);
  const std::string mixed = net.relu(net.conv(up, 32, 3));
  const std::string joined = net.concatenate(net.shuffle(mixed), top);
  net.output(net.sigmoid(net.conv(joined, 8, 1)));
}

// Inverted bottlenecks: a wide layer with one filter for each channel between two of single pixels.
std::string bottleneck(NetworkWriter& net, const std::string& source, uint32_t wide, uint32_t outs,
                       uint32_t kernel, uint32_t stride) {
  const std::string middle = net.relu(net.conv(source, wide, 1));
  const std::string filtered = net.relu(net.depthwise(middle, kernel, stride));
  return net.conv(filtered, outs, 1);
}

void depthwise_classifier(NetworkWriter& net) {
  const std::string stem = net.relu(net.first_conv("input", 16, 3));
  const std::string narrow = bottleneck(net, stem, 48, 24, 3, 2);
  const std::string bridged = net.add(narrow, bottleneck(net, narrow, 40, 24, 3, 1));
  const std::string large = net.add(bridged, bottleneck(net, bridged, 32, 24, 5, 1));
  const std::string last = net.mean4(net.relu(net.conv(large, 48, 1)));
  net.output(net.softmax(net.full_connection(net.flat(last), 10)));
}

// Two residual stages; the second halves the picture and is bridged by single pixels.
void downsampling_classifier(NetworkWriter& net) {
  const std::string stem = net.relu(net.first_conv("input", 16, 3));
  const std::string first = net.conv(net.relu(net.conv(stem, 16, 3)), 16, 3);
  const std::string bridge = net.relu(net.add(stem, first));
  const std::string reduced = net.relu(net.conv(bridge, 8, 1));
  const std::string wide = net.conv(net.relu(net.conv(reduced, 24, 3, 2)), 32, 1);
  const std::string stage = net.relu(net.add(net.conv(bridge, 32, 1, 2), wide));
  const std::string last = net.mean4(stage);
  net.output(net.softmax(net.full_connection(net.flat(last), 10)));
}

class Layouts : public ::testing::TestWithParam<Form> {
 protected:
  void SetUp() override {
    const std::string reason = why_not_here(GetParam());
    if (!reason.empty()) GTEST_SKIP() << reason;
  }

  // The output of a model file.
  std::vector<float> run(const std::string& path, const Planes& input) {
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    std::shared_ptr<runtime::Context> context = context_;
    EXPECT_EQ(utility::load_model(path, nets, context, kernels_, params_, "sdk", 1, 0), 0);
    const auto& package = *nets.at("net");
    const std::vector<float> pixels(input.values.begin(), input.values.end());
    auto inputs = package.input_tensors;
    inputs[0] = context_.floats({input.channels, input.height, input.width},
                                runtime::LayoutType::CHW, pixels);
    std::vector<float> result;
    for (int pass = 0; pass < 2; ++pass) {
      const auto outputs =
          package.net->Forward(inputs, package.output_ids, context_, nullptr, nullptr);
      const std::vector<float> values = values_of(*outputs.at(package.output_ids.at(0)).at(0));
      EXPECT_TRUE(pass == 0 || same_bits(values, result)) << "a second pass differs";
      result = values;
    }
    context_.pool().check();
    return result;
  }

  // Runs a network in this test's form from both kinds of file and compares it with its definition,
  // and with the portable form.
  void test(const Build& build, const Planes& input, bool same_bits_as_portable) {
    utility::init_register_operators(kernels_, params_);
    NetworkWriter net(GetParam(), input);
    build(net);
    const std::vector<float> from_json = run(net.model().save(folder_.file("m.json")), input);
    const std::vector<float> from_binary = run(net.model().save(folder_.file("m.qrtmodel")), input);
    EXPECT_TRUE(same_bits(from_binary, from_json));

    // Every layer adds at most its terms' roundings of the largest value, and weights average about
    // one gain; four covers the worst of these networks' gains.
    const std::vector<double>& expected = net.expected().values;
    ASSERT_EQ(from_json.size(), expected.size());
    const double bound = 4 * static_cast<double>(net.terms()) * kEpsilon * net.magnitude();
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_NEAR(from_json[i], expected[i], bound) << "output " << i;
    }

    NetworkWriter portable(all_forms()[0], input);
    build(portable);
    const auto reference = run(portable.model().save(folder_.file("p.json")), input);
    if (same_bits_as_portable) {
      EXPECT_TRUE(same_bits(from_json, reference));
    } else {
      for (size_t i = 0; i < reference.size(); ++i) ASSERT_NEAR(from_json[i], reference[i], bound);
    }
  }

  TestContext context_{32};
  TemporaryFolder folder_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
};

// The average over 4 x 4 pixels is summed in another order over planes, blocks and portably.
TEST_P(Layouts, ResidualClassifier) { test(residual_classifier, picture(3, 8, 8), false); }

// Nothing in it depends on the layout, to the last bit.
TEST_P(Layouts, EncoderDecoder) { test(encoder_decoder, picture(3, 12, 16), true); }

// The same with convolutions that stay in the layout.
class Convolutions : public Layouts {};

TEST_P(Convolutions, DepthwiseClassifier) { test(depthwise_classifier, picture(3, 16, 16), false); }

// Odd sizes have a rest in every tile.
TEST_P(Convolutions, DepthwiseClassifierOfAnOddPicture) {
  test(depthwise_classifier, picture(3, 15, 23), false);
}

TEST_P(Convolutions, DownsamplingClassifier) {
  test(downsampling_classifier, picture(3, 16, 16), false);
}

TEST_P(Convolutions, DownsamplingClassifierOfAnOddPicture) {
  test(downsampling_classifier, picture(3, 15, 23), false);
}

std::string form_name(const ::testing::TestParamInfo<Form>& form) {
  std::string name = form.param.name;
  for (char& c : name) {
    if (c == ' ') c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(AllForms, Convolutions, ::testing::ValuesIn(convolution_forms()),
                         form_name);
INSTANTIATE_TEST_SUITE_P(AllForms, Layouts, ::testing::ValuesIn(all_forms()), form_name);

}  // namespace
}  // namespace marlo::test

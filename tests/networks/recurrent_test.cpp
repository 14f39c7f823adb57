#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <ostream>

#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/paths.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_context.h"

// Whole networks with recurrent layers, from both kinds of model file.

namespace marlo::test {
namespace {

using Floats = std::vector<float>;

// The kernels of a network for one instruction set; empty stands for portable code.
struct Recurrences {
  std::string group;
  std::string lstm;
  std::string gru;
};

void PrintTo(const Recurrences& recurrences, std::ostream* out) { *out << recurrences.group; }

std::vector<Recurrences> all_recurrences() {
  std::vector<Recurrences> all = {
      {"portable", "LSTM_Fallback_SC_F32_M1", "GRU_Fallback_SC_F32_M1"}};
#if QRT_WITH_SSE
  all.push_back({"SSE", "LSTM_SSE_SC_F32_M1", "GRU_SSE_SC_F32_M1"});
#endif
#if QRT_WITH_SGEMM
  all.push_back({"SGEMM", "LSTM_SGEMM_SC_F32_M1", "GRU_SGEMM_SC_F32_M1"});
#endif
#if QRT_WITH_SSE && QRT_WITH_SGEMM
  all.push_back({"SSE with SGEMM", "LSTM_SSE_SC_F32_M1", "GRU_SSE_SGEMM_SC_F32_M2"});
#endif
  return all;
}

// The binary form of a model holds halves.
void round_to_halves(Floats& numbers) {
  for (float& number : numbers) number = half_float::half(number);
}

void round_to_halves(RecurrentCase& layer) {
  for (CellData& cell : layer.cells) {
    for (Floats* list : {&cell.weight_ih, &cell.weight_hh, &cell.bias_ih, &cell.bias_hh}) {
      round_to_halves(*list);
    }
  }
}

class RecurrentNetworks : public testing::TestWithParam<Recurrences> {
 protected:
  RecurrentNetworks() { utility::init_register_operators(kernels_, params_); }

  struct Loaded {
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;

    runtime::Net& net() { return *nets.at("net")->net; }
  };

  Loaded load(const std::string& path) {
    Loaded loaded;
    std::shared_ptr<runtime::Context> context = context_;
    EXPECT_EQ(utility::load_model(path, loaded.nets, context, kernels_, params_, "sdk", 1, 0), 0);
    return loaded;
  }

  // One pass over steps of `width`.
  Floats pass(Loaded& loaded, const Floats& steps, uint32_t width) {
    const auto& package = *loaded.nets.at("net");
    auto inputs = package.input_tensors;
    const auto count = static_cast<uint32_t>(steps.size() / width);
    inputs[0] = context_.floats({count, width}, runtime::LayoutType::SC, steps);
    const auto outputs =
        package.net->Forward(inputs, package.output_ids, context_, nullptr, nullptr);
    const Floats values = values_of(*outputs.at(package.output_ids.at(0)).at(0));
    context_.pool().check();
    return values;
  }

  TestContext context_{32};
  TemporaryFolder folder_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
};

INSTANTIATE_TEST_SUITE_P(All, RecurrentNetworks, testing::ValuesIn(all_recurrences()),
                         [](const auto& test) {
                           std::string name = test.param.group;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

std::shared_ptr<runtime::SoftmaxInfo> softmax_over_tags() {
  auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = 2;  // axis 1, a batch counted
  return info;
}

// Probabilities of each row, and what errors of the scores can do to them: exp(+-2 e) at most.
std::vector<Approximate> tag_probabilities(const std::vector<Approximate>& scores, size_t tags) {
  std::vector<Approximate> probabilities;
  for (size_t row = 0; row < scores.size(); row += tags) {
    double sum = 0.0;
    double error = 0.0;
    for (size_t i = 0; i < tags; ++i) {
      sum += std::exp(scores[row + i].value);
      error = std::max(error, scores[row + i].error);
    }
    for (size_t i = 0; i < tags; ++i) {
      const double value = std::exp(scores[row + i].value) / sum;
      const double roundings = static_cast<double>(tags + 8) * kEpsilon;
      probabilities.push_back({value, value * (std::expm1(2 * error) + roundings)});
    }
  }
  return probabilities;
}

// Words of 12 numbers to a tag each: two layers in both directions, and a second recurrence down to
// the tags. Weights of the last one are large enough to prefer one.
TEST_P(RecurrentNetworks, TagAWholeSentence) {
  constexpr uint32_t kTags = 6;
  RecurrentCase sentence;
  sentence.network = Network::lstm;
  sentence.ins = 12;
  sentence.hidden = 18;
  sentence.steps = 11;
  sentence.layers = 2;
  sentence.bidirectional = true;
  sentence.fill(21);
  round_to_halves(sentence);
  RecurrentCase tagger = sentence;
  tagger.ins = sentence.out_size();
  tagger.hidden = kTags / 2;
  tagger.layers = 1;
  tagger.fill(22);
  round_to_halves(tagger);

  ModelBuilder model;
  model.input("words")
      .layer("sentence", {"words"}, sequence_description(sentence), GetParam().lstm)
      .layer("scores", {"sentence"}, sequence_description(tagger), GetParam().lstm)
      .layer("tags", {"scores"}, softmax_over_tags(), "Softmax_Fallback_Float_M1")
      .outputs({"tags"});
  Loaded json = load(model.save(folder_.file("tagger.json")));
  Loaded binary = load(model.save(folder_.file("tagger.qrtmodel")));

  RecurrentOracle lower(sentence);
  RecurrentOracle upper(tagger);
  for (int pass_index = 0; pass_index < 3; ++pass_index) {
    const Floats words =
        Random(30 + static_cast<uint32_t>(pass_index)).floats(sentence.input.size());
    const auto hidden = lower.run(words);
    const auto expected = tag_probabilities(upper.run_on(hidden), kTags);
    const Floats found = pass(json, words, sentence.ins);
    EXPECT_EQ(first_beyond(found, expected), "") << "sentence " << pass_index;
    EXPECT_TRUE(same_bits(pass(binary, words, sentence.ins), found));
  }
}

// Three stacked layers over a signal, fed whole and in pieces.
TEST_P(RecurrentNetworks, FollowASignalInPieces) {
  RecurrentCase stack;
  stack.network = Network::gru;
  stack.ins = 5;
  stack.hidden = 23;
  stack.steps = 24;
  stack.layers = 3;
  stack.fill(41);
  round_to_halves(stack);

  ModelBuilder model;
  model.input("signal")
      .layer("stack", {"signal"}, sequence_description(stack), GetParam().gru)
      .activation("bounded", "stack", "TanH_Fallback_Float_M1")
      .outputs({"bounded"});
  const std::string paths[] = {model.save(folder_.file("stack.json")),
                               model.save(folder_.file("stack.qrtmodel"))};
  std::vector<Approximate> expected;
  for (const Approximate& number : RecurrentOracle(stack).run(stack.input)) {
    expected.push_back({std::tanh(number.value), number.error + 4 * kEpsilon});
  }
  Floats whole;
  for (const std::string& path : paths) {
    Loaded net = load(path);
    const Floats found = pass(net, stack.input, stack.ins);
    EXPECT_EQ(first_beyond(found, expected), "");
    EXPECT_TRUE(whole.empty() || same_bits(found, whole));
    whole = found;
  }

  Loaded pieces = load(paths[1]);
  for (int round = 0; round < 2; ++round) {
    Floats found;
    for (size_t begin = 0, steps = 1; begin < stack.steps; begin += steps, ++steps) {
      const size_t end = std::min<size_t>(begin + steps, stack.steps);
      const Floats piece(stack.input.begin() + static_cast<std::ptrdiff_t>(begin * stack.ins),
                         stack.input.begin() + static_cast<std::ptrdiff_t>(end * stack.ins));
      const Floats values = pass(pieces, piece, stack.ins);
      found.insert(found.end(), values.begin(), values.end());
    }
    EXPECT_TRUE(same_bits(found, whole)) << "round " << round;
    // A net has no call for it; its layers do.
    for (const auto& layer : pieces.net().layers) layer->kernel->ResetState();
  }
}

std::string text_of(const std::string& path) {
  std::ifstream file(source_path(path));
  return {std::istreambuf_iterator<char>(file), {}};
}

// The example is compiled and run; its page shows a part of it.
TEST(RecurrentDocument, ShowsCodeOfTheExample) {
  const std::string page = text_of("docs/recurrent.md");
  const std::string opening = "```cpp\n";
  const size_t begin = page.find(opening);
  ASSERT_NE(begin, std::string::npos);
  const size_t code = begin + opening.size();
  const std::string sample = page.substr(code, page.find("```", code) - code);
  EXPECT_GT(sample.size(), 500u);
  EXPECT_NE(text_of("examples/follow.cpp").find(sample), std::string::npos)
      << "the page shows other code than examples/follow.cpp";
}

}  // namespace
}  // namespace marlo::test

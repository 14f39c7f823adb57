// One context per thread, with registries that all threads read.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "qrt_core/qrt_core.h"
#include "tests/runtime/engine/all_layers.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/network_writer.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace runtime;

namespace {

constexpr int kThreads = 8;
constexpr int kPasses = 20;

// Bytes of all outputs of a network, by layer.
using Results = std::map<unsigned int, std::vector<unsigned char>>;

Results bytes_of(const std::unordered_map<unsigned int, Net::Tensors>& outputs) {
  Results results;
  for (const auto& [index, tensors] : outputs) {
    for (const auto& tensor : tensors) {
      const auto* bytes = static_cast<const unsigned char*>(tensor->handle.cpu);
      auto& all = results[index];
      all.insert(all.end(), bytes, bytes + ByteSize(tensor->shape));
    }
  }
  return results;
}

// Threads that begin together, so that they overlap.
template <typename Work>
void run_threads(Work work) {
  std::atomic<int> ready = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready.load() < kThreads) std::this_thread::yield();
      work(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class ContextsThreadTest : public ::testing::Test {
 protected:
  ContextsThreadTest() {
    utility::init_register_operators(kernels_, params_);
    all_ = test::all_layers();
    all_.save(folder_.file("all.json"));
    all_.save(folder_.file("all.qrtmodel"));
  }

  // Loads a model on a context of its own and runs it on the inputs of number `seed`.
  Results load_and_run(const std::string& file, int seed) const {
    std::shared_ptr<Context> context;
    utility::create_context(context, 16);
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    // The library wants registries that it could change, and only reads them.
    auto& kernels = const_cast<KernelRegistry&>(kernels_);
    auto& params = const_cast<InferenceParamRegistry&>(params_);
    if (utility::load_model(folder_.file(file), nets, context, kernels, params, "sdk", 1, 0) != 0) {
      return {};
    }
    utility::_NetworkPackage& package = *nets.at("net");
    Results results;
    for (int pass = 0; pass < kPasses; ++pass) {
      package.input_tensors = test::all_layers_inputs(*context->cpu, static_cast<float>(seed));
      results = bytes_of(package.net->Forward(package.input_tensors, package.output_ids, context,
                                              nullptr, nullptr));
    }
    return results;
  }

  test::TemporaryFolder folder_;
  KernelRegistry kernels_;
  InferenceParamRegistry params_;
  test::ModelBuilder all_;
};

TEST_F(ContextsThreadTest, ModelsLoadedAndRunAtOnceGiveTheResultsOfOneThread) {
  const auto file = [](int i) { return i % 2 == 0 ? "all.json" : "all.qrtmodel"; };
  Results expected[kThreads];
  for (int i = 0; i < kThreads; ++i) {
    expected[i] = load_and_run(file(i), i - 2);
    ASSERT_EQ(expected[i].size(), expected[0].size());
  }
  Results found[kThreads];
  run_threads([&](int i) { found[i] = load_and_run(file(i), i - 2); });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(found[i], expected[i]) << "thread " << i;
}

/// A network, and inputs for it.
struct Work {
  test::ModelBuilder model;
  std::vector<std::vector<float>> inputs;  ///< one per pass
  TensorShape shape;
};

std::vector<std::vector<float>> random_inputs(uint32_t seed, size_t size) {
  std::vector<std::vector<float>> inputs;
  for (uint32_t pass = 0; pass < kPasses; ++pass) {
    inputs.push_back(test::Random(100 * seed + pass).floats(size));
  }
  return inputs;
}

// Convolutions, a bridge, pooling and a classifier over planes or blocks.
Work picture_work(const test::Form& form, uint32_t seed) {
  test::Planes picture(3, 8, 8);
  test::NetworkWriter net(form, picture);
  const std::string stem = net.relu(net.conv("input", 16, 3));
  const std::string bridge = net.add(stem, net.conv(stem, 16, seed % 2 == 0 ? 1 : 3));
  net.output(net.softmax(net.full_connection(net.flat(net.max2(bridge)), 10)));
  return {net.model(), random_inputs(seed, picture.values.size()),
          TensorShape({3, 8, 8}, DataType::FLOAT32, LayoutType::CHW)};
}

// Two recurrent layers, which keep their state from pass to pass.
Work recurrent_work(test::Network network, const std::string& kernel, uint32_t seed) {
  test::RecurrentCase layer;
  layer.network = network;
  layer.ins = 5;
  layer.hidden = 7;
  layer.layers = 2;
  layer.fill(seed);
  Work work;
  work.model.input("steps").layer("layers", {"steps"}, test::sequence_description(layer), kernel);
  work.model.outputs({"layers"});
  work.inputs = random_inputs(seed, size_t{layer.steps} * layer.ins);
  work.shape = TensorShape({layer.steps, layer.ins}, DataType::FLOAT32, LayoutType::SC);
  return work;
}

// Eight networks that have hardly a kernel in common, as far as this processor and build go.
std::vector<Work> eight_works() {
  std::vector<Work> works;
  uint32_t seed = 0;
  for (const test::Form& form : test::all_forms()) {
    if (test::why_not_here(form).empty()) works.push_back(picture_work(form, seed++));
  }
  const std::pair<test::Network, std::string> recurrences[] = {
    {test::Network::rnn, "RNN_Fallback_SC_F32_M1"},
    {test::Network::gru, "GRU_Fallback_SC_F32_M1"},
#if QRT_WITH_SGEMM
    {test::Network::lstm, "LSTM_SGEMM_SC_F32_M1"},
#endif
#if QRT_WITH_SSE && QRT_WITH_SGEMM
    {test::Network::gru, "GRU_SSE_SGEMM_SC_F32_M2"},
#endif
    {test::Network::lstm, "LSTM_Fallback_SC_F32_M1"},
    {test::Network::rnn, "RNN_Fallback_SC_F32_M1"},
    {test::Network::gru, "GRU_Fallback_SC_F32_M1"},
    {test::Network::lstm, "LSTM_Fallback_SC_F32_M1"},
    {test::Network::lstm, "LSTM_Fallback_SC_F32_M1"}
  };
  for (const auto& [network, kernel] : recurrences) {
    if (works.size() < kThreads) works.push_back(recurrent_work(network, kernel, ++seed));
  }
  return works;
}

// The results of all passes, on a context that is made here.
std::vector<Results> results_of(Work& work, const KernelRegistry& kernels) {
  std::shared_ptr<Context> context;
  utility::create_context(context, 32);
  const auto net = CreateNet(work.model.info(), work.model.configuration(), kernels, context);
  const auto last = static_cast<unsigned int>(work.model.info()->squential_ids.size() - 1);
  std::vector<Results> results;
  for (const std::vector<float>& input : work.inputs) {
    const auto tensor = context->cpu->CreateTensor(work.shape, input.data());
    results.push_back(bytes_of(net->Forward({{0, tensor}}, {last}, context, nullptr, nullptr)));
  }
  return results;
}

TEST_F(ContextsThreadTest, EightDifferentNetworksAtOnceGiveTheResultsOfOneThread) {
  std::vector<Work> works = eight_works();
  ASSERT_EQ(works.size(), static_cast<size_t>(kThreads));
  std::vector<std::vector<Results>> expected;
  for (Work& work : works) expected.push_back(results_of(work, kernels_));
  std::vector<std::vector<Results>> found(works.size());
  run_threads([&](int i) {
    const auto at = static_cast<size_t>(i);
    found[at] = results_of(works[at], kernels_);
  });
  for (size_t i = 0; i < works.size(); ++i) {
    EXPECT_EQ(found[i], expected[i]) << "thread " << i;
    ASSERT_EQ(expected[i].size(), static_cast<size_t>(kPasses));
    EXPECT_NE(expected[i].front(), expected[i].back()) << "inputs make no difference";
  }
}

// The results of all passes of a model's only network.
std::vector<std::vector<float>> passes_of(utility::Model& model, const Work& work) {
  std::vector<std::vector<float>> all;
  for (const std::vector<float>& input : work.inputs) {
    const auto results = model.run(utility::Input(work.shape, input.data()));
    const auto numbers = results[0].elements();
    all.emplace_back(numbers.begin(), numbers.end());
  }
  return all;
}

TEST_F(ContextsThreadTest, EightClonesShareWeightsAndAreReleasedInAnyOrder) {
  for (Work& work : eight_works()) {
    const std::string last = work.model.info()->squential_ids.back();
    auto model = std::make_unique<utility::Model>(
        work.model.outputs({last}).save(folder_.file("clone.json")));
    std::vector<std::unique_ptr<utility::Model>> clones;
    for (int i = 0; i < kThreads; ++i) {
      clones.push_back(std::make_unique<utility::Model>(model->clone()));
    }
    const auto expected = passes_of(*model, work);
    std::vector<std::vector<float>> found[kThreads];
    run_threads([&](int i) {
      // The original goes while clones run, and each clone when it has done its passes.
      if (i == kThreads / 2) model.reset();
      const std::unique_ptr<utility::Model> own = std::move(clones[static_cast<size_t>(i)]);
      found[i] = passes_of(*own, work);
    });
    for (int i = 0; i < kThreads; ++i) EXPECT_EQ(found[i], expected) << "thread " << i;
  }
}

TEST_F(ContextsThreadTest, DifferentNetworksFromOneRegistryGiveTheirOwnResults) {
  // Thread i has i + 1 convolutions, each of which doubles and adds one.
  float found[kThreads] = {};
  run_threads([&](int i) {
    std::shared_ptr<Context> context;
    utility::create_context(context, 32);
    test::ModelBuilder model;
    model.input("0");
    for (int k = 0; k <= i; ++k) {
      model.conv2d(std::to_string(k + 1), std::to_string(k),
                   test::plane_convolution(1, 1, 1, {2.0f}, {1.0f}));
    }
    const auto net = CreateNet(model.info(), model.configuration(), kernels_, context);
    const auto last = static_cast<unsigned int>(i + 1);
    for (int pass = 0; pass < 50 * kPasses; ++pass) {
      const float x = 1.0f;
      const auto result = net->Forward({{0, context->cpu->CreateF32CHWMainMem({1, 1, 1}, &x)}},
                                       {last}, context, nullptr, nullptr);
      found[i] = *static_cast<const float*>(result.at(last).at(0)->handle.cpu);
    }
  });
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(found[i], static_cast<float>((2 << (i + 1)) - 1)) << "thread " << i;
  }
}

TEST_F(ContextsThreadTest, ThreadsMayMakeNetworksOfOneModel) {
  const auto info = all_.info();
  const auto configuration = all_.configuration();
  const auto run = [&] {
    std::shared_ptr<Context> context;
    utility::create_context(context, 16);
    const auto net = CreateNet(info, configuration, kernels_, context);
    const auto last = static_cast<unsigned int>(info->squential_ids.size() - 1);
    return bytes_of(
        net->Forward(test::all_layers_inputs(*context->cpu), {last}, context, nullptr, nullptr));
  };
  const Results expected = run();
  ASSERT_FALSE(expected.empty());
  Results found[kThreads];
  run_threads([&](int i) { found[i] = run(); });
  for (int i = 0; i < kThreads; ++i) EXPECT_EQ(found[i], expected) << "thread " << i;
}

TEST_F(ContextsThreadTest, ThreadsMayCreateKernelsFromOneRegistry) {
  std::atomic<int> wrong = 0;
  run_threads([&](int) {
    for (const std::string& key : kernels_.Keys()) {
      const auto kernel = kernels_.Create(key);
      if (kernel == nullptr || kernel->GetKernelName() != key) ++wrong;
      if (kernels_.Create(key + "?") != nullptr) ++wrong;
    }
  });
  EXPECT_EQ(wrong.load(), 0);
}

TEST_F(ContextsThreadTest, TwoThreadsMayReadOneTensor) {
  std::shared_ptr<Context> context;
  utility::create_context(context, 16);
  const std::vector<float> numbers = test::ramp(1000);
  const std::shared_ptr<const TensorCPU> tensor =
      context->cpu->CreateF32CMainMemory(1000, numbers.data());
  float sums[kThreads] = {};
  run_threads([&, tensor](int i) {
    const std::shared_ptr<const TensorCPU> own = tensor;
    for (uint32_t k = 0; k < 1000; ++k) {
      sums[i] += *static_cast<const float*>(own->Locate1D(k));
    }
  });
  for (const float sum : sums) EXPECT_EQ(sum, 500500.0f);
}

}  // namespace
}  // namespace marlo::test

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "fuzz/targets.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/support/paths.h"

// Inputs of up to 64 KiB that try to make the library work long or take much memory, and all inputs
// that the fuzz harnesses keep. Each must be done within a second and 256 MiB.

namespace marlo::test {
namespace {

constexpr size_t kMaxBytes = 65536;
constexpr double kMaxSeconds = 1.0;
constexpr long kMaxKibibytes = 256 * 1024;

// Instrumented code and emulated processors are slower and larger by factors that say nothing here.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kInstrumented = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif
#else
constexpr bool kInstrumented = false;
#endif

using Target = void (*)(const uint8_t* data, size_t size);

struct Cost {
  double seconds = 0;
  long kibibytes = 0;
  bool finished = false;
};

Cost cost_of_child(Target target, const std::string& bytes) {
  const pid_t child = fork();
  if (child == 0) {
    if (target != nullptr) target(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  Cost cost;
  cost.seconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                 1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  cost.kibibytes = usage.ru_maxrss;
  cost.finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return cost;
}

// The time and memory that a target takes beyond those of a process that does nothing.
Cost cost_of(Target target, const std::string& bytes) {
  const Cost idle = cost_of_child(nullptr, "");
  Cost cost = cost_of_child(target, bytes);
  cost.seconds -= idle.seconds;
  cost.kibibytes -= idle.kibibytes;
  return cost;
}

void expect_cheap(Target target, const std::string& bytes, int calls, const std::string& what) {
  ASSERT_LE(bytes.size(), kMaxBytes) << what;
  // What the target makes once and keeps is made in this process, which also removes its files.
  target(reinterpret_cast<const uint8_t*>(""), 0);
  const Cost cost = cost_of(target, bytes);
  EXPECT_TRUE(cost.finished) << what << " ends the process";
  if (kInstrumented || std::getenv("QEMU_CPU") != nullptr) return;
  // A target reads its input several times over.
  EXPECT_LT(cost.seconds, kMaxSeconds * calls) << what;
  EXPECT_LT(cost.kibibytes, kMaxKibibytes) << what;
}

constexpr int kJsonReads = 4;
constexpr int kBinaryReads = 3;

void expect_cheap_json(const std::string& text, const std::string& what) {
  expect_cheap(fuzz::read_json, text, kJsonReads, what);
}

// Whether a file is a model that loads: one that is refused at once would be cheap for that reason.
bool loads(const std::string& bytes, const std::string& suffix) {
  const TemporaryFolder folder;
  const std::string path = folder.file("model" + suffix);
  write_file(path, bytes);
  fuzz::Library& library = fuzz::Library::get();
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  return utility::load_model(path, nets, context, library.kernels, library.params, "s", 0, 0) == 0;
}

// `item` so often that it takes `bytes`, with commas between.
std::string repeated(const std::string& item, size_t bytes) {
  std::string all = item;
  while (all.size() + item.size() + 1 <= bytes) all += "," + item;
  return all;
}

size_t count_of(const std::string& items) {
  return 1 + static_cast<size_t>(std::count(items.begin(), items.end(), ','));
}

std::string repeated_codes(const std::string& code, size_t count) {
  std::string all = code;
  for (size_t i = 1; i < count; ++i) all += "," + code;
  return all;
}

std::string model(const std::string& networks, const std::string& configurations = "") {
  return R"({"sdk_type":"s","core_major_ver":1,"model_arr":{"serializable_type":"")" +
         (networks.empty() ? "" : "," + networks) + R"(},"config_arr":{)" + configurations + "}}";
}

// One network that lists the layer "a" as often as fits into `bytes`.
std::string repeated_layer(const std::string& code, const std::string& layer, size_t bytes) {
  const std::string ids = repeated("\"a\"", bytes);
  return R"("squential_ids":["n"],"n":{"serializable_type":"","squential_ids":[)" + ids +
         R"(],"squential_types":[)" + repeated_codes(code, count_of(ids)) +
         R"(],"a":{"serializable_type":"","id":"a")" + layer + "}}";
}

TEST(HostileJson, ALayerListedThousandsOfTimesWithABigArrayIsCheap) {
  const std::string numbers = repeated("1", 25000);
  expect_cheap_json(model(repeated_layer("14", ",\"axes\":[" + numbers + "]", 20000)), "axes");
  expect_cheap_json(
      model(repeated_layer("252", ",\"desc\":\"\",\"input_shapes\":[[" + numbers + "]]", 20000)),
      "one inner array");
  expect_cheap_json(model(repeated_layer(
                        "38", ",\"weight_ih_forward\":[" + repeated("\"\"", 25000) + "]", 20000)),
                    "list of weights");
}

TEST(HostileJson, ALayerListedThousandsOfTimesWithThousandsOfMembersIsCheap) {
  std::string members;
  for (int i = 0; members.size() < 30000; ++i) members += ",\"" + std::to_string(i) + "\":0";
  expect_cheap_json(model(repeated_layer("2", members + ",\"weight\":\"\",\"bias\":\"\"", 20000)),
                    "members of a convolution");
  expect_cheap_json(model(repeated_layer("22", ",\"num_sampling_infos\":3000" + members, 20000)),
                    "samplings");
}

TEST(HostileJson, AConfigurationListedThousandsOfTimesIsCheap) {
  const std::string ids = repeated("\"a\"", 20000);
  const std::string back_end =
      R"({"summary":"","squential_ids":[)" + ids + R"(],"a":{"summary":""}})";
  expect_cheap_json(
      model("", R"("squential_ids":[)" + ids + R"(],"a":{"cpu_sse":)" + back_end + "}"),
      "ids in ids");
  std::string members;
  for (int i = 0; members.size() < 20000; ++i) members += "\"" + std::to_string(i) + "\":0,";
  expect_cheap_json(model("", R"("squential_ids":[)" + repeated("\"a\"", 500) +
                                  R"(],"a":{"cpu_sse":{"summary":"","squential_ids":[)" + ids +
                                  R"(],"a":{)" + members + R"("summary":""}}})"),
                    "members of a layer");
}

TEST(HostileJson, ManyIdsWithoutMembersAreCheap) {
  std::string ids;
  for (int i = 0; ids.size() < 60000; ++i)
    ids += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\"";
  expect_cheap_json(model("", "\"squential_ids\":[" + ids + "]"), "back ends");
  expect_cheap_json(model("\"squential_ids\":[" + ids + "]"), "networks");
}

TEST(HostileJson, ANetworkThatRepeatsALayerWithWeightsIsCheap) {
  const std::string cfgs =
      R"("squential_ids":["n"],"n":{"cpu_sse":{"summary":"","squential_ids":["a"],"a":{"summary":"",)"
      R"("kernel":{"kernel_type":"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",)"
      R"("infer_param_type":""}}}})";
  // 31 x 127 floats, and two bytes.
  const std::string weight(21000, 'A');
  const std::string layer =
      R"(,"in_channels":127,"out_channels":31,"kernel_x":1,"kernel_y":1,"stride_x":1,"stride_y":1,)"
      R"("dilation_x":1,"dilation_y":1,"groups":1,"bias":"","weight":")" +
      weight + "\"";
  const std::string text = model(repeated_layer("2", layer, 27000), cfgs);
  EXPECT_TRUE(loads(text, ".json"));
  expect_cheap_json(text, "weights");
}

TEST(HostileJson, LayersWithThousandsOfConvertersAreCheap) {
  const std::string kernel =
      R"({"kernel_type":"Straight_Through_Fallback_M1","infer_param_type":""})";
  const std::string cfgs =
      R"("squential_ids":["n"],"n":{"cpu_sse":{"summary":"","squential_ids":["a"],"a":{"summary":"",)"
      R"("input_converters":{"kernel_ids":[)" +
      repeated("\"0\"", 20000) + R"(],"0":)" + kernel +
      R"(},"kernel":{"kernel_type":"Input_Fallback_M1","infer_param_type":""}}}})";
  const std::string text = model(repeated_layer("0", "", 25000), cfgs);
  expect_cheap_json(text, "converters");

  const fuzz::Library& library = fuzz::Library::get();
  runtime::QRTModel tree;
  tree.FromJsonString(text.c_str());
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 16);
  EXPECT_THAT(error_of([&] {
                runtime::CreateNet(tree.model_arr->infos["n"], tree.config_arr->cfgs["n"]->cpu_sse,
                                   library.kernels, context);
              }),
              ::testing::HasSubstr("the network has more than 65536 kernels"));
}

TEST(HostileJson, LayersWithThousandsOfInputsAreCheap) {
  const std::string cfgs =
      R"("squential_ids":["n"],"n":{"cpu_sse":{"summary":"","squential_ids":["a"],"a":{"summary":"",)"
      R"("kernel":{"kernel_type":"Input_Fallback_M1","infer_param_type":""}}}})";
  expect_cheap_json(
      model(repeated_layer("0", ",\"input_ids\":[" + repeated("\"x\"", 20000) + "]", 25000), cfgs),
      "inputs");
}

TEST(HostileJson, DeepNestingIsCheap) {
  expect_cheap_json(std::string(kMaxBytes, '['), "brackets");
  expect_cheap_json("{\"a\":" + std::string(30000, '[') + std::string(30000, ']') + "}", "closed");
  std::string objects;
  while (objects.size() < 60000) objects += "{\"a\":";
  expect_cheap_json(objects, "objects");
}

TEST(HostileJson, LongNumbersAndTextsAreCheap) {
  expect_cheap_json("{\"serialization_protocol_version\":" + std::string(60000, '9') + "}",
                    "digits");
  expect_cheap_json("{\"sdk_type\":\"" + std::string(60000, 'x') + "\"}", "text");
  expect_cheap_json("{\"sdk_type\":\"s\",\"core_major_ver\":0." + std::string(60000, '1') + "}",
                    "fraction");
}

TEST(HostileBinary, ANetworkListedAgainAndAgainIsCheap) {
  // The last of many networks of one id holds layers with weights; the earlier ones are empty.
  const std::string weights(2 * 8000, '\0');
  const std::string id = counted("n");
  const std::string empty = counted("") + le(0, 8) + counted("") + std::string(28, '\0') +
                            counted("") + std::string(24, '\0') + counted("") + counted("") +
                            le(0, 8) + le(0, 8);
  const std::string head = counted("") + le(2, 2) + counted("a") + le(0, 8) + le(0, 2);
  const auto numbers = [](std::initializer_list<uint16_t> values) {
    std::string bytes;
    for (const uint16_t value : values) bytes += le(value, 2);
    return bytes;
  };
  const std::string body = numbers({100, 80, 1, 1, 0, 0, 0, 0, 1, 1, 1, 1, 1}) + le(0, 1);
  std::string ids, codes, layers;
  size_t count = 0;
  for (; layers.size() < weights.size() + 15000; ++count) {
    ids += counted("a");
    codes += le(2, 2);
    layers += head + body + (count == 0 ? le(8000, 8) + weights : le(0, 8)) + le(0, 8);
  }
  const size_t networks = 90;
  std::string arr = counted("") + le(networks, 8);
  for (size_t i = 0; i < networks; ++i) arr += id;
  for (size_t i = 1; i < networks; ++i) arr += empty;
  arr += counted("") + le(0, 8) + empty.substr(16, empty.size() - 32) + le(count, 8) + ids +
         le(count, 8) + codes + layers;
  const std::string kernel =
      counted("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1") + counted("");
  const std::string cfg = counted("") + le(1, 8) + counted("a") + counted("") + le(0, 8) + kernel +
                          le(0, 8) + std::string(7 * 16, '\0');
  const std::string file =
      binary_file(counted("s") + numbers({1, 0, 0, 0}) + arr + le(1, 8) + id + cfg);
  EXPECT_TRUE(loads(file, ".qrtmodel"));
  expect_cheap(fuzz::read_qrtmodel, file, kBinaryReads, "networks");
}

TEST(HostileBinary, CountsOfAllBitsAreCheap) {
  for (const uint64_t count : {~uint64_t{0}, uint64_t{1} << 62, uint64_t{1} << 31}) {
    for (const Target target : {fuzz::read_qrtmodel, fuzz::read_qrmod, fuzz::read_qrcfg}) {
      std::string file = le(20015, 4);
      while (file.size() < 60000) file += le(count, 8);
      expect_cheap(target, file, kBinaryReads, "counts");
    }
  }
}

struct Harness {
  const char* name;
  Target target;
};

class KeptInputs : public ::testing::TestWithParam<Harness> {};

TEST_P(KeptInputs, AreAllDoneInTimeAndMemory) {
  const Harness harness = GetParam();
  const std::filesystem::path folder =
      std::filesystem::path(test::source_path("fuzz/corpus")) / harness.name;
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    expect_cheap(harness.target, contents(entry.path().string()), kJsonReads,
                 entry.path().string());
    ++count;
  }
  EXPECT_GT(count, 0u);
}

INSTANTIATE_TEST_SUITE_P(AllHarnesses, KeptInputs,
                         ::testing::Values(Harness{"json_fuzz", fuzz::read_json},
                                           Harness{"qrtmodel_fuzz", fuzz::read_qrtmodel},
                                           Harness{"qrmod_fuzz", fuzz::read_qrmod},
                                           Harness{"qrcfg_fuzz", fuzz::read_qrcfg},
                                           Harness{"legacy_fuzz", fuzz::read_legacy}),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace marlo::test

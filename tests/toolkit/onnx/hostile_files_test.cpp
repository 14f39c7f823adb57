#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <random>

#include "hostile_graphs.h"
#include "model_text.h"
#include "qrt_toolkit/import_onnx.h"
#include "tests/support/temporary_folder.h"

// Damaged files are refused in words, whatever is damaged: by an ImportError, and by nothing else.

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;

std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Imports bytes as a file. @return whether they make a network
bool imports(const TemporaryFolder& folder, const std::string& bytes) {
  const std::string path = folder.file("damaged.onnx");
  std::ofstream(path, std::ios::binary) << bytes;
  ImportOptions options;
  options.kernels = KernelSet::portable;
  try {
    import_onnx(path, options);
    return true;
  } catch (const ImportError& error) {
    EXPECT_FALSE(std::string(error.what()).empty());
    return false;
  }
}

/// One of the changes that damage does: other bits, numbers that are small, large or negative, parts
/// that are missing or there twice.
std::string damaged(std::string bytes, std::mt19937& random) {
  const auto below = [&](size_t count) { return random() % count; };
  for (size_t changes = 1 + below(3); changes > 0 && !bytes.empty(); --changes) {
    const size_t place = below(bytes.size());
    const size_t length = std::min<size_t>(bytes.size() - place, 1 + below(12));
    switch (below(5)) {
      case 0:
        bytes[place] = static_cast<char>(random());
        break;
      case 1:
        bytes[place] = static_cast<char>(static_cast<unsigned char>(bytes[place]) ^ 1u << below(8));
        break;
      case 2:
        bytes.replace(place, length, length, below(2) == 0 ? '\xff' : '\0');
        break;
      case 3:
        bytes.insert(place, bytes.substr(place, length));
        break;
      default:
        bytes.erase(place, length);
    }
  }
  return bytes;
}

TEST(HostileFiles, GraphsToDamageAreSound) {
  const TemporaryFolder folder;
  for (const char* graph : kGraphsToDamage) {
    const std::string path = folder.file("sound.onnx");
    write_model(path, graph);
    EXPECT_TRUE(imports(folder, bytes_of(path)) ||
                std::string(graph).find("[n,2,h,w]") != std::string::npos)
        << graph;
  }
}

TEST(HostileFiles, DamageIsRefusedInWords) {
  const TemporaryFolder folder;
  std::mt19937 random(5);
  constexpr int kOfEach = 60;
  for (const char* graph : kGraphsToDamage) {
    const std::string path = folder.file("sound.onnx");
    write_model(path, graph);
    const std::string sound = bytes_of(path);
    for (int i = 0; i < kOfEach; ++i) {
      const std::string bytes = damaged(sound, random);
      const auto start = std::chrono::steady_clock::now();
      imports(folder, bytes);
      const auto took = std::chrono::steady_clock::now() - start;
      EXPECT_LT(took, std::chrono::seconds(10)) << graph << " with damage " << i;
    }
  }
}

TEST(HostileFiles, ConstantsThatASmallFileAsksForStayUncomputed) {
  const TemporaryFolder folder;
  // 8 GiB of zeros, of which one is read.
  write_model(folder.file("net.onnx"), R"(g (float[1] x) => (float[1] y)
      <int64[2] shape = {16000, 16000}, int64[1] zero = {0}, int64[1] one = {1}, int64[2] both = {0, 1}> {
    large = ConstantOfShape(shape)
    sum = ReduceSum<keepdims=0>(large)
    y = Add(x, sum)
  })");
  ImportOptions options;
  options.kernels = KernelSet::portable;
  EXPECT_THROW(import_onnx(folder.file("net.onnx"), options), UnsupportedError);
}

}  // namespace
}  // namespace marlo::toolkit::test

// Names what a picture shows: classify MODEL PICTURE LABELS
//
// The model must have one input, as large as the picture, and one value per label.

#include <qrt_core/qrt_core.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <numeric>

#define STB_IMAGE_IMPLEMENTATION
#include <stb_image.h>

static int classify(const char* model, const char* picture, const char* label_file) {
  std::vector<std::string> labels;
  std::ifstream lines(label_file);
  for (std::string line; std::getline(lines, line);) labels.push_back(line);

  int width = 0, height = 0, channels = 0;
  stbi_uc* grey = stbi_load(picture, &width, &height, &channels, 1);
  if (grey == nullptr) return std::fprintf(stderr, "%s: can't be read\n", picture), 1;
  std::vector<float> pixels(grey, grey + width * height);
  for (float& pixel : pixels) pixel /= 255.0f;
  stbi_image_free(grey);

  marlo::utility::Model network(model);
  const auto size_h = static_cast<unsigned int>(height), size_w = static_cast<unsigned int>(width);
  const auto& wanted = network.at(0).header();
  if (wanted.model_base_h != 0 &&
      (wanted.model_base_h != size_h || wanted.model_base_w != size_w)) {
    return std::fprintf(stderr, "%s: %u x %u pixels, the model reads %u x %u\n", picture, size_w,
                        size_h, wanted.model_base_w, wanted.model_base_h),
           1;
  }
  const auto results = network.run({{1, size_h, size_w}, pixels});
  const auto logits = results[0].elements();
  if (labels.size() != logits.size()) {
    return std::fprintf(stderr, "%s: %zu labels for %zu outputs\n", label_file, labels.size(),
                        logits.size()),
           1;
  }

  std::vector<size_t> order(labels.size());
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return logits[a] > logits[b]; });
  double sum = 0;
  for (size_t i : order) sum += std::exp(logits[i] - logits[order[0]]);
  for (size_t i = 0; i < 3 && i < order.size(); ++i) {
    std::printf("%6.2f %%  %s\n", 100 * std::exp(logits[order[i]] - logits[order[0]]) / sum,
                labels[order[i]].c_str());
  }
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 4) return std::fprintf(stderr, "usage: classify MODEL PICTURE LABELS\n"), 2;
  try {
    return classify(argv[1], argv[2], argv[3]);
  } catch (const std::exception& failure) {
    return std::fprintf(stderr, "%s\n", marlo::utility::story(failure).c_str()), 1;
  }
}

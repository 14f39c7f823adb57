#include <string>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "qrt_core/utility/check_model_internal.h"

namespace marlo::utility {
namespace {

using runtime::WeightBlob;

/// What a text of numbers holds.
struct Numbers {
  bool is_base64 = true;
  uint64_t bytes = 0;
};

bool is_base64_digit(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

Numbers numbers_of(const WeightBlob& text) {
  size_t digits = text.size();
  while (digits != 0 && text.size() - digits < 2 && text[digits - 1] == '=') --digits;
  Numbers numbers;
  for (size_t i = 0; i < digits && numbers.is_base64; ++i) {
    numbers.is_base64 = is_base64_digit(text[i]);
  }
  numbers.is_base64 = numbers.is_base64 && text.size() % 4 == 0;
  numbers.bytes = digits * 3 / 4;
  return numbers;
}

std::string count_text(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " number" : " numbers");
}

/// The checks of one layer's texts.
class WeightCheck {
 public:
  WeightCheck(const FindingList::Place& place, FindingList& findings)
      : place_(place), findings_(findings) {}

  /// @param shape how the count comes about: "out_channels x ..."
  void weight(const std::string& key, const WeightBlob& text, uint64_t expected,
              const std::string& shape) {
    const Numbers numbers = numbers_of(text);
    if (!numbers.is_base64) {
      add(key, "Base64 text of float32 numbers", "another text",
          "write the numbers' bytes, little-endian, as Base64");
      return;
    }
    if (numbers.bytes == expected * sizeof(float)) return;
    const bool is_whole = numbers.bytes % sizeof(float) == 0;
    const uint64_t found = numbers.bytes / sizeof(float);
    add(key, count_text(expected) + " (" + shape + ")",
        is_whole ? count_text(found) : std::to_string(numbers.bytes) + " bytes",
        !is_whole          ? "float32 numbers have 4 bytes each"
        : found > expected ? "numbers are left over: the sizes don't belong to them"
                           : "numbers are missing: the sizes don't belong to them");
  }

  void bias(const std::string& key, const WeightBlob& text, bool is_on, uint64_t expected,
            const std::string& shape) {
    if (is_on && text.empty()) {
      findings_.add(place_, FindingCode::missing_bias, Severity::error, key,
                    count_text(expected) + " (" + shape + ")", "none",
                    "write them, or set \"if_bias\" to false");
    } else if (!is_on && !text.empty()) {
      findings_.add(place_, FindingCode::unused_bias, Severity::error, "if_bias",
                    "true, as \"" + key + "\" holds numbers", "false",
                    "set \"if_bias\" to true, or empty \"" + key + "\"");
    } else if (is_on) {
      weight(key, text, expected, shape);
    }
  }

  void lists(const std::string& key, const std::vector<WeightBlob>& texts, size_t expected) {
    if (texts.size() == expected) return;
    add(key, std::to_string(expected) + " texts, one per layer of \"num_layers\"",
        std::to_string(texts.size()),
        "\"num_layers\" and \"bidirectional\" must be those of the weights");
  }

  // @return whether the groups divide the channels
  bool groups(uint64_t in, uint64_t out, uint64_t count) {
    if (count != 0 && in % count == 0 && out % count == 0) return true;
    findings_.add(place_, FindingCode::wrong_weights, Severity::error, "groups",
                  "a divisor of in_channels " + std::to_string(in) + " and out_channels " +
                      std::to_string(out),
                  std::to_string(count), "");
    return false;
  }

 private:
  void add(const std::string& key, const std::string& expected, const std::string& found,
           const std::string& change) {
    findings_.add(place_, FindingCode::wrong_weights, Severity::error, key, expected, found,
                  change);
  }

  const FindingList::Place& place_;
  FindingList& findings_;
};

template <typename Info>
void check_convolution(const Info& info, uint64_t rows, uint64_t columns, const char* shape,
                       uint64_t window, WeightCheck& check) {
  if (!check.groups(info.in_channels, info.out_channels, info.groups)) return;
  check.weight("weight", info.weight, rows * (columns / info.groups) * window, shape);
  check.bias("bias", info.bias, info.if_bias, info.out_channels, "out_channels");
}

void check_cell(const runtime::RecurrentInfo& info, const runtime::RecurrentCellWeights& cell,
                uint64_t gates, WeightCheck& check) {
  const uint64_t rows = gates * info.hidden_size;
  const std::string times = std::to_string(gates) + " x hidden_size";
  check.weight("weight_ih", cell.weight_ih, rows * info.in_size, times + " x in_size");
  check.weight("weight_hh", cell.weight_hh, rows * info.hidden_size, times + " x hidden_size");
  check.bias("bias_ih", cell.bias_ih, info.if_bias, rows, times);
  check.bias("bias_hh", cell.bias_hh, info.if_bias, rows, times);
}

/// The lists of one direction of a recurrent layer.
struct Direction {
  const char* name;
  const std::vector<WeightBlob>& weight_ih;
  const std::vector<WeightBlob>& weight_hh;
  const std::vector<WeightBlob>& bias_ih;
  const std::vector<WeightBlob>& bias_hh;
};

void check_direction(const runtime::RecurrentInfo& info, const Direction& direction, bool exists,
                     size_t layers, uint64_t directions, uint64_t gates, WeightCheck& check) {
  const std::string suffix = std::string("_") + direction.name;
  const size_t expected = exists ? layers : 0;
  check.lists("weight_ih" + suffix, direction.weight_ih, expected);
  check.lists("weight_hh" + suffix, direction.weight_hh, expected);
  const uint64_t rows = gates * info.hidden_size;
  const std::string times = std::to_string(gates) + " x hidden_size";
  const auto key = [&](const char* name, size_t i) {
    return name + suffix + "[" + std::to_string(i) + "]";
  };
  for (size_t i = 0; i < direction.weight_ih.size() && i < expected; ++i) {
    const uint64_t columns = i == 0 ? info.in_size : info.hidden_size * directions;
    check.weight(key("weight_ih", i), direction.weight_ih[i], rows * columns,
                 times + (i == 0 ? " x in_size" : " x the outputs of the layer before"));
  }
  for (size_t i = 0; i < direction.weight_hh.size() && i < expected; ++i) {
    check.weight(key("weight_hh", i), direction.weight_hh[i], rows * info.hidden_size,
                 times + " x hidden_size");
  }
  const auto biases = [&](const char* name, const std::vector<WeightBlob>& texts) {
    if (exists && info.if_bias) check.lists(name + suffix, texts, expected);
    for (size_t i = 0; i < texts.size(); ++i) {
      check.bias(key(name, i), texts[i], exists && info.if_bias, rows, times);
    }
  };
  biases("bias_ih", direction.bias_ih);
  biases("bias_hh", direction.bias_hh);
}

void check_sequence(const runtime::RecurrentInfo& info,
                    const runtime::RecurrentSequenceWeights& sequence, uint64_t gates,
                    WeightCheck& check) {
  const uint64_t directions = sequence.bidirectional ? 2 : 1;
  const size_t layers = sequence.num_layers;
  check_direction(info,
                  {"forward", sequence.weight_ih_forward, sequence.weight_hh_forward,
                   sequence.bias_ih_forward, sequence.bias_hh_forward},
                  true, layers, directions, gates, check);
  check_direction(info,
                  {"reverse", sequence.weight_ih_reverse, sequence.weight_hh_reverse,
                   sequence.bias_ih_reverse, sequence.bias_hh_reverse},
                  sequence.bidirectional, layers, directions, gates, check);
}

template <typename Cell, typename... Sequence>
bool check_recurrent(const runtime::LayerInfo& info, uint64_t gates, WeightCheck& check) {
  if (const auto* cell = dynamic_cast<const Cell*>(&info)) {
    check_cell(*cell, *cell, gates, check);
    return true;
  }
  const auto check_one = [&](const auto* sequence) {
    if (sequence == nullptr) return false;
    check_sequence(*sequence, *sequence, gates, check);
    return true;
  };
  return (check_one(dynamic_cast<const Sequence*>(&info)) || ...);
}

}  // namespace

void check_weights(runtime::LayerInfo& info, const FindingList::Place& place,
                   FindingList& findings) {
  WeightCheck check(place, findings);
  if (const auto* conv = dynamic_cast<const runtime::Conv2dInfo*>(&info)) {
    check_convolution(*conv, conv->out_channels, conv->in_channels,
                      "out_channels x in_channels / groups x kernel_y x kernel_x",
                      uint64_t{conv->kernel_x} * conv->kernel_y, check);
  } else if (const auto* spread = dynamic_cast<const runtime::ConvTranspose2dInfo*>(&info)) {
    check_convolution(*spread, spread->in_channels, spread->out_channels,
                      "in_channels x out_channels / groups x kernel_y x kernel_x",
                      uint64_t{spread->kernel_x} * spread->kernel_y, check);
  } else if (const auto* line = dynamic_cast<const runtime::Conv1dInfo*>(&info)) {
    check_convolution(*line, line->out_channels, line->in_channels,
                      "out_channels x in_channels / groups x kernel_size", line->kernel_size,
                      check);
  } else if (const auto* full = dynamic_cast<const runtime::FullConnectionInfo*>(&info)) {
    check.weight("weight", full->weight, uint64_t{full->in_features} * full->out_features,
                 "out_features x in_features");
    check.bias("bias", full->bias, full->if_bias, full->out_features, "out_features");
  } else if (const auto* slopes = dynamic_cast<const runtime::ActivationInfo*>(&info)) {
    if (!slopes->weight.empty() && slopes->num_parameters >= 0) {
      check.weight("weight", slopes->weight, static_cast<uint64_t>(slopes->num_parameters),
                   "num_parameters");
    }
  } else if (!check_recurrent<runtime::RNNCellInfo, runtime::RNNInfo, runtime::RNNStatesInfo>(
                 info, 1, check) &&
             !check_recurrent<runtime::GRUCellInfo, runtime::GRUInfo, runtime::GRUStatesInfo>(
                 info, 3, check)) {
    check_recurrent<runtime::LSTMCellInfo, runtime::LSTMInfo, runtime::LSTMStatesInfo>(info, 4,
                                                                                       check);
  }
}

}  // namespace marlo::utility

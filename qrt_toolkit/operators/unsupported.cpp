#include "qrt_toolkit/operators/unsupported.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace marlo::toolkit {
namespace {

constexpr const char* kWholeNumbers =
    "it computes with quantised numbers; layers of this library compute in float32";
constexpr const char* kFloatNetwork =
    "import the network as it was before it was quantised, or quantise its weights only: "
    "DequantizeLinear of constants becomes float weights";

/// What is said of a kind of operators.
struct Kind {
  std::string_view begin;  ///< of their names
  const char* why;
  const char* help;
};

constexpr const char* kEndBefore = "end the network before it with --output";

constexpr const char* kNoLoops = "a pass runs every layer once: there are no loops";
constexpr const char* kNoLists = "a layer makes one tensor: there are no sequences of tensors";
constexpr const char* kWithoutLists =
    "export the network without lists of tensors, or end it before them with --output";
constexpr const char* kOpenCount = "how much it makes depends on numbers that aren't known";
constexpr const char* kNotRandom = "a network makes the same of the same inputs: nothing is random";
constexpr const char* kInEvaluation =
    "export the network in evaluation mode, or with the random numbers as an input";

constexpr Kind kKinds[] = {
    {"QuantizeLinear", kWholeNumbers, kFloatNetwork},
    {"DequantizeLinear", kWholeNumbers, kFloatNetwork},
    {"DynamicQuantize", kWholeNumbers, kFloatNetwork},
    {"QLinear", kWholeNumbers, kFloatNetwork},
    {"ConvInteger", kWholeNumbers, kFloatNetwork},
    {"MatMulInteger", kWholeNumbers, kFloatNetwork},
    {"Loop", kNoLoops,
     "export the network with its loops unrolled, or end it before them with --output"},
    {"Scan", kNoLoops, "export recurrences as LSTM, GRU or RNN, or unrolled"},
    {"Sequence", kNoLists, kWithoutLists},
    {"SplitToSequence", kNoLists, kWithoutLists},
    {"ConcatFromSequence", kNoLists, kWithoutLists},
    {"NonMaxSuppression", "how many boxes it makes depends on numbers that aren't known",
     kEndBefore},
    {"Unique", kOpenCount, kEndBefore},
    {"Compress", kOpenCount, kEndBefore},
    {"NonZero", kOpenCount, kEndBefore},
    {"Random", kNotRandom, kInEvaluation},
    {"Bernoulli", kNotRandom, kInEvaluation},
};

constexpr std::string_view kContributed = "com.microsoft.";

/// What quantised operators outside of ONNX's own are called.
constexpr std::string_view kQuantised[] = {"Quant", "QLinear", "Integer", "NBits", "QAttention",
                                           "QGemm", "QEmbed",  "QMoE",    "Bnb4"};

}  // namespace

NodeFault unsupported(const Node& node) {
  const std::string_view op = node.op;
  for (const Kind& kind : kKinds) {
    if (op.substr(0, kind.begin.size()) == kind.begin) return {"", kind.why, kind.help};
  }
  if (op.find('.') == std::string_view::npos) {
    return {"", "no layers of this library compute the operator", kEndBefore};
  }
  const bool quantised =
      std::any_of(std::begin(kQuantised), std::end(kQuantised),
                  [&](std::string_view part) { return op.find(part) != std::string_view::npos; });
  if (quantised) return {"", kWholeNumbers, kFloatNetwork};
  if (op.substr(0, kContributed.size()) == kContributed) {
    return {"", "it is no operator of ONNX: an optimiser of one runtime put it there",
            "import the network as it was before that, in operators of ONNX"};
  }
  return {"", "it is no operator of ONNX, and the model doesn't bring its definition along",
          "export the network in operators of ONNX, or with a function that defines it"};
}

}  // namespace marlo::toolkit

#include "tests/support/kernel_catalogue.h"

#include <algorithm>
#include <set>
#include <vector>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/kernels.h"
#include "tests/support/extension_facts.h"
#include "tests/support/kernel_remarks.h"
#include "tests/support/kernels.h"

namespace marlo::test {

using runtime::LayoutType;

namespace {

// Classes of agreement; the document explains them.
constexpr char kMoves[] = "moves";
constexpr char kDefines[] = "defines";
constexpr char kSameBits[] = "same bits";
constexpr char kFreeOrder[] = "free order";

using Table = std::map<std::string, KernelFacts>;

std::string layout_name(LayoutType layout) {
  switch (layout) {
    case LayoutType::C:
      return "C";
    case LayoutType::BC:
      return "BC";
    case LayoutType::CL:
      return "CL";
    case LayoutType::SC:
      return "SC";
    default:
      return PrintedName(layout);
  }
}

bool is_portable(const std::string& name) { return name.find("_Fallback") != std::string::npos; }

std::string portable_defines(const std::string& name, const char* otherwise) {
  return is_portable(name) ? kDefines : otherwise;
}

KernelFacts in_one_layout(std::string accepts, LayoutType layout, std::string agreement) {
  const std::string name = layout_name(layout);
  return {std::move(accepts), name, name, "", std::move(agreement)};
}

KernelFacts facts_of(const kernel::ActivationRow& row) {
  using Reads = kernel::ActivationParameters;
  KernelFacts facts{"", "any", "any", "", portable_defines(row.name, kSameBits)};
  facts.accepts =
      row.check == kernel::ActivationCheck::nothing ? "any description" : "an activation";
  if (row.parameters == Reads::alpha) facts.accepts += "; reads alpha";
  if (row.parameters == Reads::alpha_and_beta) facts.accepts += "; reads alpha and beta";
  if (row.parameters == Reads::slope) facts.accepts += "; reads one slope";
  if (row.output == kernel::ActivationOutput::input_tensor) facts.difference = "writes in place";
  return facts;
}

KernelFacts facts_of(const kernel::PassThroughRow&) {
  return {"any description", "any", "any", "hands its inputs on", kMoves};
}

KernelFacts facts_of(const kernel::FullConnectionRow& row) {
  KernelFacts facts;
  facts.accepts = "no features";
  if (row.accepts(24, 24)) facts.accepts = "features in blocks of 8";
  if (row.accepts(12, 12)) facts.accepts = "features in blocks of 4";
  if (row.accepts(5, 5)) facts.accepts = "any features";
  if (row.accepts(24, 24) && !row.accepts(24, 48)) facts.accepts += ", as many out as in";
  facts.input = row.takes_any_layout ? "any" : layout_name(row.layout);
  facts.output = layout_name(row.layout);
  facts.agreement = portable_defines(row.name, kFreeOrder);
  return facts;
}

KernelFacts facts_of(const kernel::ElementwiseRow& row) {
  std::string accepts = "all four operators";
  if (row.word != nullptr) accepts = row.word;
  const bool overwrites = row.input_use == runtime::InputUse::overwrites;
  return {accepts, "any", "any", overwrites ? "writes in place" : "",
          portable_defines(row.name, kSameBits)};
}

// Rows of this and other kinds exist only with the vector kernels.
[[maybe_unused]] KernelFacts facts_of(const kernel::ChannelMultiplyRow& row) {
  return in_one_layout("any operator", row.layout, kSameBits);
}

KernelFacts facts_of(const kernel::BroadcastRow&) {
  return {"all four operators", "any", "any", "", kDefines};
}

KernelFacts facts_of(const kernel::ReductionRow&) {
  return {"sum or mean over any axes", "any", "any", "", kDefines};
}

KernelFacts facts_of(const kernel::PoolingRow& row) {
  std::string accepts = "any window and stride";
  if (row.kernel != 0) {
    accepts = std::to_string(row.kernel) + "x" + std::to_string(row.kernel) + ", stride " +
              std::to_string(row.stride);
  }
  const bool average = row.kind == kernel::PoolingKind::average;
  KernelFacts facts = in_one_layout(accepts, row.layout,
                                    portable_defines(row.name, average ? kFreeOrder : kSameBits));
  if (row.kernel != 0) {
    facts.difference = average ? "divides by the window, padding or not" : "pads with zeros";
  }
  return facts;
}

KernelFacts facts_of(const kernel::AdaptivePoolingRow& row) {
  return in_one_layout("any output size", row.layout, portable_defines(row.name, kFreeOrder));
}

KernelFacts facts_of(const kernel::UpsamplingRow& row) {
  using Modes = kernel::UpsamplingModes;
  using Factors = kernel::UpsamplingFactors;
  using Method = kernel::UpsamplingMethod;
  std::string accepts = row.modes == Modes::both      ? "nearest or bilinear"
                        : row.modes == Modes::nearest ? "nearest"
                                                      : "bilinear";
  if (row.factors == Factors::at_least_one) accepts += ", factors of at least 1";
  if (row.factors == Factors::not_negative) accepts += ", factors of at least 0";
  if (row.channel_multiple > 1) {
    accepts += ", channels in blocks of " + std::to_string(row.channel_multiple);
  }
  KernelFacts facts = in_one_layout(accepts, row.layout, portable_defines(row.name, kSameBits));
  if (row.method == Method::doubling) {
    facts.difference = "a factor of 4 is two of 2, rounded in between";
    facts.agreement = "same bits but for factors of 4";
  }
  if (row.method == Method::by_sizes) {
    facts.difference =
        "positions from the sizes; the output size truncates; extrapolates "
        "before the first pixel";
    facts.agreement = kDefines;
  }
  return facts;
}

KernelFacts facts_of(const kernel::SoftmaxRow&) {
  return {"any axis", "any", "any", "doesn't subtract the maximum", kDefines};
}

KernelFacts facts_of(const kernel::GridSampleRow&) {
  return in_one_layout("nearest or bilinear", LayoutType::CHW, kDefines);
}

[[maybe_unused]] KernelFacts facts_of(const kernel::LayoutTransformRow& row) {
  return {"no description: a converter", layout_name(row.source.layout),
          layout_name(row.target.layout), "", kMoves};
}

KernelFacts facts_of(const kernel::ReshapeRow& row) {
  const bool copies = row.input_use == runtime::InputUse::reads;
  return {"a reshape", "any", layout_name(row.layout),
          copies ? "copies bytes as they stand" : "gives its input the dims", kMoves};
}

KernelFacts facts_of(const kernel::RankedReshapeRow& row) {
  const bool gathers = row.source != kernel::ReshapeSource::anything;
  return {"a reshape to " + std::to_string(row.rank) + (row.rank == 1 ? " dim" : " dims"),
          gathers ? "CHW, C4HW4, C8HW8" : "any", layout_name(row.layout),
          gathers ? "gathers blocks into planes" : "copies bytes as they stand", kMoves};
}

KernelFacts facts_of(const kernel::PermuteRow&) {
  return {"any axes", "any", "FLEXIABLE", "", kMoves};
}

KernelFacts facts_of(const kernel::UnSqueezeRow&) { return {"any axis", "any", "any", "", kMoves}; }

KernelFacts facts_of(const kernel::ChannelConcatenateRow&) {
  return {"the channel axis", "CHW, C4HW4, C8HW8", "the same", "", kMoves};
}

KernelFacts facts_of(const kernel::AxisConcatenateRow&) {
  return {"any axis", "any", "that of input 0", "", kMoves};
}

KernelFacts facts_of(const kernel::SliceRow&) {
  return in_one_layout("three triples", LayoutType::CHW, kMoves);
}

KernelFacts facts_of(const kernel::ExpandRow& row) {
  return in_one_layout("one pixel to a plane", row.layout, kMoves);
}

KernelFacts facts_of(const kernel::PlaceholderRow&) {
  return {"declared shapes", "any", "as declared", "", kMoves};
}

KernelFacts facts_of(const kernel::PixelShuffleRow& row) {
  std::string accepts = "any factor";
  if (row.factor == 2.0f) accepts = "factor 2";
  if (row.factor == 0.5f) accepts = "factor 0.5";
  return in_one_layout(accepts, row.layout, kMoves);
}

KernelFacts facts_of_recurrent(const kernel::recurrent::Network& network, const std::string& name,
                               const std::string& accepts) {
  KernelFacts facts{accepts, "", "", "", portable_defines(name, kFreeOrder)};
  if (network.has_activation) facts.accepts += ", rectifier or tanh";
  if (name.find("SGEMM") != std::string::npos) facts.difference = "products of a BLAS";
  if (name.find("SSE_SGEMM") != std::string::npos) facts.difference += ", SSE between them";
  return facts;
}

KernelFacts facts_of(const kernel::RecurrentCellRow& row) {
  KernelFacts facts = facts_of_recurrent(row.network, row.name, "one step");
  facts.input = facts.output = "C";
  return facts;
}

KernelFacts facts_of(const kernel::RecurrentSequenceRow& row) {
  KernelFacts facts =
      facts_of_recurrent(row.network, row.name, "any layers, one or two directions");
  facts.input = "any";
  facts.output = "SC";
  return facts;
}

template <typename Geometry>
KernelFacts facts_of(const kernel::ConvolutionRow<Geometry>& row) {
  const bool overwrites = row.input_use == runtime::InputUse::overwrites;
  return {kernel::words_for(row.accepts, Geometry::kDims == 2), layout_name(row.input.layout),
          layout_name(row.output.layout), overwrites ? "writes in place" : "",
          portable_defines(row.name, kFreeOrder)};
}

[[maybe_unused]] KernelFacts facts_of(const kernel::Int16ConvolutionRow& row) {
  return in_one_layout(kernel::words_for(row.accepts) + "; both step sizes", LayoutType::C8HW8,
                       "its own fixed-point definition, to the bit");
}

Table facts_of_rows() {
  Table table;
  const auto add = [&](const auto& row) {
    KernelFacts facts = facts_of(row);
    if (row.needs != runtime::InstructionSet::baseline) {
      facts.needs = runtime::PrintedName(row.needs);
    }
    if (row.epilogue != kernel::Epilogue::none) {
      const std::string besides = facts.difference.empty() ? "" : "; " + facts.difference;
      facts.difference = std::string("then ") + name_of(row.epilogue) + besides;
    }
    table[row.name] = std::move(facts);
  };
  kernel::for_each_row(add);
  kernel::for_each_extension_row(add);
  return table;
}

std::string family_of(const std::string& name) { return name.substr(0, name.find('_')); }

constexpr char kIntroduction[] = R"(# Kernel catalogue

Every kernel that a full build registers: what of a description it accepts, its layouts, the instructions it needs
beside SSE2, what sets it apart from its siblings, and how its results agree with the portable kernel for the same layer. `./dev catalogue` writes this
page from the kernels' rows; a test compares the two.

| agreement | meaning |
|---|---|
| defines | portable, or the only kernel of its kind: its results are what the others are measured by |
| moves | values are moved unchanged |
| same bits | equal to the portable kernel in every bit |
| free order | the order of a sum is the kernel's own, with or without fused multiply-adds: off by at most n eps S from the exact value, n the number of terms, S the sum of their magnitudes, eps 2^-23 |

Other texts in that column state an error of their own. [numerics.md](numerics.md) tells more.
)";

constexpr char kExtensionIntroduction[] = R"(# Kernel catalogue of the second set

The kernels that `init_register_extension_operators` enters, in the columns of [kernel-catalogue.md](kernel-catalogue.md),
which explains the agreements. `./dev catalogue` writes this page from the kernels' rows; a test compares the two.

A name such as `..._FLOAT_ReLU_M1` says that the kernel applies an activation to its results before it stores them. The
activation's own layer is then configured as `Straight_Through_Fallback_M1`, and must be the only layer that reads the results.
The agreement is that of the sums. What an activation makes of them is off by as much times its steepest slope, 1.5 for HSwish,
1.1 for SiLU and at most 1 for the others, and where it is no rectifier by 8 eps of the larger of 1 and the sum besides. Rectifiers make
a NaN 0. Exponentials are polynomials, of sums between -87 and 88.

For the kernels by minimal filtering, Winograd's, S is the sum over the input channels of the largest weight times the largest input. Their
filters are transformed when the layer is configured and take 4 times the memory of the weights in tiles of 4x4, and 7.1 times in
tiles of 6x6.
)";

// The page of the kernels of `table`, which it names family by family.
std::string page_of(std::string text, const Table& table) {
  std::string family;
  for (const auto& [name, facts] : table) {
    if (family_of(name) != family) {
      family = family_of(name);
      text += "\n## " + family +
              "\n\n| kernel | accepts | in | out | needs | differs | agreement "
              "|\n|---|---|---|---|---|---|---|\n";
    }
    text += "| `" + name + "` | " + facts.accepts + " | " + facts.input + " | " + facts.output +
            " | " + facts.needs + " | " + facts.difference + " | " + facts.agreement + " |\n";
  }
  return text + "\n" + std::to_string(table.size()) + " kernels.\n";
}

// What `kernel_facts` says of the kernels of one set.
Table facts_of_set(bool is_extension) {
  std::set<std::string> extensions;
  kernel::for_each_extension_row(
      [&](const kernel::KernelRow& row) { extensions.insert(row.name); });
  Table table;
  for (auto& [name, facts] : kernel_facts()) {
    if ((extensions.count(name) != 0) == is_extension) table.emplace(name, facts);
  }
  return table;
}

}  // namespace

Table kernel_facts() {
  Table table = facts_of_rows();
  for (const KernelRemark& remark : kernel_remarks()) {
    const auto found = table.find(remark.name);
    if (found == table.end()) continue;
    KernelFacts& facts = found->second;
    if (!remark.difference.empty()) {
      facts.difference += (facts.difference.empty() ? "" : "; ") + remark.difference;
    }
    if (!remark.agreement.empty()) facts.agreement = remark.agreement;
  }
  return table;
}

std::string stale_remarks() {
  const Table table = facts_of_rows();
  std::string names;
  for (const KernelRemark& remark : kernel_remarks()) {
    if (table.count(remark.name) == 0) names += remark.name + " ";
  }
  return names;
}

std::string kernel_catalogue() { return page_of(kIntroduction, facts_of_set(false)); }

std::string extension_catalogue() { return page_of(kExtensionIntroduction, facts_of_set(true)); }

}  // namespace marlo::test

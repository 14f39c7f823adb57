#pragma once

#include <string>
#include <utility>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/kernel_catalogue.h"

// What the rows of the second set's operators say to the catalogue.

// Part of kernel_catalogue.cpp, beside the facts of the other rows.

namespace marlo::test {
namespace {

#if QRT_WITH_EXTENSIONS

/// Facts of a kernel for tensors in the order of their dims.
template <typename Row>
KernelFacts facts_in_order(const Row& row, std::string accepts) {
  const bool defines = std::string(row.name).find("_Fallback_") != std::string::npos;
  return {std::move(accepts), "any but blocks", "as the input", "",
          defines ? "defines" : "free order"};
}

// Measured over all floats, by the beginning of the name: some are activations and have no number.
constexpr std::pair<const char*, const char*> kMeasuredErrors[] = {
    {"Exp_", "off by at most 0.988 ulp"},
    {"TanH_", "off by at most 1.34 ulp"},
    {"Sigmoid_", "off by at most 2.41 ulp"},
    {"Erf_", "off by at most 1.22 ulp"},
};

KernelFacts facts_of(const kernel::ElementFunctionRow& row) {
  const bool is_plain = row.description == kernel::FunctionDescription::activation;
  KernelFacts facts{is_plain ? "an activation" : "its function", "any", "any", "", "a few ulp"};
  if (row.function == runtime::ElementFunction::Clip) facts.accepts += ", or a clip";
  for (const auto& [beginning, error] : kMeasuredErrors) {
    if (std::string(row.name).starts_with(beginning)) facts.agreement = error;
  }
  if (row.needs == runtime::InstructionSet::baseline) facts.agreement = "defines";
  if (row.input_use != runtime::InputUse::reads) facts.difference = "writes in place";
  return facts;
}

KernelFacts facts_of(const kernel::AxisSoftmaxRow& row) {
  KernelFacts facts = facts_in_order(row, "any axis, its logarithm too");
  if (row.input_use != runtime::InputUse::reads) facts.difference = "writes in place";
  return facts;
}

KernelFacts facts_of(const kernel::LayerNormRow& row) {
  return facts_in_order(row, "from any axis on");
}

KernelFacts facts_of(const kernel::GroupNormRow& row) {
  return facts_in_order(row, "any groups, or an instance normalisation");
}

KernelFacts facts_of(const kernel::MatMulRow& row) {
  return facts_in_order(row, "any batch of matrices");
}

KernelFacts facts_of(const kernel::DenseRow& row) {
  if (!row.is_full_connection) return facts_in_order(row, "vectors along the last axis");
  return {"any features", "any", "C", "", "free order"};
}

KernelFacts facts_of(const kernel::BinaryRow& row) {
  KernelFacts facts =
      facts_in_order(row, row.is_vector ? "functions with a vector form" : "all functions");
  facts.input = "any";
  if (row.is_vector) facts.agreement = "same bits";
  return facts;
}

KernelFacts facts_of(const kernel::AxisReductionRow& row) {
  return facts_in_order(row, row.is_vector ? "any axes, no sums of exponentials" : "any axes");
}

KernelFacts facts_of(const kernel::AxisMapRow& row) {
  KernelFacts facts = facts_in_order(row, std::string("a ") + row.description);
  facts.agreement = "moves";
  return facts;
}

KernelFacts facts_of(const kernel::ConstantRow&) {
  return {"a constant", "none", "as described", "", "moves"};
}

KernelFacts facts_of(const kernel::EmbeddingRow&) {
  return {"a table", "any but blocks", "FLEXIABLE", "", "moves"};
}

KernelFacts facts_of(const kernel::ReshapeToRow& row) {
  const bool copies = row.input_use == runtime::InputUse::reads;
  return {"new dims", "any but blocks", "as described", copies ? "" : "gives its input the dims",
          "moves"};
}

KernelFacts facts_of(const kernel::ResizeRow& row) {
  KernelFacts facts = facts_in_order(row, "nearest, linear or cubic along any axes");
  if (row.takes_blocks) facts.input = "any, blocks whose channels stay";
  if (row.needs != runtime::InstructionSet::baseline) facts.agreement = "same bits";
  return facts;
}

KernelFacts facts_of(const kernel::ResizeLikeRow& row) {
  KernelFacts facts = facts_of(row.resize);
  facts.accepts = "the same, to a second tensor's sizes";
  if (row.needs != runtime::InstructionSet::baseline) facts.agreement = "same bits";
  return facts;
}

template <typename SequenceRow>
KernelFacts facts_of(const kernel::StatedSequenceRow<SequenceRow>& row) {
  KernelFacts facts = facts_in_order(row, "a sequence, and its first states");
  facts.input = "any";
  facts.output = "SC";
  return facts;
}

KernelFacts facts_of(const kernel::WideSequenceRow&) {
  return {"what the portable sequence accepts", "any", "SC", "", "free order"};
}

#endif

}  // namespace
}  // namespace marlo::test

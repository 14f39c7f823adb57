#include "tests/support/differential/operation.h"

#include <algorithm>
#include <set>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/kernels.h"

namespace marlo::test {
namespace {

struct Entry {
  std::unique_ptr<Operation> operation;
  std::vector<std::string> kernels;  // of this processor
};

struct Table {
  std::vector<Entry> entries;
  std::vector<std::string> uncovered;
};

void add(Table& table, std::unique_ptr<Operation> operation, std::vector<std::string>& keys) {
  Entry entry;
  const auto families = operation->families();
  const auto belongs = [&](const std::string& key) {
    return std::find(families.begin(), families.end(), family_of(key)) != families.end();
  };
  for (const std::string& key : keys) {
    if (belongs(key) && why_not_here(key).empty()) entry.kernels.push_back(key);
  }
  keys.erase(std::remove_if(keys.begin(), keys.end(), belongs), keys.end());
  entry.operation = std::move(operation);
  table.entries.push_back(std::move(entry));
}

const Table& table() {
  static const Table table = [] {
    Table all;
    std::vector<std::string> keys = all_kernels().Keys();
    std::sort(keys.begin(), keys.end());
    keys.erase(std::remove_if(keys.begin(), keys.end(), has_own_description), keys.end());
    for (const auto make : {plane_convolutions, transposed_convolutions, line_convolutions,
                            full_connections, recurrent_sequences, recurrent_cells, activations,
                            elementwise_operators, broadcast_operators, poolings, upsamplings,
                            expansions, pixel_shuffles, layout_transforms, single_kernels}) {
      add(all, make(), keys);
    }
    all.uncovered = std::move(keys);
    return all;
  }();
  return table;
}

}  // namespace

void try_kernels(const uint8_t* data, size_t size) {
  Choices choices(data, size);
  // The operation with the most kernels stands first, and for the other half of the numbers.
  const std::vector<Entry>& entries = table().entries;
  const size_t number = choices.below(2 * static_cast<uint32_t>(entries.size()));
  const Entry& entry = entries[number < entries.size() ? number : 0];
  entry.operation->run(choices, entry.kernels);
}

bool has_own_description([[maybe_unused]] const std::string& kernel) {
#if QRT_WITH_EXTENSIONS
  static const std::set<std::string> names = [] {
    std::set<std::string> found;
    const auto add = [&found](const auto& rows) {
      for (const auto* row : rows) found.insert(row->name);
    };
    add(kernel::axis_softmax_rows);
    add(kernel::layer_norm_rows);
    add(kernel::group_norm_rows);
    add(kernel::matmul_rows);
    add(kernel::binary_rows);
    add(kernel::axis_reduction_rows);
    add(kernel::axis_map_rows);
    add(kernel::tensor_kernel_rows);
    add(kernel::resize_rows);
    add(kernel::resize_like_rows);
    add(kernel::stated_sequence_rows);
    for (const auto* row : kernel::dense_rows) {
      if (!row->is_full_connection) found.insert(row->name);
    }
    for (const auto* row : kernel::element_function_rows) {
      if (row->description == kernel::FunctionDescription::function) found.insert(row->name);
    }
    return found;
  }();
  return names.count(kernel) != 0;
#else
  return false;
#endif
}

std::vector<std::string> uncovered_kernels() { return table().uncovered; }

}  // namespace marlo::test

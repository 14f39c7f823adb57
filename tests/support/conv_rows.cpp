#include "tests/support/conv_rows.h"

#include <type_traits>

#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"
#include "qrt_core/kernel/conv/general/general_convolution.h"
#include "qrt_core/kernel/conv/points/point_convolution.h"
#include "qrt_core/kernel/conv/points/strassen.h"
#include "qrt_core/kernel/conv/windows/direct_convolution.h"
#include "qrt_core/kernel/conv/winograd/winograd.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_setup.h"

namespace marlo::test {

using kernel::ConvolutionRow;
using kernel::LineGeometry;
using kernel::TransposedGeometry;

namespace {

template <typename Geometry>
ConvRow any_row(const ConvolutionRow<Geometry>& row) {
  ConvRow any;
  any.name = row.name;
  any.layout = row.input.layout;
  any.output_layout = row.output.layout;
  any.accepted = row.accepts;
  any.accepts = kernel::words_for(row.accepts, Geometry::kDims == 2);
  any.in_block = runtime::BlockSize(row.input.layout);
  any.out_block = runtime::BlockSize(row.output.layout);
  any.is_line = std::is_same_v<Geometry, LineGeometry>;
  any.is_transposed = std::is_same_v<Geometry, TransposedGeometry>;
  any.is_reference = any.name.find("_Fallback_") != std::string::npos;
  any.takes_any_shape = any.name.find("_Kn") != std::string::npos;
  any.test = [&row](const ConvTester& tester) { return tester.test(row); };
  any.output = [&row](const ConvTester& tester, const ConvData& data) {
    return tester.output(row, data);
  };
  any.describe = describe<Geometry>;
  any.dims = dims_of<Geometry>;
  return any;
}

}  // namespace

std::vector<ConvRow> all_convolution_rows() {
  std::vector<ConvRow> rows;
  for (const auto* row : kernel::plane_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::transposed_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::line_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::point_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::depthwise_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::direct_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::general_convolution_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::winograd_rows) rows.push_back(any_row(*row));
  for (const auto* row : kernel::strassen_convolution_rows) rows.push_back(any_row(*row));
#if QRT_WITH_EXTENSIONS
  // An epilogue changes nothing in what is accepted; the tests of its own kernels cover it.
  for (const auto& list :
       {kernel::block_window_rows, kernel::block_winograd_rows, kernel::block_depthwise_rows,
        kernel::first_window_rows, kernel::last_window_rows}) {
    for (const auto* row : list) {
      if (row->epilogue == kernel::Epilogue::none) rows.push_back(any_row(*row));
    }
  }
  for (const auto* row : kernel::block_transposed_rows) {
    if (row->epilogue == kernel::Epilogue::none) rows.push_back(any_row(*row));
  }
#endif
  return rows;
}

std::vector<ConvRow> any_shape_convolution_rows() {
  std::vector<ConvRow> rows = all_convolution_rows();
  std::erase_if(rows, [](const ConvRow& row) { return !row.takes_any_shape; });
  return rows;
}

std::vector<ConvRow> reference_convolution_rows() {
  std::vector<ConvRow> rows = all_convolution_rows();
  std::erase_if(rows, [](const ConvRow& row) { return !row.is_reference; });
  return rows;
}

}  // namespace marlo::test

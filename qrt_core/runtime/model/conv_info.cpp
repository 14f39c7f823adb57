#include "qrt_core/runtime/model/conv_info.h"

namespace marlo::runtime {
namespace {

// The attributes that a convolution and its transposed form share, but for the width of paddings.
template <typename Info>
void visit_convolution(Info& info, const std::shared_ptr<Visitor>& visitor) {
  visitor->Visit(&info.in_channels, "in_channels");
  visitor->Visit(&info.out_channels, "out_channels");
  visitor->Visit(&info.kernel_x, "kernel_x");
  visitor->Visit(&info.kernel_y, "kernel_y");
  visitor->Visit(&info.padding_l, "padding_l");
  visitor->Visit(&info.padding_t, "padding_t");
  visitor->Visit(&info.padding_r, "padding_r");
  visitor->Visit(&info.padding_b, "padding_b");
  visitor->Visit(&info.stride_x, "stride_x");
  visitor->Visit(&info.stride_y, "stride_y");
  visitor->Visit(&info.dilation_x, "dilation_x");
  visitor->Visit(&info.dilation_y, "dilation_y");
  visitor->Visit(&info.groups, "groups");
  visitor->Visit(&info.if_bias, "if_bias");
  VisitBlobs(visitor, {{&info.weight, "weight"}, {&info.bias, "bias"}});
}

}  // namespace

Conv2dInfo::Conv2dInfo() : LayerInfo(2, "Conv2dInfo") {}

void Conv2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  visit_convolution(*this, visitor);
}

ConvTranspose2dInfo::ConvTranspose2dInfo() : LayerInfo(3, "ConvTranspose2dInfo") {}

void ConvTranspose2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  visit_convolution(*this, visitor);
}

Conv1dInfo::Conv1dInfo() : LayerInfo(40, "Conv1dInfo") {}

void Conv1dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, in_channels);
  QRT_VISIT(visitor, out_channels);
  QRT_VISIT(visitor, kernel_size);
  QRT_VISIT(visitor, padding_f);
  QRT_VISIT(visitor, padding_b);
  QRT_VISIT(visitor, stride);
  QRT_VISIT(visitor, dilation);
  QRT_VISIT(visitor, groups);
  QRT_VISIT(visitor, if_bias);
  VisitBlobs(visitor, {{&weight, "weight"}, {&bias, "bias"}});
}

FullConnectionInfo::FullConnectionInfo() : LayerInfo(17, "FullConnectionInfo") {}

void FullConnectionInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, in_features);
  QRT_VISIT(visitor, out_features);
  QRT_VISIT(visitor, if_bias);
  VisitBlobs(visitor, {{&weight, "weight"}, {&bias, "bias"}}, ForeignVisitor::visit_as_text);
}

}  // namespace marlo::runtime

// A small application of the installed library: loads the model that it is given, runs one pass on
// four numbers and prints the results.

#include <qrt_core/qrt_core.h>

#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <string>

using namespace marlo;

static int run(const char* model_path) {
  unsigned int major = 0;
  unsigned int minor = 0;
  if (QRT_Get_Core_Version(major, minor) != 0) return 1;

  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  runtime::ClassRegistry<std::shared_ptr<runtime::IKernel>> kernels;
  runtime::ClassRegistry<std::shared_ptr<runtime::InferenceParam>> params;
  utility::init_register_operators(kernels, params);

  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  if (utility::load_model(model_path, nets, context, kernels, params, "install-test", 2, 3) != 0) {
    return 1;
  }
  utility::_NetworkPackage& package = *nets.at("net");
  const float input[] = {-1.0f, 2.5f, -0.25f, 4.0f};
  package.input_tensors[0] = context->cpu->CreateF32CHWMainMem({1, 2, 2}, input);
  const auto results =
      package.net->Forward(package.input_tensors, package.output_ids, context, nullptr, nullptr);
  const auto& output = dynamic_cast<runtime::TensorCPU&>(*results.at(1).at(0));
  const float* values = static_cast<const float*>(output.RawPointer());
  std::printf("core %u.%u: %g %g %g %g\n", major, minor, static_cast<double>(values[0]),
              static_cast<double>(values[1]), static_cast<double>(values[2]),
              static_cast<double>(values[3]));
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s MODEL\n", argv[0]);
    return 2;
  }
  try {
    return run(argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}

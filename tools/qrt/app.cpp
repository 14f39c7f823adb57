#include "tools/qrt/app.h"

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <map>
#include <new>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr char kDescription[] =
    "qrt looks into neural networks in model files, runs them, and converts the files.";

constexpr char kFooter[] =
    "Examples:\n"
    "  qrt info digits.qrtmodel                      what is in the file\n"
    "  qrt run digits.qrtmodel --input seven.png --top 3 --labels labels.txt --preview\n"
    "  qrt run digits.qrtmodel --input seven.png --profile --repeat 100\n"
    "  qrt run net.qrtmodel --input x.npy --output y.npy\n"
    "  qrt check net.qrtmodel --input 1x3x224x224    does every layer fit?\n"
    "  qrt image photo.jpg small.png --resize 320x240 --rotate 90 --gray\n"
    "  qrt convert digits.json digits.qrtmodel\n"
    "  qrt convert old.qrm new.qrtmodel --isa sse\n"
    "  qrt kernels relu\n"
    "\n"
    "`qrt COMMAND --help` tells more about a command.\n"
    "\n"
    "Data goes to standard output, messages to standard error. Exit codes:\n"
    "  0  success\n"
    "  2  the command line makes no sense\n"
    "  3  an input (picture, .npy, labels) can't be read, or doesn't fit the network\n"
    "  4  a model file can't be read or loaded\n"
    "  5  a pass failed, a result can't be written, or nothing was found";

constexpr char kCropHelp[] = "Cut out WxH+LEFT+TOP, or WxH of the middle; black outside";
constexpr char kOperations[] = "Operations";
constexpr char kModelHelp[] = "Model file: .qrtmodel or .json";
constexpr char kSdkHelp[] = "Demand a model for SDK NAME:MAJOR.MINOR";
constexpr char kWidthHelp[] = "Width of tables";

std::string version_text() {
  unsigned int major = 0;
  unsigned int minor = 0;
  QRT_Get_Core_Version(major, minor);
  return "qrt (qrt_core " + std::to_string(major) + "." + std::to_string(minor) + ")";
}

void add_info(CLI::App& app, InfoOptions& options) {
  CLI::App* command = app.add_subcommand("info", "Show the networks and layers of a model file");
  command->add_option("MODEL", options.model, "Model file, or a single object of one")
      ->required()
      ->type_name("FILE");
  command->add_option("-i,--input", options.inputs, "Sizes such as 1x28x28, once per input layer")
      ->take_all()
      ->expected(1)
      ->type_name("SIZES");
  command->add_option("-n,--network", options.network, "Show this network only")->type_name("ID");
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N")->capture_default_str();
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Besides models (.qrtmodel, .json) it takes networks (.qrmod, .qrmods) and configurations\n"
      "(.qrcfg, .qrcfgs). Without --input the sizes are those of the model's header.\n"
      "Output sizes come from the kernels themselves. Multiply-adds are counted for convolutions\n"
      "and full connections. A kernel marked with \"!\" can't run here; the reason is on standard\n"
      "error, and the exit code is 4.");
  command->callback([&options] { run_info(options); });
}

void add_run(CLI::App& app, RunOptions& options) {
  CLI::App* command = app.add_subcommand("run", "Run a network on pictures or arrays");
  command->add_option("MODEL", options.model, kModelHelp)->required()->type_name("FILE");
  command->add_option("-i,--input", options.inputs, "Picture or .npy file, once per input layer")
      ->take_all()
      ->expected(1)
      ->type_name("FILE");
  command->add_option("-n,--network", options.network, "Network to run where there are several")
      ->type_name("ID");
  command->add_option("-o,--output", options.output, "Write to this .npy file instead of printing")
      ->type_name("FILE");
  command->add_option("-t,--top", options.top, "Print the K best values as probabilities")
      ->type_name("K")
      ->check(CLI::Range(1, 1000000));
  command->add_option("-l,--labels", options.labels, "Names of the values for --top, one a line")
      ->type_name("FILE");
  command->add_flag("--no-softmax", options.no_softmax, "Print the values for --top as they are");
  command->add_flag("-p,--preview", options.preview, "Draw the picture in characters");
  command->add_option("--preview-width", options.preview_width, "Width of that drawing")
      ->type_name("N")
      ->check(CLI::Range(1, 400))
      ->capture_default_str();
  command->add_option("-r,--repeat", options.repeat, "Time N passes after one to warm up")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000));
  command->add_flag("--profile", options.profile, "Print each layer's time and share");
  PictureOptions& pictures = options.pictures;
  command->add_option("--crop", pictures.crop, kCropHelp)->type_name("RECT");
  command
      ->add_option("--resize", pictures.resize, "Resize pictures to WxH, or to the `model`'s size")
      ->type_name("SIZE");
  command->add_option("--color", pictures.color, "Planes of pictures: rgb, bgr or gray")
      ->type_name("ORDER");
  command->add_option("--mean", pictures.mean, "Subtract M, or R,G,B, from samples of 0 to 255")
      ->type_name("M");
  command->add_option("--scale", pictures.scale, "Then multiply by S, or R,G,B (default 1/255)")
      ->type_name("S");
  command->add_flag("--any-size", pictures.any_size, "Let pictures of another size through");
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N")->capture_default_str();
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Pictures are PNG, JPEG, BMP or PGM. They become FLOAT32 planes (CHW), each sample divided\n"
      "by 255: one grey plane, or red, green and blue, as the network's first convolution "
      "demands.\n"
      "Before that they are cropped, resized, and put into another order of colours, in this\n"
      "order, where an option says so; --mean and --scale replace the division.\n"
      "Arrays of any integer or floating-point type become FLOAT32 as they are: 3 dimensions are\n"
      "CHW (a leading 1 is dropped from 4), 2 are channels by length or a single plane.\n"
      "Several inputs are given in the order of their layers, or each as LAYER=FILE; several\n"
      "outputs are written as NAME-LAYER.npy.\n"
      "--top shows softmax probabilities. --repeat and --profile show medians of the passes.");
  command->callback([&options] { run_network(options); });
}

void add_check(CLI::App& app, CheckOptions& options) {
  CLI::App* command =
      app.add_subcommand("check", "Ask every layer whether it fits, without running any");
  command->add_option("MODEL", options.model, kModelHelp)->required()->type_name("FILE");
  command->add_option("-i,--input", options.inputs, "Sizes such as 1x3x224x224, once per input")
      ->take_all()
      ->expected(1)
      ->type_name("SIZES");
  command->add_option("-n,--network", options.network, "Network to check where there are several")
      ->type_name("ID");
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N")->capture_default_str();
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Shapes are walked from the inputs through every kernel and converter: each says whether it\n"
      "takes its inputs, what it makes of them, and whether that is right. Without --input the\n"
      "sizes are those of the model's header; a leading 1 is dropped from 4 sizes. Faults go to\n"
      "standard error, and the exit code is then 3.");
  command->callback([&options] { run_check(options); });
}

// The values of the operations in the order of the command line. An option that was given several
// times stands there as often.
std::vector<ImageStep> steps_in_order(const CLI::App& command) {
  std::vector<ImageStep> steps;
  std::map<const CLI::Option*, size_t> used;
  for (const CLI::Option* option : command.parse_order()) {
    if (option->get_group() != kOperations) continue;
    const size_t occurrence = used[option]++;
    const bool takes_value = option->get_expected_max() > 0;
    steps.push_back(
        {option->get_lnames().at(0), takes_value ? option->results().at(occurrence) : ""});
  }
  return steps;
}

void add_image(CLI::App& app, ImageOptions& options) {
  CLI::App* command = app.add_subcommand("image", "Change a picture as an input is prepared");
  command->add_option("IN", options.input, "Picture to read")->required()->type_name("FILE");
  command->add_option("OUT", options.output, "Picture to write; an existing one is replaced")
      ->required()
      ->type_name("FILE");
  command->add_option("--yuv", options.yuv, "IN is a raw nv12, nv21 or iyuv picture of WxH")
      ->type_name("FORMAT:WxH");
  const auto add = [&](const char* name, const char* type, const char* help) {
    command->add_option(name)->description(help)->take_all()->expected(1)->type_name(type)->group(
        kOperations);
  };
  add("--resize", "WxH", "Resize, bilinear");
  add("--nearest", "WxH", "Resize to the nearest pixels");
  add("--crop", "RECT", kCropHelp);
  add("--zoom", "L,T,R,B",
      "Resize the part between L,T and R,B, in fractions of\nthe picture, to its size, nearest");
  add("--rotate", "DEGREES", "Turn clockwise by 90, 180 or 270");
  add("--flip", "DIRECTION", "Flip horizontal or vertical");
  add("--affine", "MATRIX",
      "Warp by A,B,C,D,E,F: pixel (x, y) comes from\n(Ax + By + C, Dx + Ey + F)");
  add("--affine-nearest", "MATRIX", "The same to the nearest pixels");
  add("--affine-forward", "MATRIX", "The same where pixel (x, y) goes");
  add("--warp", "MATRIX", "As --affine with x and y from -1 to 1");
  command->add_flag("--gray")->description("Make it gray")->group(kOperations);
  command->add_flag("--swap")->description("Exchange red and blue")->group(kOperations);
  command->add_flag("--planes")
      ->description("The planes of its channels below each other")
      ->group(kOperations);
  command->footer(
      "Operations are applied in the order of the command line, each as often as it is given, by\n"
      "the functions that prepare a network's input. IN is PNG, JPEG, BMP, PGM or PPM, and OUT\n"
      "what its name says: .png, .jpg, .bmp, .pgm or .ppm.\n"
      "  qrt image photo.jpg small.png --crop 800x600 --resize 320x240 --rotate 90 --gray");
  command->callback([command, &options] {
    options.steps = steps_in_order(*command);
    run_image(options);
  });
}

void add_convert(CLI::App& app, ConvertOptions& options) {
  CLI::App* command =
      app.add_subcommand("convert", "Convert a model file between its forms, or from an old one");
  command->add_option("IN", options.input, "File to read")->required()->type_name("FILE");
  command->add_option("OUT", options.output, "File to write; an existing one is replaced")
      ->required()
      ->type_name("FILE");
  command->add_option("-k,--kind", options.kind, "What a .json file holds")->type_name("KIND");
  command->add_option("--config", options.config, "Rules that give an old network its kernels")
      ->type_name("FILE");
  command->add_option("--isa", options.isa, "Kernels of layers without a rule: portable or sse")
      ->type_name("SET");
  command->footer(
      "KIND is one of model, network, networks, config, configs; it is needed only where neither\n"
      "name nor contents say it. Suffixes: .json for the JSON form of anything; binary: .qrtmodel\n"
      "for a model, .qrmod for one network, .qrmods for several, .qrcfg for the configuration of\n"
      "one network on one back end, .qrcfgs for those of a model.\n"
      "The binary form holds weights in half precision.\n"
      "\n"
      "IN is a network of the earlier generation where its name ends in .qrm, or where --config\n"
      "or --isa is given; OUT is then a model (.qrtmodel or .json) that is ready to run. Old\n"
      "files name no kernels. Each layer gets the portable kernel for its type, with `--isa sse`\n"
      "an SSE kernel that agrees with it but for the order of sums, or what --config says:\n"
      "  default = sse                            # as --isa, which goes before\n"
      "  Conv2d = FIRST_KERNEL, SECOND_KERNEL     # the first that takes the layer\n"
      "  Activation 3 = HSwish_Fallback_Float_M1  # activations of type 3\n"
      "  layer-12 = TanH_SSE_Float_M1             # one layer, by its id\n"
      "A rule for a layer goes before one for an activation, and that before one for a type:\n"
      "Input, Activation, Conv2d, ConvTranspose2d, AvgPool2d, MaxPool2d, BatchNorm2d, Upsample2d,\n"
      "Concatenate, ElementWiseOperator, TensorReshape, TensorTranspose, FullConnection,\n"
      "TensorSqueeze, PixelShuffle, LSTM. Kernels must work on planes. Activations of types other\n"
      "than 0 (none), 2 (rectifier), 4 (leaky) and 5 (tanh), and TensorSqueeze, need a rule.");
  command->callback([&options] { run_convert(options); });
}

void add_kernels(CLI::App& app, KernelsOptions& options) {
  CLI::App* command = app.add_subcommand("kernels", "List the kernels of this build");
  command
      ->add_option("FILTER", options.filters,
                   "Part of a name, or a pattern with * ? [];\nall of them must match")
      ->type_name("TEXT");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer("Case doesn't matter. Kernels that this processor can't run are marked.");
  command->callback([&options] { run_kernels(options); });
}

// Commands run inside parse(), so every failure ends up here.
int parse_and_run(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return kSuccess;
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::CallForVersion& version) {
    return app.exit(version);
  } catch (const CLI::ParseError& error) {
    say(printable(error.what()));
    std::fprintf(stderr, "Run `qrt --help` or `qrt COMMAND --help` for what there is.\n");
    return kUsageError;
  } catch (const ToolError& error) {
    take_library_errors();
    say(error.what());
    return error.exit_code();
  } catch (const std::bad_alloc&) {
    say("out of memory");
    return kRunError;
  } catch (const std::exception& failure) {
    const std::string fault = take_fault(failure);
    say(fault.empty() ? "the library gave up without a reason" : fault);
    return kRunError;
  }
}

}  // namespace

void print(const std::string& text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) != 0 || !written) {
    throw ToolError(kRunError, "standard output can't be written");
  }
}

int run_app(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  catch_library_log();
  InfoOptions info;
  RunOptions run;
  CheckOptions check;
  ImageOptions image;
  ConvertOptions convert;
  KernelsOptions kernels;
  CLI::App app(kDescription, "qrt");
  app.get_formatter()->column_width(36);
  app.footer(kFooter);
  app.set_version_flag("--version", version_text());
  app.require_subcommand(1);
  add_info(app, info);
  add_run(app, run);
  add_check(app, check);
  add_image(app, image);
  add_convert(app, convert);
  add_kernels(app, kernels);
  const int result = parse_and_run(app, argc, argv);
  show_library_errors();
  return result;
}

}  // namespace qrt_tool

#include "tools/qrt/app_commands.h"

#include <map>
#include <string>
#include <vector>

#include "tools/qrt/usage_fault.h"

namespace qrt_tool {
namespace {

constexpr char kCropHelp[] = "Cut out WxH+LEFT+TOP, or WxH of the middle; black outside";
constexpr char kOperations[] = "Operations";
constexpr char kModelHelp[] = "Model file: .qrtmodel, .json or -; or .onnx";
constexpr char kSdkHelp[] = "Demand a model for SDK NAME:MAJOR.MINOR";
constexpr char kWidthHelp[] = "Width of tables; 0 for no limit (default: the terminal's)";
constexpr char kNetworkHelp[] = "Network where there are several";
constexpr char kKeepBatchHelp[] = "Keep a leading 1 of 4 sizes";

void add_sizes(CLI::App& command, std::vector<std::string>& sizes, const char* help) {
  command.add_option("-i,--input", sizes, help)->take_all()->expected(1)->type_name("SIZES");
}

void add_info(CLI::App& app, InfoOptions& options) {
  CLI::App* command = app.add_subcommand("info", "Show the networks and layers of a model file");
  command->add_option("MODEL", options.model, "Model file, or a single object of one")
      ->required()
      ->type_name("FILE");
  add_sizes(*command, options.inputs,
            "Sizes such as 1x28x28 or LAYER=1x28x28,\nonce per input layer");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  command->add_option("-n,--network", options.network, "Show this network only")->type_name("ID");
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Besides models (.qrtmodel, .json) it takes networks (.qrmod, .qrmods) and configurations\n"
      "(.qrcfg, .qrcfgs); MODEL - is a model on standard input. Without --input the sizes are "
      "those\n"
      "of the model's header; a leading 1 is dropped from 4 sizes.\n"
      "Output sizes come from the kernels themselves. Multiply-adds are counted for convolutions,\n"
      "full connections, matrix products and recurrent layers. A kernel marked with \"!\" can't\n"
      "run here; the reason is on standard error, and the exit code is 4.");
  command->callback([&options] { run_info(options); });
}

void add_preparation_options(CLI::App& command, PictureOptions& pictures) {
  command.add_option("--color", pictures.color, "Planes of pictures: rgb, bgr or gray")
      ->type_name("ORDER");
  command.add_option("--mean", pictures.mean, "Subtract M, or R,G,B, from samples of 0 to 255")
      ->type_name("M");
  command.add_option("--scale", pictures.scale, "Then multiply by S, or R,G,B (default 1/255)")
      ->type_name("S");
}

void add_picture_options(CLI::App& command, PictureOptions& pictures) {
  command.add_option("--crop", pictures.crop, kCropHelp)->type_name("RECT");
  command
      .add_option("--resize", pictures.resize, "Resize pictures to WxH, or to the `model`'s size")
      ->type_name("SIZE");
  add_preparation_options(command, pictures);
  command.add_flag("--any-size", pictures.any_size, "Let pictures of another size through");
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
  command->add_option("--dump", options.dump, "Write every layer's output to DIR/LAYER.npy")
      ->type_name("DIR");
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
  command->add_flag("--profile", options.profile, "Print each layer's time, share and rates");
  command->add_option("--by", options.profile_by, "Its lines: layer, kind (sums), or kernel (sums)")
      ->type_name("WHAT");
  command->add_option("--sort", options.profile_sort, "Their order: order (of the layers) or time")
      ->type_name("HOW");
  command->add_option("--trace", options.trace, "Write the last pass as a trace for Perfetto")
      ->type_name("FILE");
  command->add_flag("--keep-state", options.keep_state,
                    "Recurrent layers begin each pass where the last ended");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  add_picture_options(*command, options.pictures);
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Pictures are PNG, JPEG, BMP or PGM. They become FLOAT32 planes (CHW), each sample divided\n"
      "by 255: one grey plane, or red, green and blue, as the network's first convolution "
      "demands.\n"
      "Before that they are cropped, resized, and put into another order of colours, in this\n"
      "order, where an option says so; --mean and --scale replace the division.\n"
      "Arrays of any integer or floating-point type become FLOAT32 as they are: 3 dimensions are\n"
      "CHW (a leading 1 is dropped from 4), 2 are channels by length or a single plane.\n"
      "FILE - is a model or an input on standard input, --output - an array on standard output.\n"
      "--dump writes blocks of channels as planes.\n"
      "Several inputs are given in the order of their layers, or each as LAYER=FILE; several\n"
      "outputs are written as NAME-LAYER.npy.\n"
      "--top shows softmax probabilities. --repeat and --profile show medians of the passes; each\n"
      "begins with the state of recurrent layers reset. Times of --profile are the processor's "
      "for\n"
      "this program; where others interrupt it, the time on the wall stands beside them. GB/s "
      "count\n"
      "a kernel's inputs, outputs and weights once.");
  command->callback([&options] { run_network(options); });
}

void add_import(CLI::App& app, ImportCommandOptions& options) {
  CLI::App* command = app.add_subcommand("import", "Make a model of a network in an ONNX file");
  command->add_option("IN", options.input, "The .onnx file")->type_name("FILE");
  command->add_option("OUT", options.output, "The model: .qrtmodel or .json")->type_name("FILE");
  command
      ->add_option(
          "-i,--input", options.source.inputs,
          "Sizes of an input that the file leaves open:\nNAME=1x3x224x224 or NAME=FILE.npy")
      ->take_all()
      ->expected(1)
      ->type_name("INPUT");
  command
      ->add_option("--set", options.source.sets, "Make an input constant: NAME=4 or NAME=FILE.npy")
      ->take_all()
      ->expected(1)
      ->type_name("INPUT");
  command
      ->add_option("-o,--output", options.source.outputs,
                   "Tensor or node to end at; what others need is cut off")
      ->take_all()
      ->expected(1)
      ->type_name("NAME");
  command->add_option("--name", options.name, "Id of the network (default: the name of IN)")
      ->type_name("ID");
  add_preparation_options(*command, options.pictures);
  command
      ->add_option("--isa", options.isa,
                   "Kernels up to portable, sse, avx, fma, avx2 or avx512\n(default: what this "
                   "processor has)")
      ->type_name("SET");
  command->add_flag("--verify", options.verify,
                    "Run the model beside its source, and compare each layer");
  command
      ->add_option("--test-data", options.test_data,
                   "The same with input_0.pb, output_0.pb, ... of a folder")
      ->type_name("DIR");
  command->add_flag("--force", options.force, "Let weights beyond half precision become infinite");
  command->add_flag("--operators", options.operators, "List the operators that are supported");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "The network computes what the file says, exactly or not at all: everything that can't be\n"
      "imported is listed at once, with the node, its operator, what is at fault and what would\n"
      "help; the exit code is then 6, and no file is written. Inputs and outputs are FLOAT32 with\n"
      "the file's own axes, less a batch of 1. NAME= may be left out where there is one input;\n"
      "a size of ? stays free, so that the model takes any: 1x3x32x?.\n"
      "--color, --mean and --scale are kept in the model, so that `qrt run` prepares pictures in\n"
      "this way without being told.\n"
      "Weights in a .qrtmodel are in half precision, rounded to nearest; the first line says what\n"
      "that costs. Weights beyond its range are named, and nothing is written without --force;\n"
      ".json keeps all weights as they are.\n"
      "--verify computes every operator by its plain definition, in double precision, and runs "
      "the\n"
      "model on the same inputs: random ones, or NAME=FILE.npy of --input. Its table has the\n"
      "largest difference of each layer, absolute and over the layer's largest value, with the\n"
      "weights as they were and as a .qrtmodel holds them. The bound is for the former: what\n"
      "came of disturbing all layers by as much as their kernels may be off. The exit code is 5\n"
      "where a layer is beyond it; the model is written all the same.");
  command->callback([&options] { run_import(options); });
}

void add_compare(CLI::App& app, CompareOptions& options) {
  CLI::App* command =
      app.add_subcommand("compare", "Run two models, and show where their layers differ");
  command->add_option("A", options.first, kModelHelp)->required()->type_name("FILE");
  command->add_option("B", options.second, kModelHelp)->required()->type_name("FILE");
  command->add_option("-i,--input", options.inputs, "Picture or .npy file, once per input layer")
      ->take_all()
      ->expected(1)
      ->type_name("FILE");
  command->add_option("-n,--network", options.network, kNetworkHelp)->type_name("ID");
  command->add_option("--bound", options.bound, "Fail where a layer differs by more than E")
      ->type_name("E")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  add_picture_options(*command, options.pictures);
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Layers are compared that have the same id in both models, whatever their kernels and\n"
      "layouts: blocks of channels are compared as planes. The differences are those of B from A,\n"
      "the largest one and the root of the mean of squares; \"max / largest\" is the largest\n"
      "difference over the largest value of the layer in A, which --bound is about. The first "
      "layer\n"
      "beyond it is named on standard error, and the exit code is 5, as it is where sizes differ.");
  command->callback([&options] { run_compare(options); });
}

void add_bench(CLI::App& app, BenchCommandOptions& options) {
  CLI::App* command = app.add_subcommand("bench", "Measure how fast a model runs");
  command->add_option("MODEL", options.model, kModelHelp)->required()->type_name("FILE");
  command->add_option("-a,--against", options.against, "Measure this model beside it, and compare")
      ->take_all()
      ->expected(1)
      ->type_name("FILE");
  add_sizes(*command, options.inputs,
            "Sizes such as 1x3x224x224 or LAYER=1x28x28,\nonce per input");
  command->add_option("-n,--network", options.network, kNetworkHelp)->type_name("ID");
  command
      ->add_option("--threads", options.threads,
                   "Threads, each with a context and a clone of its own")
      ->type_name("N")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  command->add_option("--cpu", options.cpu, "Keep the first thread on processor N, the next on N+1")
      ->type_name("N")
      ->check(CLI::Range(0, 65535));
  command->add_option("--seconds", options.seconds, "Measure each model for S seconds")
      ->type_name("S")
      ->check(CLI::Range(0.001, 86400.0));
  command->add_flag("--keep-state", options.keep_state,
                    "Recurrent layers begin each pass where the last ended");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON in the form of Google Benchmark");
  command->footer(
      "A pass goes from inputs in memory to outputs. Passes are first repeated until they are\n"
      "steady, then timed until the median is known to within 0.5 % at 95 % confidence, for half "
      "a\n"
      "second at least and 10 seconds at most, or as long as --seconds says. With --against the\n"
      "models run in turn, pass by pass, and the ratio of their times comes with the interval "
      "that\n"
      "it lies in at 95 % confidence. Spread is the width of the middle half of the passes over "
      "the\n"
      "median. --threads tells the passes of all threads in a second. Without --input the sizes "
      "are\n"
      "those of the model; the numbers are made up, the same every time.");
  command->callback([&options] { run_bench(options); });
}

void add_tune(CLI::App& app, TuneCommandOptions& options) {
  CLI::App* command =
      app.add_subcommand("tune", "Choose kernels and layouts by measurement on this machine");
  command->add_option("IN", options.input, kModelHelp)->required()->type_name("FILE");
  command->add_option("OUT", options.output, "Model to write; an existing one is replaced")
      ->required()
      ->type_name("FILE");
  add_sizes(*command, options.inputs,
            "Sizes such as 1x3x224x224 or LAYER=1x28x28, once per\ninput; again for each further "
            "size of passes");
  command
      ->add_option("--weights", options.weights,
                   "How much a pass of each size counts, such as 3,1\n(default: all alike)")
      ->type_name("W,...");
  command->add_option("-n,--network", options.network, kNetworkHelp)->type_name("ID");
  command
      ->add_option("--isa", options.isa,
                   "Kernels: portable, sse, avx, fma, avx2 or avx512\n(default: what this "
                   "processor has)")
      ->type_name("SET");
  command->add_option("--numerics", options.numerics, "same, bounded (default) or fast")
      ->type_name("HOW");
  command
      ->add_option("--tolerance", options.tolerance,
                   "How far a kernel's results may be from the given\nones, over the largest "
                   "(default 1e-4)")
      ->type_name("E")
      ->check(CLI::NonNegativeNumber);
  command->add_option("--budget", options.budget, "Seconds for measurements")
      ->type_name("S")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command->add_option("--wisdom", options.wisdom, "File of earlier measurements")
      ->type_name("FILE");
  command->add_flag("--no-wisdom", options.no_wisdom, "Neither read nor write such a file");
  command->add_option("--report", options.report, "Write all that was found, as JSON")
      ->type_name("FILE");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Every kernel that takes a layer, in every layout that its neighbours can give, and agrees\n"
      "with the one named now, is timed once. The cheapest choice for all layers together, with\n"
      "the converters that it needs, then runs as a whole network against the given one and a few\n"
      "others; the fastest is written, which is the given one where none is faster.\n"
      "--numerics same keeps to kernels with the same bits, bounded to those that differ by the\n"
      "order of sums, fast lets approximations in. Measurements are kept in a file, by default\n"
      "qrt/wisdom.json in the user's folder for caches, so that like layers of another network\n"
      "need none. An interrupt ends the measurements, and writes the best that is known.\n"
      "--input 3x224x224 --input 3x320x320 makes the sum of both passes as small as can be. Of\n"
      "several inputs all of the first size come before those of the next.");
  command->callback([&options] { run_tune(options); });
}

void add_explain(CLI::App& app, ExplainCommandOptions& options) {
  CLI::App* command =
      app.add_subcommand("explain", "Show where the time of a model goes, and why it isn't less");
  command->add_option("MODEL", options.model, kModelHelp)->required()->type_name("FILE");
  add_sizes(*command, options.inputs,
            "Sizes such as 1x3x224x224 or LAYER=1x28x28,\nonce per input");
  command->add_option("-n,--network", options.network, kNetworkHelp)->type_name("ID");
  command
      ->add_option("--seconds", options.seconds,
                   "Time passes for S seconds watched and S unwatched")
      ->type_name("S")
      ->check(CLI::Range(0.001, 3600.0))
      ->capture_default_str();
  command
      ->add_option("--layer", options.layer,
                   "Show this layer's candidates, and the reasons of others")
      ->type_name("ID");
  command
      ->add_option("--isa", options.isa,
                   "Candidates up to: portable, sse, avx, fma, avx2 or avx512")
      ->type_name("SET");
  command->add_option("--budget", options.budget, "Seconds for measuring candidates")
      ->type_name("S")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command->add_option("--wisdom", options.wisdom, "File of earlier measurements")
      ->type_name("FILE");
  command->add_flag("--no-wisdom", options.no_wisdom, "Neither read nor write such a file");
  command->add_flag("--no-candidates", options.no_candidates, "Look at the chosen kernels only");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_option("--html", options.html, "Write all of it as a page for a browser")
      ->type_name("FILE");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Each kernel is timed within passes, in the time that the processor worked. Its limit on\n"
      "this machine is the longer of two times: its multiply-adds at the peak of its "
      "instructions,\n"
      "and its bytes at the bandwidth of the memory that they lie in, both measured at the\n"
      "beginning. LIMIT names which: a set of instructions, or a cache or memory. Kernels by\n"
      "minimal filtering compute with fewer products than are counted, so that they may pass it.\n"
      "What the kernels leave of a pass is the engine's. SECOND is the fastest of the other "
      "kernels\n"
      "that could run the layer, with the converters that it would need there, against the chosen\n"
      "one measured alone as well; `qrt tune` chooses for all layers together. --layer lists all "
      "of\n"
      "them, and for the others of the layer's kind why they can't run it.");
  command->callback([&options] { run_explain(options); });
}

void add_check(CLI::App& app, CheckOptions& options) {
  CLI::App* command =
      app.add_subcommand("check", "Check that a model fits and computes what it says");
  command->add_option("MODEL", options.model, kModelHelp)->required()->type_name("FILE");
  add_sizes(*command, options.inputs,
            "Sizes such as 1x3x224x224 or LAYER=1x28x28,\nonce per input");
  command->add_flag("--keep-batch", options.keep_batch, kKeepBatchHelp);
  command->add_option("-n,--network", options.network, "Network to check where there are several")
      ->type_name("ID");
  command->add_option("--sdk", options.sdk, kSdkHelp)->type_name("SDK");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Shapes are walked from the inputs through every kernel and converter: each says whether it\n"
      "takes its inputs, what it makes of them, and whether that is right. Without --input the\n"
      "sizes are those of the model's header; a leading 1 is dropped from 4 sizes. Beside that\n"
      "it is looked for what loads and computes something else than the file says: members that\n"
      "nothing reads, numbers that are cut, biases that are dropped, kernels that leave a part of\n"
      "the description out or overwrite what is still read. Each finding says where, what was\n"
      "expected, what was found, and what to change. Faults and findings go to standard error. "
      "The\n"
      "exit code is then 3 where only the sizes of the command line don't fit, and 4 for a model\n"
      "that can't be right; warnings leave it 0.");
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
      "what its name says: .png, .jpg, .bmp, .pgm or .ppm; OUT - is PGM or PPM on standard "
      "output.\n"
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
  command->add_option("--round", options.round, "Weights to halves: truncate (default) or nearest")
      ->type_name("HOW");
  command->add_flag("--force", options.force, "Let weights become infinite or zero");
  command->add_option("--with", options.with, "Make a model of network IN and this configuration")
      ->type_name("FILE");
  command->add_option("-n,--network", options.network, "Network to take out, or the name of IN")
      ->type_name("ID");
  command->add_option("--sdk", options.sdk, "SDK of the model that --with makes (default qrt:1.0)")
      ->type_name("SDK");
  command->footer(
      "KIND is one of model, network, networks, config, configs; it is needed only where neither\n"
      "name nor contents say it. Suffixes: .json for the JSON form of anything; binary: .qrtmodel\n"
      "for a model, .qrmod for one network, .qrmods for several, .qrcfg for the configuration of\n"
      "one network on one back end, .qrcfgs for those of a model.\n"
      "OUT - is the JSON form on standard output. Of a model OUT may be a part: its networks, its\n"
      "configurations, or one of them; .json is then given a --kind. --with makes a model of "
      "parts.\n"
      "The binary form holds weights in half precision and truncates them, unless they are "
      "rounded\n"
      "before by `--round nearest`. What that costs is said; weights that would become infinite "
      "or\n"
      "zero are named, and nothing is written without --force.\n"
      "An existing OUT keeps its mode and owner, and links to it stay.\n"
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
  command->add_flag("--long", options.is_long, "A table with what the catalogue says of each");
  command->add_option("--for", options.layer, "Try them on a layer, by its id or index")
      ->type_name("MODEL:LAYER");
  command->add_option("-i,--input", options.inputs, "Sizes of that model's inputs")
      ->take_all()
      ->expected(1)
      ->type_name("SIZES");
  command->add_option("-n,--network", options.network, "Network of that model")->type_name("ID");
  command->add_option("--width", options.width, kWidthHelp)->type_name("N");
  command->add_flag("--json", options.json, "Print JSON");
  command->footer(
      "Case doesn't matter. Kernels that this processor can't run are marked. The whole name of a\n"
      "kernel shows all about it: the instructions it needs, what it accepts, the layouts of its\n"
      "inputs and outputs, what sets it apart, and how its results agree with the portable one's.\n"
      "--for says of every kernel whether it fits the layer, or why not; one that needs a "
      "converter\n"
      "takes the layer, but not its inputs as they come.");
  command->callback([&options] { run_kernels(options); });
}

void add_select(CLI::App& app, SelectOptions& options) {
  CLI::App* command =
      app.add_subcommand("select", "Write C++ that registers only the kernels of some models");
  command->add_option("MODEL", options.models, "Model files: .qrtmodel or .json, or -")
      ->required()
      ->type_name("FILE");
  command->add_option("-n,--network", options.network, "The only network that counts")
      ->type_name("ID");
  command->add_option("-o,--output", options.output, "Write to this file instead of printing")
      ->type_name("FILE");
  command->footer(
      "A program that is linked of this file and the static library, with -Wl,--gc-sections, has "
      "no\n"
      "other kernels: the file defines the functions that register them. Nothing else in the "
      "program\n"
      "changes; models that name other kernels can't be loaded by it.");
  command->callback([&options] { run_select(options); });
}

void add_help(CLI::App& app, std::string& about) {
  CLI::App* command = app.add_subcommand("help", "Show the help of the tool or of a command");
  command->add_option("COMMAND", about, "The command")->type_name("NAME");
  command->callback([&app, &about] {  // App::help would show that of the command which is running.
    const CLI::App& asked = about.empty() ? app : command_named(app, about);
    const std::string name = about.empty() ? app.get_name() : app.get_name() + " " + about;
    print(asked.get_formatter()->make_help(&asked, name, CLI::AppFormatMode::Normal));
  });
}

}  // namespace

void add_commands(CLI::App& app, CommandOptions& options) {
  add_info(app, options.info);
  add_import(app, options.import);
  add_run(app, options.run);
  add_compare(app, options.compare);
  add_bench(app, options.bench);
  add_tune(app, options.tune);
  add_explain(app, options.explain);
  add_check(app, options.check);
  add_image(app, options.image);
  add_read(app, options.read);
  add_convert(app, options.convert);
  add_kernels(app, options.kernels);
  add_select(app, options.select);
  add_help(app, options.help);
}

}  // namespace qrt_tool

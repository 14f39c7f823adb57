#include "tools/qrt/app_commands.h"

namespace qrt_tool {

void add_read(CLI::App& app, ReadOptions& options) {
  CLI::App* command = app.add_subcommand("read", "Read the text of a page or a line");
  command->add_option("PICTURE", options.picture, "PNG, JPEG, BMP or PGM picture, or -")
      ->required()
      ->type_name("FILE");
  command
      ->add_option("-m,--model", options.model,
                   "Model that reads lines (default: the installed one)")
      ->type_name("FILE");
  command->add_flag("--line", options.line, "Take all text of the picture for one line");
  command->add_option("--draw", options.draw, "Write the picture with a frame around each line")
      ->type_name("FILE");
  command
      ->add_option("--isa", options.isa,
                   "Kernels up to portable, sse, avx, fma, avx2 or avx512\n(default: what this "
                   "processor has)")
      ->type_name("SET");
  command->add_flag("-p,--preview", options.preview,
                    "Draw the picture in characters, and the text beside it");
  command->add_option("--preview-width", options.preview_width, "Width of that drawing")
      ->type_name("N")
      ->check(CLI::Range(1, 400))
      ->capture_default_str();
  command->add_flag("--json", options.json,
                    "Print JSON: lines, their places, and each character's confidence");
  command->footer(
      "Prints the text and nothing else, line by line from top to bottom. It may be dark on light\n"
      "or light on dark, and turned by up to 10 degrees; parts of a line with wide gaps between\n"
      "them are read one by one and joined by a space. The characters are those of ASCII.\n"
      "The model's kernels are exchanged for those that are likely to be the fastest on this\n"
      "processor, unless the model was tuned for it.\n"
      "  qrt read letter.jpg --draw lines.png");
  command->callback([&options] { run_read(options); });
}

}  // namespace qrt_tool

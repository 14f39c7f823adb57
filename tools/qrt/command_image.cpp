#include "tools/qrt/commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/files.h"
#include "tools/qrt/image_steps.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/picture_writer.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

// "FORMAT:WIDTHxHEIGHT".
Picture read_yuv(const ImageSteps& steps, const std::string& option, std::string bytes) {
  const size_t colon = option.find(':');
  if (colon == std::string::npos) {
    throw ToolError(kUsageError, "--yuv " + in_quotes(option) +
                                     ": expected FORMAT:WIDTHxHEIGHT, such as nv12:640x480");
  }
  const PictureSize size = parse_picture_size("--yuv", option.substr(colon + 1));
  return steps.from_yuv(option.substr(0, colon), size, std::move(bytes));
}

Picture read_source(const ImageSteps& steps, const ImageOptions& options) {
  std::string bytes = read_file(options.input, kInputError);
  try {
    if (options.yuv.empty()) return parse_picture(bytes, 0);
    return read_yuv(steps, options.yuv, std::move(bytes));
  } catch (const ToolError& error) {
    if (error.exit_code() != kInputError) throw;
    throw ToolError(error.exit_code(), shown(options.input) + ": " + error.what());
  }
}

}  // namespace

void run_image(const ImageOptions& options) {
  const bool to_stream = options.output == kStandardStream;
  const PictureFormat format = to_stream ? PictureFormat::pnm : picture_format_of(options.output);
  const ImageSteps steps;
  Picture picture = read_source(steps, options);
  for (const ImageStep& step : options.steps) picture = steps.apply(picture, step);
  if (to_stream) return print(picture_bytes(picture, format));
  write_file(options.output, picture_bytes(picture, format));
  say("wrote " + printable(options.output) + ": " + sizes_text({picture.width, picture.height}) +
      (picture.channels == 1 ? ", gray" : ", red, green and blue"));
}

}  // namespace qrt_tool

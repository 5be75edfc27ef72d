#include "canvas_options.h"
#include "commands.h"
#include "messages.h"
#include "randomization_file.h"
#include "recipe_file.h"
#include "thread_option.h"

#include "filter/filter.h"
#include "image/image.h"
#include "platform/foundation/executor.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>

namespace brenvia::cli {
namespace {

namespace fs = std::filesystem;

struct RenderSettings {
  std::string recipePath;
  std::vector<std::string> inputs;
  std::string output;
  int quality = 100;
  std::string assets, prefix;
  std::vector<std::string> disableTags;
  int maxSize = 0;
  int threads = 0;
  std::optional<double> slider;
  std::vector<std::string> alphaSliders;  // TAG=X
  std::string randomizationPath;
  bool coreGraphics = false;
  bool allowOutsideAssets = false;
  bool strict = false;
  CanvasOptions canvas;
};

std::mutex outputMutex;

// ".jpg, .jpeg, ... or .tiff"
std::string extensionList() {
  const auto& names = imageio::formatExtensions();
  std::string list;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) list += i + 1 == names.size() ? " or " : ", ";
    list += names[i];
  }
  return list;
}

// The tag and opacity of an --alpha-slider value "TAG=X", X from 0 to 1; nothing for other text.
std::optional<std::pair<std::string, double>> alphaSliderOf(const std::string& text) {
  size_t equals = text.rfind('=');
  if (equals == std::string::npos || equals == 0) return std::nullopt;
  const char* number = text.c_str() + equals + 1;
  char* end = nullptr;
  double alpha = std::strtod(number, &end);
  if (end == number || *end != '\0' || !(alpha >= 0.0 && alpha <= 1.0)) return std::nullopt;
  return std::pair(text.substr(0, equals), alpha);
}

// The user inputs of one picture's run.
std::shared_ptr<BVInput> inputsFor(const RenderSettings& s, std::shared_ptr<BVRandomization> randomization) {
  auto inputs = std::make_shared<BVInput>();
  if (!s.disableTags.empty()) inputs->disableTags = s.disableTags;
  inputs->slider = s.slider;
  if (!s.alphaSliders.empty()) {
    inputs->alphaSliders.emplace();
    for (const auto& text : s.alphaSliders) {
      auto [tag, alpha] = *alphaSliderOf(text);  // checked when the options were read
      (*inputs->alphaSliders)[tag] = alpha;
    }
  }
  inputs->randomization = std::move(randomization);
  return inputs;
}

// Files a recipe names are found in --assets, else beside the recipe.
std::optional<std::string> assetFolder(const RenderSettings& s) {
  if (!s.assets.empty()) return s.assets;
  if (s.recipePath == "-") return std::nullopt;
  return fs::absolute(s.recipePath).parent_path().string();
}

// Renders one input to one output file; false (with one line on stderr) on failure.
bool renderPicture(const RenderSettings& s, const Value& recipe, const std::string& input, const fs::path& output,
                   int threads, std::shared_ptr<BVRandomization> randomization) {
  // A crop is given in pixels of the whole picture, so a picture with canvas options is decoded whole.
  auto picture = BVImageProcessor::pictureWithContentsOfFile(
      input, s.canvas.any() ? 0 : size_t(s.maxSize), BVImageProcessor::recipeUsesEmbeddedMap(recipe, "disparity"),
      BVImageProcessor::recipeUsesEmbeddedMap(recipe, "portraitMatte"));
  if (!picture) {
    const std::string why = readFailureOnThisThread(input);
    fail(input, why.empty() ? "cannot read the picture" : "cannot read the picture: " + why);
    return false;
  }
  if (s.canvas.any()) {
    std::string error;
    auto adjustment = canvasAdjustmentFor(s.canvas, picture->sizeWithOrientation(), error);
    if (!adjustment) {
      fail(input, error);
      return false;
    }
    picture->setCanvasAdjustment(std::move(adjustment));
    const CGSize adjusted = picture->sizeWithAdjustments();
    const double longer = std::max(adjusted.width, adjusted.height);
    if (s.maxSize > 0 && longer > s.maxSize) picture->setScaleAdjustment(s.maxSize / longer);
  }
  BVImageProcessorOptions options;
  options.input = inputsFor(s, std::move(randomization));
  options.renderWithCoreGraphics = s.coreGraphics;
  auto filters =
      BVFilter::filtersWithArray(recipe, assetFolder(s), s.prefix.empty() ? std::nullopt : std::optional(s.prefix));
  auto processor = BVImageProcessor::initWithFilters(std::move(filters), options);
  BVFileOutputFailure failure;
  if (processor->processToFile(picture, output.string(), {s.quality / 100.0, threads}, &failure)) return true;
  fail(failure.picture ? input : output.string(), failure.reason);
  return false;
}

// renderPicture, with whatever it throws reported as the input's failure, so that a batch goes on.
// With --strict, a picture whose run logged a problem (a missing picture, a bad value) fails too.
bool renderOne(const RenderSettings& s, const Value& recipe, const std::string& input, const fs::path& output,
               int threads, std::shared_ptr<BVRandomization> randomization) {
  try {
    const size_t logged = logLinesOnThisThread();
    if (!renderPicture(s, recipe, input, output, threads, std::move(randomization))) return false;
    if (!s.strict || logLinesOnThisThread() == logged) return true;
    fail(input, "the recipe or its files had problems (see above), and --strict is given");
    return false;
  } catch (const std::bad_alloc&) {
    fail(input, "out of memory");
  } catch (const std::exception& e) {
    fail(input, e.what());
  }
  return false;
}

// Where each input goes: the output file itself, or a file of the input's name in the output folder.
std::vector<fs::path> outputPaths(const RenderSettings& s) {
  if (s.inputs.size() == 1 && !fs::is_directory(s.output)) return {fs::path(s.output)};
  std::vector<fs::path> paths;
  for (const auto& input : s.inputs) {
    fs::path name = fs::path(input).filename();
    if (!imageio::formatForPath(name.string())) name.replace_extension(".jpg");
    paths.push_back(fs::path(s.output) / name);
  }
  return paths;
}

// Two inputs whose outputs (and so stored draws, kept by file name) would share a name, by index.
std::optional<std::pair<size_t, size_t>> firstClash(const std::vector<fs::path>& outputs) {
  std::map<std::string, size_t> seen;
  for (size_t i = 0; i < outputs.size(); ++i) {
    auto [at, added] = seen.emplace(outputs[i].string(), i);
    if (!added) return std::pair(at->second, i);
  }
  return std::nullopt;
}

int run(const RenderSettings& s) {
  BVFilter::setAllowsFilesOutsideAssets(s.allowOutsideAssets);
  if (s.inputs.size() > 1 && !fs::is_directory(s.output)) {
    fail(s.output, "several inputs need an existing output folder");
    return 2;
  }
  if (s.inputs.size() == 1 && !fs::is_directory(s.output) && !imageio::formatForPath(s.output)) {
    fail(s.output, "the output name must end in " + extensionList());
    return 2;
  }
  std::string error;
  auto recipe = readRecipe(s.recipePath, error);
  if (!recipe) {
    fail(s.recipePath, error);
    return 1;
  }
  std::optional<RandomizationFile> stored;
  if (!s.randomizationPath.empty() && !(stored = RandomizationFile::open(s.randomizationPath, error))) {
    fail(s.randomizationPath, error);
    return 1;
  }
  std::vector<std::shared_ptr<BVRandomization>> randomizations;
  for (const auto& input : s.inputs) randomizations.push_back(stored ? stored->forInput(input) : nullptr);
  const std::vector<fs::path> outputs = outputPaths(s);
  if (auto clash = firstClash(outputs)) {
    fail(s.output, "`" + s.inputs[clash->first] + "` and `" + s.inputs[clash->second] + "` would both be written to `" +
                       outputs[clash->first].string() + "`");
    return 2;
  }
  const unsigned threads = s.threads > 0 ? unsigned(s.threads) : BVExecutorConcurrency();
  // One picture uses every thread; a batch renders one picture per thread.
  const unsigned workers = std::min<unsigned>(threads, unsigned(s.inputs.size()));
  const int threadsPerRender = workers > 1 ? 1 : int(threads);
  const bool progress = s.inputs.size() > 1 && isatty(STDERR_FILENO);
  std::atomic<size_t> done{0};
  std::atomic<bool> failed{false};
  BVExecutorParallelFor(s.inputs.size(), workers, [&](size_t i) {
    if (!renderOne(s, *recipe, s.inputs[i], outputs[i], threadsPerRender, randomizations[i])) failed = true;
    const size_t finished = ++done;
    if (progress) {
      std::lock_guard lock(outputMutex);
      std::cerr << "\rbrenvia: rendered " << finished << " of " << s.inputs.size() << std::flush;
    }
  });
  if (progress) std::cerr << '\n';
  if (stored && !stored->saveIfChanged(error)) {
    fail(s.randomizationPath, error);
    return 1;
  }
  return failed ? 1 : 0;
}

}  // namespace

void addRenderCommand(CLI::App& app) {
  auto settings = std::make_shared<RenderSettings>();
  auto* cmd = app.add_subcommand("render", "Apply a filter recipe to pictures");
  cmd->add_option("recipe", settings->recipePath, "Recipe file: JSON or property list array of filters; - for stdin")
      ->required();
  cmd->add_option("inputs", settings->inputs, "Pictures to filter (JPEG, PNG, HEIF, WebP, TIFF)")->required();
  cmd->add_option("-o,--output", settings->output,
                  "Output file (.jpg, .jpeg, .png, .heic, .webp, .tif), or folder for several inputs")
      ->required();
  cmd->add_option("--quality", settings->quality, "JPEG, HEIF and WebP quality, 0 to 100")->check(CLI::Range(0, 100));
  cmd->add_option("--assets", settings->assets,
                  "Folder of the pictures and curve files the recipe names (default: the recipe's folder)");
  cmd->add_option("--prefix", settings->prefix, "Prefix of the picture names");
  cmd->add_option("--disable-tag", settings->disableTags, "Turn off the filters with this tag (repeatable)");
  cmd->add_option("--max-size", settings->maxSize, "Scale so that the longer side is at most N pixels")
      ->check(CLI::PositiveNumber);
  addThreadsOption(*cmd, settings->threads);
  cmd->add_option("--slider", settings->slider, "Position of the recipe's slider, 0 to 1")
      ->check(CLI::Validator(
          [](std::string& text) {
            double value = NAN;
            return CLI::detail::lexical_cast(text, value) && value >= 0.0 && value <= 1.0
                       ? std::string()
                       : "expected a number from 0 to 1";
          },
          "X"));
  cmd->add_option("--alpha-slider", settings->alphaSliders,
                  "Opacity of the filters with a tag, as TAG=X with X from 0 to 1 (repeatable)")
      ->check(CLI::Validator(
          [](std::string& text) { return alphaSliderOf(text) ? std::string() : "expected TAG=X with X from 0 to 1"; },
          "TAG=X"));
  cmd->add_option("--randomization", settings->randomizationPath,
                  "File of stored random draws: repeated when it exists, recorded into it otherwise");
  addCanvasOptions(*cmd, settings->canvas);
  cmd->add_flag("--allow-outside-assets", settings->allowOutsideAssets,
                "Let the recipe name files outside the asset folder (absolute names, .., links); for trusted recipes");
  cmd->add_flag(
      "--strict", settings->strict,
      "Fail a picture whose run logs a problem with the recipe or its files (a missing picture, a bad value)");
  cmd->add_flag("--cg", settings->coreGraphics, "Draw the filters on a bitmap context instead of the image engine");
  cmd->callback([settings] { setExitStatus(run(*settings)); });
}

}  // namespace brenvia::cli

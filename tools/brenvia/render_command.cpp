#include "commands.h"
#include "randomization_file.h"
#include "recipe_file.h"

#include "filter/filter.h"
#include "image/image.h"
#include "platform/imageio/image_io.h"
#include "processor/image_processor.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>
#include <unistd.h>

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
};

enum class Format { JPEG, PNG, HEIF, WebP, TIFF };

std::optional<Format> formatOf(const fs::path& path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (ext == ".jpg" || ext == ".jpeg") return Format::JPEG;
  if (ext == ".png") return Format::PNG;
  if (ext == ".heic" || ext == ".heif") return Format::HEIF;
  if (ext == ".webp") return Format::WebP;
  if (ext == ".tif" || ext == ".tiff") return Format::TIFF;
  return std::nullopt;
}

bool encodeAs(Format format, const CGImage& bitmap, const imageio::EncodeOptions& options, std::vector<uint8_t>& bytes) {
  switch (format) {
    case Format::JPEG: return imageio::encodeJPEG(bitmap, options, bytes);
    case Format::PNG: return imageio::encodePNG(bitmap, options, bytes);
    case Format::HEIF: return imageio::encodeHEIF(bitmap, options, bytes);
    case Format::WebP: return imageio::encodeWebP(bitmap, options, bytes);
    case Format::TIFF: return imageio::encodeTIFF(bitmap, options, bytes);
  }
  return false;
}

bool isDeep(CGPixelFormat f) { return f == CGPixelFormat::Gray16 || f == CGPixelFormat::RGB16 || f == CGPixelFormat::RGBA16; }

std::mutex outputMutex;

void fail(const std::string& what, const std::string& why) {
  std::lock_guard lock(outputMutex);
  std::cerr << "brenvia: " << what << ": " << why << '\n';
}

// The picture of one input, turned upright by its EXIF orientation and reduced so that its longer
// side is at most maxSize (decoded smaller where the format allows). The orientation is baked into
// the pixels here, so outputs carry no orientation tag.
// `pixels` is the decoded bitmap, whose rows may still be arriving.
std::shared_ptr<BVImage> loadPicture(const std::string& path, int maxSize, CGImageRef& pixels) {
  auto decoded = CIImage::imageWithContentsOfFile(path, size_t(std::max(maxSize, 0)));
  if (!decoded) return nullptr;
  pixels = decoded->bitmap();
  Value properties = decoded->properties();
  int orientation = int(BVNumber(properties.value("Orientation", Value(1))).value_or(1));
  properties["Orientation"] = 1;
  auto picture = BVImage::initWithCIImage(decoded->imageByApplyingOrientation(orientation)->imageBySettingProperties(properties));
  if (!picture || maxSize <= 0) return picture;
  CGSize size = picture->size();
  double longer = std::max(size.width, size.height);
  if (longer > maxSize) picture->setScaleAdjustment(maxSize / longer);
  return picture;
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

// Renders one input to one output file; false (with one line on stderr) on failure.
// Files a recipe names are found in --assets, else beside the recipe.
std::optional<std::string> assetFolder(const RenderSettings& s) {
  if (!s.assets.empty()) return s.assets;
  if (s.recipePath == "-") return std::nullopt;
  return fs::absolute(s.recipePath).parent_path().string();
}

bool renderOne(const RenderSettings& s, const Value& recipe, const std::string& input, const fs::path& output,
               int threads, std::shared_ptr<BVRandomization> randomization) {
  CGImageRef pixels;
  auto picture = loadPicture(input, s.maxSize, pixels);
  if (!picture) {
    fail(input, "cannot read the picture");
    return false;
  }
  // A picture found damaged only while it is rendered is the input's failure, whatever failed next.
  auto failed = [&](const std::string& what, const std::string& why) {
    if (pixels && !pixels->complete()) {
      fail(input, "cannot read the picture");
    } else {
      fail(what, why);
    }
    return false;
  };
  BVImageProcessorOptions options;
  options.input = inputsFor(s, std::move(randomization));
  // The processor hands back the filtered image unrendered, so that it is rendered straight into
  // the output file.
  options.returnCIImage = true;
  CIContextOptions contextOptions;
  contextOptions.threads = threads;
  if (CGColorSpaceRef space = picture->colorSpace()) contextOptions.workingColorSpace = contextOptions.outputColorSpace = space;
  auto context = CIContext::contextWithOptions(contextOptions);
  options.sharedCIContext = context;
  auto filters = BVFilter::filtersWithArray(recipe, assetFolder(s), s.prefix.empty() ? std::nullopt : std::optional(s.prefix));
  if (s.coreGraphics) {
    // The drawing road works on the bitmap: bring the upright, reduced picture into one.
    options.renderWithCoreGraphics = true;
    CIImageRef adjusted = picture->adjustedCIImage();
    picture = BVImage::initWithCGImage(options.sharedCIContext->createCGImage(adjusted, adjusted->extent()));
  }
  auto processor = BVImageProcessor::initWithFilters(std::move(filters), options);
  auto result = processor->process(picture);
  CIImageRef filtered = result ? result->CIImage() : nullptr;
  if (!filtered) return failed(input, "rendering failed");
  std::string error;
  const Format format = formatOf(output).value_or(Format::JPEG);
  if (format == Format::JPEG) {
    // Rendered in bands, each encoded as soon as it is done, while the input is still being decoded.
    if (context->writeJPEGRepresentationOfImage(filtered, output.string(), context->outputColorSpace(),
                                                {s.quality / 100.0}, &error))
      return true;
    return failed(output.string(), error);
  }
  // 16-bit sources keep their depth in the formats that can hold it: the result is rendered in float.
  imageio::EncodeOptions encode;
  encode.quality = s.quality / 100.0;
  encode.sixteenBit = pixels && isDeep(pixels->format()) && (format == Format::PNG || format == Format::TIFF);
  CGImageRef bitmap = encode.sixteenBit ? context->createCGImage(filtered, filtered->extent(), kCIFormatRGBAf,
                                                                 context->outputColorSpace())
                                        : context->createCGImage(filtered, filtered->extent());
  if (!bitmap) return failed(input, "rendering failed");
  std::vector<uint8_t> bytes;
  if (!encodeAs(format, *bitmap, encode, bytes)) return failed(output.string(), "cannot encode the picture");
  if (!imageio::writeFileAtomically(output.string(), bytes, &error)) return failed(output.string(), error);
  return true;
}

// Where each input goes: the output file itself, or a file of the input's name in the output folder.
std::vector<fs::path> outputPaths(const RenderSettings& s) {
  if (s.inputs.size() == 1 && !fs::is_directory(s.output)) return {fs::path(s.output)};
  std::vector<fs::path> paths;
  for (const auto& input : s.inputs) {
    fs::path name = fs::path(input).filename();
    if (!formatOf(name)) name.replace_extension(".jpg");
    paths.push_back(fs::path(s.output) / name);
  }
  return paths;
}

int run(const RenderSettings& s) {
  if (s.inputs.size() > 1 && !fs::is_directory(s.output)) {
    fail(s.output, "several inputs need an existing output folder");
    return 2;
  }
  if (s.inputs.size() == 1 && !fs::is_directory(s.output) && !formatOf(s.output)) {
    fail(s.output, "the output name must end in .jpg, .jpeg, .png, .heic, .heif, .webp, .tif or .tiff");
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
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  const unsigned threads = s.threads > 0 ? unsigned(s.threads) : cores;
  // One picture uses every thread; a batch renders one picture per thread.
  const unsigned workers = std::min<unsigned>(threads, unsigned(s.inputs.size()));
  const int threadsPerRender = workers > 1 ? 1 : int(threads);
  const bool progress = s.inputs.size() > 1 && isatty(STDERR_FILENO);
  std::atomic<size_t> next{0}, done{0};
  std::atomic<bool> failed{false};
  auto work = [&] {
    for (size_t i = next++; i < s.inputs.size(); i = next++) {
      if (!renderOne(s, *recipe, s.inputs[i], outputs[i], threadsPerRender, randomizations[i])) failed = true;
      size_t finished = ++done;
      if (progress) {
        std::lock_guard lock(outputMutex);
        std::cerr << "\rbrenvia: rendered " << finished << " of " << s.inputs.size() << std::flush;
      }
    }
  };
  std::vector<std::thread> pool;
  for (unsigned w = 1; w < workers; ++w) pool.emplace_back(work);
  work();
  for (auto& t : pool) t.join();
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
  cmd->add_option("-o,--output", settings->output, "Output file (.jpg, .jpeg, .png, .heic, .webp, .tif), or folder for several inputs")
      ->required();
  cmd->add_option("--quality", settings->quality, "JPEG, HEIF and WebP quality, 0 to 100")->check(CLI::Range(0, 100));
  cmd->add_option("--assets", settings->assets, "Folder of the pictures and curve files the recipe names (default: the recipe's folder)");
  cmd->add_option("--prefix", settings->prefix, "Prefix of the picture names");
  cmd->add_option("--disable-tag", settings->disableTags, "Turn off the filters with this tag (repeatable)");
  cmd->add_option("--max-size", settings->maxSize, "Scale so that the longer side is at most N pixels")
      ->check(CLI::PositiveNumber);
  cmd->add_option("--threads", settings->threads, "Threads to use (default: every core)")->check(CLI::PositiveNumber);
  cmd->add_option("--slider", settings->slider, "Position of the recipe's slider, 0 to 1")->check(CLI::Range(0.0, 1.0));
  cmd->add_option("--alpha-slider", settings->alphaSliders,
                  "Opacity of the filters with a tag, as TAG=X with X from 0 to 1 (repeatable)")
      ->check(CLI::Validator(
          [](std::string& text) { return alphaSliderOf(text) ? std::string() : "expected TAG=X with X from 0 to 1"; },
          "TAG=X"));
  cmd->add_option("--randomization", settings->randomizationPath,
                  "File of stored random draws: repeated when it exists, recorded into it otherwise");
  cmd->add_flag("--cg", settings->coreGraphics, "Draw the filters on a bitmap context instead of the image engine");
  cmd->callback([settings] { setExitStatus(run(*settings)); });
}

}  // namespace brenvia::cli

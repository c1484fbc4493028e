#include "tools/k8/render_command.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "tools/k8/picture.h"
#include "tools/k8/progress.h"
#include "tools/k8/stage.h"
#include "tools/k8/webp_animation.h"

namespace {

struct RenderOptions {
    std::vector<std::string> files;
    std::string out;
    std::string size = "480x480";
    std::string frames;
    double step = 1;
    double framesPerSecond = 24;
    uint32_t action = 0;
    std::vector<uint32_t> patterns;
    bool basePatternOnly = false;
    std::string background = "dce6f0", lightColor = "ffffff";
    bool unlit = false;
    int columns = 6;
    StageOptions stage;
};

uint32_t colorFrom(const std::string& text) {
    size_t end = 0;
    const unsigned long value = text.size() == 6 ? std::stoul(text, &end, 16) : 0;
    if (end != 6) throw CLI::ValidationError("'" + text + "' is no colour; expected RRGGBB in hexadecimal");
    return uint32_t(value);
}

void parseSize(const std::string& text, StageOptions& stage) {
    int consumed = 0;
    const bool ok = std::sscanf(text.c_str(), "%dx%d%n", &stage.width, &stage.height, &consumed) == 2 &&
                    size_t(consumed) == text.size() && stage.width >= 1 && stage.width <= 2048 && stage.height >= 1 &&
                    stage.height <= 2048;
    if (!ok) throw CLI::ValidationError("'" + text + "' is no size; expected WIDTHxHEIGHT, each 1 to 2048");
}

struct FrameRange {
    double first, last;  // last is included
};

FrameRange framesFrom(const std::string& text, double length) {
    // A walk ends as it begins: its last frame is left to the next round.
    if (text.empty()) return {0, std::max(0.0, length - 1)};
    FrameRange range{};
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%lf:%lf%n", &range.first, &range.last, &consumed) != 2 ||
        size_t(consumed) != text.size()) {
        consumed = 0;
        if (std::sscanf(text.c_str(), "%lf%n", &range.first, &consumed) != 1 || size_t(consumed) != text.size())
            throw CLI::ValidationError("'" + text + "' is no frame range; expected FIRST:LAST or one frame");
        range.last = range.first;
    }
    if (!(range.first >= 0 && range.last >= range.first && range.last < 32768))
        throw CLI::ValidationError("'" + text + "' is no frame range; frames rise from 0 to 32767");
    return range;
}

std::optional<uint32_t> patternMask(const RenderOptions& options, uint32_t patternCount) {
    if (options.basePatternOnly) return 0;
    if (options.patterns.empty()) return std::nullopt;
    if (patternCount < 2) throw CLI::ValidationError("there are no patterns to switch");
    uint32_t mask = 0;
    for (const uint32_t pattern : options.patterns) {
        if (pattern < 1 || pattern >= patternCount)
            throw CLI::ValidationError("there is no pattern " + std::to_string(pattern) + "; patterns 1 to " +
                                       std::to_string(patternCount - 1) + " can be switched");
        mask |= 1u << (pattern - 1);
    }
    return mask;
}

std::vector<Picture> drawFrames(Stage& stage, const RenderOptions& options, const FrameRange& range, Pose pose) {
    const int count = int(std::floor((range.last - range.first) / options.step + 1e-9)) + 1;
    if (count > 10000)
        throw CLI::ValidationError("that would be " + std::to_string(count) +
                                   " pictures; give a shorter range or a longer --step");
    std::vector<Picture> pictures;
    Progress progress("drawing", count);
    for (int i = 0; i < count; ++i) {
        pose.frame = range.first + i * options.step;
        pose.milliseconds = pose.frame * 1000 / options.framesPerSecond;
        pictures.push_back(stage.draw(pose));
        progress.advance();
    }
    return pictures;
}

void report(const std::filesystem::path& path) { std::printf("%s\n", path.c_str()); }

// A name that ends in .png or .webp is one file; any other is a folder for the frames, a contact sheet and the
// animation.
void writePictures(const RenderOptions& options, const std::vector<Picture>& pictures, uint32_t background) {
    const std::filesystem::path out = options.out;
    if (out.extension() == ".png") {
        writePng(out, pictures.size() == 1 ? pictures.front() : contactSheet(pictures, options.columns, background));
        return report(out);
    }
    const double speed = options.framesPerSecond / options.step;
    if (out.extension() == ".webp") {
        writeWebpAnimation(out, pictures, speed);
        return report(out);
    }
    std::filesystem::create_directories(out);
    {
        Progress progress("writing", int(pictures.size()));
        for (size_t i = 0; i < pictures.size(); ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "frame-%04zu.png", i);
            writePng(out / name, pictures[i]);
            progress.advance();
        }
    }
    std::printf("%s: %zu frames\n", (out / "frame-*.png").c_str(), pictures.size());
    writePng(out / "sheet.png", contactSheet(pictures, options.columns, background));
    report(out / "sheet.png");
    if (pictures.size() < 2) return;
    writeWebpAnimation(out / "animation.webp", pictures, speed);
    report(out / "animation.webp");
}

void run(RenderOptions options) {
    parseSize(options.size, options.stage);
    options.stage.background = colorFrom(options.background);
    options.stage.lighting.color = colorFrom(options.lightColor);
    options.stage.lighting.isOn = !options.unlit;
    StageContent content = loadStageContent(options.files);
    const double length = content.scene ? content.sceneMilliseconds * options.framesPerSecond / 1000
                                        : content.actionLength(options.action);
    const FrameRange range = framesFrom(options.frames, length);
    const Pose pose{.action = options.action, .patterns = patternMask(options, content.patternCount())};
    Stage stage(options.stage, std::move(content));
    writePictures(options, drawFrames(stage, options, range, pose), options.stage.background);
}

void addOutputOptions(CLI::App& command, RenderOptions& options) {
    command
        .add_option("-o,--out", options.out,
                    "A .png picture (a contact sheet of several frames), a .webp animation, or a folder for all of it")
        ->required();
    command.add_option("--size", options.size, "Of a picture, WIDTHxHEIGHT")->capture_default_str();
    command.add_option("--background", options.background, "RRGGBB")->capture_default_str();
    command.add_option("--columns", options.columns, "Pictures in a row of the contact sheet")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
}

void addPoseOptions(CLI::App& command, RenderOptions& options) {
    command.add_option("--action", options.action, "The action to play, counted from 0")->capture_default_str();
    command.add_option("--frames", options.frames, "FIRST:LAST or one frame; all but the action's last if not given");
    command.add_option("--step", options.step, "Frames from one picture to the next")
        ->check(CLI::Range(1.0 / 64, 32767.0))
        ->capture_default_str();
    command.add_option("--fps", options.framesPerSecond, "Frames of the action in a second of the animation")
        ->check(CLI::Range(0.1, 1000.0))
        ->capture_default_str();
    command.add_option("--pattern", options.patterns,
                       "Patterns to show, counted from 1, instead of those the action shows");
    command.add_flag("--no-pattern", options.basePatternOnly, "Show what is always drawn and nothing else");
}

void addCameraOptions(CLI::App& command, View& view) {
    command.add_option("--yaw", view.yawDegrees, "Degrees around what is looked at, 0 in front of it")
        ->capture_default_str();
    command.add_option("--pitch", view.pitchDegrees, "Degrees above it")
        ->check(CLI::Range(-90.0, 90.0))
        ->capture_default_str();
    command
        .add_option("--target", view.target, "The point to look at, x,y,z in units; the content's middle if not given")
        ->delimiter(',');
    command.add_option("--distance", view.distance, "From that point, in units; 0 shows all there is")
        ->check(CLI::Range(0.0, 100000.0))
        ->capture_default_str();
    command.add_option("--zoom", view.zoom, "Goes nearer by this factor")
        ->check(CLI::Range(0.01, 100.0))
        ->capture_default_str();
    command.add_option("--opening", view.openingDegrees, "Of the camera, degrees from bottom to top")
        ->check(CLI::Range(1.0, 170.0))
        ->capture_default_str();
}

// Each of them, when given, chooses the command line's lights over a package's own.
void addLightOptions(CLI::App& command, RenderOptions& options) {
    Lighting& lighting = options.stage.lighting;
    const auto choose = [&lighting](const std::string&) { lighting.isChosen = true; };
    command.add_option("--ambient", lighting.ambient, "Intensity of the light from everywhere")
        ->each(choose)
        ->capture_default_str();
    command.add_option("--light", lighting.direct, "Intensity of the light from one side")
        ->each(choose)
        ->capture_default_str();
    command
        .add_option("--light-direction", lighting.direction, "Where that light shines: right, up, towards the viewer")
        ->delimiter(',')
        ->each(choose)
        ->capture_default_str();
    command.add_option("--light-color", options.lightColor, "RRGGBB")->each(choose)->capture_default_str();
    command.add_flag("--unlit", options.unlit, "No lights at all")->each(choose);
}

}  // namespace

void addRenderCommand(CLI::App& app) {
    auto options = std::make_shared<RenderOptions>();
    CLI::App* command = app.add_subcommand("render", "Draw a figure or a package at the frames of an action");
    command
        ->add_option("files", options->files,
                     "A package (K8); or a figure (MB), an action table (MT), and textures (BMP) in the figure's order")
        ->required();
    addOutputOptions(*command, *options);
    addPoseOptions(*command, *options);
    addCameraOptions(*command, options->stage.view);
    addLightOptions(*command, *options);
    command->footer(
        "Every figure of a package plays the action, from the table that the package gives it; the longest\n"
        "decides how many frames there are, and shorter ones hold their end. A scene is shown as it is after so\n"
        "many frames at --fps; its longest animation decides how many there are. A package that has lights is\n"
        "lit by them alone, unless an option about light is given, which puts them out.");
    command->callback([options] { run(*options); });
}

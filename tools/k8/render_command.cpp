#include "tools/k8/render_command.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "tools/k8/picture.h"
#include "tools/k8/progress.h"
#include "tools/k8/usage_problem.h"
#include "tools/k8/webp_animation.h"

namespace {

uint32_t colorFrom(const std::string& text) {
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    if (text.size() != 6 || std::from_chars(text.data(), end, value, 16).ptr != end)
        throw UsageProblem("'" + text + "' is no colour; expected RRGGBB in hexadecimal");
    return value;
}

void parseSize(const std::string& text, StageOptions& stage) {
    int consumed = 0;
    const bool ok = std::sscanf(text.c_str(), "%dx%d%n", &stage.width, &stage.height, &consumed) == 2 &&
                    size_t(consumed) == text.size() && stage.width >= 1 && stage.width <= 2048 && stage.height >= 1 &&
                    stage.height <= 2048;
    if (!ok) throw UsageProblem("'" + text + "' is no size; expected WIDTHxHEIGHT, each 1 to 2048");
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
            throw UsageProblem("'" + text + "' is no frame range; expected FIRST:LAST or one frame");
        range.last = range.first;
    }
    if (!(range.first >= 0 && range.last >= range.first && range.last < 32768))
        throw UsageProblem("'" + text + "' is no frame range; frames rise from 0 to 32767");
    return range;
}

std::vector<Picture> drawFrames(Stage& stage, const RenderOptions& options, const FrameRange& range, const Pose& pose) {
    const int count = int(std::floor((range.last - range.first) / options.step + 1e-9)) + 1;
    if (count > 10000)
        throw UsageProblem("that would be " + std::to_string(count) +
                           " pictures; give a shorter range or a longer --step");
    std::vector<Pose> poses(size_t(count), pose);
    for (int i = 0; i < count; ++i) {
        poses[size_t(i)].frame = range.first + i * options.step;
        poses[size_t(i)].milliseconds = poses[size_t(i)].frame * 1000 / options.framesPerSecond;
    }
    std::vector<Picture> pictures;
    Progress progress("drawing", count);
    stage.showAllOf(poses);
    for (const Pose& drawn : poses) {
        pictures.push_back(stage.draw(drawn));
        progress.advance();
    }
    return pictures;
}

void report(const std::filesystem::path& path) { std::printf("%s\n", path.c_str()); }

// A name that ends in .png or .webp is one file; one without an ending, or of a folder that is there, is a folder for
// the frames, a contact sheet and the animation.
void checkName(const std::filesystem::path& out) {
    const auto ending = out.extension();
    if (out.empty()) throw UsageProblem("the name of the output is empty");
    if (out == "-") throw UsageProblem("pictures go to files or folders, not to the standard output");
    if (ending == ".png" || ending == ".webp" || ending.empty() || std::filesystem::is_directory(out)) return;
    throw UsageProblem("'" + out.string() + "' ends in " + ending.string() +
                       "; expected .png, .webp, or a folder's name without an ending");
}

void makeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw std::runtime_error(folder.string() + ": cannot be made: " + error.message());
}

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
    makeFolder(out);
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

}  // namespace

int runRender(const RenderOptions& options) {
    checkName(options.out);
    StageOptions stageOptions = options.stage;
    parseSize(options.size, stageOptions);
    stageOptions.background = colorFrom(options.background);
    stageOptions.lighting.color = colorFrom(options.lightColor);
    stageOptions.lighting.isOn = !options.unlit;
    if (std::ranges::all_of(stageOptions.lighting.direction, [](double n) { return std::lround(n * 4096) == 0; }))
        throw UsageProblem("--light-direction is 0,0,0, which is none");
    StageContent content = loadStageContent(options.files);
    const double actionLength = content.actionLength(options.action);  // is there such an action?
    const double sceneLength = content.sceneMilliseconds * options.framesPerSecond / 1000;
    const FrameRange range = framesFrom(options.frames, content.scene ? sceneLength : actionLength);
    const Pose pose{.action = options.action, .patterns = patternMask(options.patterns, content.patternCount())};
    Stage stage(stageOptions, std::move(content));
    writePictures(options, drawFrames(stage, options, range, pose), stageOptions.background);
    return 0;
}

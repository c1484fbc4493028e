// k8: what people do with K8 content from a shell. The command line is described here and nowhere else, since the
// headers of its parser take long to compile; commands get plain structures.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <memory>

#include "tools/k8/check_command.h"
#include "tools/k8/cross_command.h"
#include "tools/k8/info_command.h"
#include "tools/k8/pick_command.h"
#include "tools/k8/render_command.h"
#include "tools/k8/usage_problem.h"

// What the command line asks for.
struct Request {
    std::function<int()> run;  // returns the exit status
    int errorStatus = 1;
};

// The options live as long as the command.
template <typename Options>
static std::shared_ptr<Options> giveOptions(CLI::App* command, Request& request, int (*run)(const Options&),
                                            int errorStatus = 1) {
    auto options = std::make_shared<Options>();
    command->callback([options, &request, run, errorStatus] {
        request = {[options, run] { return run(*options); }, errorStatus};
    });
    return options;
}

static void addInfoCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("info", "Tell what a content file holds");
    const auto options = giveOptions(command, request, runInfo);
    command->add_option("file", options->file, "A figure (MB), action table (MT), texture (BMP) or package (K8)")
        ->required();
    command->add_flag("--json", options->json, "As JSON, for programs; lengths in units, colours as rrggbb");
    command->footer(
        "Boxes are in the units of drawing, of which a figure model has 64 to one. A package's groups, or the nodes\n"
        "of its scene, are shown as a tree, with the objects in it; every object follows with all it holds.");
}

static void addCheckCommand(CLI::App& app, Request& request) {
    CLI::App* command =
        app.add_subcommand("check", "Say whether content files are good, and what is wrong with others");
    const auto options = giveOptions(command, request, runCheck);
    command->add_option("files", options->files, "Figures (MB), action tables (MT), textures (BMP), packages (K8)")
        ->required();
    command->add_flag("-q,--quiet", options->quiet, "No lines for good files");
    command->footer(
        "Prints one line per file: \"FILE: good KIND\", or \"FILE: at offset N: what is wrong\", the offset counted\n"
        "in bytes from the start of the file. Every file is loaded with the library as well. The exit status is 0\n"
        "when all files are good and 1 otherwise.");
}

// --- render ---

static void addFigureFiles(CLI::App& command, std::vector<std::string>& files) {
    command
        .add_option("files", files,
                    "A package (K8); or a figure (MB), an action table (MT), and textures (BMP) in the figure's order")
        ->required();
}

static void addOutputOptions(CLI::App& command, RenderOptions& options) {
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

static void addPatternOptions(CLI::App& command, PatternChoice& patterns) {
    command.add_option("--pattern", patterns.shown,
                       "Patterns to show, counted from 1, instead of those the action shows");
    command.add_flag("--no-pattern", patterns.onlyBase, "Show what is always drawn and nothing else");
}

static void addPoseOptions(CLI::App& command, RenderOptions& options) {
    command.add_option("--action", options.action, "The action to play, counted from 0")->capture_default_str();
    command.add_option("--frames", options.frames, "FIRST:LAST or one frame; all but the action's last if not given");
    command.add_option("--step", options.step, "Frames from one picture to the next")
        ->check(CLI::Range(1.0 / 64, 32767.0))
        ->capture_default_str();
    command.add_option("--fps", options.framesPerSecond, "Frames of the action in a second of the animation")
        ->check(CLI::Range(0.1, 1000.0))
        ->capture_default_str();
    addPatternOptions(command, options.patterns);
}

static void addCameraOptions(CLI::App& command, View& view) {
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
static void addLightOptions(CLI::App& command, RenderOptions& options) {
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

static void addRenderCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("render", "Draw a figure or a package at the frames of an action");
    const auto options = giveOptions(command, request, runRender);
    addFigureFiles(*command, options->files);
    addOutputOptions(*command, *options);
    addPoseOptions(*command, *options);
    addCameraOptions(*command, options->stage.view);
    addLightOptions(*command, *options);
    command->footer(
        "Every figure of a package plays the action, from the table that the package gives it; the longest\n"
        "decides how many frames there are, and shorter ones hold their end. A scene is shown as it is after so\n"
        "many frames at --fps; its longest animation decides how many there are. A package that has lights is\n"
        "lit by them alone, unless an option about light is given, which puts them out.");
}

// --- pick and cross ---

constexpr int kNeitherYesNorNo = 2;

static void addPickCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("pick", "Tell which triangles of figures a ray hits");
    const auto options = giveOptions(command, request, runPick, kNeitherYesNorNo);
    addFigureFiles(*command, options->files);
    command->add_option("--ray", options->ray.numbers, "OX,OY,OZ,DX,DY,DZ: where it begins and its direction")
        ->delimiter(',')
        ->required();
    command->add_flag("--all", options->all, "Every hit, the nearest first, not the nearest alone");
    command->add_option("--action", options->action, "The action to pose, counted from 0")->capture_default_str();
    command->add_option("--frame", options->frame, "Of that action; 0 if not given")->check(CLI::Range(0.0, 32767.0));
    addPatternOptions(*command, options->patterns);
    command->add_flag("--json", options->json, "As JSON, for programs");
    command->footer(
        "The ray and its hits are in the space that boxes of \"k8 info\" are in and that \"k8 render\" draws: units "
        "of\n"
        "drawing, y upwards, every figure where the groups above it put it. Distances are in units, whatever the\n"
        "length of the direction.\n"
        "Triangles that are not drawn because they are seen from behind, or because their pattern is hidden, are not\n"
        "hit. Points, lines, faces and sprites that a package gives as primitives have no mesh to hit: the ray goes\n"
        "through them. Texture coordinates are texels where a figure model is hit.\n"
        "Figures with an action table, or with a choice of patterns, are posed as \"k8 render\" poses them, which "
        "takes\n"
        "OpenGL ES: the library poses what it draws. A scene is picked as its file places it, not animated, without\n"
        "the meshes of skeletons and what the file keeps from being picked.\n"
        "The exit status is 0 when something is hit, 1 when nothing is, and 2 or more when something is wrong.");
}

static void addCrossCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("cross", "Tell whether two contents touch");
    const auto options = giveOptions(command, request, runCross, kNeitherYesNorNo);
    command->add_option("files", options->files, "Two figures (MB) or packages (K8)")->required()->expected(2);
    command->add_option("--at", options->place.at, "Where the second stands, x,y,z in units")->delimiter(',');
    command->add_option("--turn", options->place.turnDegrees, "Degrees by which it is turned about the y axis");
    command->add_option("--scale", options->place.scale, "What it is scaled by")->check(CLI::Range(0.0001, 10000.0));
    CLI::Option* step = command->add_option("--step", options->step, "Moves it on by x,y,z until they touch");
    step->delimiter(',');
    command->add_option("--steps", options->steps, "At most so often")->check(CLI::Range(1u, 100000u))->needs(step);
    step->needs("--steps");
    command->add_flag("--json", options->json, "As JSON, for programs");
    command->footer(
        "The first content stands as \"k8 render\" draws it and the boxes of \"k8 info\" tell; the second is scaled, "
        "then\n"
        "turned, then moved. Contents touch when an edge of a triangle of one goes through a triangle of the other:\n"
        "one that is wholly inside the other does not touch it, nor do points and sprites, and lines hardly. The "
        "library\n"
        "computes with 10 bits per coordinate of an object.\n"
        "Contents are taken object by object. Figures are at rest; a scene is as its file places it, without the\n"
        "meshes of skeletons.\n"
        "The exit status is 0 when they touch, 1 when they do not, and 2 or more when something is wrong.");
}

int main(int argc, char** argv) {
    CLI::App app("Looks at K8 content. \"k8 COMMAND --help\" says more about a command.", "k8");
    Request request;
    app.require_subcommand(1);
    for (const auto addCommand : {addInfoCommand, addCheckCommand, addRenderCommand, addPickCommand, addCrossCommand})
        addCommand(app, request);
    try {
        app.parse(argc, argv);
        return request.run();
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const UsageProblem& problem) {
        return app.exit(CLI::ValidationError(problem.what()));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "k8: %s\n", error.what());
        return request.errorStatus;
    }
}

// k8: what people do with K8 content from a shell. The command line is described here and nowhere else, since the
// headers of its parser take long to compile; commands get plain structures.
#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>

#include "tools/k8/check_command.h"
#include "tools/k8/cross_command.h"
#include "tools/k8/info_command.h"
#include "tools/k8/pick_command.h"
#include "tools/k8/render_command.h"
#include "tools/k8/usage_problem.h"

constexpr int kFailed = 1;  // or "no", from commands that answer
constexpr int kUsage = 2;

// What the command line asks for.
struct Request {
    std::function<int()> run;  // returns the exit status
    int errorStatus = kFailed;
};

// The options live as long as the command.
template <typename Options>
static std::shared_ptr<Options> giveOptions(CLI::App* command, Request& request, int (*run)(const Options&),
                                            int errorStatus = kFailed) {
    auto options = std::make_shared<Options>();
    command->callback([options, &request, run, errorStatus] {
        request = {[options, run] { return run(*options); }, errorStatus};
    });
    return options;
}

// --- Numbers ---

// Empty, or what is wrong. The library takes no numbers beyond those of a float.
static std::string problemOfNumber(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool isNumber = end != text.c_str() && *end == 0 && std::abs(value) <= std::numeric_limits<float>::max();
    return isNumber ? "" : "'" + text + "' is no finite number";
}

// Before anything else is asked of them: a number that is none is in no range, or in all.
static void takeFiniteNumbersOnly(CLI::App& command) {
    const auto problemOf = [](std::string& text) { return problemOfNumber(text); };
    for (CLI::Option* option : command.get_options())
        if (option->get_type_name().find("FLOAT") != std::string::npos)
            option->transform(CLI::Validator(problemOf, ""));
}

template <size_t count>
static std::array<double, count> numbersOf(const std::string& name, const std::string& text) {
    const std::vector<std::string> parts = CLI::detail::split(text, ',');
    if (parts.size() != count)
        throw CLI::ValidationError(
            name, "'" + text + "' is not " + std::to_string(count) + " numbers with commas between them, in one word");
    std::array<double, count> numbers;
    for (size_t i = 0; i < count; ++i) {
        if (const std::string problem = problemOfNumber(parts[i]); !problem.empty())
            throw CLI::ValidationError(name, problem);
        numbers[i] = std::strtod(parts[i].c_str(), nullptr);
    }
    return numbers;
}

// An option that takes numbers with commas between them, into an array of them or an optional one.
template <size_t count, typename Numbers>
static CLI::Option* addNumbers(CLI::App& command, const char* name, Numbers& numbers, const char* description) {
    const auto take = [name, &numbers](const std::string& text) { numbers = numbersOf<count>(name, text); };
    return command.add_option_function<std::string>(name, take, description);
}

// --- info and check ---

static void addInfoCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("info", "Tell what a content file holds");
    const auto options = giveOptions(command, request, runInfo);
    command->add_option("file", options->file, "A figure (MB), action table (MT), texture (BMP) or package (K8)")
        ->required();
    command->add_flag("--json", options->json, "As JSON, for programs; lengths in units, colours as rrggbb");
    command->footer(
        "Boxes and places are in the units that \"k8 render\" draws in; vertices of figure models count in 64ths of\n"
        "them. A package's groups, or the nodes of its scene, are shown as a tree, with the objects in it;\n"
        "every object follows with all it holds.\n"
        "The exit status is 0, 1 when the file is not good, and 2 when the command line is wrong.");
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
        "in bytes from the start of the file. Every file is loaded with the library as well. A section of a scene\n"
        "whose checksum does not match is not good, although the library, which leaves checksums alone, loads it; a\n"
        "checksum of 0 counts as none.\n"
        "The exit status is 0 when all files are good, 1 when one is not, and 2 when the command line is wrong.");
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
                    "A .png picture (a contact sheet of several frames), a .webp animation, or a folder for all of it, "
                    "whose name has no ending")
        ->required();
    command.add_option("--size", options.size, "Of a picture, WIDTHxHEIGHT")->capture_default_str();
    command.add_option("--background", options.background, "RRGGBB")->capture_default_str();
    command.add_option("--columns", options.columns, "Pictures in a row of the contact sheet")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
}

static void addPatternOptions(CLI::App& command, PatternChoice& patterns) {
    CLI::Option* pattern = command.add_option("--pattern", patterns.shown,
                                              "Patterns to show, N,N..., counted from 1, not those the action shows");
    pattern->delimiter(',')->allow_extra_args(false);
    command.add_flag("--no-pattern", patterns.onlyBase, "Show what is always drawn and nothing else")
        ->excludes(pattern);
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
    addNumbers<3>(command, "--target", view.target, "The point to look at, in units; the content's middle if not given")
        ->type_name("X,Y,Z");
    command.add_option("--distance", view.distance, "From that point, in units; 0 shows all there is in any frame")
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
    CLI::Option* unlit = command.add_flag("--unlit", options.unlit, "No lights at all")->each(choose);
    const auto& [right, up, nearer] = lighting.direction;
    const std::initializer_list<CLI::Option*> lights = {
        command.add_option("--ambient", lighting.ambient, "Intensity of the light from everywhere")
            ->capture_default_str(),
        command.add_option("--light", lighting.direct, "Intensity of the light from one side")->capture_default_str(),
        addNumbers<3>(command, "--light-direction", lighting.direction, "Where that light shines")
            ->type_name("RIGHT,UP,NEARER")
            ->default_str(CLI::detail::join(std::array{right, up, nearer}, ",")),
        command.add_option("--light-color", options.lightColor, "RRGGBB")->capture_default_str()};
    for (CLI::Option* light : lights) light->each(choose)->excludes(unlit);
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
        "decides how many frames there are. An action holds its end in the frames after it. A scene is shown as it\n"
        "is after so many frames at --fps; its longest animation decides how many there are, and in the frames after\n"
        "it every animation holds its end or begins anew, as the file says. A package that has lights is lit by them\n"
        "alone, unless an option about light is given, which puts them out.\n"
        "The exit status is 0, 1 when the content cannot be drawn or the pictures not written, and 2 when the command\n"
        "line is wrong.");
}

// --- pick and cross ---

constexpr int kNeitherYesNorNo = kUsage;

static void addPickCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("pick", "Tell which triangles of figures a ray hits");
    const auto options = giveOptions(command, request, runPick, kNeitherYesNorNo);
    addFigureFiles(*command, options->files);
    addNumbers<6>(*command, "--ray", options->ray.numbers, "Where it begins, and its direction")
        ->type_name("OX,OY,OZ,DX,DY,DZ")
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
        "The exit status is 0 when something is hit, 1 when nothing is, and 2 when something is wrong.");
}

static void addCrossCommand(CLI::App& app, Request& request) {
    CLI::App* command = app.add_subcommand("cross", "Tell whether two contents touch");
    const auto options = giveOptions(command, request, runCross, kNeitherYesNorNo);
    command->add_option("files", options->files, "Two figures (MB) or packages (K8)")->required()->expected(2);
    addNumbers<3>(*command, "--at", options->place.at, "Where the second stands, in units")->type_name("X,Y,Z");
    command->add_option("--turn", options->place.turnDegrees, "Degrees by which it is turned about the y axis");
    command->add_option("--scale", options->place.scale, "What it is scaled by")->check(CLI::Range(0.0001, 10000.0));
    CLI::Option* step = addNumbers<3>(*command, "--step", options->step, "Moves it on by so much until they touch");
    step->type_name("X,Y,Z");
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
        "The exit status is 0 when they touch, 1 when they do not, and 2 when something is wrong.");
}

// --- The program ---

// The parser misses what is not there before it looks at what is there and means nothing.
static std::string problemOf(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    const bool hasCommand = !app.get_subcommands().empty();
    if (unknown.empty()) return hasCommand ? error.what() : "a command is missing";
    const std::string word = "'" + unknown.front() + "'";
    if (unknown.front().starts_with('-')) return "there is no option " + word;
    return hasCommand ? "nothing is expected where " + word + " stands" : "there is no command " + word;
}

static int refuse(const CLI::App& app, const std::string& problem) {
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const std::string command = commands.empty() ? "" : commands.front()->get_name() + " ";
    std::fprintf(stderr, "k8: %s\n\"k8 %s--help\" says more.\n", problem.c_str(), command.c_str());
    return kUsage;
}

static int fail(const Request& request, const char* problem) {
    std::fprintf(stderr, "k8: %s\n", problem);
    return request.errorStatus;
}

int main(int argc, char** argv) {
    CLI::App app("Looks at K8 content. \"k8 COMMAND --help\" says more about a command.", "k8");
    Request request;
    app.set_version_flag("--version", "k8 " K8_VERSION);
    app.require_subcommand(1);
    app.footer(
        "The exit status is 0 when all went well, 1 when content is not good or something failed, and 2 when the\n"
        "command line is wrong. Of the commands that answer yes or no, pick and cross, it is 0 for yes, 1 for no, and\n"
        "2 when there is no answer.");
    for (const auto addCommand : {addInfoCommand, addCheckCommand, addRenderCommand, addPickCommand, addCrossCommand})
        addCommand(app, request);
    for (CLI::App* command : app.get_subcommands({})) takeFiniteNumbersOnly(*command);
    try {
        app.parse(argc, argv);
        const int status = request.run();
        if (std::fflush(stdout) != 0 || std::ferror(stdout))
            return fail(request, ("the standard output: " + std::string(std::strerror(errno))).c_str());
        return status;
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : refuse(app, problemOf(app, error));
    } catch (const UsageProblem& problem) {
        return refuse(app, problem.what());
    } catch (const std::bad_alloc&) {
        return fail(request, "memory ran out");
    } catch (const std::exception& error) {
        return fail(request, error.what());
    }
}

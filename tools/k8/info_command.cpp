#include "tools/k8/info_command.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/k8/info.h"

namespace {

struct InfoOptions {
    std::string file;
    bool json = false;
};

void run(const InfoOptions& options) {
    const ContentInfo info = inspectFile(options.file);
    // What is no UTF-8 in the file's name is replaced, since JSON cannot say it.
    const std::string text =
        options.json ? jsonOf(info).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n" : textOf(info);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Tell what a content file holds");
    command->add_option("file", options->file, "A figure (MB), action table (MT), texture (BMP) or package (K8)")
        ->required();
    command->add_flag("--json", options->json, "As JSON, for programs; lengths in units, colours as rrggbb");
    command->footer(
        "Boxes are in the units of drawing, of which a figure model has 64 to one. A package's groups, or the nodes\n"
        "of its scene, are shown as a tree, with the objects in it; every object follows with all it holds.");
    command->callback([options] { run(*options); });
}

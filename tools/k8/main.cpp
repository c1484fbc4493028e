// k8: what people do with K8 content from a shell.
#include <cstdio>
#include <exception>

#include "tools/k8/check_command.h"
#include "tools/k8/info_command.h"
#include "tools/k8/render_command.h"

int main(int argc, char** argv) {
    CLI::App app("Looks at K8 content. \"k8 COMMAND --help\" says more about a command.", "k8");
    app.require_subcommand(1);
    addInfoCommand(app);
    addCheckCommand(app);
    addRenderCommand(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "k8: %s\n", error.what());
        return 1;
    }
}

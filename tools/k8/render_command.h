// k8 render: plays an action of a figure, or of those in a package, and writes what it looks like.
#pragma once

#include <CLI/CLI.hpp>

void addRenderCommand(CLI::App& app);

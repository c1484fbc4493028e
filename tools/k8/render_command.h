// k8 render: plays an action of a figure and writes what it looks like.
#pragma once

#include <CLI/CLI.hpp>

void addRenderCommand(CLI::App& app);

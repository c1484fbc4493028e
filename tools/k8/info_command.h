// k8 info: prints what a content file holds.
#pragma once

#include <CLI/CLI.hpp>

void addInfoCommand(CLI::App& app);

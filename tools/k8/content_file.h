// Content files as bytes, and the sentences that say what is wrong with them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/inspect/content_reader.h"

// Throws std::runtime_error with the path for what cannot be read, is empty, or is too large for content.
std::vector<uint8_t> readContentFile(const std::string& path);

// "PATH: at offset N: what is wrong"
std::string sentenceOf(const std::string& path, const inspect::ContentProblem& problem);

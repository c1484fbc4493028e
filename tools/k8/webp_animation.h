// Moving pictures as animated WebP files.
#pragma once

#include <string>
#include <vector>

#include "tools/k8/picture.h"

// Plays for ever. Throws std::runtime_error with the path when the file cannot be made.
void writeWebpAnimation(const std::string& path, const std::vector<Picture>& pictures, double framesPerSecond);

// Pictures kept in golden/, and the comparison with them.
//
// golden/renderer.txt names the OpenGL ES that drew them. The same one has to draw the same bytes; any other may differ by
// kChannelTolerance in every channel, and at kOutlierShare of the pixels, mostly edges, by anything.
//
// A picture that differs is left in the working folder, with NAME-difference.png beside it, where the difference is eight
// times as bright. The target renew_golden (or K8_RENEW_GOLDEN in the environment) writes golden/ anew instead of comparing.
#pragma once

#include <string>

#include "tools/k8/picture.h"

constexpr int kChannelTolerance = 8;     // of 255
constexpr double kOutlierShare = 0.002;  // ten times what Mesa's other software renderer needs, half a penguin's hat

// Wants the current OpenGL ES context to be the one that drew.
void expectGolden(const std::string& name, const Picture& drawn);

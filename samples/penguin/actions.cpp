#include <cmath>
#include <numbers>

#include "samples/penguin/penguin.h"

using namespace encode;

namespace {

constexpr double kUnit = 4096;  // 1.0

// A turn of a bone's z axis, in degrees: forward tips it down (the body above leans forward, a leg below swings back),
// left turns it to the left of the viewer's right, as the bone's own left.
MtVectorKey direction(uint16_t frame, double forward, double left = 0) {
    const double f = forward * std::numbers::pi / 180, l = left * std::numbers::pi / 180;
    const auto value = [](double v) { return int16_t(std::lround(v * kUnit)); };
    return {frame, value(std::cos(f) * std::sin(l)), value(-std::sin(f)), value(std::cos(f) * std::cos(l))};
}

int16_t turn(double degrees) { return int16_t(std::lround(degrees * kUnit / 360)); }
MtScalarKey roll(uint16_t frame, double degrees) { return {frame, turn(degrees)}; }
MtVectorKey scale(uint16_t frame, double across, double up) {
    const auto value = [](double v) { return int16_t(std::lround(v * kUnit)); };
    return {frame, value(across), value(up), value(across)};
}

std::vector<MtTrack> still() { return std::vector<MtTrack>(BoneCount, MtUnchanged{}); }

// A waddle: the body sways over the standing leg while the other swings, flippers held out for balance.
MtAction walk() {
    MtAction action{.name = "walk", .frameCount = 24, .tracks = still()};
    auto& t = action.tracks;
    t[Root] = MtTranslateDirectionRoll{
        .translation = {{0, 18, 0, 0}, {6, 0, 26, 0}, {12, -18, 0, 0}, {18, 0, 26, 0}, {24, 18, 0, 0}},
        .direction = {direction(0, 0, 7), direction(12, 0, -7), direction(24, 0, 7)},
        .roll = {roll(0, -7), roll(12, 7), roll(24, -7)}};
    t[Torso] = MtDirectionRoll{
        .direction = {direction(0, 4), direction(6, 7), direction(12, 4), direction(18, 7), direction(24, 4)},
        .roll = {roll(0, 4), roll(12, -4), roll(24, 4)}};
    t[Neck] = MtDirection{{direction(0, -4, -6), direction(12, -4, 6), direction(24, -4, -6)}};
    t[Head] = MtDirectionFixedTranslateRoll{
        .direction = {direction(0, 2), direction(6, -3), direction(12, 2), direction(18, -3), direction(24, 2)}};
    t[LeftFlipper] = MtDirectionRoll{.direction = {direction(0, 14), direction(12, -14), direction(24, 14)},
                                     .roll = {roll(0, 26), roll(6, 34), roll(12, 26), roll(18, 34), roll(24, 26)}};
    t[RightFlipper] =
        MtDirectionRoll{.direction = {direction(0, -14), direction(12, 14), direction(24, -14)},
                        .roll = {roll(0, -26), roll(6, -34), roll(12, -26), roll(18, -34), roll(24, -26)}};
    t[LeftFlipperTip] =
        MtDirectionRoll{.direction = {direction(0, 0)}, .roll = {roll(0, 8), roll(12, 18), roll(24, 8)}};
    t[RightFlipperTip] =
        MtDirectionRoll{.direction = {direction(0, 0)}, .roll = {roll(0, -18), roll(12, -8), roll(24, -18)}};
    t[LeftLeg] =
        MtDirection{{direction(0, -8), direction(6, -24), direction(12, 6), direction(18, 20), direction(24, -8)}};
    t[RightLeg] =
        MtDirection{{direction(0, 6), direction(6, 20), direction(12, -8), direction(18, -24), direction(24, 6)}};
    t[LeftFoot] =
        MtDirection{{direction(0, 10), direction(6, -14), direction(12, -4), direction(18, 12), direction(24, 10)}};
    t[RightFoot] =
        MtDirection{{direction(0, -4), direction(6, 12), direction(12, 10), direction(18, -14), direction(24, -4)}};
    t[Tail] =
        MtTranslateScaleDirectionRoll{.translation = {{0, 0, 0, 0}},
                                      .scale = {scale(0, 1, 1), scale(12, 1.1, 1), scale(24, 1, 1)},
                                      .direction = {direction(0, 4, 18), direction(12, 4, -18), direction(24, 4, 18)},
                                      .roll = {roll(0, 0)}};
    t[ScarfEnd] =
        MtDirection{{direction(0, -4), direction(6, -14), direction(12, -4), direction(18, -14), direction(24, -4)}};
    action.patterns = {{0, maskOf(WinterPattern)}};
    return action;
}

// Turns to the viewer, raises a flipper and waves; the hat sits askew.
MtAction wave() {
    MtAction action{.name = "wave", .frameCount = 36, .tracks = still()};
    auto& t = action.tracks;
    t[Root] = MtTranslateDirectionRoll{.translation = {{0, 0, 0, 0}},
                                       .direction = {direction(0, 0)},
                                       .roll = {roll(0, 0), roll(8, 4), roll(28, 4), roll(36, 0)}};
    t[Torso] = MtDirectionRoll{.direction = {direction(0, 0), direction(8, -5), direction(28, -5), direction(36, 0)},
                               .roll = {roll(0, 0), roll(8, 5), roll(28, 5), roll(36, 0)}};
    t[Head] = MtDirectionFixedTranslateRoll{.translation = {0, 6, 0},
                                            .direction = {direction(0, 0), direction(8, -6, -10), direction(18, -6, 8),
                                                          direction(28, -6, -10), direction(36, 0)},
                                            .roll = turn(-5)};
    t[Jaw] = MtDirection{
        {direction(0, 0), direction(10, 16), direction(14, 2), direction(18, 16), direction(22, 2), direction(36, 0)}};
    t[LeftFlipper] = MtDirectionRoll{
        .direction = {direction(0, 0), direction(8, -20), direction(28, -20), direction(36, 0)},
        .roll = {roll(0, 16), roll(8, 118), roll(13, 148), roll(18, 112), roll(23, 148), roll(28, 118), roll(36, 16)}};
    t[LeftFlipperTip] = MtDirectionRoll{
        .direction = {direction(0, 0)},
        .roll = {roll(0, 6), roll(8, 24), roll(13, -14), roll(18, 30), roll(23, -14), roll(28, 24), roll(36, 6)}};
    t[RightFlipper] =
        MtDirectionRoll{.direction = {direction(0, 0)}, .roll = {roll(0, -16), roll(18, -24), roll(36, -16)}};
    t[Tail] = MtDirection{{direction(0, 0, 20), direction(6, 0, -20), direction(12, 0, 20), direction(18, 0, -20),
                           direction(24, 0, 20), direction(30, 0, -20), direction(36, 0, 20)}};
    t[Hat] = MtConstantMatrix{rotationBone({0, 0, 1}, 9)};
    action.patterns = {{0, maskOf(WinterPattern)}};
    return action;
}

// Crouches, puts the umbrella up and floats down with it.
MtAction hop() {
    MtAction action{.name = "hop", .frameCount = 32, .tracks = still()};
    auto& t = action.tracks;
    t[Hips] = MtTranslateScaleDirectionRoll{
        .translation = {{0, 0, 0, 0},
                        {5, 0, -70, 0},
                        {10, 0, 180, 0},
                        {14, 0, 240, 0},
                        {27, 0, 0, 0},
                        {29, 0, -40, 0},
                        {32, 0, 0, 0}},
        .scale = {scale(0, 1, 1), scale(5, 1.12, 0.8), scale(9, 0.93, 1.12), scale(14, 1, 1), scale(27, 1, 1),
                  scale(29, 1.08, 0.88), scale(32, 1, 1)},
        .direction = {direction(0, 0), direction(5, 10), direction(10, -4), direction(20, 0), direction(32, 0)},
        .roll = {roll(0, 0), roll(16, -6), roll(22, 6), roll(27, 0)}};
    t[Head] = MtDirectionFixedTranslateRoll{
        .direction = {direction(0, 0), direction(5, 12), direction(12, -22), direction(24, -8), direction(32, 0)}};
    t[Jaw] = MtDirection{{direction(0, 0), direction(10, 14), direction(20, 14), direction(32, 0)}};
    t[LeftFlipper] =
        MtDirectionRoll{.direction = {direction(0, 0)},
                        .roll = {roll(0, 10), roll(5, 4), roll(10, 80), roll(18, 60), roll(24, 74), roll(32, 10)}};
    t[RightFlipper] =
        MtDirectionRoll{.direction = {direction(0, 0), direction(10, -60), direction(27, -60), direction(32, 0)},
                        .roll = {roll(0, -10), roll(10, -22), roll(27, -22), roll(32, -10)}};
    t[LeftLeg] =
        MtDirection{{direction(0, 0), direction(5, -24), direction(10, 26), direction(20, -8), direction(27, 0)}};
    t[RightLeg] =
        MtDirection{{direction(0, 0), direction(5, -24), direction(10, 18), direction(20, -14), direction(27, 0)}};
    t[LeftFoot] =
        MtDirection{{direction(0, 0), direction(5, 24), direction(10, 40), direction(20, 18), direction(27, 0)}};
    t[RightFoot] =
        MtDirection{{direction(0, 0), direction(5, 24), direction(10, 40), direction(20, 22), direction(27, 0)}};
    t[ScarfEnd] =
        MtDirection{{direction(0, 0), direction(10, 12), direction(14, -40), direction(26, -30), direction(32, 0)}};
    // The raised flipper points forward; the umbrella in it stays upright.
    t[Umbrella] = MtDirection{{direction(0, 0), direction(10, 60), direction(27, 60), direction(32, 0)}};
    action.patterns = {
        {0, maskOf(WinterPattern)}, {8, maskOf(WinterPattern) | maskOf(UmbrellaPattern)}, {30, maskOf(WinterPattern)}};
    return action;
}

}  // namespace

MtTable penguinActions() { return {.boneCount = BoneCount, .actions = {walk(), wave(), hop()}}; }

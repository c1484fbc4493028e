// Pip the penguin: an umbrella, a hat and a scarf that can be put on, two textures and three actions.
#pragma once

#include "tools/encode/bmp_encoder.h"
#include "tools/encode/k8_encoder.h"
#include "tools/encode/mb_encoder.h"
#include "tools/encode/mt_encoder.h"

enum PenguinBone {
    Root,
    Hips,
    Torso,
    Chest,
    Neck,
    Head,
    Jaw,
    LeftFlipper,
    LeftFlipperTip,
    RightFlipper,
    RightFlipperTip,
    LeftLeg,
    LeftFoot,
    RightLeg,
    RightFoot,
    Tail,
    Hat,
    ScarfEnd,
    Umbrella,
    BoneCount
};

// Polygon patterns, and the masks of an action that show them.
enum PenguinPattern : uint32_t { BodyPattern, WinterPattern, UmbrellaPattern };
constexpr uint32_t maskOf(PenguinPattern pattern) { return 1u << pattern; }

// Texture 0: two cut-outs in the top quarter (tuft of feathers, eye), the head's wrap below, the body's in the lower
// half. Texture 1: knitted stripes with a fringe in the upper half, an umbrella's panel in the lower half.
enum PenguinTexture : uint32_t { BodyTexture, GearTexture };

encode::MbFigure penguinFigure();
encode::MtTable penguinActions();
encode::BmpImage penguinBodyTexture();
encode::BmpImage penguinGearTexture();

// All of it: the figure with its textures and its actions.
encode::K8Package penguinPackage();

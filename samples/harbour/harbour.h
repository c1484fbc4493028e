// A harbour with a lighthouse: an animated scene. y points up, a unit is about a metre, one round of the animation
// takes kRound milliseconds.
#pragma once

#include "samples/harbour/scene_builder.h"

constexpr uint32_t kRound = 8000;

encode::M3gScene harbourScene();

// What parts of the scene share.
struct Shared {
    encode::M3gRef haze;                         // fog
    encode::M3gRef controller;                   // plays at the speed of the world
    encode::M3gRef opaque, seeThrough, glowing;  // compositing modes: plain, alpha, added by alpha
};

// Each adds a node with everything below it.
encode::M3gRef addSea(SceneBuilder& scene, const Shared& shared);         // morphing, see-through, on a sea floor
encode::M3gRef addLighthouse(SceneBuilder& scene, const Shared& shared);  // with its beam
encode::M3gRef addBoat(SceneBuilder& scene, const Shared& shared);        // with a skinned flag
encode::M3gRef addSky(SceneBuilder& scene, const Shared& shared);         // sprites: clouds and gulls

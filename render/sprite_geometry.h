// Where the corners of point sprites stand: rectangles parallel to the screen, all at the depth of their centre.
#pragma once

#include "render/render_state.h"

struct SpriteShape {
    int16_t corners[4][3];  // of (s0, t0), (s1, t0), (s1, t1), (s0, t1); 16 bits at most
    // A sprite of few units under perspective is given by its place instead, and corners about it in half pixels, which
    // view coordinates would round away.
    bool isPlaced;
    int32_t centre[3];   // view coordinates
    float unitX, unitY;  // view units in half a pixel
};

// centre: the world coordinates; record: kSpriteRecordLength values. False for a sprite at a depth where nothing is
// drawn.
bool SpriteGeometry_make(const RenderState& state, const int32_t* centre, const int32_t* record, SpriteShape* out);

#include "query/pick_reach.h"

#include <algorithm>
#include <cmath>

#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr float kExtent = 0x1p15f;  // of positions, in steps

static float largestOf(float x, float y, float z) { return std::max({std::fabs(x), std::fabs(y), std::fabs(z)}); }

static bool isWithin(float value, float least, float most) { return value >= least && value <= most; }

bool PickReach_of(const VertexBuffer* buffer, const PickRay& ray, PickReach* reach) {
    const auto& [o, d] = ray;
    const float* bias = buffer->positionBias;
    const float step = buffer->positionScale / float(stepsPerUnit(buffer->positions->componentSize));
    // A sum is NaN or infinite when a part of it is; std::max could lose a NaN.
    const float biasSteps = (std::fabs(bias[0]) + std::fabs(bias[1]) + std::fabs(bias[2])) / std::fabs(step);
    const float origin[] = {(o.x - bias[0]) / step, (o.y - bias[1]) / step, (o.z - bias[2]) / step};
    const float originSteps = std::fabs(origin[0]) + std::fabs(origin[1]) + std::fabs(origin[2]);
    const float directionSum = std::fabs(d.x) + std::fabs(d.y) + std::fabs(d.z);
    if (!isWithin(std::fabs(step), 0x1p-24f, 0x1p10f) || !(biasSteps <= 2 * kExtent) || !(originSteps < 0x1p40f) ||
        !std::isfinite(directionSum) || !isWithin(largestOf(d.x, d.y, d.z), 0x1p-30f, 0x1p30f))
        return false;
    reach->step = step;
    reach->slack = 0x1p-16f * (originSteps + kExtent + biasSteps);
    std::copy_n(origin, 3, reach->origin);
    return true;
}

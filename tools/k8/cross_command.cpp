#include "tools/k8/cross_command.h"

#include <cmath>
#include <cstdio>
#include <numbers>
#include <stdexcept>

#include "tools/k8/facts.h"

static qelTransform matrixOf(const CrossPlace& place) {
    const double angle = place.turnDegrees * std::numbers::pi / 180;
    const auto c = float(place.scale * std::cos(angle)), s = float(place.scale * std::sin(angle));
    const auto& [x, y, z] = place.at;
    // clang-format off
    const float elements[16] = { c, 0,                  s, float(x),
                                 0, float(place.scale), 0, float(y),
                                -s, 0,                  c, float(z),
                                 0, 0,                  0, 1};
    // clang-format on
    qelTransform out;
    qelTransform_set_fl(&out, elements);
    return out;
}

static bool doTouch(const PlacedObject& first, const PlacedObject& second, const qelTransform& place) {
    qelTransform moved;
    qelTransform_postMultiply_copy(&place, &second.placing, &moved);
    K8Transform a, b;
    K8Transform_createT(&a, &MALK8_malc, first.placing.elements);
    K8Transform_createT(&b, &MALK8_malc, moved.elements);
    const bool touch = K8Util_getCrossStatus(first.handle, &a, second.handle, &b) == 1;
    if (!touch && K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY) throw std::runtime_error("memory ran out");
    return touch;
}

// Object by object: the library takes groups as a whole, too, but then neither says what touches nor takes primitives
// and the nodes of scenes where they are drawn.
std::optional<Touch> findTouch(const Placements& first, const Placements& second, const CrossPlace& place) {
    const qelTransform matrix = matrixOf(place);
    for (size_t a = 0; a < first.objects.size(); ++a)
        for (size_t b = 0; b < second.objects.size(); ++b)
            if (doTouch(first.objects[a], second.objects[b], matrix)) return Touch{a, b};
    return std::nullopt;
}

// --- The command ---

namespace {

struct Side {
    StageContent content;
    Placements placements;
};

}  // namespace

static Side load(const std::string& path) {
    Side side = {loadStageContent({path}), {}};
    side.placements = placementsOf(side.content);
    return side;
}

static std::string nameOf(const Side& side, size_t object) {
    return nameOf(side.content, side.placements, side.placements.objects[object]);
}

static void print(const CrossOptions& options, const std::string& where, const CrossPlace& place, uint32_t step) {
    const auto& [x, y, z] = place.at;
    const char *first = options.files[0].c_str(), *second = options.files[1].c_str();
    if (where.empty())
        std::printf("%s and %s do not touch\n", first, second);
    else if (options.steps == 0)
        std::printf("%s and %s touch: %s\n", first, second, where.c_str());
    else
        std::printf("%s and %s touch after %u steps, the second at (%g, %g, %g): %s\n", first, second, step, x, y, z,
                    where.c_str());
}

static void printJson(const std::optional<Touch>& touch, const Side& first, const Side& second, const CrossPlace& place,
                      uint32_t step) {
    Facts facts = {{"touch", touch.has_value()}};
    if (touch) {
        const auto& [x, y, z] = place.at;
        const PlacedObject &a = first.placements.objects[touch->first], &b = second.placements.objects[touch->second];
        facts.insert(facts.end(), {{"firstObject", int64_t(a.number)},
                                   {"firstGroups", groupsAbove(first.placements, a)},
                                   {"secondObject", int64_t(b.number)},
                                   {"secondGroups", groupsAbove(second.placements, b)},
                                   {"step", int64_t(step)},
                                   {"at", std::vector<float>{float(x), float(y), float(z)}}});
    }
    std::printf("%s", jsonOf(facts).c_str());
}

int runCross(const CrossOptions& options) {
    const Side first = load(options.files[0]), second = load(options.files[1]);
    CrossPlace place = options.place;
    uint32_t step = 0;
    std::optional<Touch> touch = findTouch(first.placements, second.placements, place);
    while (!touch && step < options.steps) {
        ++step;
        for (size_t axis = 0; axis < 3; ++axis) place.at[axis] = options.place.at[axis] + step * options.step[axis];
        touch = findTouch(first.placements, second.placements, place);
    }
    if (options.json)
        printJson(touch, first, second, place, step);
    else
        print(options, touch ? nameOf(first, touch->first) + " and " + nameOf(second, touch->second) : "", place, step);
    return touch ? 0 : 1;
}

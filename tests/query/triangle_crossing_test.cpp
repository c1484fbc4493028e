#include "query/triangle_crossing.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "bench/plain_cross.h"
#include "tests/support/figure_fixture.h"

static CrossTriangle prepared(const PlainTriangle& corners) {
    CrossTriangle triangle{};
    for (int i = 0; i < 3; ++i) std::ranges::copy(corners[i], triangle.corners[i]);
    CrossTriangle_set(&triangle);
    return triangle;
}

static bool cross(const PlainTriangle& a, const PlainTriangle& b) {
    CrossTriangle one = prepared(a), other = prepared(b);
    return CrossTriangle_cross(&one, &other);
}

TEST(TriangleCrossing, TellsPiercingFromTouching) {
    constexpr int32_t u = 8192;
    const PlainTriangle floor = {{{-u, 0, -u}, {u, 0, -u}, {0, 0, u}}};
    struct Case {
        const char* name;
        PlainTriangle triangle;
        bool crosses;
    };
    const Case cases[] = {
        {"upright through the middle", {{{0, -u, 0}, {0, u, 0}, {u / 2, u, 0}}}, true},
        {"slanted through the middle", {{{-u / 4, -u, 0}, {u / 4, u, 9}, {u, u, 0}}}, true},
        {"upright beside it", {{{u, -u, u}, {u, u, u}, {2 * u, u, u}}}, false},
        {"above it", {{{0, 9, 0}, {u / 4, u, 0}, {0, u, u / 4}}}, false},
        {"in its plane", {{{-u / 2, 0, -u / 2}, {u / 2, 0, -u / 2}, {0, 0, 0}}}, false},
        {"parallel to it", {{{-u, 64, -u}, {u, 64, -u}, {0, 64, u}}}, false},
        {"itself", floor, false},
        {"a corner in its middle", {{{0, 0, 0}, {u / 4, u, 0}, {-u / 4, u, 0}}}, true},
        {"without area, through it", {{{-u / 4, -u, 0}, {0, 0, 0}, {u / 4, u, 0}}}, true},
        {"a point in its middle", {{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}}, false},
        {"pierced by its edge", {{{-u / 2, -u, -2 * u}, {-u / 2, u, -2 * u}, {-u / 2, 0, 2 * u}}}, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(cross(floor, each.triangle), each.crosses);
        EXPECT_EQ(cross(each.triangle, floor), each.crosses);
    }
}

// Coordinates of few bits meet edges and corners of each other all the time; those of 32 bits wrap around.
TEST(TriangleCrossing, DoesWhatTheFormulasSay) {
    std::mt19937 random(7);
    for (const int32_t limit : {2, 9, 300, 4096, 32768, 65536, 1 << 24, INT32_MAX}) {
        int32_t crossing = 0;
        constexpr int32_t kCount = 20000;
        for (int32_t i = 0; i < kCount; ++i) {
            PlainTriangle a, b;
            for (PlainTriangle* triangle : {&a, &b})
                for (PlainPoint& p : *triangle)
                    for (int32_t& value : p) value = randomBetween(random, -limit - 1, limit);
            if (random() % 4 == 0) b[random() % 3] = a[random() % 3];
            if (random() % 4 == 0) b[1] = {b[0][0], b[1][1], b[0][2]};
            const bool expected = plainTrianglesCross(a, b);
            crossing += expected;
            ASSERT_EQ(cross(a, b), expected) << "limit " << limit << ", pair " << i;
        }
        if (limit <= 65536) {
            EXPECT_GT(crossing, kCount / 50) << limit;
            EXPECT_LT(crossing, kCount / 2) << limit;
        }
    }
}

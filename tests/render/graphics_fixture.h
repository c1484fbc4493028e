// A Graphics3D on a recorded context, and meshes whose draws can be told apart.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "render/gl_state.h"
#include "render/graphics3d.h"
#include "scene/mesh.h"
#include "tests/render/scene_parts.h"
#include "tests/support/gl_recorder.h"

// A square of side 2 about the origin. The name, 0..99, hides in the z coordinates, in 1/1024.
struct NamedSquare {
    Held<VertexBuffer> buffer{qelVertexBuffer_create()};
    Held<TriangleStripArray> strip;

    explicit NamedSquare(int16_t name, float halfSide = 1) {
        Result result;
        int32_t length = 4;
        strip = Held<TriangleStripArray>(qelTriangleStripArray_createImplicit(0, &length, 1, true, &result));
        const int16_t s = 1024;
        const auto positions = makeArray<int16_t>(
            3, {int16_t(-s), int16_t(-s), name, s, int16_t(-s), name, int16_t(-s), s, name, s, s, name});
        qelVertexBuffer_setPositions(buffer, positions, halfSide / 1024, nullptr);
    }
};

inline Held<Appearance> makeAppearance(Blending blending = Blending::Replace, int32_t layer = 0) {
    Held<Appearance> appearance(qelAppearance_create());
    const Held<CompositingMode> mode(qelCompositingMode_create());
    qelCompositingMode_setBlending(mode, int32_t(blending));
    qelAppearance_setCompositingMode(appearance, mode);
    qelAppearance_setLayer(appearance, layer);
    return appearance;
}

// One submesh per appearance.
inline Held<Mesh> makeMesh(int16_t name, const std::vector<Appearance*>& appearances, float halfSide = 1) {
    const NamedSquare square(name, halfSide);
    const std::vector<TriangleStripArray*> strips(appearances.size(), square.strip.get());
    Result result;
    return Held<Mesh>(
        qelMesh_create(square.buffer, strips.data(), appearances.data(), int32_t(appearances.size()), &result));
}
inline Held<Mesh> makeMesh(int16_t name, Blending blending = Blending::Replace, float halfSide = 1) {
    return makeMesh(name, {makeAppearance(blending)}, halfSide);
}

class GraphicsTest : public testing::Test {
protected:
    static constexpr int32_t kWidth = 64, kHeight = 48;
    static inline int target;  // stands for the host's surface

    GraphicsTest() {
        glRecorder.reset();
        graphics = qelGraphics3D_create(kHintTrueColor, kWidth, kHeight);
        bind();
        glRecorder.take();
        qelTransform_setIdentity(&identity);
        qelCamera_setGeneric(camera, &identity);  // clip coordinates are world coordinates
        qelGraphics3D_setCamera(graphics, camera, nullptr);
    }
    ~GraphicsTest() override {
        qelGraphics3D_destroy(graphics);
        EXPECT_TRUE(glRecorder.liveTextures.empty()) << "OpenGL ES textures left behind";
    }

    Result bind(const PixelRect& area = {0, 0, kWidth, kHeight}, bool depthBuffer = true) {
        return qelGraphics3D_bindTarget(graphics, &target, area, kWidth, kHeight, depthBuffer, kHintTrueColor);
    }

    // A draw: the name of its mesh and the middle of its square after the matrices.
    struct Drawn {
        int name;
        float x, y, z;
        bool operator==(const Drawn&) const = default;
        friend void PrintTo(const Drawn& d, std::ostream* out) {
            *out << d.name << " at (" << d.x << ", " << d.y << ", " << d.z << ")";
        }
    };
    std::vector<Drawn> render(Node* node, const qelTransform* transform = nullptr, Result expected = QEL_STATUS_OK) {
        glRecorder.draws.clear();
        EXPECT_EQ(qelGraphics3D_render(graphics, node, transform), expected);
        std::vector<Drawn> all;
        for (const GlDraw& draw : glRecorder.draws) {
            Drawn& drawn = all.emplace_back(Drawn{int(draw.positions[0][2]), 0, 0, 0});
            for (const std::vector<float>& corner : draw.corners) {
                drawn.x += corner[0] / 4;
                drawn.y += corner[1] / 4;
                drawn.z += corner[2] / 4;
            }
            drawn.z = std::round(drawn.z);  // without what the name adds
        }
        return all;
    }
    std::vector<int> names(Node* node, const qelTransform* transform = nullptr) {
        std::vector<int> all;
        for (const Drawn& drawn : render(node, transform)) all.push_back(drawn.name);
        return all;
    }

    // Whether the calls since the last take contain these, which are given in brief.
    static bool sent(const std::vector<std::string>& calls) {
        const std::string all = brief(glRecorder.take());
        return std::ranges::all_of(calls, [&](const std::string& call) { return all.find(call) != std::string::npos; });
    }
    // A light on the x axis.
    void addLight(uint32_t color, float x) {
        const Held<Light> light(qelLight_create());
        qelLight_setColor(light, color);
        qelTransform place = identity;
        qelTransform_postTranslate(&place, x, 0, 0);
        Result result;
        EXPECT_GE(qelGraphics3D_addLight(graphics, light, &place, &result), 0);
    }
    // The colours of the lights in use, which tests give as numbers.
    std::vector<uint32_t> lightsInUse() const {
        std::vector<uint32_t> colors;
        for (const LightSlot& slot : graphics->backend->lights)
            if (slot.inUse) colors.push_back(slot.state.color);
        return colors;
    }

    Graphics3D* graphics;
    Held<Camera> camera{qelCamera_create()};
    qelTransform identity;
};

inline qelTransform translation(float x, float y, float z) {
    qelTransform transform;
    qelTransform_setIdentity(&transform);
    qelTransform_postTranslate(&transform, x, y, z);
    return transform;
}

#include "animation/animate_apply.h"

#include <bit>

#include "animation/quaternion.h"
#include "frame/fixed_point.h"
#include "frame/trigonometry.h"
#include "render/capabilities.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/fog.h"
#include "scene/group.h"
#include "scene/light.h"
#include "scene/material.h"
#include "scene/morphing_mesh.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"
#include "scene/transform.h"
#include "scene/vertex_buffer.h"

constexpr uint32_t kRgbBits = 0xFFFFFF;
constexpr uint32_t kAlphaBits = 0xFF000000;
constexpr float kSmallestPositive = std::bit_cast<float>(1u);

// NaN becomes the lower limit.
static float clampTo(float low, float value, float high) { return value > low ? (value < high ? value : high) : low; }

static float positive(float value) { return value > 0 ? value : kSmallestPositive; }

// In single precision, where 0.7 lies halfway between two bytes.
static uint32_t toByte(float channel) { return uint32_t(roundToInt(clampTo(0, channel, 1) * 255.0f)); }

static uint32_t toRgb(std::span<const float> values) {
    return toByte(values[0]) << 16 | toByte(values[1]) << 8 | toByte(values[2]);
}

// --- Colours ---

static void applyAlpha(Object3D* object, float value) {
    const uint32_t alpha = toByte(value) << 24;
    if (object->classId == ClassId::Background) {
        auto* background = static_cast<Background*>(object);
        qelBackground_setColor(background, (background->color & kRgbBits) | alpha);
    } else if (object->classId == ClassId::VertexBuffer) {
        auto* buffer = static_cast<VertexBuffer*>(object);
        qelVertexBuffer_setDefaultColor(buffer, (buffer->defaultColor & kRgbBits) | alpha);
    } else if (object->classId == ClassId::Material) {
        auto* material = static_cast<Material*>(object);
        qelMaterial_setColor(material, QEL_MATERIAL_DIFFUSE, (material->diffuseColor & kRgbBits) | alpha);
    } else {
        qelNode_setAlphaFactor(static_cast<Node*>(object), clampTo(0, value, 1));
    }
}

static void applyColor(Object3D* object, uint32_t rgb) {
    if (object->classId == ClassId::Background) {
        auto* background = static_cast<Background*>(object);
        qelBackground_setColor(background, (background->color & kAlphaBits) | rgb);
    } else if (object->classId == ClassId::VertexBuffer) {
        auto* buffer = static_cast<VertexBuffer*>(object);
        qelVertexBuffer_setDefaultColor(buffer, (buffer->defaultColor & kAlphaBits) | rgb);
    } else if (object->classId == ClassId::Fog) {
        qelFog_setColor(static_cast<Fog*>(object), rgb);
    } else if (object->classId == ClassId::Texture2D) {
        qelTexture2D_setBlendColor(static_cast<Texture2D*>(object), rgb);
    } else {
        qelLight_setColor(static_cast<Light*>(object), rgb);
    }
}

static void applyDiffuseColor(Material* material, uint32_t rgb) {
    qelMaterial_setColor(material, QEL_MATERIAL_DIFFUSE, (material->diffuseColor & kAlphaBits) | rgb);
}

// --- Crop rectangles ---

// Two values move the rectangle and leave its size.
static void applyCrop(Object3D* object, std::span<const float> values) {
    const int32_t x = roundToInt(values[0]), y = roundToInt(values[1]);
    const bool hasSize = values.size() == 4;
    if (object->classId == ClassId::Background) {
        auto* background = static_cast<Background*>(object);
        const int32_t width = hasSize ? roundToInt(values[2] > 0 ? values[2] : 0) : background->cropWidth;
        const int32_t height = hasSize ? roundToInt(values[3] > 0 ? values[3] : 0) : background->cropHeight;
        qelBackground_setCrop(background, x, y, width, height);
    } else {
        constexpr auto kLimit = float(kMaxSpriteCropDimension);
        auto* sprite = static_cast<Sprite3D*>(object);
        const int32_t width = hasSize ? roundToInt(clampTo(-kLimit, values[2], kLimit)) : sprite->cropWidth;
        const int32_t height = hasSize ? roundToInt(clampTo(-kLimit, values[3], kLimit)) : sprite->cropHeight;
        qelSprite3D_setCrop(sprite, x, y, width, height);
    }
}

// --- Cameras and fog ---

static void storeParameter(Camera* camera, float& parameter, float value) {
    if (parameter == value) return;
    parameter = value;
    camera->projectionDirty = 1;
    camera->stateChanged = 1;
}

static void applyClipDistance(Camera* camera, float& distance, float value) {
    switch (camera->projectionType) {
        case ProjectionType::Generic: break;
        case ProjectionType::Parallel: storeParameter(camera, distance, value); break;
        case ProjectionType::Perspective: storeParameter(camera, distance, positive(value)); break;
    }
}

static void applyFieldOfView(Camera* camera, float value) {
    switch (camera->projectionType) {
        case ProjectionType::Generic: break;
        case ProjectionType::Parallel: storeParameter(camera, camera->fovyOrHeight, positive(value)); break;
        case ProjectionType::Perspective:
            storeParameter(camera, camera->fovyOrHeight, clampTo(0.0001f, value, 179.9999f));
            break;
    }
}

static void applyNear(Object3D* object, float value) {
    if (object->classId == ClassId::Fog) {
        auto* fog = static_cast<Fog*>(object);
        qelFog_setLinear(fog, value, fog->far);
    } else {
        auto* camera = static_cast<Camera*>(object);
        applyClipDistance(camera, camera->near, value);
    }
}

static void applyFar(Object3D* object, float value) {
    if (object->classId == ClassId::Fog) {
        auto* fog = static_cast<Fog*>(object);
        qelFog_setLinear(fog, fog->near, value);
    } else {
        auto* camera = static_cast<Camera*>(object);
        applyClipDistance(camera, camera->far, value);
    }
}

// --- Transforms ---

static void applyOrientation(Transformable* t, std::span<const float> values) {
    float q[4] = {values[0], values[1], values[2], values[3]};
    Quaternion_normalize(q);
    qelTransformable_setOrientationQuat(t, q);
}

static void applyScale(Transformable* t, std::span<const float> values) {
    if (values.size() == 1)
        qelTransformable_setScale(t, values[0], values[0], values[0]);
    else
        qelTransformable_setScale(t, values[0], values[1], values[2]);
}

static void applyMatrix(Group* group, std::span<const float> values) {
    qelTransform matrix;
    qelTransform_set_fl(&matrix, values.data());
    qelTransformable_setComposite(group, &matrix);
}

// Turns the z axis onto the direction by the shortest way. The fourth value then turns about the new z axis. The angle
// and the axis that the group also keeps its orientation as are left alone. A direction lies on the old z axis when the
// squares of its x and y vanish in single precision.
static void applyDirection(Group* group, std::span<const float> values) {
    float direction[3] = {values[0], values[1], values[2]};
    _qel_normalize3(direction);
    const double x = direction[0], y = direction[1], z = direction[2];
    double rows[3][3] = {{1, 0, 0}, {0, z, 0}, {0, 0, z}};
    const bool isOnAxis = direction[0] * direction[0] == 0 && direction[1] * direction[1] == 0;
    if (!isOnAxis) {
        const double x2 = x * x, y2 = y * y;
        const double k = (1 - z) / (x2 + y2);
        rows[0][0] = z + k * y2;
        rows[0][1] = rows[1][0] = -k * x * y;
        rows[1][1] = z + k * x2;
        rows[0][2] = x;
        rows[1][2] = y;
        rows[2][0] = -x;
        rows[2][1] = -y;
    }
    const double radians = double(values[3]) * kRadiansPerDegree;
    const double c = stableCos(radians), sn = stableSin(radians);  // 1 and 0 for no angle
    float m[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    for (int32_t r = 0; r < 3; ++r) {
        m[4 * r] = float(rows[r][0] * c + rows[r][1] * sn);
        m[4 * r + 1] = float(rows[r][1] * c - rows[r][0] * sn);
        m[4 * r + 2] = float(rows[r][2]);
    }
    qelTransform_set_fl(&group->orientationMatrix, m);
    group->orientationChanged = 1;
}

// --- All properties ---

void qelObject3D_applyProperty(Object3D* object, AnimationProperty property, std::span<const float> values) {
    const float value = values[0];
    switch (property) {
        case AnimationProperty::Matrix: applyMatrix(static_cast<Group*>(object), values); break;
        case AnimationProperty::Reserved: break;
        case AnimationProperty::Direction: applyDirection(static_cast<Group*>(object), values); break;
        case AnimationProperty::Alpha: applyAlpha(object, value); break;
        case AnimationProperty::AmbientColor:
            qelMaterial_setColor(static_cast<Material*>(object), QEL_MATERIAL_AMBIENT, toRgb(values));
            break;
        case AnimationProperty::Color: applyColor(object, toRgb(values)); break;
        case AnimationProperty::Crop: applyCrop(object, values); break;
        case AnimationProperty::Density: qelFog_setDensity(static_cast<Fog*>(object), value > 0 ? value : 0); break;
        case AnimationProperty::DiffuseColor: applyDiffuseColor(static_cast<Material*>(object), toRgb(values)); break;
        case AnimationProperty::EmissiveColor:
            qelMaterial_setColor(static_cast<Material*>(object), QEL_MATERIAL_EMISSIVE, toRgb(values));
            break;
        case AnimationProperty::FarDistance: applyFar(object, value); break;
        case AnimationProperty::FieldOfView: applyFieldOfView(static_cast<Camera*>(object), value); break;
        case AnimationProperty::Intensity: qelLight_setIntensity(static_cast<Light*>(object), value); break;
        case AnimationProperty::MorphWeights:
            qelMorphingMesh_setWeights(static_cast<MorphingMesh*>(object), values.data());
            break;
        case AnimationProperty::NearDistance: applyNear(object, value); break;
        case AnimationProperty::Orientation: applyOrientation(static_cast<Transformable*>(object), values); break;
        case AnimationProperty::Pickability: qelNode_setPickingEnable(static_cast<Node*>(object), value >= 0.5f); break;
        case AnimationProperty::Scale: applyScale(static_cast<Transformable*>(object), values); break;
        case AnimationProperty::Shininess:
            qelMaterial_setShininess(static_cast<Material*>(object), clampTo(0, value, 128));
            break;
        case AnimationProperty::SpecularColor:
            qelMaterial_setColor(static_cast<Material*>(object), QEL_MATERIAL_SPECULAR, toRgb(values));
            break;
        case AnimationProperty::SpotAngle:
            qelLight_setSpotAngle(static_cast<Light*>(object), clampTo(0, value, 90));
            break;
        case AnimationProperty::SpotExponent:
            qelLight_setSpotExponent(static_cast<Light*>(object), clampTo(0, value, 128));
            break;
        case AnimationProperty::Translation:
            qelTransformable_setTranslation(static_cast<Transformable*>(object), values[0], values[1], values[2]);
            break;
        case AnimationProperty::Visibility:
            qelNode_setRenderingEnable(static_cast<Node*>(object), value >= 0.5f);
            break;
    }
}

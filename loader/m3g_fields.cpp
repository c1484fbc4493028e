#include "loader/m3g_fields.h"

#include <bit>

#include "animation/animation_track.h"
#include "scene/node.h"

// --- Values ---

bool M3gReader_readBoolean(M3gReader* reader) {
    const uint8_t value = readByte(reader->stream);
    if (value > 1) M3gReader_fail(reader, LoadReason::InvalidValue);
    return value == 1;
}

static bool isValid(float value) {
    constexpr uint32_t kExponent = 0x7F800000;
    const auto bits = std::bit_cast<uint32_t>(value), exponent = bits & kExponent;
    return bits == 0 || (exponent != 0 && exponent != kExponent);
}

float M3gReader_readFloat(M3gReader* reader) {
    const float value = reader->stream->functions->readFloat32(reader->stream);
    if (!isValid(value)) M3gReader_fail(reader, LoadReason::ObjectFailed);
    return value;
}

void M3gReader_readFloats(M3gReader* reader, std::span<float> out) {
    for (float& value : out) value = M3gReader_readFloat(reader);
}

uint32_t M3gReader_readRgb(M3gReader* reader) {
    const uint32_t red = readByte(reader->stream);
    const uint32_t green = readByte(reader->stream);
    const uint32_t blue = readByte(reader->stream);
    return 0xFF000000 | red << 16 | green << 8 | blue;
}

uint32_t M3gReader_readRgba(M3gReader* reader) {
    const uint32_t rgb = M3gReader_readRgb(reader) & 0xFFFFFF;
    return rgb | uint32_t(readByte(reader->stream)) << 24;
}

// --- Reading common fields ---

static void readObjectFields(M3gReader* reader, M3gObjectFields& fields) {
    SegmentStream* stream = reader->stream;
    fields.userId = readInt32(stream);

    fields.trackCount = M3gReader_readCount(reader, sizeof(uint32_t));
    fields.tracks = *stream;
    for (uint32_t i = 0; i < fields.trackCount; ++i)
        if (!M3gReader_isObject(reader, readUInt32(stream))) M3gReader_fail(reader, LoadReason::InvalidValue);

    fields.parameterCount = M3gReader_readCount(reader, 2 * sizeof(uint32_t));
    fields.parameters = *stream;
    for (uint32_t i = 0; i < fields.parameterCount; ++i) {
        skipBytes(stream, sizeof(uint32_t));
        skipBytes(stream, readUInt32(stream));
    }
}

static void readTransformFields(M3gReader* reader, M3gTransformFields& fields) {
    readObjectFields(reader, fields);
    fields.hasComponents = M3gReader_readBoolean(reader);
    if (fields.hasComponents) {
        M3gReader_readFloats(reader, fields.translation);
        M3gReader_readFloats(reader, fields.scale);
        M3gReader_readFloats(reader, fields.orientation);
    }
    fields.hasMatrix = M3gReader_readBoolean(reader);
    if (fields.hasMatrix) M3gReader_readFloats(reader, fields.matrix);
}

static int32_t readAlignmentTarget(M3gReader* reader) {
    const uint8_t target = readByte(reader->stream);
    if (target < uint8_t(AlignmentTarget::None) || target > uint8_t(AlignmentTarget::ZAxis))
        M3gReader_fail(reader, LoadReason::InvalidValue);
    return target;
}

static uint32_t readAlignmentReference(M3gReader* reader) {
    const uint32_t number = readUInt32(reader->stream);
    if (number != 0 && !M3gReader_isObject(reader, number)) M3gReader_fail(reader, LoadReason::InvalidValue);
    return number;
}

static void readAlignment(M3gReader* reader, M3gNodeFields& fields) {
    fields.zTarget = readAlignmentTarget(reader);
    fields.yTarget = readAlignmentTarget(reader);
    fields.zReference = readAlignmentReference(reader);
    fields.yReference = readAlignmentReference(reader);
    const bool isDouble = fields.zTarget == fields.yTarget && fields.zReference == fields.yReference;
    if (isDouble && fields.zTarget != int32_t(AlignmentTarget::None)) M3gReader_fail(reader, LoadReason::ObjectFailed);
}

M3gObjectFields M3gFields_readObject(M3gReader* reader) {
    M3gObjectFields fields{};
    readObjectFields(reader, fields);
    return fields;
}

M3gTransformFields M3gFields_readTransform(M3gReader* reader) {
    M3gTransformFields fields{};
    readTransformFields(reader, fields);
    return fields;
}

M3gNodeFields M3gFields_readNode(M3gReader* reader) {
    M3gNodeFields fields{};
    readTransformFields(reader, fields);
    fields.renderingEnabled = M3gReader_readBoolean(reader);
    fields.pickingEnabled = M3gReader_readBoolean(reader);
    fields.alpha = readByte(reader->stream);
    fields.scope = readInt32(reader->stream);
    fields.hasAlignment = M3gReader_readBoolean(reader);
    if (fields.hasAlignment) readAlignment(reader, fields);
    return fields;
}

// --- Giving them to an object ---

static void addParameters(M3gReader* reader, const M3gObjectFields& fields, Object3D* object) {
    if (fields.parameterCount == 0) return;
    auto* parameters = qelAllocArrayOf<UserParameter>(fields.parameterCount);
    if (!parameters) return M3gReader_failOutOfMemory(reader);
    qelObject3D_adoptUserParameters(object, parameters, fields.parameterCount);
    SegmentStream stream = fields.parameters;
    for (UserParameter& parameter : std::span(parameters, fields.parameterCount)) {
        parameter.id = readUInt32(&stream);
        const uint32_t length = readUInt32(&stream);
        parameter.data = qelAllocArrayOf<uint8_t>(length);
        if (!parameter.data) return M3gReader_failOutOfMemory(reader);
        parameter.length = length;
        readBytes(&stream, parameter.data, length);
    }
}

// Anything among the tracks that is none is left out. A new one is compared with all that are there.
static void addTracks(M3gReader* reader, const M3gObjectFields& fields, Object3D* object) {
    SegmentStream stream = fields.tracks;
    for (uint32_t i = 0; i < fields.trackCount && M3gReader_isIntact(reader); ++i) {
        const uint32_t number = readUInt32(&stream);
        Object3D* track = M3gReader_objectOf(reader, number);
        if (track->classId != ClassId::AnimationTrack) continue;
        M3gReader_deriveWork(reader, uint64_t(object->animationTrackCount));
        M3gReader_require(reader, qelObject3D_addAnimationTrack(object, static_cast<AnimationTrack*>(track)));
        M3gReader_useObject(reader, number);
    }
}

static void addTransform(M3gReader* reader, const M3gTransformFields& fields, Transformable* object) {
    if (fields.hasComponents) {
        const auto& [tx, ty, tz] = fields.translation;
        const auto& [sx, sy, sz] = fields.scale;
        const auto& [angle, ax, ay, az] = fields.orientation;
        qelTransformable_setTranslation(object, tx, ty, tz);
        qelTransformable_setScale(object, sx, sy, sz);
        M3gReader_require(reader, qelTransformable_setOrientation(object, angle, ax, ay, az));
    }
    if (fields.hasMatrix) {
        qelTransform matrix;
        qelTransform_set_fl(&matrix, fields.matrix);
        M3gReader_require(reader, qelTransformable_setTransform(object, &matrix));
    }
}

// A reference to something that cannot be aligned to leaves the node as its class makes it.
static void addAlignment(M3gReader* reader, const M3gNodeFields& fields, Node* node) {
    Object3D* z = M3gReader_objectOf(reader, fields.zReference);
    Object3D* y = M3gReader_objectOf(reader, fields.yReference);
    if ((z && !qelObject3D_isNode(z)) || (y && !qelObject3D_isNode(y))) return;
    M3gReader_require(reader, qelNode_setAlignment(node, static_cast<Node*>(z), fields.zTarget, static_cast<Node*>(y),
                                                   fields.yTarget));
    M3gReader_useObject(reader, fields.zReference);
    M3gReader_useObject(reader, fields.yReference);
}

static void addNodeState(M3gReader* reader, const M3gNodeFields& fields, Node* node) {
    constexpr float kAlphaStep = 0.003921569f;  // 1 / 255
    qelNode_setRenderingEnable(node, fields.renderingEnabled);
    qelNode_setPickingEnable(node, fields.pickingEnabled);
    qelNode_setScope(node, fields.scope);
    M3gReader_require(reader, qelNode_setAlphaFactor(node, float(fields.alpha) * kAlphaStep));
    if (fields.hasAlignment) addAlignment(reader, fields, node);
}

Object3D* M3gFields_complete(M3gReader* reader, const M3gObjectFields& fields, Object3D* object) {
    if (M3gReader_isIntact(reader)) {
        qelObject3D_setUserID(object, fields.userId);
        addParameters(reader, fields, object);
        addTracks(reader, fields, object);
    }
    if (M3gReader_isIntact(reader)) return object;
    qelObject3D_unref(object);
    return nullptr;
}

Object3D* M3gFields_complete(M3gReader* reader, const M3gTransformFields& fields, Transformable* object) {
    if (M3gReader_isIntact(reader)) addTransform(reader, fields, object);
    return M3gFields_complete(reader, fields, static_cast<Object3D*>(object));
}

Object3D* M3gFields_complete(M3gReader* reader, const M3gNodeFields& fields, Node* object) {
    if (M3gReader_isIntact(reader)) addNodeState(reader, fields, object);
    return M3gFields_complete(reader, fields, static_cast<Transformable*>(object));
}

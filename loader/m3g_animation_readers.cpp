// Keyframe sequences, tracks and controllers.
#include <cmath>
#include <span>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"

Object3D* M3gReader_readAnimationController(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const float speed = M3gReader_readFloat(reader), weight = M3gReader_readFloat(reader);
    const int32_t start = readInt32(reader->stream), end = readInt32(reader->stream);
    const float sequenceTime = M3gReader_readFloat(reader);
    const int32_t worldTime = readInt32(reader->stream);
    if (!M3gReader_isIntact(reader)) return nullptr;
    AnimationController* controller = qelAnimationController_create();
    if (!controller) return M3gReader_failCreation(reader);
    controller->speed = speed;  // the setter would move the sequence time along
    M3gReader_require(reader, qelAnimationController_setWeight(controller, weight));
    M3gReader_require(reader, qelAnimationController_setActiveInterval(controller, start, end));
    qelAnimationController_setPosition(controller, sequenceTime, worldTime);
    return M3gFields_complete(reader, fields, controller);
}

// Files cannot name the engine's own properties.
static bool isFileProperty(uint32_t property) {
    return property >= uint32_t(AnimationProperty::Alpha) && property <= uint32_t(AnimationProperty::Visibility);
}

Object3D* M3gReader_readAnimationTrack(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    auto* sequence = M3gReader_readRequired<KeyframeSequence>(reader, ClassId::KeyframeSequence);
    auto* controller = M3gReader_readOptional<AnimationController>(reader, ClassId::AnimationController);
    const uint32_t property = readUInt32(reader->stream);
    if (!isFileProperty(property)) M3gReader_fail(reader, LoadReason::InvalidValue);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    AnimationTrack* track = qelAnimationTrack_create(sequence, int32_t(property), &result);
    if (!track) return M3gReader_failCreation(reader, result);
    qelAnimationTrack_setController(track, controller);
    return M3gFields_complete(reader, fields, track);
}

// --- Keyframe sequences ---

enum class KeyframeEncoding : uint8_t { Float = 0, Quantised8 = 1, Quantised16 = 2 };

struct KeyframeLayout {
    KeyframeEncoding encoding;
    uint32_t keyframeCount, componentCount;
};

static uint32_t componentSizeOf(KeyframeEncoding encoding) {
    switch (encoding) {
        case KeyframeEncoding::Float: return 4;
        case KeyframeEncoding::Quantised8: return 1;
        case KeyframeEncoding::Quantised16: break;
    }
    return 2;
}

static KeyframeLayout readLayout(M3gReader* reader, uint8_t encoding) {
    KeyframeLayout layout{};
    layout.componentCount = readUInt32(reader->stream);
    layout.keyframeCount = readUInt32(reader->stream);
    if (encoding > uint8_t(KeyframeEncoding::Quantised16) || layout.componentCount < 1 || layout.keyframeCount < 1) {
        M3gReader_fail(reader, LoadReason::InvalidValue);
        return layout;
    }
    layout.encoding = KeyframeEncoding(encoding);
    const uint64_t quantisation = layout.encoding == KeyframeEncoding::Float ? 0 : 8 * uint64_t(layout.componentCount);
    const uint64_t perKeyframe = 4 + uint64_t(layout.componentCount) * componentSizeOf(layout.encoding);
    const uint64_t bytesLeft = LoaderStream_bytesLeft(reader->stream);
    if (quantisation > bytesLeft || layout.keyframeCount > (bytesLeft - quantisation) / perKeyframe)
        M3gReader_fail(reader, LoadReason::ObjectLength);
    return layout;
}

// Scratch of one value per component. bias and scale take quantised components from 0..1 to where they belong.
struct KeyframeValues {
    explicit KeyframeValues(uint32_t componentCount)
        : bias(componentCount), scale(componentCount), values(componentCount) {}
    bool hasMemory() const { return bias.data && scale.data && values.data; }

    Scratch<float> bias, scale, values;
};

static float dequantise(uint32_t quantised, double largest, float bias, float scale) {
    return float(quantised * double(scale) / largest + bias);
}

static float readComponent(M3gReader* reader, KeyframeEncoding encoding, float bias, float scale) {
    switch (encoding) {
        case KeyframeEncoding::Float: return M3gReader_readFloat(reader);
        case KeyframeEncoding::Quantised8: return dequantise(readByte(reader->stream), 255, bias, scale);
        case KeyframeEncoding::Quantised16: break;
    }
    return dequantise(readUInt16(reader->stream), 65535, bias, scale);
}

static void readKeyframes(M3gReader* reader, const KeyframeLayout& layout, KeyframeSequence* sequence) {
    KeyframeValues scratch(layout.componentCount);
    if (!scratch.hasMemory()) return M3gReader_failOutOfMemory(reader);
    const std::span<float> bias = scratch.bias.span(), scale = scratch.scale.span(), values = scratch.values.span();
    if (layout.encoding != KeyframeEncoding::Float) {
        M3gReader_readFloats(reader, bias);
        M3gReader_readFloats(reader, scale);
    }
    for (int32_t k = 0; k < sequence->keyframeCount; ++k) {
        const int32_t time = readInt32(reader->stream);
        for (uint32_t i = 0; i < values.size(); ++i) {
            values[i] = readComponent(reader, layout.encoding, bias[i], scale[i]);
            // Bias and scale can be fine, and their sum none.
            if (!std::isfinite(values[i])) M3gReader_fail(reader, LoadReason::ObjectFailed);
        }
        M3gReader_require(reader, qelKeyframeSequence_setKeyframe(sequence, k, time, values.data()));
    }
}

Object3D* M3gReader_readKeyframeSequence(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint8_t interpolation = readByte(reader->stream), repeatMode = readByte(reader->stream);
    const uint8_t encoding = readByte(reader->stream);
    const int32_t duration = readInt32(reader->stream);
    const int32_t validFirst = readInt32(reader->stream), validLast = readInt32(reader->stream);
    const KeyframeLayout layout = readLayout(reader, encoding);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    KeyframeSequence* sequence = qelKeyframeSequence_create(int32_t(layout.keyframeCount),
                                                            int32_t(layout.componentCount), interpolation, &result);
    if (!sequence) return M3gReader_failCreation(reader, result);
    M3gReader_require(reader, qelKeyframeSequence_setRepeatMode(sequence, repeatMode));
    M3gReader_require(reader, qelKeyframeSequence_setDuration(sequence, duration));
    M3gReader_require(reader, qelKeyframeSequence_setValidRange(sequence, validFirst, validLast));
    readKeyframes(reader, layout, sequence);
    return M3gFields_complete(reader, fields, sequence);
}

// Keyframe sequences, tracks and controllers.
#include <cmath>

#include "tools/inspect/scene_reader.h"

namespace inspect {

static SceneAnimationController readController(ObjectReader& o) {
    SceneAnimationController out;
    out.speed = o.real("the speed");
    out.weight = o.real("the weight");
    if (out.weight < 0) o.in.reject("the weight is negative");
    out.activeStart = o.i32("the start of the active interval");
    out.activeEnd = o.i32("the end of the active interval");
    o.in.expect(out.activeStart <= out.activeEnd, "the end of the active interval", out.activeEnd,
                "at least its start, " + std::to_string(out.activeStart));
    out.referenceSequenceTime = o.real("the reference sequence time");
    out.referenceWorldTime = o.i32("the reference world time");
    return out;
}

constexpr uint32_t kSlerp = 177, kSquad = 179;

static bool holdsQuaternions(const SceneKeyframeSequence& sequence) {
    return sequence.interpolation == kSlerp || sequence.interpolation == kSquad;
}

// The component counts that a property's values have when this is none of them; null for a good count.
static const char* expectedComponents(SceneProperty property, uint32_t count) {
    using enum SceneProperty;
    switch (property) {
        case Alpha:
        case Density:
        case FarDistance:
        case FieldOfView:
        case Intensity:
        case NearDistance:
        case Pickability:
        case Shininess:
        case SpotAngle:
        case SpotExponent:
        case Visibility: return count == 1 ? nullptr : "1";
        case AmbientColor:
        case Color:
        case DiffuseColor:
        case EmissiveColor:
        case SpecularColor:
        case Translation: return count == 3 ? nullptr : "3";
        case Crop: return count == 2 || count == 4 ? nullptr : "2 or 4";
        case Scale: return count == 1 || count == 3 ? nullptr : "1 or 3";
        case Orientation: return count == 4 ? nullptr : "4";
        case MorphWeights: break;
    }
    return nullptr;
}

static SceneAnimationTrack readTrack(ObjectReader& o) {
    SceneAnimationTrack out;
    out.sequence = o.required("the keyframe sequence", SceneType::KeyframeSequence);
    out.controller = o.optional("the controller", SceneType::AnimationController);
    const uint32_t property = o.in.u32("the property");
    o.in.expect(property >= uint32_t(SceneProperty::Alpha) && property <= uint32_t(SceneProperty::Visibility),
                "the property", property, "256 to 276");
    out.property = SceneProperty(property);
    const auto& sequence = o.scene.contentOf<SceneKeyframeSequence>(out.sequence);
    if (const char* counts = expectedComponents(out.property, sequence.componentCount))
        o.in.reject("the property is " + std::string(nameOf(out.property)) + ", whose components are " + counts +
                    ", the keyframe sequence has " + std::to_string(sequence.componentCount));
    const bool canTurn = out.property == SceneProperty::Orientation || out.property == SceneProperty::MorphWeights;
    if (holdsQuaternions(sequence) && !canTurn)
        o.in.reject("the property is " + std::string(nameOf(out.property)) +
                    ", which is not interpolated as a quaternion");
    return out;
}

// --- Keyframe sequences ---

namespace {

// Quantised values stand for bias + scale x value / largest.
struct Quantisation {
    std::vector<float> bias, scale;
    double largest;
};

}  // namespace

static void readValues(ObjectReader& o, const SceneKeyframeSequence& sequence, const Quantisation& quantisation) {
    for (uint32_t i = 0; i < sequence.componentCount; ++i) {
        if (sequence.encoding == 0) {
            o.real("a keyframe's value");
            continue;
        }
        const uint32_t value = o.in.unsignedValue("a keyframe's value", sequence.encoding);
        const double exact = value * double(quantisation.scale[i]) / quantisation.largest + quantisation.bias[i];
        if (!std::isfinite(float(exact))) o.in.reject("a keyframe's value is too large");
    }
}

static void checkCounts(ObjectReader& o, const SceneKeyframeSequence& sequence, uint32_t keyframeCount) {
    o.in.expect(keyframeCount >= 1, "the keyframe count", keyframeCount, "at least 1");
    o.in.expect(sequence.componentCount >= 1, "the component count", sequence.componentCount, "at least 1");
    o.in.expect(!holdsQuaternions(sequence) || sequence.componentCount == 4, "the component count",
                sequence.componentCount, "the 4 of a quaternion");
    const uint64_t left = o.in.size() - o.in.offset();
    const uint64_t valueBytes = sequence.encoding == 0 ? 4 : sequence.encoding;
    const uint64_t quantisation = sequence.encoding == 0 ? 0 : 8 * uint64_t(sequence.componentCount);
    if (quantisation > left || keyframeCount > (left - quantisation) / (4 + valueBytes * sequence.componentCount))
        o.in.reject("the keyframes do not fit into the " + std::to_string(left) + " bytes that are left");
    o.in.expect(sequence.validFirst < keyframeCount, "the first valid keyframe", sequence.validFirst,
                "less than " + std::to_string(keyframeCount));
    o.in.expect(sequence.validLast < keyframeCount, "the last valid keyframe", sequence.validLast,
                "less than " + std::to_string(keyframeCount));
}

static SceneKeyframeSequence readSequence(ObjectReader& o) {
    SceneKeyframeSequence out;
    out.interpolation = o.oneOf("the interpolation", 176, 180);
    out.repeats = o.oneOf("the repeat mode", 192, 193) == 193;
    out.encoding = o.oneOf("the encoding", 0, 2);
    out.duration = o.in.u32("the duration");
    o.in.expect(out.duration >= 1 && out.duration <= INT32_MAX, "the duration", out.duration, "1 to 2147483647");
    out.validFirst = o.in.u32("the first valid keyframe");
    out.validLast = o.in.u32("the last valid keyframe");
    out.componentCount = o.in.u32("the component count");
    const uint32_t keyframeCount = o.in.u32("the keyframe count");
    checkCounts(o, out, keyframeCount);
    Quantisation quantisation{{}, {}, out.encoding == 1 ? 255.0 : 65535.0};
    if (out.encoding != 0) {
        quantisation.bias.resize(out.componentCount);
        quantisation.scale.resize(out.componentCount);
        o.reals("the bias", quantisation.bias);
        o.reals("the scale", quantisation.scale);
    }
    for (uint32_t k = 0; k < keyframeCount; ++k) {
        out.times.push_back(o.in.u32("a keyframe's time"));
        o.in.expect(out.times.back() <= INT32_MAX, "a keyframe's time", out.times.back(), "0 to 2147483647");
        readValues(o, out, quantisation);
    }
    return out;
}

SceneContent readAnimationClass(ObjectReader& o, SceneType type) {
    if (type == SceneType::AnimationController) return readController(o);
    if (type == SceneType::AnimationTrack) return readTrack(o);
    return readSequence(o);
}

}  // namespace inspect

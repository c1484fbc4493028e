#include "tools/encode/m3g_objects.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace encode {

static constexpr uint32_t kFirstNumber = 2;  // 0 is null, 1 stands for the file's header
static constexpr uint8_t kExternalReferenceType = 255;

template <typename Wanted, size_t... I>
static constexpr size_t findType(std::index_sequence<I...>) {
    return ((std::is_same_v<Wanted, std::variant_alternative_t<I, M3gRecord>> ? I : 0) + ...);
}
// A set of classes, a bit per type.
template <typename... Classes>
static constexpr uint32_t kClasses =
    ((1u << findType<Classes>(std::make_index_sequence<std::variant_size_v<M3gRecord>>())) | ...);
static constexpr uint32_t kNodes =
    kClasses<M3gCamera, M3gGroup, M3gLight, M3gMesh, M3gMorphingMesh, M3gSkinnedMesh, M3gSprite3D, M3gWorld>;
static constexpr uint32_t kUnreferable = kClasses<M3gHeader, M3gExternalReference>;

static uint32_t classOf(const M3gRecord& record) { return 1u << record.index(); }

std::vector<uint32_t> numberM3gObjects(const M3gScene& scene) {
    std::vector<uint32_t> numbers;
    uint32_t next = kFirstNumber;
    for (const M3gRecord& record : scene.objects) numbers.push_back(classOf(record) & kUnreferable ? 0 : next++);
    return numbers;
}

uint8_t m3gObjectType(const M3gRecord& record) {
    return std::holds_alternative<M3gExternalReference>(record) ? kExternalReferenceType : uint8_t(record.index());
}

namespace {

enum class Null : bool { Refused, Allowed };

struct ObjectWriter {
    const M3gScene& scene;
    std::span<const uint32_t> numbers;
    size_t position;
    ByteWriter writer{};

    void check(bool condition, const std::string& text) const {
        if (!condition && !scene.allowInvalid) throw std::invalid_argument(text);
    }

    // Numbers.

    void putBool(const std::string& name, bool value) { writer.putU8(name, value); }

    // Readers take +0 and normalised numbers only.
    void putFloat(const std::string& name, float value) {
        check(std::isnormal(value) || (value == 0 && !std::signbit(value)), name + " is no valid float");
        writer.putF32(name, value);
    }

    template <typename Floats>
    void putFloats(const std::string& name, const Floats& values) {
        for (size_t e = 0; e < values.size(); ++e) putFloat(indexed(name, e), values[e]);
    }

    void putRgb(const std::string& name, uint32_t color) {
        check(color <= 0xFFFFFF, name + " is no 0xRRGGBB");
        writer.putU8(name + ".r", color >> 16 & 0xFF);
        writer.putU8(name + ".g", color >> 8 & 0xFF);
        writer.putU8(name + ".b", color & 0xFF);
    }

    void putArgb(const std::string& name, uint32_t color) {
        putRgb(name, color & 0xFFFFFF);
        writer.putU8(name + ".a", color >> 24);
    }

    template <typename Enum>
    void putEnum(const std::string& name, Enum value) {
        writer.putUnsigned(name, std::underlying_type_t<Enum>(value), 8 * sizeof(Enum));
    }

    void putText(std::string_view text) {
        if (text.find('\0') != text.npos) throw std::invalid_argument("texts end at their first NUL");
        writer.putText(text);
        writer.putU8("terminator", 0);
    }

    // References.

    void putRef(const std::string& name, M3gRef ref, uint32_t classes, Null null = Null::Allowed) {
        if (ref == M3gRef{}) {
            check(null == Null::Allowed, name + " is none");
            writer.putU32(name, 0);
            return;
        }
        if (ref.position >= scene.objects.size()) throw std::invalid_argument(name + " names what is not there");
        check(ref.position < position, name + " names a later object");
        check(classOf(scene.objects[ref.position]) & classes, name + " names an object of another class");
        writer.putU32(name, numbers[ref.position]);
    }

    void putRefs(const std::string& countName, const std::string& name, const std::vector<M3gRef>& refs,
                 uint32_t classes, Null null) {
        writer.putU32(countName, refs.size());
        for (size_t k = 0; k < refs.size(); ++k) putRef(indexed(name, k), refs[k], classes, null);
    }

    // What classes share.

    void putCommon(const M3gObject& object) {
        writer.putU32("userId", object.userId);
        putRefs("trackCount", "track", object.tracks, kClasses<M3gAnimationTrack>, Null::Refused);
        writer.putU32("parameterCount", object.parameters.size());
        for (size_t k = 0; k < object.parameters.size(); ++k) {
            const std::string name = indexed("parameter", k);
            writer.putU32(name + ".id", object.parameters[k].id);
            writer.putU32(name + ".length", object.parameters[k].value.size());
            writer.putBytes(object.parameters[k].value);
        }
    }

    void putTransform(const M3gTransform& transform) {
        putBool("hasComponents", transform.components.has_value());
        if (transform.components) {
            const M3gComponents& components = *transform.components;
            check(components.angle == 0 || components.axis != M3gVector{}, "an angle needs an axis");
            putFloats("translation", components.translation);
            putFloats("scale", components.scale);
            putFloat("angle", components.angle);
            putFloats("axis", components.axis);
        }
        putBool("hasMatrix", transform.matrix.has_value());
        if (transform.matrix) putFloats("matrix", *transform.matrix);
    }

    void putNode(const M3gNode& node) {
        if (node.transform.matrix) {
            const M3gMatrix& m = *node.transform.matrix;
            check(m[12] == 0 && m[13] == 0 && m[14] == 0 && m[15] == 1, "the bottom row of a node's matrix is 0 0 0 1");
        }
        putTransform(node.transform);
        putBool("rendering", node.rendering);
        putBool("picking", node.picking);
        writer.putU8("alpha", node.alpha);
        writer.putU32("scope", node.scope);
        putBool("hasAlignment", node.alignment.has_value());
        if (!node.alignment) return;
        const M3gAlignment& alignment = *node.alignment;
        const bool isSame = alignment.zTarget == alignment.yTarget && alignment.zReference == alignment.yReference;
        check(!isSame || alignment.zTarget == M3gAlignmentTarget::None, "both axes are aligned to the same");
        putEnum("zTarget", alignment.zTarget);
        putEnum("yTarget", alignment.yTarget);
        putRef("zReference", alignment.zReference, kNodes);
        putRef("yReference", alignment.yReference, kNodes);
    }

    template <typename Mesh>
    void putMesh(const Mesh& mesh) {
        putRef("vertices", mesh.vertices, kClasses<M3gVertexBuffer>, Null::Refused);
        check(!mesh.submeshes.empty(), "there are no submeshes");
        writer.putU32("submeshCount", mesh.submeshes.size());
        for (size_t k = 0; k < mesh.submeshes.size(); ++k) {
            const std::string name = indexed("submesh", k);
            putRef(name + ".strips", mesh.submeshes[k].strips, kClasses<M3gTriangleStripArray>, Null::Refused);
            putRef(name + ".appearance", mesh.submeshes[k].appearance, kClasses<M3gAppearance>);
        }
    }

    const M3gImage2D* findImage(M3gRef ref) const {
        return ref.position < scene.objects.size() ? std::get_if<M3gImage2D>(&scene.objects[ref.position]) : nullptr;
    }

    // The classes, without what every object has.

    void putClass(const M3gHeader& header);
    void putClass(const M3gAnimationController& controller);
    void putClass(const M3gAnimationTrack& track);
    void putClass(const M3gAppearance& appearance);
    void putClass(const M3gBackground& background);
    void putClass(const M3gCamera& camera);
    void putClass(const M3gCompositingMode& mode);
    void putClass(const M3gFog& fog);
    void putClass(const M3gPolygonMode& mode);
    void putClass(const M3gGroup& group);
    void putClass(const M3gImage2D& image);
    void putClass(const M3gTriangleStripArray& strips);
    void putClass(const M3gLight& light);
    void putClass(const M3gMaterial& material);
    void putClass(const M3gMesh& mesh);
    void putClass(const M3gMorphingMesh& mesh);
    void putClass(const M3gSkinnedMesh& mesh);
    void putClass(const M3gTexture2D& texture);
    void putClass(const M3gSprite3D& sprite);
    void putClass(const M3gKeyframeSequence& sequence);
    void putClass(const M3gVertexArray& array);
    void putClass(const M3gVertexBuffer& buffer);
    void putClass(const M3gWorld& world);
    void putClass(const M3gExternalReference& reference) { putText(reference.name); }
};

}  // namespace

void ObjectWriter::putClass(const M3gHeader& header) {
    const bool needsFiles = std::ranges::any_of(
        scene.objects, [](const M3gRecord& each) { return std::holds_alternative<M3gExternalReference>(each); });
    writer.putU8("versionMajor", header.versionMajor);
    writer.putU8("versionMinor", header.versionMinor);
    putBool("hasExternalReferences", needsFiles);
    writer.putU32("totalFileSize", header.totalFileSize.value_or(0));
    writer.putU32("approximateContentSize", header.approximateContentSize.value_or(0));
    putText(header.author);
}

void ObjectWriter::putClass(const M3gAnimationController& controller) {
    putFloat("speed", controller.speed);
    putFloat("weight", controller.weight);
    writer.putI32("activeStart", controller.activeStart);
    writer.putI32("activeEnd", controller.activeEnd);
    putFloat("referenceSequenceTime", controller.referenceSequenceTime);
    writer.putI32("referenceWorldTime", controller.referenceWorldTime);
}

void ObjectWriter::putClass(const M3gAnimationTrack& track) {
    putRef("sequence", track.sequence, kClasses<M3gKeyframeSequence>, Null::Refused);
    putRef("controller", track.controller, kClasses<M3gAnimationController>);
    putEnum("property", track.property);
}

void ObjectWriter::putClass(const M3gAppearance& appearance) {
    writer.putSigned("layer", appearance.layer, 8);
    putRef("compositingMode", appearance.compositingMode, kClasses<M3gCompositingMode>);
    putRef("fog", appearance.fog, kClasses<M3gFog>);
    putRef("polygonMode", appearance.polygonMode, kClasses<M3gPolygonMode>);
    putRef("material", appearance.material, kClasses<M3gMaterial>);
    putRefs("textureCount", "texture", appearance.textures, kClasses<M3gTexture2D>, Null::Allowed);
}

void ObjectWriter::putClass(const M3gBackground& background) {
    const M3gImage2D* image = findImage(background.image);
    putArgb("color", background.color);
    putRef("image", background.image, kClasses<M3gImage2D>);
    putEnum("modeX", background.modeX);
    putEnum("modeY", background.modeY);
    writer.putI32("cropX", background.cropX);
    writer.putI32("cropY", background.cropY);
    writer.putU32("cropWidth", background.cropWidth.value_or(image ? image->width : 0));
    writer.putU32("cropHeight", background.cropHeight.value_or(image ? image->height : 0));
    putBool("depthClear", background.depthClear);
    putBool("colorClear", background.colorClear);
}

void ObjectWriter::putClass(const M3gCamera& camera) {
    putNode(camera.node);
    putEnum("projection", camera.projection);
    if (camera.projection == M3gProjection::Generic) {
        putFloats("projectionMatrix", camera.matrix);
        return;
    }
    putFloat("fieldOfView", camera.fieldOfView);
    putFloat("aspectRatio", camera.aspectRatio);
    putFloat("near", camera.near);
    putFloat("far", camera.far);
}

void ObjectWriter::putClass(const M3gCompositingMode& mode) {
    putBool("depthTest", mode.depthTest);
    putBool("depthWrite", mode.depthWrite);
    putBool("colorWrite", mode.colorWrite);
    putBool("alphaWrite", mode.alphaWrite);
    putEnum("blending", mode.blending);
    writer.putU8("alphaThreshold", mode.alphaThreshold);
    putFloat("depthOffsetFactor", mode.depthOffsetFactor);
    putFloat("depthOffsetUnits", mode.depthOffsetUnits);
}

void ObjectWriter::putClass(const M3gFog& fog) {
    putRgb("color", fog.color);
    putEnum("mode", fog.mode);
    if (fog.mode == M3gFogMode::Exponential) {
        putFloat("density", fog.density);
    } else {
        putFloat("near", fog.near);
        putFloat("far", fog.far);
    }
}

void ObjectWriter::putClass(const M3gPolygonMode& mode) {
    putEnum("culling", mode.culling);
    putEnum("shading", mode.shading);
    putEnum("winding", mode.winding);
    putBool("twoSidedLighting", mode.twoSidedLighting);
    putBool("localCameraLighting", mode.localCameraLighting);
    putBool("perspectiveCorrection", mode.perspectiveCorrection);
}

void ObjectWriter::putClass(const M3gGroup& group) {
    putNode(group.node);
    putRefs("childCount", "child", group.children, kNodes, Null::Refused);
}

static size_t componentsOf(M3gImageFormat format) {
    switch (format) {
        case M3gImageFormat::Alpha:
        case M3gImageFormat::Luminance: return 1;
        case M3gImageFormat::LuminanceAlpha: return 2;
        case M3gImageFormat::Rgb: return 3;
        case M3gImageFormat::Rgba: return 4;
    }
    throw std::invalid_argument("there is no such image format");
}

void ObjectWriter::putClass(const M3gImage2D& image) {
    putEnum("format", image.format);
    putBool("isMutable", image.isMutable);
    writer.putU32("width", image.width);
    writer.putU32("height", image.height);
    if (image.isMutable) {
        check(image.palette.empty() && image.pixels.empty(), "mutable images have no pixels");
        return;
    }
    const size_t entrySize = componentsOf(image.format), pixelSize = image.palette.empty() ? entrySize : 1;
    check(image.palette.size() % entrySize == 0 && image.palette.size() <= 256 * entrySize,
          "a palette has at most 256 whole entries");
    check(image.pixels.size() == size_t(image.width) * image.height * pixelSize, "the pixels do not fill the image");
    writer.putU32("paletteLength", image.palette.size());
    writer.putBytes(image.palette);
    writer.putU32("pixelLength", image.pixels.size());
    writer.putBytes(image.pixels);
}

static M3gStripEncoding chooseEncoding(const M3gTriangleStripArray& strips) {
    if (strips.encoding) return *strips.encoding;
    if (strips.indices.empty())
        return strips.start <= UINT8_MAX    ? M3gStripEncoding::Start8
               : strips.start <= UINT16_MAX ? M3gStripEncoding::Start16
                                            : M3gStripEncoding::Start32;
    const uint32_t greatest = std::ranges::max(strips.indices);
    return greatest <= UINT8_MAX    ? M3gStripEncoding::Indices8
           : greatest <= UINT16_MAX ? M3gStripEncoding::Indices16
                                    : M3gStripEncoding::Indices32;
}

void ObjectWriter::putClass(const M3gTriangleStripArray& strips) {
    const M3gStripEncoding encoding = chooseEncoding(strips);
    constexpr std::array<uint32_t, 3> kWidths = {32, 8, 16};
    const bool isExplicit = encoding >= M3gStripEncoding::Indices32;
    const uint32_t width =
        kWidths.at(uint32_t(encoding) - uint32_t(isExplicit ? M3gStripEncoding::Indices32 : M3gStripEncoding::Start32));
    putEnum("encoding", encoding);
    if (isExplicit) {
        writer.putU32("indexCount", strips.indices.size());
        for (size_t k = 0; k < strips.indices.size(); ++k)
            writer.putUnsigned(indexed("index", k), strips.indices[k], width);
    } else {
        check(strips.indices.empty(), "the encoding has no indices");
        writer.putUnsigned("start", strips.start, width);
    }
    uint64_t taken = 0;
    writer.putU32("stripCount", strips.strips.size());
    for (size_t k = 0; k < strips.strips.size(); ++k) {
        const std::string name = indexed("strip", k);
        check(strips.strips[k] >= 3, name + " has no triangle");
        writer.putU32(name, strips.strips[k]);
        taken += strips.strips[k];
    }
    check(taken > 0, "there are no strips");
    check(!isExplicit || taken <= strips.indices.size(), "the strips take more indices than there are");
}

void ObjectWriter::putClass(const M3gLight& light) {
    putNode(light.node);
    putFloats("attenuation", light.attenuation);
    putRgb("color", light.color);
    putEnum("mode", light.mode);
    putFloat("intensity", light.intensity);
    putFloat("spotAngle", light.spotAngle);
    putFloat("spotExponent", light.spotExponent);
}

void ObjectWriter::putClass(const M3gMaterial& material) {
    putRgb("ambient", material.ambient);
    putArgb("diffuse", material.diffuse);
    putRgb("emissive", material.emissive);
    putRgb("specular", material.specular);
    putFloat("shininess", material.shininess);
    putBool("vertexColorTracking", material.vertexColorTracking);
}

void ObjectWriter::putClass(const M3gMesh& mesh) {
    putNode(mesh.node);
    putMesh(mesh);
}

void ObjectWriter::putClass(const M3gMorphingMesh& mesh) {
    putNode(mesh.node);
    putMesh(mesh);
    writer.putU32("targetCount", mesh.targets.size());
    for (size_t k = 0; k < mesh.targets.size(); ++k) {
        const std::string name = indexed("target", k);
        putRef(name + ".vertices", mesh.targets[k].vertices, kClasses<M3gVertexBuffer>, Null::Refused);
        putFloat(name + ".weight", mesh.targets[k].weight);
    }
}

void ObjectWriter::putClass(const M3gSkinnedMesh& mesh) {
    putNode(mesh.node);
    putMesh(mesh);
    putRef("skeleton", mesh.skeleton, kClasses<M3gGroup>, Null::Refused);
    writer.putU32("bindingCount", mesh.bindings.size());
    for (size_t k = 0; k < mesh.bindings.size(); ++k) {
        const std::string name = indexed("binding", k);
        putRef(name + ".bone", mesh.bindings[k].bone, kNodes, Null::Refused);
        writer.putU32(name + ".firstVertex", mesh.bindings[k].firstVertex);
        writer.putU32(name + ".vertexCount", mesh.bindings[k].vertexCount);
        writer.putI32(name + ".weight", mesh.bindings[k].weight);
    }
}

void ObjectWriter::putClass(const M3gTexture2D& texture) {
    putTransform(texture.transform);
    putRef("image", texture.image, kClasses<M3gImage2D>, Null::Refused);
    putRgb("blendColor", texture.blendColor);
    putEnum("blending", texture.blending);
    putEnum("wrapS", texture.wrapS);
    putEnum("wrapT", texture.wrapT);
    putEnum("levelFilter", texture.levelFilter);
    putEnum("imageFilter", texture.imageFilter);
}

void ObjectWriter::putClass(const M3gSprite3D& sprite) {
    const M3gImage2D* image = findImage(sprite.image);
    putNode(sprite.node);
    putRef("image", sprite.image, kClasses<M3gImage2D>, Null::Refused);
    putRef("appearance", sprite.appearance, kClasses<M3gAppearance>);
    putBool("scaled", sprite.scaled);
    writer.putI32("cropX", sprite.cropX);
    writer.putI32("cropY", sprite.cropY);
    writer.putI32("cropWidth", sprite.cropWidth.value_or(image ? int32_t(image->width) : 0));
    writer.putI32("cropHeight", sprite.cropHeight.value_or(image ? int32_t(image->height) : 0));
}

// Per component, what the quantised values of a sequence mean.
struct Quantisation {
    std::vector<float> bias, scale;
    uint32_t width, greatest;

    uint32_t quantise(float value, size_t component) const {
        if (scale[component] == 0) return 0;
        return uint32_t(std::clamp(std::round((double(value) - bias[component]) / scale[component] * greatest), 0.0,
                                   double(greatest)));
    }
};

static Quantisation chooseQuantisation(const M3gKeyframeSequence& sequence, size_t componentCount) {
    const uint32_t width = sequence.encoding == M3gKeyframeEncoding::Quantised8 ? 8 : 16;
    Quantisation chosen{sequence.bias, sequence.scale, width, (1u << width) - 1};
    chosen.bias.resize(componentCount);
    chosen.scale.resize(componentCount);
    for (size_t e = 0; e < componentCount; ++e) {
        const auto [least, greatest] = std::ranges::minmax(
            sequence.keyframes, {}, [e](const M3gKeyframe& keyframe) { return keyframe.values[e]; });
        if (sequence.bias.empty()) chosen.bias[e] = least.values[e];
        if (sequence.scale.empty()) chosen.scale[e] = greatest.values[e] - chosen.bias[e];
    }
    return chosen;
}

void ObjectWriter::putClass(const M3gKeyframeSequence& sequence) {
    const std::vector<M3gKeyframe>& keyframes = sequence.keyframes;
    if (keyframes.empty()) throw std::invalid_argument("there are no keyframes");
    const size_t componentCount = keyframes[0].values.size();
    for (const M3gKeyframe& keyframe : keyframes)
        if (keyframe.values.size() != componentCount)
            throw std::invalid_argument("the keyframes have different numbers of values");
    for (const size_t size : {sequence.bias.size(), sequence.scale.size()})
        if (size != 0 && size != componentCount)
            throw std::invalid_argument("bias and scale have a number of values of their own");

    putEnum("interpolation", sequence.interpolation);
    putEnum("repeatMode", sequence.repeatMode);
    putEnum("encoding", sequence.encoding);
    writer.putU32("duration", sequence.duration.value_or(std::max(keyframes.back().time, 1u)));
    writer.putU32("validFirst", sequence.validFirst);
    writer.putU32("validLast", sequence.validLast.value_or(uint32_t(keyframes.size() - 1)));
    writer.putU32("componentCount", componentCount);
    writer.putU32("keyframeCount", keyframes.size());

    const bool isFloat = sequence.encoding == M3gKeyframeEncoding::Float;
    const Quantisation quantisation = isFloat ? Quantisation{} : chooseQuantisation(sequence, componentCount);
    putFloats("bias", quantisation.bias);
    putFloats("scale", quantisation.scale);
    for (size_t k = 0; k < keyframes.size(); ++k) {
        const std::string name = indexed("keyframe", k);
        writer.putU32(name + ".time", keyframes[k].time);
        for (size_t e = 0; e < componentCount; ++e) {
            const std::string valueName = indexed(name + ".value", e);
            const float value = keyframes[k].values[e];
            if (isFloat)
                putFloat(valueName, value);
            else
                writer.putUnsigned(valueName, quantisation.quantise(value, e), quantisation.width);
        }
    }
}

void ObjectWriter::putClass(const M3gVertexArray& array) {
    if (array.componentSize != 1 && array.componentSize != 2)
        throw std::invalid_argument("components have 1 or 2 bytes");
    if (array.componentCount == 0 || array.values.size() % array.componentCount != 0)
        throw std::invalid_argument("the last vertex is incomplete");
    const uint32_t width = 8 * array.componentSize;
    writer.putU8("componentSize", array.componentSize);
    writer.putU8("componentCount", array.componentCount);
    writer.putU8("encoding", array.asDeltas);
    writer.putU16("vertexCount", array.values.size() / array.componentCount);
    for (size_t k = 0; k < array.values.size(); ++k) {
        const int32_t value = array.values[k];
        const std::string name = indexed("value", k);
        if (signedWidth(value) > width &&
            !(width == 8 && unsignedWidth(uint32_t(value)) <= width))  // colours are unsigned
            throw std::invalid_argument(name + " does not fit");
        const int32_t before = array.asDeltas && k >= array.componentCount ? array.values[k - array.componentCount] : 0;
        writer.putUnsigned(name, uint32_t(value - before) & ((1u << width) - 1), width);  // sums of deltas wrap
    }
}

void ObjectWriter::putClass(const M3gVertexBuffer& buffer) {
    constexpr uint32_t kArray = kClasses<M3gVertexArray>;
    putArgb("defaultColor", buffer.defaultColor);
    putRef("positions", buffer.positions.array, kArray);
    putFloats("positionBias", buffer.positions.bias);
    putFloat("positionScale", buffer.positions.scale);
    putRef("normals", buffer.normals, kArray);
    putRef("colors", buffer.colors, kArray);
    writer.putU32("texCoordCount", buffer.texCoords.size());
    for (size_t k = 0; k < buffer.texCoords.size(); ++k) {
        const std::string name = indexed("texCoord", k);
        putRef(name + ".array", buffer.texCoords[k].array, kArray);
        putFloats(name + ".bias", buffer.texCoords[k].bias);
        putFloat(name + ".scale", buffer.texCoords[k].scale);
    }
}

void ObjectWriter::putClass(const M3gWorld& world) {
    putNode(world.node);
    putRefs("childCount", "child", world.children, kNodes, Null::Refused);
    putRef("activeCamera", world.activeCamera, kClasses<M3gCamera>);
    putRef("background", world.background, kClasses<M3gBackground>);
}

EncodedFile encodeM3gObject(const M3gScene& scene, std::span<const uint32_t> numbers, size_t position) {
    ObjectWriter object{scene, numbers, position};
    const auto put = [&](const auto& each) {
        if constexpr (requires { each.object; }) object.putCommon(each.object);
        object.putClass(each);
    };
    try {
        std::visit(put, scene.objects[position]);
    } catch (const std::invalid_argument& problem) {
        throw std::invalid_argument(indexed("object", position) + ": " + problem.what());
    }
    return object.writer.take();
}

}  // namespace encode

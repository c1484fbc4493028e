// Vertex arrays, vertex buffers and triangle strips.
#include <algorithm>

#include "tools/inspect/scene_reader.h"

namespace inspect {

// --- Vertex arrays ---

// Sums of deltas wrap around at the size of a component.
static int32_t wrap(int32_t value, uint32_t componentSize) {
    return componentSize == 1 ? int8_t(uint32_t(value)) : int16_t(uint32_t(value));
}

static SceneVertexArray readArray(ObjectReader& o) {
    SceneVertexArray out;
    out.componentSize = o.oneOf("the component size", 1, 2);
    out.componentCount = o.oneOf("the component count", 2, 4);
    out.isDeltaEncoded = o.oneOf("the encoding", 0, 1) == 1;
    out.vertexCount = o.in.u16("the vertex count");
    o.in.expect(out.vertexCount > 0, "the vertex count", out.vertexCount, "at least 1");
    std::vector<int32_t>& components = o.values.components;
    for (size_t i = 0; i < size_t(out.vertexCount) * out.componentCount; ++i) {
        const auto value = int32_t(o.in.unsignedValue("a vertex", out.componentSize));
        const bool hasPrevious = out.isDeltaEncoded && i >= out.componentCount;
        components.push_back(wrap(value + (hasPrevious ? components[i - out.componentCount] : 0), out.componentSize));
    }
    return out;
}

// --- Vertex buffers ---

static const SceneVertexArray* arrayOf(const ObjectReader& o, uint32_t number) {
    return number == 0 ? nullptr : &o.scene.contentOf<SceneVertexArray>(number);
}

static void checkComponents(const ObjectReader& o, const char* field, uint32_t number, uint32_t least, uint32_t most) {
    const SceneVertexArray* array = arrayOf(o, number);
    if (!array || (array->componentCount >= least && array->componentCount <= most)) return;
    o.in.reject(std::string(field) + " are " + o.describe(number) + " of " + std::to_string(array->componentCount) +
                " components, expected " + std::to_string(least) + " to " + std::to_string(most));
}

static void readTexCoords(ObjectReader& o, SceneVertexBuffer& buffer) {
    constexpr uint32_t kTextureUnits = 2, kBytes = 20;
    const uint32_t count = o.count("the count of texture coordinates", kBytes);
    for (uint32_t unit = 0; unit < count; ++unit) {
        const uint32_t array = o.optional("the texture coordinates", SceneType::VertexArray);
        checkComponents(o, "the texture coordinates", array, 2, 3);
        if (unit >= kTextureUnits && array != 0)
            o.in.reject("there are texture coordinates for unit " + std::to_string(unit) +
                        ", expected units 0 and 1 alone");
        if (unit < kTextureUnits) buffer.texCoords.push_back(array);
        for (uint32_t i = 0; i < 4; ++i) o.real("the bias or scale of texture coordinates");
    }
}

static uint32_t countVertices(const ObjectReader& o, const SceneVertexBuffer& buffer) {
    std::vector<uint32_t> arrays = {buffer.positions};
    arrays.insert(arrays.end(), buffer.texCoords.begin(), buffer.texCoords.end());
    arrays.insert(arrays.end(), {buffer.colors, buffer.normals});
    for (const uint32_t number : arrays)
        if (const SceneVertexArray* array = arrayOf(o, number)) return array->vertexCount;
    return 0;
}

static SceneVertexBuffer readBuffer(ObjectReader& o) {
    SceneVertexBuffer out;
    out.defaultColor = o.argb("the default colour");
    out.positions = o.optional("the positions", SceneType::VertexArray);
    checkComponents(o, "the positions", out.positions, 3, 3);
    o.reals("the position bias", out.positionBias);
    out.positionScale = o.real("the position scale");
    out.normals = o.optional("the normals", SceneType::VertexArray);
    checkComponents(o, "the normals", out.normals, 3, 3);
    if (const SceneVertexArray* normals = arrayOf(o, out.normals))
        o.deriveBytes("making the normals' length one", 3ull * normals->vertexCount * normals->componentSize);
    out.colors = o.optional("the colours", SceneType::VertexArray);
    checkComponents(o, "the colours", out.colors, 3, 4);
    if (const SceneVertexArray* colors = arrayOf(o, out.colors); colors && colors->componentSize != 1)
        o.in.reject("the colours are " + o.describe(out.colors) + " of 2 bytes per component, expected 1");
    readTexCoords(o, out);
    out.vertexCount = countVertices(o, out);
    return out;
}

// --- Triangle strips ---

constexpr uint32_t kMaxIndex = 65535;

// Reads the start or the indices. Returns how many indices the strips may take in all, and each of them.
static uint32_t readIndices(ObjectReader& o, SceneTriangleStrips& out) {
    static constexpr uint32_t kSizes[] = {4, 1, 2};
    const uint32_t encoding = o.in.u8("the encoding"), form = encoding & 0x7F;
    o.in.expect(form <= 2, "the encoding", encoding, "0 to 2 or 128 to 130");
    out.hasIndices = encoding >= 128;
    if (!out.hasIndices) {
        out.firstIndex = out.lastIndex = o.in.unsignedValue("the first index", kSizes[form]);
        o.in.expect(out.firstIndex <= kMaxIndex, "the first index", out.firstIndex, "at most 65535");
        return kMaxIndex - out.firstIndex;
    }
    const uint32_t count = o.count("the index count", kSizes[form]);
    o.in.expect(count > 0, "the index count", count, "at least 1");
    out.firstIndex = kMaxIndex;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t index = o.in.unsignedValue("an index", kSizes[form]);
        o.in.expect(index <= kMaxIndex, "an index", index, "at most 65535");
        out.firstIndex = std::min(out.firstIndex, index);
        out.lastIndex = std::max(out.lastIndex, index);
    }
    return count;
}

static SceneTriangleStrips readStrips(ObjectReader& o) {
    SceneTriangleStrips out;
    uint32_t left = readIndices(o, out);
    out.stripCount = o.count("the strip count", 4);
    o.in.expect(out.stripCount > 0, "the strip count", out.stripCount, "at least 1");
    for (uint32_t i = 0; i < out.stripCount; ++i) {
        const uint32_t length = o.in.u32("a strip's length");
        if (length < 3 || length > left)
            o.in.expect(false, "a strip's length", length, "3 to the " + std::to_string(left) + " indices left");
        left -= length;
        out.triangleCount += length - 2;
        if (!out.hasIndices) out.lastIndex += length;
    }
    if (!out.hasIndices) --out.lastIndex;
    return out;
}

SceneContent readVertexClass(ObjectReader& o, SceneType type) {
    if (type == SceneType::VertexArray) return readArray(o);
    if (type == SceneType::VertexBuffer) return readBuffer(o);
    return readStrips(o);
}

}  // namespace inspect

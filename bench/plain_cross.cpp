#include "bench/plain_cross.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "scene/figure_mesh.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Numbers ---

static int32_t wrap(int64_t value) { return int32_t(uint32_t(uint64_t(value))); }

static int64_t size(int32_t value) { return std::abs(int64_t(value)); }

static int32_t bitLength(int64_t value) { return value == 0 ? 1 : int32_t(std::bit_width(uint64_t(value))); }

int32_t plainMul(int32_t a, int32_t b) {
    int32_t ea = bitLength(size(a)) - 15, eb = bitLength(size(b)) - 15;
    if (ea > eb && eb < 0) {
        ea += eb;
        eb = 0;
    } else if (eb > ea && ea < 0) {
        eb += ea;
        ea = 0;
    }
    ea = std::max(ea, 0);
    eb = std::max(eb, 0);
    const int32_t product = wrap(int64_t(a >> ea) * (b >> eb));
    const int32_t shift = ea + eb - 12;
    return shift >= 0 ? wrap(int64_t(product) << shift) : product >> -shift;
}

int32_t plainDiv(int32_t a, int32_t b) {
    if (b == 0) return 0;
    const int32_t shift = a == 0 ? 31 : std::max(31 - bitLength(size(a)), 0);
    const int32_t quotient = wrap(int64_t(wrap(int64_t(a) << shift)) / b);
    return shift <= 12 ? wrap(int64_t(quotient) << (12 - shift)) : quotient >> (shift - 12);
}

// Truncation of value x 4096 into 32 bits that wrap; nothing for what is not finite.
static int32_t plainJ2F(float value) {
    if (std::fabs(value) < 524288) return int32_t(value * 4096);
    if (!std::isfinite(value)) return 0;
    const double whole = std::trunc(double(value) * 4096);
    return wrap(int64_t(std::fmod(whole, 4294967296.0)));
}

static int32_t add(int32_t a, int32_t b) { return wrap(int64_t(a) + b); }
static int32_t negative(int32_t a) { return wrap(-int64_t(a)); }

static PlainPoint minus(const PlainPoint& a, const PlainPoint& b) {
    return {add(a[0], negative(b[0])), add(a[1], negative(b[1])), add(a[2], negative(b[2]))};
}

static int32_t det(int32_t a, int32_t b, int32_t c, int32_t d) {
    return wrap(int64_t(plainMul(a, d)) - plainMul(b, c));
}

static PlainPoint cross(const PlainPoint& a, const PlainPoint& b) {
    return {det(a[1], a[2], b[1], b[2]), det(a[2], a[0], b[2], b[0]), det(a[0], a[1], b[0], b[1])};
}

static int32_t dot(const PlainPoint& a, const PlainPoint& b) {
    return add(add(plainMul(a[0], b[0]), plainMul(a[1], b[1])), plainMul(a[2], b[2]));
}

// --- Triangles ---

static bool isInside(const PlainTriangle& t, const PlainPoint& normal, const PlainPoint& x) {
    const int64_t nx = size(normal[0]), ny = size(normal[1]), nz = size(normal[2]);
    int first, second;
    if (nx >= ny && nx >= nz) {
        first = 1, second = 2;
    } else if (ny >= nx && ny >= nz) {
        first = 0, second = 2;
    } else {
        first = 0, second = 1;
    }
    const int32_t pa = x[first], pb = x[second];
    const int32_t ca = add(add(t[0][first], t[1][first]), t[2][first]) / 3;
    const int32_t cb = add(add(t[0][second], t[1][second]), t[2][second]) / 3;
    for (int i = 0; i < 3; ++i) {
        const PlainPoint &p = t[i], &q = t[(i + 1) % 3];
        if (p[first] == q[first]) {
            const int32_t edge = p[first];
            if (!((edge < pa && edge < ca) || (edge > pa && edge > ca))) return false;
            continue;
        }
        const int32_t m = plainDiv(wrap(int64_t(q[second]) - p[second]), wrap(int64_t(q[first]) - p[first]));
        const int32_t c = wrap(int64_t(p[second]) - plainMul(m, p[first]));
        const int32_t atCentroid = add(plainMul(m, ca), c), atPoint = add(plainMul(m, pa), c);
        if (!(atCentroid < cb ? pb >= atPoint : pb <= atPoint)) return false;
    }
    return true;
}

static bool segmentCrosses(const PlainPoint& s, const PlainPoint& e, const PlainTriangle& t, const PlainPoint& n,
                           int32_t d) {
    const int32_t ds = dot(n, s), de = dot(n, e);
    if (ds == de) return false;
    const bool upright = s[0] == e[0] && s[2] == e[2];
    PlainPoint x;
    if (upright) {
        const int32_t rest = add(add(d, plainMul(n[2], s[2])), plainMul(n[0], s[0]));
        x = {s[0], plainDiv(negative(rest), n[1]), s[2]};
    } else {
        const int32_t along = plainDiv(add(de, d), wrap(int64_t(ds) - de));
        for (int i = 0; i < 3; ++i) x[i] = add(plainMul(s[i], negative(along)), plainMul(e[i], add(along, 4096)));
    }
    if (!isInside(t, n, x)) return false;
    if (upright && ((s[1] <= x[1] && x[1] <= e[1]) || (e[1] <= x[1] && x[1] <= s[1]))) return true;
    const int32_t w = negative(plainDiv(add(de, d), wrap(int64_t(ds) - de)));
    return 0 <= w && w <= 4096;
}

static bool edgesCross(const PlainTriangle& u, const PlainTriangle& t) {
    const PlainPoint n = cross(minus(t[1], t[0]), minus(t[2], t[0]));
    const int32_t d = negative(dot(n, t[0]));
    return segmentCrosses(u[0], u[1], t, n, d) || segmentCrosses(u[1], u[2], t, n, d) ||
           segmentCrosses(u[2], u[0], t, n, d);
}

bool plainTrianglesCross(const PlainTriangle& a, const PlainTriangle& b) {
    return edgesCross(b, a) || edgesCross(a, b);
}

// --- Gathering ---

using Matrix = std::array<float, 16>;

static constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

struct Part {
    std::vector<int16_t> coordinates;  // nine per triangle
    Matrix decode;
};

struct Record {
    std::vector<Part> parts;
    Matrix place;
};

static Matrix operator*(const Matrix& a, const Matrix& b) {
    Matrix out;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column) {
            float sum = a[4 * row] * b[column];
            for (int k = 1; k < 4; ++k) sum = sum + a[4 * row + k] * b[4 * k + column];
            out[4 * row + column] = sum;
        }
    return out;
}

static Matrix scaling(float s) { return {s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0, 0, 0, 1}; }

// By how much coordinates are shortened to 10 bits.
static int32_t excess(const std::vector<int32_t>& values) {
    int64_t largest = 0;
    for (const int32_t value : values) largest = std::max(largest, size(value));
    return int32_t(std::bit_width(uint64_t(largest >> 10)));
}

static Part makePart(const std::vector<int32_t>& values, int32_t shift, const Matrix& decode) {
    Part part{{}, decode * scaling(std::ldexp(1.0f, shift))};
    for (const int32_t value : values) part.coordinates.push_back(int16_t(value >> shift));
    return part;
}

static std::vector<uint32_t> triangleList(const TriangleStripArray* strips) {
    if (strips->indices) return {strips->indices, strips->indices + strips->indexCount};
    std::vector<uint32_t> list;
    auto first = uint32_t(strips->firstIndex);
    for (int32_t strip = 0; strip < strips->stripCount; ++strip) {
        const auto length = uint32_t(strips->stripLengths[strip]);
        for (uint32_t k = 0; k + 2 < length; ++k)
            for (const uint32_t corner : {k % 2 ? k + 1 : k, k % 2 ? k : k + 1, k + 2}) list.push_back(first + corner);
        first += length;
    }
    return list;
}

static const VertexBuffer* vertexDataOf(Mesh* mesh) {
    if (mesh->classId == ClassId::FigureMesh) {
        _Figure_blendVertices(static_cast<FigureMesh*>(mesh));
        return static_cast<SkinnedMesh*>(mesh)->skinnedBuffer;
    }
    if (mesh->classId != ClassId::SkinnedMesh) return mesh->vertexBuffer;
    auto* skinned = static_cast<SkinnedMesh*>(mesh);
    return qelSkinnedMesh_skin(skinned, false) == QEL_STATUS_OK ? skinned->skinnedBuffer : nullptr;
}

static std::vector<Part> meshParts(Mesh* mesh) {
    const VertexBuffer* buffer = vertexDataOf(mesh);
    const VertexArray* positions = buffer ? buffer->positions : nullptr;
    if (!positions || positions->componentSize < 1 || positions->componentSize > 2) return {};
    qelTransform composite;
    qelTransformable_getCompositeTransform(mesh, &composite);
    Matrix decode = std::to_array(composite.elements), bias = kIdentity;
    for (int i = 0; i < 3; ++i) bias[4 * i + 3] = buffer->positionBias[i];
    decode = decode * bias * scaling(buffer->positionScale);
    std::vector<Part> parts;
    for (int32_t submesh = 0; submesh < mesh->submeshCount; ++submesh) {
        std::vector<int32_t> values;
        for (const uint32_t index : triangleList(mesh->indexBuffers[submesh])) {
            if (index >= uint32_t(positions->vertexCount)) return {};
            for (uint32_t i = 3 * index; i < 3 * index + 3; ++i)
                values.push_back(positions->componentSize == 1 ? static_cast<const int8_t*>(positions->data)[i]
                                                               : static_cast<const int16_t*>(positions->data)[i]);
        }
        parts.push_back(makePart(values, excess(values), decode));
        if (mesh->classId == ClassId::FigureMesh) parts.back().decode = parts.back().decode * scaling(1.0f / 64);
    }
    return parts;
}

static std::vector<Part> primitiveParts(const K8PrimitiveInfo& info) {
    const std::vector<int32_t> given(info.values[0], info.values[0] + info.counts[0]);
    const uint32_t type = info.type >= 1u << 24 ? info.type >> 24 : info.type, n = info.primitiveCount;
    const uint32_t each = type == K8_PRIM_LINES ? 6 : type == K8_PRIM_TRIANGLES ? 9 : type == K8_PRIM_QUADS ? 12 : 0;
    if (each == 0 || given.size() < size_t(n) * each || n == 0) return {};
    const int32_t shift = excess(given);
    Part part{{}, scaling(std::ldexp(1.0f, shift))};
    const auto append = [&](size_t vertex) {
        for (size_t i = 3 * vertex; i < 3 * vertex + 3; ++i) part.coordinates.push_back(int16_t(given[i] >> shift));
    };
    for (size_t k = 0; k < n; ++k) {
        if (type == K8_PRIM_TRIANGLES)
            for (const size_t corner : {0, 1, 2}) append(3 * k + corner);
        if (type == K8_PRIM_QUADS)
            for (const size_t corner : {0, 1, 2, 0, 2, 3}) append(4 * k + corner);
        if (type != K8_PRIM_LINES) continue;
        append(2 * k);
        for (size_t i = 6 * k; i < 6 * k + 3; ++i)
            part.coordinates.push_back(int16_t((int64_t(given[i]) + given[i + 3]) >> (shift + 1)));
        append(2 * k + 1);
    }
    return {part};
}

// False for a group without loaded info.
static bool gather(const K8Handle* object, const K8Transform& place, std::vector<Record>& out) {
    if (object->classId == K8_CLASS_GROUP || object->classId == K8_CLASS_SCENE_GROUP) {
        const K8GroupInfo* info = reinterpret_cast<const K8Group*>(object)->info;
        if (!info) return false;
        K8Transform inside = place;
        K8Transform_multiply(&inside, info->transform);
        for (uint32_t i = 0; i < info->childHandleCount; ++i)
            if (info->childHandles[i] && !gather(info->childHandles[i], inside, out)) return false;
        return true;
    }
    Record record{{}, std::to_array(place.elements)};
    if (object->classId == K8_CLASS_FIGURE && object->object)
        record.parts = meshParts(reinterpret_cast<Mesh*>(object->object));
    if (object->classId == K8_CLASS_PRIMITIVE)
        if (const K8PrimitiveInfo* info = reinterpret_cast<const K8Primitive*>(object)->info)
            record.parts = primitiveParts(*info);
    if (!record.parts.empty()) out.push_back(record);
    return true;
}

// --- Records ---

struct Bounds {
    PlainPoint least{INT32_MAX, INT32_MAX, INT32_MAX}, greatest{INT32_MIN, INT32_MIN, INT32_MIN};

    void extend(const PlainPoint& p) {
        for (int i = 0; i < 3; ++i) {
            least[i] = std::min(least[i], p[i]);
            greatest[i] = std::max(greatest[i], p[i]);
        }
    }
    bool overlaps(const Bounds& other) const {
        for (int i = 0; i < 3; ++i)
            if (least[i] > other.greatest[i] || other.least[i] > greatest[i]) return false;
        return true;
    }
};

static void extendReach(const Record& record, int32_t& least, int32_t& greatest) {
    for (const Part& part : record.parts) {
        const Matrix m = record.place * part.decode;
        for (int row = 0; row < 12; row += 4) {
            const int32_t reach = plainJ2F(std::fabs(m[row]) + std::fabs(m[row + 1]) + std::fabs(m[row + 2]));
            least = std::min(least, reach);
            greatest = std::max(greatest, reach);
        }
    }
}

static std::vector<PlainTriangle> transformed(const Record& record, int32_t k) {
    std::vector<PlainTriangle> triangles;
    for (const Part& part : record.parts) {
        Matrix m = record.place * part.decode;
        if (k != 4096)
            for (float& element : m) element *= K8Math_F2J(k);
        triangles.reserve(triangles.size() + part.coordinates.size() / 9);
        for (size_t i = 0; i < part.coordinates.size(); i += 9) {
            PlainTriangle& triangle = triangles.emplace_back();
            for (size_t corner = 0; corner < 3; ++corner) {
                const int16_t* v = &part.coordinates[i + 3 * corner];
                for (size_t row = 0; row < 3; ++row) {
                    const float* r = &m[4 * row];
                    triangle[corner][row] = plainJ2F(r[0] * v[0] + r[1] * v[1] + r[2] * v[2] + r[3]) / 4096;
                }
            }
        }
    }
    return triangles;
}

static Bounds boundsOf(const PlainTriangle& triangle) {
    Bounds bounds;
    for (const PlainPoint& p : triangle) bounds.extend(p);
    return bounds;
}

static Bounds boundsOf(const std::vector<PlainTriangle>& triangles) {
    Bounds bounds;
    for (const PlainTriangle& triangle : triangles)
        for (const PlainPoint& p : triangle) bounds.extend(p);
    return bounds;
}

static int32_t leadingZeros(const Bounds& a, const Bounds& b) {
    int64_t largest = 0;
    for (const PlainPoint& p : {a.least, a.greatest, b.least, b.greatest})
        for (const int32_t value : p) largest = std::max(largest, size(value));
    return std::countl_zero(uint32_t(largest));
}

static void scale(std::vector<PlainTriangle>& triangles, int32_t bits) {
    for (PlainTriangle& triangle : triangles)
        for (PlainPoint& p : triangle)
            for (int32_t& value : p) value = bits >= 0 ? wrap(int64_t(value) << bits) : value >> -bits;
}

static bool recordsCross(const Record& recordA, const Record& recordB) {
    int32_t least = 4 * 4096, greatest = 32 * 4096;
    extendReach(recordA, least, greatest);
    extendReach(recordB, least, greatest);
    int32_t k = 4096;
    if (least < 4 * 4096) k = plainDiv(4 * 4096, least);
    if (greatest > 32 * 4096) k = plainDiv(32 * 4096, greatest);
    std::vector<PlainTriangle> a = transformed(recordA, k), b = transformed(recordB, k);
    const Bounds wholeA = boundsOf(a), wholeB = boundsOf(b);
    if (!wholeA.overlaps(wholeB)) return false;
    const int32_t bits = leadingZeros(wholeA, wholeB) - 16;
    scale(a, bits);
    scale(b, bits);
    std::vector<Bounds> boundsB;
    for (const PlainTriangle& triangle : b) boundsB.push_back(boundsOf(triangle));
    for (const PlainTriangle& triangle : a) {
        const Bounds bounds = boundsOf(triangle);
        for (size_t j = 0; j < b.size(); ++j)
            if (bounds.overlaps(boundsB[j]) && plainTrianglesCross(triangle, b[j])) return true;
    }
    return false;
}

bool plainCross(const K8Handle* objectA, const K8Transform* transformA, const K8Handle* objectB,
                const K8Transform* transformB) {
    K8Transform a{}, b{};
    K8Transform_set(&a, transformA ? transformA->elements : nullptr);
    K8Transform_set(&b, transformB ? transformB->elements : nullptr);
    bool same = true;  // a NaN is the same as anything
    for (int i = 0; i < 16; ++i) same = same && !(a.elements[i] < b.elements[i]) && !(a.elements[i] > b.elements[i]);
    if (same) {
        K8Transform_setIdentity(&a);
        K8Transform_setIdentity(&b);
    } else {
        for (const int i : {3, 7, 11}) {
            const float difference = a.elements[i] - b.elements[i];
            a.elements[i] = difference / 2;
            b.elements[i] = -difference / 2;
        }
    }
    std::vector<Record> recordsA, recordsB;
    if (!gather(objectA, a, recordsA) || !gather(objectB, b, recordsB)) return false;
    for (const Record& recordA : recordsA)
        for (const Record& recordB : recordsB)
            if (recordsCross(recordA, recordB)) return true;
    return false;
}

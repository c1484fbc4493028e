#include "bench/plain_figure.h"

#include <bit>
#include <span>

#include "frame/fixed_point.h"
#include "frame/wrap.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Matrices ---

static void multiply(Atrans3i* out, const Atrans3i* a, const Atrans3i* b) {
    Atrans3i product;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 4; ++j) {
            int32_t sum = 0;
            for (int k = 0; k < 3; ++k) sum = wrapAdd(sum, wrapMul(a->m[4 * i + k], b->m[4 * k + j]));
            product.m[4 * i + j] = wrapAdd(sum, 2048) >> 12;
        }
        product.m[4 * i + 3] = wrapAdd(product.m[4 * i + 3], a->m[4 * i + 3]);
    }
    *out = product;
}

static void normalize(int32_t v[3]) {
    const uint32_t bits = magnitude(v[0]) | magnitude(v[1]) | magnitude(v[2]);
    uint32_t length = 0;
    if (bits != 0) {
        const int32_t shift = std::countl_zero(bits) - 17;
        uint32_t square = 0;
        for (int i = 0; i < 3; ++i) {
            v[i] = shift >= 0 ? wrapShl(v[i], shift) : v[i] >> -shift;
            square += uint32_t(v[i]) * uint32_t(v[i]);
        }
        length = integerSqrt(square);
    }
    for (int i = 0; i < 3; ++i) v[i] = length ? v[i] * 4096 / int32_t(length) : (i == 2 ? 4096 : 0);
}

static void setRotation(int32_t* m, const int32_t d[3], int32_t roll) {
    const int32_t x = d[0], y = d[1], z = d[2];
    const int32_t p = wrapMul(x, x) >> 12, q = wrapMul(y, y) >> 12;
    if (p > 0 || q > 0) {
        const int32_t k = wrapShl(4096 - z, 12) / (p + q);
        const int32_t c = wrapMul(wrapNeg(wrapMul(x, y)) >> 12, k) >> 12;
        const int32_t rows[] = {(wrapMul(k, q) >> 12) + z, c, x, 0, c, (wrapMul(k, p) >> 12) + z, y, 0, -x, -y, z, 0};
        for (int i = 0; i < 12; ++i) m[i] = rows[i];
    } else {
        const int32_t rows[] = {4096, 0, 0, 0, 0, z, 0, 0, 0, 0, z, 0};
        for (int i = 0; i < 12; ++i) m[i] = rows[i];
    }
    if (roll == 0) return;
    const int32_t c = cosine12(roll), s = sine12(roll);
    for (int i = 0; i < 3; ++i) {
        const int32_t m0 = m[4 * i], m1 = m[4 * i + 1];
        m[4 * i] = wrapAdd(wrapAdd(wrapMul(m1, s), wrapMul(m0, c)), 2048) >> 12;
        m[4 * i + 1] = wrapAdd(wrapSub(wrapMul(m1, c), wrapMul(m0, s)), 2048) >> 12;
    }
}

static void scaleColumns(int32_t* m, const int32_t scale[3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m[4 * i + j] = wrapAdd(wrapMul(m[4 * i + j], scale[j]), 2048) >> 12;
}

// --- Keys ---

static int32_t valueOf(const VectorKey& key, int component) { return key.v[component]; }
static int32_t valueOf(const ScalarKey& key, int) { return key.value; }

template <typename Key>
static void lookUp(const Key* keys, uint32_t count, uint32_t position, int componentCount, int32_t* out) {
    uint32_t next = 1;
    while (next < count && keys[next].frame <= position >> 16) ++next;
    const Key& a = keys[next - 1];
    if (next >= count) {
        for (int i = 0; i < componentCount; ++i) out[i] = valueOf(a, i);
        return;
    }
    const Key& b = keys[next];
    const uint32_t t = (position - (uint32_t(a.frame) << 16)) / (uint32_t(b.frame) - a.frame);
    for (int i = 0; i < componentCount; ++i) {
        const int32_t product = wrapMul(valueOf(b, i) - valueOf(a, i), int32_t(t));
        out[i] = wrapAdd(valueOf(a, i), wrapAdd(product, 32768) >> 16);
    }
}

static void lookUpDirection(const VectorKey* keys, uint32_t count, uint32_t position, int32_t out[3]) {
    lookUp(keys, count, position, 3, out);
    normalize(out);
}

static int32_t lookUpRoll(const ScalarKey* keys, uint32_t count, uint32_t position) {
    int32_t roll;
    lookUp(keys, count, position, 1, &roll);
    return roll;
}

static void setTranslation(int32_t* m, const int32_t t[3]) {
    for (int i = 0; i < 3; ++i) m[4 * i + 3] = t[i];
}

// --- Tracks ---

static void evaluate(const TranslateScaleDirectionRollTrack* track, uint32_t position, int32_t* m) {
    int32_t translation[3], scale[3], direction[3];
    lookUp(track->translation, track->translationCount, position, 3, translation);
    lookUp(track->scale, track->scaleCount, position, 3, scale);
    lookUpDirection(track->direction, track->directionCount, position, direction);
    setRotation(m, direction, lookUpRoll(track->roll, track->rollCount, position));
    scaleColumns(m, scale);
    setTranslation(m, translation);
}

static void evaluate(const DirectionFixedTranslateRollTrack* track, uint32_t position, int32_t* m) {
    int32_t direction[3];
    lookUpDirection(track->direction, track->directionCount, position, direction);
    setRotation(m, direction, track->roll);
    for (int i = 0; i < 3; ++i) m[4 * i + 3] = track->translation[i];
}

static void evaluate(const DirectionRollTrack* track, uint32_t position, int32_t* m) {
    int32_t direction[3];
    lookUpDirection(track->direction, track->directionCount, position, direction);
    setRotation(m, direction, lookUpRoll(track->roll, track->rollCount, position));
}

static void evaluate(const DirectionTrack* track, uint32_t position, int32_t* m) {
    int32_t direction[3];
    lookUpDirection(track->direction, track->directionCount, position, direction);
    setRotation(m, direction, 0);
}

static void evaluate(const TranslateDirectionRollTrack* track, uint32_t position, int32_t* m) {
    int32_t translation[3], direction[3];
    lookUp(track->translation, track->translationCount, position, 3, translation);
    lookUpDirection(track->direction, track->directionCount, position, direction);
    setRotation(m, direction, lookUpRoll(track->roll, track->rollCount, position));
    setTranslation(m, translation);
}

void plainCalcTrans(const ActTable* table, int32_t action, int32_t bone, int32_t frame, Atrans3i* out,
                    const Atrans3i* rest) {
    const uint32_t word = table->tracks[action][bone];
    const uint32_t position = frame < 0 ? 0 : uint32_t(frame);
    Atrans3i m = {};
    switch (trackKindOf(word)) {
        case TrackKind::ConstantMatrix:
            for (int i = 0; i < 12; ++i) m.m[i] = trackRecordOf<ConstantMatrixTrack>(table, word)->m[i];
            break;
        case TrackKind::Unchanged: *out = *rest; return;
        case TrackKind::TranslateScaleDirectionRoll:
            evaluate(trackRecordOf<TranslateScaleDirectionRollTrack>(table, word), position, m.m);
            break;
        case TrackKind::DirectionFixedTranslateRoll:
            evaluate(trackRecordOf<DirectionFixedTranslateRollTrack>(table, word), position, m.m);
            break;
        case TrackKind::DirectionRoll: evaluate(trackRecordOf<DirectionRollTrack>(table, word), position, m.m); break;
        case TrackKind::Direction: evaluate(trackRecordOf<DirectionTrack>(table, word), position, m.m); break;
        case TrackKind::TranslateDirectionRoll:
            evaluate(trackRecordOf<TranslateDirectionRollTrack>(table, word), position, m.m);
            break;
    }
    multiply(out, rest, &m);
}

uint32_t plainCalcPattern(const ActTable* table, int32_t action, int32_t frame) {
    const uint32_t word = table->tracks[action][table->boneCount];
    if (word == 0) return 0;
    const auto* track = trackRecordOf<PatternTrack>(table, word);
    const int32_t whole = frame < 0 ? 0 : frame >> 16;
    const PatternKey* found = &track->keys[0];
    for (const PatternKey& key : std::span(track->keys, track->keyCount))
        if (key.frame <= whole) found = &key;
    return uint32_t(found->high) << 16 | found->low;
}

// --- Figures ---

PlainFigure::PlainFigure(const FigureMesh* figure) {
    const FigureBones& bones = figure->bones;
    for (uint32_t b = 0; b < bones.boneCount; ++b) {
        parents.push_back(bones.bones[b].parent);
        rest.push_back(bones.bones[b].rest);
        local.push_back(bones.local[b]);
    }
    world = local;
    std::vector<bool> placed(bones.boneCount);
    while (parentsFirst_.size() < bones.boneCount)
        for (uint32_t b = 0; b < bones.boneCount; ++b) {
            if (placed[b] || (parents[b] >= 0 && !placed[size_t(parents[b])])) continue;
            placed[b] = true;
            parentsFirst_.push_back(int32_t(b));
        }

    const VertexBuffer* buffer = figure->vertexBuffer;
    const auto componentCount = size_t(buffer->positions->vertexCount) * 3;
    const auto* restPosition = static_cast<const int16_t*>(buffer->positions->data);
    restPositions.assign(restPosition, restPosition + componentCount);
    if (buffer->normals) {
        const auto* restNormal = static_cast<const int8_t*>(buffer->normals->data);
        restNormals.assign(restNormal, restNormal + componentCount);
    }
    positions = restPositions;
    normals = restNormals;

    vertexBones.assign(componentCount / 3, -1);
    for (uint32_t b = 0; b < bones.boneCount; ++b)
        for (uint32_t g = 0; g < bones.bones[b].groupCount; ++g) {
            const VertexGroup& group = bones.groups[bones.bones[b].firstGroup + g];
            for (uint32_t i = 0; i < group.count; ++i) vertexBones[group.vertices[i]] = int32_t(b);
        }
}

void PlainFigure::pose(const ActTable* table, int32_t action, int32_t frame) {
    for (uint32_t b = 0; b < table->boneCount && b < local.size(); ++b)
        plainCalcTrans(table, action, int32_t(b), frame, &local[b], &rest[b]);
}

void PlainFigure::blend() {
    for (const int32_t b : parentsFirst_) {
        if (parents[size_t(b)] < 0)
            world[size_t(b)] = local[size_t(b)];
        else
            multiply(&world[size_t(b)], &world[size_t(parents[size_t(b)])], &local[size_t(b)]);
    }
    const bool hasNormals = !restNormals.empty();
    for (size_t v = 0; v < vertexBones.size(); ++v) {
        if (vertexBones[v] < 0) continue;
        const int32_t* m = world[size_t(vertexBones[v])].m;
        const int32_t x = restPositions[3 * v], y = restPositions[3 * v + 1], z = restPositions[3 * v + 2];
        for (size_t r = 0; r < 3; ++r) {
            const int32_t* row = m + 4 * r;
            const int32_t sum = wrapAdd(wrapAdd(wrapMul(row[1], y), wrapMul(row[2], z)), wrapMul(row[0], x));
            positions[3 * v + r] = int16_t(wrapAdd(wrapAdd(sum, 2253) >> 12, row[3]));
        }
        if (!hasNormals) continue;
        const int32_t a = restNormals[3 * v], b = restNormals[3 * v + 1], c = restNormals[3 * v + 2];
        for (size_t r = 0; r < 3; ++r) {
            const int32_t* row = m + 4 * r;
            const int32_t sum = wrapAdd(wrapAdd(wrapMul(row[0], a), wrapMul(row[1], b)), wrapMul(row[2], c));
            normals[3 * v + r] = int8_t(wrapAdd(sum, 2253) >> 12);
        }
    }
}

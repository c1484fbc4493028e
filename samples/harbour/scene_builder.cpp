#include "samples/harbour/scene_builder.h"

#include <algorithm>
#include <cmath>
#include <numbers>

constexpr double kTurn = 2 * std::numbers::pi;

// --- Shapes ---

static Point between(const Point& from, const Point& to) { return {to[0] - from[0], to[1] - from[1], to[2] - from[2]}; }

static Point normalised(const Point& v) {
    const double length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return {v[0] / length, v[1] / length, v[2] / length};
}

static Point cross(const Point& u, const Point& v) {
    return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

void Shape::addQuad(const std::array<Point, 4>& corners, double texelsAcross) {
    const Point normal = normalised(cross(between(corners[0], corners[1]), between(corners[0], corners[3])));
    const auto first = uint32_t(vertices.size());
    const double t = texelsAcross;
    const std::array<std::array<double, 2>, 4> texels = {{{0, t}, {t, t}, {t, 0}, {0, 0}}};
    for (size_t i = 0; i < 4; ++i) vertices.push_back({corners[i], normal, texels[i]});
    strips.push_back({first, first + 1, first + 3, first + 2});
}

void Shape::addLathe(const std::vector<std::array<double, 2>>& profile, uint32_t sides,
                     const std::function<uint32_t(uint32_t ring)>& colorOf) {
    const auto first = uint32_t(vertices.size());
    const auto rings = uint32_t(profile.size());
    for (uint32_t ring = 0; ring < rings; ++ring) {
        const auto& below = profile[ring > 0 ? ring - 1 : 0];
        const auto& above = profile[std::min(ring + 1, rings - 1)];
        const double outward = above[1] - below[1], upward = below[0] - above[0];
        for (uint32_t side = 0; side <= sides; ++side) {
            const double angle = kTurn * side / sides, c = std::cos(angle), s = -std::sin(angle);
            Vertex vertex = {.position = {profile[ring][0] * c, profile[ring][1], profile[ring][0] * s},
                             .normal = normalised({outward * c, upward, outward * s}),
                             .texel = {4.0 * side / sides, profile[ring][1] / 4}};
            if (colorOf) vertex.color = colorOf(ring);
            vertices.push_back(vertex);
        }
    }
    for (uint32_t ring = 0; ring + 1 < rings; ++ring) {
        std::vector<uint32_t> strip;
        for (uint32_t side = 0; side <= sides; ++side) {
            strip.push_back(first + (ring + 1) * (sides + 1) + side);
            strip.push_back(first + ring * (sides + 1) + side);
        }
        strips.push_back(strip);
    }
}

void Shape::addGrid(uint32_t columns, uint32_t rows, const std::function<Vertex(double u, double v)>& vertexAt) {
    const auto first = uint32_t(vertices.size());
    for (uint32_t column = 0; column <= columns; ++column)
        for (uint32_t row = 0; row <= rows; ++row)
            vertices.push_back(vertexAt(double(column) / columns, double(row) / rows));
    for (uint32_t column = 0; column < columns; ++column) {
        std::vector<uint32_t> strip;
        for (uint32_t row = 0; row <= rows; ++row) {
            strip.push_back(first + (column + 1) * (rows + 1) + row);
            strip.push_back(first + column * (rows + 1) + row);
        }
        strips.push_back(strip);
    }
}

// --- Objects ---

static int32_t rounded(double value) { return int32_t(std::lround(value)); }

encode::M3gRef SceneBuilder::addVertices(const Shape& shape, const Attributes& attributes) {
    constexpr double kTexelScale = 16.0 / 32767;  // coordinates of up to 16 repetitions
    double extent = 0;
    for (const Vertex& vertex : shape.vertices)
        for (const double coordinate : vertex.position) extent = std::max(extent, std::abs(coordinate));
    const double step = extent / 32767;
    encode::M3gVertexArray positions, normals{.componentSize = 1}, colors{.componentSize = 1, .componentCount = 4},
        texels{.componentCount = 2};
    for (const Vertex& vertex : shape.vertices) {
        for (const double coordinate : vertex.position) positions.values.push_back(rounded(coordinate / step));
        for (const double coordinate : vertex.normal) normals.values.push_back(rounded(coordinate * 127));
        for (const int shift : {16, 8, 0, 24}) colors.values.push_back(int32_t(vertex.color >> shift & 0xFF));
        for (const double coordinate : vertex.texel) texels.values.push_back(rounded(coordinate / kTexelScale));
    }
    encode::M3gVertexBuffer buffer = {.positions = {add(positions), float(step)}};
    if (attributes.normals) buffer.normals = add(normals);
    if (attributes.colors) buffer.colors = add(colors);
    if (attributes.texels) buffer.texCoords = {{add(texels), float(kTexelScale)}};
    return add(buffer);
}

encode::M3gRef SceneBuilder::addStrips(const Shape& shape) {
    encode::M3gTriangleStripArray array;
    for (const std::vector<uint32_t>& strip : shape.strips) {
        array.indices.insert(array.indices.end(), strip.begin(), strip.end());
        array.strips.push_back(uint32_t(strip.size()));
    }
    return add(array);
}

encode::M3gRef SceneBuilder::addAppearance(const Look& look) {
    encode::M3gAppearance appearance = {.layer = look.layer,
                                        .compositingMode = look.compositingMode,
                                        .fog = look.fog,
                                        .polygonMode = look.polygonMode,
                                        .material = look.material};
    if (look.texture != encode::M3gRef{}) appearance.textures = {look.texture};
    return add(appearance);
}

encode::M3gRef SceneBuilder::addMesh(const Shape& shape, const Attributes& attributes, const Look& look) {
    const encode::M3gRef vertices = addVertices(shape, attributes), strips = addStrips(shape);
    return add(encode::M3gMesh{.vertices = vertices, .submeshes = {{strips, addAppearance(look)}}});
}

encode::M3gRef SceneBuilder::addTexture(uint32_t side, const std::function<uint32_t(double u, double v)>& colorAt) {
    encode::M3gImage2D image = {.width = side, .height = side};
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            const uint32_t color = colorAt((x + 0.5) / side, (y + 0.5) / side);
            image.pixels.insert(image.pixels.end(), {uint8_t(color >> 16), uint8_t(color >> 8), uint8_t(color)});
        }
    return add(encode::M3gTexture2D{.image = add(image),
                                    .levelFilter = encode::M3gTextureFilter::Linear,
                                    .imageFilter = encode::M3gTextureFilter::Linear});
}

encode::M3gRef SceneBuilder::addTrack(encode::M3gProperty property, encode::M3gInterpolation interpolation,
                                      std::vector<encode::M3gKeyframe> keyframes, uint32_t duration,
                                      encode::M3gRef controller) {
    const encode::M3gRef sequence = add(encode::M3gKeyframeSequence{.interpolation = interpolation,
                                                                    .repeatMode = encode::M3gRepeatMode::Loop,
                                                                    .duration = duration,
                                                                    .keyframes = std::move(keyframes)});
    return add(encode::M3gAnimationTrack{.sequence = sequence, .controller = controller, .property = property});
}

// --- Numbers ---

encode::M3gNode placedAt(const Point& place, double angleDegrees, const Point& axis, double scale) {
    const auto vector = [](const Point& p) { return encode::M3gVector{float(p[0]), float(p[1]), float(p[2])}; };
    return {.transform = {.components = encode::M3gComponents{vector(place), vector({scale, scale, scale}),
                                                              float(angleDegrees), vector(axis)}}};
}

std::vector<float> quaternion(double degrees, const Point& axis) {
    const double half = degrees * std::numbers::pi / 360;
    const Point n = normalised(axis);
    std::vector<float> out;
    for (const double coordinate : n) out.push_back(float(coordinate * std::sin(half)));
    out.push_back(float(std::cos(half)));
    for (float& value : out) value += 0.0f;  // a zero of either sign becomes +0, the only one the format has
    return out;
}

std::vector<float> product(const std::vector<float>& a, const std::vector<float>& b) {
    std::vector<float> out = {
        a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1], a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
        a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3], a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
    for (float& value : out) value += 0.0f;
    return out;
}

static double cornerValue(int x, int y, int cells) {
    const auto wrap = [cells](int place) { return uint32_t((place % cells + cells) % cells); };
    uint32_t hash = wrap(x) * 73856093u ^ wrap(y) * 19349663u ^ uint32_t(cells) * 83492791u;
    hash = (hash ^ hash >> 13) * 1274126177u;
    return double((hash ^ hash >> 16) & 0xFFFF) / 32767.5 - 1;
}

double noise(double u, double v, int cells) {
    const double x = u * cells, y = v * cells;
    const int left = int(std::floor(x)), top = int(std::floor(y));
    const auto ease = [](double t) { return t * t * (3 - 2 * t); };
    const double s = ease(x - left), t = ease(y - top);
    const double above = cornerValue(left, top, cells) * (1 - s) + cornerValue(left + 1, top, cells) * s;
    const double below = cornerValue(left, top + 1, cells) * (1 - s) + cornerValue(left + 1, top + 1, cells) * s;
    return above * (1 - t) + below * t;
}

uint32_t mix(uint32_t a, uint32_t b, double share) {
    uint32_t out = 0;
    for (const int shift : {24, 16, 8, 0}) {
        const double from = a >> shift & 0xFF, to = b >> shift & 0xFF;
        out |= uint32_t(std::lround(from + (to - from) * std::clamp(share, 0.0, 1.0))) << shift;
    }
    return out;
}

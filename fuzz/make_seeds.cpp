// make_seeds DIRECTORY: what the fuzzers start from. load/ gets one small file of every format and version that the
// loader takes, draw/ gets figures together with action tables, and packages.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/loader/full_scene.h"
#include "tools/encode/bmp_encoder.h"
#include "tools/encode/k8_encoder.h"
#include "tools/encode/mb_encoder.h"
#include "tools/encode/mt_encoder.h"

using namespace encode;

static std::filesystem::path directory;

static void write(const std::filesystem::path& name, const std::vector<uint8_t>& bytes) {
    std::filesystem::create_directories((directory / name).parent_path());
    std::ofstream stream(directory / name, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

static void writeFile(const std::string& name, const EncodedFile& file) { write("load/" + name, file.bytes); }

static void writePair(const std::string& name, const EncodedFile& figure, const EncodedFile& actions) {
    const size_t size = figure.bytes.size();
    std::vector<uint8_t> bytes = {uint8_t(size), uint8_t(size >> 8)};
    bytes.insert(bytes.end(), figure.bytes.begin(), figure.bytes.end());
    bytes.insert(bytes.end(), actions.bytes.begin(), actions.bytes.end());
    write("draw/" + name, bytes);
}

// Two bones; a textured and, where the format has it, a coloured quad and triangle.
static MbFigure figure(int32_t version, uint32_t vertexFormat, uint32_t normalFormat, uint32_t polygonFormat) {
    MbFigure figure;
    figure.version = version;
    figure.vertexFormat = vertexFormat;
    figure.normalFormat = normalFormat;
    figure.polygonFormat = polygonFormat;
    figure.bones = {{.name = "root"}, {.name = "tip", .parent = 0, .rest = translationBone(0, 100, 0)}};
    for (const int32_t bone : {0, 1}) {
        for (const int16_t x : {int16_t(-60), int16_t(500)})
            for (const int16_t y : {int16_t(0), int16_t(7000)})
                figure.vertices.push_back({.position = {x, y, 5}, .normal = {0, 0, 1}, .bone = bone});
    }
    const auto addPolygon = [&](uint32_t cornerCount, uint32_t first) {
        MbPolygon polygon;
        for (uint32_t k = 0; k < cornerCount; ++k)
            polygon.corners.push_back({.vertex = first + k, .u = uint8_t(k * 9), .v = uint8_t(100 + k)});
        polygon.style.twoSided = true;
        figure.polygons.push_back(polygon);
        if (polygonFormat < 3) return;
        polygon.color = Rgb{uint8_t(first), 128, 255};
        polygon.style.lit = normalFormat != 0;
        polygon.style.blend = MbBlend::Half;
        if (version >= 5) polygon.pattern = 1 + first % 3;
        figure.polygons.push_back(polygon);
    };
    addPolygon(3, 0);
    addPolygon(4, 4);
    return figure;
}

static MtTable table(int32_t version) {
    const MtVectorKeys vectors = {{0, 10, 20, 4096}, {4, -300, 0, 4096}};
    const MtScalarKeys scalars = {{0, 0}, {6, 1024}};
    MtTable table;
    table.version = version;
    const std::vector<MtTrack> kinds = {MtConstantMatrix{},
                                        MtUnchanged{},
                                        MtTranslateScaleDirectionRoll{vectors, vectors, vectors, scalars},
                                        MtDirectionFixedTranslateRoll{{1, 2, 3}, vectors, 77},
                                        MtDirectionRoll{vectors, scalars},
                                        MtDirection{vectors},
                                        MtTranslateDirectionRoll{vectors, vectors, scalars}};
    table.boneCount = uint32_t(kinds.size());
    table.actions = {{.name = "all kinds", .frameCount = 8, .tracks = kinds}};
    if (version >= 5) table.actions[0].patterns = {{0, 1}, {3, 6}};
    return table;
}

static BmpImage image(uint32_t width, uint32_t height, uint32_t bitsPerPixel) {
    BmpImage image{.width = width, .height = height, .bitsPerPixel = bitsPerPixel};
    for (uint32_t i = 0; i < width * height; ++i) {
        if (bitsPerPixel == 8)
            image.indices.push_back(uint8_t(i % 5));
        else
            image.pixels.push_back({uint8_t(i), uint8_t(i * 3), 200});
    }
    if (bitsPerPixel == 8) image.palette = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 9, 9}};
    return image;
}

static K8PrimitiveRecord primitive(uint32_t type, uint32_t params, std::array<uint32_t, 5> valueCounts) {
    K8PrimitiveRecord record{.type = type, .params = params, .count = 2};
    for (size_t i = 0; i < valueCounts.size(); ++i)
        for (uint32_t k = 0; k < valueCounts[i]; ++k) record.values[i].push_back(int32_t((k * 37 % 64) << 12));
    return record;
}

static std::vector<K8Record> figureWithContent() {
    return {K8FigureRecord{encodeMb(figure(5, 2, 2, 3)), 2, {1, 1}}, K8TextureRecord{encodeBmp(image(8, 8, 8))},
            K8ActionTableRecord{encodeMt(table(5))}};
}

// Every kind of light, fog and primitive, and a group that stands in two places.
static K8Package package() {
    K8Package package;
    package.objects = figureWithContent();
    for (uint8_t mode = 128; mode <= 131; ++mode) package.objects.push_back(K8LightRecord{.mode = mode});
    for (uint8_t mode = 80; mode <= 81; ++mode) package.objects.push_back(K8FogRecord{.mode = mode});
    package.objects.push_back(primitive(1, 0x800, {6, 0, 2, 0, 0}));
    package.objects.push_back(primitive(2, 0x400, {12, 0, 1, 0, 0}));
    package.objects.push_back(primitive(3, 0x3300, {18, 18, 0, 12, 0}));
    package.objects.push_back(primitive(4 << 24, 0x810, {24, 0, 2, 0, 0}));
    package.objects.push_back(primitive(5, 0x3010, {6, 0, 0, 0, 16}));
    K8Child placed{.isGroup = true, .index = 1};
    placed.transform = {1, 0, 0, 0.3f, 0, 1, 0, 20, 0, 0, 1, 5, 0, 0, 0, 1};
    package.groups = {{{placed, {.isGroup = true, .index = 2}}}, {{{.isGroup = true, .index = 2}}}, {}};
    for (uint16_t i = 0; i < package.objects.size(); ++i) package.groups[2].children.push_back({.index = i});
    return package;
}

// What objects can look like beside what they look like in a FullScene.
static M3gScene otherForms() {
    M3gScene scene;
    scene.add(M3gHeader{.author = "seed"});
    scene.add(M3gExternalReference{"other"});
    const M3gRef palette = scene.add(M3gImage2D{.format = M3gImageFormat::Rgba,
                                                .width = 2,
                                                .height = 2,
                                                .palette = {9, 9, 9, 99, 200, 0, 0, 255},
                                                .pixels = {0, 1, 1, 0}});
    const M3gRef blank = scene.add(M3gImage2D{.isMutable = true, .width = 8, .height = 4});
    const M3gRef base = scene.add(M3gTexture2D{.image = palette, .levelFilter = M3gTextureFilter::Nearest});
    const M3gRef second = scene.add(M3gTexture2D{.image = blank});
    const M3gRef mode = scene.add(M3gCompositingMode{.blending = M3gBlending::Alpha});
    const M3gRef fog = scene.add(M3gFog{.near = 1, .far = 50});
    const M3gRef look = scene.add(M3gAppearance{.compositingMode = mode, .fog = fog, .textures = {base, second}});
    const M3gRef positions =
        scene.add(M3gVertexArray{.componentSize = 1, .asDeltas = true, .values = {0, 0, 0, 9, 0, 0, 0, 9, -9}});
    const M3gRef moved = scene.add(M3gVertexArray{.componentSize = 1, .values = {0, 0, 0, 9, 0, 50, 0, 9, -9}});
    const M3gRef corners =
        scene.add(M3gVertexArray{.componentSize = 1, .componentCount = 2, .values = {0, 0, 1, 0, 0, 1}});
    const M3gRef shape = scene.add(M3gVertexBuffer{.positions = {positions}});
    const M3gRef target = scene.add(M3gVertexBuffer{.positions = {moved}});
    const M3gRef flat = scene.add(M3gVertexBuffer{.positions = {positions}, .texCoords = {{corners}, {corners}}});
    const M3gRef strips = scene.add(M3gTriangleStripArray{.strips = {3}});
    const M3gRef turns = scene.add(M3gKeyframeSequence{.interpolation = M3gInterpolation::Squad,
                                                       .encoding = M3gKeyframeEncoding::Quantised16,
                                                       .keyframes = {{0, {0, 0, 0, 1}}, {90, {1, 0, 0, 0}}},
                                                       .bias = {0, 0, 0, 0},
                                                       .scale = {1, 1, 1, 1}});
    const M3gRef weights = scene.add(M3gKeyframeSequence{.repeatMode = M3gRepeatMode::Loop,
                                                         .encoding = M3gKeyframeEncoding::Quantised8,
                                                         .keyframes = {{0, {0}}, {50, {1}}},
                                                         .bias = {0},
                                                         .scale = {1}});
    const M3gRef clock = scene.add(M3gAnimationController{.speed = 2});
    const M3gRef turning =
        scene.add(M3gAnimationTrack{.sequence = turns, .controller = clock, .property = M3gProperty::Orientation});
    const M3gRef morphing =
        scene.add(M3gAnimationTrack{.sequence = weights, .controller = clock, .property = M3gProperty::MorphWeights});
    const M3gRef mesh =
        scene.add(M3gMesh{.object = {.tracks = {turning}}, .vertices = flat, .submeshes = {{strips, look}}});
    const M3gRef morph = scene.add(M3gMorphingMesh{.object = {.tracks = {morphing}},
                                                   .vertices = shape,
                                                   .submeshes = {{strips, look}},
                                                   .targets = {{target, 0.5f}}});
    const M3gRef camera = scene.add(M3gCamera{.projection = M3gProjection::Generic});
    const M3gRef light = scene.add(M3gLight{.mode = M3gLightMode::Omni});
    const M3gRef group =
        scene.add(M3gGroup{.node = {.transform = {M3gComponents{{0, 0, -20}}}}, .children = {mesh, morph, light}});
    scene.add(M3gWorld{.children = {group, camera}});
    scene.sections = {2, scene.objects.size() - 2};
    return scene;
}

int main(int argc, char** argv) {
    if (argc != 2) return 1;
    directory = argv[1];
    for (const int32_t version : {2, 3})
        writeFile("v" + std::to_string(version) + ".mb", encodeMb(figure(version, 1, 0, 1)));
    for (const int32_t version : {4, 5}) {
        for (const uint32_t format : {1u, 2u, 3u})
            writeFile("v" + std::to_string(version) + "-" + std::to_string(format) + ".mb",
                      encodeMb(figure(version, format == 1 ? 1 : 2, format - 1, format)));
    }
    for (const int32_t version : {2, 3, 4, 5})
        writeFile("v" + std::to_string(version) + ".mt", encodeMt(table(version)));
    writeFile("8.bmp", encodeBmp(image(8, 8, 8)));
    writeFile("8-padded.bmp", encodeBmp(image(5, 3, 8)));
    writeFile("24.bmp", encodeBmp(image(4, 2, 24)));
    writeFile("24-padded.bmp", encodeBmp(image(3, 7, 24)));

    for (const int32_t version : {4, 5}) {
        for (const uint32_t format : {1u, 2u, 3u})
            writePair("v" + std::to_string(version) + "-" + std::to_string(format),
                      encodeMb(figure(version, format == 1 ? 1 : 2, format - 1, format)), encodeMt(table(version)));
    }
    for (const auto& [name, content] :
         {std::pair("groups.k8", package()), {"figure.k8", {.objects = figureWithContent()}}}) {
        writeFile(name, encodeK8(content));
        writePair(name, encodeK8(content), {});
    }
    for (const auto& [name, scene] : {std::pair("classes.k8", FullScene().scene), {"forms.k8", otherForms()}}) {
        writeFile(name, encodeScenePackage(scene));
        writePair(name, encodeScenePackage(scene), {});
    }
}

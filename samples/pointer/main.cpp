// A host that knows what its pointer is on: draws a package, takes places of the pointer as pixels of the picture,
// tells which figure is there, and puts a pin where the pointer touches it.
#include <GLES/gl.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

#include "samples/pointer/camera.h"
#include "samples/pointer/picking.h"
#include "samples/pointer/pin.h"
#include "tools/gl_surface.h"
#include "tools/k8/picture.h"

constexpr int kWidth = 640, kHeight = 480;

struct Pixel {
    int x, y;  // from the top left
};

// A group that was loaded lists all the handles that came with it.
static void destroyTree(K8Handle* root) {
    if (root->classId == K8_CLASS_GROUP || root->classId == K8_CLASS_SCENE_GROUP)
        for (K8Handle** other = reinterpret_cast<K8Group*>(root)->info->childData; *other; ++other)
            K8Object3D_destroy(*other);
    K8Object3D_destroy(root);
}

// Only trees of groups are shown here. The meshes of a scene have places of their own, which a host is not told.
static K8Handle* loadPackage(const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    K8Handle* root = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
    if (root && root->classId != K8_CLASS_GROUP) {
        destroyTree(root);
        root = nullptr;
    }
    return root;
}

// Draws the tree, and the pin wherever something was hit.
static bool drawFrame(K8Render* render, const Camera& camera, K8Handle* root, K8Primitive* pin,
                      const std::vector<Hit>& hits) {
    glClearColor(0.04f, 0.07f, 0.16f, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    if (!K8Render_render3D(render, &camera.params, root, nullptr)) return false;
    for (const Hit& hit : hits) {
        const K8Transform place = placePin(hit);
        if (!K8Render_render3D(render, &camera.params, &pin->header, &place)) return false;
    }
    return K8Render_flush(render, 0, 0, kWidth, kHeight);
}

// Tells what is under the pointer, and adds it to the hits.
static void point(const Camera& camera, K8Handle* root, Pixel place, std::vector<Hit>* hits) {
    const auto [x, y] = place;
    Ray ray;
    Hit hit;
    if (!rayThroughPixel(camera, x, y, &ray) || !pickTree(root, ray, &hit)) {
        std::printf("%d,%d: no figure\n", x, y);
        return;
    }
    std::printf("%d,%d: figure %d, submesh %d, at (%.2f, %.2f, %.2f)\n", x, y, hit.figure, int(hit.submesh),
                double(hit.point[0]), double(hit.point[1]), double(hit.point[2]));
    hits->push_back(hit);
}

static bool run(K8Render* render, K8Handle* root, K8Primitive* pin, const std::vector<Pixel>& places) {
    const float position[3] = {16, 24, 72}, look[3] = {-16, -13, -62};
    Camera camera;
    placeCamera(&camera, kWidth, kHeight, position, look);
    std::vector<Hit> hits;
    if (!drawFrame(render, camera, root, pin, hits)) return false;  // poses the figures, too
    for (const Pixel& place : places) point(camera, root, place, &hits);
    return drawFrame(render, camera, root, pin, hits);
}

static int show(const char* package, const char* picture, const std::vector<Pixel>& places) {
    const std::unique_ptr<GlSurface> surface = GlSurface::create(kWidth, kHeight);
    MALK8_touchMA();
    K8Handle* root = loadPackage(package);
    K8Primitive* pin = makePin();
    K8Render* render = K8Render_create(nullptr, &MALK8_malc);
    const bool ok = root && pin &&
                    K8Render_bind(render, surface.get(), kWidth, kHeight, kWidth, 0, 0, kWidth, kHeight) &&
                    run(render, root, pin, places);
    const Picture drawn = {kWidth, kHeight, surface->readPixels()};
    K8Render_destroy(render);
    K8Primitive_destroy(pin);
    if (root) destroyTree(root);  // textures go while the context is current

    if (!ok) throw std::runtime_error(std::string(package) + ": cannot be loaded or drawn");
    writePng(picture, drawn);
    std::printf("%s\n", picture);
    return 0;
}

int main(int argc, char** argv) {
    std::vector<Pixel> places(size_t(std::max(argc - 3, 0)));
    bool ok = !places.empty();
    for (size_t i = 0; i < places.size(); ++i)
        ok = ok && std::sscanf(argv[3 + i], "%d,%d", &places[i].x, &places[i].y) == 2;
    if (!ok) {
        std::fprintf(stderr, "usage: %s PACKAGE.k8 PICTURE.png X,Y...\n", argv[0]);
        return 2;
    }
    try {
        return show(argv[1], argv[2], places);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "%s: %s\n", argv[0], problem.what());
        return 1;
    }
}

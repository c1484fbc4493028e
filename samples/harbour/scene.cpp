#include "samples/harbour/harbour.h"

static Shared addShared(SceneBuilder& scene) {
    return {.haze = scene.add(encode::M3gFog{.color = 0xC8DCE8, .near = 60, .far = 160}),
            .controller = scene.add(encode::M3gAnimationController{}),
            .opaque = scene.add(encode::M3gCompositingMode{}),
            .seeThrough =
                scene.add(encode::M3gCompositingMode{.depthWrite = false, .blending = encode::M3gBlending::Alpha}),
            .glowing =
                scene.add(encode::M3gCompositingMode{.depthWrite = false, .blending = encode::M3gBlending::AlphaAdd})};
}

// Lights shine in axes that are turned against those of the things they light: what points up and away from the viewer
// shines down and towards him.
static std::vector<encode::M3gRef> addLights(SceneBuilder& scene) {
    return {scene.add(encode::M3gLight{.color = 0x9CB0C8, .mode = encode::M3gLightMode::Ambient, .intensity = 0.6f}),
            scene.add(encode::M3gLight{.node = placedAt({0, 0, 0}, 120, {0.7, -0.5, 0}),
                                       .color = 0xFFF0D8,
                                       .mode = encode::M3gLightMode::Directional,
                                       .intensity = 0.9f})};
}

encode::M3gScene harbourScene() {
    SceneBuilder scene;
    scene.add(encode::M3gHeader{.author = "the K8 samples"});
    const Shared shared = addShared(scene);
    const encode::M3gRef camera = scene.add(
        encode::M3gCamera{.node = placedAt({0, 14, 48}, -12, {1, 0, 0}), .fieldOfView = 45, .near = 1, .far = 300});
    const encode::M3gRef background = scene.add(encode::M3gBackground{.color = 0xFFC8DCE8});
    encode::M3gWorld world = {.children = addLights(scene), .activeCamera = camera, .background = background};
    for (const auto addPart : {addSea, addLighthouse, addBoat, addSky})
        world.children.push_back(addPart(scene, shared));
    world.children.push_back(camera);
    scene.add(world);
    return scene.scene;
}

#include "samples/floe/floe.h"
#include "samples/penguin/penguin.h"

// Positions in the list of objects. The penguin's figure comes first: textures and action tables cannot, since index 0
// means none where a figure names them.
enum Object : uint16_t {
    PenguinFigure,
    PenguinActions,
    PenguinBody,
    PenguinGear,
    Ice,
    Water,
    Mountains,
    Moon,
    Stars,
    Aurora,
    Rod,
    Snow,
    Lanterns,
    SkyLight,
    MoonLight,
    LanternLight,
    Haze
};

enum Group : uint16_t { Night, Floe, Angler, Visitor, Penguin, FishingRod, Sky, Horizon, MoonPlace };

static encode::K8Child object(Object index) { return {.index = index}; }
static encode::K8Child group(Group index, const std::array<float, 16>& transform) {
    return {.isGroup = true, .index = index, .transform = transform};
}
static encode::K8Child group(Group index) { return {.isGroup = true, .index = index}; }

// The floe carries two penguins: one group with the figure stands in two others, each at a place of its own.
static std::vector<encode::K8GroupRecord> groups() {
    return {
        {{object(Haze), object(SkyLight), object(MoonLight), group(Horizon, placedAt({0, -6, 0})),
          group(Sky, placedAt({0, 0, 0})), group(Floe, placedAt({0, -2, 0}, 8)), object(Snow)}},
        {{object(Ice), group(Angler, placedAt({14, 1, 22}, 25)), group(Visitor, placedAt({-18, 1, 4}, -20, 0.8)),
          object(Lanterns), object(LanternLight)}},
        {{group(Penguin), group(FishingRod, placedAt({7.2, 11.5, 3.6}))}},
        {{group(Penguin)}},
        {{object(PenguinFigure)}},
        {{object(Rod)}},
        {{object(Stars), object(Aurora), group(MoonPlace, placedAt({78, 128, -275}))}},
        {{object(Water), object(Mountains)}},
        {{object(Moon)}},
    };
}

// Lights shine in axes that are turned against those of the things they light: up and towards the viewer are where
// down and away from him are. A light from above therefore points up.
encode::K8Package floePackage() {
    encode::K8FigureRecord penguin = {
        .model = encodeMb(penguinFigure()), .actionTable = PenguinActions, .textures = {PenguinBody, PenguinGear}};
    return {.groups = groups(),
            .objects = {penguin, encode::K8ActionTableRecord{encodeMt(penguinActions())},
                        encode::K8TextureRecord{encodeBmp(penguinBodyTexture())},
                        encode::K8TextureRecord{encodeBmp(penguinGearTexture())}, floeIce(), floeWater(),
                        floeMountains(), floeMoon(), floeStars(), floeAurora(), floeRod(), floeSnow(), floeLanterns(),
                        encode::K8LightRecord{.mode = 128, .color = 0x8898C0, .intensity = 0.55f},
                        encode::K8LightRecord{
                            .mode = 129, .color = 0xFFF4E0, .direction = {-0.5f, 0.7f, 0.6f}, .intensity = 0.75f},
                        encode::K8LightRecord{.mode = 130,
                                              .color = 0xFFB060,
                                              .position = {0, 30, -10},
                                              .attenuation = {0.6f, 0.01f, 0.0008f},
                                              .intensity = 0.8f},
                        encode::K8FogRecord{.mode = 81, .color = 0x141E3A, .near = 120, .far = 620}}};
}

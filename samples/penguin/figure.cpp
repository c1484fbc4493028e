#include "samples/penguin/figure_maker.h"
#include "samples/penguin/penguin.h"

using encode::MbBlend;
using encode::Rgb;

namespace {

constexpr Rgb kOrange = {240, 140, 30};
constexpr Rgb kDarkOrange = {205, 105, 20};
constexpr Rgb kNavy = {30, 38, 60};
constexpr Rgb kFelt = {120, 30, 40};
constexpr Rgb kBand = {250, 210, 90};
constexpr Rgb kWood = {150, 100, 55};
constexpr Rgb kShadow = {0, 0, 0};

Paint colored(Rgb color, uint32_t pattern = BodyPattern) { return {.color = color, .pattern = pattern}; }

Paint textured(uint32_t texture, double u0, double v0, double u1, double v1, uint32_t pattern = BodyPattern) {
    return {.texture = texture, .u0 = u0, .v0 = v0, .u1 = u1, .v1 = v1, .pattern = pattern};
}

Paint cutOut(Paint paint) {
    paint.style.colorKey = true;
    paint.style.twoSided = true;
    return paint;
}

void addBones(FigureMaker& maker) {
    maker.addBone("root", -1, {0, 0, 0});
    maker.addBone("hips", Root, {0, 260, 0});
    maker.addBone("torso", Hips, {0, 450, 0});
    maker.addBone("chest", Torso, {0, 760, 0});
    maker.addBone("neck", Chest, {0, 980, 0});
    maker.addBone("head", Neck, {0, 1070, 0});
    maker.addBone("jaw", Head, {0, 1150, 140});
    maker.addBone("left flipper", Chest, {225, 860, 0});
    maker.addBone("left flipper tip", LeftFlipper, {300, 660, 0});
    maker.addBone("right flipper", Chest, {-225, 860, 0});
    maker.addBone("right flipper tip", RightFlipper, {-300, 660, 0});
    maker.addBone("left leg", Hips, {120, 190, 20});
    maker.addBone("left foot", LeftLeg, {120, 60, 40});
    maker.addBone("right leg", Hips, {-120, 190, 20});
    maker.addBone("right foot", RightLeg, {-120, 60, 40});
    maker.addBone("tail", Hips, {0, 200, -220});
    maker.addBone("hat", Head, {0, 1350, 0});
    maker.addBone("scarf end", Chest, {90, 960, 170});
    maker.addBone("umbrella", RightFlipperTip, {-345, 500, 30});
}

void addBody(FigureMaker& maker) {
    const std::vector<Ring> trunk = {{110, 0, 0, Hips},      {125, 120, 110, Hips},  {190, 230, 215, Hips},
                                     {300, 290, 270, Hips},  {430, 312, 290, Torso}, {570, 305, 280, Torso},
                                     {710, 280, 250, Torso}, {830, 240, 212, Chest}, {930, 196, 176, Chest},
                                     {1010, 166, 158, Chest}};
    maker.addRound({}, trunk, 16, textured(BodyTexture, 0, 32, 64, 64));
    const std::vector<Ring> head = {{1000, 166, 158, Neck}, {1080, 176, 172, Head}, {1170, 190, 188, Head},
                                    {1255, 178, 178, Head}, {1325, 134, 136, Head}, {1366, 74, 76, Head},
                                    {1378, 0, 0, Head}};
    maker.addRound({}, head, 16, textured(BodyTexture, 0, 16, 64, 32));
    // A tuft at the back of the head and feathers at the tail: the same cut-out, once upright, once lying.
    const Paint feathers = cutOut(textured(BodyTexture, 0, 0, 32, 16));
    maker.addQuad(Head, {{{-70, 1340, -60}, {-90, 1450, -130}, {70, 1340, -60}, {90, 1450, -130}}}, feathers);
    maker.addQuad(Tail, {{{-90, 240, -215}, {-120, 130, -330}, {90, 240, -215}, {120, 130, -330}}}, feathers);
    maker.addQuad(Tail, {{{-60, 225, -225}, {-75, 95, -370}, {60, 225, -225}, {75, 95, -370}}}, feathers);
    const Paint shadow = {.color = kShadow, .style = {.blend = MbBlend::Half}};
    maker.addDisc(Root, {0, 3, 10}, 330, 14, shadow);
}

void addFace(FigureMaker& maker) {
    const Paint eye = cutOut(textured(BodyTexture, 32, 0, 48, 16));
    for (const double side : {-1.0, 1.0}) {
        const double near = side * 62, far = side * 134;
        const double left = side < 0 ? far : near, right = side < 0 ? near : far;
        const auto z = [](double x) { return x < -100 || x > 100 ? 148.0 : 186.0; };
        maker.addQuad(Head,
                      {{{left, 1165, z(left)},
                        {left * 0.94, 1248, z(left) - 6},
                        {right, 1165, z(right)},
                        {right * 0.94, 1248, z(right) - 6}}},
                      eye);
    }
    // The beak points forward: its axis lies along z.
    const Placement upper = placed({0, 1152, 150}, 86);
    maker.addRound(upper, {{0, 64, 44, Head}, {50, 52, 36, Head}, {110, 30, 22, Head}, {165, 0, 0, Head}}, 10,
                   colored(kOrange));
    const Placement lower = placed({0, 1122, 146}, 92);
    maker.addRound(lower, {{0, 50, 24, Jaw}, {50, 38, 18, Jaw}, {95, 22, 10, Jaw}, {130, 0, 0, Jaw}}, 10,
                   colored(kDarkOrange));
}

void addLimbs(FigureMaker& maker) {
    struct Side {
        double sign;
        int flipper, tip, leg, foot;
    };
    for (const Side& side : {Side{1, LeftFlipper, LeftFlipperTip, LeftLeg, LeftFoot},
                             Side{-1, RightFlipper, RightFlipperTip, RightLeg, RightFoot}}) {
        // Rings go from the tip, far below, up to the shoulder.
        const Placement arm = placed({side.sign * 345, 505, 0}, 0, side.sign * 17);
        maker.addRound(arm,
                       {{-20, 0, 0, side.tip},
                        {20, 16, 46, side.tip},
                        {110, 24, 72, side.tip},
                        {200, 30, 80, side.flipper},
                        {300, 34, 76, side.flipper},
                        {380, 26, 50, side.flipper},
                        {410, 0, 0, side.flipper}},
                       10, colored(kNavy));
        const double x = side.sign * 120;
        maker.addRound(placed({x, 0, 25}), {{50, 38, 42, side.foot}, {130, 40, 44, side.leg}, {220, 60, 60, side.leg}},
                       8, colored(kDarkOrange));
        // Three toes, one of them straight ahead.
        for (const double turn : {-26.0, 0.0, 26.0}) {
            Placement toe = placed({x + turn * 1.2, 32, 20}, 90);
            const double reach = turn == 0 ? 205 : 180;
            toe.x = normalized({1, 0, -turn / 60});
            toe.y = normalized({turn / 60, 0, 1});
            toe.z = cross(toe.x, toe.y);
            maker.addRound(toe,
                           {{-60, 0, 0, side.foot},
                            {-40, 34, 22, side.foot},
                            {reach * 0.55, 34, 24, side.foot},
                            {reach * 0.9, 24, 16, side.foot},
                            {reach, 0, 0, side.foot}},
                           8, colored(kOrange));
        }
    }
}

void addWinterWear(FigureMaker& maker) {
    maker.addRound(placed({0, 1330, -8}, -6), {{0, 168, 172, Hat}, {16, 176, 180, Hat}, {30, 132, 138, Hat}}, 14,
                   colored(kFelt, WinterPattern));
    maker.addRound(placed({0, 1330, -8}, -6), {{24, 131, 136, Hat}, {74, 128, 132, Hat}}, 14,
                   colored(kBand, WinterPattern));
    maker.addRound(placed({0, 1330, -8}, -6),
                   {{70, 127, 131, Hat}, {150, 112, 116, Hat}, {196, 78, 82, Hat}, {206, 0, 0, Hat}}, 14,
                   colored(kFelt, WinterPattern));
    maker.addRound({},
                   {{930, 200, 182, Chest},
                    {950, 226, 208, Chest},
                    {990, 234, 214, Chest},
                    {1030, 214, 200, Chest},
                    {1046, 176, 168, Chest}},
                   16, textured(GearTexture, 0, 0, 64, 14, WinterPattern));
    // The loose end hangs down in front, fringed; the fringe is cut out of the texture.
    const Paint end = cutOut(textured(GearTexture, 0, 0, 20, 32, WinterPattern));
    maker.addQuad(ScarfEnd, {{{40, 690, 310}, {50, 980, 216}, {150, 690, 290}, {150, 980, 186}}}, end);
}

void addUmbrella(FigureMaker& maker) {
    const Placement stick = placed({-345, 500, 60});
    maker.addRound(stick, {{-120, 12, 12, Umbrella}, {1300, 12, 12, Umbrella}, {1360, 0, 0, Umbrella}}, 6,
                   colored(kWood, UmbrellaPattern));
    maker.addRound(stick,
                   {{-150, 0, 0, Umbrella, 0, 0},
                    {-140, 26, 26, Umbrella, 0, 20},
                    {-110, 20, 20, Umbrella, 0, 8},
                    {-90, 12, 12, Umbrella}},
                   6, colored(kFelt, UmbrellaPattern));
    // Eight panels from the tip outwards; what hangs below the scallops of the texture is cut away.
    Paint panel = cutOut(textured(GearTexture, 0, 32, 64, 64, UmbrellaPattern));
    const std::vector<Ring> canopy = {{1070, 540, 540, Umbrella},
                                      {1145, 485, 485, Umbrella},
                                      {1220, 350, 350, Umbrella},
                                      {1280, 175, 175, Umbrella},
                                      {1310, 0, 0, Umbrella}};
    maker.addRound(stick, canopy, 16, panel);
}

}  // namespace

encode::MbFigure penguinFigure() {
    FigureMaker maker;
    addBones(maker);
    addBody(maker);
    addFace(maker);
    addLimbs(maker);
    addWinterWear(maker);
    addUmbrella(maker);
    return maker.take();
}

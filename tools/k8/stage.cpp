#include "tools/k8/stage.h"

#include <GLES/gl.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <utility>

namespace {

constexpr double kLargest = 524287;  // of 20.12 fixed point

int32_t fixed(double value) {
    if (std::abs(value) > kLargest)
        throw std::runtime_error("it takes a length or intensity of more than 524287, which the library does not have");
    return int32_t(std::lround(value * 4096));
}

// Throws with what the library says about its last failure.
[[noreturn]] void failWith(const char* what) {
    throw std::runtime_error(
        std::string(what) + (K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY ? ": memory ran out" : ": refused"));
}

void setPose(K8Figure* figure, const Pose& pose) {
    K8FigureInfo info = *figure->info;
    info.frame = int32_t(std::lround(pose.frame * 65536));
    info.action = pose.action | (pose.patterns ? 0x80000000u : 0);
    if (!K8Figure_setTmpData(figure, &info)) failWith("a figure's parameters");
    if (pose.patterns && !K8Figure_setPattern(figure, *pose.patterns)) failWith("the patterns");
}

void setTime(K8Group* scene, double milliseconds) {
    K8GroupInfo info = *scene->info;
    info.frame = int32_t(std::lround(milliseconds));  // a scene counts time in its own unit
    if (!K8Group_setTmpData(scene, &info)) failWith("the scene's time");
}

// All of the box, about its middle if there is no other center. An eighth is added for what moves outwards.
Sphere around(const Box& box, const std::optional<std::array<double, 3>>& center) {
    Sphere sphere{};
    double squared = 0;
    for (size_t i = 0; i < 3; ++i) {
        sphere.center[i] = center ? (*center)[i] : (box.least[i] + box.greatest[i]) / 2;
        squared += std::pow(std::max(box.greatest[i] - sphere.center[i], sphere.center[i] - box.least[i]), 2);
    }
    sphere.radius = std::max(std::sqrt(squared) * 1.125, 0.25);
    return sphere;
}

}  // namespace

Stage::Stage(const StageOptions& options, StageContent content) : options_(options), content_(std::move(content)) {
    surface_ = GlSurface::create(options.width, options.height);
    render_ = K8Render_create(nullptr, &MALK8_malc);
    if (!render_) failWith("the render context");
    if (!K8Render_bind(render_, this, options.width, options.height, options.width, 0, 0, options.width,
                       options.height))
        failWith("binding to the surface");
    setUpLights();
    bounds_ = around(content_.extent.box, options_.view.target);
    aim();
}

Stage::~Stage() {
    for (K8Light* light : lights_) K8Light_destroy(light);
    K8Render_destroy(render_);
    content_ = {};  // textures go while the context is current
}

void Stage::setUpLights() {
    Lighting& lighting = options_.lighting;
    if (content_.extent.hasLights) {
        if (lighting.isChosen)
            content_.removeLights();
        else
            lighting.isOn = false;
    }
    if (!lighting.isOn) return;
    for (K8Light*& light : lights_) {
        light = K8Light_create(nullptr, &MALK8_malc);
        if (!light) failWith("a light");
        K8Light_setColor(light, lighting.color);
    }
    K8Light_setMode(lights_[0], K8_LIGHT_AMBIENT);
    K8Light_setIntensity(lights_[0], fixed(lighting.ambient));
    K8Light_setMode(lights_[1], K8_LIGHT_DIRECTIONAL);
    K8Light_setIntensity(lights_[1], fixed(lighting.direct));
    const K8LightInfo ambient = {};
    K8LightInfo direct = {};
    for (size_t i = 0; i < 3; ++i) direct.direction[i] = fixed(lighting.direction[i]);
    if (!K8Light_setTmpData(lights_[0], &ambient) || !K8Light_setTmpData(lights_[1], &direct)) failWith("a light");
}

void Stage::aim() {
    const View& view = options_.view;
    const double opening = view.openingDegrees * std::numbers::pi / 180;
    // The narrower side of the picture must hold the sphere.
    const double half = std::atan(std::tan(opening / 2) * std::min(1.0, double(options_.width) / options_.height));
    const double distance = (view.distance > 0 ? view.distance : bounds_.radius / std::sin(half)) / view.zoom;
    const double yaw = view.yawDegrees * std::numbers::pi / 180, pitch = view.pitchDegrees * std::numbers::pi / 180;
    const std::array<double, 3> towards = {std::sin(yaw) * std::cos(pitch), std::sin(pitch),
                                           std::cos(yaw) * std::cos(pitch)};
    const std::array<double, 3> upwards = {-std::sin(yaw) * std::sin(pitch), std::cos(pitch),
                                           -std::cos(yaw) * std::sin(pitch)};
    int32_t position[3], look[3], up[3];
    for (size_t i = 0; i < 3; ++i) {
        position[i] = fixed(bounds_.center[i] + distance * towards[i]);
        look[i] = fixed(-towards[i]);
        up[i] = fixed(upwards[i]);
    }
    K8Transform_create(&view_, &MALK8_malc);
    K8Transform_lookAt(&view_, position, look, up);

    params_.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
    params_.screenWidth = uint16_t(options_.width);
    params_.screenHeight = uint16_t(options_.height);
    params_.nearDistance = fixed(std::max(distance - 3 * bounds_.radius, distance / 50));
    params_.farDistance = fixed(std::min(distance + 3 * bounds_.radius, kLargest));
    params_.verticalAngle = fixed(view.openingDegrees);
}

bool Stage::isCutOff(const Pose& pose) {
    const Picture picture = draw(pose);
    const uint32_t b = options_.background;
    const std::array<uint8_t, 3> background = {uint8_t(b >> 16), uint8_t(b >> 8), uint8_t(b)};
    const auto isShown = [&](int x, int y) {
        return !std::equal(background.begin(), background.end(), &picture.rgba[size_t((y * picture.width + x) * 4)]);
    };
    for (int x = 0; x < picture.width; ++x)
        if (isShown(x, 0) || isShown(x, picture.height - 1)) return true;
    for (int y = 0; y < picture.height; ++y)
        if (isShown(0, y) || isShown(picture.width - 1, y)) return true;
    return false;
}

// The picture tells, since nothing else knows where animations take things. What reaches the edges from any distance,
// as sprites sized in pixels can, does not move the camera.
void Stage::showAllOf(const std::vector<Pose>& poses) {
    constexpr double kStep = 1.125, kMost = 8;
    if (options_.view.distance > 0) return;
    const double zoom = std::exchange(options_.view.zoom, 1.0), restRadius = bounds_.radius;
    aim();
    const auto mayGoFurther = [&] { return bounds_.radius <= kMost * restRadius; };
    for (const Pose& pose : poses)
        while (mayGoFurther() && isCutOff(pose)) {
            bounds_.radius *= kStep;
            aim();
        }
    if (!mayGoFurther()) bounds_.radius = restRadius;
    options_.view.zoom = zoom;
    aim();
}

Picture Stage::draw(const Pose& pose) {
    for (K8Figure* figure : content_.figures) setPose(figure, pose);
    if (content_.scene) setTime(content_.scene, pose.milliseconds);
    const uint32_t b = options_.background;
    const auto channel = [b](int shift) { return float(b >> shift & 255) / 255; };
    glClearColor(channel(16), channel(8), channel(0), 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    params_.lightCount = options_.lighting.isOn ? uint16_t(lights_.size()) : 0;
    params_.lights = lights_.data();
    // The stage's own lights stand in view axes, so the view goes into the content's transform, not into the block.
    if (!K8Render_render3D(render_, &params_, content_.root, &view_)) failWith("queueing the content");
    if (!K8Render_flush(render_, 0, 0, options_.width, options_.height)) failWith("drawing the content");
    return {options_.width, options_.height, surface_->readPixels()};
}

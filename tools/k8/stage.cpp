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

// From where the camera sees the sphere, with the narrower side of the picture.
double Stage::distanceForAll() const {
    const double opening = options_.view.openingDegrees * std::numbers::pi / 180;
    const double half = std::atan(std::tan(opening / 2) * std::min(1.0, double(options_.width) / options_.height));
    return bounds_.radius / std::sin(half);
}

void Stage::aim() {
    const View& view = options_.view;
    const double distance = (view.distance > 0 ? view.distance : distanceForAll()) / view.zoom;
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

// How far from the middle of the picture something is shown: 0 there, 1 at an edge.
double Stage::reachOf(const Pose& pose) {
    const Picture picture = draw(pose);
    const uint32_t b = options_.background;
    const std::array<uint8_t, 3> background = {uint8_t(b >> 16), uint8_t(b >> 8), uint8_t(b)};
    const auto fromMiddle = [](int pixel, int count) { return std::abs(2 * pixel + 1 - count) / double(count); };
    const uint8_t* pixel = picture.rgba.data();
    double reach = 0;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x, pixel += 4)
            if (!std::equal(background.begin(), background.end(), pixel))
                reach = std::max({reach, fromMiddle(x, picture.width), fromMiddle(y, picture.height)});
    return reach;
}

void Stage::setRadius(double radius) {
    bounds_.radius = radius;
    aim();
}

// Pictures tell, since nothing else knows where animations take things: first those from the greatest distance, where
// all should be in sight, then those from where that suggests. What reaches the edges from any distance, as sprites
// sized in pixels can, does not move the camera.
void Stage::showAllOf(const std::vector<Pose>& poses) {
    constexpr double kStep = 1.125;
    const auto& [x, y, z] = bounds_.center;
    const double room = kLargest - std::max({std::abs(x), std::abs(y), std::abs(z)});
    const double most = std::min(8.0, room / distanceForAll());
    if (options_.view.distance > 0 || most < 1) return;
    const double zoom = std::exchange(options_.view.zoom, 1.0), restRadius = bounds_.radius;
    const double edge = 1 - 1.0 / std::min(options_.width, options_.height);  // the middle of an outermost pixel
    setRadius(most * restRadius);
    double reach = 0;
    for (const Pose& pose : poses) reach = std::max(reach, reachOf(pose));
    setRadius(restRadius * std::max(1.0, most * reach));
    for (const Pose& pose : poses)
        while (bounds_.radius < most * restRadius && reachOf(pose) >= edge)
            setRadius(std::min(bounds_.radius * kStep, most * restRadius));
    options_.view.zoom = zoom;
    setRadius(bounds_.radius < most * restRadius ? bounds_.radius : restRadius);
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

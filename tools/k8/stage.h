// Where content is shown: a surface without a window, a camera that goes around it, lights.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "k8.h"
#include "tools/gl_surface.h"
#include "tools/k8/content.h"
#include "tools/k8/picture.h"

struct View {
    double yawDegrees = 28;                       // around the content, 0 in front of it, positive to its left
    double pitchDegrees = 14;                     // above it
    std::optional<std::array<double, 3>> target;  // the point it goes around, in units; unset: the content's middle
    double distance = 0;                          // from there, in units; 0: as far as it takes to see all at rest
    double openingDegrees = 32;
    double zoom = 1;
};

struct Lighting {
    double ambient = 0.45, direct = 0.75;  // intensities
    std::array<double, 3> direction = {-0.5, -0.7,
                                       -0.6};  // where the direct light shines, in view axes: right, up, towards us
    uint32_t color = 0xFFFFFF;
    bool isOn = true;
    bool isChosen = false;  // takes the place of lights in the content, which otherwise go first
};

struct StageOptions {
    int width = 480, height = 480;
    View view;
    Lighting lighting;
    uint32_t background = 0xDCE6F0;
};

// Of every figure, or of a scene at a time.
struct Pose {
    double milliseconds = 0;
    uint32_t action = 0;
    double frame = 0;
    std::optional<uint32_t> patterns;  // bit k shows pattern k + 1; unset: as the action says
};

// What the camera looks at.
struct Sphere {
    std::array<double, 3> center{};
    double radius = 0;
};

class Stage {
public:
    // Throws std::runtime_error where there is no OpenGL ES 1.1, or memory runs out.
    Stage(const StageOptions& options, StageContent content);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // Where the view leaves the distance open: goes further away until nothing in these poses is cut off.
    void showAllOf(const std::vector<Pose>& poses);
    Picture draw(const Pose& pose);
    const StageContent& content() const { return content_; }  // as it was drawn last

private:
    void setUpLights();
    double distanceForAll() const;
    void aim();
    double reachOf(const Pose& pose);
    void setRadius(double radius);

    StageOptions options_;
    std::unique_ptr<GlSurface> surface_;
    StageContent content_;
    K8Render* render_ = nullptr;
    std::array<K8Light*, 2> lights_{};
    Sphere bounds_{};
    K8Transform view_{};
    K8RenderParams params_{};
};

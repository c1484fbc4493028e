#pragma once

#include "scene/group.h"

struct World : Group {
    Camera* activeCamera;
    Background* background;
};

World* qelWorld_create();
void qelWorld_init(World* world);
void qelWorld_finalise(World* world);
Result qelWorld_setActiveCamera(World* world, Camera* camera);
void qelWorld_setBackground(World* world, Background* background);
Camera* qelWorld_getActiveCamera(const World* world);
Background* qelWorld_getBackground(const World* world);
Object3D* qelWorld_duplicate(const World* world);

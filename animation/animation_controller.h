// Maps world time to sequence time and weighs the tracks it controls.
#pragma once

#include "scene/object3d.h"

struct AnimationController : Object3D {
    float referenceSequenceTime;
    int32_t referenceWorldTime;
    float weight;
    float speed;
    int32_t activeStart, activeEnd;  // equal: always active
};

AnimationController* qelAnimationController_create();
Result qelAnimationController_setActiveInterval(AnimationController* controller, int32_t start, int32_t end);
// The sequence time at `worldTime` stays what it is under the old speed.
void qelAnimationController_setSpeed(AnimationController* controller, float speed, int32_t worldTime);
void qelAnimationController_setPosition(AnimationController* controller, float sequenceTime, int32_t worldTime);
Result qelAnimationController_setWeight(AnimationController* controller, float weight);
// The sequence time, exact in whole units also where a single float is not.
double qelAnimationController_getPosition(const AnimationController* controller, int32_t worldTime);
Object3D* qelAnimationController_duplicate(const AnimationController* controller);

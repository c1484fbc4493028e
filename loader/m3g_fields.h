// Values as JSR 184 files hold them, and the fields that objects of all classes, all transformables or all nodes begin
// with.
#pragma once

#include <span>

#include "loader/m3g_reader.h"

// --- Values ---

// Anything but 0 and 1 is a failure.
bool M3gReader_readBoolean(M3gReader* reader);
// Fails for a negative zero and for whatever is not normalised or not finite.
float M3gReader_readFloat(M3gReader* reader);
void M3gReader_readFloats(M3gReader* reader, std::span<float> out);
uint32_t M3gReader_readRgb(M3gReader* reader);   // 0xFFRRGGBB
uint32_t M3gReader_readRgba(M3gReader* reader);  // 0xAARRGGBB

// --- Common fields ---

struct M3gObjectFields {
    int32_t userId;
    uint32_t trackCount;
    SegmentStream tracks;  // stands at the first number
    uint32_t parameterCount;
    SegmentStream parameters;  // stands at the first parameter
};

struct M3gTransformFields : M3gObjectFields {
    bool hasComponents;
    float translation[3];
    float scale[3];
    float orientation[4];  // angle in degrees, axis
    bool hasMatrix;
    float matrix[16];
};

struct M3gNodeFields : M3gTransformFields {
    bool renderingEnabled, pickingEnabled;
    uint8_t alpha;
    int32_t scope;
    bool hasAlignment;
    int32_t zTarget, yTarget;
    uint32_t zReference, yReference;  // numbers, 0 for none
};

// Each begins with the fields of the one before it.
M3gObjectFields M3gFields_readObject(M3gReader* reader);
M3gTransformFields M3gFields_readTransform(M3gReader* reader);
M3gNodeFields M3gFields_readNode(M3gReader* reader);

// The end of every reader: gives the object the fields that it shares with others and returns it. Null, with the object
// released, when something was refused by now.
Object3D* M3gFields_complete(M3gReader* reader, const M3gObjectFields& fields, Object3D* object);
Object3D* M3gFields_complete(M3gReader* reader, const M3gTransformFields& fields, Transformable* object);
Object3D* M3gFields_complete(M3gReader* reader, const M3gNodeFields& fields, Node* object);

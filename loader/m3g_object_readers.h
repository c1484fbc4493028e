// One reader per class of JSR 184 objects. Each reads the fields of an object and returns it with one reference; null
// when the load failed, or when there was nothing left to read.
#pragma once

#include "loader/m3g_reader.h"

Object3D* M3gReader_readAnimationController(M3gReader* reader);
Object3D* M3gReader_readAnimationTrack(M3gReader* reader);
Object3D* M3gReader_readAppearance(M3gReader* reader);
Object3D* M3gReader_readBackground(M3gReader* reader);
Object3D* M3gReader_readCamera(M3gReader* reader);
Object3D* M3gReader_readCompositingMode(M3gReader* reader);
Object3D* M3gReader_readFog(M3gReader* reader);
Object3D* M3gReader_readPolygonMode(M3gReader* reader);
Object3D* M3gReader_readGroup(M3gReader* reader);
Object3D* M3gReader_readImage2D(M3gReader* reader);
Object3D* M3gReader_readTriangleStripArray(M3gReader* reader);
Object3D* M3gReader_readLight(M3gReader* reader);
Object3D* M3gReader_readMaterial(M3gReader* reader);
Object3D* M3gReader_readMesh(M3gReader* reader);
Object3D* M3gReader_readMorphingMesh(M3gReader* reader);
Object3D* M3gReader_readSkinnedMesh(M3gReader* reader);
Object3D* M3gReader_readTexture2D(M3gReader* reader);
Object3D* M3gReader_readSprite3D(M3gReader* reader);
Object3D* M3gReader_readKeyframeSequence(M3gReader* reader);
Object3D* M3gReader_readVertexArray(M3gReader* reader);
Object3D* M3gReader_readVertexBuffer(M3gReader* reader);
Object3D* M3gReader_readWorld(M3gReader* reader);

#pragma once

#include "tools/encode/byte_writer.h"
#include "tools/encode/m3g_scene.h"

namespace encode {

// Writers of scenes. They throw std::invalid_argument with a text that names the object for what the format cannot say
// and, unless the scene allows it, for what contradicts the format's own rules: see M3gScene::allowInvalid. Whether a
// class takes the value of a well-formed field, such as an angle below 180 degrees, is not looked at.
//
// Fields of the result. Sections and packages (section s):
//   magic version objectSizeLimit objectCount
//   section[s].compression .length .uncompressedLength .checksum
// Objects (i: place in M3gScene::objects; k: element of a list; e: element of a vector; c: a channel, r g b and, where
// the colour has one, a), all below object[i]:
//   all                 .type .length
//   all but 0 and 255   .userId .trackCount .track[k] .parameterCount .parameter[k].id .parameter[k].length
//   textures and nodes  .hasComponents .translation[e] .scale[e] .angle .axis[e] .hasMatrix .matrix[e]
//   nodes               .rendering .picking .alpha .scope .hasAlignment .zTarget .yTarget .zReference .yReference
//   0 Header            .versionMajor .versionMinor .hasExternalReferences .totalFileSize .approximateContentSize
//                       .terminator
//   1 AnimationController  .speed .weight .activeStart .activeEnd .referenceSequenceTime .referenceWorldTime
//   2 AnimationTrack    .sequence .controller .property
//   3 Appearance        .layer .compositingMode .fog .polygonMode .material .textureCount .texture[k]
//   4 Background        .color.c .image .modeX .modeY .cropX .cropY .cropWidth .cropHeight .depthClear .colorClear
//   5 Camera            .projection .projectionMatrix[e] | .fieldOfView .aspectRatio .near .far
//   6 CompositingMode   .depthTest .depthWrite .colorWrite .alphaWrite .blending .alphaThreshold .depthOffsetFactor
//                       .depthOffsetUnits
//   7 Fog               .color.c .mode .density | .near .far
//   8 PolygonMode       .culling .shading .winding .twoSidedLighting .localCameraLighting .perspectiveCorrection
//   9 Group             .childCount .child[k]
//  10 Image2D           .format .isMutable .width .height .paletteLength .pixelLength
//  11 TriangleStripArray  .encoding .start | .indexCount .index[k], .stripCount .strip[k]
//  12 Light             .attenuation[e] .color.c .mode .intensity .spotAngle .spotExponent
//  13 Material          .ambient.c .diffuse.c .emissive.c .specular.c .shininess .vertexColorTracking
//  14 Mesh              .vertices .submeshCount .submesh[k].strips .submesh[k].appearance
//  15 MorphingMesh      as Mesh, .targetCount .target[k].vertices .target[k].weight
//  16 SkinnedMesh       as Mesh, .skeleton .bindingCount .binding[k].bone .firstVertex .vertexCount .weight
//  17 Texture2D         .image .blendColor.c .blending .wrapS .wrapT .levelFilter .imageFilter
//  18 Sprite3D          .image .appearance .scaled .cropX .cropY .cropWidth .cropHeight
//  19 KeyframeSequence  .interpolation .repeatMode .encoding .duration .validFirst .validLast .componentCount
//                       .keyframeCount .bias[e] .scale[e] .keyframe[k].time .keyframe[k].value[e]
//  20 VertexArray       .componentSize .componentCount .encoding .vertexCount .value[k]
//  21 VertexBuffer      .defaultColor.c .positions .positionBias[e] .positionScale .normals .colors .texCoordCount
//                       .texCoord[k].array .texCoord[k].bias[e] .texCoord[k].scale
//  22 World             as Group, .activeCamera .background
// 255 ExternalReference  .terminator

// The objects alone, one behind the other; the division into sections is not looked at.
EncodedFile encodeM3gObjects(const M3gScene& scene);
// Uncompressed sections, each with the Adler-32 sum of what stands before it.
EncodedFile encodeM3gSections(const M3gScene& scene);
// A "K8" package that carries the sections.
EncodedFile encodeScenePackage(const M3gScene& scene);

}  // namespace encode

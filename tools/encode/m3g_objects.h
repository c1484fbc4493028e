// The fields of single objects: what m3g_encoder makes its files of.
#pragma once

#include <span>

#include "tools/encode/byte_writer.h"
#include "tools/encode/m3g_scene.h"

namespace encode {

// The numbers by which objects of the file refer to the entries of M3gScene::objects; 0 for entries that nothing can
// refer to.
std::vector<uint32_t> numberM3gObjects(const M3gScene& scene);

uint8_t m3gObjectType(const M3gRecord& record);

// What follows an object's type and length, its fields named as m3g_encoder.h lists them below the object. Sizes of the
// whole file that a header leaves open are 0.
EncodedFile encodeM3gObject(const M3gScene& scene, std::span<const uint32_t> numbers, size_t position);

}  // namespace encode

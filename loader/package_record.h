// The objects of a package, each a record of its own.
#pragma once

#include "loader/stream.h"

// The first type byte; the others follow in the order of what they make: primitive, light, fog, texture, figure, action
// table.
constexpr uint8_t kFirstRecordType = 0xFA;
constexpr uint32_t kRecordTypeCount = 6;

struct PackageRecord {
    MemoryStream body;  // of exactly the record's bytes
    uint32_t objectCount;
    K8Allocator* allocator;
};

// The handle of a record, the caller's. type: counted from kFirstRecordType. A figure's info comes with
// `textureIndices` in place of loadedTextures and loadedAction: the object indices of loadedTextureCount textures and
// of the action table, each below objectCount, 0 for none. Null, with everything given back, when the record is not
// accepted or memory runs out.
K8Handle* PackageRecord_load(uint32_t type, PackageRecord* record);

// About how many bytes of a loaded object need none of its record: pixels that an image is padded with, and what a
// figure holds for each polygon, submesh and appearance.
uint64_t PackageRecord_heldBytes(const K8Handle* handle);

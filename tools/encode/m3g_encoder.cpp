#include "tools/encode/m3g_encoder.h"

#include <stdexcept>

#include "tools/adler32.h"
#include "tools/encode/m3g_objects.h"

namespace encode {

static constexpr size_t kObjectOverhead = 5;    // type and length
static constexpr size_t kSectionOverhead = 13;  // compression, two lengths and the checksum
static constexpr size_t kMaxPackageObjects = 1024;
static constexpr uint32_t kObjectSizeLimit = 0x80000;

static void check(bool condition, const char* text) {
    if (!condition) throw std::invalid_argument(std::string("m3g: ") + text);
}

static size_t sizeOf(std::span<const EncodedFile> bodies) {
    size_t size = 0;
    for (const EncodedFile& body : bodies) size += kObjectOverhead + body.bytes.size();
    return size;
}

// The header tells of the whole file, so the objects have to be there before it can be completed.
static std::vector<EncodedFile> encodeBodies(const M3gScene& scene, size_t sectionCount) {
    const std::vector<uint32_t> numbers = numberM3gObjects(scene);
    std::vector<EncodedFile> bodies;
    for (size_t i = 0; i < scene.objects.size(); ++i) bodies.push_back(encodeM3gObject(scene, numbers, i));
    const size_t size = sizeOf(bodies) + sectionCount * kSectionOverhead;
    for (size_t i = 0; i < scene.objects.size(); ++i) {
        const auto* header = std::get_if<M3gHeader>(&scene.objects[i]);
        if (!header) continue;
        bodies[i].set("totalFileSize", header->totalFileSize.value_or(uint32_t(size)));
        bodies[i].set("approximateContentSize", header->approximateContentSize.value_or(uint32_t(size)));
    }
    return bodies;
}

static void putObjects(ByteWriter& writer, const M3gScene& scene, std::span<const EncodedFile> bodies, size_t first) {
    for (size_t i = 0; i < bodies.size(); ++i) {
        const std::string name = indexed("object", first + i) + ".";
        writer.putU8(name + "type", m3gObjectType(scene.objects[first + i]));
        writer.putU32(name + "length", bodies[i].bytes.size());
        writer.putFile(name, bodies[i]);
    }
}

static void putSection(ByteWriter& writer, const M3gScene& scene, std::span<const EncodedFile> bodies, size_t first,
                       const std::string& name) {
    ByteWriter section;
    section.putU8("compression", 0);
    section.putU32("length", sizeOf(bodies) + kSectionOverhead);
    section.putU32("uncompressedLength", sizeOf(bodies));
    const EncodedFile start = section.take();
    writer.putFile(name, start);

    ByteWriter objects;
    putObjects(objects, scene, bodies, first);
    const EncodedFile content = objects.take();
    writer.putFile("", content);

    std::vector<uint8_t> summed = start.bytes;
    summed.insert(summed.end(), content.bytes.begin(), content.bytes.end());
    writer.putU32(name + "checksum", adler32(summed));
}

static void putSections(ByteWriter& writer, const M3gScene& scene) {
    const std::vector<size_t> counts = scene.sections.empty() ? std::vector{scene.objects.size()} : scene.sections;
    const std::vector<EncodedFile> bodies = encodeBodies(scene, counts.size());
    size_t first = 0;
    for (size_t s = 0; s < counts.size(); ++s) {
        check(counts[s] <= bodies.size() - first, "the sections hold more objects than there are");
        putSection(writer, scene, std::span(bodies).subspan(first, counts[s]), first, indexed("section", s) + ".");
        first += counts[s];
    }
    check(first == bodies.size(), "the sections leave objects out");
}

EncodedFile encodeM3gObjects(const M3gScene& scene) {
    ByteWriter writer;
    putObjects(writer, scene, encodeBodies(scene, 0), 0);
    return writer.take();
}

EncodedFile encodeM3gSections(const M3gScene& scene) {
    ByteWriter writer;
    putSections(writer, scene);
    return writer.take();
}

EncodedFile encodeScenePackage(const M3gScene& scene) {
    size_t objectCount = 0;
    for (const uint32_t number : numberM3gObjects(scene)) objectCount += number != 0;
    check(objectCount <= kMaxPackageObjects || scene.allowInvalid, "a package holds at most 1024 objects");
    ByteWriter writer;
    writer.putU16("magic", 0x384B);
    writer.putU16("version", 0x0100);
    writer.putU32("objectSizeLimit", kObjectSizeLimit);
    writer.putU16("objectCount", objectCount);
    putSections(writer, scene);
    return writer.take();
}

}  // namespace encode

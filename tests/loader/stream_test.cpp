#include "loader/stream.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <memory>

#include "frame/allocator.h"
#include "loader/bit_reader.h"
#include "loader/loader_context.h"
#include "scene/object3d.h"
#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"

namespace {

// Both kinds of stream over an exact-size copy of the bytes: a read past the end is one past a heap block.
struct Streams {
    explicit Streams(const ByteList& content) : bytes(content, content.size()) {
        MemoryStream_init(&memory, bytes.data(), bytes.size());
        SegmentStream_init(&segment, bytes.data(), bytes.size());
    }
    std::array<LoaderStream*, 2> both() { return {&memory, &segment}; }
    HeapCopy bytes;
    MemoryStream memory;
    SegmentStream segment;
};

TEST(LoaderStream, AssemblesLittleEndianValues) {
    Streams streams({0x34, 0x12, 0x78, 0x56, 0x34, 0x92, 0xFF, 1, 2, 3, 4, 5});
    for (LoaderStream* stream : streams.both()) {
        EXPECT_EQ(readUInt16(stream), 0x1234);
        EXPECT_EQ(readUInt32(stream), 0x92345678u);
        EXPECT_EQ(readByte(stream), 0xFF);
        skipBytes(stream, 1);
        uint8_t bytes[3] = {};
        readBytes(stream, bytes, 3);
        EXPECT_EQ(std::to_array(bytes), (std::array<uint8_t, 3>{2, 3, 4}));
        EXPECT_EQ(LoaderStream_bytesLeft(stream), 1u);
        EXPECT_FALSE(hasError(stream));
    }
}

TEST(LoaderStream, ARunPastTheEndLatchesAndConsumesNothing) {
    uint8_t destination[8];
    struct Case {
        const char* what;
        uint32_t skipped;  // of 3 bytes
        std::function<uint32_t(LoaderStream*)> readTooMuch;
    };
    const Case cases[] = {{"readUInt16", 2, [](LoaderStream* s) { return readUInt16(s); }},
                          {"readUInt32", 0, [](LoaderStream* s) { return readUInt32(s); }},
                          {"readByte", 3, [](LoaderStream* s) { return readByte(s); }},
                          {"readBytes", 0, [&](LoaderStream* s) { return readBytes(s, destination, 4), 0; }},
                          {"skip", 0, [](LoaderStream* s) { return skipBytes(s, UINT32_MAX), 0; }}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Streams streams({1, 2, 3});
        for (LoaderStream* stream : streams.both()) {
            std::memset(destination, 0xEE, sizeof destination);
            skipBytes(stream, c.skipped);
            EXPECT_EQ(c.readTooMuch(stream), 0u);
            EXPECT_TRUE(hasError(stream));
            EXPECT_EQ(LoaderStream_bytesLeft(stream), 0u);
            EXPECT_EQ(readByte(stream), 0) << "the latch holds";
            readBytes(stream, destination, 1);
            EXPECT_EQ(ByteList(destination, destination + 8), ByteList(8, 0xEE)) << "the destination is untouched";
        }
        EXPECT_EQ(streams.memory.cursor, streams.segment.cursor);
        EXPECT_EQ(streams.segment.remaining, uint32_t(streams.segment.end - streams.segment.cursor));
    }
}

TEST(SegmentStream, ReadsStringsUpToTheirTerminatorOrTheEnd) {
    struct Case {
        std::string bytes, text;
        uint32_t left;
        bool error;
    };
    const std::string hundred(100, 'x');
    for (const Case& c : {Case{{"ab\0c", 4}, "ab", 1, false}, Case{{"\0c", 2}, "", 1, false}, Case{"ab", "ab", 0, true},
                          Case{"", "", 0, true}, Case{hundred + '\0', hundred, 0, false}}) {
        CountingHeap heap;
        Streams streams(ByteList(c.bytes.begin(), c.bytes.end()));
        char* text = streams.segment.functions->readString(&streams.segment);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(hasError(&streams.segment), c.error) << c.text;
        EXPECT_EQ(LoaderStream_bytesLeft(&streams.segment), c.left) << c.text;
        qelFree(text);
    }
    CountingHeap heap(0);
    Streams streams({'a', 0});
    EXPECT_EQ(streams.segment.functions->readString(&streams.segment), nullptr) << "no memory";
}

// --- Bits ---

// Values of the given widths, all bits written one by one.
ByteList packBits(const std::vector<std::pair<uint64_t, uint32_t>>& values) {
    ByteList bytes;
    uint32_t bitCount = 0;
    for (const auto& [value, width] : values)
        for (uint32_t bit = 0; bit < width; ++bit, ++bitCount) {
            if (bitCount % 8 == 0) bytes.push_back(0);
            if (bit < 64 && value >> bit & 1) bytes.back() = uint8_t(bytes.back() | 1u << bitCount % 8);
        }
    return bytes;
}

struct PackedBits {
    explicit PackedBits(const std::vector<std::pair<uint64_t, uint32_t>>& values) : bytes(packBits(values)) {
        MemoryStream_init(&stream, bytes.data(), bytes.size());
    }
    HeapCopy bytes;
    MemoryStream stream;
    BitReader reader = {&stream};
};

TEST(BitReader, ReadsEveryWidthAtEveryPhase) {
    const uint64_t value = 0xA5C3'96E1'8B7D'F00F;
    for (uint32_t phase = 0; phase < 8; ++phase)
        for (uint32_t width = 0; width <= 255; ++width) {
            PackedBits bits({{0x5A, phase}, {value, width}, {0x2D5, 10}});
            EXPECT_EQ(readBits(bits.reader, phase), 0x5Au & ((1u << phase) - 1));
            const uint64_t kept = width >= 32 ? value & 0xFFFFFFFF : value & ((1u << width) - 1);
            EXPECT_EQ(readBits(bits.reader, width), kept) << width << " bits after " << phase;
            EXPECT_EQ(readBits(bits.reader, 10), 0x2D5u) << "behind " << width << " bits after " << phase;
            EXPECT_FALSE(hasError(&bits.stream));
            EXPECT_EQ(LoaderStream_bytesLeft(&bits.stream), 0u) << "no byte is fetched before it is needed";
        }
}

TEST(BitReader, ReadsAheadOnlyWhatIsExpected) {
    PackedBits bits({{0x5, 3}, {0x123456789A, 40}, {0x3F, 5}, {0xAB, 8}});
    EXPECT_EQ(readBits(bits.reader, 3), 5u);
    expectBits(bits.reader, 45);
    EXPECT_EQ(readBits(bits.reader, 20), 0x6789Au);
    EXPECT_EQ(readBits(bits.reader, 20), 0x12345u);
    EXPECT_EQ(readBits(bits.reader, 5), 0x3Fu & 31);
    EXPECT_EQ(readByte(&bits.stream), 0xAB) << "the next section begins with the next byte";
}

TEST(BitReader, ExtendsSignsAndReadsZerosBehindTheEnd) {
    PackedBits bits({{0x40, 7}, {0x3F, 7}, {0x1000, 13}, {1, 1}, {0x80000000, 32}, {0xF, 4}});
    for (const auto& [width, value] : {std::pair{7u, -64}, {7, 63}, {13, -4096}, {1, -1}, {32, INT32_MIN}})
        EXPECT_EQ(readSignedBits(bits.reader, width), value);
    EXPECT_EQ(readBits(bits.reader, 12), 0xFu);
    EXPECT_TRUE(hasError(&bits.stream));
    EXPECT_EQ(readBits(bits.reader, 255), 0u);
}

TEST(LoaderContext, Refuses256ExternalNames) {
    CountingHeap heap;
    LoaderContext* context = LoaderContext_create();
    const auto makeName = [] { return qelAllocArrayOf<char>(2); };
    for (uint32_t i = 0; i < kMaxExternalNames; ++i) ASSERT_TRUE(LoaderContext_appendExternalName(context, makeName()));
    EXPECT_FALSE(LoaderContext_appendExternalName(context, makeName()));
    EXPECT_EQ(LoaderContext_getStatus(context), kStatusCorruptData);
    LoaderContext_destroy(context);
}

}  // namespace

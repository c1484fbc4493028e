#include "loader/stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>

#include "frame/allocator.h"
#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"

namespace {

using testing::Each;

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
        EXPECT_THAT(bytes, testing::ElementsAre(2, 3, 4));
        EXPECT_EQ(LoaderStream_bytesLeft(stream), 1u);
        EXPECT_FALSE(hasError(stream));
    }
}

TEST(LoaderStream, ARunPastTheEndLatchesAndConsumesNothing) {
    struct Case {
        const char* what;
        std::function<void(LoaderStream*)> readTooMuch;
    };
    uint8_t destination[8];
    const Case cases[] = {
        {"readUInt16",
         [](LoaderStream* s) {
             skipBytes(s, 2);
             EXPECT_EQ(readUInt16(s), 0);
         }},
        {"readUInt32", [](LoaderStream* s) { EXPECT_EQ(readUInt32(s), 0u); }},
        {"readByte",
         [](LoaderStream* s) {
             skipBytes(s, 3);
             EXPECT_EQ(readByte(s), 0);
         }},
        {"readBytes", [&](LoaderStream* s) { readBytes(s, destination, 4); }},
        {"skip of everything a count can say", [](LoaderStream* s) { skipBytes(s, UINT32_MAX); }},
    };
    for (const Case& c : cases) {
        Streams streams({1, 2, 3});
        for (LoaderStream* stream : streams.both()) {
            std::memset(destination, 0xEE, sizeof destination);
            c.readTooMuch(stream);
            EXPECT_TRUE(hasError(stream)) << c.what;
            EXPECT_EQ(LoaderStream_bytesLeft(stream), 0u) << c.what;
            EXPECT_EQ(readByte(stream), 0) << c.what << ": the latch holds";
            readBytes(stream, destination, 1);
            EXPECT_THAT(destination, Each(0xEE)) << c.what << ": the destination is untouched";
        }
        const uint8_t* start = streams.bytes.data();
        EXPECT_EQ(streams.memory.cursor - start, streams.segment.cursor - start) << c.what;
        EXPECT_EQ(streams.segment.remaining, uint32_t(streams.segment.end - streams.segment.cursor)) << c.what;
    }
}

TEST(LoaderStream, NothingCanBeReadFromNothing) {
    Streams streams({});
    for (LoaderStream* stream : streams.both()) {
        readBytes(stream, nullptr, 0);
        skipBytes(stream, 0);
        EXPECT_FALSE(hasError(stream));
        EXPECT_EQ(readByte(stream), 0);
        EXPECT_TRUE(hasError(stream));
    }
}

TEST(SegmentStream, ReadsFloatsByTheirBits) {
    Streams streams({0x00, 0x00, 0xC0, 0xBF, 0x00, 0x00});
    EXPECT_EQ(streams.segment.functions->readFloat32(&streams.segment), -1.5f);
    EXPECT_EQ(streams.segment.functions->readFloat32(&streams.segment), 0.0f);
    EXPECT_TRUE(hasError(&streams.segment));
}

TEST(SegmentStream, ReadsStringsUpToTheirTerminatorOrTheEnd) {
    struct Case {
        const char* what;
        ByteList bytes;
        const char* text;
        uint32_t left;
        bool error;
    };
    ByteList longText(100, 'x');
    longText.insert(longText.end(), {0, 7});
    const std::string hundred(100, 'x');
    const Case cases[] = {{"terminated", {'a', 'b', 0, 'c'}, "ab", 1, false},
                          {"empty", {0, 'c'}, "", 1, false},
                          {"no terminator", {'a', 'b'}, "ab", 0, true},
                          {"nothing left", {}, "", 0, true},
                          {"long", longText, hundred.c_str(), 1, false}};
    for (const Case& c : cases) {
        CountingHeap heap;
        Streams streams(c.bytes);
        SegmentStream& segment = streams.segment;
        char* text = segment.functions->readString(&segment);
        EXPECT_STREQ(text, c.text) << c.what;
        EXPECT_EQ(hasError(&segment), c.error) << c.what;
        EXPECT_EQ(LoaderStream_bytesLeft(&segment), c.left) << c.what;
        qelFree(text);
    }
    CountingHeap heap(0);
    Streams streams({'a', 0});
    EXPECT_EQ(streams.segment.functions->readString(&streams.segment), nullptr) << "no memory";
}

}  // namespace

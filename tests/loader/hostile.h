// Content made to cost more than it is worth: each kind of waste that a format invites, at the size where it hurts
// most.
#pragma once

#include <ctime>

#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"

struct HostileFile {
    const char* what;
    ByteList bytes;
    bool loads;
};

// A load holds at no moment more than 64 times the file plus what is free, and takes at most so many times as long as
// an honest file of 1 MB. Processor time, so that other programs on the machine do not count.
inline void expectProportion(const std::vector<HostileFile>& files, const ByteList& honest, double timeFactor,
                             int64_t (*freeBytes)(const ByteList&)) {
    MALK8_touchMA();
    const auto load = [](const ByteList& file) {
        return K8Loader_loadObject(int32_t(file.size()), file.data(), &MALK8_malc);
    };
    const auto secondsToLoad = [&](const ByteList& file) {
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            const std::clock_t start = std::clock();
            K8Handle* handle = load(file);
            best = std::min(best, double(std::clock() - start) / CLOCKS_PER_SEC);
            dispose(handle);
        }
        return best;
    };
    const double limit = timeFactor * secondsToLoad(honest);
    {
        CountingHeap heap;
        K8Handle* handle = load(honest);
        EXPECT_NE(handle, nullptr);
        dispose(handle);
    }
    for (const HostileFile& file : files) {
        SCOPED_TRACE(file.what);
        EXPECT_LT(file.bytes.size(), 2'000'000u);
        EXPECT_LT(secondsToLoad(file.bytes), limit);
        CountingHeap heap;
        K8Handle* handle = load(file.bytes);
        EXPECT_EQ(handle != nullptr, file.loads);
        dispose(handle);
        EXPECT_LE(heap.peakBytes(), int64_t(file.bytes.size()) * 64 + freeBytes(file.bytes));
    }
}

#include "render/render_queue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "tests/render/scene_parts.h"
#include "tests/support/counting_heap.h"

namespace {

// A queue without a scene around it. The node of an entry, never followed, says which one it is.
struct Queue {
    Held<Group> owner{qelGroup_create()};

    Result insert(Appearance* appearance, float depth, size_t name) const {
        RenderQueueEntry entry = {};
        entry.node = reinterpret_cast<Node*>(name);
        entry.appearance = appearance;
        entry.depth = depth;
        return qelRenderQueue_insert(owner, entry);
    }
    std::vector<size_t> names() const {
        std::vector<size_t> all;
        for (const RenderQueueEntry* entry : qelRenderQueue_sorted(owner))
            all.push_back(reinterpret_cast<size_t>(entry->node));
        return all;
    }
};

// --- Against an insertion written down word by word ---

struct Plain {
    const Appearance* appearance;  // null: what a sprite without one counts as
    float depth;
    size_t name;

    const Appearance* look() const {
        static const qelAppearance none = {};
        return appearance ? appearance : &none;
    }
    bool blends() const { return look()->compositingMode && look()->compositingMode->blending != Blending::Replace; }
};

enum class Relation { Same, Before, After, Equal };

Relation relationOf(const Plain& n, const Plain& e) {
    if (n.appearance && n.appearance == e.appearance) return Relation::Same;
    if (n.look()->layer < e.look()->layer) return Relation::Before;
    if (n.look()->layer > e.look()->layer) return Relation::After;
    if (!n.blends()) {
        if (!e.look()->compositingMode || e.blends()) return Relation::Equal;
        return Relation::Before;
    }
    if (!e.blends()) return Relation::After;
    if (e.depth < n.depth) return Relation::Before;
    if (e.depth > n.depth) return Relation::After;
    return Relation::Equal;
}

bool share(const Plain& n, const Plain& e) {
    const Appearance *a = n.look(), *b = e.look();
    return a->compositingMode == b->compositingMode || a->fog == b->fog || a->polygonMode == b->polygonMode ||
           a->material == b->material;
}

size_t plainPlace(const std::vector<Plain>& queue, const Plain& n) {
    std::vector<size_t> run;  // of results Equal
    for (size_t e = 0; e < queue.size(); ++e) {
        const Relation relation = relationOf(n, queue[e]);
        if (relation == Relation::Same) {
            size_t place = e;
            while (n.blends() && place < queue.size() && queue[place].appearance == n.appearance &&
                   !(queue[place].depth < n.depth))
                ++place;
            return place;
        }
        if (relation == Relation::Equal) run.push_back(e);
        if (relation == Relation::Before && run.empty()) return e;
        if (relation != Relation::Equal && !run.empty()) break;
    }
    if (run.empty()) return queue.size();
    // An opaque entry stays in front of what blends, also where sharing would take it further.
    size_t firstBlended = run.back() + 1;
    for (size_t i = run.size(); i-- > 0;)
        if (!n.blends() && queue[run[i]].blends()) firstBlended = run[i];
    for (const size_t e : run)
        if (share(queue[e], n)) return std::min(e, firstBlended);
    return firstBlended;
}

// What a queue is filled with.
struct Mixture {
    const char* what;
    size_t entries, appearances, layers;
    size_t components;                // of each kind to choose from; one of them is none, where several are
    std::array<size_t, 3> modeShare;  // none, REPLACE, blended
    std::vector<float> depths;        // empty: any
    size_t sprites;                   // one in so many entries has no appearance; 0 for none
};

constexpr std::array<size_t, 3> kAnyMode = {1, 1, 1}, kNoMode = {1, 0, 0}, kReplaces = {0, 1, 0}, kBlends = {0, 0, 1};

class RandomQueue {
public:
    RandomQueue(const Mixture& mixture, uint32_t seed) : mixture_(mixture), random_(seed) {
        const size_t n = mixture.components;
        std::vector<Held<CompositingMode>> modes[3];  // as in modeShare
        std::vector<Held<Fog>> fogs(n);
        std::vector<Held<PolygonMode>> polygonModes(n);
        std::vector<Held<Material>> materials(n);
        modes[0].resize(n);
        for (size_t i = 0; i < n; ++i) {
            for (const Blending blending : {Blending::Replace, Blending::Alpha}) {
                auto& mode = modes[blending == Blending::Replace ? 1 : 2].emplace_back(qelCompositingMode_create());
                qelCompositingMode_setBlending(mode, int32_t(blending));
            }
            if (i == 0 && n > 1) continue;
            fogs[i] = Held<Fog>(qelFog_create());
            polygonModes[i] = Held<PolygonMode>(qelPolygonMode_create());
            materials[i] = Held<Material>(qelMaterial_create());
        }
        std::discrete_distribution<size_t> share(mixture.modeShare.begin(), mixture.modeShare.end());
        for (size_t i = 0; i < mixture.appearances; ++i) {
            Appearance* appearance = appearances_.emplace_back(qelAppearance_create());
            qelAppearance_setCompositingMode(appearance, modes[share(random_)][random_() % n]);
            qelAppearance_setFog(appearance, fogs[random_() % n]);
            qelAppearance_setPolygonMode(appearance, polygonModes[random_() % n]);
            qelAppearance_setMaterial(appearance, materials[random_() % n]);
            qelAppearance_setLayer(appearance, int32_t(random_() % mixture.layers) - int32_t(mixture.layers / 2));
        }
    }

    // What the library and the plain scan make of the same entries. An insertion that fails is repeated.
    void fill(const Queue& queue) {
        for (size_t name = 1; name <= mixture_.entries; ++name) {
            const Plain entry = {pickAppearance(), pickDepth(), name};
            plain_.insert(plain_.begin() + ptrdiff_t(plainPlace(plain_, entry)), entry);
            auto* appearance = const_cast<Appearance*>(entry.appearance);
            Result result = queue.insert(appearance, entry.depth, name);
            if (result == QEL_STATUS_OUT_OF_MEMORY) result = queue.insert(appearance, entry.depth, name);
            ASSERT_EQ(result, QEL_STATUS_OK);
        }
        std::vector<size_t> expected;
        for (const Plain& entry : plain_) expected.push_back(entry.name);
        ASSERT_EQ(queue.names(), expected);
        for (size_t i = 1; i < plain_.size(); ++i) {
            const int32_t layer = plain_[i].look()->layer, before = plain_[i - 1].look()->layer;
            ASSERT_TRUE(before < layer || (before == layer && plain_[i - 1].blends() <= plain_[i].blends()))
                << "an opaque entry behind a blended one";
        }
    }

private:
    const Appearance* pickAppearance() {
        if (mixture_.sprites && random_() % mixture_.sprites == 0) return nullptr;
        return appearances_[random_() % appearances_.size()];
    }
    float pickDepth() {
        if (mixture_.depths.empty()) return std::uniform_real_distribution<float>(-100, 100)(random_);
        return mixture_.depths[random_() % mixture_.depths.size()];
    }

    const Mixture& mixture_;
    std::mt19937 random_;
    std::vector<Held<Appearance>> appearances_;
    std::vector<Plain> plain_;
};

TEST(RenderQueue, InsertsLikeThePlainScan) {
    const float nan = NAN, infinite = INFINITY;
    const std::vector<float> few = {-1, -0.0f, 0, 1, 2}, odd = {nan, infinite, -infinite, 0, 1, 2}, rarelyNan = [&] {
        std::vector<float> depths(40, nan);
        for (size_t i = 1; i < depths.size(); ++i) depths[i] = float(i % 4);
        return depths;
    }();
    const Queue queue;  // one for all: nothing of an earlier filling may show
    const auto run = [&](const Mixture& mixture, uint32_t rounds) {
        for (uint32_t round = 0; round < rounds; ++round) {
            SCOPED_TRACE(std::string(mixture.what) + ", round " + std::to_string(round));
            ASSERT_NO_FATAL_FAILURE(RandomQueue(mixture, round).fill(queue));
            qelRenderQueue_clear(queue.owner);
        }
    };
    for (const Mixture& small : {Mixture{"a bit of everything", 16, 8, 3, 4, kAnyMode, few, 9},
                                 Mixture{"blended, equal depths", 24, 12, 1, 6, kBlends, few, 0},
                                 Mixture{"blended, nothing shared", 24, 18, 1, 60, kBlends, {1, 2}, 0},
                                 Mixture{"depths that are no numbers", 24, 8, 1, 5, kBlends, odd, 0},
                                 Mixture{"a depth that is no number", 40, 8, 1, 9, kBlends, rarelyNan, 0},
                                 Mixture{"opaque, much shared", 24, 10, 1, 3, {1, 1, 0}, few, 5}})
        run(small, 700);
    for (const Mixture& large : {
             Mixture{"an appearance each, no mode", 3000, 4000, 1, 50, kNoMode, {}, 0},
             Mixture{"an appearance each, REPLACE", 3000, 4000, 1, 50, kReplaces, {}, 0},
             Mixture{"an appearance each, blended", 3000, 4000, 1, 50, kBlends, {}, 0},
             Mixture{"blended, equal depths, little shared", 3000, 2000, 1, 900, kBlends, few, 0},
             Mixture{"all layers", 3000, 500, 127, 20, kAnyMode, {}, 50},
             Mixture{"opaque, little shared", 3000, 1000, 1, 900, {20, 1, 0}, {}, 50},
             Mixture{"a depth that is no number", 2000, 300, 1, 400, kBlends, rarelyNan, 0},
         })
        run(large, 2);
}

TEST(RenderQueue, IsAsItWasWhenItCannotGrow) {
    CountingHeap heap;
    const Mixture mixture = {"", 300, 200, 3, 50, kAnyMode, {}, 9};
    int32_t failAt = 0;
    do {
        RandomQueue random(mixture, 1);
        const Queue queue;
        heap.failAfter(failAt++);
        ASSERT_NO_FATAL_FAILURE(random.fill(queue)) << "allocation " << failAt;
    } while (heap.hasFailed());
    EXPECT_GT(failAt, 4) << "the entries and the index each grew more than once";
}

}  // namespace

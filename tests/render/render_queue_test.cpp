#include "render/render_queue.h"

#include <gtest/gtest.h>

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
        for (int32_t i = 0; i < owner->queueCount; ++i)
            all.push_back(reinterpret_cast<size_t>(owner->queueEntries[i].node));
        return all;
    }
};

constexpr Blending kReplace = Blending::Replace, kAlpha = Blending::Alpha, kModulate = Blending::Modulate;

TEST(RenderQueue, OrdersByLayerOpacityAndDepth) {
    struct Entry {
        char name;
        int32_t layer;
        Blending blending;
        float depth;
    };
    struct Case {
        const char* what;
        std::vector<Entry> queued;
        std::string order;
    };
    for (const Case& c : {
             Case{"lower layers first",
                  {{'a', 1, kReplace, 0}, {'b', -63, kAlpha, 0}, {'c', 63, kReplace, 0}, {'d', 0, kAlpha, 9}},
                  "bdac"},
             Case{"larger depth first", {{'a', 0, kAlpha, 1}, {'b', 0, kAlpha, 3}, {'c', 0, kAlpha, 2}}, "bca"},
             Case{"opaque before blended",
                  {{'a', 0, kAlpha, 5}, {'b', 0, kReplace, 1}, {'c', 0, kAlpha, 9}, {'d', 0, kReplace, 0}},
                  "dbca"},
             Case{"whatever is not REPLACE blends", {{'a', 0, kModulate, 5}, {'b', 0, kReplace, 1}}, "ba"},
             Case{"a blended layer below an opaque one", {{'a', 1, kReplace, 0}, {'b', 0, kAlpha, 0}}, "ba"},
         }) {
        const Queue queue;
        std::vector<Held<Appearance>> appearances;
        for (const Entry& entry : c.queued) {
            const Held<CompositingMode> mode(qelCompositingMode_create());
            qelCompositingMode_setBlending(mode, int32_t(entry.blending));
            Appearance* appearance = appearances.emplace_back(qelAppearance_create());
            qelAppearance_setCompositingMode(appearance, mode);
            qelAppearance_setLayer(appearance, entry.layer);
            queue.insert(appearance, entry.depth, size_t(entry.name));
        }
        std::string order;
        for (const size_t name : queue.names()) order += char(name);
        EXPECT_EQ(order, c.order) << c.what;
    }
}

// --- Against an insertion written down word by word ---

struct Plain {
    const Appearance* appearance;
    float depth;
    size_t name;

    bool blends() const {
        return appearance->compositingMode && appearance->compositingMode->blending != Blending::Replace;
    }
};

enum class Relation { Same, Before, After, Equal };

Relation relationOf(const Plain& n, const Plain& e) {
    if (n.appearance == e.appearance) return Relation::Same;
    if (n.appearance->layer < e.appearance->layer) return Relation::Before;
    if (n.appearance->layer > e.appearance->layer) return Relation::After;
    if (!n.blends()) {
        if (!e.appearance->compositingMode || e.blends()) return Relation::Equal;
        return Relation::Before;
    }
    if (!e.blends()) return Relation::After;
    if (e.depth < n.depth) return Relation::Before;
    if (e.depth > n.depth) return Relation::After;
    return Relation::Equal;
}

bool share(const Plain& a, const Plain& b) {
    return a.appearance->compositingMode == b.appearance->compositingMode || a.appearance->fog == b.appearance->fog ||
           a.appearance->polygonMode == b.appearance->polygonMode || a.appearance->material == b.appearance->material;
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

// Appearances that share components in every combination, some of them absent.
std::vector<Held<Appearance>> randomAppearances(std::mt19937& random, size_t count) {
    const auto pick = [&random](auto&... choices) {
        const std::array all = {choices.get()...};
        return all[random() % all.size()];
    };
    Held<CompositingMode> none, opaque(qelCompositingMode_create()), otherOpaque(qelCompositingMode_create()),
        blended(qelCompositingMode_create()), otherBlended(qelCompositingMode_create());
    qelCompositingMode_setBlending(blended, int32_t(Blending::Alpha));
    qelCompositingMode_setBlending(otherBlended, int32_t(Blending::AddWeighted));
    Held<Fog> noFog, fog(qelFog_create()), otherFog(qelFog_create()), thirdFog(qelFog_create());
    Held<PolygonMode> noMode, mode(qelPolygonMode_create()), otherMode(qelPolygonMode_create()),
        thirdMode(qelPolygonMode_create());
    Held<Material> noMaterial, material(qelMaterial_create()), otherMaterial(qelMaterial_create()),
        thirdMaterial(qelMaterial_create());
    std::vector<Held<Appearance>> appearances;
    for (size_t i = 0; i < count; ++i) {
        Appearance* appearance = appearances.emplace_back(qelAppearance_create());
        qelAppearance_setCompositingMode(appearance, pick(none, opaque, otherOpaque, blended, otherBlended));
        qelAppearance_setFog(appearance, pick(noFog, fog, otherFog, thirdFog));
        qelAppearance_setPolygonMode(appearance, pick(noMode, mode, otherMode, thirdMode));
        qelAppearance_setMaterial(appearance, pick(noMaterial, material, otherMaterial, thirdMaterial));
        qelAppearance_setLayer(appearance, int32_t(random() % 3) - 1);
    }
    return appearances;
}

TEST(RenderQueue, InsertsLikeThePlainScan) {
    std::mt19937 random(5);
    for (int round = 0; round < 1500; ++round) {
        const Queue queue;
        const auto appearances = randomAppearances(random, 8);
        std::vector<Plain> plain;
        for (size_t name = 1; name <= 16; ++name) {
            const Plain entry = {appearances[random() % appearances.size()], float(random() % 4), name};
            plain.insert(plain.begin() + ptrdiff_t(plainPlace(plain, entry)), entry);
            queue.insert(const_cast<Appearance*>(entry.appearance), entry.depth, name);
        }
        std::vector<size_t> expected;
        for (const Plain& entry : plain) expected.push_back(entry.name);
        ASSERT_EQ(queue.names(), expected) << "round " << round;
        for (size_t i = 1; i < plain.size(); ++i) {
            const int32_t layer = plain[i].appearance->layer, before = plain[i - 1].appearance->layer;
            ASSERT_TRUE(before < layer || (before == layer && plain[i - 1].blends() <= plain[i].blends()))
                << "round " << round << ": an opaque entry behind a blended one";
        }
    }
}

TEST(RenderQueue, GrowsKeepsItsRoomAndSurvivesExhaustion) {
    CountingHeap heap;
    {
        const Queue queue;
        const Held<Appearance> appearance(qelAppearance_create());
        std::vector<size_t> all;
        for (size_t name = 100; name-- > 0;) {
            ASSERT_EQ(queue.insert(appearance, 0, name), QEL_STATUS_OK);
            all.insert(all.begin(), name);  // opaque entries of one appearance go in front
        }
        EXPECT_EQ(queue.names(), all);

        queue.owner->queueCount = 0;
        heap.failAfter(0, FailMode::FromThenOn);
        Result result = QEL_STATUS_OK;
        size_t count = 0;
        while (result == QEL_STATUS_OK) result = queue.insert(appearance, 0, count++);
        EXPECT_GT(count, 100u) << "the room for a hundred is still there";
        EXPECT_EQ(result, QEL_STATUS_OUT_OF_MEMORY);
        EXPECT_EQ(queue.names().size(), count - 1);
        EXPECT_EQ(queue.names().back(), 0u);
    }
}

}  // namespace

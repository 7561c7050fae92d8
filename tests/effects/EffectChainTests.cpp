#include "effects/EffectChain.h"
#include "effects/EffectInsert.h"

#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

using namespace sonvale;
using namespace sonvale::test;

namespace {

// Counts a signal's emissions.
struct Counter {
    int count = 0;
    void operator()() { ++count; }
};

// A processor that multiplies by a constant and counts resets.
class Scale final : public EffectProcessor {
public:
    explicit Scale(float factor)
        : factor(factor) {}
    void process(float* const* channels, int64_t frames) noexcept override {
        for (int64_t i = 0; i < frames; ++i)
            channels[0][i] *= factor;
    }
    void reset() noexcept override { ++resets; }
    float factor;
    int resets = 0;
};

} // namespace

TEST(EffectSession, StartsAtDefaultsAndWritesGivenValuesIntoItsBank) {
    auto session = EffectSession::make(EffectKind::limiter);
    EXPECT_TRUE(session->isAtDefaults());
    EXPECT_EQ(session->values(), (std::vector<double>{6, -1, 100}));
    auto given = EffectSession::make(EffectKind::limiter, std::vector<double>{4, -2, 150});
    EXPECT_EQ(given->bank()->value(1), -2);
    EXPECT_FALSE(given->isAtDefaults());
    auto wrongLength = EffectSession::make(EffectKind::limiter, std::vector<double>{1});
    EXPECT_TRUE(wrongLength->isAtDefaults());
    EXPECT_NE(session->id(), given->id());
}

TEST(EffectSession, SignalsOnlyRealChangesAndWritesThroughToTheLiveBank) {
    auto session = EffectSession::make(EffectKind::compressor);
    Counter values, bypass;
    session->valuesChanged.connect(std::ref(values));
    session->bypassChanged.connect(std::ref(bypass));
    session->setValue(0, -18); // unchanged
    session->setValues(session->values());
    session->setBypassed(false);
    EXPECT_EQ(values.count, 0);
    EXPECT_EQ(bypass.count, 0);
    session->setValue(0, -30);
    session->setBypassed(true);
    EXPECT_EQ(values.count, 1);
    EXPECT_EQ(bypass.count, 1);
    EXPECT_EQ(session->bank()->value(0), -30);
    EXPECT_TRUE(session->bypassFlag()->value());
    session->resetToDefaults();
    EXPECT_EQ(values.count, 2);
    EXPECT_EQ(session->bank()->value(0), -18);
}

TEST(EffectSession, SnapshotIsAnIndependentBankOfTheCurrentValues) {
    auto session = EffectSession::make(EffectKind::limiter);
    session->setValue(0, 10);
    auto snapshot = session->snapshot();
    session->setValue(0, 2);
    EXPECT_EQ(snapshot->value(0), 10);
    EXPECT_EQ(session->bank()->value(0), 2);
    EXPECT_NE(snapshot, session->bank());
    EXPECT_NE(EffectSession::make(EffectKind::spectrumAnalyzer)->snapshot()->tap(), nullptr);
}

TEST(EffectChain, AppendsRemovesAndMovesWithOneSignalPerRealChange) {
    EffectChain chain;
    Counter changed, selection;
    chain.effectsChanged.connect(std::ref(changed));
    chain.selectionChanged.connect(std::ref(selection));
    auto a = EffectSession::make(EffectKind::equalizer);
    auto b = EffectSession::make(EffectKind::compressor);
    auto c = EffectSession::make(EffectKind::limiter);
    chain.append(a), chain.append(b), chain.append(c);
    chain.append(a); // already there
    EXPECT_EQ(changed.count, 3);
    chain.move(c->id(), 0);
    EXPECT_EQ(chain.effects(), (std::vector{c, a, b}));
    chain.moveBy(c->id(), 5);
    EXPECT_EQ(chain.effects(), (std::vector{a, b, c}));
    chain.moveBy(a->id(), -1); // already first
    EXPECT_EQ(changed.count, 5);
    chain.select(b->id());
    chain.select(b->id());
    EXPECT_EQ(chain.selected(), b);
    EXPECT_EQ(selection.count, 1);
    chain.remove(b->id());
    EXPECT_EQ(chain.selectedID(), std::nullopt);
    EXPECT_EQ(selection.count, 2);
    chain.remove(b->id());
    EXPECT_EQ(changed.count, 6);
    chain.select(Uuid::random()); // not in the chain: nothing to select
    EXPECT_EQ(selection.count, 2);
}

TEST(EffectChain, BypassAndApplyingSignalOnlyOnChange) {
    EffectChain chain;
    Counter bypass, applying;
    chain.bypassChanged.connect(std::ref(bypass));
    chain.applyingChanged.connect(std::ref(applying));
    chain.setBypassed(false), chain.setApplying(false);
    chain.setBypassed(true), chain.setBypassed(true), chain.setApplying(true);
    EXPECT_EQ(bypass.count, 1);
    EXPECT_EQ(applying.count, 1);
    EXPECT_TRUE(chain.isBypassed());
}

TEST(EffectChain, PreviewFollowsKnobsAndBypassWithoutRebuilding) {
    EffectChain chain;
    auto limiter = EffectSession::make(EffectKind::limiter, std::vector<double>{0, -6, 100});
    chain.append(limiter);
    auto preview = chain.previewProcessor(48000, 1);
    ASSERT_EQ(preview->stages.size(), 1u);
    EXPECT_EQ(limiter->preview(), (EffectSession::Preview{48000, 1}));

    Channels loud{constant(256, 1.0f)};
    runInBlocks(*preview, loud, 256);
    EXPECT_NEAR(loud[0][255], std::pow(10.0, -6.0 / 20), 1e-4);

    limiter->setBypassed(true);
    Channels passed{constant(256, 1.0f)};
    runInBlocks(*preview, passed, 256);
    EXPECT_EQ(passed[0][255], 1.0f);
}

TEST(EffectChain, RenderProcessorUsesActiveEffectsOnSnapshotsAndSumsTheirTails) {
    EffectChain chain;
    auto eq = EffectSession::make(EffectKind::equalizer);
    eq->setValue(0, 0); // band 1 Low Cut
    eq->setValue(1, 80);
    auto delay = EffectSession::make(EffectKind::delay);
    auto bypassed = EffectSession::make(EffectKind::reverb);
    bypassed->setBypassed(true);
    chain.append(eq), chain.append(delay), chain.append(bypassed);
    EXPECT_EQ(chain.activeEffects(), (std::vector{eq, delay}));

    auto render = chain.renderProcessor(44100, 2);
    ASSERT_EQ(render.processor->stages.size(), 2u);
    EXPECT_EQ(render.processor->stages[0].bypass, nullptr);
    EXPECT_NEAR(render.tailSeconds,
                tailSeconds(EffectKind::equalizer, *eq->bank()) +
                    tailSeconds(EffectKind::delay, *delay->bank()),
                1e-12);
    eq->setValue(1, 20); // the render does not follow later knob moves
    EXPECT_NE(render.tailSeconds, chain.renderProcessor(44100, 2).tailSeconds);
}

TEST(ChainProcessor, RunsStagesInOrderSkippingBypassedAndEmptyOnes) {
    auto flag = std::make_shared<BypassFlag>();
    std::vector<ChainProcessor::Stage> stages;
    stages.push_back({std::make_unique<Scale>(2.0f), nullptr});
    stages.push_back({nullptr, nullptr});
    stages.push_back({std::make_unique<Scale>(3.0f), flag});
    ChainProcessor chain(std::move(stages));
    Channels one{constant(4, 1.0f)};
    runInBlocks(chain, one, 4);
    EXPECT_EQ(one[0][3], 6.0f);
    flag->store(true);
    Channels two{constant(4, 1.0f)};
    runInBlocks(chain, two, 4);
    EXPECT_EQ(two[0][3], 2.0f);
    chain.reset();
    EXPECT_EQ(static_cast<Scale&>(*chain.stages[2].processor).resets, 1);
}

TEST(EffectInsert, BypassedOrEmptyInsertLeavesTheAudioUntouched) {
    EffectInsert insert;
    auto left = constant(8, 0.5f), right = constant(8, 0.25f);
    insert.process(left.data(), right.data(), 8);
    EXPECT_EQ(left[7], 0.5f);
    EXPECT_EQ(insert.setProcessor(std::make_unique<Scale>(2.0f), 2), nullptr);
    EXPECT_TRUE(insert.hasProcessor());
    insert.setBypassed(true);
    insert.process(left.data(), right.data(), 8);
    EXPECT_EQ(left[7], 0.5f);
    insert.setBypassed(false);
    insert.process(left.data(), right.data(), 8);
    EXPECT_EQ(left[7], 1.0f);
}

TEST(EffectInsert, HandsBackTheReplacedProcessorAndSkipsTooFewBuffers) {
    EffectInsert insert;
    insert.setProcessor(std::make_unique<Scale>(2.0f), 2);
    auto old = insert.setProcessor(std::make_unique<Scale>(4.0f), 2);
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(static_cast<Scale&>(*old).factor, 2.0f);
    auto mono = constant(8, 1.0f);
    float* buffers[1] = {mono.data()};
    insert.process(buffers, 1, 8); // built for two channels: passes through
    EXPECT_EQ(mono[0], 1.0f);
    insert.setProcessor(nullptr, 0);
    EXPECT_FALSE(insert.hasProcessor());
}

namespace {

// Holds the insert's lock from inside process() until released.
class Holding final : public EffectProcessor {
public:
    void process(float* const* channels, int64_t frames) noexcept override {
        entered = true;
        while (!released)
            std::this_thread::yield();
        for (int64_t i = 0; i < frames; ++i)
            channels[0][i] = 0;
    }
    void reset() noexcept override {}
    std::atomic<bool> entered{false}, released{false};
};

} // namespace

TEST(EffectInsert, BlockArrivingWhileTheSlotIsBusyPassesThroughUnprocessed) {
    EffectInsert insert;
    auto holding = std::make_unique<Holding>();
    auto& hold = *holding;
    insert.setProcessor(std::move(holding), 1);
    auto first = constant(4, 1.0f);
    std::thread other([&] { insert.process(first.data(), nullptr, 4); });
    while (!hold.entered)
        std::this_thread::yield();
    auto second = constant(4, 1.0f);
    insert.process(second.data(), nullptr, 4);
    EXPECT_EQ(second[0], 1.0f);
    hold.released = true;
    other.join();
    EXPECT_EQ(first[0], 0.0f);
}

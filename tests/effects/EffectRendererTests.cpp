#include "effects/EffectChain.h"
#include "effects/EffectRenderer.h"

#include "support/AudioFiles.h"
#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <gtest/gtest.h>

using namespace sonvale;
using namespace sonvale::test;

namespace {

// Records the size of every block it is given and counts the frames.
class BlockRecorder final : public EffectProcessor {
public:
    void process(float* const* channels, int64_t frames) noexcept override {
        blocks.push_back(frames);
        for (int64_t i = 0; i < frames; ++i)
            channels[1][i] += 1; // mark the second channel
    }
    void reset() noexcept override {}
    std::vector<int64_t> blocks;
};

} // namespace

TEST(EffectRenderer, RendersTheRangeAndTheTailInBlocksOfAtMost4096Frames) {
    auto audio = makeAudio(48000, {noise(20000, 1), noise(20000, 2)});
    BlockRecorder recorder;
    auto clip = EffectRenderer::render(*audio, {1000, 10000}, 500, recorder);
    ASSERT_EQ(clip.channels.size(), 2u);
    EXPECT_EQ(clip.length(), 9500);
    EXPECT_EQ(clip.sampleRate, 48000);
    EXPECT_EQ(recorder.blocks, (std::vector<int64_t>{4096, 4096, 1308}));
    EXPECT_EQ(clip.channels[0][0], audio->samples(0)[1000]);
    EXPECT_EQ(clip.channels[0][8999], audio->samples(0)[9999]);
    EXPECT_EQ(clip.channels[0][9000], 0.0f); // the tail is fed with silence
    EXPECT_EQ(clip.channels[1][9499], 1.0f);
    EXPECT_EQ(clip.channels[1][0], audio->samples(1)[1000] + 1);
}

TEST(EffectRenderer, ClampsTheRangeToTheAudio) {
    auto audio = makeAudio(44100, {noise(5000, 3), noise(5000, 4)});
    BlockRecorder recorder;
    auto clip = EffectRenderer::render(*audio, {4000, 90000}, 0, recorder);
    EXPECT_EQ(clip.length(), 1000);
    EXPECT_EQ(EffectRenderer::render(*audio, {-5, 10}, 0, recorder).length(), 10);
}

TEST(EffectRenderer, TailFramesTruncateTowardsZero) {
    EXPECT_EQ(EffectRenderer::tailFrames(0.0195, 48000), 936);
    EXPECT_EQ(EffectRenderer::tailFrames(0.5, 44100), 22050);
    EXPECT_EQ(EffectRenderer::tailFrames(23.15, 44100), 1020914); // 1020914.99... in doubles
    EXPECT_EQ(EffectRenderer::tailFrames(-1, 48000), 0);
    EXPECT_EQ(EffectRenderer::tailFrames(0, 48000), 0);
}

TEST(EffectRenderer, ChainRenderEqualsTheChainRunOverTheWholeSignalAtOnce) {
    double rate = 44100;
    EffectChain chain;
    auto eq = EffectSession::make(EffectKind::equalizer);
    eq->setValues(presets(EffectKind::equalizer)[0].valuesFor(parameters(EffectKind::equalizer)));
    chain.append(eq);
    chain.append(EffectSession::make(EffectKind::compressor));
    auto source = Channels{noise(30000, 5, 0.8), noise(30000, 6, 0.8)};
    auto audio = makeAudio(rate, source);

    auto render = chain.renderProcessor(rate, 2);
    auto tail = EffectRenderer::tailFrames(render.tailSeconds, rate);
    EXPECT_GT(tail, 0); // the low cut rings
    auto clip = EffectRenderer::render(*audio, {0, audio->frameCount}, tail, *render.processor);

    Channels expected{source[0], source[1]};
    for (auto& channel : expected)
        channel.resize(channel.size() + size_t(tail), 0.0f);
    auto fresh = chain.renderProcessor(rate, 2);
    runInBlocks(*fresh.processor, expected, int64_t(expected[0].size()));
    EXPECT_EQ(clip.channels, expected);
}

TEST(EffectRenderer, EqualizerTailLetsTheRingingDecayBySixtyDecibels) {
    double rate = 48000;
    EffectChain chain;
    auto eq = EffectSession::make(EffectKind::equalizer);
    eq->setValue(0, 0); // band 1 Low Cut at 50 Hz
    eq->setValue(1, 50);
    chain.append(eq);
    auto audio = makeAudio(rate, {impulse(100, 99)});
    auto render = chain.renderProcessor(rate, 1);
    auto tail = EffectRenderer::tailFrames(render.tailSeconds, rate);
    auto clip = EffectRenderer::render(*audio, {0, 100}, tail, *render.processor);
    ASSERT_EQ(clip.length(), 100 + tail);
    float early = peak(clip.channels[0].data() + 100, 200);
    float late = peak(clip.channels[0].data() + clip.length() - 200, 200);
    EXPECT_LT(toDB(late / early), -50);
}

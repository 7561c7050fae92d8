// The audio-thread paths: no allocation, any block split gives the same output, reset()
// is a fresh start, and knobs, bypass and processor swaps are safe while audio runs.

#include "effects/ChainProcessor.h"
#include "effects/EffectChain.h"
#include "effects/EffectInsert.h"
#include "support/AllocationCounter.h"
#include "support/ProcessorRun.h"
#include "support/Signals.h"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

using namespace sonvale;
using namespace sonvale::test;

namespace {

const double rates[] = {44100, 48000, 96000};
const int64_t blockSizes[] = {1, 7, 64, 512, 4096};

// Sessions of every processor with settings that keep all their paths busy.
std::vector<std::shared_ptr<EffectSession>> busySessions() {
    std::vector<std::shared_ptr<EffectSession>> sessions;
    auto eq = EffectSession::make(EffectKind::equalizer);
    eq->setValues(presets(EffectKind::equalizer)[0].valuesFor(parameters(EffectKind::equalizer)));
    eq->setValue(20, -3);
    sessions.push_back(eq);
    sessions.push_back(
        EffectSession::make(EffectKind::compressor, std::vector<double>{-30, 4, 1, 50, 6, 6}));
    sessions.push_back(EffectSession::make(EffectKind::limiter, std::vector<double>{18, -3, 20}));
    sessions.push_back(
        EffectSession::make(EffectKind::noiseGate, std::vector<double>{-20, -60, 0.5, 10, 20}));
    auto add = [&](EffectKind kind, std::vector<double> values) {
        sessions.push_back(EffectSession::make(kind, std::move(values)));
    };
    add(EffectKind::saturation, {18, 60, 4000, 80, -6});
    add(EffectKind::distortion, {2, 24, 3000, 100, -12});
    add(EffectKind::chorus, {2, 8, 30, 100, 60});
    add(EffectKind::flanger, {0.8, 90, 5, -70, 50});
    add(EffectKind::phaser, {1.5, 90, 3, 60, 80});
    add(EffectKind::delay, {120, 80, 3000, 70, 1});
    add(EffectKind::reverb, {90, 40, 40, 70, 50});
    add(EffectKind::pitchShifter, {7, 20, 40, 100});
    sessions.push_back(EffectSession::make(EffectKind::spectrumAnalyzer));
    return sessions;
}

// Noise with loud and quiet stretches, so that dynamics open, close, attack and release.
Channels program(int64_t frames, int channels) {
    Channels out;
    for (int c = 0; c < channels; ++c) {
        auto n = noise(frames, uint32_t(17 + c));
        for (int64_t i = 0; i < frames; ++i)
            n[size_t(i)] *= (i / 3000) % 3 == 0 ? 0.9f : (i / 3000) % 3 == 1 ? 0.01f : 0.2f;
        out.push_back(std::move(n));
    }
    return out;
}

std::unique_ptr<EffectProcessor> build(const std::shared_ptr<EffectSession>& session, double rate,
                                       int channels) {
    return makeProcessor(session->kind(), rate, channels, session->bank());
}

} // namespace

TEST(RealTime, MonoAndManyChannelsNeitherAllocateNorDependOnTheBlockSplit) {
    // One channel, an odd count (channels run in pairs, the last alone) and 5.1.
    for (auto& session : busySessions())
        for (int channels : {1, 3, 6}) {
            auto reference = program(12000, channels);
            runInBlocks(*build(session, 48000, channels), reference, 12000);
            for (int64_t block : {int64_t(7), int64_t(512)}) {
                auto processor = build(session, 48000, channels);
                auto audio = program(12000, channels);
                std::vector<float*> pointers(static_cast<size_t>(channels), nullptr);
                AllocationCounter::Scope scope;
                for (int64_t at = 0; at < 12000; at += block) {
                    for (int c = 0; c < channels; ++c)
                        pointers[size_t(c)] = audio[size_t(c)].data() + at;
                    processor->process(pointers.data(), std::min(block, 12000 - at));
                }
                EXPECT_EQ(scope.allocations(), 0) << rawValue(session->kind()) << ", " << channels;
                EXPECT_EQ(audio, reference) << rawValue(session->kind()) << ", " << channels
                                            << " channels in blocks of " << block;
            }
        }
}

TEST(RealTime, ChainAndInsertNeverAllocate) {
    EffectChain chain;
    for (auto& session : busySessions())
        chain.append(session);
    chain.effects()[1]->setBypassed(true);
    EffectInsert insert;
    insert.setProcessor(chain.previewProcessor(48000, 2), 2);
    auto audio = program(8192, 2);
    AllocationCounter::Scope scope;
    for (int64_t at = 0; at < 8192; at += 512)
        insert.process(&audio[0][at], &audio[1][at], 512);
    insert.setBypassed(true);
    insert.process(audio[0].data(), audio[1].data(), 512);
    EXPECT_EQ(scope.allocations(), 0);
}

TEST(RealTime, AllocationCounterSeesAllocations) {
    int64_t allocations = 0, frees = 0;
    {
        AllocationCounter::Scope scope;
        void* volatile plain = ::operator new(24);
        void* volatile aligned = ::operator new[](64, std::align_val_t(64));
        void* volatile quiet = ::operator new(8, std::nothrow);
        ::operator delete(plain);
        ::operator delete[](aligned, std::align_val_t(64));
        ::operator delete(quiet, std::nothrow);
        allocations = scope.allocations();
        frees = scope.frees();
    }
    EXPECT_EQ(allocations, 3);
    EXPECT_EQ(frees, 3);
}

TEST(RealTime, ProcessorsNeitherAllocateNorDependOnTheBlockSplitAtAnyRate) {
    for (auto& session : busySessions())
        for (double rate : rates) {
            auto reference = program(20000, 2);
            runInBlocks(*build(session, rate, 2), reference, 20000);
            for (int64_t block : blockSizes) {
                auto processor = build(session, rate, 2);
                auto audio = program(20000, 2);
                int64_t allocations = 0, frees = 0;
                {
                    AllocationCounter::Scope scope;
                    for (int64_t at = 0; at < 20000; at += block) {
                        float* pointers[2] = {audio[0].data() + at, audio[1].data() + at};
                        processor->process(pointers, std::min(block, 20000 - at));
                    }
                    processor->reset();
                    allocations = scope.allocations();
                    frees = scope.frees();
                }
                const auto where = std::string(rawValue(session->kind())) + " at " +
                                   std::to_string(int(rate)) + " Hz, blocks of " +
                                   std::to_string(block);
                EXPECT_EQ(allocations, 0) << where;
                EXPECT_EQ(frees, 0) << where;
                EXPECT_EQ(audio, reference) << where;
            }
            auto random = program(20000, 2);
            runInRandomBlocks(*build(session, rate, 2), random, 99);
            EXPECT_EQ(random, reference) << rawValue(session->kind()) << " in random blocks";
        }
}

TEST(RealTime, ResetReproducesAFreshProcessor) {
    for (auto& session : busySessions())
        for (double rate : rates) {
            auto used = build(session, rate, 2);
            auto first = program(9000, 2);
            runInBlocks(*used, first, 512);
            used->reset();
            auto again = program(9000, 2);
            runInBlocks(*used, again, 512);
            auto fresh = program(9000, 2);
            runInBlocks(*build(session, rate, 2), fresh, 512);
            EXPECT_EQ(again, fresh) << rawValue(session->kind()) << " at " << rate;
        }
}

TEST(RealTime, KnobsBypassAndSwapsWhileAudioRunsStaySafe) {
    EffectChain chain;
    for (auto& session : busySessions())
        chain.append(session);
    EffectInsert insert;
    insert.setProcessor(chain.previewProcessor(48000, 2), 2);

    std::atomic<bool> done{false};
    std::atomic<int64_t> blocks{0}, allocations{0};
    std::atomic<bool> finite{true};
    std::thread audio([&] {
        auto signal = program(512, 2);
        std::vector<float> left(512), right(512);
        AllocationCounter::Scope scope;
        while (!done.load()) {
            std::copy(signal[0].begin(), signal[0].end(), left.begin());
            std::copy(signal[1].begin(), signal[1].end(), right.begin());
            insert.process(left.data(), right.data(), 512);
            for (size_t i = 0; i < 512; ++i)
                if (!std::isfinite(left[i]) || !std::isfinite(right[i])) finite = false;
            blocks.fetch_add(1);
        }
        allocations = scope.allocations();
    });

    for (int round = 0; round < 300; ++round) {
        auto& session = chain.effects()[size_t(round) % chain.effects().size()];
        auto& list = parameters(session->kind());
        auto& p = list[size_t(round) % list.size()];
        session->setValue(p.index, p.value(double(round % 11) / 10));
        session->setBypassed(round % 3 == 0);
        insert.setBypassed(round % 7 == 0);
        if (round % 10 == 0) insert.setProcessor(chain.previewProcessor(48000, 2), 2);
        (void)session->bank()->readout(256);
        std::this_thread::yield();
    }
    int64_t seen = blocks.load();
    while (blocks.load() < seen + 10)
        std::this_thread::yield(); // audio kept running
    done = true;
    audio.join();
    EXPECT_TRUE(finite.load());
    EXPECT_EQ(allocations.load(), 0);
}

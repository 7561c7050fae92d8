#include "editor/EditorModel.h"

#include "base/ManualExecutor.h"
#include "effects/EffectRenderer.h"
#include "persistence/Preferences.h"
#include "support/ModelTestAudio.h"
#include "support/ModelTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace sonvale;
using namespace sonvale::test;

namespace {

constexpr double rate = 48000;

struct EffectsEditor {
    explicit EffectsEditor(std::optional<std::filesystem::path> store = std::nullopt)
        : preferences(store ? std::make_unique<Preferences>(*store)
                            : std::make_unique<Preferences>())
        , model(std::make_unique<EditorModel>(executor, *preferences)) {}

    ManualExecutor executor;
    std::unique_ptr<Preferences> preferences;
    std::unique_ptr<EditorModel> model;

    AudioTrackPtr add(AudioDataPtr audio, const std::string& name = "take") {
        auto track = AudioTrack::create("/music/" + name + ".wav");
        track->finishLoading(std::move(audio));
        model->addTrack(track);
        model->setSelectedTrackIDs({track->id()});
        executor.drain(); // the loudness measurement every new audio gets
        return track;
    }

    EffectSessionPtr add(EffectKind kind) {
        model->addEffect(kind);
        return model->effectChain() ? model->effectChain()->effects().back() : nullptr;
    }
};

const std::vector<double>& defaults(EffectKind kind) {
    static std::map<EffectKind, std::vector<double>> cache;
    auto& values = cache[kind];
    if (values.empty())
        for (const auto& p : parameters(kind))
            values.push_back(p.defaultValue);
    return values;
}

} // namespace

// ---- the chain ---------------------------------------------------------------------------------

TEST(EditorEffects, AddingAnEffectOpensTheChainAndSelectsTheNewEffect) {
    EffectsEditor e;
    e.add(makeNoise(rate, 2, 1000));
    int opened = 0;
    e.model->effectChainChanged.connect([&] { ++opened; });

    auto compressor = e.add(EffectKind::compressor);
    auto reverb = e.add(EffectKind::reverb);
    ASSERT_TRUE(e.model->effectChain());
    EXPECT_EQ(opened, 1); // the second effect joins the open chain
    ASSERT_EQ(e.model->effectChain()->effects().size(), 2u);
    EXPECT_EQ(e.model->effectChain()->effects()[0], compressor);
    EXPECT_EQ(e.model->effectChain()->selectedID(), reverb->id());
    EXPECT_EQ(compressor->values(), defaults(EffectKind::compressor)); // nothing remembered yet
}

TEST(EditorEffects, NothingIsAddedWithoutAnActiveTrackWithAudio) {
    EffectsEditor e;
    EXPECT_FALSE(e.model->canAddEffect());
    e.model->addEffect(EffectKind::delay);
    EXPECT_FALSE(e.model->effectChain());

    auto loading = AudioTrack::create("/music/loading.wav");
    e.model->addTrack(loading);
    e.model->setSelectedTrackIDs({loading->id()});
    e.model->addEffect(EffectKind::delay);
    EXPECT_FALSE(e.model->effectChain());
}

TEST(EditorEffects, RemovingAnEffectTakesItsPanelSelectionAlong) {
    EffectsEditor e;
    e.add(makeNoise(rate, 1, 1000));
    auto first = e.add(EffectKind::equalizer);
    auto second = e.add(EffectKind::limiter);
    e.model->removeEffect(second->id());
    ASSERT_TRUE(e.model->effectChain());
    ASSERT_EQ(e.model->effectChain()->effects().size(), 1u);
    EXPECT_EQ(e.model->effectChain()->effects()[0], first);
    EXPECT_FALSE(e.model->effectChain()->selectedID());
    e.model->removeEffect(Uuid::random()); // unknown: ignored
    EXPECT_EQ(e.model->effectChain()->effects().size(), 1u);
}

TEST(EditorEffects, PreviewIsBuiltForTheActiveTrackAndTakenOutOnClose) {
    EffectsEditor e;
    e.add(makeNoise(44100, 2, 1000));
    auto session = e.add(EffectKind::compressor);
    const auto& insert = e.model->effectPreviewInsert();
    EXPECT_TRUE(insert->hasProcessor());
    EXPECT_EQ(session->preview(), (EffectSession::Preview{44100, 2}));

    // Switching to a mono track at another rate rebuilds it for that format.
    e.add(makeNoise(22050, 1, 1000), "mono");
    EXPECT_EQ(session->preview(), (EffectSession::Preview{22050, 1}));

    e.model->setEffectsBypassed(true);
    EXPECT_TRUE(e.model->effectChain()->isBypassed());
    EXPECT_TRUE(insert->isBypassed());

    e.model->closeEffects();
    EXPECT_FALSE(e.model->effectChain());
    EXPECT_FALSE(insert->hasProcessor());
    EXPECT_FALSE(insert->isBypassed());
    e.model->setEffectsBypassed(true); // no chain: nothing to bypass
    EXPECT_FALSE(insert->isBypassed());
}

TEST(EditorEffects, ConnectedPlaybackGetsAFactoryOnMembershipChangesOnly) {
    EffectsEditor e;
    e.add(makeNoise(rate, 1, 1000));
    std::vector<EditorModel::EffectFactory> installed;
    std::vector<bool> bypassed;
    e.model->setEffectPreviewHooks({[&](EditorModel::EffectFactory f) { installed.push_back(f); },
                                    [&](bool flag) { bypassed.push_back(flag); }});
    ASSERT_EQ(installed.size(), 1u);
    EXPECT_FALSE(installed.back()); // no chain yet: no preview

    auto eq = e.add(EffectKind::equalizer);
    auto gate = e.add(EffectKind::noiseGate);
    ASSERT_EQ(installed.size(), 3u);
    ASSERT_TRUE(installed.back());
    // The engine builds for its own output format, not the track's.
    EXPECT_TRUE(installed.back()(44100, 2));
    EXPECT_EQ(eq->preview(), (EffectSession::Preview{44100, 2}));
    EXPECT_EQ(gate->preview(), (EffectSession::Preview{44100, 2}));
    EXPECT_FALSE(e.model->effectPreviewInsert()->hasProcessor());

    // Knobs and bypass switches reach the running preview without a rebuild.
    eq->setValue(2, 6);
    gate->setBypassed(true);
    e.model->effectChain()->select(eq->id());
    EXPECT_EQ(installed.size(), 3u);

    e.model->effectChain()->move(gate->id(), 0);
    EXPECT_EQ(installed.size(), 4u);

    e.model->setEffectsBypassed(true);
    e.model->closeEffects();
    ASSERT_EQ(installed.size(), 5u);
    EXPECT_FALSE(installed.back());
    EXPECT_EQ(bypassed, (std::vector<bool>{false, true, false}));
}

// ---- apply --------------------------------------------------------------------------------------

TEST(EditorEffects, ApplyingOneEffectIsOneUndoStepNamedAfterIt) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 2, 20000));
    const auto original = samplesOf(*track->audio());
    e.add(EffectKind::compressor);
    int applyingChanges = 0;
    e.model->effectChain()->applyingChanged.connect([&] { ++applyingChanges; });

    e.model->applyEffects();
    ASSERT_TRUE(e.model->effectChain());
    EXPECT_TRUE(e.model->effectChain()->isApplying());
    EXPECT_EQ(e.model->effectsApplyProgress(), 0.0);
    EXPECT_EQ(track->undoStack().undoCount(), 0u); // nothing changes before the render is back

    e.model->applyEffects(); // already applying: ignored
    EXPECT_EQ(e.executor.pendingBackground(), 1u);
    e.model->closeEffects(); // and the chain can't be closed under the render
    EXPECT_TRUE(e.model->effectChain());

    e.executor.drain();
    EXPECT_EQ(applyingChanges, 2);
    EXPECT_FALSE(e.model->effectsApplyProgress());
    EXPECT_EQ(track->undoStack().undoCount(), 1u);
    EXPECT_EQ(track->undoStack().undoActionName(), "Compressor");
    EXPECT_EQ(track->frameCount(), 20000); // no tail
    EXPECT_NE(samplesOf(*track->audio()), original);
    EXPECT_FALSE(e.model->effectChain()); // applied effects close
    EXPECT_FALSE(e.model->alert());

    e.model->undo();
    EXPECT_EQ(samplesOf(*track->audio()), original);
}

// One step named after the one effect applied, "Effects" for several; bypassed effects are
// left out, and nothing to apply (or a track being recorded) starts no render.
TEST(EditorEffects, AnApplyIsNamedAfterTheEffectsNotBypassed) {
    const struct {
        std::vector<std::pair<EffectKind, bool>> effects; // kind, bypassed
        bool recording;
        std::optional<std::string> step;
    } cases[] = {
        {{{EffectKind::compressor, false}, {EffectKind::limiter, false}}, false, "Effects"},
        {{{EffectKind::equalizer, false}, {EffectKind::limiter, true}}, false, "Parametric EQ"},
        {{{EffectKind::compressor, true}}, false, std::nullopt},
        {{{EffectKind::compressor, false}}, true, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.step.value_or("(nothing)"));
        EffectsEditor e;
        auto track = e.add(makeNoise(rate, 1, 5000));
        for (const auto& [kind, bypassed] : c.effects) {
            auto session = e.add(kind);
            session->setBypassed(bypassed);
            if (kind == EffectKind::equalizer) session->setValue(2, 12); // band 1 gain
        }
        track->setIsRecording(c.recording);
        e.model->applyEffects();
        EXPECT_EQ(e.executor.pendingBackground(), c.step ? 1u : 0u);
        EXPECT_EQ(e.model->effectChain()->isApplying(), c.step.has_value());
        e.executor.drain();
        EXPECT_EQ(track->undoStack().undoCount(), c.step ? 1u : 0u);
        EXPECT_EQ(track->undoStack().undoActionName(), c.step.value_or(""));
    }
}

TEST(EditorEffects, ApplyingToASelectionLeavesTheRestAndSelectsTheResult) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 2, 30000));
    const auto original = samplesOf(*track->audio());
    track->setSelection(FrameRange{10000, 20000});
    e.add(EffectKind::compressor);
    e.model->applyEffects();
    e.executor.drain();

    const auto after = samplesOf(*track->audio());
    ASSERT_EQ(track->frameCount(), 30000);
    for (size_t c = 0; c < 2; ++c) {
        EXPECT_TRUE(std::equal(after[c].begin(), after[c].begin() + 10000, original[c].begin()));
        EXPECT_TRUE(
            std::equal(after[c].begin() + 20000, after[c].end(), original[c].begin() + 20000));
        EXPECT_FALSE(std::equal(after[c].begin() + 10000, after[c].begin() + 20000,
                                original[c].begin() + 10000));
    }
    EXPECT_EQ(track->selection(), (FrameRange{10000, 20000}));
}

TEST(EditorEffects, TheTailLengthensTheWholeTrackWhenNothingIsSelected) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 2, 12000));
    const auto original = samplesOf(*track->audio());
    auto delay = e.add(EffectKind::delay);
    const int64_t tail =
        EffectRenderer::tailFrames(tailSeconds(EffectKind::delay, *delay->snapshot()), rate);
    ASSERT_GT(tail, 0);

    e.model->applyEffects();
    e.executor.drain();
    EXPECT_EQ(track->frameCount(), 12000 + tail);
    EXPECT_EQ(track->undoStack().undoActionName(), "Delay");
    EXPECT_FALSE(track->selection());

    e.model->undo();
    EXPECT_EQ(samplesOf(*track->audio()), original);
}

TEST(EditorEffects, TheTailOfASelectionIsInsertedBeforeTheRest) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 1, 40000));
    track->setSelection(FrameRange{1000, 2000});
    auto reverb = e.add(EffectKind::reverb);
    const int64_t tail =
        EffectRenderer::tailFrames(tailSeconds(EffectKind::reverb, *reverb->snapshot()), rate);
    ASSERT_GT(tail, 0);
    e.model->applyEffects();
    e.executor.drain();
    EXPECT_EQ(track->frameCount(), 40000 + tail);
    EXPECT_EQ(track->selection(), (FrameRange{1000, 2000 + tail}));
}

TEST(EditorEffects, ProgressIsReportedWhileTheRenderRuns) {
    EffectsEditor e;
    e.add(makeNoise(rate, 1, 100000));
    e.add(EffectKind::compressor);
    std::vector<double> seen;
    e.model->effectsApplyProgressChanged.connect(
        [&] { seen.push_back(e.model->effectsApplyProgress().value_or(-1)); });
    e.model->applyEffects();
    e.executor.runBackground();
    e.executor.runMain();
    ASSERT_GE(seen.size(), 3u);
    EXPECT_EQ(seen.front(), 0.0);
    EXPECT_EQ(seen.back(), -1); // cleared at the end
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end() - 1));
    EXPECT_EQ(seen[seen.size() - 2], 1.0);
}

TEST(EditorEffects, ARenderOfAudioEditedMeanwhileIsDropped) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 1, 20000));
    e.add(EffectKind::compressor);
    e.model->applyEffects();
    track->setSelection(FrameRange{0, 5000});
    e.model->deleteSelection();
    const auto edited = samplesOf(*track->audio());

    e.executor.drain();
    EXPECT_EQ(samplesOf(*track->audio()), edited);
    EXPECT_EQ(track->undoStack().undoCount(), 1u);
    EXPECT_EQ(track->undoStack().undoActionName(), "Delete");
    ASSERT_TRUE(e.model->effectChain()); // kept, to apply again
    EXPECT_FALSE(e.model->effectChain()->isApplying());
    EXPECT_FALSE(e.model->effectsApplyProgress());
    EXPECT_FALSE(e.preferences->effectValues("compressor"));
}

TEST(EditorEffects, ARenderForARemovedTrackOrModelIsDropped) {
    EffectsEditor e;
    auto track = e.add(makeNoise(rate, 1, 20000));
    e.add(EffectKind::compressor);
    e.model->applyEffects();
    e.model->removeTracks({track->id()});
    track.reset();
    e.executor.drain();
    EXPECT_FALSE(e.model->effectChain()->isApplying());

    e.add(makeNoise(rate, 1, 20000));
    e.model->applyEffects();
    e.model.reset();
    EXPECT_GT(e.executor.drain(), 0);
}

// ---- remembered values -------------------------------------------------------------------------

TEST(EditorEffects, AppliedValuesAreRememberedAndSeedTheNextEffectOfTheKind) {
    TempFolder folder;
    const auto store = folder / "preferences.json";
    std::vector<double> chosen = defaults(EffectKind::compressor);
    chosen[0] = -30;
    chosen[1] = 8;
    {
        EffectsEditor e(store);
        e.add(makeNoise(rate, 1, 5000));
        e.add(EffectKind::compressor)->setValues(chosen);
        e.add(EffectKind::limiter)->setBypassed(true);
        e.model->applyEffects();
        e.executor.drain();
        EXPECT_EQ(e.preferences->effectValues("compressor"), chosen);
        EXPECT_FALSE(e.preferences->effectValues("limiter")); // bypassed: not applied
    }
    EffectsEditor next(store); // read back from the file
    next.add(makeNoise(rate, 1, 5000));
    EXPECT_EQ(next.add(EffectKind::compressor)->values(), chosen);
    EXPECT_EQ(next.add(EffectKind::limiter)->values(), defaults(EffectKind::limiter));
}

// Values set and closed without applying are not remembered, nor a list of the wrong length.
TEST(EditorEffects, OnlyAppliedValuesOfTheRightLengthSeedANewEffect) {
    EffectsEditor e;
    e.add(makeNoise(rate, 1, 5000));
    auto gate = e.add(EffectKind::noiseGate);
    gate->setValue(0, -20);
    e.model->closeEffects();
    EXPECT_FALSE(e.preferences->effectValues("noiseGate"));
    EXPECT_EQ(e.add(EffectKind::noiseGate)->values(), defaults(EffectKind::noiseGate));
    e.preferences->rememberEffectValues("limiter", {1, 2});
    EXPECT_EQ(e.add(EffectKind::limiter)->values(), defaults(EffectKind::limiter));
}

#include "editor/EditorModel.h"

#include "base/Executor.h"
#include "effects/EffectRenderer.h"
#include "persistence/Preferences.h"

#include <utility>

namespace sonvale {

// What an apply needs once its render is back on the main thread. The track is held weakly:
// a track removed while its effects render is simply not edited.
struct EditorModel::EffectApply {
    struct Applied {
        EffectKind kind;
        std::vector<double> values;
    };

    EffectChainPtr chain;
    std::weak_ptr<AudioTrack> track;
    AudioDataPtr source; // the audio the render read; another one means the track was edited
    FrameRange range;
    bool hadSelection = false;
    std::string actionName;
    std::vector<Applied> applied; // the values that went into the render, in chain order
};

// ---- the chain -------------------------------------------------------------------------------

void EditorModel::setEffectChain(EffectChainPtr chain) {
    if (chain == effects) return;
    chainEffectsConnection.disconnect();
    trackSwitchConnection.disconnect();
    effects = std::move(chain);
    // A mixer channel's chain is played by the timeline's own insert, never by the preview.
    if (effects && !mixerChannel) {
        // Membership and order changes need a new preview; knob and bypass changes reach the
        // running one through the banks and flags.
        chainEffectsConnection =
            effects->effectsChanged.connect([weak = std::weak_ptr<EditorModel*>(self)] {
                if (auto model = weak.lock()) (*model)->rebuildEffectPreview();
            });
        // Another active track may have another rate or channel count. Playback builds its
        // preview for what it plays (also when it carries on on the newly selected track); the
        // model's own stand-in follows the active track.
        trackSwitchConnection = selectionChanged.connect([this] {
            if (!previewHooks.install) rebuildEffectPreview();
        });
    }
    effectChainChanged.emit();
}

void EditorModel::editMixerEffects(const MixerChannel& channel) {
    if (mixerChannel == channel || (effects && effects->isApplying())) return;
    if (!channel.isMaster() && !timelineModel->bus(channel.bus)) return;
    if (!mixerChannel) editorEffects = effects;
    mixerChannel = channel;
    setEffectChain(timelineModel->chain(channel));
}

void EditorModel::checkMixerEffects() {
    if (!mixerChannel) return;
    const bool gone = !mixerChannel->isMaster() && !timelineModel->bus(mixerChannel->bus);
    if (gone || timelineModel->existingChain(*mixerChannel) != effects) closeEffects();
}

std::string EditorModel::effectsTitle() const {
    if (!mixerChannel) return "Effects";
    if (mixerChannel->isMaster()) return "Effects: Master";
    const TimelineBus* bus = timelineModel->bus(mixerChannel->bus);
    return "Effects: " + (bus ? bus->name : std::string());
}

bool EditorModel::canAddEffect() const {
    if (mixerChannel) return true;
    const auto track = activeTrack();
    return track && track->audio() && !(effects && effects->isApplying());
}

void EditorModel::addEffect(EffectKind kind) {
    if (!canAddEffect()) return;
    if (!effects) setEffectChain(std::make_shared<EffectChain>());
    auto session = EffectSession::make(kind, prefs.effectValues(std::string(rawValue(kind))));
    const Uuid id = session->id();
    effects->append(std::move(session));
    effects->select(id);
}

void EditorModel::removeEffect(const Uuid& id) {
    if (effects) effects->remove(id);
}

void EditorModel::closeEffects() {
    if (!effects || effects->isApplying()) return;
    if (mixerChannel) {
        mixerChannel.reset();
        setEffectChain(std::exchange(editorEffects, nullptr));
        // The active track may have changed meanwhile.
        if (effects) rebuildEffectPreview();
        return;
    }
    setEffectChain(nullptr);
    installEffectPreview({});
    if (previewHooks.setBypassed)
        previewHooks.setBypassed(false);
    else
        previewInsert->setBypassed(false);
}

void EditorModel::setEffectsBypassed(bool flag) {
    if (!effects) return;
    effects->setBypassed(flag);
    if (mixerChannel) return; // the timeline takes the insert out by itself
    if (previewHooks.setBypassed)
        previewHooks.setBypassed(flag);
    else
        previewInsert->setBypassed(flag);
}

// ---- live preview ----------------------------------------------------------------------------

void EditorModel::setEffectPreviewHooks(EffectPreviewHooks hooks) {
    // The model's own insert stands in only while nobody plays the preview.
    auto old = previewInsert->setProcessor(nullptr, 0);
    previewInsert->setBypassed(false);
    previewHooks = std::move(hooks);
    rebuildEffectPreview();
    const EffectChainPtr& editor = mixerChannel ? editorEffects : effects;
    if (previewHooks.setBypassed) previewHooks.setBypassed(editor && editor->isBypassed());
}

void EditorModel::rebuildEffectPreview() {
    const EffectChainPtr& editor = mixerChannel ? editorEffects : effects;
    if (!editor) return installEffectPreview({});
    installEffectPreview(
        [weak = std::weak_ptr<EffectChain>(editor)](
            double sampleRate, int channelCount) -> std::unique_ptr<EffectProcessor> {
            if (auto chain = weak.lock()) return chain->previewProcessor(sampleRate, channelCount);
            return nullptr;
        });
}

void EditorModel::installEffectPreview(EffectFactory factory) {
    if (previewHooks.install) return previewHooks.install(std::move(factory));
    std::unique_ptr<EffectProcessor> processor;
    int channelCount = 0;
    const auto track = activeTrack();
    if (factory && track && track->audio()) {
        channelCount = track->audio()->channelCount();
        processor = factory(track->sampleRate(), channelCount);
    }
    // The processor taken out is freed here, on the main thread, never on the audio thread.
    auto old = previewInsert->setProcessor(std::move(processor), channelCount);
}

// ---- apply -----------------------------------------------------------------------------------

void EditorModel::setEffectsApplyProgress(std::optional<double> value) {
    if (value == applyProgress) return;
    applyProgress = value;
    effectsApplyProgressChanged.emit();
}

void EditorModel::applyEffects() {
    if (!effects || mixerChannel || effects->isApplying()) return;
    const auto active = effects->activeEffects();
    const auto track = activeTrack();
    if (active.empty() || !track || !track->audio() || track->isRecording()) return;

    auto job = std::make_shared<EffectApply>();
    job->chain = effects;
    job->track = track;
    job->source = track->audio();
    job->hadSelection = track->selection().has_value();
    job->range = track->selection().value_or(FrameRange{0, track->frameCount()});
    job->actionName = active.size() == 1 ? std::string(title(active.front()->kind())) : "Effects";
    for (const auto& session : active)
        job->applied.push_back({session->kind(), session->values()});

    auto render = effects->renderProcessor(job->source->sampleRate, job->source->channelCount());
    const int64_t tail = EffectRenderer::tailFrames(render.tailSeconds, job->source->sampleRate);
    std::shared_ptr<EffectProcessor> processor = std::move(render.processor);

    effects->setApplying(true);
    setEffectsApplyProgress(0.0);
    Executor& executor = exec;
    exec.runInBackground(
        [&executor, weak = std::weak_ptr<EditorModel*>(self), job, processor, tail] {
            auto toMain = [&executor, weak](std::function<void(EditorModel&)> work) {
                executor.post([weak, work = std::move(work)] {
                    if (auto model = weak.lock()) work(**model);
                });
            };
            try {
                auto clip = std::make_shared<AudioClip>(EffectRenderer::render(
                    *job->source, job->range, tail, *processor, [&](double fraction) {
                        toMain([fraction](EditorModel& m) {
                            if (m.applyProgress) m.setEffectsApplyProgress(fraction);
                        });
                    }));
                toMain([job, clip](EditorModel& m) {
                    m.finishApplyingEffects(*job, std::move(*clip));
                });
            } catch (const std::exception& error) {
                toMain([job, message = userMessage(error)](EditorModel& m) {
                    job->chain->setApplying(false);
                    m.setEffectsApplyProgress(std::nullopt);
                    m.showAlert({job->actionName + " failed", message});
                });
            }
        });
}

void EditorModel::finishApplyingEffects(const EffectApply& job, AudioClip rendered) {
    job.chain->setApplying(false);
    setEffectsApplyProgress(std::nullopt);
    // Audio edited, replaced or recorded into while the render ran would be overwritten with
    // a render of audio that is no longer there: the result is dropped and the chain stays.
    const auto track = job.track.lock();
    if (!track || track->audio() != job.source || track->isRecording()) return;

    std::optional<FrameRange> selectingAfter;
    if (job.hadSelection)
        selectingAfter = FrameRange{job.range.lower, job.range.lower + rendered.length()};
    const bool done = attemptEdit(job.actionName, [&] {
        track->replace(job.range, rendered, selectingAfter, job.actionName);
    });
    if (!done) return;

    for (const auto& effect : job.applied)
        prefs.rememberEffectValues(std::string(rawValue(effect.kind)), effect.values);
    if (effects == job.chain) closeEffects();
}

} // namespace sonvale

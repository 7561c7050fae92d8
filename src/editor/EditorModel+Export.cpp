#include "editor/EditorModel.h"

#include "audio/Decibels.h"
#include "base/Executor.h"

#include <cmath>

namespace sonvale {

namespace fs = std::filesystem;

namespace {
float linearGain(float dB) { return float(gainFromDecibels(dB)); }
} // namespace

void EditorModel::setExportProgress(std::optional<double> value) {
    if (value == progress) return;
    progress = value;
    exportProgressChanged.emit();
}

bool EditorModel::canExport() const {
    const auto track = activeTrack();
    return track && track->audio() && !track->isRecording() && !progress;
}

bool EditorModel::canExportRegions() const {
    if (!canExport()) return false;
    for (const auto& marker : activeTrack()->markers())
        if (marker.isRegion()) return true;
    return false;
}

std::string EditorModel::proposedExportFileName(ExportFormat format) const {
    const auto track = activeTrack();
    if (!track) return {};
    return track->name() + (track->selection() ? " (selection)" : " (edited)") + "." +
           std::string(fileExtension(format));
}

std::unique_ptr<ExportOptions> EditorModel::makeExportOptions(ExportFormat format) const {
    const auto track = activeTrack();
    return std::make_unique<ExportOptions>(format, track && track->selection(),
                                           track ? track->gainDB() : 0.0f);
}

void EditorModel::exportActiveTrack(const fs::path& url, ExportFormat format, bool selectionOnly) {
    if (!canExport()) return;
    const auto track = activeTrack();
    const FrameRange whole{0, track->frameCount()};
    const FrameRange range = selectionOnly && track->selection() ? *track->selection() : whole;
    std::function<void()> onSuccess;
    if (range == whole) {
        // Edits made while the file is written still count as not exported.
        onSuccess = [weak = std::weak_ptr<AudioTrack>(track), revision = track->editRevision()] {
            if (auto t = weak.lock()) t->setExportedRevision(revision);
        };
    }
    exportJobs(track->audio(), {{range, url}}, linearGain(track->gainDB()), format,
               std::move(onSuccess));
}

std::string EditorModel::exportRegionsMessage() const {
    const auto track = activeTrack();
    const size_t count = track ? track->regions().size() : 0;
    return "Choose a folder for " + std::to_string(count) + " region files.";
}

void EditorModel::exportRegions(const fs::path& folder, ExportFormat format) {
    if (!canExportRegions()) return;
    const auto track = activeTrack();
    exportJobs(track->audio(), regionExportJobs(track->name(), track->regions(), format, folder),
               linearGain(track->gainDB()), format);
}

void EditorModel::exportJobs(AudioDataPtr audio, std::vector<ExportJob> jobs, float gain,
                             ExportFormat format, std::function<void()> onSuccess) {
    if (progress || !audio || jobs.empty()) return;
    setExportProgress(0.0);
    Executor& executor = exec;
    exec.runInBackground([&executor, weak = std::weak_ptr<EditorModel*>(self),
                          audio = std::move(audio), jobs = std::move(jobs), gain, format,
                          onSuccess = std::move(onSuccess)] {
        auto toMain = [&executor, weak](std::function<void(EditorModel&)> work) {
            executor.post([weak, work = std::move(work)] {
                if (auto model = weak.lock()) work(**model);
            });
        };
        try {
            double reported = 0;
            const double count = double(jobs.size());
            for (size_t i = 0; i < jobs.size(); ++i) {
                AudioExporter::exportAudio(
                    *audio, jobs[i].range, gain, format, jobs[i].url, [&](double fraction) {
                        const double overall = (double(i) + fraction) / count;
                        if (overall - reported < 0.01) return; // 1 % steps
                        reported = overall;
                        toMain([overall](EditorModel& m) {
                            if (m.progress) m.setExportProgress(overall);
                        });
                    });
            }
            const fs::path written = jobs.size() == 1 ? jobs[0].url : jobs[0].url.parent_path();
            toMain([onSuccess, written, count = jobs.size()](EditorModel& m) {
                m.setExportProgress(std::nullopt);
                if (onSuccess) onSuccess();
                m.exportFinished.emit(written, count);
            });
        } catch (const std::exception& error) {
            toMain([message = userMessage(error)](EditorModel& m) {
                m.setExportProgress(std::nullopt);
                m.showAlert({"Export failed", message});
            });
        }
    });
}

} // namespace sonvale

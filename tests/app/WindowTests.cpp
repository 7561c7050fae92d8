#include "app/AboutDialog.h"
#include "app/DurationText.h"
#include "app/LevelMeterWidget.h"
#include "app/MainWindow.h"
#include "app/QtExecutor.h"
#include "app/SettingsDialog.h"
#include "app/canvas/WaveformCanvas.h"
#include "app/effects/EffectsPanel.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"

#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QtTest>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>

using namespace sonvale;
using ID = ActionID;

namespace {

QString fixturePath(const char* name) { return QString(SONVALE_FIXTURE_DIR) + "/" + name; }

// A window over a model with preferences that live only in memory.
struct Harness {
    QtExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    MainWindow window{model};

    ~Harness() { executor.waitForBackground(); }

    bool enabled(ActionID id) const { return window.action(id)->isEnabled(); }
    // The action's object name, for failure messages.
    QString name(ActionID id) const { return window.action(id)->objectName(); }

    // Opens a fixture through the model and waits until its audio is there.
    AudioTrackPtr openAndLoad(const char* name) {
        auto opened = model.open({fixturePath(name).toStdString()});
        if (opened.size() != 1) return nullptr;
        auto track = opened.front();
        if (!QTest::qWaitFor([&] { return track->isReady(); }, 10000)) return nullptr;
        return track;
    }

    void showActive() {
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));
    }
};

template <typename Widget> Widget* child(QObject* parent, const char* name) {
    auto* found = parent->findChild<Widget*>(name);
    if (!found) qFatal("no child named %s", name);
    return found;
}

void sendDrop(QWidget* target, const QList<QUrl>& urls) {
    QMimeData data;
    data.setUrls(urls);
    const QPoint at = target->rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &move);
    QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &drop);
}

} // namespace

class WindowTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // ---- opening

    void openingThroughTheModelListsTheTrackWithItsDurationAndFillsTheInspector() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        QListWidget* list = h.window.trackList();
        QCOMPARE(list->count(), 1);
        QVERIFY(list->item(0)->isSelected());
        QVERIFY2(
            list->item(0)->text().startsWith(QString::fromUtf8("stereo-s16.wav\n0:03.0 \u00b7 ")),
            qPrintable(list->item(0)->text()));
        QCOMPARE(child<QLabel>(&h.window, "inspectorFile")->text(), QString("stereo-s16.wav"));
        QCOMPARE(child<QLabel>(&h.window, "inspectorChannels")->text(), QString("Stereo"));
        QVERIFY(child<QLabel>(&h.window, "inspectorSampleRate")->text().endsWith(" Hz"));
        // Integrated loudness is measured in the background and then shown.
        QTRY_VERIFY_WITH_TIMEOUT(
            child<QLabel>(&h.window, "inspectorLoudness")->text().endsWith("LUFS"), 10000);
    }

    void droppingFilesOnTheWindowOrTheTrackListOpensThem() {
        Harness h;
        sendDrop(&h.window, {QUrl::fromLocalFile(fixturePath("mono.wav"))});
        QCOMPARE(h.model.tracks().size(), size_t(1));
        QCOMPARE(h.model.tracks()[0]->name(), std::string("mono"));
        sendDrop(h.window.trackList()->viewport(),
                 {QUrl::fromLocalFile(fixturePath("stereo-s16.wav"))});
        QCOMPARE(h.model.tracks().size(), size_t(2));
        QCOMPARE(h.window.trackList()->count(), 2);
        QCOMPARE(h.model.tracks()[1]->name(), std::string("stereo-s16"));
    }

    void aDroppedFolderOpensTheAudioFilesInside() {
        Harness h;
        test::TemporaryFolder folder;
        std::filesystem::create_directories(folder / "inner");
        std::filesystem::copy_file(fixturePath("mono.wav").toStdString(),
                                   folder / "inner" / "b.wav");
        std::filesystem::copy_file(fixturePath("mono.wav").toStdString(), folder / "a.wav");
        std::filesystem::copy_file(fixturePath("mono.wav").toStdString(), folder / "notes.txt");
        sendDrop(&h.window, {QUrl::fromLocalFile(QString::fromStdString(folder.path().string()))});
        QCOMPARE(h.window.trackList()->count(), 2);
        QVERIFY(h.window.trackList()->item(0)->text().startsWith("a.wav\n"));
        QVERIFY(h.window.trackList()->item(1)->text().startsWith("b.wav\n"));
        QTRY_VERIFY_WITH_TIMEOUT(h.model.tracks()[0]->isReady() && h.model.tracks()[1]->isReady(),
                                 10000);
    }

    void loadingProgressShowsInTheListAndTheStatusBar() {
        Harness h;
        auto track = AudioTrack::create("/music/long take.wav");
        track->setState(AudioTrack::Loading{0.42});
        h.model.addTrack(track);
        QCOMPARE(h.window.trackList()->item(0)->text(), QString("long take.wav\nLoading 42%"));
        auto* progress = child<QProgressBar>(&h.window, "statusProgress");
        QVERIFY(!progress->isHidden());
        QCOMPARE(progress->value(), 420);
        QCOMPARE(child<QLabel>(&h.window, "statusText")->text(),
                 QString::fromUtf8("Loading 1 file\u2026"));
        track->setState(AudioTrack::Failed{"The file contains no audio."});
        QVERIFY(progress->isHidden());
        QCOMPARE(h.window.trackList()->item(0)->text(),
                 QString("long take.wav\nThe file contains no audio."));
    }

    // Plain words naming the file in the list and the inspector; FFmpeg's own line only
    // behind the inspector's Details button.
    void aFileThatFailsToLoadShowsWhyInPlainWordsWithTheDetailsApart() {
        Harness h;
        h.window.openFiles({fixturePath("noise.mp3")});
        auto track = h.model.tracks().at(0);
        QTRY_VERIFY_WITH_TIMEOUT(std::holds_alternative<AudioTrack::Failed>(track->state()), 10000);
        const auto& failed = std::get<AudioTrack::Failed>(track->state());
        const QString message = QString::fromStdString(failed.message);
        QCOMPARE(message, QString::fromUtf8("Couldn't open \u201Cnoise.mp3\u201D: This is not an "
                                            "audio file."));
        QCOMPARE(failed.details, std::string("Invalid data found when processing input"));
        QListWidgetItem* item = h.window.trackList()->item(0);
        QVERIFY2(item->text().endsWith(message), qPrintable(item->text()));
        QCOMPARE(item->toolTip(), message);
        QVERIFY(!h.enabled(ID::exportAudio));

        auto* problem = child<QLabel>(&h.window, "inspectorProblem");
        auto* button = child<QToolButton>(&h.window, "inspectorDetailsButton");
        auto* details = child<QLabel>(&h.window, "inspectorDetails");
        QCOMPARE(problem->text(), message);
        QVERIFY(!button->isHidden());
        QVERIFY(details->isHidden());
        button->click();
        QVERIFY(!details->isHidden());
        QCOMPARE(details->text(), QString("Invalid data found when processing input"));
        // A track that loads has neither.
        QVERIFY(h.openAndLoad("mono.wav"));
        QVERIFY(problem->isHidden());
        QVERIFY(button->isHidden());
        QVERIFY(details->isHidden());
    }

    void removingFromTheListDropsTheSelectedTracks() {
        Harness h;
        QVERIFY(h.openAndLoad("mono.wav"));
        QVERIFY(h.openAndLoad("stereo-s16.wav"));
        h.window.action(ID::removeTracks)->trigger();
        QCOMPARE(h.model.tracks().size(), size_t(1));
        QCOMPARE(h.window.trackList()->count(), 1);
        QCOMPARE(h.model.tracks()[0]->name(), std::string("mono"));
        QVERIFY(h.window.trackList()->item(0)->isSelected());
    }

    void reorderingTheListReordersTheModel() {
        Harness h;
        QVERIFY(h.openAndLoad("mono.wav"));
        QVERIFY(h.openAndLoad("stereo-s16.wav"));
        const Uuid first = h.model.tracks()[0]->id(), second = h.model.tracks()[1]->id();
        h.model.reorderTracks({second, first});
        QCOMPARE(h.model.tracks()[0]->id(), second);
        QVERIFY(h.window.trackList()->item(0)->text().startsWith("stereo-s16"));
    }

    // ---- menu enablement

    void commandsAreEnabledOnlyWhenTheModelAllowsThem() {
        Harness h;
        for (ID id : {ID::exportAudio, ID::exportRegions, ID::cut, ID::copy, ID::paste,
                      ID::deleteSelection, ID::undo, ID::trimToSelection, ID::trimSilence,
                      ID::selectAll, ID::newTrackFromSelection, ID::addMarker, ID::removeAllMarkers,
                      ID::zoomIn, ID::zoomToSelection})
            QVERIFY2(!h.enabled(id), qPrintable(h.name(id)));
        QVERIFY(h.enabled(ID::open));

        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        // Audio but no selection: export, trim silence, markers, zoom; nothing that needs a
        // selection.
        for (ID id : {ID::exportAudio, ID::trimSilence, ID::selectAll, ID::addMarker, ID::zoomIn,
                      ID::zoomToFit})
            QVERIFY2(h.enabled(id), qPrintable(h.name(id)));
        for (ID id : {ID::cut, ID::copy, ID::deleteSelection, ID::trimToSelection,
                      ID::newTrackFromSelection, ID::paste, ID::exportRegions, ID::zoomToSelection,
                      ID::undo})
            QVERIFY2(!h.enabled(id), qPrintable(h.name(id)));
        QCOMPARE(h.window.action(ID::addMarker)->text(), QString("Add Marker at Playhead"));

        track->setSelection(FrameRange{1000, 20000});
        for (ID id : {ID::cut, ID::copy, ID::deleteSelection, ID::trimToSelection,
                      ID::newTrackFromSelection, ID::zoomToSelection})
            QVERIFY2(h.enabled(id), qPrintable(h.name(id)));
        QCOMPARE(h.window.action(ID::addMarker)->text(), QString("Add Region from Selection"));
        QVERIFY(!h.enabled(ID::paste));
        h.window.action(ID::copy)->trigger();
        QVERIFY(h.enabled(ID::paste));

        h.window.action(ID::addMarker)->trigger();
        QVERIFY(h.enabled(ID::exportRegions));
        QVERIFY(h.enabled(ID::removeAllMarkers));
    }

    // ---- editing with the keyboard

    void cutWithTheShortcutThenUndoRestoresTheAudio() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        h.showActive();
        const int64_t frames = track->frameCount();
        track->setSelection(FrameRange{0, 4410});
        QTest::keySequence(&h.window, QKeySequence::Cut);
        QCOMPARE(track->frameCount(), frames - 4410);
        QCOMPARE(h.window.action(ID::undo)->text(), QString("Undo Cut"));
        QCOMPARE(h.window.trackList()->item(0)->toolTip(), QString("Edited, not exported"));
        QVERIFY(h.enabled(ID::paste));

        QTest::keySequence(&h.window, QKeySequence::Undo);
        QCOMPARE(track->frameCount(), frames);
        QVERIFY(!h.enabled(ID::undo));
        QCOMPARE(h.window.action(ID::redo)->text(), QString("Redo Cut"));
        QCOMPARE(h.window.trackList()->item(0)->toolTip(), QString());
    }

    void aDragOnTheCanvasSelectsAndTheShortcutsCutAndUndo() {
        Harness h;
        auto track = h.openAndLoad("tone-then-silence.wav");
        QVERIFY(track);
        h.showActive();
        WaveformCanvas* canvas = h.window.canvas();
        const QRect area = canvas->waveArea();
        const int y = area.center().y();
        const QPoint from(area.left() + area.width() / 5, y),
            to(area.left() + area.width() * 2 / 5, y);
        QTest::mousePress(canvas, Qt::LeftButton, {}, from);
        QMouseEvent move(QEvent::MouseMove, QPointF(to), canvas->mapToGlobal(QPointF(to)),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(canvas, &move);
        QTest::mouseRelease(canvas, Qt::LeftButton, {}, to);
        QVERIFY(track->selection());
        const FrameRange selected = *track->selection();
        // A fifth to two fifths of two seconds, within a pixel and the zero-crossing snap.
        const double tolerance = 2.0 * 96000 / area.width() + 120;
        QVERIFY2(std::abs(double(selected.lower) - 19200) < tolerance,
                 qPrintable(QString::number(selected.lower)));
        QVERIFY2(std::abs(double(selected.upper) - 38400) < tolerance,
                 qPrintable(QString::number(selected.upper)));
        QVERIFY(h.enabled(ID::cut));

        const int64_t frames = track->frameCount();
        QTest::keySequence(&h.window, QKeySequence::Cut);
        QCOMPARE(track->frameCount(), frames - selected.length());
        QTest::keySequence(&h.window, QKeySequence::Undo);
        QCOMPARE(track->frameCount(), frames);
    }

    void selectAllSelectsTheWholeTrack() {
        Harness h;
        auto track = h.openAndLoad("mono.wav");
        QVERIFY(track);
        h.showActive();
        QTest::keySequence(&h.window, QKeySequence::SelectAll);
        QVERIFY(track->selection());
        QCOMPARE(*track->selection(), (FrameRange{0, track->frameCount()}));
        const QString end = preciseTimeText(track->audio()->duration());
        for (auto [field, text] : {std::pair{"selectionStart", QString("0:00.000")},
                                   {"selectionEnd", end},
                                   {"selectionLength", end}})
            QCOMPARE(child<QLineEdit>(&h.window, field)->text(), text);
    }

    // ---- gain and normalization

    void normalizingToPeakShowsTheAppliedGain() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        child<QToolButton>(&h.window, "normalizeButton")->click();
        QVERIFY(track->gainDB() != 0.0f);
        QCOMPARE(child<QLabel>(&h.window, "gainText")->text(),
                 QString::asprintf("%+.1f dB applied", double(track->gainDB())));
    }

    void loudnessTargetsAreEnabledOnceTheLoudnessIsMeasured() {
        Harness h;
        auto track = h.openAndLoad("speech.wav");
        QVERIFY(track);
        auto* menu = child<QMenu>(&h.window, "normalizeMenu");
        QTRY_VERIFY_WITH_TIMEOUT(track->currentLoudness().has_value(), 10000);
        Q_EMIT menu->aboutToShow();
        const auto entries = menu->actions();
        QVERIFY(entries.size() >= 3);
        QCOMPARE(entries[0]->text(), QString("Peak to 0 dBFS"));
        QVERIFY(entries.last()->text().startsWith("Loudness to "));
        QVERIFY(entries.last()->isEnabled());
        entries.last()->trigger();
        QCOMPARE(child<QLabel>(&h.window, "gainText")->text(),
                 QString::asprintf("%+.1f dB applied", double(track->gainDB())));
    }

    // ---- output meter

    void clickingTheMeterPutsOutTheClipLight() {
        Harness h;
        LevelMeterWidget* meter = h.window.outputMeter();
        // A full-scale peak on both channels lights the clip light and holds the peak.
        const float peaks[] = {1.5f, 0.5f};
        meter->ballistics.update(std::span<const float>(peaks), 10.0);
        QVERIFY(meter->ballistics.clipped);
        QVERIFY(meter->ballistics.levels.at(0).holdDB > MeterBallistics::floorDB);
        QTest::mouseClick(meter, Qt::LeftButton);
        QVERIFY(!meter->ballistics.clipped);
        QCOMPARE(meter->ballistics.levels.at(0).holdDB, MeterBallistics::floorDB);
        // The meter falls back to the floor by itself while nothing plays.
        QTRY_COMPARE_WITH_TIMEOUT(meter->ballistics.levels.at(0).peakDB, MeterBallistics::floorDB,
                                  10000);
    }

    // ---- export

    void theExportDialogOffersTheFormatsAndTheRangeOfTheSelection() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        track->setSelection(FrameRange{0, 22050});
        h.window.action(ID::exportAudio)->trigger();
        QFileDialog* dialog = h.window.exportDialog();
        QVERIFY(dialog);
        QCOMPARE(dialog->windowTitle(), QString("Export Audio"));
        auto* format = child<QComboBox>(dialog, "exportFormat");
        QStringList formats;
        for (int i = 0; i < format->count(); ++i)
            formats << format->itemText(i);
        QCOMPARE(formats,
                 (QStringList{"WAV 16-bit", "WAV 24-bit", "AIFF 16-bit", "AAC (M4A, 256 kbps)"}));
        auto* range = child<QComboBox>(dialog, "exportRange");
        QVERIFY(range->isEnabled());
        QCOMPARE(range->currentText(), QString("Selection"));
        QCOMPARE(child<QLabel>(dialog, "exportGain")->text(), QString("+0.0 dB applied"));
        QVERIFY(dialog->selectedFiles().value(0).endsWith("stereo-s16 (selection).wav"));

        // Another format changes the proposed file's extension.
        format->setCurrentIndex(2);
        QVERIFY2(dialog->selectedFiles().value(0).endsWith("stereo-s16 (selection).aiff"),
                 qPrintable(dialog->selectedFiles().value(0)));

        // Confirming writes the whole track when "Entire track" is chosen, and marks it exported.
        track->setSelection(FrameRange{0, 100});
        h.window.action(ID::deleteSelection)->trigger();
        QCOMPARE(h.window.trackList()->item(0)->toolTip(), QString("Edited, not exported"));
        range->setCurrentIndex(1);
        test::TemporaryFolder folder;
        const QString out = QString::fromStdString((folder / "whole.aiff").string());
        dialog->selectFile(out);
        static_cast<QDialog*>(dialog)->accept();
        QTRY_VERIFY_WITH_TIMEOUT(
            !h.model.exportProgress() && std::filesystem::exists(folder / "whole.aiff"), 10000);
        QTRY_VERIFY(h.window.exportDialog() == nullptr);
        QVERIFY(!track->hasUnexportedEdits());
        QCOMPARE(h.window.trackList()->item(0)->toolTip(), QString("Edited and exported"));
    }

    void withoutASelectionTheWholeTrackIsTheOnlyRange() {
        Harness h;
        QVERIFY(h.openAndLoad("mono.wav"));
        child<QToolButton>(&h.window, "exportButton")->click();
        QFileDialog* dialog = h.window.exportDialog();
        QVERIFY(dialog);
        QVERIFY(child<QComboBox>(dialog, "exportFormat"));
        QVERIFY(!dialog->findChild<QComboBox*>("exportRange")); // no choice to offer
        QVERIFY(dialog->selectedFiles().value(0).endsWith("mono (edited).wav"));
        dialog->reject();
    }

    void exportRegionsAsksForAFolderWithTheRegionCount() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        track->addMarker(0, FrameRange{0, 1000});
        track->addMarker(0, FrameRange{2000, 3000});
        child<QPushButton>(&h.window, "exportRegionsButton")->click();
        QFileDialog* dialog = h.window.exportDialog();
        QVERIFY(dialog);
        QCOMPARE(dialog->windowTitle(), QString("Export Regions"));
        QCOMPARE(child<QLabel>(dialog, "exportRegionsMessage")->text(),
                 QString("Choose a folder for 2 region files."));
        QVERIFY(dialog->findChild<QComboBox*>("exportRange") == nullptr);
        QCOMPARE(child<QComboBox>(dialog, "exportFormat")->count(), 4);
        dialog->reject();
    }

    // ---- alerts

    void alertsShowAsOneDialogAtATime() {
        Harness h;
        auto track = h.openAndLoad("mono.wav");
        QVERIFY(track);
        track->setSelection(FrameRange{0, track->frameCount()});
        h.window.action(ID::cut)->trigger(); // a failed edit's alert
        QMessageBox* box = h.window.alertBox();
        QVERIFY(box);
        QCOMPARE(box->text(), QString("Cut failed"));
        QCOMPARE(box->informativeText(),
                 QString("A track can't be left empty. Remove it from the list instead."));
        h.model.showAlert({"Export failed", "Not enough memory to decode the file."});
        QCOMPARE(h.window.findChildren<QMessageBox*>().size(), qsizetype(1));
        QCOMPARE(h.window.alertBox()->text(), QString("Export failed"));
        h.window.alertBox()->accept();
        QVERIFY(!h.model.alert());
        QVERIFY(h.window.alertBox() == nullptr);
    }

    void aDamagedFileIsReportedOnceNamingItAndOffersARegionOverEachLoss() {
        Harness h;
        test::TemporaryFolder folder;
        const auto damaged = folder / "take.flac";
        const std::string encode = "ffmpeg -v error -y -f lavfi -i 'sine=f=440:d=8' -ac 2 "
                                   "-c:a flac '" +
                                   damaged.string() + "'";
        QCOMPARE(std::system(encode.c_str()), 0);
        {
            std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(std::streamoff(std::filesystem::file_size(damaged) / 3));
            file << std::string(4096, '\x5a'); // a stretch of garbage a third of the way in
        }
        auto opened = h.model.open({damaged, fixturePath("stereo.flac").toStdString(),
                                    fixturePath("truncated.flac").toStdString()});
        QCOMPARE(opened.size(), size_t(3));
        QVERIFY(QTest::qWaitFor(
            [&] {
                return std::all_of(opened.begin(), opened.end(),
                                   [](auto& t) { return t->isReady(); });
            },
            10000));
        // The model orders what it opens by path, and the fixtures may sort either side of
        // the temporary folder: the tracks are found by name.
        auto named = [&](const std::string& name) {
            return *std::find_if(opened.begin(), opened.end(),
                                 [&](auto& t) { return t->url().filename() == name; });
        };
        const auto take = named("take.flac"), stereo = named("stereo.flac"),
                   truncated = named("truncated.flac");
        const DecodeReport& report = take->decodeReport();
        QVERIFY(!report.damaged.empty());
        QVERIFY(stereo->decodeReport().isClean());

        // One alert per damaged file, one after the other; the undamaged file says nothing.
        QStringList seen;
        for (int i = 0; i < 2; ++i) {
            QMessageBox* box = h.window.alertBox();
            QVERIFY(box);
            seen << box->informativeText();
            auto* add = box->findChild<QPushButton*>("alertAction");
            QVERIFY(add);
            if (box->informativeText().startsWith("“take.flac”")) {
                QCOMPARE(box->detailedText().count("Silent from"),
                         qsizetype(report.damaged.size()));
                add->click();
            } else {
                box->accept();
            }
            QCoreApplication::processEvents();
        }
        QVERIFY(!h.model.alert());
        QVERIFY(h.window.alertBox() == nullptr);
        seen.sort();
        QVERIFY2(seen[0].startsWith("“take.flac” is damaged: ") &&
                     seen[0].endsWith(" could not be read and is silent."),
                 qPrintable(seen[0]));
        QVERIFY2(seen[1].startsWith("“truncated.flac” ends early: only ") &&
                     seen[1].endsWith(" of 3.0 s could be read, and the rest is silent."),
                 qPrintable(seen[1]));

        // The regions cover the damaged stretches exactly, as one undoable step.
        const auto regions = take->regions();
        QCOMPARE(regions.size(), report.damaged.size());
        for (size_t i = 0; i < regions.size(); ++i) {
            QCOMPARE(regions[i].name, "Damaged " + std::to_string(i + 1));
            QCOMPARE(regions[i].start, report.damaged[i].lower);
            QCOMPARE(*regions[i].end, report.damaged[i].upper);
        }
        QVERIFY(truncated->regions().empty());
        take->undoStack().undo();
        QVERIFY(take->regions().empty());
    }

    // ---- markers

    void theMarkerListShowsMarkersAndRenamesInPlace() {
        Harness h;
        auto track = h.openAndLoad("stereo-s16.wav");
        QVERIFY(track);
        track->addMarker(44100, std::nullopt);
        track->addMarker(0, FrameRange{22050, 66150});
        QTreeWidget* list = h.window.markerList();
        QCOMPARE(list->topLevelItemCount(), 2);
        QTreeWidgetItem* region = nullptr;
        for (int i = 0; i < 2; ++i)
            if (list->topLevelItem(i)->text(0) == "Region 1") region = list->topLevelItem(i);
        QVERIFY(region);
        const double rate = track->sampleRate();
        QCOMPARE(region->text(1), durationText(22050 / rate));
        QCOMPARE(region->text(2), durationText(66150 / rate));
        QCOMPARE(durationText(3725.25), QString("1:02:05.2"));

        region->setText(0, "Intro");
        QCOMPARE(track->regions().at(0).name, std::string("Intro"));
        QCOMPARE(h.window.action(ID::undo)->text(), QString("Undo Rename Region"));
        // A blank name changes nothing and the list shows the kept name again.
        list->topLevelItem(0)->setText(0, "  ");
        QVERIFY(list->findItems("  ", Qt::MatchExactly).isEmpty());

        // Clicking jumps the playhead to the marker.
        QTreeWidgetItem* point = list->findItems("Marker 1", Qt::MatchExactly).value(0);
        QVERIFY(point);
        Q_EMIT list->itemClicked(point, 0);
        QCOMPARE(h.model.playheadPosition(), int64_t(44100));

        child<QPushButton>(&h.window, "removeAllMarkersButton")->click();
        QCOMPARE(list->topLevelItemCount(), 0);
        QVERIFY(track->markers().empty());
    }

    // ---- status bar

    void theMemoryItemOpensItsDetails() {
        Harness h;
        QVERIFY(h.openAndLoad("stereo-s16.wav"));
        auto* memory = child<QToolButton>(&h.window, "memoryButton");
        // The samples of a three-second stereo file are counted, not zero.
        QVERIFY2(memory->text().startsWith("Memory: ") &&
                     memory->text() != "Memory: " + QLocale().formattedDataSize(0),
                 qPrintable(memory->text()));
        memory->click();
        auto* popup = child<QWidget>(&h.window, "memoryDetails");
        QStringList texts;
        for (auto* label : popup->findChildren<QLabel*>())
            texts << label->text();
        for (const char* row :
             {"Samples", "Waveform overview", "Total", "Whole app", "Undo history isn't included."})
            QVERIFY2(texts.contains(row), row);
        QVERIFY(!texts.contains("Clipboard"));
        popup->close();
    }

    void addingAnEffectFromTheMenuShowsThePanelAndClosingHidesIt() {
        Harness h;
        QVERIFY(h.openAndLoad("stereo-s16.wav"));
        auto* addMenu = child<QMenu>(&h.window, "addEffectMenu");
        QVERIFY(addMenu->isEnabled());
        QVERIFY(!h.enabled(ID::applyEffects));
        QAction* limiter = nullptr;
        for (QAction* a : addMenu->actions())
            if (a->text() == "Limiter") limiter = a;
        QVERIFY(limiter);
        limiter->trigger();
        QVERIFY(h.model.effectChain());
        QVERIFY(!h.window.effectsPanelDock()->isHidden());
        QVERIFY(h.enabled(ID::applyEffects));
        h.window.action(ID::closeEffects)->trigger();
        QVERIFY(!h.model.effectChain());
        QVERIFY(h.window.effectsPanelDock()->isHidden());
        QVERIFY(!h.enabled(ID::closeEffects));
    }

    void settingsAndAboutOpenTheirWindows() {
        Harness h;
        QVERIFY(h.window.findChild<SettingsDialog*>() == nullptr);
        h.window.action(ID::settings)->trigger();
        auto* settings = h.window.findChild<SettingsDialog*>();
        QVERIFY(settings);
        QVERIFY(settings->isVisible());
        h.window.action(ID::about)->trigger();
        auto* about = h.window.findChild<AboutDialog*>();
        QVERIFY(about);
        QVERIFY(about->isVisible());
    }

    // ---- the whole window

    void screenshotOfTheWindowWithALoadedFile() {
        Harness h;
        auto track = h.openAndLoad("speech.wav");
        QVERIFY(track);
        track->setSelection(FrameRange{track->frameCount() / 4, track->frameCount() / 2});
        track->addMarker(0, FrameRange{track->frameCount() / 4, track->frameCount() / 2});
        h.window.resize(1280, 760);
        h.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&h.window));
        QTRY_VERIFY_WITH_TIMEOUT(track->currentLoudness().has_value(), 10000);
        const QImage image = h.window.grab().toImage();
        QCOMPARE(image.size(), QSize(1280, 760)); // the layout fits a laptop screen
        // The list has the focus at the start, so its selection is drawn as focused.
        QCOMPARE(h.window.focusWidget(), h.window.trackList());
        // Beside the fixtures, in the build folder: build/dev/screenshots.
        const QString dir = QDir(QString(SONVALE_FIXTURE_DIR) + "/../screenshots").absolutePath();
        QDir().mkpath(dir);
        QVERIFY(image.save(dir + "/window.png"));
    }
};

QTEST_MAIN(WindowTests)
#include "WindowTests.moc"

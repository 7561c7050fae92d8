#include "app/effects/EffectDisplays.h"
#include "app/effects/EffectsPanel.h"
#include "app/effects/Knob.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"
#include "support/PlaybackTestAudio.h"

#include <QComboBox>
#include <QDir>
#include <QListWidget>
#include <QMenu>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>
#include <cmath>
#include <numbers>

using namespace sonvale;

namespace {

constexpr double rate = 48000;

// An editor with one selected track of quiet noise, and the panel over it. Playback goes to
// a hand-driven output with 20 ms of latency.
struct Fixture {
    ManualExecutor executor;
    Preferences preferences;
    test::ManualOutput* output = nullptr;
    EditorModel model{executor, preferences, [this] {
                          auto manual = std::make_unique<test::ManualOutput>();
                          output = manual.get();
                          return std::make_unique<PlaybackEngine>(std::move(manual));
                      }()};
    AudioTrackPtr track;
    EffectsPanel panel{model};

    Fixture() {
        std::vector<std::vector<float>> channels(2, std::vector<float>(24000));
        uint32_t seed = 1;
        for (auto& channel : channels)
            for (float& s : channel) {
                seed = seed * 1664525u + 1013904223u;
                s = float(seed >> 8) / float(1u << 24) * 0.2f - 0.1f;
            }
        track = AudioTrack::create("/music/take.wav");
        track->finishLoading(test::makeAudio(rate, channels));
        model.addTrack(track);
        model.setSelectedTrackIDs({track->id()});
        executor.drain();
        panel.resize(900, 600);
    }

    QAction* menuAction(EffectKind kind) const {
        for (QAction* action : panel.addMenu()->actions())
            if (action->data().toString() == QString::fromUtf8(rawValue(kind).data()))
                return action;
        return nullptr;
    }
    EffectSessionPtr add(EffectKind kind) {
        menuAction(kind)->trigger();
        return model.effectChain()->selected();
    }
    Knob* knob(const std::string& name) const {
        for (Knob* k : panel.knobs())
            if (k->parameter().name == name) return k;
        return nullptr;
    }
};

} // namespace

class EffectsPanelTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theAddMenuListsEveryKindByCategoryInCatalogueOrder() {
        Fixture f;
        std::vector<EffectKind> listed;
        QStringList sections;
        for (QAction* action : f.panel.addMenu()->actions()) {
            if (action->isSeparator()) {
                sections << action->text();
                continue;
            }
            listed.push_back(*effectKindFromRawValue(action->data().toString().toStdString()));
            QVERIFY(!action->icon().isNull());
            QCOMPARE(action->toolTip().toStdString(), std::string(summary(listed.back())));
        }
        QCOMPARE(listed, allEffectKinds());
        QCOMPARE(sections,
                 QStringList({"Tone", "Dynamics", "Modulation", "Space", "Pitch", "Visual"}));
    }

    void addingEachKindFromTheMenuAppendsItAndOpensItsPanel() {
        Fixture f;
        for (EffectKind kind : allEffectKinds()) {
            QAction* action = f.menuAction(kind);
            QVERIFY(action);
            action->trigger();
            const auto& chain = f.model.effectChain();
            QVERIFY(chain);
            QCOMPARE(chain->effects().back()->kind(), kind);
            QCOMPARE(chain->selected(), chain->effects().back());
            QCOMPARE(f.panel.chainList()->count(), int(chain->effects().size()));
            QCOMPARE(f.panel.chainList()->currentRow(), f.panel.chainList()->count() - 1);
            QCOMPARE(f.panel.knobs().size(), parameters(kind).size());
            QCOMPARE(f.panel.presetBox()->count(), int(presets(kind).size()));
            QCOMPARE(f.panel.equalizerGraph() != nullptr, kind == EffectKind::equalizer);
            QCOMPARE(f.panel.spectrumDisplay() != nullptr, kind == EffectKind::spectrumAnalyzer);
            QCOMPARE(f.panel.reductionMeter() != nullptr, kind == EffectKind::compressor ||
                                                              kind == EffectKind::limiter ||
                                                              kind == EffectKind::noiseGate);
            // Nothing of the previous effect's editor stays on show.
            int meters = 0;
            for (auto* meter : f.panel.findChildren<ReductionMeter*>())
                meters += meter->isVisibleTo(&f.panel) ? 1 : 0;
            QCOMPARE(meters, f.panel.reductionMeter() ? 1 : 0);
        }
        QCOMPARE(f.model.effectChain()->effects().size(), allEffectKinds().size());
    }

    void movingAKnobWritesTheSessionValueAndTheBankSlot() {
        Fixture f;
        auto session = f.add(EffectKind::compressor);
        Knob* ratio = f.knob("Ratio");
        QVERIFY(ratio);
        QTest::keyClick(ratio, Qt::Key_Up);
        // Logarithmic travel: one step is 1% of the way in the geometric sense.
        const double expected = 4 * std::pow(20.0 / 1, 0.01);
        QVERIFY2(std::abs(session->values()[1] - expected) < 1e-9,
                 qPrintable(QString::number(session->values()[1])));
        QCOMPARE(session->bank()->value(1), double(float(session->values()[1])));

        QWheelEvent wheel(QPointF(10, 10), ratio->mapToGlobal(QPointF(10, 10)), {}, QPoint(0, -240),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(ratio, &wheel);
        QVERIFY(session->values()[1] < 4);
        QCOMPARE(session->bank()->value(1), double(float(session->values()[1])));

        QTest::mouseDClick(ratio, Qt::LeftButton);
        QCOMPARE(session->values()[1], 4.0);
        QCOMPARE(session->bank()->value(1), 4.0);

        // A drag upwards turns the knob up; the text shown is the parameter's own.
        Knob* threshold = f.knob("Threshold");
        QTest::mousePress(threshold, Qt::LeftButton, {}, QPoint(30, 60));
        QMouseEvent move(QEvent::MouseMove, QPointF(30, 20),
                         threshold->mapToGlobal(QPointF(30, 20)), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(threshold, &move);
        QTest::mouseRelease(threshold, Qt::LeftButton, {}, QPoint(30, 20));
        QVERIFY(session->values()[0] > -18);
        QCOMPARE(session->bank()->value(0), double(float(session->values()[0])));
    }

    void choicesStepOneLabelAtATimeAndTheEqualizerHidesUnusedControls() {
        Fixture f;
        auto session = f.add(EffectKind::equalizer);
        Knob* type = f.knob("Band 1 Type");
        QCOMPARE(session->values()[0], 1.0); // Low Shelf
        QVERIFY(f.knob("Band 1 Gain")->isVisibleTo(&f.panel));
        QTest::keyClick(type, Qt::Key_Down);
        QCOMPARE(session->values()[0], 0.0); // Low Cut: no gain, no Q
        QVERIFY(!f.knob("Band 1 Gain")->isVisibleTo(&f.panel));
        QVERIFY(!f.knob("Band 1 Q")->isVisibleTo(&f.panel));
        QTest::keyClick(type, Qt::Key_Down); // already the first choice
        QCOMPARE(session->values()[0], 0.0);

        // A touchpad's small wheel steps add up to one choice per whole notch.
        auto scroll = [&](int eighths) {
            QWheelEvent wheel(QPointF(10, 10), type->mapToGlobal(QPointF(10, 10)), {},
                              QPoint(0, eighths), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase,
                              false);
            QApplication::sendEvent(type, &wheel);
        };
        for (int i = 0; i < 3; ++i)
            scroll(30);
        QCOMPARE(session->values()[0], 0.0);
        scroll(30);
        QCOMPARE(session->values()[0], 1.0);

        // A switch flips on a click and a double-click leaves it at its default, on.
        Knob* on = f.knob("Band 1 On");
        QCOMPARE(on->value(), 1.0);
        QTest::mouseClick(on, Qt::LeftButton);
        QCOMPARE(on->value(), 0.0);
        QTest::mouseDClick(on, Qt::LeftButton);
        QCOMPARE(on->value(), 1.0);
        QCOMPARE(session->bank()->value(4), 1.0);
    }

    void aPresetSetsEveryValueAndThePresetNameFollowsTheValues() {
        Fixture f;
        auto session = f.add(EffectKind::compressor);
        QCOMPARE(f.panel.presetBox()->currentIndex(), -1);
        QTest::keyClick(f.knob("Makeup"), Qt::Key_End); // 24 dB, which "Limiter" leaves out
        const auto& list = presets(EffectKind::compressor);
        const int limiter = int(std::find_if(list.begin(), list.end(),
                                             [](const auto& p) { return p.name == "Limiter"; }) -
                                list.begin());
        Q_EMIT f.panel.presetBox()->activated(limiter);
        const std::vector<double> expected{-6, 20, 0.5, 60, 0, 0};
        QCOMPARE(session->values(), expected);
        for (int i = 0; i < 6; ++i)
            QCOMPARE(session->bank()->value(i), double(float(expected[size_t(i)])));
        QCOMPARE(f.panel.presetBox()->currentText(), QString("Limiter"));
        QCOMPARE(f.knob("Makeup")->value(), 0.0);

        QTest::keyClick(f.knob("Knee"), Qt::Key_Up);
        QCOMPARE(f.panel.presetBox()->currentIndex(), -1);
        QTest::keyClick(f.knob("Knee"), Qt::Key_Home);
        QCOMPARE(f.panel.presetBox()->currentText(), QString("Limiter"));

        // Typing the values in by hand finds the preset too.
        auto limiterEffect = f.add(EffectKind::limiter);
        limiterEffect->setValues({4, -1, 150});
        QCOMPARE(f.panel.presetBox()->currentText(), QString("Streaming Master"));
    }

    void theChainListBypassesReordersAndRemoves() {
        Fixture f;
        auto eq = f.add(EffectKind::equalizer);
        auto gate = f.add(EffectKind::noiseGate);
        QListWidget* list = f.panel.chainList();
        list->item(0)->setCheckState(Qt::Unchecked);
        QVERIFY(eq->isBypassed());
        QVERIFY(eq->bypassFlag()->value());
        QCOMPARE(f.model.effectChain()->activeEffects().size(), size_t(1));

        f.model.effectChain()->move(gate->id(), 0);
        QCOMPARE(list->item(0)->text(), QString("Noise Gate"));
        QCOMPARE(list->item(1)->checkState(), Qt::Unchecked);

        // A drag in the list reorders the chain.
        list->model()->moveRow(QModelIndex(), 1, QModelIndex(), 0);
        QTRY_COMPARE(f.model.effectChain()->effects().front(), eq);

        f.panel.bypassAllButton()->click();
        QVERIFY(f.model.effectChain()->isBypassed());
        QVERIFY(f.model.effectPreviewInsert()->isBypassed());
        QCOMPARE(f.panel.bypassAllButton()->toolTip(),
                 QString("Hear the audio without any of the effects"));

        list->setCurrentRow(0);
        QCOMPARE(f.model.effectChain()->selected(), eq);
        f.panel.findChild<QToolButton*>("removeEffect")->click();
        QCOMPARE(f.model.effectChain()->effects().size(), size_t(1));
        QCOMPARE(list->count(), 1);
    }

    void draggingAnEqualizerPointSetsTheBandsFrequencyAndGain() {
        Fixture f;
        auto session = f.add(EffectKind::equalizer);
        f.panel.show();
        EqualizerGraph* graph = f.panel.equalizerGraph();
        QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
        const QPoint start = graph->bandPoint(2).toPoint(); // band 3, a bell at 2 kHz
        const QPoint end = start + QPoint(graph->width() / 10, -graph->height() / 4);
        QTest::mousePress(graph, Qt::LeftButton, {}, start);
        QMouseEvent move(QEvent::MouseMove, QPointF(end), graph->mapToGlobal(QPointF(end)),
                         Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(graph, &move);
        QTest::mouseRelease(graph, Qt::LeftButton, {}, end);
        QVERIFY(session->values()[11] > 2000);
        QVERIFY(session->values()[12] > 6); // a quarter of the +-24 dB height
        QCOMPARE(session->bank()->value(12), double(float(session->values()[12])));
        QVERIFY(graph->responseAt(session->values()[11]) > 6);
        QCOMPARE(f.knob("Band 3 Gain")->value(), session->values()[12]);
    }

    void theDisplaysFollowTheBankAndTheTap() {
        Fixture f;
        auto gate = f.add(EffectKind::noiseGate);
        f.model.play();
        QVERIFY(f.model.isPlaying());
        // The needle shows the gain change of the audio being heard, 960 frames (the output's
        // 20 ms) behind the newest processed block.
        gate->bank()->report(-12.5f, 4800);
        gate->bank()->report(-40.0f, 960);
        f.panel.refreshDisplays();
        QCOMPARE(f.panel.reductionMeter()->value(), -12.5f);
        gate->bank()->report(-40.0f, 960);
        f.panel.refreshDisplays();
        QCOMPARE(f.panel.reductionMeter()->value(), -40.0f);
        f.model.stop();
        f.panel.refreshDisplays();
        QCOMPARE(f.panel.reductionMeter()->value(), 0.0f); // nothing heard, nothing reduced

        auto analyzer = f.add(EffectKind::spectrumAnalyzer);
        SampleTap* tap = analyzer->bank()->tap();
        QVERIFY(tap);
        const double frequency = 85 * rate / 4096;
        for (int64_t i = 0; i < 8192; ++i)
            tap->store(i,
                       float(0.5 * std::sin(2 * std::numbers::pi * frequency * double(i) / rate)));
        tap->publish(8192);
        f.panel.refreshDisplays();
        const auto& levels = f.panel.spectrumDisplay()->analysis().levels();
        QCOMPARE(levels.size(), size_t(32));
        QVERIFY(*std::max_element(levels.begin(), levels.end()) > -10);
    }

    void theAnalyzerDrawsEachOfItsFourStylesAndThePeaksSwitch() {
        Fixture f;
        auto analyzer = f.add(EffectKind::spectrumAnalyzer);
        SampleTap* tap = analyzer->bank()->tap();
        for (int64_t i = 0; i < 8192; ++i)
            tap->store(i, float(0.5 * std::sin(2 * std::numbers::pi * 1000 * double(i) / rate)));
        tap->publish(8192);
        SpectrumDisplay* display = f.panel.spectrumDisplay();
        display->resize(400, 160);
        f.panel.refreshDisplays();
        auto picture = [&] { return display->grab().toImage(); };
        std::vector<QImage> styles;
        for (int style = 0; style < 4; ++style) {
            analyzer->setValue(0, style);
            styles.push_back(picture());
        }
        for (size_t a = 0; a < styles.size(); ++a)
            for (size_t b = a + 1; b < styles.size(); ++b)
                QVERIFY2(styles[a] != styles[b],
                         qPrintable(QString("styles %1 and %2").arg(a).arg(b)));
        analyzer->setValue(0, 0);
        analyzer->setValue(5, 0); // Peaks off
        QVERIFY(picture() != styles[0]);
    }

    void applyToSelectionMakesOneUndoStepNamedAfterTheEffectAndCloses() {
        Fixture f;
        const auto before = f.track->audio();
        auto session = f.add(EffectKind::equalizer);
        session->setValue(20, 6);                         // Output +6 dB
        f.add(EffectKind::compressor)->setBypassed(true); // bypassed: not applied, not named
        QSignalSpy closed(&f.panel, &EffectsPanel::closed);
        QCOMPARE(f.panel.applyButton()->toolTip(),
                 QString("Write the effects into the audio, in chain order (undoable)"));
        QVERIFY(f.panel.applyButton()->isEnabled());
        f.panel.applyButton()->click();
        QVERIFY(!f.panel.applyButton()->isEnabled());
        auto* progress = f.panel.findChild<QProgressBar*>();
        QVERIFY(progress && progress->isVisibleTo(&f.panel));
        QCOMPARE(progress->value(), 0);
        f.executor.drain();
        QVERIFY(!progress->isVisibleTo(&f.panel));

        QVERIFY(!f.model.effectChain());
        QCOMPARE(closed.count(), 1);
        QCOMPARE(f.panel.chainList()->count(), 0);
        QVERIFY(f.track->audio() != before);
        QCOMPARE(f.model.undoMenuTitle(), std::string("Undo Parametric EQ"));
        f.model.undo();
        QVERIFY(!f.model.canUndo());
        QCOMPARE(f.track->audio()->samples(0)[100], before->samples(0)[100]);
    }

    void closeLeavesTheAudioAlone() {
        Fixture f;
        const auto before = f.track->audio();
        f.add(EffectKind::distortion);
        QSignalSpy closed(&f.panel, &EffectsPanel::closed);
        QCOMPARE(f.panel.closeButton()->toolTip(), QString("Close without changing the audio"));
        QCOMPARE(
            f.panel.playButton()->toolTip(),
            QString("Play with the effects (Space); loop the selection to adjust as it plays"));
        f.panel.closeButton()->click();
        QVERIFY(!f.model.effectChain());
        QCOMPARE(closed.count(), 1);
        QCOMPARE(f.track->audio(), before);
    }

    // Not a check: renders the panel for a person to look at (equalizer above, analyzer below).
    void rendersAScreenshotOfTheEqualizerAndTheAnalyzer() {
        Fixture f;
        auto eq = f.add(EffectKind::equalizer);
        eq->setValues(
            presets(EffectKind::equalizer)[0].valuesFor(parameters(EffectKind::equalizer)));
        auto analyzer = f.add(EffectKind::spectrumAnalyzer);
        SampleTap* tap = analyzer->bank()->tap();
        uint32_t seed = 3;
        for (int64_t i = 0; i < 8192; ++i) {
            seed = seed * 1664525u + 1013904223u;
            const double t = double(i) / rate;
            tap->store(i, float(0.3 * std::sin(2 * std::numbers::pi * 110 * t) +
                                0.1 * std::sin(2 * std::numbers::pi * 880 * t) +
                                0.02 * (double(seed >> 8) / double(1u << 24) - 0.5)));
        }
        tap->publish(8192);
        f.panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
        f.panel.refreshDisplays();
        const QImage analyzerImage = f.panel.grab().toImage();
        f.model.effectChain()->select(eq->id());
        QApplication::processEvents();
        const QImage eqImage = f.panel.grab().toImage();

        QImage both(eqImage.width(), eqImage.height() + analyzerImage.height(),
                    QImage::Format_ARGB32);
        QPainter painter(&both);
        painter.drawImage(0, 0, eqImage);
        painter.drawImage(0, eqImage.height(), analyzerImage);
        painter.end();
        const QString dir = QString(SONVALE_FIXTURE_DIR) + "/../screenshots";
        QVERIFY(QDir().mkpath(dir));
        QVERIFY(both.save(dir + "/effects-panel.png"));

        auto compressor = f.add(EffectKind::compressor);
        compressor->bank()->report(-7.5f, 512);
        QApplication::processEvents();
        f.panel.refreshDisplays();
        QVERIFY(f.panel.grab().save(dir + "/effects-panel-compressor.png"));
    }
};

QTEST_MAIN(EffectsPanelTests)
#include "EffectsPanelTests.moc"

#include "app/ChannelControls.h"
#include "app/ValueControl.h"
#include "app/effects/EffectDisplays.h"
#include "app/effects/EffectsPanel.h"
#include "app/effects/Knob.h"
#include "base/ManualExecutor.h"
#include "base/UndoStack.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"
#include "support/PlaybackTestAudio.h"

#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStyleOptionSlider>
#include <QToolButton>
#include <QtTest>
#include <cmath>
#include <functional>
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
    ParameterControl* control(const std::string& name) const {
        for (ParameterControl* c : panel.controls())
            if (c->parameter().name == name) return c;
        return nullptr;
    }
    Knob* knob(const std::string& name) const { return qobject_cast<Knob*>(control(name)); }
};

// ---- the gestures a person makes on a knob or a slider

void moveTo(QWidget* widget, QPointF to, Qt::KeyboardModifiers modifiers) {
    QMouseEvent move(QEvent::MouseMove, to, widget->mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     modifiers);
    QApplication::sendEvent(widget, &move);
}

// Presses at `from`, moves `by` in four moves and lets go.
void drag(QWidget* widget, QPoint from, QPoint by, Qt::KeyboardModifiers modifiers = {}) {
    QTest::mousePress(widget, Qt::LeftButton, modifiers, from);
    for (int i = 1; i <= 4; ++i)
        moveTo(widget, QPointF(from) + QPointF(by) * (i / 4.0), modifiers);
    QTest::mouseRelease(widget, Qt::LeftButton, modifiers, from + by);
}

void scroll(QWidget* widget, int eighths, Qt::KeyboardModifiers modifiers = {}) {
    QWheelEvent wheel(QPointF(10, 10), widget->mapToGlobal(QPointF(10, 10)), {}, QPoint(0, eighths),
                      Qt::NoButton, modifiers, Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget, &wheel);
}

// Types `text` over what the open value editor holds and presses `key` (Enter or Escape).
void typeInto(ValueEditor* editor, const QString& text, Qt::Key key) {
    editor->selectAll();
    editor->insert(text); // keyClicks has no key for a true minus sign
    QTest::keyClick(editor, key);
}

QPoint handleCentre(QSlider* slider) {
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = option.sliderValue = slider->value();
    return slider->style()
        ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider)
        .center();
}

// A gain slider in tenths of a dB beside its value label, wired as the transport bar's is.
struct GainRig {
    QWidget window;
    QSlider* slider = new QSlider(Qt::Horizontal, &window);
    QLabel* label = new QLabel("+0.0 dB", &window);
    SliderControl* control;
    GainRig() {
        window.resize(400, 80);
        slider->setRange(-300, 300);
        slider->setGeometry(10, 10, 300, 24);
        label->setGeometry(320, 10, 70, 24);
        control = makeGainControl(slider, label);
    }
};

// A person's gesture on a control and the value it leaves.
struct Gesture {
    const char* name;
    double start;                          // the value the control shows before
    std::function<void(QWidget*)> gesture; // what is done to it
    double expected;
    bool editorOpen = false; // a typed-value editor is still open afterwards
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
            QCOMPARE(f.panel.controls().size(), parameters(kind).size());
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

        QTest::mouseDClick(ratio, Qt::LeftButton);
        QCOMPARE(session->values()[1], 4.0);
        QCOMPARE(session->bank()->value(1), 4.0);
    }

    void eachParameterGetsTheControlOfItsKind() {
        Fixture f;
        for (EffectKind kind : allEffectKinds()) {
            f.add(kind);
            for (ParameterControl* control : f.panel.controls()) {
                const auto& parameter = control->parameter();
                const bool isSwitch = qobject_cast<ParameterSwitch*>(control) != nullptr;
                const bool isChoice = qobject_cast<ParameterChoice*>(control) != nullptr;
                QCOMPARE(isSwitch, parameter.unit == EffectParameter::Unit::toggle);
                QCOMPARE(isChoice, parameter.unit == EffectParameter::Unit::choice);
                QCOMPARE(qobject_cast<Knob*>(control) != nullptr, !isSwitch && !isChoice);
            }
        }
    }

    void theEqualizersTypeIsAMenuAndItsOnOffASwitch() {
        Fixture f;
        auto session = f.add(EffectKind::equalizer);
        auto* type = qobject_cast<ParameterChoice*>(f.control("Band 1 Type"));
        QVERIFY(type);
        QCOMPARE(type->labelText(), QString("1 Type"));
        QStringList names;
        for (int i = 0; i < type->menu()->count(); ++i)
            names << type->menu()->itemText(i);
        QCOMPARE(names,
                 QStringList({"Low Cut", "Low Shelf", "Bell", "Notch", "High Shelf", "High Cut"}));
        QCOMPARE(type->menu()->currentText(), QString("Low Shelf"));
        QVERIFY(f.control("Band 1 Gain")->isVisibleTo(&f.panel));
        type->menu()->setCurrentIndex(0);
        Q_EMIT type->menu()->activated(0); // as a person picking "Low Cut": no gain, no Q
        QCOMPARE(session->values()[0], 0.0);
        QCOMPARE(session->bank()->value(0), 0.0);
        QVERIFY(!f.control("Band 1 Gain")->isVisibleTo(&f.panel));
        QVERIFY(!f.control("Band 1 Q")->isVisibleTo(&f.panel));
        session->setValue(0, 2); // from the model: the menu follows
        QCOMPARE(type->menu()->currentText(), QString("Bell"));

        auto* on = qobject_cast<ParameterSwitch*>(f.control("Band 1 On"));
        QVERIFY(on);
        QVERIFY(on->button()->isCheckable());
        QVERIFY(on->button()->isChecked());
        QCOMPARE(on->button()->text(), QString("On"));
        on->button()->click();
        QCOMPARE(session->values()[4], 0.0);
        QCOMPARE(session->bank()->value(4), 0.0);
        QCOMPARE(on->button()->text(), QString("Off"));
        session->resetToDefaults();
        QVERIFY(on->button()->isChecked());
    }

    // Each row starts a knob (the compressor's Makeup, 0 to 24 dB, linear, default 0, or the
    // pitch shifter's stepped Pitch) at a value and does one thing to it.
    void aKnobAnswersDragsTheWheelKeysDoubleClicksAndTypedValues() {
        Fixture f;
        auto session = f.add(EffectKind::compressor);
        Knob* makeup = f.knob("Makeup");
        QVERIFY(makeup);
        makeup->resize(66, 80);
        const QPoint dial(33, 40);
        const QPoint valueText = makeup->valueRect().center();
        auto typed = [&](const QString& text, Qt::Key key) {
            return [=](QWidget* w) {
                QTest::mouseClick(w, Qt::LeftButton, {}, valueText); // a click on the value
                ValueEditor* editor = ValueEditor::openOn(w);
                QVERIFY(editor);
                typeInto(editor, text, key);
            };
        };
        auto key = [](Qt::Key k, Qt::KeyboardModifiers m = {}) {
            return [=](QWidget* w) { QTest::keyClick(w, k, m); };
        };
        // 200 pixels cross the whole range of 24 dB; Shift makes it 2000.
        const Gesture rows[] = {
            {"drag up", 0,
             [&](QWidget* w) {
                 drag(w, dial, {0, -40});
             },
             4.8},
            {"drag right", 0,
             [&](QWidget* w) {
                 drag(w, dial, {40, 0});
             },
             4.8},
            {"drag down from 12", 12,
             [&](QWidget* w) {
                 drag(w, dial, {0, 40});
             },
             7.2},
            {"shift-drag up", 0,
             [&](QWidget* w) {
                 drag(w, dial, {0, -40}, Qt::ShiftModifier);
             },
             0.48},
            {"drag past the top", 20,
             [&](QWidget* w) {
                 drag(w, dial, {0, -100});
             },
             24},
            {"wheel notch", 0, [](QWidget* w) { scroll(w, 120); }, 0.5},
            {"shift-wheel notch", 0, [](QWidget* w) { scroll(w, 120, Qt::ShiftModifier); }, 0.1},
            {"wheel two down", 3, [](QWidget* w) { scroll(w, -240); }, 2},
            {"arrow up", 0, key(Qt::Key_Up), 0.5},
            {"shift arrow up", 0, key(Qt::Key_Up, Qt::ShiftModifier), 0.1},
            {"page up", 0, key(Qt::Key_PageUp), 5},
            {"end", 0, key(Qt::Key_End), 24},
            {"home", 9, key(Qt::Key_Home), 0},
            {"double-click", 9,
             [&](QWidget* w) { QTest::mouseDClick(w, Qt::LeftButton, {}, dial); }, 0},
            {"typed", 0, typed("6.5", Qt::Key_Enter), 6.5},
            {"typed with unit", 0, typed("3 dB", Qt::Key_Return), 3},
            {"typed over the top", 0, typed("99", Qt::Key_Enter), 24},
            {"typed below the floor", 5, typed("\u22126", Qt::Key_Enter), 0},
            {"typed garbage", 5, typed("loud", Qt::Key_Enter), 5, true},
            {"typed then Escape", 5, typed("7", Qt::Key_Escape), 5},
            {"Enter opens, Escape cancels", 5,
             [](QWidget* w) {
                 QTest::keyClick(w, Qt::Key_Return);
                 ValueEditor* editor = ValueEditor::openOn(w);
                 QVERIFY(editor);
                 QCOMPARE(editor->text(), QString("+5.0 dB"));
                 typeInto(editor, "8", Qt::Key_Escape);
             },
             5},
        };
        for (const Gesture& row : rows) {
            session->setValue(5, row.start);
            row.gesture(makeup);
            QVERIFY2(std::abs(makeup->value() - row.expected) < 1e-9,
                     qPrintable(QString("%1: %2").arg(row.name).arg(makeup->value())));
            QCOMPARE(session->values()[5], makeup->value());
            ValueEditor* editor = ValueEditor::openOn(makeup);
            QVERIFY2((editor != nullptr) == row.editorOpen, row.name);
            if (editor) QTest::keyClick(editor, Qt::Key_Escape);
        }

        // A stepped knob moves once per whole notch, however a touchpad's travel arrives.
        f.add(EffectKind::pitchShifter);
        Knob* pitch = f.knob("Pitch");
        QCOMPARE(pitch->value(), 7.0);
        for (int i = 0; i < 3; ++i)
            scroll(pitch, 30);
        QCOMPARE(pitch->value(), 7.0);
        scroll(pitch, 30);
        QCOMPARE(pitch->value(), 8.0);
        QVERIFY(pitch->typedValue("+3.4 st") == 3.0); // snapped to the step
    }

    // The same gestures on a gain slider in tenths of a dB (the transport bar's, -30 to +30 dB).
    void aGainSliderAnswersShiftDragsTheWheelDoubleClicksAndTypedValues() {
        GainRig rig;
        QSlider* slider = rig.slider;
        const double pixels = rig.control->fullRangePixels();
        QVERIFY(pixels >= 200);
        const int plain = int(std::lround(40 / pixels * 600));
        auto typed = [&](const QString& text, Qt::Key key, bool click = true) {
            return [=, &rig](QWidget*) {
                if (click)
                    QTest::mouseClick(rig.label, Qt::LeftButton);
                else
                    QTest::keyClick(slider, Qt::Key_Enter);
                ValueEditor* editor = ValueEditor::openOn(&rig.window);
                QVERIFY(editor);
                typeInto(editor, text, key);
            };
        };
        auto dragHandle = [&](QPoint by, Qt::KeyboardModifiers modifiers = {}) {
            return [=](QWidget*) { drag(slider, handleCentre(slider), by, modifiers); };
        };
        const Gesture rows[] = {
            {"drag right", 0, dragHandle({40, 0}), double(plain)},
            {"shift-drag right", 0, dragHandle({40, 0}, Qt::ShiftModifier),
             std::round(plain / 10.0)},
            {"shift-drag left", 0, dragHandle({-40, 0}, Qt::ShiftModifier),
             -std::round(plain / 10.0)},
            {"wheel notch: 0.5 dB", 0, [](QWidget* w) { scroll(w, 120); }, 5},
            {"shift-wheel notch: 0.1 dB", 0, [](QWidget* w) { scroll(w, -120, Qt::ShiftModifier); },
             -1},
            {"touchpad", 0,
             [](QWidget* w) {
                 for (int i = 0; i < 4; ++i)
                     scroll(w, 30);
             },
             5},
            {"double-click: 0 dB", 100,
             [](QWidget* w) { QTest::mouseDClick(w, Qt::LeftButton, {}, QPoint(20, 12)); }, 0},
            {"arrow", 0, [](QWidget* w) { QTest::keyClick(w, Qt::Key_Right); }, 5},
            {"shift arrow", 0,
             [](QWidget* w) { QTest::keyClick(w, Qt::Key_Left, Qt::ShiftModifier); }, -1},
            {"end", 0, [](QWidget* w) { QTest::keyClick(w, Qt::Key_End); }, 300},
            {"typed", 0, typed("-6.5", Qt::Key_Enter), -65},
            {"typed with unit and minus sign", 0, typed("\u22123 dB", Qt::Key_Return), -30},
            {"typed on Enter", 0, typed("4,5", Qt::Key_Enter, false), 45},
            {"typed over the top", 0, typed("+40 dB", Qt::Key_Enter), 300},
            {"typed garbage", 12, typed("-6 Hz", Qt::Key_Enter), 12, true},
            {"typed then Escape", 12, typed("3", Qt::Key_Escape), 12},
        };
        for (const Gesture& row : rows) {
            slider->setValue(int(row.start));
            row.gesture(slider);
            QVERIFY2(slider->value() == int(row.expected),
                     qPrintable(QString("%1: %2").arg(row.name).arg(slider->value())));
            ValueEditor* editor = ValueEditor::openOn(&rig.window);
            QVERIFY2((editor != nullptr) == row.editorOpen, row.name);
            if (editor) QTest::keyClick(editor, Qt::Key_Escape);
        }
        QVERIFY(plain > 60 && plain <= 120); // calmer than the handle under the mouse
    }

    // A drag (plain, then with Shift) is one step in the history, as the transport's gain is.
    void aDragOfAGainSliderIsOneUndoStep() {
        Fixture f;
        GainRig rig;
        QObject::connect(rig.slider, &QSlider::valueChanged,
                         [&](int tenths) { f.track->changeGain(float(tenths) / 10.0f, "Gain"); });
        new DragStep(rig.slider,
                     [&] { return std::shared_ptr<UndoStack>(f.track, &f.track->undoStack()); });
        const QPoint start = handleCentre(rig.slider);
        QTest::mousePress(rig.slider, Qt::LeftButton, {}, start);
        for (int x = 5; x <= 40; x += 5)
            moveTo(rig.slider, start + QPointF(x, 0), {});
        for (int x = 45; x <= 80; x += 5)
            moveTo(rig.slider, start + QPointF(x, 0), Qt::ShiftModifier);
        QTest::mouseRelease(rig.slider, Qt::LeftButton, {}, start + QPoint(80, 0));
        QVERIFY(f.track->gainDB() > 1);
        QVERIFY(f.model.canUndo());
        f.model.undo();
        QCOMPARE(f.track->gainDB(), 0.0f);
        QVERIFY(!f.model.canUndo());
        {
            const QSignalBlocker block(rig.slider); // the slider follows the track
            rig.slider->setValue(0);
        }
        // A wheel notch and a typed value are a step each.
        scroll(rig.slider, 120);
        QVERIFY(rig.control->commitText("2"));
        QCOMPARE(f.track->gainDB(), 2.0f);
        f.model.undo();
        QCOMPARE(f.track->gainDB(), 0.5f);
    }

    // Each editor shows only its own parts: nothing of the compressor's (its curve, its
    // reduction meter two layouts deep) stays on show in the editor that follows it.
    void switchingFromTheCompressorLeavesNoneOfItsDisplaysOnShow() {
        Fixture f;
        f.panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&f.panel));
        auto compressor = f.add(EffectKind::compressor);
        auto onShow = [&](const QString& text) {
            int count = 0;
            for (auto* label : f.panel.findChildren<QLabel*>())
                count += label->isVisible() && label->text() == text;
            return count;
        };
        for (EffectKind kind : allEffectKinds()) {
            if (kind == EffectKind::compressor) continue;
            auto other = f.add(kind);
            f.model.effectChain()->select(compressor->id());
            QApplication::processEvents(); // a page added to a shown panel shows queued
            const QPointer<ReductionMeter> meter = f.panel.reductionMeter();
            const QPointer<QWidget> curve = f.panel.compressorDisplay();
            QVERIFY(meter && meter->isVisible() && curve->isVisible());
            f.model.effectChain()->select(other->id());
            QVERIFY(!meter->isVisible());
            QVERIFY(!curve->isVisible());
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QVERIFY(meter.isNull() && curve.isNull());
            QApplication::processEvents();
            int meters = 0;
            for (auto* shown : f.panel.findChildren<ReductionMeter*>())
                meters += shown->isVisible();
            const bool ownMeter = kind == EffectKind::limiter || kind == EffectKind::noiseGate;
            QCOMPARE(meters, ownMeter ? 1 : 0);
            QCOMPARE(onShow("Gain reduction"), ownMeter ? 1 : 0);
            QCOMPARE(f.panel.compressorDisplay(), nullptr);
        }
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
        drag(graph, start, end - start);
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
        f.panel.closeButton()->click();
        QVERIFY(!f.model.effectChain());
        QCOMPARE(closed.count(), 1);
        QCOMPARE(f.track->audio(), before);
    }
};

QTEST_MAIN(EffectsPanelTests)
#include "EffectsPanelTests.moc"
